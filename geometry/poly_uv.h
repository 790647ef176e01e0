// Polygons in UV space: the point test and the distances from a UV position to a polygon's UV
// edges, corners and area. UVs come from a vertex map of dimension 2 or more; a polygon has UVs
// in a map when at least one of its corners has a value there, and a corner without one reads
// as (0, 0).
#pragma once

#include "mesh/mesh.h"

struct VMap;

namespace vx::geometry {

// The answer of the distances for a polygon without UVs.
inline constexpr double kNoUVDistance = 1e10;

int test_uv_pos(const VMap *vmap, const MeshPolygon &polygon, const double uv[2]);
// The distances write the nearest point to `closest` when it is not null.
double edge_distance_uv(const VMap *vmap, const MeshPolygon &polygon, int edge, const double uv[2],
                        double closest[2]);
double corner_distance_uv(const VMap *vmap, const MeshPolygon &polygon, int corner,
                          const double uv[2], double closest[2]);
double polygon_distance_uv(const VMap *vmap, const MeshPolygon &polygon, const double uv[2],
                           double closest[2]);
// The UV rectangle of a text polygon's glyph cell, counter-clockwise from its lowest corner.
bool text_uv_corners(const VMap *vmap, const MeshPolygon &polygon, float corners[4][2]);

}  // namespace vx::geometry
