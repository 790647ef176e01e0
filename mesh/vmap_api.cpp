// The C interface of vertex maps: argument checks and the guard around the C++ operations.
#include <vexor/vmap.h>

#include "foundation/guard.h"
#include "mesh/mesh.h"
#include "mesh/vmap.h"

using namespace vx::mesh;

namespace {

bool live(const MeshVertex *vertex) noexcept {
    return vertex != nullptr && (vertex->flags & kDead) == 0;
}

bool live(const MeshPolygon *polygon) noexcept {
    return polygon != nullptr && (polygon->flags & kDead) == 0;
}

int set_name(VMap *map, const char *name, bool public_name) noexcept {
    if (map == nullptr || name == nullptr) return 0;
    return vx::guard(0, [&] { return vmap_set_name(map, name, public_name) ? 1 : 0; });
}

int unset(VMap *map, const EntryKey &key) noexcept {
    return vx::guard(0, [&] { return vmap_unset(map, key) ? 1 : 0; });
}

const float *set(VMap *map, const EntryKey &key, const MeshVertex *vertex,
                 const float *values) noexcept {
    return vx::guard<const float *>(nullptr, [&] { return vmap_set(map, key, vertex, values); });
}

}  // namespace

extern "C" {

// ---- Types -------------------------------------------------------------------------------

VX_API int VMapDefineType(uint32_t code, const char *name, uint32_t dimension, uint32_t flags) {
    return vx::guard(0, [&] {
        // A module that starts before the mesh module still finds the built-in types first.
        vmap_types_startup();
        return vmap_define_type(code, name, dimension, flags) ? 1 : 0;
    });
}

VX_API const char *VMapTypeName(uint32_t code) {
    const VMapTypeRecord *type = vmap_type(code);
    return type != nullptr ? type->name : nullptr;
}

VX_API uint32_t VMapTypeDimension(uint32_t code) {
    const VMapTypeRecord *type = vmap_type(code);
    return type != nullptr ? type->dimension : 0xFFFFFFFFu;
}

VX_API uint32_t VMapTypeFlags(uint32_t code) {
    const VMapTypeRecord *type = vmap_type(code);
    return type != nullptr ? type->flags : 0xFFFFFFFFu;
}

VX_API uint32_t VMapTypeByName(const char *name) {
    const VMapTypeRecord *type = vmap_type_named(name);
    return type != nullptr ? type->code : 0;
}

VX_API unsigned int VMapTypeCount(void) {
    return vmap_type_count();
}

VX_API uint32_t VMapTypeByIndex(unsigned int index) {
    const VMapTypeRecord *type = vmap_type_at(index);
    return type != nullptr ? type->code : 0;
}

// ---- Maps --------------------------------------------------------------------------------

VX_API VMap *VMapCreate(Mesh *mesh, uint32_t type) {
    return vx::guard<VMap *>(nullptr, [&] { return vmap_create(mesh, type); });
}

VX_API VMap *VMapCreateOver(Mesh *mesh, VMap *under) {
    return vx::guard<VMap *>(nullptr, [&] { return vmap_create_over(mesh, under); });
}

VX_API VMap *VMapCreateComputed(Mesh *mesh, uint32_t type, VMapEvalFunc eval, void *client) {
    return vx::guard<VMap *>(nullptr,
                             [&] { return vmap_create_computed(mesh, type, eval, client); });
}

VX_API int VMapDestroy(VMap *map) {
    return vx::guard(0, [&] { return vmap_destroy(map) ? 1 : 0; });
}

VX_API uint32_t VMapType(const VMap *map) {
    return map != nullptr ? map->type->code : 0;
}

VX_API uint32_t VMapDimension(const VMap *map) {
    return map != nullptr ? map->type->dimension : 0;
}

VX_API uint32_t VMapFlags(const VMap *map) {
    return map != nullptr ? map->flags : 0;
}

VX_API Mesh *VMapMesh(const VMap *map) {
    return map != nullptr ? map->mesh : nullptr;
}

VX_API VMap *VMapUnderlying(const VMap *map) {
    return map != nullptr ? map->under : nullptr;
}

VX_API const char *VMapName(const VMap *map) {
    return map != nullptr ? map->name : nullptr;
}

VX_API int VMapSetName(VMap *map, const char *name) {
    return set_name(map, name, false);
}

VX_API const char *VMapPublicName(const VMap *map) {
    return map != nullptr ? map->public_name : nullptr;
}

VX_API int VMapSetPublicName(VMap *map, const char *name) {
    return set_name(map, name, true);
}

VX_API uint32_t VMapUserFlags(const VMap *map) {
    return map != nullptr ? map->user_flags : 0;
}

VX_API void VMapSetUserFlags(VMap *map, uint32_t flags) {
    if (map != nullptr) map->user_flags = flags;
}

VX_API uint32_t VMapMarks(const VMap *map) {
    return map != nullptr ? map->marks : 0;
}

VX_API void VMapSetMarks(VMap *map, uint32_t marks) {
    if (map != nullptr) map->marks = marks;
}

// ---- Values ------------------------------------------------------------------------------

VX_API const float *VMapSet(VMap *map, MeshVertex *vertex, const float *values) {
    if (!live(vertex)) return nullptr;
    return set(map, plain_key(vertex), vertex, values);
}

VX_API const float *VMapGet(const VMap *map, const MeshVertex *vertex) {
    if (map == nullptr || vertex == nullptr) return nullptr;
    // A live position map holds no table: no key to make.
    if ((map->flags & (VMAP_POSITIONS | VMAP_DEAD)) == VMAP_POSITIONS) {
        return stored_position_in(map, vertex);
    }
    return vmap_get(map, plain_key(vertex), vertex, nullptr);
}

VX_API int VMapUnset(VMap *map, MeshVertex *vertex) {
    if (vertex == nullptr) return 0;
    return unset(map, plain_key(vertex));
}

VX_API const float *VMapPSet(VMap *map, MeshVertex *vertex, MeshPolygon *polygon,
                             const float *values) {
    if (!live(vertex) || !live(polygon) || map == nullptr) return nullptr;
    if (polygon->mesh != owner_of(vertex) && polygon->mesh != map->mesh) return nullptr;
    return set(map, polygon_key(vertex, polygon), vertex, values);
}

VX_API const float *VMapPGet(const VMap *map, const MeshVertex *vertex,
                             const MeshPolygon *polygon) {
    if (map == nullptr || vertex == nullptr || polygon == nullptr) return nullptr;
    return vmap_get(map, polygon_key(vertex, polygon), vertex, polygon);
}

VX_API int VMapPUnset(VMap *map, MeshVertex *vertex, MeshPolygon *polygon) {
    if (vertex == nullptr || polygon == nullptr) return 0;
    return unset(map, polygon_key(vertex, polygon));
}

VX_API const float *VMapESet(VMap *map, MeshVertex *a, MeshVertex *b, const float *values) {
    if ((a == nullptr && b == nullptr) || a == b) return nullptr;
    if ((a != nullptr && !live(a)) || (b != nullptr && !live(b))) return nullptr;
    if (map != nullptr && a != nullptr && b != nullptr) {
        const Mesh *ma = owner_of(a);
        const Mesh *mb = owner_of(b);
        if (ma != mb && ma->source != mb && mb->source != ma) return nullptr;
    }
    return set(map, edge_key(a, b), a != nullptr ? a : b, values);
}

VX_API const float *VMapEGet(const VMap *map, const MeshVertex *a, const MeshVertex *b) {
    if (map == nullptr || (a == nullptr && b == nullptr)) return nullptr;
    return vmap_get(map, edge_key(a, b), a != nullptr ? a : b, nullptr);
}

VX_API int VMapEUnset(VMap *map, MeshVertex *a, MeshVertex *b) {
    if (a == nullptr && b == nullptr) return 0;
    return unset(map, edge_key(a, b));
}

VX_API const float *VMapEval(const VMap *map, const MeshVertex *vertex,
                             const MeshPolygon *polygon) {
    if (map == nullptr || vertex == nullptr) return nullptr;
    if (polygon != nullptr) {
        if (const float *own = vmap_get(map, polygon_key(vertex, polygon), vertex, polygon)) {
            return own;
        }
    }
    return vmap_get(map, plain_key(vertex), vertex, nullptr);
}

VX_API int VMapTestPolygon(const VMap *map, const MeshPolygon *polygon) {
    if (map == nullptr || polygon == nullptr) return 0;
    for (unsigned i = 0; i < polygon->count; ++i) {
        const MeshVertex *vertex = polygon->vertices()[i];
        if (vertex != nullptr && VMapEval(map, vertex, polygon) != nullptr) return 1;
    }
    return 0;
}

// ---- Lookup ------------------------------------------------------------------------------

VX_API unsigned int VMapCount(const Mesh *mesh, uint32_t type) {
    return mesh != nullptr ? vmap_list(mesh, type, nullptr, 0) : 0;
}

VX_API VMap *VMapByIndex(const Mesh *mesh, uint32_t type, unsigned int index) {
    return mesh != nullptr ? vmap_at(mesh, type, index) : nullptr;
}

VX_API unsigned int VMapGetList(const Mesh *mesh, uint32_t type, VMap **maps, unsigned int max) {
    if (mesh == nullptr) return 0;
    return vmap_list(mesh, type, maps, maps != nullptr ? max : 0);
}

VX_API VMap *VMapFindName(const Mesh *mesh, uint32_t type, const char *name) {
    return mesh != nullptr ? vmap_find(mesh, type, name, false) : nullptr;
}

VX_API VMap *VMapFindPublic(const Mesh *mesh, uint32_t type, const char *publicName) {
    return mesh != nullptr ? vmap_find(mesh, type, publicName, true) : nullptr;
}

VX_API VMap *VMapFindForMesh(const Mesh *mesh, uint32_t type) {
    return mesh != nullptr ? vmap_at(mesh, type, 0) : nullptr;
}

}  // extern "C"
