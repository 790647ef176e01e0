// Vertex maps: the process-wide type registry, the map record with its entry tables, and the
// C++ operations behind the VMap functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vexor/vmap.h>

#include "foundation/memory.h"
#include "mesh/mesh.h"
#include "mesh/mesh_storage.h"
#include "mesh/vmap_list.h"

namespace vx::mesh {

// A registered type. Records live as long as the process, so edit records may keep pointers
// to them (and free entries into their pools) after the map they edited is gone.
struct VMapTypeRecord {
    std::uint32_t code;
    char *name;  // owned copy
    std::uint32_t dimension;
    std::uint32_t flags;
    BlockPoolMT *pool;  // the entries of every map of this type
};

enum class EntryKind : std::uint8_t { plain, polygon, edge };

// One value: the key (vertex and second element: the polygon, or the edge's other end) and,
// after the fixed fields, the type's dimension of floats.
struct VMapEntry {
    VMapEntry *next;
    const void *first;
    const void *second;
    std::uint32_t hash;
    EntryKind kind;

    float *values() noexcept { return reinterpret_cast<float *>(this + 1); }
};
static_assert(sizeof(VMapEntry) % alignof(float) == 0);

struct EntryKey {
    const void *first;
    const void *second;
    EntryKind kind;
    std::uint32_t hash;
};

// The key of a plain, per-polygon or edge value. Edge ends are ordered by address, so an edge
// with one empty end is keyed by its other end in the second slot.
EntryKey plain_key(const MeshVertex *vertex) noexcept;
EntryKey polygon_key(const MeshVertex *vertex, const MeshPolygon *polygon) noexcept;
EntryKey edge_key(const MeshVertex *a, const MeshVertex *b) noexcept;

// A chained hash table of entries. Inserting never fails: the bucket array grows only by a
// growth prepared beforehand, and without one the chains simply get longer.
class EntryTable {
  public:
    EntryTable() noexcept = default;
    EntryTable(const EntryTable &) = delete;
    EntryTable &operator=(const EntryTable &) = delete;

    // The first bucket array (raises std::bad_alloc).
    void init();
    // A larger bucket array when one more entry would overload the table.
    void prepare(RawBlock &growth) const;
    void insert(VMapEntry *entry, RawBlock &growth) noexcept;
    void remove(VMapEntry *entry) noexcept;
    VMapEntry *find(const EntryKey &key) const noexcept;
    std::size_t size() const noexcept { return count_; }
    // Hands every entry to `fn` and empties the table.
    template <class Fn>
    void drain(Fn fn) noexcept {
        auto **buckets = static_cast<VMapEntry **>(buckets_.get());
        for (std::size_t i = 0; i < bucket_count(); ++i) {
            for (VMapEntry *e = buckets[i]; e != nullptr;) {
                VMapEntry *next = e->next;
                fn(e);
                e = next;
            }
            buckets[i] = nullptr;
        }
        count_ = 0;
    }
    template <class Fn>
    void for_each(Fn fn) const noexcept {
        auto **buckets = static_cast<VMapEntry **>(buckets_.get());
        for (std::size_t i = 0; i < bucket_count(); ++i) {
            for (VMapEntry *e = buckets[i]; e != nullptr; e = e->next) fn(e);
        }
    }

  private:
    std::size_t bucket_count() const noexcept { return buckets_.bytes() / sizeof(VMapEntry *); }
    RawBlock buckets_;
    std::size_t count_ = 0;
};

}  // namespace vx::mesh

struct VMap {
    Mesh *mesh;
    const vx::mesh::VMapTypeRecord *type;
    char name[64];
    char public_name[64];
    vx::mesh::EntryTable values;
    vx::mesh::EntryTable removed;  // keys hidden from the underlying map
    VMap *under;
    std::uint32_t flags;  // VMAP_COMPUTED, VMAP_POSITIONS, VMAP_DEAD
    std::uint32_t user_flags;
    std::uint32_t marks;
    VMapEvalFunc eval;
    void *client;
};

namespace vx::mesh {

// Whether an element of `owner` may carry values in a map of `mesh`: the mesh's own, or its
// source's for an instance, or an instance's for a map of its source.
inline bool related(const Mesh *mesh, const Mesh *owner) noexcept {
    return owner == mesh || owner == mesh->source || owner->source == mesh;
}

// What a position map (VMAP_POSITIONS) holds for a vertex: the vertex's stored position, for a
// vertex of a related mesh.
inline const float *stored_position_in(const VMap *map, const MeshVertex *vertex) noexcept {
    return related(map->mesh, owner_of(vertex)) ? vertex->position : nullptr;
}

inline constexpr std::uint32_t kPositionType = VX_CODE4('O', 'P', 'O', 'S');

// Type registry (vmap_types.cpp).
void vmap_types_startup();  // defines the built-in types; safe to call again
bool vmap_define_type(std::uint32_t code, const char *name, std::uint32_t dimension,
                      std::uint32_t flags);
const VMapTypeRecord *vmap_type(std::uint32_t code) noexcept;
const VMapTypeRecord *vmap_type_named(const char *name) noexcept;
unsigned vmap_type_count() noexcept;
const VMapTypeRecord *vmap_type_at(unsigned index) noexcept;

// Maps of a mesh (vmap.cpp). The hooks of the mesh record: its position map at MeshCreate
// (raises), and every map freed with the mesh.
void vmaps_mesh_initialize(Mesh *mesh);
void vmaps_release(Mesh *mesh) noexcept;

VMap *vmap_create(Mesh *mesh, std::uint32_t type);
VMap *vmap_create_over(Mesh *mesh, VMap *under);
VMap *vmap_create_computed(Mesh *mesh, std::uint32_t type, VMapEvalFunc eval, void *client);
bool vmap_destroy(VMap *map);
// Sets the name or the public name (at most 63 bytes); false when too long.
bool vmap_set_name(VMap *map, const char *name, bool public_name);

// Writes `values` under the key; returns the stored values (null when refused).
const float *vmap_set(VMap *map, const EntryKey &key, const MeshVertex *vertex,
                      const float *values);
bool vmap_unset(VMap *map, const EntryKey &key);
// Reads through the layers; `vertex` and `polygon` are what a computed layer is asked.
const float *vmap_get(const VMap *map, const EntryKey &key, const MeshVertex *vertex,
                      const MeshPolygon *polygon) noexcept;

// Lookup among the mesh's visible maps of a type (0: every type), in lookup order.
unsigned vmap_list(const Mesh *mesh, std::uint32_t type, VMap **out, unsigned max) noexcept;
VMap *vmap_at(const Mesh *mesh, std::uint32_t type, unsigned index) noexcept;
VMap *vmap_find(const Mesh *mesh, std::uint32_t type, const char *name, bool public_name) noexcept;

}  // namespace vx::mesh
