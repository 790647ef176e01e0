// The C interface of polygon geometry: null and malformed arguments answered, F forms widened to
// double, and the calls handed to the C++ operations.
#include <vexor/polygon.h>

#include "foundation/axis_test.h"
#include "foundation/guard.h"
#include "geometry/poly_point.h"
#include "geometry/poly_shape.h"
#include "geometry/poly_uv.h"
#include "mesh/poly_type.h"

using namespace vx::geometry;
using vx::mesh::PositionSource;

namespace {

// What a null polygon is answered as: a polygon of no type without vertices.
const MeshPolygon kNoPolygon = [] {
    MeshPolygon none{};
    none.type_index = vx::mesh::kNoPolyType;
    return none;
}();

const MeshPolygon &polygon_or_empty(const MeshPolygon *polygon) noexcept {
    return polygon != nullptr ? *polygon : kNoPolygon;
}

bool usable(const AxisTest *test) noexcept {
    return test != nullptr && vx::axis_test_usable(*test);
}

template <class Real, unsigned N>
struct Widened {
    double values[N];
    explicit Widened(const Real *in) noexcept {
        for (unsigned k = 0; k < N; ++k) values[k] = static_cast<double>(in[k]);
    }
};

template <class Real>
int test_pos(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
             const Real position[3]) noexcept {
    if (polygon == nullptr || !usable(test) || position == nullptr) return 0;
    const Widened<Real, 3> at(position);
    return with_reader(PositionSource(mesh), [&](auto read) {
        return even_odd(read, polygon->vertices(), polygon->count, *test, at.values);
    });
}

template <class Real>
int test_pos_tol(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                 const Real position[3], double tolerance) noexcept {
    if (polygon == nullptr || !usable(test) || position == nullptr) return -1;
    const Widened<Real, 3> at(position);
    const double t = tolerance > 0.0 ? tolerance : 0.0;
    return with_reader(PositionSource(mesh), [&](auto read) {
        return even_odd_band(read, polygon->vertices(), polygon->count, *test, at.values, t);
    });
}

template <class Real>
void vertex_test_axis_pos(const AxisTest *test, const Mesh *mesh, const MeshVertex *vertex,
                          Real out[3]) noexcept {
    if (!usable(test) || vertex == nullptr || out == nullptr) return;
    const float *p = PositionSource(mesh).get(vertex);
    const Real in[3] = {static_cast<Real>(p[0]), static_cast<Real>(p[1]), static_cast<Real>(p[2])};
    vx::axis_test_multiply(out, *test, in);
}

// A UV query in the caller's precision: the UV widened, the closest point narrowed back.
template <class Real, class Query>
double uv_distance(const Real uv[2], Real closest[2], Query query) noexcept {
    if (uv == nullptr) return kNoUVDistance;
    const Widened<Real, 2> at(uv);
    double nearest[2];
    const double distance = vx::guard(
        kNoUVDistance, [&] { return query(at.values, closest != nullptr ? nearest : nullptr); });
    if (closest != nullptr && distance != kNoUVDistance) {
        closest[0] = static_cast<Real>(nearest[0]);
        closest[1] = static_cast<Real>(nearest[1]);
    }
    return distance;
}

template <class Real>
int test_uv(const VMap *vmap, const MeshPolygon *polygon, const Real uv[2]) noexcept {
    if (uv == nullptr) return 0;
    const Widened<Real, 2> at(uv);
    return vx::guard(0, [&] { return test_uv_pos(vmap, polygon_or_empty(polygon), at.values); });
}

}  // namespace

