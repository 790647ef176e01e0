// Point-in-polygon tests in the plane of an axis test: the even-odd rule, and the same with a
// boundary band. They run per point in selection, culling and snapping loops, so each is one
// pass over the vertex list with every intermediate on the stack and each vertex read once.
#pragma once

#include <cmath>
#include <limits>

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

// Whether an edge that straddles the line v = pv crosses it at u > pu, that is whether
//   x = (pv - cur_v) * (prev_u - cur_u) / (prev_v - cur_v) + cur_u
// exceeds pu. Multiplying out by dv = prev_v - cur_v turns this into the sign of a - b below,
// which needs no division; where a and b are too close for their rounding to settle it (a point
// within about 1e-12 of the edge, relatively), x itself is computed and compared, so the answer
// is always the one the formula gives.
inline bool crosses_right(double pu, double pv, double prev_u, double prev_v, double cur_u,
                          double cur_v) noexcept {
    const double dv = prev_v - cur_v;
    const double a = (pv - cur_v) * (prev_u - cur_u);
    const double b = (pu - cur_u) * dv;
    const double margin = a - b;
    const double scale = std::fabs(a) + (std::fabs(cur_u) + std::fabs(pu)) * std::fabs(dv);
    if (std::fabs(margin) > 0x1p-40 * scale) return (margin > 0.0) == (dv > 0.0);
    return a / dv + cur_u > pu;
}

// The smallest float greater than `value` (NaN when there is none), so that for every float c,
// value < double(c) exactly when c >= float_above(value): the test against the line v = pv is
// then one float comparison per vertex.
inline float float_above(double value) noexcept {
    constexpr float kMax = std::numeric_limits<float>::max();
    constexpr float kInf = std::numeric_limits<float>::infinity();
    if (std::isnan(value) || value == static_cast<double>(kInf)) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    if (value >= static_cast<double>(kMax)) return kInf;
    if (value < -static_cast<double>(kMax)) return -kMax;
    float above = static_cast<float>(value);
    if (!(static_cast<double>(above) > value)) above = std::nextafter(above, kInf);
    return above;
}

// Even-odd: counts the edges that straddle the line v = pv and cross it at u > pu. A vertex on
// the line counts as below it; a crossing exactly at the point is not counted. Most edges do not
// straddle the line, and those that do come in runs, so the loop reads four vertices' v
// coordinates at a time and looks closer only where one of the four edges straddles.
template <class Read>
int even_odd(Read read, MeshVertex *const *vertices, unsigned count, const AxisTest &test,
             const double position[3]) noexcept {
    if (count == 0) return 0;
    const int u = test.u, v = test.v;
    const double pu = position[u], pv = position[v];
    const float above = float_above(pv);
    const float *prev = read(vertices[count - 1]);
    bool prev_below = prev[v] >= above;  // pv < prev[v]
    unsigned crossings = 0;
    const auto edge = [&](const float *cur, bool cur_below) {
        if (prev_below != cur_below) {
            crossings +=
                crosses_right(pu, pv, static_cast<double>(prev[u]), static_cast<double>(prev[v]),
                              static_cast<double>(cur[u]), static_cast<double>(cur[v]))
                    ? 1u
                    : 0u;
        }
        prev = cur;
        prev_below = cur_below;
    };
    unsigned i = 0;
    for (; i + 4 <= count; i += 4) {
        const float *c0 = read(vertices[i]), *c1 = read(vertices[i + 1]);
        const float *c2 = read(vertices[i + 2]), *c3 = read(vertices[i + 3]);
        const bool b0 = c0[v] >= above, b1 = c1[v] >= above;
        const bool b2 = c2[v] >= above, b3 = c3[v] >= above;
        if (((b0 == prev_below) & (b1 == b0) & (b2 == b1) & (b3 == b2)) != 0) {
            prev = c3;
            continue;
        }
        edge(c0, b0);
        edge(c1, b1);
        edge(c2, b2);
        edge(c3, b3);
    }
    for (; i < count; ++i) {
        const float *cur = read(vertices[i]);
        edge(cur, cur[v] >= above);
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
