// Polygons in UV space. Three sources give a polygon's UV outline: the corners' own UVs (linear
// UVs), the subdivided boundary of a smoothed surface (geometry/uv_outline.h), and the glyph
// geometry of text polygons. The tests run the same even-odd rule and segment distances over
// whichever applies.
#include "geometry/poly_uv.h"

#include <cmath>

#include <vexor/vmap.h>

#include "foundation/bbox.h"
#include "foundation/vector_maths.h"
#include "geometry/poly_shape.h"
#include "geometry/uv_outline.h"
#include "mesh/vmap.h"

namespace vx::geometry {

namespace {

struct UV {
    double u, v;
};

bool has_uvs(const VMap *vmap, const MeshPolygon &polygon) noexcept {
    return vmap != nullptr && VMapDimension(vmap) >= 2 && VMapTestPolygon(vmap, &polygon) != 0;
}

// The corners' UVs as the map gives them to this polygon (its own, possibly discontinuous, value
// first); a corner without one reads as (0, 0).
class CornerUVs {
  public:
    CornerUVs(const VMap *vmap, const MeshPolygon &polygon) noexcept
        : vmap_(vmap), polygon_(polygon) {}
    unsigned size() const noexcept { return polygon_.count; }
    UV at(unsigned corner) const noexcept {
        const float *uv = VMapEval(vmap_, polygon_.vertices()[corner], &polygon_);
        if (uv == nullptr) return UV{0.0, 0.0};
        return UV{static_cast<double>(uv[0]), static_cast<double>(uv[1])};
    }

  private:
    const VMap *vmap_;
    const MeshPolygon &polygon_;
};

// One step of the even-odd rule: whether the edge prev-cur crosses the line v = p.v at u > p.u.
bool crosses(UV prev, UV cur, const double p[2]) noexcept {
    return (p[1] < prev.v) != (p[1] < cur.v) &&
           p[0] < (prev.u - cur.u) * (p[1] - cur.v) / (prev.v - cur.v) + cur.u;
}

// The samples of a smoothed outline, read as UVs.
class OutlineUVs {
  public:
    explicit OutlineUVs(const SmoothedOutline &outline) noexcept : outline_(outline) {}
    unsigned size() const noexcept { return outline_.size(); }
    UV at(unsigned sample) const noexcept {
        const float *uv = outline_.at(sample);
        return UV{static_cast<double>(uv[0]), static_cast<double>(uv[1])};
    }

  private:
    const SmoothedOutline &outline_;
};

// The even-odd count over a closed loop, from the edge that closes it.
template <class Loop>
bool inside_loop(const Loop &loop, const double p[2]) noexcept {
    const unsigned n = loop.size();
    if (n == 0) return false;
    UV prev = loop.at(n - 1);
    unsigned crossings = 0;
    for (unsigned i = 0; i < n; ++i) {
        const UV cur = loop.at(i);
        crossings += crosses(prev, cur, p) ? 1u : 0u;
        prev = cur;
    }
    return (crossings & 1u) != 0;
}

// Whether p lies in the loop's bounding rectangle, edges included.
template <class Loop>
bool inside_bounds(const Loop &loop, const double p[2]) noexcept {
    bool below_u = true, above_u = true, below_v = true, above_v = true;
    for (unsigned i = 0; i < loop.size(); ++i) {
        const UV uv = loop.at(i);
        below_u = below_u && p[0] < uv.u;
        above_u = above_u && p[0] > uv.u;
        below_v = below_v && p[1] < uv.v;
        above_v = above_v && p[1] > uv.v;
    }
    return !(below_u || above_u || below_v || above_v);
}

// The nearest of a run of segments: the first sets it, a later one replaces it only when
// strictly nearer.
class Nearest {
  public:
    explicit Nearest(const double uv[2]) noexcept : p_{uv[0], uv[1], 0.0} {}
    void segment(UV a, UV b) noexcept {
        const double pa[3] = {a.u, a.v, 0.0}, pb[3] = {b.u, b.v, 0.0};
        double t;
        const double d = distance_point_segment(p_, pa, pb, t);
        if (any_ && !(d < best_)) return;
        any_ = true;
        best_ = d;
        const double c = t < 0.0 ? 0.0 : (t > 1.0 ? 1.0 : t);
        point_[0] = a.u + (b.u - a.u) * c;
        point_[1] = a.v + (b.v - a.v) * c;
    }
    // The distance found (kNoUVDistance without segments), the point written when asked.
    double answer(double closest[2]) const noexcept {
        if (!any_) return kNoUVDistance;
        if (closest != nullptr) {
            closest[0] = point_[0];
            closest[1] = point_[1];
        }
        return best_;
    }