extern "C" {

VX_API int PolygonGetNormal(const MeshPolygon *polygon, double normal[3], const Mesh *mesh) {
    if (normal == nullptr) return 0;
    return get_normal(PositionSource(mesh), polygon_or_empty(polygon), normal);
}

VX_API int PolygonSetTestAxis(const Mesh *mesh, const MeshPolygon *polygon, AxisTest *test) {
    if (test == nullptr) return 0;
    return set_test_axis(PositionSource(mesh), polygon_or_empty(polygon), *test);
}

VX_API int PolygonOrientation(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test) {
    if (polygon == nullptr || !usable(test)) return 1;
    return loop_area(PositionSource(mesh), polygon->vertices(), polygon->count, *test) >= 0.0 ? 1
                                                                                              : 0;
}

VX_API int TriangleOrient(const AxisTest *test, const MeshVertex *a, const MeshVertex *b,
                          const MeshVertex *c) {
    if (!usable(test)) return 1;
    return triangle_orient(*test, a, b, c);
}

VX_API int VertexListOrientation(const AxisTest *test, const Mesh *mesh, unsigned int count,
                                 MeshVertex *const *vertices) {
    if (!usable(test) || vertices == nullptr) return 1;
    return loop_area(PositionSource(mesh), vertices, count, *test) >= 0.0 ? 1 : 0;
}

VX_API unsigned int PolygonGetCentroid(const MeshPolygon *polygon, double centroid[3],
                                       const Mesh *mesh) {
    double ignored[3];
    return centroid_of(PositionSource(mesh), polygon_or_empty(polygon),
                       centroid != nullptr ? centroid : ignored);
}

VX_API int PolygonFirstConvex(const Mesh *mesh, const MeshPolygon *polygon) {
    return first_convex(PositionSource(mesh), polygon_or_empty(polygon));
}

VX_API int PolygonIsConvex(Mesh *mesh, const MeshPolygon *polygon) {
    return is_convex(mesh, polygon_or_empty(polygon));
}

VX_API int PolygonTestPos(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                          const double position[3]) {
    return test_pos(mesh, polygon, test, position);
}

VX_API int PolygonTestPosF(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                           const float position[3]) {
    return test_pos(mesh, polygon, test, position);
}

VX_API int PolygonTestPosTol(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                             const double position[3], double tolerance) {
    return test_pos_tol(mesh, polygon, test, position, tolerance);
}

VX_API int PolygonTestPosTolF(const Mesh *mesh, const MeshPolygon *polygon, const AxisTest *test,
                              const float position[3], double tolerance) {
    return test_pos_tol(mesh, polygon, test, position, tolerance);
}

VX_API void VertexTestAxisPos(const AxisTest *test, const Mesh *mesh, const MeshVertex *vertex,
                              double out[3]) {
    vertex_test_axis_pos(test, mesh, vertex, out);
}

VX_API void VertexTestAxisPosF(const AxisTest *test, const Mesh *mesh, const MeshVertex *vertex,
                               float out[3]) {
    vertex_test_axis_pos(test, mesh, vertex, out);
}

VX_API double PolygonGetTolerance(const MeshPolygon *polygon, Mesh *mesh) {
    return tolerance(mesh, polygon_or_empty(polygon));
}

VX_API int PolygonTestUVPos(const VMap *vmap, const MeshPolygon *polygon, const double uv[2]) {
    return test_uv(vmap, polygon, uv);
}

VX_API int PolygonTestUVPosF(const VMap *vmap, const MeshPolygon *polygon, const float uv[2]) {
    return test_uv(vmap, polygon, uv);
}

VX_API double PolyEdgeDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, int edgeIndex,
                                    const double uv[2], double closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return edge_distance_uv(vmap, polygon_or_empty(polygon), edgeIndex, at, nearest);
    });
}

VX_API double PolyEdgeDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, int edgeIndex,
                                     const float uv[2], float closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return edge_distance_uv(vmap, polygon_or_empty(polygon), edgeIndex, at, nearest);
    });
}

VX_API double PolyVerxDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, int cornerIndex,
                                    const double uv[2], double closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return corner_distance_uv(vmap, polygon_or_empty(polygon), cornerIndex, at, nearest);
    });
}

VX_API double PolyVerxDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, int cornerIndex,
                                     const float uv[2], float closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return corner_distance_uv(vmap, polygon_or_empty(polygon), cornerIndex, at, nearest);
    });
}

VX_API double PolygonDistanceUVPos(const VMap *vmap, const MeshPolygon *polygon, const double uv[2],
                                   double closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return polygon_distance_uv(vmap, polygon_or_empty(polygon), at, nearest);
    });
}

VX_API double PolygonDistanceUVPosF(const VMap *vmap, const MeshPolygon *polygon, const float uv[2],
                                    float closest[2]) {
    return uv_distance(uv, closest, [&](const double *at, double *nearest) {
        return polygon_distance_uv(vmap, polygon_or_empty(polygon), at, nearest);
    });
}

VX_API int TEXTGetUVCorners(const VMap *vmap, const MeshPolygon *polygon, float corners[4][2]) {
    if (corners == nullptr) return 0;
    return vx::guard(
        0, [&] { return text_uv_corners(vmap, polygon_or_empty(polygon), corners) ? 1 : 0; });
}

VX_API uint32_t PolygonTestValidity(const Mesh *, const MeshPolygon *polygon, uint32_t markBit) {
    return test_validity(polygon_or_empty(polygon), markBit);
}

}  // extern "C"
