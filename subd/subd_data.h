// The subdivision data of a mesh: the "SUBD" type's meta data record. Its persistent part (the
// owner link, the semaphore, the 256 slots of refined geometry, the level, the linear UV and
// cage modes) lives as long as the mesh; its derived part (the surface's topology, the limit
// corners and the limit UV corners of every texture map) is built by MeshMetaValidate and
// dropped when the mesh's vertices, polygons, positions or maps change.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include <vexor/subd.h>

#include "mesh/mesh.h"

namespace vx::subd {

inline constexpr unsigned kSlots = 256;
inline constexpr int kMaxLevel = 24;
// Polygons of more vertices take no part in the surface.
inline constexpr unsigned kMaxFaceSize = 256;
// Refined geometry is made at the highest level not above the one asked whose quads fit here.
inline constexpr std::size_t kMaxRefinedFaces = std::size_t{1} << 20;

// Refresh steps of refresh(): drop the whole derived part, or refill the refined positions now.
inline constexpr std::uint32_t kRefreshTopology = 0x3;
inline constexpr std::uint32_t kRefreshGeometry = 0x20;

// Refined geometry of the surface at one level for one source of values: the positions (slot
// 0) or texture map i (slot i + 1). Five arrays, `dimension` floats per value.
struct RefinedSlot {
    int level = 0;
    std::uint32_t dimension = 0;
    std::vector<float> values;          // values of every level up to this one; this level's
    std::size_t first = 0;              // start at `first`
    std::vector<float> limits;          // limit values of this level's values
    std::vector<std::int32_t> quads;    // four value indices per refined quad
    std::vector<std::int32_t> parents;  // the surface face each refined quad comes from
    std::vector<float> outlines;        // per surface face, its boundary: corners * 2^level values

    const float *refined() const noexcept { return values.data() + first; }
};

// A table of slots with the level they are made for: the mesh data's own (under its semaphore)
// and each polygon vertex buffer's (its caller's).
struct SlotTable {
    RefinedSlot *slots[kSlots];
    std::atomic<int> level;
};

void free_slots(SlotTable &table) noexcept;

// A texture map's values on the surface: one channel of face-varying values.
struct UVSet {
    const VMap *map = nullptr;
    std::vector<float> values;           // two floats per distinct value
    std::vector<std::int32_t> index;     // value of each surface face corner
    std::vector<float> corners;          // limit (u, v, 0) of each surface face corner
    std::vector<std::uint8_t> face_has;  // whether the map has values for each surface face
};

struct Surface;  // the built topology (subd_surface.cpp)

// The owner record: while its flag word is non-zero, an owner holds the surface's topology
// (a renderer that reads it), and cage mode changes keep it.
struct SubdOwner {
    std::uint32_t flags;
};

struct SubdData {
    SubdOwner *owner;
    std::mutex semaphore;  // guards the slot table and the refinement of the surface
    SlotTable table;
    std::int32_t linear_uv;
    std::int32_t cage;
    SubdOwner own;
    Surface *surface;  // derived: null until built
};

// The classes and types of this module, registered on first use (after MeshStartup).
struct Classes {
    MeshMetaClass *levels;
    MeshMetaClass *subd;
    MeshMetaClass *patch;
    MeshMetaClass *spline;
    const PolyType *subd_type;
    const PolyType *patch_type;
    const PolyType *spline_type;
};
// Raises when the mesh module has not started.
const Classes &classes();

PolyTypeLevels *levels_of(Mesh *mesh);
SubdData *record_of(Mesh *mesh);
// The record with its derived part built (raises on failure).
SubdData *validate(Mesh *mesh);
bool dying(const Mesh *mesh) noexcept;

// Empties every slot under the semaphore.
void flush(SubdData &data) noexcept;
// The refresh steps used by cage mode changes.
void refresh(Mesh *mesh, SubdData &data, std::uint32_t flags);

// ---- The surface (subd_surface.cpp) --------------------------------------------------------

// Builds the surface of the mesh's SUBD polygons (raises on failure) and frees it.
Surface *build_surface(Mesh *mesh, int level, bool linear_uv);
void free_surface(Surface *surface) noexcept;
// Hands the refined geometry made while building to a table (replacing what it held).
void take_fresh(Surface &surface, SlotTable &table) noexcept;
// A number that tells one build of a mesh's surface from every other.
std::uint64_t surface_serial(const Surface &surface) noexcept;
int surface_face_offset(const Surface &surface, int face) noexcept;
// The surface face of a polygon, or -1 when it takes no part.
int surface_face(const Surface &surface, const MeshPolygon *polygon) noexcept;
unsigned surface_face_count(const Surface &surface) noexcept;
// The limit position of a vertex; false when it is on no surface face.
bool surface_corner(const Surface &surface, const MeshVertex *vertex, float out[3]) noexcept;
// The texture map's values on the surface: the map's set, the first for null; null when none.
const UVSet *surface_uv_set(const Surface &surface, const VMap *map) noexcept;
int surface_uv_set_index(const Surface &surface, const VMap *map) noexcept;
// Makes refined geometry at a level (capped to fit) for slot `key`; the caller holds the
// semaphore, since the surface's refinement is changed. Raises on failure.
RefinedSlot *make_slot(Surface &surface, unsigned key, int level);
// The level refined geometry is made at for a level asked.
int fitted_level(const Surface &surface, int level) noexcept;

}  // namespace vx::subd
