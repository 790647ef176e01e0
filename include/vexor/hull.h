/* Convex hulls of point sets, their bounding box and major axis, and planes fitted through mesh
 * vertices.
 *
 * A hull object collects points, as (u, v) pairs or as 3D positions that it projects onto their
 * best-fit plane itself (dropping the axis along which the plane's normal is largest, see
 * vexor/axis.h), and builds their 2D convex hull with a Graham scan. Use it in this order:
 * ConvexHullCreate; ConvexHullStart; appends; ConvexHullDone; queries; ConvexHullStart again to
 * reuse it; ConvexHullDestroy.
 *
 * The hull: after ConvexHullDone the hull vertices form a list whose first element is the last
 * vertex the scan accepted and whose last element is the pivot (the point of smallest v, the
 * largest u among those), so that the list runs clockwise in (u, v). Collinear points on the
 * hull's edges are not vertices, and of several points on one ray from the pivot only the
 * farthest is kept. ConvexHullVertexCount and ConvexHullGetVertex read the list.
 *
 * Failures: appends and ConvexHullCreate allocate; when memory runs out nothing is added (or
 * null is returned) and VxLastFailure tells why. Degenerate point sets are answered by results.
 * A hull is used by one thread at a time; different hulls may be used on different threads. */
#ifndef VEXOR_HULL_H
#define VEXOR_HULL_H

#include <stdint.h>

#include "vexor/axis.h"
#include "vexor/bbox.h"
#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/plane_fit.h"
#include "vexor/vmap.h"

VX_EXTERN_C_BEGIN

typedef struct ConvexHull ConvexHull;

/* An empty hull (projection: drop Z), owned by the caller (ConvexHullDestroy); null when out
 * of memory. Call ConvexHullStart before the first append. */
VX_API ConvexHull *ConvexHullCreate(void);
/* Frees every point, resets the projection to dropping Z and opens a fresh duplicate index. */
VX_API void ConvexHullStart(ConvexHull *hull);
/* Frees the hull and its points. Null is ignored. */
VX_API void ConvexHullDestroy(ConvexHull *hull);

/* Appends a 2D point: position (u, v, 0), plane coordinates (u, v). `client` is the caller's
 * value, kept with the point. Returns 0 when the point was added; 1 when a point of the same
 * position (compared as three floats, so values that round to the same floats are the same) is
 * already there; -1 when nothing was added because the hull was not started (or is done), a
 * coordinate is not finite, or memory ran out (VxLastFailure says which). */
VX_API int ConvexHullAppend(ConvexHull *hull, double u, double v, uint64_t client);
/* Appends a 3D point with the same rules; ConvexHullDone chooses the projection. */
VX_API int ConvexHullAppendPos(ConvexHull *hull, const double position[3], uint64_t client);
VX_API int ConvexHullAppendPosF(ConvexHull *hull, const float position[3], uint64_t client);

/* Builds the hull. With 3D points it first chooses the projection: the normal of the points'
 * fitted plane; failing that (fewer than 3 points or all on a line), the normal of the first
 * three points' triangle; for exactly two points, their direction; failing all, drop Z.
 * Returns 1, or 0 when fewer than 2 points were appended. Closes the duplicate index. */
VX_API int ConvexHullDone(ConvexHull *hull);

/* The points appended since ConvexHullStart; after ConvexHullDone, those left once points that
 * cannot be hull vertices were dropped (those well inside the polygon of the extreme points,
 * and those behind a farther point on a ray from the pivot). */
VX_API unsigned int ConvexHullPointCount(const ConvexHull *hull);

/* The hull list (after ConvexHullDone): its length, and its index-th vertex's (u, v) and client
 * value (either output may be null). GetVertex returns 1, or 0 past the end. */
VX_API unsigned int ConvexHullVertexCount(const ConvexHull *hull);
VX_API int ConvexHullGetVertex(const ConvexHull *hull, unsigned int index, double uv[2],
                               uint64_t *client);
/* The projection in use (after ConvexHullDone for 3D points). */
VX_API void ConvexHullGetAxisTest(const ConvexHull *hull, AxisTest *test);

