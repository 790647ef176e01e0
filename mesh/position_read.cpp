// Positions read through a mesh's position map.
#include "mesh/position_read.h"

#include "mesh/vmap.h"

namespace vx::mesh {

const VMap *PositionSource::layer_of(const Mesh *mesh) noexcept {
    // The mesh's position map is its first one of the position type: its own storage, its
    // source's for an instance, or the instance's map laid over the source's.
    const VMap *map = vmap_at(mesh, kPositionType, 0);
    return map != nullptr && (map->flags & VMAP_POSITIONS) == 0 ? map : nullptr;
}

const float *PositionSource::through_layer(const MeshVertex *vertex) const noexcept {
    const float *value = vmap_get(layer_, plain_key(vertex), vertex, nullptr);
    return value != nullptr ? value : stored_position(vertex);
}

}  // namespace vx::mesh
