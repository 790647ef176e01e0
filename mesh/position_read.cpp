// Positions read through a mesh's position map.
#include "mesh/position_read.h"

#include "mesh/vmap.h"

namespace vx::mesh {

const VMap *PositionSource::instance_layer(const Mesh *mesh) noexcept {
    // The instance's first map of the position type: its source's storage, or its own map laid
    // over it.
    const VMap *map = vmap_at(mesh, kPositionType, 0);
    return map != nullptr && (map->flags & VMAP_POSITIONS) == 0 ? map : nullptr;
}

const float *PositionSource::through_layer(const MeshVertex *vertex) const noexcept {
    const float *value = vmap_get(layer_, plain_key(vertex), vertex, nullptr);
    return value != nullptr ? value : stored_position(vertex);
}

const float *position_seen_by_instance(const Mesh *mesh, const MeshVertex *vertex) noexcept {
    return PositionSource(mesh).get(vertex);
}

}  // namespace vx::mesh
