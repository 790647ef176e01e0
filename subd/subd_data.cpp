// The meta data classes of the subdivision types: the level record of every mesh, the "SUBD"
// type's subdivision data, and the per-mesh data of patches and spline patches.
#include "subd/subd_data.h"

#include <mutex>
#include <new>
#include <type_traits>

#include "foundation/failure.h"
#include "mesh/poly_type.h"

namespace vx::subd {

// The record is zero-filled memory that the mesh frees without running destructors.
static_assert(std::is_trivially_destructible_v<std::mutex>);
static_assert(std::is_trivially_destructible_v<std::atomic<int>>);

namespace {

constexpr int kDefaultLevel = 2;

constexpr std::uint32_t code4(const char (&text)[5]) {
    return VX_CODE4(text[0], text[1], text[2], text[3]);
}

void levels_init(void *record, Mesh *) {
    auto *levels = static_cast<PolyTypeLevels *>(record);
    levels->patchLevel = kDefaultLevel;
    levels->subdLevel = kDefaultLevel;
    levels->splineLevel = kDefaultLevel;
    levels->linearUV = 0;
    levels->renderLevel = kDefaultLevel;
    levels->cageMode = 0;
}

// The level record has nothing derived.
int levels_build(void *, Mesh *) {
    return 1;
}

void subd_init(void *record, Mesh *) {
    auto *data = new (record) SubdData();
    data->owner = &data->own;
    data->table.level.store(kDefaultLevel, std::memory_order_relaxed);
}

int subd_build(void *record, Mesh *mesh) {
    auto *data = static_cast<SubdData *>(record);
    Surface *surface = build_surface(mesh, data->table.level.load(std::memory_order_relaxed),
                                     data->linear_uv != 0);
    std::lock_guard<std::mutex> hold(data->semaphore);
    free_slots(data->table);
    take_fresh(*surface, data->table);
    data->surface = surface;
    return 1;
}

void subd_drop(void *record, Mesh *) {
    auto *data = static_cast<SubdData *>(record);
    std::lock_guard<std::mutex> hold(data->semaphore);
    free_slots(data->table);
    free_surface(data->surface);
    data->surface = nullptr;
}

// Patches keep the level their data was made for and how many polygons of their type it
// covers; the drawing of patches is not kept here.
struct PatchData {
    std::int32_t level;
    std::uint32_t polygons;
    const PolyType *type;
};

template <std::uint32_t Code>
void patch_init(void *record, Mesh *) {
    auto *data = static_cast<PatchData *>(record);
    data->level = kDefaultLevel;
    data->type = vx::mesh::poly_type_lookup(Code);
}

int patch_build(void *record, Mesh *mesh) {
    auto *data = static_cast<PatchData *>(record);
    std::uint32_t polygons = 0;
    const std::uint32_t n = vx::mesh::num_polygons(mesh);
    for (std::uint32_t i = 0; i < n; ++i) {
        const MeshPolygon *polygon = vx::mesh::polygon_at(mesh, i);
        if (polygon != nullptr && polygon->type() == data->type) ++polygons;
    }
    data->polygons = polygons;
    return 1;
}

constexpr std::uint32_t kShape =
    MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS | MESH_CHANGE_POSITIONS | MESH_CHANGE_MAPS;

Classes define_classes() {
    Classes c{};
    c.subd_type = vx::mesh::poly_type_lookup(code4("SUBD"));
    c.patch_type = vx::mesh::poly_type_lookup(code4("PTCH"));
    c.spline_type = vx::mesh::poly_type_lookup(code4("SPCH"));
    if (c.subd_type == nullptr || c.patch_type == nullptr || c.spline_type == nullptr) {
        fail(rc::refused, "meshes have not started");
    }
    c.levels = vx::mesh::meta_define(
        "subdLevels", MeshMetaOps{sizeof(PolyTypeLevels), 0, &levels_init, &levels_build, nullptr});
    c.subd = vx::mesh::meta_define(
        "subdSurface", MeshMetaOps{sizeof(SubdData), kShape, &subd_init, &subd_build, &subd_drop});
    c.patch = vx::mesh::meta_define("patchData",
                                    MeshMetaOps{sizeof(PatchData), MESH_CHANGE_POLYGONS,
                                                &patch_init<code4("PTCH")>, &patch_build, nullptr});
    c.spline = vx::mesh::meta_define(
        "splinePatchData", MeshMetaOps{sizeof(PatchData), MESH_CHANGE_POLYGONS,
                                       &patch_init<code4("SPCH")>, &patch_build, nullptr});
    if (!vx::mesh::poly_type_set_meta(c.subd_type, c.subd) ||
        !vx::mesh::poly_type_set_meta(c.patch_type, c.patch) ||
        !vx::mesh::poly_type_set_meta(c.spline_type, c.spline)) {
        fail(rc::refused, "a subdivision type has another meta data class");
    }
    return c;
}

}  // namespace

const Classes &classes() {
    static std::mutex lock;
    static Classes defined{};
    static std::atomic<bool> ready{false};
    if (ready.load(std::memory_order_acquire)) return defined;
    std::lock_guard<std::mutex> hold(lock);
    if (!ready.load(std::memory_order_relaxed)) {
        defined = define_classes();
        ready.store(true, std::memory_order_release);
    }
    return defined;
}

namespace {
// Meshes made after MeshStartup get their records of the subdivision classes at MeshCreate.
void define_at_startup() {
    classes();
}
[[maybe_unused]] const bool g_step_added = vx::mesh::add_startup_step(&define_at_startup);
}  // namespace

bool dying(const Mesh *mesh) noexcept {
    return (mesh->flags & vx::mesh::kDying) != 0;
}

PolyTypeLevels *levels_of(Mesh *mesh) {
    if (dying(mesh)) fail(rc::refused, "the mesh is being destroyed");
    return static_cast<PolyTypeLevels *>(vx::mesh::meta_record(classes().levels, mesh));
}

SubdData *record_of(Mesh *mesh) {
    if (dying(mesh)) fail(rc::refused, "the mesh is being destroyed");
    return static_cast<SubdData *>(vx::mesh::meta_record(classes().subd, mesh));
}

SubdData *validate(Mesh *mesh) {
    if (dying(mesh)) fail(rc::refused, "the mesh is being destroyed");
    return static_cast<SubdData *>(vx::mesh::meta_validate(classes().subd, mesh));
}

void free_slots(SlotTable &table) noexcept {
    for (RefinedSlot *&slot : table.slots) {
        delete slot;
        slot = nullptr;
    }
}

void flush(SubdData &data) noexcept {
    std::lock_guard<std::mutex> hold(data.semaphore);
    free_slots(data.table);
}

void refresh(Mesh *mesh, SubdData &data, std::uint32_t flags) {
    if ((flags & kRefreshTopology) != 0) {
        vx::mesh::meta_invalidate(classes().subd, mesh, 0);
        return;
    }
    if ((flags & kRefreshGeometry) != 0) {
        // The positions at the data's level, made now so that the surface shows at once.
        std::lock_guard<std::mutex> hold(data.semaphore);
        if (data.surface == nullptr || surface_face_count(*data.surface) == 0) return;
        RefinedSlot *slot =
            make_slot(*data.surface, 0, data.table.level.load(std::memory_order_relaxed));
        delete data.table.slots[0];
        data.table.slots[0] = slot;
    }
}

}  // namespace vx::subd
