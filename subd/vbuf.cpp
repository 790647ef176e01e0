// Polygon vertex buffers and their attribute buffers: polygon outlines (smoothed along the
// subdivided boundary of subdivision surface polygons) and fan triangles, generated in two
// passes (count, then generate) into a reference-counted attribute buffer.
#include <vexor/vbuf.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "foundation/guard.h"
#include "mesh/poly_type.h"
#include "subd/subd_data.h"

using namespace vx::subd;

struct AttrVBuf {
    std::atomic<int> refs{1};
    int updating = 0;
    std::uint32_t dimension = 0;
    std::vector<float> values;
    std::vector<std::uint32_t> indices;
    std::uint32_t count = 0;
    std::uint32_t index_count = 0;
};

struct PolyVBuf {
    Mesh *mesh = nullptr;
    VMap *source = nullptr;
    std::uint32_t mode = PVBUF_OUTLINE;
    AttrVBuf *avb = nullptr;
    // The buffer's own subdivision data: its level and refined geometry, from one build of the
    // mesh's surface.
    SlotTable table{};
    std::uint64_t serial = 0;
    std::size_t counted = 0;
    std::size_t counted_indices = 0;
};

namespace {

bool polygon_of(const PolyVBuf &buffer, const MeshPolygon *polygon) noexcept {
    return polygon != nullptr && (polygon->flags & vx::mesh::kDead) == 0 && polygon->count > 0 &&
           polygon->mesh != nullptr &&
           (polygon->mesh == buffer.mesh || polygon->mesh == buffer.mesh->source);
}

// How a polygon's outline is made: from the subdivided surface (face >= 0, with its data), or
// from its corners.
struct Plan {
    SubdData *data = nullptr;
    int face = -1;
    int level = 0;  // of the refined geometry
    unsigned key = 0;
    std::size_t samples = 0;
};

Plan plan(PolyVBuf &buffer, const MeshPolygon *polygon) {
    Plan p;
    p.samples = polygon->count;
    const int level = buffer.table.level.load(std::memory_order_relaxed);
    if (buffer.mode == PVBUF_TRIANGLES || level <= 0) return p;
    const Classes &c = classes();
    if (polygon->type() != c.subd_type || (polygon->type()->flags & POLYTYPE_AREA) == 0 ||
        (polygon->type()->flags & POLYTYPE_LINEAR) != 0) {
        return p;
    }
    SubdData *data = validate(buffer.mesh);
    if (data->cage != 0) return p;
    const Surface &surface = *data->surface;
    const int face = surface_face(surface, polygon);
    if (face < 0) return p;
    if (buffer.source != nullptr) {
        if (data->linear_uv != 0) return p;
        const int set = surface_uv_set_index(surface, buffer.source);
        if (set < 0 || surface_uv_set(surface, buffer.source)->face_has[std::size_t(face)] == 0) {
            return p;
        }
        p.key = static_cast<unsigned>(set) + 1;
    }
    p.data = data;
    p.face = face;
    p.level = fitted_level(surface, level);
    p.samples = std::size_t{polygon->count} << (buffer.mode == PVBUF_QUADS ? 2 * p.level : p.level);
    return p;
}

// Copies the polygon's outline (or quads) from refined geometry: the mesh's own slots when the
// buffer is at the mesh's level (under the data's semaphore, filling them when empty), else the
// buffer's, made from the mesh's surface when missing.
void copy_outline(PolyVBuf &buffer, const Plan &p, float *out, std::size_t dim) {
    Surface &surface = *p.data->surface;
    const auto copy = [&](const RefinedSlot &slot) {
        const auto corner = static_cast<std::size_t>(surface_face_offset(surface, p.face));
        if (buffer.mode == PVBUF_OUTLINE) {
            const std::size_t first = corner << slot.level;
            std::memcpy(out, slot.outlines.data() + first * dim, p.samples * dim * sizeof(float));
            return;
        }
        // The refined quads of a surface face follow each other, 4^(level-1) per corner.
        const std::size_t first = 4 * (corner << (2 * slot.level - 2));
        for (std::size_t i = 0; i < p.samples; ++i) {
            const auto value = static_cast<std::size_t>(slot.quads[first + i]);
            std::memcpy(out + i * dim, slot.refined() + value * dim, dim * sizeof(float));
        }
    };
    std::unique_lock<std::mutex> hold(p.data->semaphore);
    const int mesh_level = p.data->table.level.load(std::memory_order_relaxed);
    if (fitted_level(surface, mesh_level) == p.level) {
        RefinedSlot *&slot = p.data->table.slots[p.key];
        if (slot == nullptr) slot = make_slot(surface, p.key, mesh_level);
        copy(*slot);
        return;
    }
    if (buffer.serial != surface_serial(surface)) {
        free_slots(buffer.table);
        buffer.serial = surface_serial(surface);
    }
    RefinedSlot *&own = buffer.table.slots[p.key];
    if (own == nullptr) own = make_slot(surface, p.key, p.level);
    hold.unlock();
    copy(*own);
}

// The value of a polygon corner: its texture value (zero without one) or its position.
void corner_value(const PolyVBuf &buffer, const MeshPolygon *polygon, unsigned corner, float *out) {
    const MeshVertex *vertex = polygon->vertices()[corner];
    if (buffer.source == nullptr) {
        MeshVertexPosF(buffer.mesh, vertex, out);
        return;
    }
    const float *uv = VMapEval(buffer.source, vertex, polygon);
    out[0] = uv != nullptr ? uv[0] : 0.0f;
    out[1] = uv != nullptr ? uv[1] : 0.0f;
}

std::size_t triangle_indices(const MeshPolygon *polygon) noexcept {
    return polygon->count >= 3 ? 3 * (std::size_t{polygon->count} - 2) : 0;
}

unsigned generate(PolyVBuf &buffer, const MeshPolygon *polygon) {
    AttrVBuf &avb = *buffer.avb;
    const Plan p = plan(buffer, polygon);
    const std::size_t dim = avb.dimension;
    const std::size_t at = avb.count;
    const std::size_t indices = buffer.mode == PVBUF_TRIANGLES ? triangle_indices(polygon) : 0;
    if ((at + p.samples) * dim > avb.values.size() ||
        avb.index_count + indices > avb.indices.size()) {
        return 0;
    }
    float *out = avb.values.data() + at * dim;
    if (p.face >= 0) {
        copy_outline(buffer, p, out, dim);
    } else {
        for (unsigned i = 0; i < polygon->count; ++i)
            corner_value(buffer, polygon, i, out + i * dim);
    }
    for (std::size_t i = 1; i + 1 < polygon->count && indices != 0; ++i) {
        std::uint32_t *tri = avb.indices.data() + avb.index_count;
        tri[0] = static_cast<std::uint32_t>(at);
        tri[1] = static_cast<std::uint32_t>(at + i);
        tri[2] = static_cast<std::uint32_t>(at + i + 1);
        avb.index_count += 3;
    }
    avb.count = static_cast<std::uint32_t>(at + p.samples);
    return static_cast<unsigned>(p.samples);
}

}  // namespace

