// The C interface of axis tests and bounding boxes, and the box tolerance.
#include <cfloat>
#include <cmath>

#include "foundation/axis_test.h"
#include "foundation/bbox.h"

namespace vx {

double bbox_tolerance(const BBox &box) noexcept {
    double extent = 0.0, coordinate = 0.0;
    for (int k = 0; k < 3; ++k) {
        extent = std::fmax(extent, box.extent[k]);
        coordinate = std::fmax(coordinate, std::fmax(std::fabs(box.min[k]), std::fabs(box.max[k])));
    }
    const double tolerance = 1e-5 * extent + std::ldexp(coordinate, -20);
    return tolerance > 1e-9 ? tolerance : 1e-9;
}

}  // namespace vx

extern "C" {

VX_API void AxisTestSet(AxisTest *test, int axis) {
    if (test != nullptr) vx::axis_test_set(*test, axis);
}

VX_API void AxisTestSetFromVector(AxisTest *test, const double vector[3]) {
    if (test != nullptr && vector != nullptr) vx::axis_test_set_from_vector(*test, vector);
}

VX_API void AxisTestSetFromVectorF(AxisTest *test, const float vector[3]) {
    if (test != nullptr && vector != nullptr) vx::axis_test_set_from_vector(*test, vector);
}

VX_API void AxisTestMultiply(double out[3], const AxisTest *test, const double in[3]) {
    if (out == nullptr || test == nullptr || in == nullptr || !vx::axis_test_usable(*test)) return;
    vx::axis_test_multiply(out, *test, in);
}

VX_API void AxisTestMultiplyF(float out[3], const AxisTest *test, const float in[3]) {
    if (out == nullptr || test == nullptr || in == nullptr || !vx::axis_test_usable(*test)) return;
    vx::axis_test_multiply(out, *test, in);
}

VX_API int AxisMaxExtent(const double vector[3]) {
    return vector != nullptr ? vx::axis_extent<true>(vector) : 2;
}

VX_API int AxisMinExtent(const double vector[3]) {
    return vector != nullptr ? vx::axis_extent<false>(vector) : 2;
}

VX_API int AxisMaxExtentF(const float vector[3]) {
    return vector != nullptr ? vx::axis_extent<true>(vector) : 2;
}

VX_API int AxisMinExtentF(const float vector[3]) {
    return vector != nullptr ? vx::axis_extent<false>(vector) : 2;
}

VX_API void BBoxInit(BBox *box, const double position[3]) {
    if (box != nullptr && position != nullptr) vx::bbox_init(*box, position);
}

VX_API void BBoxInitF(BBox *box, const float position[3]) {
    if (box != nullptr && position != nullptr) vx::bbox_init(*box, position);
}

VX_API void BBoxExpand(BBox *box, const double position[3]) {
    if (box != nullptr && position != nullptr) vx::bbox_expand(*box, position);
}

VX_API void BBoxExpandF(BBox *box, const float position[3]) {
    if (box != nullptr && position != nullptr) vx::bbox_expand(*box, position);
}

VX_API void BBoxSetExtent(BBox *box) {
    if (box != nullptr) vx::bbox_set_extent(*box);
}

VX_API double BBoxTolerance(const BBox *box) {
    return box != nullptr ? vx::bbox_tolerance(*box) : 1e-9;
}

}  // extern "C"
