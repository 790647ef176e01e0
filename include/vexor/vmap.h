/* Vertex maps: a fixed number of 32-bit float values per vertex of a mesh (positions, texture
 * coordinates, weights, morphs, colours, normals, selections), per vertex as used by one
 * polygon (discontinuous values, as texture seams need) or per edge.
 *
 * Every map has a type, a four-character code (VX_CODE4) registered process-wide, which fixes
 * the number of values per entry (its dimension) and the type's flags. MeshStartup defines the
 * built-in types, in this order: PICK, WGHT, EPCK, SUBV, TXUV, OPOS, MORF, POSE, SPOT, NORM,
 * "RGB " and RGBA. Other modules add theirs at their own start-up.
 *
 * A mesh's vertex positions are its "OPOS" map, made with the mesh. A map may lie over an
 * underlying map: a value in the upper map wins, a key unset in the upper map hides the lower
 * value, and every other key reads through. A computed map takes its values from a function.
 *
 * Values are returned as pointers to the stored floats, valid until the next edit of the map
 * (of the mesh's vertices, for the position map). A map with dimension 0 ("PICK", "EPCK")
 * answers with a non-null pointer that must not be read: an entry's presence is the value.
 *
 * Undo: VMapCreate, VMapCreateOver, VMapCreateComputed, VMapDestroy, the name setters and the
 * value setters and unsetters are undoable edits. Each either happens completely or not at
 * all, and announces MESH_CHANGE_MAPS (with MESH_CHANGE_VERTICES and MESH_CHANGE_POSITIONS
 * for the position map) on the map's mesh, also when undone and redone. A mesh must not be
 * destroyed while the undo history holds edits of its maps. User flags and marks are set
 * directly.
 *
 * Threads: the type registry may be used from any thread. A map is used by the thread that
 * uses its mesh. */
#ifndef VEXOR_VMAP_H
#define VEXOR_VMAP_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"

VX_EXTERN_C_BEGIN

typedef struct VMap VMap;

/* ---- Types ----------------------------------------------------------------------------- */

/* Type flags. */
#define VMAP_TYPE_SELECTION 0x1u /* carried for the type's users */
#define VMAP_TYPE_EDGE 0x2u      /* an edge entry with an empty first end answers its other end */
#define VMAP_TYPE_BLENDS 0x4u    /* carried for the type's users */
#define VMAP_TYPE_SINGLE 0x8u    /* at most one map of the type per mesh */

/* Appends a type (the name is copied). Returns 1; also 1 when the code is already defined
 * with the same name, dimension and flags (modules define their types at every start). 0 when
 * the code or name is taken otherwise, the name is null or empty, or memory ran out. */
VX_API int VMapDefineType(uint32_t code, const char *name, uint32_t dimension, uint32_t flags);
/* The type's name, or null for an unknown code. */
VX_API const char *VMapTypeName(uint32_t code);
/* Dimension and flags; 0xFFFFFFFF for an unknown code. */
VX_API uint32_t VMapTypeDimension(uint32_t code);
VX_API uint32_t VMapTypeFlags(uint32_t code);
/* The code of the type with exactly that name (case matters), or 0. */
VX_API uint32_t VMapTypeByName(const char *name);
/* The registered types in the order they were defined. */
VX_API unsigned int VMapTypeCount(void);
VX_API uint32_t VMapTypeByIndex(unsigned int index); /* 0 past the end */

/* ---- Maps ------------------------------------------------------------------------------ */

/* Map flags (VMapFlags). */
#define VMAP_COMPUTED 0x2000u  /* values come from an evaluation function */
#define VMAP_POSITIONS 0x4000u /* the mesh's position map */
#define VMAP_DEAD 0x8000u      /* destroyed; kept until its mesh goes */

/* The values of a computed map for a vertex, or for a vertex as used by a polygon (polygon
 * non-null); null when it has none. The pointer must stay valid until the next call. */
typedef const float *(*VMapEvalFunc)(const VMap *map, const MeshVertex *vertex,
                                     const MeshPolygon *polygon, void *client);

/* A new map of a registered type on the mesh, named by its type's name. For a type with
 * VMAP_TYPE_SINGLE the mesh's map of that type is returned when it has one; an instance that
 * reaches its source's map gets a map of its own lying over it, which takes the source map's
 * place in the instance's lookups. Null for an unknown type, a null mesh or out of memory. */
VX_API VMap *VMapCreate(Mesh *mesh, uint32_t type);
/* A new map of the same type lying over `under`, which belongs to the mesh or to its source.
 * Named as `under`. */
VX_API VMap *VMapCreateOver(Mesh *mesh, VMap *under);
/* A new computed map. */
VX_API VMap *VMapCreateComputed(Mesh *mesh, uint32_t type, VMapEvalFunc eval, void *client);
/* Marks a map dead: lookups skip it (unless the mesh's show-dead word is set), its values read
 * as null and maps lying over it read through it as if it were empty. Returns 1; 0 for the
 * position map, a dead map or on failure. */
