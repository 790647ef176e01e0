/* Subdivision levels of a mesh's smooth polygon types: subdivision surfaces ("SUBD"), patches
 * ("PTCH") and spline patches ("SPCH"), with the render level, the linear UV mode and the cage
 * mode, and the limit corners of the subdivision surface.
 *
 * Subdivision surfaces are Catmull-Clark surfaces over the mesh's "SUBD" polygons of 3 to 256
 * vertices; other polygons take no part in them. Their data (topology, limit corners, limit
 * UV corners of every texture map, and refined geometry at the mesh's level) is built on first
 * use after a change of the mesh and kept as the "SUBD" type's meta data.
 *
 * Events: every setter that names a mesh, except SUBDSetCageMode, first announces
 * SUBD_EVENT_BEFORE at once (MESH_CHANGE_IMMEDIATE); SUBDSetLevel, SUBDSetLinearUV and the patch
 * setters then announce SUBD_EVENT_AFTER. None of the setters is undoable.
 *
 * Threads: the setters and getters of a mesh run on the thread that uses the mesh. Once the
 * data is built, other threads may read limit corners and generate polygon vertex buffers made
 * beforehand while the level is changed: the cache of refined geometry is guarded by a
 * semaphore of its own.
 *
 * Memory: the refined geometry is made at the level asked or, when that would exceed about a
 * million quads, at the highest level below it that does not. */
#ifndef VEXOR_SUBD_H
#define VEXOR_SUBD_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/vbuf.h"
#include "vexor/vmap.h"

VX_EXTERN_C_BEGIN

#define SUBD_EVENT_BEFORE 0x140000u
#define SUBD_EVENT_AFTER 0x100u

/* The per-mesh level record, made with the mesh; callers may read its fields. */
typedef struct PolyTypeLevels {
    int32_t patchLevel;  /* PTCH, 1 to 4095 */
    int32_t subdLevel;   /* SUBD display level, 1 to 24 */
    int32_t splineLevel; /* SPCH, 1 to 4095 */
    int32_t linearUV;    /* non-zero: UVs follow the cage linearly */
    int32_t renderLevel; /* SUBD level at render time, 1 to 24 */
    int32_t cageMode;    /* non-zero: the surface is shown as its cage; no limit corners */
} PolyTypeLevels;

/* The mesh's level record (new meshes: levels 2, render level 2, linear UVs and cage mode off),
 * or null for a null mesh or when memory ran out. Owned by the mesh. */
VX_API PolyTypeLevels *PolyTypeGetLevels(Mesh *mesh);

/* Sets the display and render level of SUBD polygons to the level clamped to 1..24; a level of
 * 48 or more is also reported on the failure log. When the clamped level differs from the level
 * the refined geometry was made for, that geometry is dropped. Returns the level as passed. */
VX_API int SUBDSetLevel(Mesh *mesh, int level);
VX_API int SUBDGetLevel(Mesh *mesh);
/* Sets the render level only (clamped to 1..24; nothing is stored when it equals the stored
 * render level). Announces SUBD_EVENT_BEFORE only. Returns the level as passed. */
VX_API int SUBDSetRenderLevel(Mesh *mesh, int level);
VX_API int SUBDGetRenderLevel(Mesh *mesh);
/* Sets the linear UV mode; a change rebuilds the UV data of the surface on next use. */
VX_API void SUBDSetLinearUV(Mesh *mesh, int mode);
VX_API int SUBDGetLinearUV(Mesh *mesh);
/* Sets the cage mode and drops the refined geometry. Announces nothing. Returns the mode. */
VX_API int SUBDSetCageMode(Mesh *mesh, int mode);
VX_API int SUBDGetCageMode(Mesh *mesh);

/* Patch and spline patch levels: clamped to 1..4095; a change drops the type's mesh data.
 * Return the clamped level (0 for a null mesh). */
VX_API int PTCHSetLevel(Mesh *mesh, int level);
VX_API int PTCHGetLevel(Mesh *mesh);
VX_API int SPCHSetLevel(Mesh *mesh, int level);
VX_API int SPCHGetLevel(Mesh *mesh);

/* Process-wide preview settings; no mesh, no events. */
VX_API int SUBDGetPreviewRenderLevel(void);
VX_API void SUBDSetPreviewRenderLevel(int level);
VX_API int SUBDGetPreviewCage(void);
VX_API void SUBDSetPreviewCage(int cage);

/* Drops the refined geometry a polygon vertex buffer keeps and sets its level (clamped to
 * 0..24). Takes no lock: the buffer belongs to its caller. */
VX_API void SUBDVBufSetLevel(PolyVBuf *buffer, int level);

/* The limit position of a vertex of the mesh's subdivision surface. Returns 1, or 0 in cage
 * mode, for a vertex of no SUBD polygon, or when the data cannot be built. */
VX_API int SUBDGetCorner(Mesh *mesh, const MeshVertex *vertex, float out[3]);
/* The limit UV (u, v, 0) of corner `corner` of a SUBD polygon, for the texture map `map` (null:
 * the mesh's first texture map). Smoothed or linear as the linear UV mode says. Returns 1, or 0
 * for a corner out of range, in cage mode, for a polygon that is not part of the surface, or a
 * map with no values. */
VX_API int SUBDGetUVCorner(Mesh *mesh, const VMap *map, const MeshPolygon *polygon,
                           unsigned int corner, float out[3]);

/* Obsolete: write a failure line and return 0. PTCHGetCorner also writes the vertex's plain
 * position to `out` (when both are given). */
VX_API int PTCHGetCorner(Mesh *mesh, const MeshVertex *vertex, float out[3]);
VX_API int PTCHGetEdgeBezier(Mesh *mesh, const MeshPolygon *polygon, unsigned int edge,
                             float out[12]);

VX_EXTERN_C_END

#endif
