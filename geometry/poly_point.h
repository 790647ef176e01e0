// Point-in-polygon tests in the plane of an axis test: the even-odd rule, and the same with a
// boundary band. They run per point in selection, culling and snapping loops, so each is one
// pass over the vertex list with every intermediate on the stack and each vertex read once.
#pragma once

#include <cmath>

#include <vexor/axis.h>

#include "mesh/mesh.h"
#include "mesh/position_read.h"

namespace vx::geometry {

// Calls body(read) with the cheapest reader of positions the source allows: a vertex's stored
// position when nothing lies over it.
template <class Body>
auto with_reader(const mesh::PositionSource &source, Body body) {
    if (source.direct()) {
        return body([](const MeshVertex *vertex) noexcept {
            static constexpr float kOrigin[3] = {0.0f, 0.0f, 0.0f};
            return vertex != nullptr ? mesh::stored_position(vertex) : kOrigin;
        });
    }
    return body([&source](const MeshVertex *vertex) noexcept { return source.get(vertex); });
}

// Even-odd: counts the edges that straddle the line v = pv and cross it at u > pu. A vertex on
// the line counts as below it; a crossing exactly at the point is not counted. Most edges do not
// straddle the line, so the loop reads only v coordinates until one does.
template <class Read>
int even_odd(Read read, MeshVertex *const *vertices, unsigned count, const AxisTest &test,
             const double position[3]) noexcept {
    if (count == 0) return 0;
    const int u = test.u, v = test.v;
    const double pu = position[u], pv = position[v];
    const float *prev = read(vertices[count - 1]);
    bool prev_below = pv < static_cast<double>(prev[v]);
    unsigned crossings = 0;
    for (unsigned i = 0; i < count; ++i) {
        const float *cur = read(vertices[i]);
        const bool cur_below = pv < static_cast<double>(cur[v]);
        if (prev_below != cur_below) {
            const double cur_u = static_cast<double>(cur[u]), cur_v = static_cast<double>(cur[v]);
            const double x = (pv - cur_v) * (static_cast<double>(prev[u]) - cur_u) /
                                 (static_cast<double>(prev[v]) - cur_v) +
                             cur_u;
            crossings += x > pu ? 1u : 0u;
        }
        prev = cur;
        prev_below = cur_below;
    }
    return static_cast<int>(crossings & 1u);
}

// With a band of half-width t (> 0) around the boundary: 0 on a vertex, on a nearly level edge
// between its ends, or within the band of an edge that runs downward in v; else 1 inside and -1
// outside. The band along sloped edges divides by the signed dv, so edges running upward in v
// never report the boundary: their points are counted inside or outside like any other.
template <class Read>
int even_odd_band(Read read, MeshVertex *const *vertices, unsigned count, const AxisTest &test,
                  const double position[3], double t) noexcept {
    const int u = test.u, v = test.v;
    const double pu = position[u], pv = position[v];
    unsigned crossings = 0;
    if (count != 0) {
        const float *prev = read(vertices[count - 1]);
        double prev_v = static_cast<double>(prev[v]);
        for (unsigned i = 0; i < count; ++i) {
            const float *cur = read(vertices[i]);
            const double cur_v = static_cast<double>(cur[v]);
            const bool near = std::fabs(pv - cur_v) < t;
            const bool straddles = (pv < prev_v) != (pv < cur_v);
            if (near || straddles) {
                const double cur_u = static_cast<double>(cur[u]);
                const double prev_u = static_cast<double>(prev[u]);
                if (near) {
                    if (std::fabs(pu - cur_u) < t) return 0;
                    if (std::fabs(pv - prev_v) < t && (pu < cur_u) != (pu < prev_u)) return 0;
                }
                if (straddles) {
                    const double dv = prev_v - cur_v, du = prev_u - cur_u;
                    const double d = (pv - cur_v) * du / dv - (pu - cur_u);
                    if (std::sqrt(du * du + dv * dv) * t / dv > std::fabs(d)) return 0;
                    crossings += d > 0.0 ? 1u : 0u;
                }
            }
            prev = cur;
            prev_v = cur_v;
        }
    }
    return (crossings & 1u) != 0 ? 1 : -1;
}

}  // namespace vx::geometry
