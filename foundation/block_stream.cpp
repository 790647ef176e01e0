#include "foundation/block_stream.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <memory>

#include "foundation/failure.h"

static_assert(sizeof(float) == 4 && std::numeric_limits<float>::is_iec559,
              "block streams store IEEE 754 single floats");

namespace {

using vx::blk::kBlockHeaderSize;
using vx::blk::kMaxDepth;
using vx::blk::kPadId;
using vx::blk::padded;

// The file writer hands its buffer to the file once it holds this much.
constexpr std::size_t kFlushAt = 64 * 1024;
// Values are encoded through a small stack buffer, this many at a time.
constexpr std::size_t kChunkWords = 64;

void store_le32(unsigned char *out, std::uint32_t value) noexcept {
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
    out[2] = static_cast<unsigned char>(value >> 16);
    out[3] = static_cast<unsigned char>(value >> 24);
}

std::uint32_t load_le32(const unsigned char *in) noexcept {
    return static_cast<std::uint32_t>(in[0]) | static_cast<std::uint32_t>(in[1]) << 8 |
           static_cast<std::uint32_t>(in[2]) << 16 | static_cast<std::uint32_t>(in[3]) << 24;
}

std::uint16_t load_le16(const unsigned char *in) noexcept {
    return static_cast<std::uint16_t>(in[0] | in[1] << 8);
}

bool in_table(const BlkBlockId *table, std::uint32_t id) noexcept {
    for (const BlkBlockId *entry = table; entry->id != 0; ++entry) {
        if (entry->id == id) return true;
    }
    return false;
}

// Turns `count` 4-byte words, read from the stream into `words`, into host values in place.
template <class T>
void decode_words(T *values, std::size_t count) noexcept {
    static_assert(sizeof(T) == 4);
    auto *bytes = reinterpret_cast<unsigned char *>(values);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t word = load_le32(bytes + 4 * i);
        std::memcpy(bytes + 4 * i, &word, 4);
    }
}

}  // namespace

// ---- Writer ----

BlkWriter *BlkWriter::open_file(const char *path) {
    if (path == nullptr) vx::fail(vx::rc::bad_argument, "block writer: no file name");
    std::FILE *file = std::fopen(path, "wb");
    if (file == nullptr) vx::fail(vx::rc::failed, "block writer: cannot create the file");
    return start(file);
}

BlkWriter *BlkWriter::open_memory() {
    return start(nullptr);
}

BlkWriter *BlkWriter::start(std::FILE *file) {
    std::unique_ptr<BlkWriter> writer;
    try {
        writer.reset(new BlkWriter(file));
    } catch (...) {
        if (file != nullptr) std::fclose(file);
        throw;
    }
    if (file != nullptr) writer->buffer_.reserve(kFlushAt + kFlushAt / 4);
    writer->open_.reserve(kMaxDepth);
    const unsigned char header[vx::blk::kStreamHeaderSize] = {
        vx::blk::kMagic[0],
        vx::blk::kMagic[1],
        vx::blk::kMagic[2],
        vx::blk::kMagic[3],
        static_cast<unsigned char>(vx::blk::kVersionMajor),
        static_cast<unsigned char>(vx::blk::kVersionMajor >> 8),
        static_cast<unsigned char>(vx::blk::kVersionMinor),
        static_cast<unsigned char>(vx::blk::kVersionMinor >> 8)};
    writer->put(header, sizeof header);
    return writer.release();
}

BlkWriter::~BlkWriter() {
    if (file_ != nullptr) std::fclose(file_);
}

// Runs one write; any failure inside it leaves the writer failed for good.
template <class Fn>
void BlkWriter::guarded(Fn &&fn) {
    if (failed_) vx::fail(vx::rc::refused, "block writer: an earlier write failed");
    try {
        fn();
    } catch (...) {
        failed_ = true;
        throw;
    }
}

void BlkWriter::put(const void *bytes, std::size_t size) {
    const auto *first = static_cast<const unsigned char *>(bytes);
    buffer_.insert(buffer_.end(), first, first + size);
    if (file_ != nullptr && buffer_.size() >= kFlushAt) flush();
}

void BlkWriter::flush() {
    if (buffer_.empty()) return;
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) {
        vx::fail(vx::rc::failed, "block writer: cannot write the file");
    }
    flushed_ += buffer_.size();
    buffer_.clear();
}

void BlkWriter::patch_u32(std::uint64_t offset, std::uint32_t value) {
    unsigned char bytes[4];
    store_le32(bytes, value);
    if (offset >= flushed_) {
        std::memcpy(buffer_.data() + (offset - flushed_), bytes, sizeof bytes);
        return;
    }
    // The field already went to the file: write it in place, then carry on at the end.
    flush();
    if (offset > static_cast<std::uint64_t>(LONG_MAX) ||
        std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0 ||
        std::fwrite(bytes, 1, sizeof bytes, file_) != sizeof bytes ||
        std::fseek(file_, 0, SEEK_END) != 0) {
        vx::fail(vx::rc::failed, "block writer: cannot patch a block length in the file");
    }
}

