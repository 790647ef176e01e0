/* Polygon vertex buffers: the drawn geometry of polygons, generated into an attribute buffer.
 *
 * A buffer is made for one mesh and one source of values: a texture map ("TXUV", two values
 * per sample) or, with no map, the vertex positions (three values per sample). It runs in one
 * of two modes:
 *
 *   PVBUF_OUTLINE    each generated polygon gives its outline as a closed loop of samples.
 *                    The loop's length is a multiple k of the polygon's vertex count; corner i
 *                    is sample i*k, and the samples of edge i (from corner i to corner i+1)
 *                    follow it. Subdivision surface polygons ("SUBD") whose mesh smooths its UVs
 *                    (SUBDGetLinearUV is 0) give the boundary of their subdivided surface at the
 *                    buffer's level, k = 2^level; other polygons give their corners (k = 1).
 *   PVBUF_TRIANGLES  each generated polygon gives one sample per corner and a fan of triangles
 *                    over them as index triples into the buffer's samples.
 *   PVBUF_QUADS      each generated polygon gives the quads of its subdivided surface at the
 *                    buffer's level, four samples (corners in order) per quad: 4^level quads per
 *                    polygon corner for a smoothed SUBD polygon, else its corners as one loop.
 *
 * Use: PolyVBufResetCount, PolyVBufCountPoly for each polygon, PolyVBufAllocate,
 * PolyVBufResetCount again, then PolyVBufGenPoly for the same polygons in the same order. Read
 * the samples through the attribute buffer (PolyVBufAttributes) between AVBUpdateBegin and
 * AVBUpdateEnd. The buffer's level starts as the mesh's subdivision level (SUBDGetLevel);
 * SUBDVBufSetLevel (vexor/subd.h) changes it.
 *
 * Threads: a buffer belongs to the thread that made it; its mesh must not be edited while the
 * buffer counts or generates. Once the mesh's subdivision data is built (MeshMetaValidate with
 * the "SUBD" type's class, or any SUBD query), buffers of the mesh may count and generate on
 * other threads, also while the mesh's subdivision level is changed. */
#ifndef VEXOR_VBUF_H
#define VEXOR_VBUF_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/vmap.h"

VX_EXTERN_C_BEGIN

typedef struct PolyVBuf PolyVBuf;
typedef struct AttrVBuf AttrVBuf;

#define PVBUF_OUTLINE 0u
#define PVBUF_TRIANGLES 1u
#define PVBUF_QUADS 2u

/* Makes a buffer. `source` is a map of `mesh` of dimension 2 (texture values) or null (vertex
 * positions). Returns null for a null mesh, a map of another mesh or dimension, an unknown
 * mode, or when memory ran out. The caller destroys the buffer. */
VX_API PolyVBuf *PolyVBufCreate(Mesh *mesh, VMap *source, uint32_t mode);
/* Destroys the buffer and drops its reference to its attribute buffer. Null is ignored. */
VX_API void PolyVBufDestroy(PolyVBuf *buffer);
/* Starts counting (or generating) from the first sample again. */
VX_API void PolyVBufResetCount(PolyVBuf *buffer);
/* Adds the samples and triangles the polygon will need. Returns 1, or 0 for a polygon of
 * another mesh, a dead polygon, or one without vertices. */
VX_API int PolyVBufCountPoly(PolyVBuf *buffer, const MeshPolygon *polygon);
/* Makes room for what was counted. Returns 1, or 0 when memory ran out (the buffer is then
 * empty) or while its attribute buffer is between AVBUpdateBegin and AVBUpdateEnd. */
VX_API int PolyVBufAllocate(PolyVBuf *buffer);
/* Writes the polygon's samples (and triangles) after those generated since the last reset.
 * Returns the number of samples written, or 0 when the polygon cannot be generated or does not
 * fit in the room allocated. */
VX_API unsigned int PolyVBufGenPoly(PolyVBuf *buffer, const MeshPolygon *polygon);
/* The buffer's attribute buffer, owned by the buffer unless grabbed (AVBGrab). */
VX_API AttrVBuf *PolyVBufAttributes(PolyVBuf *buffer);
/* The buffer's own data for a polygon type (the subdivision level and cache of "SUBD"), or null
 * for a type that keeps none. */
VX_API void *PolyVBufGetData(PolyVBuf *buffer, const PolyType *type);
/* The buffer's subdivision level. */
VX_API int PolyVBufLevel(const PolyVBuf *buffer);

/* ---- Attribute buffers ------------------------------------------------------------------- */

/* What an attribute buffer holds, valid between AVBUpdateBegin and AVBUpdateEnd. */
typedef struct AVBView {
    const float *values;     /* `dimension` floats per sample */
    uint32_t dimension;      /* 2 for texture values, 3 for positions */
    uint32_t count;          /* samples generated since the last reset */
    const uint32_t *indices; /* PVBUF_TRIANGLES: three sample indices per triangle */
    uint32_t indexCount;     /* number of indices (three per triangle) */
} AVBView;

/* Adds a reference: a grabbed attribute buffer outlives its polygon vertex buffer. */
VX_API void AVBGrab(AttrVBuf *avb);
/* Drops a reference; the last one frees the buffer. Null is ignored. */
VX_API void AVBDrop(AttrVBuf *avb);
/* Opens the buffer for reading and fills `view`. Returns 1, or 0 for null arguments. The
 * buffer is not reallocated until AVBUpdateEnd. Begin and End nest. */
VX_API int AVBUpdateBegin(AttrVBuf *avb, AVBView *view);
VX_API void AVBUpdateEnd(AttrVBuf *avb);

VX_EXTERN_C_END

#endif