  private:
    double p_[3];
    double best_ = kNoUVDistance;
    bool any_ = false;
    double point_[2] = {0.0, 0.0};
};

unsigned wrap(int index, unsigned count) noexcept {
    const int n = static_cast<int>(count);
    const int r = index % n;
    return static_cast<unsigned>(r < 0 ? r + n : r);
}

// ---- Text polygons ----------------------------------------------------------------------
// A text polygon is a glyph cell: its corners' UVs place the glyph in a font texture. Its UV
// geometry is the fan of triangles (0, i, i + 1) over its corners, and its UV outline the closed
// run of corners 0, 1, ..., n - 1, 0.

// Whether p lies strictly inside the triangle: the three edge cross products, taken relative to
// p, all positive or all negative. A point on an edge is outside.
bool inside_triangle(UV a, UV b, UV c, const double p[2]) noexcept {
    const UV ra{a.u - p[0], a.v - p[1]}, rb{b.u - p[0], b.v - p[1]}, rc{c.u - p[0], c.v - p[1]};
    const double ab = ra.u * rb.v - rb.u * ra.v;
    const double bc = rb.u * rc.v - rc.u * rb.v;
    const double ca = rc.u * ra.v - ra.u * rc.v;
    return (ab > 0.0 && bc > 0.0 && ca > 0.0) || (ab < 0.0 && bc < 0.0 && ca < 0.0);
}

bool inside_text_geometry(const CornerUVs &corners, const double p[2]) noexcept {
    const unsigned n = corners.size();
    if (n < 3) return false;
    const UV first = corners.at(0);
    UV prev = corners.at(1);
    for (unsigned i = 2; i < n; ++i) {
        const UV cur = corners.at(i);
        if (inside_triangle(first, prev, cur, p)) return true;
        prev = cur;
    }
    return false;
}

bool is_text(const MeshPolygon &polygon) noexcept {
    return polygon.type()->code == kText;
}

}  // namespace

bool text_uv_corners(const VMap *vmap, const MeshPolygon &polygon, float corners[4][2]) {
    if (!is_text(polygon) || !has_uvs(vmap, polygon)) return false;
    const CornerUVs uvs(vmap, polygon);
    double lo[2] = {0.0, 0.0}, hi[2] = {0.0, 0.0};
    for (unsigned i = 0; i < uvs.size(); ++i) {
        const UV uv = uvs.at(i);
        lo[0] = i == 0 ? uv.u : std::fmin(lo[0], uv.u);
        lo[1] = i == 0 ? uv.v : std::fmin(lo[1], uv.v);
        hi[0] = i == 0 ? uv.u : std::fmax(hi[0], uv.u);
        hi[1] = i == 0 ? uv.v : std::fmax(hi[1], uv.v);
    }
    const double cell[4][2] = {{lo[0], lo[1]}, {hi[0], lo[1]}, {hi[0], hi[1]}, {lo[0], hi[1]}};
    for (int k = 0; k < 4; ++k) {
        corners[k][0] = static_cast<float>(cell[k][0]);
        corners[k][1] = static_cast<float>(cell[k][1]);
    }
    return true;
}

int test_uv_pos(const VMap *vmap, const MeshPolygon &polygon, const double uv[2]) {
    if (!has_uvs(vmap, polygon) || !is_area(polygon)) return 0;
    if (SmoothedOutline::applies(vmap, polygon)) {
        const SmoothedOutline outline(vmap, polygon);
        if (outline.ready()) {
            const OutlineUVs loop(outline);
            return inside_bounds(loop, uv) && inside_loop(loop, uv) ? 1 : 0;
        }
    }
    const CornerUVs corners(vmap, polygon);
    if (is_text(polygon)) {
        float cell[4][2];
        if (text_uv_corners(vmap, polygon, cell)) {
            BBox box{};
            for (int k = 0; k < 4; ++k) {
                const float corner[3] = {cell[k][0], cell[k][1], 0.0f};
                if (k == 0) {
                    bbox_init(box, corner);
                } else {
                    bbox_expand(box, corner);
                }
            }
            const float at[3] = {static_cast<float>(uv[0]), static_cast<float>(uv[1]), 0.0f};
            if (!bbox_contains(box, at)) return 0;
        }
        return inside_text_geometry(corners, uv) ? 1 : 0;
    }
    return inside_loop(corners, uv) ? 1 : 0;
}

double edge_distance_uv(const VMap *vmap, const MeshPolygon &polygon, int edge, const double uv[2],
                        double closest[2]) {
    if (!has_uvs(vmap, polygon)) return kNoUVDistance;
    const unsigned n = polygon.count;
    const unsigned from = wrap(edge, n);
    Nearest nearest(uv);
    if (SmoothedOutline::applies(vmap, polygon)) {
        const SmoothedOutline outline(vmap, polygon);
        if (outline.ready()) {
            // The edge's samples run from its corner's sample to the next corner's; the last
            // edge of a closed outline ends on sample 0.
            const OutlineUVs loop(outline);
            const unsigned samples = loop.size(), per = samples / n;
            const bool closed = is_area(polygon) && n >= 3;
            for (unsigned a = from * per; a < from * per + per; ++a) {
                unsigned b = a + 1;
                if (b == samples) {
                    if (!closed) break;
                    b = 0;
                }
                nearest.segment(loop.at(a), loop.at(b));
            }
            return nearest.answer(closest);
        }
    }
    const CornerUVs corners(vmap, polygon);
    nearest.segment(corners.at(from), corners.at((from + 1) % n));
    return nearest.answer(closest);
}

double corner_distance_uv(const VMap *vmap, const MeshPolygon &polygon, int corner,
                          const double uv[2], double closest[2]) {
    if (!has_uvs(vmap, polygon)) return kNoUVDistance;
    const unsigned n = polygon.count;
    UV at{0.0, 0.0};
    bool found = false;
    if (SmoothedOutline::applies(vmap, polygon)) {
        const SmoothedOutline outline(vmap, polygon);
        if (outline.ready()) {
            const OutlineUVs loop(outline);
            at = loop.at(wrap(corner, n) * (loop.size() / n));
            found = true;
        }
    }
    if (!found) at = CornerUVs(vmap, polygon).at(wrap(corner, n));
    if (closest != nullptr) {
        closest[0] = at.u;
        closest[1] = at.v;
    }
    const double du = uv[0] - at.u, dv = uv[1] - at.v;
    return std::sqrt(du * du + dv * dv);
}

double polygon_distance_uv(const VMap *vmap, const MeshPolygon &polygon, const double uv[2],
                           double closest[2]) {
    if (!has_uvs(vmap, polygon)) return kNoUVDistance;
    const unsigned n = polygon.count;
    Nearest nearest(uv);
    bool inside = false;
    bool measured = false;
    if (SmoothedOutline::applies(vmap, polygon)) {
        const SmoothedOutline outline(vmap, polygon);
        if (outline.ready()) {
            const OutlineUVs loop(outline);
            inside = inside_bounds(loop, uv) && inside_loop(loop, uv);
            const unsigned samples = loop.size();
            const bool closed = is_area(polygon) && n >= 3;
            for (unsigned a = 0; a < samples; ++a) {
                unsigned b = a + 1;
                if (b == samples) {
                    if (!closed) break;
                    b = 0;
                }
                nearest.segment(loop.at(a), loop.at(b));
            }
            measured = true;
        }
    }
    if (!measured) {
        const CornerUVs corners(vmap, polygon);
        if (is_text(polygon)) {
            // The glyph geometry's run of corners 0, 1, ..., n - 1 and back to 0.
            inside = inside_text_geometry(corners, uv);
            UV prev = corners.at(0);
            for (unsigned i = 1; i <= n; ++i) {
                const UV cur = corners.at(i % n);
                nearest.segment(prev, cur);
                prev = cur;
            }
        } else {
            // One pass: the crossings and the edges, from the closing edge on.
            UV prev = corners.at(n - 1);
            unsigned crossings = 0;
            for (unsigned i = 0; i < n; ++i) {
                const UV cur = corners.at(i);
                crossings += crosses(prev, cur, uv) ? 1u : 0u;
                nearest.segment(prev, cur);
                prev = cur;
            }
            inside = (crossings & 1u) != 0;
        }
    }
    if (is_area(polygon) && inside) {
        if (closest != nullptr) {
            closest[0] = uv[0];
            closest[1] = uv[1];
        }
        return 0.0;
    }
    return nearest.answer(closest);
}

}  // namespace vx::geometry
