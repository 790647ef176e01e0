// Reading vertex positions as a given mesh sees them. A vertex's own position is stored by the
// mesh that made it; an instance (or a morphed copy made as one) may lay its own position map
// over its source's, and then reads through that map. Callers that read many positions make
// one PositionSource and ask it per vertex: the common case is one load from the vertex record.
#pragma once

#include "mesh/mesh.h"

struct VMap;

namespace vx::mesh {

// The position a vertex's own mesh stores for it.
inline const float *stored_position(const MeshVertex *vertex) noexcept {
    return vertex->position;
}

class PositionSource {
  public:
    // Positions as `mesh` sees them, or as each vertex's own mesh does for a null mesh.
    // A mesh that is no instance reads the storage of its own vertices: its position map is the
    // first map it made, which cannot be destroyed.
    explicit PositionSource(const Mesh *mesh) noexcept
        : layer_(mesh != nullptr && mesh->source != nullptr ? instance_layer(mesh) : nullptr) {}

    // Whether every position is the vertex's stored one.
    bool direct() const noexcept { return layer_ == nullptr; }

    // The vertex's position. A vertex the mesh's position map has no value for reads its stored
    // position; a null vertex (an unfilled polygon slot) reads as the origin.
    const float *get(const MeshVertex *vertex) const noexcept {
        if (vertex == nullptr) return kOrigin;
        return layer_ == nullptr ? stored_position(vertex) : through_layer(vertex);
    }

  private:
    static constexpr float kOrigin[3] = {0.0f, 0.0f, 0.0f};
    // The instance's own position map laid over its source's, or null.
    static const VMap *instance_layer(const Mesh *mesh) noexcept;
    const float *through_layer(const MeshVertex *vertex) const noexcept;
    const VMap *layer_;
};

// One vertex's position as an instance sees it (out of line: the rarer case).
const float *position_seen_by_instance(const Mesh *mesh, const MeshVertex *vertex) noexcept;

// One vertex's position as `mesh` sees it (a vertex, not null): the stored one straight away
// for a mesh without a source.
inline const float *position_seen(const Mesh *mesh, const MeshVertex *vertex) noexcept {
    if (mesh == nullptr || mesh->source == nullptr) return stored_position(vertex);
    return position_seen_by_instance(mesh, vertex);
}

}  // namespace vx::mesh
