// The C interface of convex hulls, and the hulls and planes of mesh vertices and polygons.
#include <cmath>
#include <limits>
#include <memory>

#include <vexor/hull.h>
#include <vexor/matrix4.h>
#include <vexor/plane_fit.h>

#include "foundation/axis_test.h"
#include "foundation/bbox.h"
#include "foundation/guard.h"
#include "foundation/plane_fit.h"
#include "geometry/convex_hull.h"
#include "geometry/hull_axis.h"

struct ConvexHull {
    vx::ConvexHullData data;
};

namespace {

// Writes a rectangle to the outputs that are given.
void put(const vx::HullRectangle &r, double *centreU, double *centreV, double *axisU, double *axisV,
         double *length, double *width) {
    if (centreU != nullptr) *centreU = r.centre[0];
    if (centreV != nullptr) *centreV = r.centre[1];
    if (axisU != nullptr) *axisU = r.axis[0];
    if (axisV != nullptr) *axisV = r.axis[1];
    if (length != nullptr) *length = r.length;
    if (width != nullptr) *width = r.width;
}

void put(const vx::HullRectangle3D &r, double centre[3], double axis[3], double *length,
         double *width) {
    for (int k = 0; k < 3; ++k) {
        if (centre != nullptr) centre[k] = r.centre[k];
        if (axis != nullptr) axis[k] = r.axis[k];
    }
    if (length != nullptr) *length = r.length;
    if (width != nullptr) *width = r.width;
}

}  // namespace

extern "C" {

VX_API ConvexHull *ConvexHullCreate(void) {
    return vx::guard<ConvexHull *>(nullptr, [] { return new ConvexHull; });
}

VX_API void ConvexHullStart(ConvexHull *hull) {
    if (hull != nullptr) vx::guard([&] { hull->data.start(); });
}

VX_API void ConvexHullDestroy(ConvexHull *hull) {
    delete hull;
}

VX_API int ConvexHullAppend(ConvexHull *hull, double u, double v, uint64_t client) {
    if (hull == nullptr) return -1;
    const double position[3] = {u, v, 0.0};
    return vx::guard(-1, [&] { return hull->data.append(position, u, v, false, client); });
}

VX_API int ConvexHullAppendPos(ConvexHull *hull, const double position[3], uint64_t client) {
    if (hull == nullptr || position == nullptr) return -1;
    return vx::guard(-1, [&] { return hull->data.append(position, 0.0, 0.0, true, client); });
}

VX_API int ConvexHullAppendPosF(ConvexHull *hull, const float position[3], uint64_t client) {
    if (hull == nullptr || position == nullptr) return -1;
    const double p[3] = {static_cast<double>(position[0]), static_cast<double>(position[1]),
                         static_cast<double>(position[2])};
    return ConvexHullAppendPos(hull, p, client);
}

VX_API int ConvexHullDone(ConvexHull *hull) {
    if (hull == nullptr) return 0;
    return vx::guard(0, [&] { return hull->data.done() ? 1 : 0; });
}

VX_API unsigned int ConvexHullPointCount(const ConvexHull *hull) {
    return hull != nullptr ? static_cast<unsigned>(hull->data.points().size()) : 0u;
}

VX_API unsigned int ConvexHullVertexCount(const ConvexHull *hull) {
    return hull != nullptr ? static_cast<unsigned>(hull->data.hull_size()) : 0u;
}

VX_API int ConvexHullGetVertex(const ConvexHull *hull, unsigned int index, double uv[2],
                               uint64_t *client) {
    if (hull == nullptr || index >= hull->data.hull_size()) return 0;
    const vx::HullPoint &p = hull->data.hull_vertex(index);
    if (uv != nullptr) {
        uv[0] = p.u;
        uv[1] = p.v;
    }
    if (client != nullptr) *client = p.client;
    return 1;
}

VX_API void ConvexHullGetAxisTest(const ConvexHull *hull, AxisTest *test) {
    if (hull != nullptr && test != nullptr) *test = hull->data.axis_test();
}

VX_API unsigned int ConvexHullGetBBox(const ConvexHull *hull, BBox *box) {
    if (box == nullptr) return 0;
    const std::size_t count = hull != nullptr ? hull->data.hull_size() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        const vx::HullPoint &p = hull->data.hull_vertex(i);
        const double position[3] = {p.u, p.v, 0.0};
        if (i == 0) {
            vx::bbox_init(*box, position);
        } else {
            vx::bbox_expand(*box, position);
        }
    }
    vx::bbox_set_extent(*box);
    return static_cast<unsigned>(count);
}

VX_API int ConvexHullMajorAxis(const ConvexHull *hull, double *centreU, double *centreV,
                               double *axisU, double *axisV, double *length, double *width) {
    vx::HullRectangle r;
    if (hull == nullptr || !vx::guard(false, [&] { return vx::hull_major_axis(hull->data, r); }))
        return 0;
    put(r, centreU, centreV, axisU, axisV, length, width);
    return 1;
}

VX_API int ConvexHullMajorAxis3D(const ConvexHull *hull, double centre[3], double axis[3],
                                 double *length, double *width) {
    vx::HullRectangle3D r;
    if (hull == nullptr || !vx::guard(false, [&] { return vx::hull_major_axis_3d(hull->data, r); }))
        return 0;
    put(r, centre, axis, length, width);
    return 1;
}

