// The mesh record, its elements and the C++ operations behind the Mesh functions.
#pragma once

#include <cstdint>
#include <type_traits>

#include <vexor/mesh.h>

#include "foundation/port.h"
#include "mesh/mesh_meta.h"
#include "mesh/mesh_storage.h"
#include "mesh/ptag.h"
#include "mesh/vmap_list.h"

struct PolyType;

// A vertex: its flag word and the mark word that selection and enumeration use, then its
// position (the storage of its mesh's "OPOS" vertex map). Keeping the position in the record
// makes a read by handle touch one record and nothing else; the vertex's mesh is kept once per
// page of records (vx::mesh::owner_of), so a record takes 16 bytes and a million vertices 16 MB.
struct MeshVertex {
    std::uint16_t flags;
    std::uint16_t marks;
    float position[3];
};

namespace vx::mesh {
const PolyType *poly_type_at(unsigned index) noexcept;  // mesh/poly_type.h
// The type number of a polygon of no type (code 0, no flags), which answers such a record.
inline constexpr std::uint32_t kNoPolyType = 0xFFFFFFFF;
}  // namespace vx::mesh

// A polygon: its mesh, flags and marks as for vertices, its vertex count and tag count, its
// number among the polygons its mesh made (which indexes per-polygon caches), its type (by its
// place in the type table), its tags (shared tag records sorted by type, one per type: up to
// kInlineTags of them held in the record, more in an array of the mesh's, mesh/ptag.h) and its
// vertices in order around it (up to kInlineVertices in the record, more on the heap). A quad
// with the default tags thus lives in one record.
struct MeshPolygon {
    static constexpr unsigned kInlineVertices = 4;
    static constexpr unsigned kInlineTags = 2;

    Mesh *mesh;
    std::uint16_t flags;
    std::uint16_t marks;
    std::uint16_t count;
    std::uint16_t tag_count;
    std::uint32_t slot;
    std::uint32_t type_index;
    union {
        PTagRecord *few[kInlineTags];
        PTagRecord **many;
    } tag_slots;
    union {
        MeshVertex *few[kInlineVertices];
        MeshVertex **many;
    } vertex_slots;

    const PolyType *type() const noexcept { return vx::mesh::poly_type_at(type_index); }
    MeshVertex **vertices() noexcept {
        return count <= kInlineVertices ? vertex_slots.few : vertex_slots.many;
    }
    MeshVertex *const *vertices() const noexcept {
        return count <= kInlineVertices ? vertex_slots.few : vertex_slots.many;
    }
    PTagRecord **tags() noexcept {
        return tag_count <= kInlineTags ? tag_slots.few : tag_slots.many;
    }
    PTagRecord *const *tags() const noexcept {
        return tag_count <= kInlineTags ? tag_slots.few : tag_slots.many;
    }
};

// Walks take a page of the element store as an array of records.
static_assert(sizeof(MeshVertex) == 16 && sizeof(MeshPolygon) % 8 == 0);

namespace vx::mesh {

inline constexpr std::uint16_t kNewVertexFlags = 0x1100;
inline constexpr std::uint16_t kNewPolygonFlags = 0x1200;
inline constexpr std::uint16_t kDead = 0x8000;
inline constexpr std::uint16_t kChanged = 0x4000;

inline constexpr std::uint32_t kBuilding = 0xFFFFFFFF;
// Set in the mesh flags while the mesh is torn down: modules asked to change it then (from a
// meta data drop step) leave it alone rather than make records that nothing would free.
inline constexpr std::uint32_t kDying = 0x80000000u;
inline constexpr std::uint32_t kNoBatch = 0xFFFFFFFF;

// An element list: the elements in order, with the number of dead ones. A mesh's own list
// holds exactly the elements the mesh made, in the order it made them, and reads them from the
// mesh's store; a list that an instance copied from its source (copy on write) keeps an array of
// element pointers instead. A list whose dead count may have changed behind its back (an
// instance's copy of a list whose source deletes elements) recounts on next use. Indexing past
// dead entries keeps a table of the live entries' positions, rebuilt when the list changes.
template <class Element>
struct ElementList {
    const ElementStore<Element> *store = nullptr;  // null: the elements are in `items`
    DenseArray<Element *> items;
    std::uint32_t dead = 0;
    bool recount = false;
    bool live_valid = false;
    DenseArray<std::uint32_t> live;

    std::size_t size() const noexcept { return store != nullptr ? store->size() : items.size(); }
    Element *operator[](std::size_t index) const noexcept {
        return store != nullptr ? store->at(index) : const_cast<Element *>(items[index]);
    }
    // An array copy of the list with room for `extra` more entries (raises std::bad_alloc).
    void copy_into(DenseArray<Element *> &target, std::size_t extra) const;

    void changed() noexcept { live_valid = false; }
    std::uint32_t dead_count() noexcept;
    Element *at_live(std::uint32_t index) noexcept;
};

using VertexList = ElementList<MeshVertex>;
using PolygonList = ElementList<MeshPolygon>;

}  // namespace vx::mesh

struct Mesh {
    Mesh() noexcept;
    ~Mesh();
    Mesh(const Mesh &) = delete;
    Mesh &operator=(const Mesh &) = delete;

    // The process-wide list of meshes, under its lock.
    Mesh *list_prev = nullptr;
    Mesh *list_next = nullptr;

