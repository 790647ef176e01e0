// The polygon type registry: types by four-character code, each with its flags, its flip rule,
// its bounding-box operation and its per-mesh meta data class.
#pragma once

#include <atomic>
#include <cstdint>

#include <vexor/mesh.h>

struct PolyType {
    std::uint32_t code;
    std::uint32_t flags;       // POLYTYPE_AREA, POLYTYPE_LINEAR
    std::uint32_t flip_flags;  // POLYTYPE_FLIP_KEEPS_FIRST
    char name[32];
    std::atomic<MeshMetaClass *> meta{nullptr};
    std::atomic<PolyTypeBoundsFunc> bounds{nullptr};
};

namespace vx::mesh {

// Defines the built-in types; safe to call again.
void poly_types_startup();
const PolyType *poly_type_define(std::uint32_t code, const char *name, std::uint32_t flags,
                                 std::uint32_t flip_flags);
const PolyType *poly_type_lookup(std::uint32_t code) noexcept;
unsigned poly_type_count() noexcept;
// The type at a place in the table (null past the end); kNoPolyType gives a record of no type.
const PolyType *poly_type_at(unsigned index) noexcept;
// The place of a defined type in the table, which poly_type_at() answers.
unsigned poly_type_index(const PolyType *type) noexcept;
bool poly_type_set_meta(const PolyType *type, MeshMetaClass *cls) noexcept;
// Makes the mesh's record of every type's meta class (at MeshCreate); raises on failure.
void poly_types_mesh_initialize(Mesh *mesh);
// The bounding box of a polygon by its type's operation.
bool poly_type_bounds(const Mesh *mesh, const MeshPolygon *polygon, float box[6]) noexcept;

}  // namespace vx::mesh
