// Per-mesh meta data: the class registry, each mesh's records, and the two built-in classes
// (polygon normals and mesh bounds).
#include "mesh/mesh_meta.h"

#include <cmath>
#include <cstring>
#include <mutex>

#include "foundation/failure.h"
#include "foundation/memory.h"
#include "mesh/mesh.h"
#include "mesh/poly_type.h"

namespace vx::mesh {

namespace {

constexpr unsigned kMaxClasses = 64;

struct Registry {
    std::mutex lock;
    MeshMetaClass classes[kMaxClasses];
    unsigned count = 0;
};

Registry &registry() {
    static Registry state;
    return state;
}

bool same_ops(const MeshMetaOps &a, const MeshMetaOps &b) noexcept {
    return a.size == b.size && a.depends == b.depends && a.init == b.init && a.build == b.build &&
           a.drop == b.drop;
}

MetaSlot *find_slot(const Mesh *mesh, const MeshMetaClass *cls) noexcept {
    auto &slots = const_cast<Mesh *>(mesh)->meta.slots;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (slots[i].cls == cls) return &slots[i];
    }
    return nullptr;
}

std::size_t record_bytes(const MeshMetaClass *cls) noexcept {
    return cls->ops.size == 0 ? 1 : cls->ops.size;
}

void drop(MetaSlot &slot, Mesh *mesh) noexcept {
    if (slot.valid && slot.cls->ops.drop != nullptr) slot.cls->ops.drop(slot.record, mesh);
    slot.valid = false;
}

// ---- Polygon normals: one unit normal per polygon the mesh made, by polygon slot. -------

struct NormalsRecord {
    float *normals;  // three floats per slot
    std::size_t slots;
};

std::size_t normals_bytes(std::size_t slots) noexcept {
    return (slots * 3 + 1) * sizeof(float);
}

void normals_drop(void *record, Mesh *) {
    auto *r = static_cast<NormalsRecord *>(record);
    vx::FreeHeap(r->normals, normals_bytes(r->slots));
    r->normals = nullptr;
    r->slots = 0;
}

// Newell's normal of the polygon's loop; zero when it has fewer than three vertices or no area.
void polygon_normal(const MeshPolygon *polygon, float out[3]) noexcept {
    double n[3] = {0.0, 0.0, 0.0};
    const unsigned count = polygon->count;
    if (count >= 3) {
        for (unsigned i = 0; i < count; ++i) {
            const MeshVertex *a = polygon->vertices()[i];
            const MeshVertex *b = polygon->vertices()[(i + 1) % count];
            if (a == nullptr || b == nullptr) {
                n[0] = n[1] = n[2] = 0.0;
                break;
            }
            const float *pf = a->position;
            const float *qf = b->position;
            const double p[3] = {static_cast<double>(pf[0]), static_cast<double>(pf[1]),
                                 static_cast<double>(pf[2])};
            const double q[3] = {static_cast<double>(qf[0]), static_cast<double>(qf[1]),
                                 static_cast<double>(qf[2])};
            n[0] += (p[1] - q[1]) * (p[2] + q[2]);
            n[1] += (p[2] - q[2]) * (p[0] + q[0]);
            n[2] += (p[0] - q[0]) * (p[1] + q[1]);
        }
    }
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int k = 0; k < 3; ++k) out[k] = length > 0.0 ? static_cast<float>(n[k] / length) : 0.0f;
}

int normals_build(void *record, Mesh *mesh) {
    auto *r = static_cast<NormalsRecord *>(record);
    const std::size_t slots = mesh->polygon_store.size();
    auto *normals = static_cast<float *>(vx::StdAlloc(normals_bytes(slots)));
    const PolygonList &list = mesh->own_polygons;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const MeshPolygon *polygon = list[i];
        if (polygon->mesh == mesh) polygon_normal(polygon, normals + 3 * polygon->slot);
    }
    r->normals = normals;
    r->slots = slots;
    return 1;
}

// ---- Bounds of the live vertices. --------------------------------------------------------

struct BoundsRecord {
    float box[6];
    std::int32_t any;
};

int bounds_build(void *record, Mesh *mesh) {
    auto *r = static_cast<BoundsRecord *>(record);
    r->any = 0;
    const std::uint32_t n = num_vertices(mesh);
    const std::uint32_t show_dead = mesh->show_dead;
    mesh->show_dead = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
        const MeshVertex *vertex = vertex_at(mesh, i);
        const float *p = vertex->position;
        for (int k = 0; k < 3; ++k) {
            if (r->any == 0 || p[k] < r->box[k]) r->box[k] = p[k];
            if (r->any == 0 || p[k] > r->box[k + 3]) r->box[k + 3] = p[k];
        }
        r->any = 1;
    }
    mesh->show_dead = show_dead;
    return 1;
}

MeshMetaClass *g_normals = nullptr;

}  // namespace

