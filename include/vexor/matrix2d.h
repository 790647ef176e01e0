/* 2D maths: affine matrices of the plane, the angle between two vectors, and comparing doubles
 * within the library's tolerance.
 *
 * A Matrix2D maps (x, y) to (m[0][0] x + m[0][1] y + m[0][2], m[1][0] x + m[1][1] y + m[1][2]).
 * Angles are in radians, counter-clockwise positive. These functions keep no state and may be
 * called from any thread. */
#ifndef VEXOR_MATRIX2D_H
#define VEXOR_MATRIX2D_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct Matrix2D {
    double m[2][3];
} Matrix2D;

/* Sets the identity. */
VX_API void Matrix2DIdent(Matrix2D *matrix);
/* Follows the matrix with a rotation by `angle` about the origin: afterwards the matrix maps a
 * point where it did, then turns it. */
VX_API void Matrix2DRotate(Matrix2D *matrix, double angle);
/* Follows the matrix with a translation. */
VX_API void Matrix2DTranslate(Matrix2D *matrix, double x, double y);
/* out = the point pushed through the matrix; out may be the point. */
VX_API void Matrix2DMultiply(const Matrix2D *matrix, const double point[2], double out[2]);

/* The angle between two 2D vectors, from 0 to pi; 0 when either is zero or not finite. */
VX_API double AngleVectors(const double a[2], const double b[2]);

/* The tolerance DCompare uses: two doubles are equal when they differ by at most
 * 1e-9 * max(1, |a|, |b|), so values within 1e-9 of zero compare equal to zero. */
#define VX_DCOMPARE_TOLERANCE 1e-9
/* -1 when a < b, 1 when a > b, 0 when they are equal within the tolerance (NaN compares equal
 * to nothing: -1 when a is NaN, 1 when only b is). */
VX_API int DCompare(double a, double b);

VX_EXTERN_C_END

#endif