VX_API int ConvexHullGetMatrix(const ConvexHull *hull, double matrix[16]) {
    vx::HullRectangle3D r;
    if (hull == nullptr || matrix == nullptr ||
        !vx::guard(false, [&] { return vx::hull_major_axis_3d(hull->data, r); }))
        return 0;
    for (int k = 0; k < 3; ++k) {
        matrix[k] = r.axis[k] * r.length;
        matrix[4 + k] = r.across[k] * r.width;
        matrix[8 + k] = r.normal[k];
        matrix[12 + k] = r.centre[k];
    }
    matrix[3] = matrix[7] = matrix[11] = 0.0;
    matrix[15] = 1.0;
    return 1;
}

VX_API ConvexHull *ConvexHullFromVertices(const AxisTest *test, const Mesh *mesh,
                                          unsigned int count, MeshVertex *const *vertices) {
    if (test == nullptr || mesh == nullptr || (vertices == nullptr && count != 0)) return nullptr;
    return vx::guard<ConvexHull *>(nullptr, [&] {
        AxisTest usable = *test;
        if (!vx::axis_test_usable(usable)) vx::axis_test_set(usable, usable.axis);
        auto hull = std::make_unique<ConvexHull>();
        hull->data.start();
        for (unsigned i = 0; i < count; ++i) {
            const float *stored = MeshVertexPosV(mesh, vertices[i]);
            if (stored == nullptr) continue;
            const double position[3] = {static_cast<double>(stored[0]),
                                        static_cast<double>(stored[1]),
                                        static_cast<double>(stored[2])};
            double mapped[3];
            vx::axis_test_multiply(mapped, usable, position);
            const double flat[3] = {mapped[usable.u], mapped[usable.v], 0.0};
            hull->data.append(flat, flat[0], flat[1], false,
                              reinterpret_cast<uint64_t>(vertices[i]));
        }
        hull->data.done();
        return hull.release();
    });
}

VX_API int ConvexHullUVPolygonAxis(const VMap *vmap, const MeshPolygon *polygon, double *centreU,
                                   double *centreV, double *axisU, double *axisV, double *length,
                                   double *width) {
    if (vmap == nullptr || polygon == nullptr) return 0;
    return vx::guard(0, [&] {
        vx::ConvexHullData hull;
        hull.start();
        const unsigned count = MeshNumVrtInPol(polygon);
        for (unsigned i = 0; i < count; ++i) {
            const float *uv =
                VMapEval(vmap, MeshPolVrtByIndex(polygon, static_cast<int>(i)), polygon);
            if (uv == nullptr || !std::isfinite(uv[0]) || !std::isfinite(uv[1])) continue;
            const double position[3] = {static_cast<double>(uv[0]), static_cast<double>(uv[1]),
                                        0.0};
            hull.append(position, position[0], position[1], false, 0);
        }
        vx::HullRectangle r{};
        if (hull.done() && vx::hull_major_axis(hull, r)) {
            // r is the major axis.
        } else {
            // Too few distinct UVs for a rectangle: the box of what there is.
            double lo[2] = {0.0, 0.0}, hi[2] = {0.0, 0.0};
            bool first = true;
            for (const vx::HullPoint *p : hull.points()) {
                const double c[2] = {p->u, p->v};
                for (int k = 0; k < 2; ++k) {
                    lo[k] = first ? c[k] : std::fmin(lo[k], c[k]);
                    hi[k] = first ? c[k] : std::fmax(hi[k], c[k]);
                }
                first = false;
            }
            const double eu = hi[0] - lo[0], ev = hi[1] - lo[1];
            r.centre[0] = (lo[0] + hi[0]) * 0.5;
            r.centre[1] = (lo[1] + hi[1]) * 0.5;
            const bool along_u = ev <= eu;
            r.axis[0] = along_u ? 1.0 : 0.0;
            r.axis[1] = along_u ? 0.0 : 1.0;
            r.length = along_u ? eu : ev;
            r.width = along_u ? ev : eu;
        }
        put(r, centreU, centreV, axisU, axisV, length, width);
        return 1;
    });
}

VX_API int ConvexHullPolygonAxis(const Mesh *mesh, const MeshPolygon *polygon, double centre[3],
                                 double axis[3], double *length, double *width) {
    if (polygon == nullptr) return 0;
    return vx::guard(0, [&] {
        vx::ConvexHullData hull;
        hull.start();
        const unsigned count = MeshNumVrtInPol(polygon);
        for (unsigned i = 0; i < count; ++i) {
            const MeshVertex *vertex = MeshPolVrtByIndex(polygon, static_cast<int>(i));
            const float *stored =
                MeshVertexPosV(mesh != nullptr ? mesh : MeshVertexMesh(vertex), vertex);
            if (stored == nullptr) continue;
            const double position[3] = {static_cast<double>(stored[0]),
                                        static_cast<double>(stored[1]),
                                        static_cast<double>(stored[2])};
            hull.append(position, 0.0, 0.0, true, 0);
        }
        vx::HullRectangle3D r;
        if (!hull.done() || !vx::hull_major_axis_3d(hull, r)) return 0;
        put(r, centre, axis, length, width);
        return 1;
    });
}

VX_API int PlaneFitFromVertices(const Mesh *mesh, unsigned int count, MeshVertex *const *vertices,
                                double centre[3], double normal[3]) {
    PlaneFit fit;
    vx::plane_fit_start(fit);
    for (unsigned i = 0; vertices != nullptr && i < count; ++i) {
        const float *stored = MeshVertexPosV(mesh, vertices[i]);
        if (stored != nullptr) vx::plane_fit_add(fit, stored);
    }
    vx::plane_fit_done(fit);
    for (int k = 0; k < 3; ++k) {
        if (centre != nullptr) centre[k] = fit.centre[k];
        if (normal != nullptr) normal[k] = fit.normal[k];
    }
    return 1;
}

}  // extern "C"
