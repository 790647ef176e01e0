// Per-mesh meta data: records of registered classes, one per mesh and class, whose derived
// part is built on demand and dropped when the mesh announces a change the class depends on.
#pragma once

#include <cstdint>

#include <vexor/mesh.h>

#include "mesh/mesh_storage.h"

// A registered class; lives as long as the process.
struct MeshMetaClass {
    char name[48];
    MeshMetaOps ops;
};

namespace vx::mesh {

struct MetaSlot {
    MeshMetaClass *cls;
    void *record;
    bool valid;
};

// The records of one mesh, in order of first use.
struct MetaSlots {
    DenseArray<MetaSlot> slots;
};

MeshMetaClass *meta_define(const char *name, const MeshMetaOps &ops);
MeshMetaClass *meta_lookup(const char *name) noexcept;
// The mesh's record of the class, made (and initialised) when missing; raises on failure.
void *meta_record(MeshMetaClass *cls, Mesh *mesh);
// The record, its derived part built when stale; raises on failure.
void *meta_validate(MeshMetaClass *cls, Mesh *mesh);
bool meta_valid(const MeshMetaClass *cls, const Mesh *mesh) noexcept;
void meta_invalidate(MeshMetaClass *cls, Mesh *mesh, std::uint32_t flags) noexcept;
// Drops the derived parts of the classes that depend on a bit of the mask.
void meta_process_changes(Mesh *mesh, std::uint32_t mask) noexcept;
// Frees every record of the mesh.
void meta_release(Mesh *mesh) noexcept;
// The cached unit normal of a polygon (validating its mesh's normals); false when zero.
bool polygon_cached_normal(const MeshPolygon *polygon, float normal[3]);
// Defines the built-in classes (polygon normals, bounds); raises on failure.
void meta_startup();

}  // namespace vx::mesh