VX_API int VMapDestroy(VMap *map);

/* The map's type code; 0 for a null map. */
VX_API uint32_t VMapType(const VMap *map);
/* The number of floats per entry; 0 for a null map. */
VX_API uint32_t VMapDimension(const VMap *map);
/* The map's flag word (0x2000: a computed map). */
VX_API uint32_t VMapFlags(const VMap *map);
/* The mesh that owns the map. */
VX_API Mesh *VMapMesh(const VMap *map);
/* The map this one lies over, or null. */
VX_API VMap *VMapUnderlying(const VMap *map);

/* Names: at most 63 bytes. The public name (what the user sees) starts empty. The setters are
 * undoable; they return 1, or 0 for a null or dead map, a null name, one too long, or on
 * failure. */
VX_API const char *VMapName(const VMap *map);
VX_API int VMapSetName(VMap *map, const char *name);
VX_API const char *VMapPublicName(const VMap *map);
VX_API int VMapSetPublicName(VMap *map, const char *name);
VX_API uint32_t VMapUserFlags(const VMap *map);
VX_API void VMapSetUserFlags(VMap *map, uint32_t flags);
VX_API uint32_t VMapMarks(const VMap *map);
VX_API void VMapSetMarks(VMap *map, uint32_t marks);

/* ---- Values ---------------------------------------------------------------------------- */

/* Sets the vertex's value (dimension floats copied; values may be null for dimension 0).
 * Returns the stored values, or null for a computed or dead map, a dead vertex, a vertex of
 * an unrelated mesh (the map's mesh, its source and its instances are related), or on
 * failure. */
VX_API const float *VMapSet(VMap *map, MeshVertex *vertex, const float *values);
/* The vertex's value through the layers; null when it has none. With VMAP_TYPE_EDGE an edge
 * entry whose first end is empty and whose other end is the vertex answers too. */
VX_API const float *VMapGet(const VMap *map, const MeshVertex *vertex);
/* Removes the vertex's value (hiding the underlying map's for a layered map). Returns 1 when
 * the value read changed or was hidden, 0 when there was nothing to remove or on failure. The
 * position map refuses. */
VX_API int VMapUnset(VMap *map, MeshVertex *vertex);

/* The same for the value of a vertex as used by one polygon; it does not answer VMapGet. */
VX_API const float *VMapPSet(VMap *map, MeshVertex *vertex, MeshPolygon *polygon,
                             const float *values);
VX_API const float *VMapPGet(const VMap *map, const MeshVertex *vertex, const MeshPolygon *polygon);
VX_API int VMapPUnset(VMap *map, MeshVertex *vertex, MeshPolygon *polygon);

/* The same for edges. An edge is unordered: (a, b) and (b, a) are one edge. One end may be
 * null: the edge is then keyed by its other end alone. */
VX_API const float *VMapESet(VMap *map, MeshVertex *a, MeshVertex *b, const float *values);
VX_API const float *VMapEGet(const VMap *map, const MeshVertex *a, const MeshVertex *b);
VX_API int VMapEUnset(VMap *map, MeshVertex *a, MeshVertex *b);

/* The polygon's own value for the vertex, else the vertex's value; null when neither. */
VX_API const float *VMapEval(const VMap *map, const MeshVertex *vertex, const MeshPolygon *polygon);
/* 1 when VMapEval answers for at least one corner of the polygon. */
VX_API int VMapTestPolygon(const VMap *map, const MeshPolygon *polygon);

/* ---- Lookup ---------------------------------------------------------------------------- */

/* A mesh's maps in order of creation. An instance sees its source's maps, each replaced by
 * the instance's own map lying over it when it has one, then its other own maps. Dead maps are
 * skipped unless the mesh's show-dead word is set. A type of 0 means every type. */
VX_API unsigned int VMapCount(const Mesh *mesh, uint32_t type);
VX_API VMap *VMapByIndex(const Mesh *mesh, uint32_t type, unsigned int index);
/* Writes up to `max` maps to `maps` (may be null when max is 0); returns how many there are. */
VX_API unsigned int VMapGetList(const Mesh *mesh, uint32_t type, VMap **maps, unsigned int max);
/* The first map of the type with that name or public name (exact comparison); null if none. */
VX_API VMap *VMapFindName(const Mesh *mesh, uint32_t type, const char *name);
VX_API VMap *VMapFindPublic(const Mesh *mesh, uint32_t type, const char *publicName);
/* The first map of the type. VMapFindForMesh(mesh, VX_CODE4('O','P','O','S')) is the position
 * map. */
VX_API VMap *VMapFindForMesh(const Mesh *mesh, uint32_t type);

VX_EXTERN_C_END

#endif