extern "C" {

VX_API PolyVBuf *PolyVBufCreate(Mesh *mesh, VMap *source, uint32_t mode) {
    if (mesh == nullptr || mode > PVBUF_QUADS) return nullptr;
    if (source != nullptr && (VMapMesh(source) != mesh || VMapDimension(source) != 2)) {
        return nullptr;
    }
    return vx::guard<PolyVBuf *>(nullptr, [&] {
        const int level = levels_of(mesh)->subdLevel;
        auto buffer = std::make_unique<PolyVBuf>();
        buffer->avb = new AttrVBuf();
        buffer->avb->dimension = source != nullptr ? 2 : 3;
        buffer->mesh = mesh;
        buffer->source = source;
        buffer->mode = mode;
        buffer->table.level.store(level, std::memory_order_relaxed);
        return buffer.release();
    });
}

VX_API void PolyVBufDestroy(PolyVBuf *buffer) {
    if (buffer == nullptr) return;
    free_slots(buffer->table);
    AVBDrop(buffer->avb);
    delete buffer;
}

VX_API void PolyVBufResetCount(PolyVBuf *buffer) {
    if (buffer == nullptr) return;
    buffer->counted = 0;
    buffer->counted_indices = 0;
    buffer->avb->count = 0;
    buffer->avb->index_count = 0;
}

VX_API int PolyVBufCountPoly(PolyVBuf *buffer, const MeshPolygon *polygon) {
    if (buffer == nullptr || !polygon_of(*buffer, polygon)) return 0;
    return vx::guard(0, [&] {
        buffer->counted += plan(*buffer, polygon).samples;
        if (buffer->mode == PVBUF_TRIANGLES) buffer->counted_indices += triangle_indices(polygon);
        return 1;
    });
}

VX_API int PolyVBufAllocate(PolyVBuf *buffer) {
    if (buffer == nullptr || buffer->avb->updating != 0) return 0;
    AttrVBuf &avb = *buffer->avb;
    const int done = vx::guard(0, [&] {
        avb.values.resize(buffer->counted * avb.dimension);
        avb.indices.resize(buffer->counted_indices);
        return 1;
    });
    if (done == 0) {
        std::vector<float>().swap(avb.values);
        std::vector<std::uint32_t>().swap(avb.indices);
    }
    avb.count = 0;
    avb.index_count = 0;
    return done;
}

VX_API unsigned int PolyVBufGenPoly(PolyVBuf *buffer, const MeshPolygon *polygon) {
    if (buffer == nullptr || !polygon_of(*buffer, polygon)) return 0;
    return vx::guard(0u, [&] { return generate(*buffer, polygon); });
}

VX_API AttrVBuf *PolyVBufAttributes(PolyVBuf *buffer) {
    return buffer != nullptr ? buffer->avb : nullptr;
}

VX_API void *PolyVBufGetData(PolyVBuf *buffer, const PolyType *type) {
    if (buffer == nullptr || type == nullptr) return nullptr;
    return vx::guard<void *>(nullptr, [&]() -> void * {
        return type == classes().subd_type ? &buffer->table : nullptr;
    });
}

VX_API int PolyVBufLevel(const PolyVBuf *buffer) {
    return buffer != nullptr ? buffer->table.level.load(std::memory_order_relaxed) : 0;
}

VX_API void SUBDVBufSetLevel(PolyVBuf *buffer, int level) {
    auto *table = static_cast<SlotTable *>(
        PolyVBufGetData(buffer, PolyTypeCodeLookup(VX_CODE4('S', 'U', 'B', 'D'))));
    if (table == nullptr) return;
    free_slots(*table);
    table->level.store(std::clamp(level, 0, kMaxLevel), std::memory_order_relaxed);
}

VX_API void AVBGrab(AttrVBuf *avb) {
    if (avb != nullptr) avb->refs.fetch_add(1, std::memory_order_relaxed);
}

VX_API void AVBDrop(AttrVBuf *avb) {
    if (avb != nullptr && avb->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete avb;
}

VX_API int AVBUpdateBegin(AttrVBuf *avb, AVBView *view) {
    if (avb == nullptr || view == nullptr) return 0;
    ++avb->updating;
    view->values = avb->values.data();
    view->dimension = avb->dimension;
    view->count = avb->count;
    view->indices = avb->indices.data();
    view->indexCount = avb->index_count;
    return 1;
}

VX_API void AVBUpdateEnd(AttrVBuf *avb) {
    if (avb != nullptr && avb->updating > 0) --avb->updating;
}

}  // extern "C"
