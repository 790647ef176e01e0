// Polygon shape. The normal is the corner normal at vertex 0, taken from three vertices so that
// the normal, the choice of projection and first-corner convexity stay constant-time.
#include "geometry/poly_shape.h"

#include <limits>

#include <vexor/mesh.h>
#include <vexor/vector.h>

#include "foundation/axis_test.h"
#include "foundation/bbox.h"
#include "foundation/guard.h"
#include "foundation/vector_maths.h"
#include "mesh/mark.h"
#include "mesh/mesh_meta.h"
#include "mesh/poly_type.h"

namespace vx::geometry {

namespace {

void widen(const float *in, double out[3]) noexcept {
    for (int k = 0; k < 3; ++k) out[k] = static_cast<double>(in[k]);
}

// Newell's normal of the loop, as the mesh's cached normals are made, for positions the cache
// does not hold (those of another mesh's position map).
void loop_normal(const PositionSource &source, const MeshPolygon &polygon, float out[3]) {
    double n[3] = {0.0, 0.0, 0.0};
    const unsigned count = polygon.count;
    for (unsigned i = 0; i < count; ++i) {
        double p[3], q[3];
        widen(source.get(polygon.vertices()[i]), p);
        widen(source.get(polygon.vertices()[(i + 1) % count]), q);
        n[0] += (p[1] - q[1]) * (p[2] + q[2]);
        n[1] += (p[2] - q[2]) * (p[0] + q[0]);
        n[2] += (p[0] - q[0]) * (p[1] + q[1]);
    }
    const bool unit = normalize(n) > 0.0;
    for (int k = 0; k < 3; ++k) out[k] = unit ? static_cast<float>(n[k]) : 0.0f;
}

}  // namespace

bool corner_normal(const PositionSource &source, const MeshPolygon &polygon, double normal[3]) {
    normal[0] = normal[1] = normal[2] = 0.0;
    if (polygon.count < 3) return false;
    double p0[3], p1[3], pl[3];
    widen(source.get(polygon.vertices()[0]), p0);
    widen(source.get(polygon.vertices()[1]), p1);
    widen(source.get(polygon.vertices()[polygon.count - 1]), pl);
    const double d1[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
    const double d2[3] = {pl[0] - p0[0], pl[1] - p0[1], pl[2] - p0[2]};
    double n[3];
    cross(d1, d2, n);
    if (normalize(n) == 0.0) return false;
    for (int k = 0; k < 3; ++k) normal[k] = n[k];
    return true;
}

int get_normal(const PositionSource &source, const MeshPolygon &polygon, double normal[3]) {
    if (polygon.count < 3) return 0;
    return corner_normal(source, polygon, normal) ? 1 : 0;
}

int set_test_axis(const PositionSource &source, const MeshPolygon &polygon, AxisTest &test) {
    double normal[3];
    if (corner_normal(source, polygon, normal)) {
        axis_test_set_from_vector(test, normal);
        return 1;
    }
    // No usable corner: drop the axis along which the vertices spread least. Without vertices
    // the box is a point and the tie drops Z.
    BBox box{};
    for (unsigned i = 0; i < polygon.count; ++i) {
        const float *p = source.get(polygon.vertices()[i]);
        if (i == 0) {
            bbox_init(box, p);
        } else {
            bbox_expand(box, p);
        }
    }
    bbox_set_extent(box);
    axis_test_set(test, axis_extent<false>(box.extent));
    return 0;
}

double loop_area(const PositionSource &source, const MeshVertex *const *vertices, unsigned count,
                 const AxisTest &test) noexcept {
    if (count == 0) return 0.0;
    const int u = test.u, v = test.v;
    const float *a = source.get(vertices[count - 1]);
    double au = static_cast<double>(a[u]), av = static_cast<double>(a[v]);
    double sum = 0.0;
    for (unsigned i = 0; i < count; ++i) {
        const float *b = source.get(vertices[i]);
        const double bu = static_cast<double>(b[u]), bv = static_cast<double>(b[v]);
        sum += au * bv - bu * av;
        au = bu;
        av = bv;
    }
    return sum;
}

int triangle_orient(const AxisTest &test, const MeshVertex *a, const MeshVertex *b,
                    const MeshVertex *c) noexcept {
    const PositionSource own(nullptr);
    const float *pa = own.get(a), *pb = own.get(b), *pc = own.get(c);
    const int u = test.u, v = test.v;
    const double area = (static_cast<double>(pb[u]) - static_cast<double>(pa[u])) *
                            (static_cast<double>(pc[v]) - static_cast<double>(pa[v])) -
                        (static_cast<double>(pc[u]) - static_cast<double>(pa[u])) *
                            (static_cast<double>(pb[v]) - static_cast<double>(pa[v]));
    return area >= 0.0 ? 1 : 0;
}

int first_convex(const PositionSource &source, const MeshPolygon &polygon) {
    double normal[3];
    if (!corner_normal(source, polygon, normal)) return 0;
    AxisTest test;
    axis_test_set(test, axis_extent<true>(normal));
    const bool flipped = normal[test.axis] < 0.0;
    const bool positive = loop_area(source, polygon.vertices(), polygon.count, test) >= 0.0;
    return positive != flipped ? 1 : -1;
}

int is_convex(Mesh *mesh, const MeshPolygon &polygon) {
    const unsigned count = polygon.count;
    if (!is_area(polygon) || count < 4) return 1;
    const PositionSource source(mesh);
    float normal[3];
    const bool cached = source.direct() && guard(false, [&] {
                            return (mesh::polygon_cached_normal(&polygon, normal), true);
                        });
    if (!cached) loop_normal(source, polygon, normal);

    // Every corner's own normal must not point against the polygon's: walk corners 1, 2, ...,
    // count - 1 and last the corner at vertex 0.
    const float *before = source.get(polygon.vertices()[0]);
    const float *at = source.get(polygon.vertices()[1]);
    for (unsigned k = 2; k <= count + 1; ++k) {
        const float *after = source.get(polygon.vertices()[k % count]);
        float corner[3];
        VCrossNormalF(before, at, after, corner);
        double dot = 0.0;
        for (int i = 0; i < 3; ++i) {
            dot += static_cast<double>(corner[i]) * static_cast<double>(normal[i]);
        }
        if (dot < 0.0) return 0;
        before = at;
        at = after;
    }
    return 1;
}

unsigned centroid_of(const PositionSource &source, const MeshPolygon &polygon, double out[3]) {
    double sum[3] = {0.0, 0.0, 0.0};
    for (unsigned i = 0; i < polygon.count; ++i) {
        const float *p = source.get(polygon.vertices()[i]);
        for (int k = 0; k < 3; ++k) sum[k] += static_cast<double>(p[k]);
    }
    // Without vertices this is 0 / 0: NaN, as callers of the mean have always seen.
    const double n = static_cast<double>(polygon.count);
    for (int k = 0; k < 3; ++k)
        out[k] = polygon.count != 0 ? sum[k] / n : std::numeric_limits<double>::quiet_NaN();
    return polygon.count;
}

double tolerance(Mesh *mesh, const MeshPolygon &polygon) {
    Mesh *owner = mesh != nullptr ? mesh : polygon.mesh;
    // Types whose box comes from cached bounds find them current.
    MeshMetaValidate(MeshMetaLookup(MESH_META_BOUNDS), owner);
    float box[6] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    BBox wide{};
    if (mesh::poly_type_bounds(owner, &polygon, box)) {
        bbox_init(wide, box);
        bbox_expand(wide, box + 3);
    }
    bbox_set_extent(wide);
    return bbox_tolerance(wide);
}

std::uint32_t test_validity(const MeshPolygon &polygon, std::uint32_t mark_bit) {
    const unsigned count = polygon.count;
    const std::uint32_t code = polygon.type()->code;
    std::uint32_t result = count == 0 ? 2u : 0u;
    if (code == VX_CODE4('P', 'S', 'U', 'B') || code == VX_CODE4('S', 'U', 'B', 'D')) {
        if (count < 3 || count > 256) result = 2;
    } else if (code == VX_CODE4('S', 'P', 'C', 'H')) {
        if (count < 3 || count >= 5) result = 2;
    }
    mark_bit &= 0xFFFFu;
    if (mark_bit == 0) return result;

    MeshVertex *const *v = polygon.vertices();
    for (unsigned i = 0; i < count; ++i) {
        if (v[i] != nullptr) mesh::mark(v[i], mark_bit << 16);
    }
    for (unsigned i = 0; i < count; ++i) {
        MeshVertex *at = v[i];
        if (at == nullptr) continue;
        if ((at->marks & mark_bit) == 0) {
            mesh::mark(at, mark_bit);
            continue;
        }
        // A second occurrence: allowed only on an area type, where the loop crosses a bridge
        // edge to a hole and comes back along it (a keyhole).
        if (!is_area(polygon)) return result | 1u;
        const MeshVertex *next = v[(i + 1) % count];
        bool out = false, back = false;
        for (unsigned j = 0; j < count; ++j) {
            const MeshVertex *a = v[j], *b = v[(j + 1) % count];
            if (a == at && b == next) out = true;
            if (a == next && b == at) back = true;
        }
        if (!(out && back)) return result | 1u;
    }
    return result;
}

}  // namespace vx::geometry
