#include <vexor/block.h>

#include <cstdint>

#include "foundation/block_stream.h"
#include "foundation/guard.h"

// ---- Writing ----

extern "C" VX_API BlkWriter *BlkWriterOpenFile(const char *path) {
    return vx::guard(static_cast<BlkWriter *>(nullptr), [&] { return BlkWriter::open_file(path); });
}

extern "C" VX_API BlkWriter *BlkWriterOpenMemory(void) {
    return vx::guard(static_cast<BlkWriter *>(nullptr), [] { return BlkWriter::open_memory(); });
}

extern "C" VX_API const void *BlkWriterMemoryData(const BlkWriter *w, size_t *size) {
    if (w == nullptr) {
        if (size != nullptr) *size = 0;
        return nullptr;
    }
    return w->memory_data(size);
}

extern "C" VX_API int BlkWriterClose(BlkWriter *w) {
    if (w == nullptr) return 0;
    const bool ok = w->finish();
    delete w;
    return ok ? 1 : 0;
}

extern "C" VX_API int BlkWriteBlock(BlkWriter *w, unsigned int id) {
    if (w == nullptr) return 0;
    return vx::guard(0, [&] {
        w->begin(id);
        return 1;
    });
}

extern "C" VX_API int BlkWriteU4(BlkWriter *w, const unsigned int *values, unsigned int count) {
    if (w == nullptr || (values == nullptr && count > 0)) return 0;
    return vx::guard(0, [&] {
        w->write_u4(values, count);
        return 1;
    });
}

extern "C" VX_API int BlkWriteI4(BlkWriter *w, const int *values, unsigned int count) {
    if (w == nullptr || (values == nullptr && count > 0)) return 0;
    return vx::guard(0, [&] {
        w->write_i4(values, count);
        return 1;
    });
}

extern "C" VX_API int BlkWriteFP(BlkWriter *w, const float *values, unsigned int count) {
    if (w == nullptr || (values == nullptr && count > 0)) return 0;
    return vx::guard(0, [&] {
        w->write_fp(values, count);
        return 1;
    });
}

extern "C" VX_API int BlkWritePadding(BlkWriter *w, unsigned int size) {
    if (w == nullptr) return 0;
    return vx::guard(0, [&] {
        w->write_padding(size);
        return 1;
    });
}

extern "C" VX_API int BlkWriteEnd(BlkWriter *w) {
    if (w == nullptr) return 0;
    return vx::guard(0, [&] {
        w->end();
        return 1;
    });
}

// ---- Reading ----

extern "C" VX_API BlkReader *BlkReaderOpenFile(const char *path) {
    return vx::guard(static_cast<BlkReader *>(nullptr), [&] { return BlkReader::open_file(path); });
}

extern "C" VX_API BlkReader *BlkReaderOpenMemory(const void *data, size_t size) {
    return vx::guard(static_cast<BlkReader *>(nullptr),
                     [&] { return BlkReader::open_memory(data, size); });
}

extern "C" VX_API void BlkReaderClose(BlkReader *r) {
    delete r;
}

extern "C" VX_API int BlkReaderFailed(const BlkReader *r) {
    return r != nullptr && r->bad() ? 1 : 0;
}

extern "C" VX_API unsigned int BlkFindBlock(BlkReader *r, const BlkBlockId *table) {
    return r != nullptr ? r->find(table) : 0;
}

extern "C" VX_API unsigned int BlkReadU4(BlkReader *r, unsigned int *values, unsigned int count) {
    if (r == nullptr || values == nullptr) return 0;
    return static_cast<unsigned int>(r->read_u4(values, count));
}

extern "C" VX_API unsigned int BlkReadI4(BlkReader *r, int *values, unsigned int count) {
    if (r == nullptr || values == nullptr) return 0;
    return static_cast<unsigned int>(r->read_i4(values, count));
}

extern "C" VX_API unsigned int BlkReadFP(BlkReader *r, float *values, unsigned int count) {
    if (r == nullptr || values == nullptr) return 0;
    return static_cast<unsigned int>(r->read_fp(values, count));
}

extern "C" VX_API int BlkReadEnd(BlkReader *r) {
    return r != nullptr && r->end() ? 1 : 0;
}
