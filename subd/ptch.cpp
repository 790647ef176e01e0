// The level functions of the subdivision types: levels, render level, linear UVs and cage mode
// of a mesh, the process-wide preview settings, and the corner queries over the subdivision
// data.
#include <algorithm>
#include <atomic>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "subd/subd_data.h"

using namespace vx::subd;

namespace {

constexpr int kRidiculousLevel = 48;
constexpr int kMaxPatchLevel = 4095;

std::atomic<int> g_preview_render_level{1};
std::atomic<int> g_preview_cage{0};

int clamp_subd(int level) noexcept {
    const int c = std::min(level, kMaxLevel);
    return c <= 0 ? 1 : c;
}

// A mesh a setter may change: not null, and not being torn down.
bool settable(const Mesh *mesh) noexcept {
    return mesh != nullptr && !dying(mesh);
}

// The subdivision data, validated if it can be: a surface that cannot be built leaves the
// levels settable all the same.
SubdData *data_of(Mesh *mesh) {
    try {
        return validate(mesh);
    } catch (const vx::Failure &) {
        return record_of(mesh);
    }
}

template <class Read>
int read_levels(Mesh *mesh, Read read) noexcept {
    if (mesh == nullptr) return 0;
    return vx::guard(0, [&] { return read(*levels_of(mesh)); });
}

int set_patch_level(Mesh *mesh, int level, MeshMetaClass *Classes::*cls,
                    std::int32_t PolyTypeLevels::*field) {
    const int c = std::clamp(level, 1, kMaxPatchLevel);
    if (!settable(mesh)) return mesh == nullptr ? 0 : c;
    vx::guard([&] {
        vx::mesh::change_event(mesh, SUBD_EVENT_BEFORE);
        PolyTypeLevels *levels = levels_of(mesh);
        MeshMetaClass *meta = classes().*cls;
        if (levels->*field != c) vx::mesh::meta_invalidate(meta, mesh, 0);
        levels->*field = c;
        // The type's data remembers the level it is for (its first field).
        *static_cast<std::int32_t *>(vx::mesh::meta_record(meta, mesh)) = c;
        vx::mesh::change_event(mesh, SUBD_EVENT_AFTER);
    });
    return c;
}

}  // namespace

extern "C" {

VX_API PolyTypeLevels *PolyTypeGetLevels(Mesh *mesh) {
    if (mesh == nullptr) return nullptr;
    return vx::guard<PolyTypeLevels *>(nullptr, [&] { return levels_of(mesh); });
}

VX_API int SUBDSetLevel(Mesh *mesh, int level) {
    if (level >= kRidiculousLevel) VX_FAIL_LINE("SUBD level set to ridiculous value!", nullptr);
    if (!settable(mesh)) return level;
    vx::guard([&] {
        vx::mesh::change_event(mesh, SUBD_EVENT_BEFORE);
        PolyTypeLevels *levels = levels_of(mesh);
        SubdData *data = data_of(mesh);
        const int c = clamp_subd(level);
        levels->subdLevel = c;
        levels->renderLevel = c;
        if (c != data->table.level.load(std::memory_order_relaxed)) {
            data->table.level.store(c, std::memory_order_relaxed);
            flush(*data);
        }
        vx::mesh::change_event(mesh, SUBD_EVENT_AFTER);
    });
    return level;
}

VX_API int SUBDGetLevel(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.subdLevel; });
}

VX_API int SUBDSetRenderLevel(Mesh *mesh, int level) {
    if (!settable(mesh)) return level;
    vx::guard([&] {
        vx::mesh::change_event(mesh, SUBD_EVENT_BEFORE);
        PolyTypeLevels *levels = levels_of(mesh);
        data_of(mesh);
        if (level != levels->renderLevel) levels->renderLevel = clamp_subd(level);
    });
    return level;
}

VX_API int SUBDGetRenderLevel(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.renderLevel; });
}

