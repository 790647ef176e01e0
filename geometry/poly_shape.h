// Polygon shape: the corner normal at vertex 0, the projection for planar tests, orientation,
// convexity and the centroid. Positions are read as the given mesh sees them (a null mesh:
// each vertex's own).
#pragma once

#include <cstdint>

#include <vexor/axis.h>

#include "mesh/mesh.h"
#include "mesh/poly_type.h"
#include "mesh/position_read.h"

namespace vx::geometry {

using mesh::PositionSource;

inline constexpr std::uint32_t kText = VX_CODE4('T', 'E', 'X', 'T');

inline bool is_area(const MeshPolygon &polygon) noexcept {
    return (polygon.type()->flags & POLYTYPE_AREA) != 0;
}

// The unit normal of the corner at vertex 0, (p1 - p0) x (pLast - p0); false (normal zero) for
// fewer than three vertices or a degenerate corner.
bool corner_normal(const PositionSource &source, const MeshPolygon &polygon, double normal[3]);
int get_normal(const PositionSource &source, const MeshPolygon &polygon, double normal[3]);
int set_test_axis(const PositionSource &source, const MeshPolygon &polygon, AxisTest &test);
// Twice the signed area of the closed loop in the test's plane, summed from the closing edge.
double loop_area(const PositionSource &source, const MeshVertex *const *vertices, unsigned count,
                 const AxisTest &test) noexcept;
int triangle_orient(const AxisTest &test, const MeshVertex *a, const MeshVertex *b,
                    const MeshVertex *c) noexcept;
int first_convex(const PositionSource &source, const MeshPolygon &polygon);
int is_convex(Mesh *mesh, const MeshPolygon &polygon);
unsigned centroid_of(const PositionSource &source, const MeshPolygon &polygon, double out[3]);
double tolerance(Mesh *mesh, const MeshPolygon &polygon);
std::uint32_t test_validity(const MeshPolygon &polygon, std::uint32_t mark_bit);

}  // namespace vx::geometry
