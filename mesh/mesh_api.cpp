// The C interface of meshes, polygon types and meta data: argument checks and the guard
// around the C++ operations.
#include <vexor/mesh.h>

#include "foundation/guard.h"
#include "mesh/mesh.h"
#include "mesh/poly_type.h"
#include "mesh/position_read.h"

using namespace vx::mesh;

namespace {

template <class Element>
bool live(const Element *element) noexcept {
    return element != nullptr && (element->flags & kDead) == 0;
}

// A vertex's position as the mesh sees it, widened to the caller's precision.
template <class Real>
int widen(const float *p, Real position[3]) noexcept {
    for (int axis = 0; axis < 3; ++axis) position[axis] = static_cast<Real>(p[axis]);
    return 1;
}

// An instance's read, apart: the common read below then needs no stack frame of its own.
template <class Real>
[[gnu::noinline]] int copy_seen_by_instance(const Mesh *mesh, const MeshVertex *vertex,
                                            Real position[3]) noexcept {
    return widen(position_seen_by_instance(mesh, vertex), position);
}

template <class Real>
int copy_position(const Mesh *mesh, const MeshVertex *vertex, Real position[3]) noexcept {
    if (vertex == nullptr || position == nullptr) return 0;
    if (mesh != nullptr && mesh->source != nullptr) {
        return copy_seen_by_instance(mesh, vertex, position);
    }
    return widen(stored_position(vertex), position);
}

}  // namespace

