/* Small 3D vector operations that the geometry functions share.
 *
 * These functions keep no state and may be called from any thread. */
#ifndef VEXOR_VECTOR_H
#define VEXOR_VECTOR_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Scales `vector` to unit length and returns its length before. Returns 0 and leaves the vector
 * untouched when it cannot be normalised: zero, or with an infinite or NaN component. Tiny
 * vectors (components near the smallest doubles) normalise without underflow. */
VX_API double VNormalize(double vector[3]);
/* The unit normal of the triangle a, b, c: (b - a) x (c - b) normalised, which points towards a
 * viewer who sees a, b, c counter-clockwise; computed in double. Returns 1, or 0 with the
 * normal written as zero when the triangle has no area (collinear or repeated points). */
VX_API int VCrossNormalF(const float a[3], const float b[3], const float c[3], float normal[3]);
/* The distance from `point` to the segment a-b. When `t` is not null it receives the parameter
 * of the point's foot on the line through a and b (0 at a, 1 at b, not clamped), so that the
 * nearest point of the segment is a + (b - a) * clamp(t, 0, 1). A segment with a == b gives the
 * distance to a and t = 0. */
VX_API double DistancePointLineSegment(const double point[3], const double a[3], const double b[3],
                                       double *t);

VX_EXTERN_C_END

#endif
