/* Polygon geometry: the corner normal, the projection for planar tests (axis tests, vexor/axis.h),
 * orientation, convexity, point-in-polygon tests in 3D and in UV space, distances in UV space,
 * a size-scaled tolerance and structural validity.
 *
 * Positions: every function with a mesh argument reads vertex positions as that mesh sees them,
 * so a polygon can be tested against an instance's own (edited or morphed) positions; a null
 * mesh reads each vertex through the mesh it belongs to. Positions are stored as floats and all
 * arithmetic is in double. The F forms take their position or UV as floats (and write their
 * closest point as floats) and otherwise answer exactly as the double forms.
 *
 * The normal is the normal of the corner at vertex 0, (p1 - p0) x (pLast - p0) normalised: for a
 * counter-clockwise polygon it points towards the viewer. It costs three vertex reads, and
 * first-corner convexity builds on it.
 *
 * Degenerate input is answered, never refused: a null polygon is answered as a polygon without
 * vertices, an unfilled vertex slot (MeshNewEmptyPolygon) reads as the origin, and a null or
 * malformed axis test or position gives the answer for a polygon without vertices.
 *
 * UVs: a polygon has UVs in a map (of dimension 2 or more) when VMapTestPolygon says so; each
 * corner's UV is VMapEval's (the polygon's own value first), (0, 0) for a corner without one.
 * Three outlines are tested:
 *   - polygons of an area type that is not linear ('SUBD', 'PSUB', 'SPCH', 'PTCH') on a mesh
 *     that smooths its UVs (SUBDGetLinearUV 0): the outline the polygon vertex buffer generates
 *     (vexor/vbuf.h), the subdivided boundary of the surface for 'SUBD'. Edge e owns the
 *     samples from corner e's sample to corner e+1's; corner k is sample k * (samples / count).
 *     The buffer is made and freed within the call; should it fail, the corners' UVs are used.
 *   - text polygons ('TEXT'), glyph cells: their UV geometry is the fan of triangles (0, i, i+1)
 *     over their corners (as the vertex buffer's triangle mode makes it), their outline the run
 *     of corners 0, 1, ..., n-1, 0, and their glyph cell the UV rectangle around their corners
 *     (TEXTGetUVCorners).
 *   - every other polygon: the loop of its corners' UVs.
 *
 * None of these functions changes the mesh except PolygonTestValidity, which sets a mark bit on
 * the polygon's vertices, and none is undoable. Threads: a polygon may be tested from several
 * threads at once while nobody edits its mesh; PolygonIsConvex and PolygonGetTolerance may build
 * the mesh's cached normals or bounds, so call them from the thread that owns the mesh. */
#ifndef VEXOR_POLYGON_H
#define VEXOR_POLYGON_H

#include <stdint.h>

#include "vexor/axis.h"
#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/vmap.h"

VX_EXTERN_C_BEGIN

/* ---- Normal, projection, orientation, convexity ---------------------------------------- */

/* The unit corner normal. Returns 1; 0 for fewer than 3 vertices (normal not written) or a
 * degenerate corner at vertex 0 (normal written as zero). */
VX_API int PolygonGetNormal(const MeshPolygon *polygon, double normal[3], const Mesh *mesh);
/* Chooses the projection for planar tests of the polygon: from the corner normal
 * (AxisTestSetFromVector), returning 1; or, without a usable corner, dropping the axis along
 * which the vertices' bounding box is thinnest, returning 0 (no vertices: Z). Call it once and
 * pass the test to every point test of the polygon. */
VX_API int PolygonSetTestAxis(const Mesh *mesh, const MeshPolygon *polygon, AxisTest *test);
/* Winding of the closed loop in the test's plane (shoelace sum from the closing edge): 1
 * counter-clockwise or zero area, 0 clockwise. */
VX_API int PolygonOrientation(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test);
/* Winding of three vertices (read through their own meshes): 1 counter-clockwise or collinear,
 * 0 clockwise. */
VX_API int TriangleOrient(const AxisTest *test, const MeshVertex *a, const MeshVertex *b,
                          const MeshVertex *c);
/* Winding of an explicit closed list of vertices, as PolygonOrientation. */
VX_API int VertexListOrientation(const AxisTest *test, const Mesh *mesh, unsigned int count,
                                 MeshVertex *const *vertices);
/* The mean of the vertex positions; returns the vertex count. Without vertices every component
 * is NaN (0 / 0) and the result 0. */
VX_API unsigned int PolygonGetCentroid(const MeshPolygon *polygon, double centroid[3],
                                       const Mesh *mesh);
/* Convexity of the corner at vertex 0: 1 convex (its normal points to the side of the loop's
 * winding), -1 reflex, 0 for fewer than 3 vertices or a degenerate corner. */
VX_API int PolygonFirstConvex(const Mesh *mesh, const MeshPolygon *polygon);
/* 1 when no corner's normal points against the polygon's normal (the mesh's cached polygon
 * normal, or the loop's normal for positions of another mesh); also 1 for triangles, polygons of
 * fewer vertices and curve-like types. 0 when some corner is reflex. Collinear corners count as
 * convex. */
