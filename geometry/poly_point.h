// Point-in-polygon tests in the plane of an axis test: the even-odd rule, and the same with a
// boundary band. They run per point in selection, culling and snapping loops, so each is one
// pass over the vertex list with every intermediate on the stack and each vertex read once.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// The neighbouring floats of a finite float, without a library call.
inline float next_up(float x) noexcept {
    if (x == 0.0f) return std::numeric_limits<float>::denorm_min();
    const auto bits = std::bit_cast<std::uint32_t>(x);
    return std::bit_cast<float>(x > 0.0f ? bits + 1u : bits - 1u);
}

inline float next_down(float x) noexcept {
    return -next_up(-x);
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
    if (!(static_cast<double>(above) > value)) above = next_up(above);
    return above;
}

// Four vertices' v coordinates against the test line: bit k of `below` is set when the line
// lies below vertex k (c >= above), bit k of `near` when c lies in lo..hi. NaN is neither.
struct Screen {
    unsigned below, near;
};

inline Screen screen4(const float c[4], float above, float lo, float hi) noexcept {
#if defined(__SSE2__)
    const __m128 x = _mm_loadu_ps(c);
    const __m128 in_run =
        _mm_and_ps(_mm_cmpge_ps(x, _mm_set1_ps(lo)), _mm_cmple_ps(x, _mm_set1_ps(hi)));
    return Screen{static_cast<unsigned>(_mm_movemask_ps(_mm_cmpge_ps(x, _mm_set1_ps(above)))),
                  static_cast<unsigned>(_mm_movemask_ps(in_run))};
#else
    Screen screen{0u, 0u};
    for (unsigned k = 0; k < 4; ++k) {
        screen.below |= (c[k] >= above ? 1u : 0u) << k;
        screen.near |= (c[k] >= lo && c[k] <= hi ? 1u : 0u) << k;
    }
    return screen;
#endif
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
        const float *c[4] = {read(vertices[i]), read(vertices[i + 1]), read(vertices[i + 2]),
                             read(vertices[i + 3])};
        const float cv[4] = {c[0][v], c[1][v], c[2][v], c[3][v]};
        const unsigned below = screen4(cv, above, 1.0f, 0.0f).below;
        if (below == (prev_below ? 0xFu : 0u)) {
            prev = c[3];
            continue;
        }
        for (unsigned k = 0; k < 4; ++k) edge(c[k], ((below >> k) & 1u) != 0);
    }
    for (; i < count; ++i) {
        const float *cur = read(vertices[i]);
        edge(cur, cur[v] >= above);
    }
    return static_cast<int>(crossings & 1u);
}

// The floats c with |pv - double(c)| < t, as the run lo..hi (empty when lo > hi): the rounded
// difference is monotone in c, so they are one run, found from estimates by stepping to its exact
// ends. False for a line or band too far out (or NaN) to be worth it.
struct FloatRun {
    float lo, hi;
};

inline bool floats_near(double pv, double t, FloatRun &run) noexcept {
    if (!(std::fabs(pv) < 1e30) || !(t < 1e30)) return false;
    const auto near = [pv, t](float c) { return std::fabs(pv - static_cast<double>(c)) < t; };
    if (!near(static_cast<float>(pv))) {  // not even the nearest float
        run = FloatRun{1.0f, 0.0f};
        return true;
    }
    float hi = static_cast<float>(pv + t), lo = static_cast<float>(pv - t);
    for (int step = 0; !near(hi); ++step) {
        if (step == 8) return false;
        hi = next_down(hi);
    }
    for (int step = 0; near(next_up(hi)); ++step) {
        if (step == 8) return false;
        hi = next_up(hi);
    }
    for (int step = 0; !near(lo); ++step) {
        if (step == 8) return false;
        lo = next_up(lo);
    }
    for (int step = 0; near(next_down(lo)); ++step) {
        if (step == 8) return false;
        lo = next_down(lo);
    }
    run = FloatRun{lo, hi};
    return true;
}

