// Polygon tags: shared (type, text) records in one process-wide ordered set, per-polygon sorted
// arrays of record pointers, and each mesh's default tags.
//
// A record is made the first time a (type, text) pair is set on any polygon and freed the
// moment the last polygon that holds it lets go. Counts change only under the set's lock, so
// meshes on different threads may share records; a polygon's array belongs to its mesh and
// follows the mesh's one-thread-at-a-time rule.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/mesh_storage.h"

struct Mesh;
struct MeshPolygon;

// A shared tag record: its type, its use count and its text, stored inline after the record.
struct PTagRecord {
    std::uint32_t type;
    std::int32_t count;
    std::size_t length;
    const char *text() const noexcept { return reinterpret_cast<const char *>(this + 1); }
};

namespace vx::mesh {

inline constexpr std::uint32_t kTagMaterial = 0x4D415452;   // "MATR"
inline constexpr std::uint32_t kTagPart = 0x50415254;       // "PART"
inline constexpr std::uint32_t kTagSmoothing = 0x534D4750;  // "SMGP"
// The longest normalised smoothing-group text.
inline constexpr std::size_t kSmoothingLimit = 127;

// Tag arrays of up to this many entries come from the mesh's pools, longer ones from the heap.
inline constexpr unsigned kPooledTagArrays = 4;

// A mesh's default tags, the pools its polygons' tag arrays come from, and a cache of the
// default tags' records that spares MeshNewPolygon a search of the shared set. The cache holds
// no use of its own: it is trusted only while no record anywhere has been freed since it was
// filled.
class MeshTags {
  public:
    struct Default {
        std::uint32_t type;
        char *text;  // owned, nul-terminated
        std::size_t length;
        PTagRecord *cached;
        std::uint64_t epoch;
    };

    MeshTags() noexcept = default;
    ~MeshTags();
    MeshTags(const MeshTags &) = delete;
    MeshTags &operator=(const MeshTags &) = delete;

    // Sets or replaces the default of a type (a null text removes it). Raises on failure,
    // leaving the list as it was.
    void set(std::uint32_t type, const char *text);
    const char *get(std::uint32_t type) const noexcept;
    std::size_t size() const noexcept { return count_; }
    const Default &at(std::size_t index) const noexcept { return defaults_[index]; }
    Default &at(std::size_t index) noexcept { return defaults_[index]; }
    // Copies another mesh's defaults (for an instance); raises, leaving this list as it was.
    void copy_from(const MeshTags &other);

    // The pool for arrays of 3 and 4 entries (fewer live in the polygon record).
    ElementPool pool4{4 * sizeof(PTagRecord *)};
    // Tag arrays longer than the pools' that are still allocated: freed with the mesh.
    std::size_t long_arrays = 0;

  private:
    void clear() noexcept;
    Default *defaults_ = nullptr;
    std::size_t count_ = 0;
};

// The records a new polygon is about to take from its mesh's defaults, with the room for its
// array: acquired before the polygon exists, so that the polygon is finished without a chance
// of failure. Released again unless committed.
class DefaultTagGrowth {
  public:
    DefaultTagGrowth() noexcept = default;
    ~DefaultTagGrowth();
    DefaultTagGrowth(const DefaultTagGrowth &) = delete;
    DefaultTagGrowth &operator=(const DefaultTagGrowth &) = delete;

  private:
    friend void prepare_default_tags(Mesh *mesh, DefaultTagGrowth &growth);
    friend void commit_default_tags(Mesh *mesh, MeshPolygon *polygon,
                                    DefaultTagGrowth &growth) noexcept;
    static constexpr std::size_t kInline = 8;
    PTagRecord *inline_[kInline] = {};
    PTagRecord **records_ = inline_;
    std::size_t count_ = 0;
    RawBlock heap_records_;
    ElementPool::Growth chunk_;
    RawBlock long_array_;
};

// Raises: on failure nothing is held.
void prepare_default_tags(Mesh *mesh, DefaultTagGrowth &growth);
void commit_default_tags(Mesh *mesh, MeshPolygon *polygon, DefaultTagGrowth &growth) noexcept;
// Sets the standard defaults of a new mesh ("MATR" and "PART"), or an instance's source's.
void init_mesh_tags(Mesh *mesh, const Mesh *source);
// Lets go of every tag of the mesh's own polygons (at its destruction).
void release_mesh_tags(Mesh *mesh) noexcept;

// The operations behind the PTag functions.
bool tag_set(MeshPolygon *polygon, std::uint32_t type, const char *text);
const char *tag_get(const MeshPolygon *polygon, std::uint32_t type) noexcept;
const char *tag_by_index(const MeshPolygon *polygon, int index, std::uint32_t *type) noexcept;
void tag_delete(MeshPolygon *polygon) noexcept;
bool tag_duplicate(MeshPolygon *target, const MeshPolygon *source);
bool smoothing_different(const MeshPolygon *polygon, const char *text) noexcept;
// Rewrites a smoothing-group text as its distinct characters in ascending order, at most
// kSmoothingLimit of them; `out` has room for kSmoothingLimit + 1. Returns the length.
std::size_t normalise_smoothing(const char *text, char *out) noexcept;

// The shared set, for inspection.
std::size_t record_count() noexcept;
std::int32_t record_uses(std::uint32_t type, const char *text) noexcept;

}  // namespace vx::mesh