void BlkWriter::begin(std::uint32_t id) {
    guarded([&] {
        if (id == 0 || id == kPadId) {
            vx::fail(vx::rc::bad_argument, "block writer: reserved block identifier");
        }
        if (open_.size() >= kMaxDepth) vx::fail(vx::rc::bad_argument, "block writer: too deep");
        unsigned char header[kBlockHeaderSize];
        store_le32(header, id);
        // An unfinished block keeps a length no reader accepts, so a stream cut short while
        // the block is open reads as malformed rather than as a shorter block.
        store_le32(header + 4, 0xFFFFFFFFu);
        open_.push_back(flushed_ + buffer_.size());
        put(header, sizeof header);
    });
}

void BlkWriter::end() {
    guarded([&] {
        if (open_.empty()) vx::fail(vx::rc::bad_argument, "block writer: no open block");
        const std::uint64_t header = open_.back();
        const std::uint64_t length = flushed_ + buffer_.size() - header - kBlockHeaderSize;
        if (length > 0xFFFFFFFFu) vx::fail(vx::rc::failed, "block writer: block too long");
        static constexpr unsigned char zeros[3] = {};
        put(zeros, static_cast<std::size_t>(padded(length) - length));
        patch_u32(header + 4, static_cast<std::uint32_t>(length));
        open_.pop_back();
    });
}

void BlkWriter::write_u4(const std::uint32_t *values, std::size_t count) {
    guarded([&] {
        unsigned char chunk[kChunkWords * 4];
        while (count > 0) {
            const std::size_t n = std::min(count, kChunkWords);
            for (std::size_t i = 0; i < n; ++i) store_le32(chunk + 4 * i, values[i]);
            put(chunk, 4 * n);
            values += n;
            count -= n;
        }
    });
}

void BlkWriter::write_i4(const std::int32_t *values, std::size_t count) {
    static_assert(sizeof(std::int32_t) == sizeof(std::uint32_t));
    // The same bits: two's complement, as the unsigned word.
    write_u4(reinterpret_cast<const std::uint32_t *>(values), count);
}

void BlkWriter::write_fp(const float *values, std::size_t count) {
    guarded([&] {
        unsigned char chunk[kChunkWords * 4];
        while (count > 0) {
            const std::size_t n = std::min(count, kChunkWords);
            for (std::size_t i = 0; i < n; ++i) {
                std::uint32_t bits;
                std::memcpy(&bits, values + i, sizeof bits);
                store_le32(chunk + 4 * i, bits);
            }
            put(chunk, 4 * n);
            values += n;
            count -= n;
        }
    });
}

void BlkWriter::write_bytes(const void *bytes, std::size_t size) {
    guarded([&] { put(bytes, size); });
}

void BlkWriter::write_padding(std::uint32_t size) {
    guarded([&] {
        unsigned char header[kBlockHeaderSize];
        store_le32(header, kPadId);
        store_le32(header + 4, size);
        put(header, sizeof header);
        static constexpr unsigned char zeros[256] = {};
        for (std::uint64_t left = padded(size); left > 0;) {
            const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(left, 256));
            put(zeros, n);
            left -= n;
        }
    });
}

const unsigned char *BlkWriter::memory_data(std::size_t *size) const noexcept {
    const bool memory = file_ == nullptr;
    if (size != nullptr) *size = memory ? buffer_.size() : 0;
    return memory ? buffer_.data() : nullptr;
}

bool BlkWriter::finish() noexcept {
    bool ok = !failed_ && open_.empty();
    if (file_ != nullptr) {
        try {
            if (!failed_) flush();
        } catch (...) {
            ok = false;
        }
        if (std::fclose(file_) != 0) ok = false;
        file_ = nullptr;
    }
    return ok;
}

// ---- Reader ----

BlkReader *BlkReader::open_file(const char *path) {
    if (path == nullptr) vx::fail(vx::rc::bad_argument, "block reader: no file name");
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) vx::fail(vx::rc::failed, "block reader: cannot open the file");
    long size = -1;
    if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
    if (size < 0 || std::fseek(file, 0, SEEK_SET) != 0) {
        std::fclose(file);
        vx::fail(vx::rc::failed, "block reader: cannot tell the file's size");
    }
    std::unique_ptr<BlkReader> reader;
    try {
        reader.reset(new BlkReader(file, nullptr, static_cast<std::uint64_t>(size)));
    } catch (...) {
        std::fclose(file);
        throw;
    }
    return reader->header_ok() ? reader.release() : nullptr;
}