extern "C" {

// ---- Start and stop ----------------------------------------------------------------------

VX_API int MeshStartup(void) {
    return vx::guard(0, [] {
        startup();
        return 1;
    });
}

VX_API void MeshShutdown(void) {
    shutdown();
}

VX_API Port *MeshGlobalPort(void) {
    return global_port();
}

VX_API unsigned int MeshGlobalCount(void) {
    return global_count();
}

// ---- Meshes ------------------------------------------------------------------------------

VX_API Mesh *MeshCreate(void) {
    return vx::guard<Mesh *>(nullptr, [] { return create(); });
}

VX_API Mesh *MeshCreateInstance(Mesh *source, int takeEvents) {
    return vx::guard<Mesh *>(nullptr, [&] { return create_instance(source, takeEvents != 0); });
}

VX_API int MeshDestroy(Mesh *mesh) {
    return destroy(mesh) ? 1 : 0;
}

VX_API Mesh *MeshSource(const Mesh *mesh) {
    return mesh != nullptr ? mesh->source : nullptr;
}

VX_API unsigned int MeshInstanceCount(const Mesh *mesh) {
    return mesh != nullptr ? static_cast<unsigned>(mesh->related.size() - 1) : 0;
}

VX_API Mesh *MeshInstanceByIndex(const Mesh *mesh, unsigned int index) {
    if (mesh == nullptr || index + 1 >= mesh->related.size()) return nullptr;
    return mesh->related[index + 1];
}

VX_API uint32_t MeshFlags(const Mesh *mesh) {
    return mesh != nullptr ? mesh->flags : 0;
}

VX_API void MeshHoldEvents(Mesh *mesh) {
    if (mesh != nullptr) mesh->flags |= MESH_HOLD_EVENTS;
}

VX_API uint32_t MeshShowDead(const Mesh *mesh) {
    return mesh != nullptr ? mesh->show_dead : 0;
}

VX_API void MeshSetShowDead(Mesh *mesh, uint32_t showDead) {
    if (mesh != nullptr) mesh->show_dead = showDead;
}

// ---- Elements ----------------------------------------------------------------------------

VX_API MeshVertex *MeshNewVertex(Mesh *mesh, const double position[3]) {
    return vx::guard<MeshVertex *>(nullptr, [&] {
        if (position == nullptr) vx::fail(vx::rc::bad_argument, "no position");
        return new_vertex(mesh, position);
    });
}

VX_API const float *MeshVertexSet(Mesh *mesh, MeshVertex *vertex, const double position[3]) {
    return vx::guard<const float *>(nullptr, [&] {
        if (position == nullptr) vx::fail(vx::rc::bad_argument, "no position");
        return set_vertex(mesh, vertex, position);
    });
}

VX_API int MeshVertexPos(const Mesh *mesh, const MeshVertex *vertex, double position[3]) {
    return copy_position(mesh, vertex, position);
}

VX_API int MeshVertexPosF(const Mesh *mesh, const MeshVertex *vertex, float position[3]) {
    return copy_position(mesh, vertex, position);
}

VX_API const float *MeshVertexPosV(const Mesh *mesh, const MeshVertex *vertex) {
    return vertex != nullptr ? position_seen(mesh, vertex) : nullptr;
}

VX_API MeshPolygon *MeshNewEmptyPolygon(Mesh *mesh, uint32_t type, unsigned int count) {
    return vx::guard<MeshPolygon *>(
        nullptr, [&] { return new_polygon(mesh, poly_type_lookup(type), count, nullptr, false); });
}

VX_API MeshPolygon *MeshNewPolygon(Mesh *mesh, uint32_t type, unsigned int count,
                                   MeshVertex *const *vertices, int flip) {
    return vx::guard<MeshPolygon *>(nullptr, [&] {
        if (vertices == nullptr && count != 0) vx::fail(vx::rc::bad_argument, "no vertices");
        return new_polygon(mesh, poly_type_lookup(type), count, vertices, flip != 0, true);
    });
}

VX_API int MeshFreeVertex(Mesh *mesh, MeshVertex *vertex) {
    return vx::guard(0, [&] { return free_vertex(mesh, vertex) ? 1 : 0; });
}

VX_API int MeshFreePolygon(Mesh *mesh, MeshPolygon *polygon) {
    return vx::guard(0, [&] { return free_polygon(mesh, polygon) ? 1 : 0; });
}

VX_API unsigned int MeshNumVrts(const Mesh *mesh) {
    return mesh != nullptr ? num_vertices(mesh) : 0;
}

VX_API unsigned int MeshNumPols(const Mesh *mesh) {
    return mesh != nullptr ? num_polygons(mesh) : 0;
}

VX_API MeshVertex *MeshVrtByIndex(const Mesh *mesh, unsigned int index) {
    return mesh != nullptr ? element_at_fast(mesh, mesh->vertices, index) : nullptr;
}

VX_API MeshPolygon *MeshPolByIndex(const Mesh *mesh, unsigned int index) {
    return mesh != nullptr ? element_at_fast(mesh, mesh->polygons, index) : nullptr;
}

VX_API int MeshIsEmpty(const Mesh *mesh) {
    if (mesh == nullptr) return 1;
    return num_vertices(mesh) == 0 && num_polygons(mesh) == 0 ? 1 : 0;
}

VX_API Mesh *MeshVertexMesh(const MeshVertex *vertex) {
    return vertex != nullptr ? owner_of(vertex) : nullptr;
}

VX_API uint32_t MeshVertexFlags(const MeshVertex *vertex) {
    return vertex != nullptr ? vertex->flags : 0;
}

VX_API Mesh *MeshPolygonMesh(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->mesh : nullptr;
}

VX_API uint32_t MeshPolygonFlags(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->flags : 0;
}

VX_API const PolyType *MeshPolygonType(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->type() : nullptr;
}

VX_API unsigned int MeshNumVrtInPol(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->count : 0;
}

VX_API MeshVertex *MeshPolVrtByIndex(const MeshPolygon *polygon, int index) {
    // The place after the last vertex reads as null; below 0 nothing is read.
    if (polygon == nullptr || index < 0 || index >= static_cast<int>(polygon->count)) {
        return nullptr;
    }
    return polygon->vertices()[index];
}

VX_API int MeshPolSetVrt(Mesh *mesh, MeshPolygon *polygon, unsigned int index, MeshVertex *vertex) {
    return vx::guard(0, [&] {
        if (!live(vertex)) return 0;
        return set_polygon_vertex(mesh, polygon, index, vertex) ? 1 : 0;
    });
}

// ---- Change events -----------------------------------------------------------------------

VX_API Port *MeshEventPort(const Mesh *mesh) {
    return mesh != nullptr ? mesh->port : nullptr;
}

VX_API void MeshChangeEvent(Mesh *mesh, uint32_t mask) {
    if (mesh != nullptr) change_event(mesh, mask);
}

VX_API uint32_t MeshBatchBegin(Mesh *mesh) {
    return mesh != nullptr ? batch_begin(mesh) : 0;
}

VX_API void MeshBatchEnd(Mesh *mesh) {
    if (mesh != nullptr) batch_end(mesh);
}

VX_API uint32_t MeshBatchMask(const Mesh *mesh) {
    if (mesh == nullptr || mesh->batch_depth == 0 || mesh->batch_depth == kBuilding) {
        return kNoBatch;
    }
    return mesh->batch_mask;
}

VX_API uint32_t MeshReadChanges(Mesh *mesh) {
    if (mesh == nullptr) return 0;
    const std::uint32_t changes = mesh->changes;
    mesh->changes = 0;
    return changes;
}

VX_API uint64_t MeshAttachListener(Mesh *mesh, void *listener) {
    return vx::guard(std::uint64_t{0}, [&] { return attach_listener(mesh, listener); });
}

VX_API unsigned int MeshDetachListener(Mesh *mesh, void *listener) {
    return vx::guard(0u, [&] { return detach_listener(mesh, listener); });
}

// ---- Polygon types -----------------------------------------------------------------------

VX_API const PolyType *PolyTypeDefine(uint32_t code, const char *name, uint32_t flags,
                                      uint32_t flipFlags) {
    return vx::guard<const PolyType *>(
        nullptr, [&] { return poly_type_define(code, name, flags, flipFlags); });
}

VX_API const PolyType *PolyTypeCodeLookup(uint32_t code) {
    return poly_type_lookup(code);
}

VX_API unsigned int PolyTypeCount(void) {
    return poly_type_count();
}

VX_API const PolyType *PolyTypeByIndex(unsigned int index) {
    return poly_type_at(index);
}

VX_API uint32_t PolyTypeCode(const PolyType *type) {
    return type != nullptr ? type->code : 0;
}

VX_API const char *PolyTypeName(const PolyType *type) {
    return type != nullptr ? type->name : nullptr;
}

VX_API uint32_t PolyTypeFlags(const PolyType *type) {
    return type != nullptr ? type->flags : 0;
}

VX_API uint32_t PolyTypeFlipFlags(const PolyType *type) {
    return type != nullptr ? type->flip_flags : 0;
}

VX_API int PolyTypeSetMetaClass(const PolyType *type, MeshMetaClass *metaClass) {
    if (type == nullptr || metaClass == nullptr) return 0;
    return poly_type_set_meta(type, metaClass) ? 1 : 0;
}

VX_API MeshMetaClass *PolyTypeMetaClass(const PolyType *type) {
    return type != nullptr ? type->meta.load(std::memory_order_acquire) : nullptr;
}

VX_API void PolyTypeSetBounds(const PolyType *type, PolyTypeBoundsFunc bounds) {
    if (type != nullptr && bounds != nullptr) {
        const_cast<PolyType *>(type)->bounds.store(bounds, std::memory_order_release);
    }
}

VX_API int PolyTypeBounds(const Mesh *mesh, const MeshPolygon *polygon, float box[6]) {
    if (polygon == nullptr || box == nullptr) return 0;
    return poly_type_bounds(mesh, polygon, box) ? 1 : 0;
}

// ---- Meta data ---------------------------------------------------------------------------

VX_API MeshMetaClass *MeshMetaDefine(const char *name, const MeshMetaOps *ops) {
    return vx::guard<MeshMetaClass *>(nullptr, [&] {
        if (ops == nullptr) vx::fail(vx::rc::bad_argument, "no meta data operations");
        return meta_define(name, *ops);
    });
}

VX_API MeshMetaClass *MeshMetaLookup(const char *name) {
    return meta_lookup(name);
}

VX_API void *MeshMetaValidate(MeshMetaClass *metaClass, Mesh *mesh) {
    if (metaClass == nullptr || mesh == nullptr) return nullptr;
    return vx::guard<void *>(nullptr, [&] { return meta_validate(metaClass, mesh); });
}

VX_API void *MeshMetaRecord(MeshMetaClass *metaClass, Mesh *mesh) {
    if (metaClass == nullptr || mesh == nullptr) return nullptr;
    return vx::guard<void *>(nullptr, [&] { return meta_record(metaClass, mesh); });
}

VX_API int MeshMetaIsValid(MeshMetaClass *metaClass, const Mesh *mesh) {
    return metaClass != nullptr && mesh != nullptr && meta_valid(metaClass, mesh) ? 1 : 0;
}

VX_API void MeshMetaInvalidate(MeshMetaClass *metaClass, Mesh *mesh, uint32_t flags) {
    if (mesh != nullptr) meta_invalidate(metaClass, mesh, flags);
}

VX_API int MeshPolygonNormal(Mesh *, const MeshPolygon *polygon, float normal[3]) {
    if (polygon == nullptr || normal == nullptr) return 0;
    return vx::guard(0, [&] { return polygon_cached_normal(polygon, normal) ? 1 : 0; });
}

}  // extern "C"