MeshMetaClass *meta_define(const char *name, const MeshMetaOps &ops) {
    if (name == nullptr || name[0] == '\0' || std::strlen(name) >= sizeof(MeshMetaClass{}.name)) {
        fail(rc::bad_argument, "unusable meta data class name");
    }
    if (ops.build == nullptr) fail(rc::bad_argument, "a meta data class needs a build step");
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    for (unsigned i = 0; i < r.count; ++i) {
        if (std::strcmp(r.classes[i].name, name) == 0) {
            if (!same_ops(r.classes[i].ops, ops)) fail(rc::refused, "the class name is taken");
            return &r.classes[i];
        }
    }
    if (r.count == kMaxClasses) fail(rc::refused, "the meta data class table is full");
    MeshMetaClass &cls = r.classes[r.count++];
    std::strcpy(cls.name, name);
    cls.ops = ops;
    return &cls;
}

MeshMetaClass *meta_lookup(const char *name) noexcept {
    if (name == nullptr) return nullptr;
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    for (unsigned i = 0; i < r.count; ++i) {
        if (std::strcmp(r.classes[i].name, name) == 0) return &r.classes[i];
    }
    return nullptr;
}

namespace {

// The mesh's slot of the class, made with its record (set up by init) when missing.
MetaSlot &slot_of(MeshMetaClass *cls, Mesh *mesh) {
    if (MetaSlot *slot = find_slot(mesh, cls)) return *slot;
    DenseArray<MetaSlot>::Growth room;
    mesh->meta.slots.prepare(room, 1);
    void *record = vx::StdAlloc(record_bytes(cls));
    mesh->meta.slots.commit(room);
    const std::size_t index = mesh->meta.slots.size();
    mesh->meta.slots.push_back(MetaSlot{cls, record, false});
    // An init step may make records of other classes, which moves the slots.
    if (cls->ops.init != nullptr) cls->ops.init(record, mesh);
    return mesh->meta.slots[index];
}

}  // namespace

void *meta_record(MeshMetaClass *cls, Mesh *mesh) {
    return slot_of(cls, mesh).record;
}

void *meta_validate(MeshMetaClass *cls, Mesh *mesh) {
    MetaSlot &slot = slot_of(cls, mesh);
    if (!slot.valid) {
        if (cls->ops.build(slot.record, mesh) == 0) {
            fail(rc::failed, "meta data could not be built");
        }
        slot.valid = true;
    }
    return slot.record;
}

bool meta_valid(const MeshMetaClass *cls, const Mesh *mesh) noexcept {
    const MetaSlot *slot = find_slot(mesh, cls);
    return slot != nullptr && slot->valid;
}

void meta_invalidate(MeshMetaClass *cls, Mesh *mesh, std::uint32_t flags) noexcept {
    auto &slots = mesh->meta.slots;
    for (std::size_t i = slots.size(); i-- > 0;) {
        if (cls != nullptr && slots[i].cls != cls) continue;
        drop(slots[i], mesh);
        if ((flags & MESH_META_FREE) != 0) {
            vx::FreeHeap(slots[i].record, record_bytes(slots[i].cls));
            slots.erase(i);
        }
    }
}

void meta_process_changes(Mesh *mesh, std::uint32_t mask) noexcept {
    auto &slots = mesh->meta.slots;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if ((slots[i].cls->ops.depends & mask) != 0) drop(slots[i], mesh);
    }
}

void meta_release(Mesh *mesh) noexcept {
    meta_invalidate(nullptr, mesh, MESH_META_FREE);
    mesh->meta.slots.release();
}

void meta_startup() {
    constexpr std::uint32_t shape =
        MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS | MESH_CHANGE_POSITIONS;
    g_normals = meta_define(MESH_META_NORMALS, MeshMetaOps{sizeof(NormalsRecord), shape, nullptr,
                                                           &normals_build, &normals_drop});
    meta_define(MESH_META_BOUNDS,
                MeshMetaOps{sizeof(BoundsRecord), MESH_CHANGE_VERTICES | MESH_CHANGE_POSITIONS,
                            nullptr, &bounds_build, nullptr});
}

// The cached normal of a polygon, from the normals of the mesh that made it.
bool polygon_cached_normal(const MeshPolygon *polygon, float normal[3]) {
    auto *r = static_cast<NormalsRecord *>(meta_validate(g_normals, polygon->mesh));
    if (polygon->slot >= r->slots) {
        // Made inside a batch that has not been announced yet: the normals predate it.
        meta_invalidate(g_normals, polygon->mesh, 0);
        r = static_cast<NormalsRecord *>(meta_validate(g_normals, polygon->mesh));
    }
    const float *n = r->normals + 3 * polygon->slot;
    for (int k = 0; k < 3; ++k) normal[k] = n[k];
    return n[0] != 0.0f || n[1] != 0.0f || n[2] != 0.0f;
}

}  // namespace vx::mesh
