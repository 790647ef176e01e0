// The vertex maps a mesh owns, kept in the mesh record (the maps themselves are in vmap.h).
#pragma once

#include "mesh/mesh_storage.h"

struct VMap;

namespace vx::mesh {

// A mesh's own maps in order of creation, dead ones included; freed with the mesh.
struct VMapList {
    DenseArray<VMap *> maps;
};

}  // namespace vx::mesh