/* The bounding box of the hull vertices' (u, v, 0) with its extent set; returns the number of
 * hull vertices. For an empty hull only the extent is set (from the box as given) and 0 is
 * returned. */
VX_API unsigned int ConvexHullGetBBox(const ConvexHull *hull, BBox *box);

/* A small bounding rectangle of the hull in (u, v): its centre, its unit long axis, its length
 * along the axis and width across. The candidates are the rectangle along the hull's diameter
 * (the axis turned towards non-negative v) and the rectangles along the four hull edges at the
 * diameter's ends; the smallest area wins, the earlier on ties. This approximates the minimum
 * area rectangle; it is not an exhaustive search. With exactly two hull vertices the axis runs
 * from the list's first vertex to its second, with width 0. Returns 1, or 0 (nothing written)
 * with fewer than 2 vertices, a diameter of 0 (DCompare), or two vertices in one place. */
VX_API int ConvexHullMajorAxis(const ConvexHull *hull, double *centreU, double *centreV,
                               double *axisU, double *axisV, double *length, double *width);
/* The same rectangle in space: found in the projection, then lifted onto the plane the 3D
 * points were fitted to (the plane z = 0 for 2D points; for 3D points that fixed no plane, the
 * plane through their mean across the dropped axis). centre and axis are 3D, axis a unit
 * vector, and length and width are measured along the lifted sides, which may be slightly off
 * square when the plane is steep to the projection. Any output may be null. Returns as
 * ConvexHullMajorAxis. */
VX_API int ConvexHullMajorAxis3D(const ConvexHull *hull, double centre[3], double axis[3],
                                 double *length, double *width);
/* The placement of that rectangle as a 4x4 matrix (vexor/matrix4.h: row vectors, translation in
 * the last row): it maps the unit square centred at the origin of the XY plane (x from -0.5 to
 * 0.5 along the axis, y across it) onto the rectangle, and Z onto the plane's unit normal.
 * Returns 1, or 0 (matrix untouched) where ConvexHullMajorAxis3D returns 0. */
VX_API int ConvexHullGetMatrix(const ConvexHull *hull, double matrix[16]);

/* A hull of mesh vertices: each position (as the mesh sees it) mapped by the axis test, its
 * (u, v) appended with the vertex as client value; then done. Null when out of memory or for a
 * null test or mesh. The caller destroys the hull. */
VX_API ConvexHull *ConvexHullFromVertices(const AxisTest *test, const Mesh *mesh,
                                          unsigned int count, MeshVertex *const *vertices);
/* The major axis of a polygon's UVs in the map (corners without a UV are left out). When the
 * UVs make no hull (fewer than two distinct), the answer comes from their bounding box: its
 * centre, the axis along its longer side ((1, 0) unless the v extent is the larger), the two
 * extents as length and width. length and width may be null. Returns 1; 0 only for a null map
 * or polygon, or when memory ran out. */
VX_API int ConvexHullUVPolygonAxis(const VMap *vmap, const MeshPolygon *polygon, double *centreU,
                                   double *centreV, double *axisU, double *axisV, double *length,
                                   double *width);
/* The major axis of a polygon in space: its vertex positions (as the mesh sees them; a null mesh
 * reads each through its own) hulled as 3D points and answered as ConvexHullMajorAxis3D.
 * Returns 1, or 0 for a polygon without two distinct positions or when memory ran out. */
VX_API int ConvexHullPolygonAxis(const Mesh *mesh, const MeshPolygon *polygon, double centre[3],
                                 double axis[3], double *length, double *width);

/* The plane fitted through mesh vertices (PlaneFitStart, PlaneFitAddPosF, PlaneFitDone of
 * vexor/plane_fit.h): its point and normal go to the outputs that are given. Always returns 1;
 * when the vertices fix no plane the normal written is zero. */
VX_API int PlaneFitFromVertices(const Mesh *mesh, unsigned int count, MeshVertex *const *vertices,
                                double centre[3], double normal[3]);

VX_EXTERN_C_END

#endif
