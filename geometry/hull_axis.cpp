// The major axis: the rectangle along the hull's diameter, and those along the four hull edges
// at the diameter's ends, the smallest area winning.
#include "geometry/hull_axis.h"

#include <cmath>
#include <limits>
#include <vector>

#include <vexor/matrix2d.h>

#include "foundation/vector_maths.h"

namespace vx {

namespace {

struct UV {
    double u, v;
};

// The rectangle along a hull edge: rotate the vertices until the edge lies along u, box them,
// and turn the box's centre back.
bool edge_candidate(const std::vector<UV> &list, std::size_t from, std::size_t to,
                    HullRectangle &out, double &area) {
    const double du = list[to].u - list[from].u, dv = list[to].v - list[from].v;
    const double length = std::hypot(du, dv);
    if (!(length > 0.0)) {
        area = std::numeric_limits<double>::infinity();
        return false;
    }
    const double edge[2] = {du / length, dv / length};
    const double along_u[2] = {1.0, 0.0};
    double angle = AngleVectors(edge, along_u);
    if (edge[1] > 0.0) angle = -angle;  // turn the edge down (or up) onto the u axis
    Matrix2D rotate;
    Matrix2DIdent(&rotate);
    Matrix2DRotate(&rotate, angle);
    double lo[2] = {std::numeric_limits<double>::infinity(),
                    std::numeric_limits<double>::infinity()};
    double hi[2] = {-lo[0], -lo[1]};
    for (const UV &p : list) {
        const double in[2] = {p.u, p.v};
        double r[2];
        Matrix2DMultiply(&rotate, in, r);
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::fmin(lo[k], r[k]);
            hi[k] = std::fmax(hi[k], r[k]);
        }
    }
    const double middle[2] = {(lo[0] + hi[0]) * 0.5, (lo[1] + hi[1]) * 0.5};
    Matrix2D back;
    Matrix2DIdent(&back);
    Matrix2DRotate(&back, -angle);
    Matrix2DMultiply(&back, middle, out.centre);
    const double extent_u = hi[0] - lo[0], extent_v = hi[1] - lo[1];
    if (extent_u >= extent_v) {
        out.length = extent_u;
        out.width = extent_v;
        out.axis[0] = edge[0];
        out.axis[1] = edge[1];
    } else {
        out.length = extent_v;
        out.width = extent_u;
        out.axis[0] = -edge[1];
        out.axis[1] = edge[0];
    }
    area = extent_u * extent_v;
    return true;
}

}  // namespace

bool hull_major_axis(const ConvexHullData &hull, HullRectangle &out) {
    const std::size_t count = hull.hull_size();
    if (count < 2) return false;
    std::vector<UV> list(count);
    for (std::size_t i = 0; i < count; ++i)
        list[i] = {hull.hull_vertex(i).u, hull.hull_vertex(i).v};
    if (count == 2) {
        const double du = list[1].u - list[0].u, dv = list[1].v - list[0].v;
        const double length = std::hypot(du, dv);
        // Two vertices in one place (3D points projected together) have no direction.
        if (!(length > 0.0) || !std::isfinite(length)) return false;
        out = HullRectangle{{(list[0].u + list[1].u) * 0.5, (list[0].v + list[1].v) * 0.5},
                            {du / length, dv / length},
                            length,
                            0.0};
        return true;
    }
    // The diameter: the first pair in list order with the largest distance.
    std::size_t di = 0, dj = 1;
    double best = -1.0;
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = i + 1; j < count; ++j) {
            const double du = list[j].u - list[i].u, dv = list[j].v - list[i].v;
            const double d2 = du * du + dv * dv;
            if (d2 > best) {
                best = d2;
                di = i;
                dj = j;
            }
        }
    const double diameter = std::sqrt(best);
    if (DCompare(diameter, 0.0) == 0) return false;

    HullRectangle answer;
    answer.centre[0] = (list[di].u + list[dj].u) * 0.5;
    answer.centre[1] = (list[di].v + list[dj].v) * 0.5;
    answer.axis[0] = (list[dj].u - list[di].u) / diameter;
    answer.axis[1] = (list[dj].v - list[di].v) / diameter;
    if (answer.axis[1] < 0.0) {
        answer.axis[0] = -answer.axis[0];
        answer.axis[1] = -answer.axis[1];
    }
    answer.length = diameter;
    double above = 0.0, below = 0.0;
    for (const UV &p : list) {
        const double offset =
            (p.u - answer.centre[0]) * answer.axis[1] - (p.v - answer.centre[1]) * answer.axis[0];
        above = std::fmax(above, offset);
        below = std::fmin(below, offset);
    }
    answer.width = above - below;
    double area = answer.length * answer.width;

    for (const std::size_t k : {di, dj}) {
        for (const std::size_t other : {(k + 1) % count, (k + count - 1) % count}) {
            HullRectangle candidate;
            double candidate_area = 0.0;
            if (edge_candidate(list, k, other, candidate, candidate_area) &&
                candidate_area < area) {
                answer = candidate;
                area = candidate_area;
            }
        }
    }
    out = answer;
    return true;
}

namespace {

// A point (u, v) of the projection, lifted onto the hull's plane across the dropped axis.
void lift_point(const ConvexHullData &hull, const double uv[2], double out[3]) {
    const AxisTest &t = hull.axis_test();
    const HullPlane &plane = hull.plane();
    out[t.u] = uv[0];
    out[t.v] = uv[1];
    out[t.axis] = plane.centre[t.axis] - (plane.normal[t.u] * (uv[0] - plane.centre[t.u]) +
                                          plane.normal[t.v] * (uv[1] - plane.centre[t.v])) /
                                             plane.normal[t.axis];
}

}  // namespace

bool hull_major_axis_3d(const ConvexHullData &hull, HullRectangle3D &out) {
    HullRectangle flat;
    if (!hull_major_axis(hull, flat)) return false;
    const double across[2] = {-flat.axis[1], flat.axis[0]};
    double centre[3], ends[2][3], sides[2][3];
    lift_point(hull, flat.centre, centre);
    for (int s = 0; s < 2; ++s) {
        const double sign = s == 0 ? -0.5 : 0.5;
        const double along[2] = {flat.centre[0] + sign * flat.length * flat.axis[0],
                                 flat.centre[1] + sign * flat.length * flat.axis[1]};
        const double side[2] = {flat.centre[0] + sign * across[0],
                                flat.centre[1] + sign * across[1]};
        lift_point(hull, along, ends[s]);
        lift_point(hull, side, sides[s]);
    }
    for (int k = 0; k < 3; ++k) {
        out.centre[k] = centre[k];
        out.axis[k] = ends[1][k] - ends[0][k];
        out.across[k] = sides[1][k] - sides[0][k];
        out.normal[k] = hull.plane().normal[k];
    }
    // The lifted sides are longer than in the projection where the plane is tilted to it.
    out.length = normalize(out.axis);
    out.width = flat.width * normalize(out.across);
    return true;
}

}  // namespace vx
