/* Axis tests: the projection of 3D space onto a coordinate plane that planar tests of polygons
 * use (point in polygon, orientation, hulls).
 *
 * An axis test names the dropped axis (0, 1, 2 for X, Y, Z) and the in-plane coordinates u and
 * v. (u, v, axis) is always a right-handed cyclic triple: (Y, Z, X), (Z, X, Y) or (X, Y, Z).
 * So a loop that runs counter-clockwise seen from the positive side of the dropped axis has a
 * positive signed area in (u, v), whichever axis is dropped.
 *
 * Ties: where two components are equally large (or small), the higher axis wins, Z before Y
 * before X, so a figure with no preference drops Z and is read in (X, Y).
 *
 * These functions keep no state and may be called from any thread. */
#ifndef VEXOR_AXIS_H
#define VEXOR_AXIS_H

#include <stdint.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The projection: read in[u] and in[v] of a position mapped by AxisTestMultiply. Callers may
 * read the fields; AxisTestSet keeps them consistent. */
typedef struct AxisTest {
    int32_t axis; /* the dropped axis: 0, 1 or 2 */
    int32_t u;    /* index of the first in-plane coordinate */
    int32_t v;    /* index of the second in-plane coordinate */
} AxisTest;

/* Drops `axis` (0 X, 1 Y, 2 Z); any other value drops Z. */
VX_API void AxisTestSet(AxisTest *test, int axis);
/* Drops the axis along which `vector` (typically a plane's normal) is largest in magnitude.
 * The vector's sign does not change the projection; a zero vector drops Z. */
VX_API void AxisTestSetFromVector(AxisTest *test, const double vector[3]);
VX_API void AxisTestSetFromVectorF(AxisTest *test, const float vector[3]);
/* Projects `in` onto the test's plane: out[u] = in[u], out[v] = in[v], out[axis] = 0. `out`
 * may be `in`. */
VX_API void AxisTestMultiply(double out[3], const AxisTest *test, const double in[3]);
VX_API void AxisTestMultiplyF(float out[3], const AxisTest *test, const float in[3]);
/* The index of the component largest (smallest) in magnitude; ties go to the higher index. A
 * NaN component never wins over Z. */
VX_API int AxisMaxExtent(const double vector[3]);
VX_API int AxisMinExtent(const double vector[3]);
VX_API int AxisMaxExtentF(const float vector[3]);
VX_API int AxisMinExtentF(const float vector[3]);

VX_EXTERN_C_END

#endif