VX_API void SUBDSetLinearUV(Mesh *mesh, int mode) {
    if (!settable(mesh)) return;
    vx::guard([&] {
        vx::mesh::change_event(mesh, SUBD_EVENT_BEFORE);
        PolyTypeLevels *levels = levels_of(mesh);
        SubdData *data = data_of(mesh);
        const bool changed = (data->linear_uv != 0) != (mode != 0);
        data->linear_uv = mode;
        levels->linearUV = mode;
        // The face-varying rule is part of the surface's topology.
        if (changed) vx::mesh::meta_invalidate(classes().subd, mesh, 0);
        vx::mesh::change_event(mesh, SUBD_EVENT_AFTER);
    });
}

VX_API int SUBDGetLinearUV(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.linearUV; });
}

VX_API int SUBDSetCageMode(Mesh *mesh, int mode) {
    if (!settable(mesh)) return mode;
    vx::guard([&] {
        PolyTypeLevels *levels = levels_of(mesh);
        SubdData *data = data_of(mesh);
        data->cage = mode;
        levels->cageMode = mode;
        flush(*data);
        if (data->owner->flags == 0) {
            refresh(mesh, *data, kRefreshTopology);
        } else if (mode == 0) {
            refresh(mesh, *data, kRefreshGeometry);
        }
    });
    return mode;
}

VX_API int SUBDGetCageMode(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.cageMode; });
}

VX_API int PTCHSetLevel(Mesh *mesh, int level) {
    return set_patch_level(mesh, level, &Classes::patch, &PolyTypeLevels::patchLevel);
}

VX_API int PTCHGetLevel(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.patchLevel; });
}

VX_API int SPCHSetLevel(Mesh *mesh, int level) {
    return set_patch_level(mesh, level, &Classes::spline, &PolyTypeLevels::splineLevel);
}

VX_API int SPCHGetLevel(Mesh *mesh) {
    return read_levels(mesh, [](const PolyTypeLevels &l) { return l.splineLevel; });
}

VX_API int SUBDGetPreviewRenderLevel(void) {
    return g_preview_render_level.load(std::memory_order_relaxed);
}

VX_API void SUBDSetPreviewRenderLevel(int level) {
    g_preview_render_level.store(level, std::memory_order_relaxed);
}

VX_API int SUBDGetPreviewCage(void) {
    return g_preview_cage.load(std::memory_order_relaxed);
}

VX_API void SUBDSetPreviewCage(int cage) {
    g_preview_cage.store(cage, std::memory_order_relaxed);
}

VX_API int SUBDGetCorner(Mesh *mesh, const MeshVertex *vertex, float out[3]) {
    if (mesh == nullptr || vertex == nullptr || out == nullptr) return 0;
    return vx::guard(0, [&] {
        const SubdData *data = validate(mesh);
        if (data->cage != 0) return 0;
        return surface_corner(*data->surface, vertex, out) ? 1 : 0;
    });
}

VX_API int SUBDGetUVCorner(Mesh *mesh, const VMap *map, const MeshPolygon *polygon,
                           unsigned int corner, float out[3]) {
    if (mesh == nullptr || polygon == nullptr || out == nullptr) return 0;
    if (corner >= polygon->count) return 0;
    return vx::guard(0, [&] {
        const SubdData *data = validate(mesh);
        const UVSet *set = surface_uv_set(*data->surface, map);
        if (set == nullptr || data->cage != 0) return 0;
        const int face = surface_face(*data->surface, polygon);
        if (face < 0 || set->face_has[static_cast<std::size_t>(face)] == 0) return 0;
        const std::size_t at =
            3 * (static_cast<std::size_t>(surface_face_offset(*data->surface, face)) + corner);
        for (int k = 0; k < 3; ++k) out[k] = set->corners[at + static_cast<std::size_t>(k)];
        return 1;
    });
}

VX_API int PTCHGetCorner(Mesh *mesh, const MeshVertex *vertex, float out[3]) {
    VX_FAIL_LINE("PTCHGetCorner: SubPatch was removed.", nullptr);
    if (vertex != nullptr && out != nullptr) MeshVertexPosF(mesh, vertex, out);
    return 0;
}

VX_API int PTCHGetEdgeBezier(Mesh *, const MeshPolygon *, unsigned int, float *) {
    VX_FAIL_LINE("PTCHGetEdgeBezier: SubPatch was removed.", nullptr);
    return 0;
}

}  // extern "C"