BlkReader *BlkReader::open_memory(const void *data, std::size_t size) {
    if (data == nullptr) return nullptr;
    std::unique_ptr<BlkReader> reader(
        new BlkReader(nullptr, static_cast<const unsigned char *>(data), size));
    return reader->header_ok() ? reader.release() : nullptr;
}

BlkReader::~BlkReader() {
    if (file_ != nullptr) std::fclose(file_);
}

bool BlkReader::header_ok() noexcept {
    unsigned char header[vx::blk::kStreamHeaderSize];
    if (!fetch(0, header, sizeof header)) return false;
    if (std::memcmp(header, vx::blk::kMagic, sizeof vx::blk::kMagic) != 0) return false;
    if (load_le16(header + 4) != vx::blk::kVersionMajor) return false;
    minor_ = load_le16(header + 6);
    pos_ = sizeof header;
    return true;
}

// Copies stream bytes [offset, offset + size); false when they are not all there.
bool BlkReader::fetch(std::uint64_t offset, void *out, std::size_t size) noexcept {
    if (offset > size_ || size > size_ - offset) return false;
    auto *dst = static_cast<unsigned char *>(out);
    if (file_ == nullptr) {
        if (size > 0) std::memcpy(dst, data_ + offset, size);
        return true;
    }
    while (size > 0) {
        if (offset < window_start_ || offset >= window_start_ + window_size_) {
            // Refill the window at the offset. size_ came from ftell, so it fits a long.
            const std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, size_ - offset));
            if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) return false;
            const std::size_t got = std::fread(window_, 1, want, file_);
            window_start_ = offset;
            window_size_ = got;
            if (got == 0) return false;  // the file shrank, or could not be read
        }
        const std::size_t at = static_cast<std::size_t>(offset - window_start_);
        const std::size_t n = std::min(size, window_size_ - at);
        std::memcpy(dst, window_ + at, n);
        dst += n;
        offset += n;
        size -= n;
    }
    return true;
}

bool BlkReader::fetch_u32(std::uint64_t offset, std::uint32_t &value) noexcept {
    unsigned char bytes[4];
    if (!fetch(offset, bytes, sizeof bytes)) return false;
    value = load_le32(bytes);
    return true;
}

std::uint32_t BlkReader::fail() noexcept {
    bad_ = true;
    return 0;
}

std::uint32_t BlkReader::find(const BlkBlockId *table) noexcept {
    if (bad_ || table == nullptr) return 0;
    const std::uint64_t limit = depth_ > 0 ? levels_[depth_ - 1].end : size_;
    while (pos_ < limit) {
        if (limit - pos_ < kBlockHeaderSize) return fail();  // a header cut short
        std::uint32_t id = 0;
        std::uint32_t length = 0;
        if (!fetch_u32(pos_, id) || !fetch_u32(pos_ + 4, length)) return fail();
        const std::uint64_t body = pos_ + kBlockHeaderSize;
        // The block and its padding must lie inside whatever holds it.
        if (padded(length) > limit - body) return fail();
        const std::uint64_t next = body + padded(length);
        if (id != 0 && id != kPadId && in_table(table, id)) {
            if (depth_ == kMaxDepth) return fail();
            levels_[depth_++] = Level{body + length, next};
            pos_ = body;
            return id;
        }
        pos_ = next;
    }
    return 0;
}

std::uint64_t BlkReader::remaining() const noexcept {
    return depth_ > 0 ? levels_[depth_ - 1].end - pos_ : 0;
}

std::size_t BlkReader::read_bytes(void *bytes, std::size_t size) noexcept {
    if (bad_ || depth_ == 0) return 0;
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining()));
    if (!fetch(pos_, bytes, n)) return fail();
    pos_ += n;
    return n;
}

std::size_t BlkReader::read_words(unsigned char *out, std::size_t count) noexcept {
    if (bad_ || depth_ == 0) return 0;
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(count, remaining() / 4));
    if (!fetch(pos_, out, 4 * n)) return fail();
    pos_ += 4 * n;
    return n;
}

std::size_t BlkReader::read_u4(std::uint32_t *values, std::size_t count) noexcept {
    const std::size_t n = read_words(reinterpret_cast<unsigned char *>(values), count);
    decode_words(values, n);
    return n;
}

std::size_t BlkReader::read_i4(std::int32_t *values, std::size_t count) noexcept {
    const std::size_t n = read_words(reinterpret_cast<unsigned char *>(values), count);
    decode_words(values, n);
    return n;
}

std::size_t BlkReader::read_fp(float *values, std::size_t count) noexcept {
    const std::size_t n = read_words(reinterpret_cast<unsigned char *>(values), count);
    decode_words(values, n);
    return n;
}

bool BlkReader::end() noexcept {
    if (depth_ == 0) return false;
    pos_ = levels_[--depth_].next;
    return true;
}