// One edge of the band test, for an edge whose end vertex lies near the point's line or that
// straddles it: false when the point is on the boundary, else the edge's crossing is counted.
// The band along a sloped edge divides by the signed dv, so only edges running downward in v
// (dv > 0) can report it.
inline bool band_edge(double pu, double pv, double t, double prev_u, double prev_v, double cur_u,
                      double cur_v, unsigned &crossings) noexcept {
    if (std::fabs(pv - cur_v) < t) {
        if (std::fabs(pu - cur_u) < t) return false;
        if (std::fabs(pv - prev_v) < t && (pu < cur_u) != (pu < prev_u)) return false;
    }
    if ((pv < prev_v) != (pv < cur_v)) {
        const double dv = prev_v - cur_v, du = prev_u - cur_u;
        // d = (pv - cur_v) * du / dv - (pu - cur_u) is m / dv with m = a - b. Where m is clear of
        // its rounding, and (for a downward edge) clear of the band's reach |d| * dv < length * t
        // with room to spare, its sign decides without a division or a square root; else d and
        // the band are computed as written.
        const double a = (pv - cur_v) * du, b = (pu - cur_u) * dv;
        const double m = a - b, slack = 0x1p-40 * (std::fabs(a) + std::fabs(b));
        const double clear = std::fabs(m) - slack;
        if (clear > 0.0 &&
            (dv < 0.0 || clear * clear > (du * du + dv * dv) * t * t * (1.0 + 0x1p-30))) {
            crossings += (m > 0.0) == (dv > 0.0) ? 1u : 0u;
            return true;
        }
        const double d = (pv - cur_v) * du / dv - (pu - cur_u);
        if (std::sqrt(du * du + dv * dv) * t / dv > std::fabs(d)) return false;
        crossings += d > 0.0 ? 1u : 0u;
    }
    return true;
}

// With a band of half-width t (>= 0) around the boundary: 0 on a vertex, on a nearly level edge
// between its ends, or within the band of an edge that runs downward in v; else 1 inside and -1
// outside. Edges running upward in v never report the boundary: their points are counted inside
// or outside like any other. As in even_odd, vertices are screened four at a time with float
// comparisons, and only edges near the line or straddling it are looked at in double.
template <class Read>
int even_odd_band(Read read, MeshVertex *const *vertices, unsigned count, const AxisTest &test,
                  const double position[3], double t) noexcept {
    if (count == 0) return -1;
    const int u = test.u, v = test.v;
    const double pu = position[u], pv = position[v];
    unsigned crossings = 0;
    const float *prev = read(vertices[count - 1]);
    const auto edge = [&](const float *cur) {
        const bool outside_band =
            band_edge(pu, pv, t, static_cast<double>(prev[u]), static_cast<double>(prev[v]),
                      static_cast<double>(cur[u]), static_cast<double>(cur[v]), crossings);
        prev = cur;
        return outside_band;
    };
    FloatRun near;
    if (!floats_near(pv, t, near)) {
        for (unsigned i = 0; i < count; ++i) {
            if (!edge(read(vertices[i]))) return 0;
        }
        return (crossings & 1u) != 0 ? 1 : -1;
    }
    const float above = float_above(pv);
    bool prev_below = prev[v] >= above;
    const auto screened = [&](const float *cur) {
        const float c = cur[v];
        const bool cur_below = c >= above;
        const bool look = ((c >= near.lo) & (c <= near.hi)) | (cur_below != prev_below);
        prev_below = cur_below;
        if (look) return edge(cur);
        prev = cur;
        return true;
    };
    unsigned i = 0;
    for (; i + 4 <= count; i += 4) {
        const float *c[4] = {read(vertices[i]), read(vertices[i + 1]), read(vertices[i + 2]),
                             read(vertices[i + 3])};
        const float cv[4] = {c[0][v], c[1][v], c[2][v], c[3][v]};
        const Screen screen = screen4(cv, above, near.lo, near.hi);
        if (screen.near == 0 && screen.below == (prev_below ? 0xFu : 0u)) {
            prev = c[3];
            continue;
        }
        for (unsigned k = 0; k < 4; ++k) {
            if (!screened(c[k])) return 0;
        }
    }
    for (; i < count; ++i) {
        if (!screened(read(vertices[i]))) return 0;
    }
    return (crossings & 1u) != 0 ? 1 : -1;
}

}  // namespace vx::geometry