VX_API int PolygonIsConvex(Mesh *mesh, const MeshPolygon *polygon);

/* ---- Point tests ----------------------------------------------------------------------- */

/* Even-odd test of a position in the test's plane: 1 inside, 0 outside. A vertex lying on the
 * test's horizontal line counts as below it, and a point exactly on an edge is not counted by
 * that edge, so points on the boundary may answer either way. */
VX_API int PolygonTestPos(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                          const double position[3]);
VX_API int PolygonTestPosF(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                           const float position[3]);
/* The same with a boundary band of half-width `tolerance` (PolygonGetTolerance gives a good
 * one): 1 inside, -1 outside, 0 within the tolerance of a vertex, of a nearly level edge
 * between its ends, or of an edge that runs downward in v. Edges that run upward in v report
 * no band: their points answer 1 or -1 by the crossing count. A tolerance that is not positive
 * means no band. */
VX_API int PolygonTestPosTol(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                             const double position[3], double tolerance);
VX_API int PolygonTestPosTolF(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                              const float position[3], double tolerance);
/* A vertex position projected through the test (AxisTestMultiply). Nothing is written for a
 * null vertex, test or output. */
VX_API void VertexTestAxisPos(const AxisTest *test, const Mesh *mesh, const MeshVertex *vertex,
                              double out[3]);
VX_API void VertexTestAxisPosF(const AxisTest *test, const Mesh *mesh, const MeshVertex *vertex,
                               float out[3]);
/* A tolerance scaled to the polygon's size: BBoxTolerance of its type's bounding box
 * (PolyTypeBounds), after the mesh's cached bounds are brought up to date. A null mesh means
 * the polygon's own. */
VX_API double PolygonGetTolerance(const MeshPolygon *polygon, Mesh *mesh);

/* ---- UV space -------------------------------------------------------------------------- */

/* The distances' answer for a polygon without UVs in the map. */
#define POLYGON_NO_UV_DISTANCE 1e10

/* 1 when the UV position lies inside the polygon's UV outline (even-odd, as PolygonTestPos;
 * for a text polygon strictly inside a triangle of its glyph geometry); 0 outside, for a
 * polygon without UVs in the map, and for curve-like types. */
VX_API int PolygonTestUVPos(const VMap *vmap, const MeshPolygon *polygon, const double uv[2]);
VX_API int PolygonTestUVPosF(const VMap *vmap, const MeshPolygon *polygon, const float uv[2]);
/* Distance to one UV edge (from corner edgeIndex to the next, the index taken modulo the vertex
 * count, so -1 is the closing edge); the nearest point of the edge goes to `closest` when it is
 * not null. POLYGON_NO_UV_DISTANCE, `closest` untouched, without UVs. */
VX_API double PolyEdgeDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, int edgeIndex,
                                    const double uv[2], double closest[2]);
VX_API double PolyEdgeDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, int edgeIndex,
                                     const float uv[2], float closest[2]);
/* Distance to the UV of one corner (index modulo the vertex count), which goes to `closest`. */
VX_API double PolyVerxDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, int cornerIndex,
                                    const double uv[2], double closest[2]);
VX_API double PolyVerxDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, int cornerIndex,
                                     const float uv[2], float closest[2]);
/* Distance to the polygon's UV area: 0 (and `closest` = the position) inside an area type;
 * else the distance to the nearest UV edge, whose nearest point goes to `closest` (of equally
 * near edges, the first one met). */
VX_API double PolygonDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, const double uv[2],
                                   double closest[2]);
VX_API double PolygonDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, const float uv[2],
                                    float closest[2]);
/* The UV corners of a text polygon's glyph cell: the rectangle around its corners' UVs,
 * counter-clockwise from (min u, min v). Returns 1; 0 (nothing written) for a polygon that is
 * not 'TEXT' or has no UVs in the map. */
VX_API int TEXTGetUVCorners(const VMap *vmap, const MeshPolygon *polygon, float corners[4][2]);

/* ---- Validity -------------------------------------------------------------------------- */

#define POLYGON_REPEATED_VERTEX 0x1u /* a vertex repeats where the type does not allow it */
#define POLYGON_BAD_COUNT 0x2u       /* a vertex count the type does not allow */

/* Structural validity: 0 valid, or POLYGON_ flags. No vertices is a bad count; subdivision
 * types ('SUBD', 'PSUB') need 3 to 256 vertices and patches ('SPCH') 3 or 4. With a non-zero
 * markBit (mark bits, low 16) repeated vertices are looked for too: clearing the bit on the
 * polygon's vertices and setting it on each as it is met. An area type may repeat a vertex only
 * where it crosses a bridge edge to a hole and back (a keyhole: the edge from that occurrence
 * to the next vertex is also travelled the other way); a curve-like type never. The bit is left
 * set on the vertices. */
VX_API uint32_t PolygonTestValidity(const Mesh *mesh, const MeshPolygon *polygon, uint32_t markBit);

VX_EXTERN_C_END

#endif
