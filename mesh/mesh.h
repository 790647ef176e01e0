// The mesh record, its elements and the C++ operations behind the Mesh functions.
#pragma once

#include <cstdint>

#include <vexor/mesh.h>

#include "foundation/port.h"
#include "mesh/mesh_meta.h"
#include "mesh/mesh_storage.h"
#include "mesh/position_map.h"
#include "mesh/ptag.h"
#include "mesh/vmap_list.h"

struct PolyType;

// A vertex: its mesh first, then its flag word and the mark word that selection and
// enumeration use, then the slot of its position in its mesh's position map.
struct MeshVertex {
    Mesh *mesh;
    std::uint16_t flags;
    std::uint16_t marks;
    std::uint32_t slot;
};

// A polygon: its mesh, flags and marks as for vertices, its vertex count, its type and its
// vertex array, which always has one null slot after the last vertex; then its tags (a count
// after the vertex count, the array of shared tag records last).
struct MeshPolygon {
    Mesh *mesh;
    std::uint16_t flags;
    std::uint16_t marks;
    std::uint16_t count;
    std::uint16_t tag_count;
    std::uint32_t slot;
    const PolyType *type;
    MeshVertex **vertices;
    PTagRecord **tags;  // sorted by type, one entry per type (mesh/ptag.h)
};

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

// Vertex arrays of up to this many vertices come from the mesh's per-size pools.
inline constexpr unsigned kPooledVertexArrays = 4;

// An element list: the element pointers in order of creation, with the number of dead ones.
// A list whose dead count may have changed behind its back (an instance's copy of a list whose
// source deletes elements) recounts on next use. Indexing past dead entries keeps a table of
// the live entries' positions, rebuilt when the list changes.
template <class Element>
struct ElementList {
    DenseArray<Element *> items;
    std::uint32_t dead = 0;
    bool recount = false;
    bool live_valid = false;
    DenseArray<std::uint32_t> live;

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

    // Positions of the vertices this mesh made, by vertex slot: the storage of the mesh's
    // "OPOS" vertex map. The mesh's list of vertex maps and its default polygon tags ("MATR",
    // "PART") join the record here, beside the positions they are made with.
    vx::mesh::PositionMap positions;
    vx::mesh::VMapList vmaps;  // mesh/vmap.h
    vx::mesh::MeshTags tags;
    vx::mesh::MetaSlots meta;

    vx::mesh::ElementPool vertex_pool{sizeof(MeshVertex)};
    vx::mesh::ElementPool polygon_pool{sizeof(MeshPolygon)};
    vx::mesh::ElementPool vertex_arrays[vx::mesh::kPooledVertexArrays] = {
        vx::mesh::ElementPool{2 * sizeof(MeshVertex *)},
        vx::mesh::ElementPool{3 * sizeof(MeshVertex *)},
        vx::mesh::ElementPool{4 * sizeof(MeshVertex *)},
        vx::mesh::ElementPool{5 * sizeof(MeshVertex *)}};
    // Polygons this mesh has made: the next polygon's slot, which indexes per-polygon caches.
    std::uint32_t polygon_slots = 0;
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
