/* 4x4 matrices for placing things in space.
 *
 * A matrix is 16 doubles, row by row. Points are row vectors multiplied on the left,
 * p' = p * M, so the translation sits in the last row (elements 12, 13 and 14) and in a
 * product A * B the transformation A is applied first. Matrix4Compose(a, b) sets a to a * b:
 * composing the members of a transform chain in order gives the matrix that applies the first
 * member first.
 *
 * Rotations are right-handed and angles are in radians. A rotation order (0 to 5) names the
 * order in which the rotations about the three axes are applied, the first letter first:
 * 0 XYZ, 1 XZY, 2 YXZ, 3 YZX, 4 ZXY, 5 ZYX.
 *
 * Every function may be called from any thread; output arguments may be the same arrays as
 * the inputs. Pointers must not be null. */
#ifndef VEXOR_MATRIX4_H
#define VEXOR_MATRIX4_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Sets m to the identity. */
VX_API void Matrix4Ident(double m[16]);
/* Copies src into dst. */
VX_API void Matrix4Copy(double dst[16], const double src[16]);
/* Sets out to the inverse of m. Returns 1, or 0 (out unchanged) when m is singular or holds
 * a value that is not finite. */
VX_API int Matrix4Invert(double out[16], const double m[16]);
/* Sets a to a * b: b applied after a. */
VX_API void Matrix4Compose(double a[16], const double b[16]);
/* Sets out to a * b. */
VX_API void Matrix4Multiply(double out[16], const double a[16], const double b[16]);
/* The upper 3x3 (the linear part), row by row. */
VX_API void Matrix4GetSubMatrix(const double m[16], double out[9]);
/* The translation (the last row's first three elements). */
VX_API void Matrix4GetTranslation(const double m[16], double out[3]);
/* The point p pushed through m. */
VX_API void Matrix4TransformPoint(const double m[16], const double p[3], double out[3]);

/* The rotation by angles[0], angles[1] and angles[2] about X, Y and Z, applied in the given
 * order (a value outside 0 to 5 counts as 0). */
VX_API void Matrix4FromEuler(double out[16], const double angles[3], int order);
/* The angles about X, Y and Z that Matrix4FromEuler turns back into the rotation part of m,
 * which must be a pure rotation for an exact answer; the middle angle of the order lies
 * within -pi/2 to pi/2. */
VX_API void Matrix4ToEuler(const double m[16], int order, double angles[3]);
/* Splits m into scale * rotation * position: the linear part that is not a rotation (a
 * lower triangle, diagonal when m has no shear; a mirror shows as a negative X scale), a
 * proper rotation, and the translation. Their product is m for any affine m. */
VX_API void Matrix4Decompose(const double m[16], double scale[16], double rotation[16],
                             double position[16]);

VX_EXTERN_C_END

#endif