    // The mesh itself first, then its instances.
    vx::mesh::DenseArray<Mesh *> related;
    Mesh *source = nullptr;
    std::uint32_t show_dead = 0;
    std::uint32_t flags = MESH_OWNS_VERTICES | MESH_OWNS_POLYGONS | MESH_OWNS_THIRD;
    std::uint32_t changes = 0;
    // The mesh's kind, set by the instance and delta machinery (0 for a plain mesh). A mesh of
    // kind 2 keeps subsets of its elements, which enumeration through its instances walks
    // instead of the whole lists (mesh/mark.h).
    std::uint32_t kind = 0;
    vx::mesh::DenseArray<MeshVertex *> subset_vertices;
    vx::mesh::DenseArray<MeshPolygon *> subset_polygons;

    // The lists in use: the mesh's own, or its source's while it shares them.
    vx::mesh::VertexList *vertices = &own_vertices;
    vx::mesh::PolygonList *polygons = &own_polygons;
    vx::mesh::VertexList own_vertices;
    vx::mesh::PolygonList own_polygons;

    std::uint32_t batch_depth = vx::mesh::kBuilding;
    std::uint32_t batch_mask = 0;
    // Elements marked changed in the open batch, whose marks the batch's end clears.
    vx::mesh::DenseArray<MeshVertex *> changed_vertices;
    vx::mesh::DenseArray<MeshPolygon *> changed_polygons;

    Port *port = nullptr;

    // The mesh's list of vertex maps (its "OPOS" map's values are in the vertex records) and
    // its default polygon tags ("MATR", "PART").
    vx::mesh::VMapList vmaps;  // mesh/vmap.h
    vx::mesh::MeshTags tags;
    vx::mesh::MetaSlots meta;

    vx::mesh::ElementStore<MeshVertex> vertex_store{this};
    vx::mesh::ElementStore<MeshPolygon> polygon_store{this};
    // Longer vertex arrays, which come from the heap: freed with the mesh.
    std::size_t long_arrays = 0;
};

namespace vx::mesh {

void startup();  // raises on failure
// A step that every first MeshStartup runs after the built-in types and classes are defined:
// how later modules (subdivision surfaces) set up the polygon types they keep data for. Steps
// are added by static initialisers; a step may raise. False when the table is full.
using StartupStep = void (*)();
bool add_startup_step(StartupStep step) noexcept;
void shutdown() noexcept;
bool started() noexcept;
Port *global_port() noexcept;
unsigned global_count() noexcept;

Mesh *create();
Mesh *create_instance(Mesh *source, bool take_events);
bool destroy(Mesh *mesh) noexcept;

MeshVertex *new_vertex(Mesh *mesh, const double position[3]);
const float *set_vertex(Mesh *mesh, MeshVertex *vertex, const double position[3]);
MeshPolygon *new_polygon(Mesh *mesh, const PolyType *type, unsigned count,
                         MeshVertex *const *vertices, bool flip, bool default_tags = false);
bool set_polygon_vertex(Mesh *mesh, MeshPolygon *polygon, unsigned index, MeshVertex *vertex);
bool free_vertex(Mesh *mesh, MeshVertex *vertex);
bool free_polygon(Mesh *mesh, MeshPolygon *polygon);

std::uint32_t num_vertices(const Mesh *mesh) noexcept;
std::uint32_t num_polygons(const Mesh *mesh) noexcept;
MeshVertex *vertex_at(const Mesh *mesh, std::uint32_t index) noexcept;
MeshPolygon *polygon_at(const Mesh *mesh, std::uint32_t index) noexcept;

// The mesh that made an element.
inline Mesh *owner_of(const MeshVertex *vertex) noexcept {
    return static_cast<Mesh *>(const_cast<void *>(ElementStore<MeshVertex>::owner_of(vertex)));
}
inline Mesh *owner_of(const MeshPolygon *polygon) noexcept {
    return polygon->mesh;
}

// The number of an element among those its mesh made (its place in its mesh's store), and how
// many its mesh made: for tables indexed by element.
inline std::uint32_t slot_of(const MeshVertex *vertex) noexcept {
    return static_cast<std::uint32_t>(ElementStore<MeshVertex>::index_of(vertex));
}
inline std::uint32_t slot_of(const MeshPolygon *polygon) noexcept {
    return polygon->slot;
}
inline std::uint32_t vertex_slots(const Mesh *mesh) noexcept {
    return static_cast<std::uint32_t>(mesh->vertex_store.size());
}
inline std::uint32_t polygon_slots(const Mesh *mesh) noexcept {
    return static_cast<std::uint32_t>(mesh->polygon_store.size());
}

// The element at an index, inline for the common case of a list without dead entries that
// reads its mesh's store: one computed address, no table of pointers.
template <class Element>
Element *element_at_fast(const Mesh *mesh, const ElementList<Element> *list,
                         std::uint32_t index) noexcept {
    if (list->store != nullptr && list->dead == 0 && !list->recount) {
        return index < list->store->size() ? list->store->at(index) : nullptr;
    }
    if constexpr (std::is_same_v<Element, MeshVertex>) {
        return vertex_at(mesh, index);
    } else {
        return polygon_at(mesh, index);
    }
}

// Change events (mesh_events.cpp).
std::uint32_t batch_begin(Mesh *mesh) noexcept;
void batch_end(Mesh *mesh) noexcept;
void change_event(Mesh *mesh, std::uint32_t mask) noexcept;
// Marks an element changed in the open batch; the room in the changed list is reserved.
void mark_changed(Mesh *mesh, MeshVertex *vertex) noexcept;
void mark_changed(Mesh *mesh, MeshPolygon *polygon) noexcept;
// Listener objects on the mesh's port, or the process-wide port for a null mesh.
std::uint64_t attach_listener(Mesh *mesh, void *listener);
unsigned detach_listener(Mesh *mesh, void *listener);

}  // namespace vx::mesh
