// 4x4 matrices of doubles for placing things in space.
//
// Convention: points are row vectors multiplied on the left, p' = p * M, so a matrix is stored
// row by row with the translation in the last row (elements 12, 13, 14), and in a product
// A * B the transformation A is applied first. compose(a, b) sets a to a * b: composing the
// members of a chain in order gives the matrix that applies the first member first.
//
// Rotations are right-handed, angles in radians. A rotation order names the order in which
// the three axis rotations are applied, the first letter first:
//     0 XYZ, 1 XZY, 2 YXZ, 3 YZX, 4 ZXY, 5 ZYX.
#pragma once

#include <array>
#include <cstdint>

namespace vx::mat {

using Matrix4 = std::array<double, 16>;
using Matrix3 = std::array<double, 9>;
using Vector3 = std::array<double, 3>;

inline constexpr int kRotationOrders = 6;

Matrix4 identity() noexcept;
// a * b.
Matrix4 multiply(const Matrix4 &a, const Matrix4 &b) noexcept;
// a = a * b.
inline void compose(Matrix4 &a, const Matrix4 &b) noexcept {
    a = multiply(a, b);
}
// The inverse; false (leaving out as it was) when the matrix is singular or not finite.
bool invert(const Matrix4 &m, Matrix4 &out) noexcept;
// The upper 3x3 (the linear part), row by row.
Matrix3 sub_matrix(const Matrix4 &m) noexcept;
Vector3 translation_of(const Matrix4 &m) noexcept;
// The point p pushed through m (the row vector (p, 1) times m).
Vector3 transform_point(const Matrix4 &m, const Vector3 &p) noexcept;

// Elementary matrices.
Matrix4 translation(const Vector3 &t) noexcept;
Matrix4 scaling(const Vector3 &s) noexcept;
// x' = x + xy * y + xz * z, y' = y + yz * z, z' = z.
Matrix4 shearing(double xy, double xz, double yz) noexcept;
// The rotation by the three angles about X, Y and Z, applied in the order given (0 to 5;
// another value counts as 0).
Matrix4 rotation(const Vector3 &angles, int order) noexcept;
// Angles about X, Y and Z that rotation() turns back into the rotation part of m (which must
// be a pure rotation for an exact answer), the middle angle of the order within +-pi/2.
Vector3 euler_angles(const Matrix4 &m, int order) noexcept;

// Splits m into scale * rotation * position: `scale` holds the linear part that is not a
// rotation (a lower triangle, diagonal when m has no shear; a mirror shows as a negative X
// scale), `rotation` a proper rotation and `position` the translation. Their product is m
// (for an affine m; the last column of m is taken as (0, 0, 0, 1)).
void decompose(const Matrix4 &m, Matrix4 &scale, Matrix4 &rotation, Matrix4 &position) noexcept;

}  // namespace vx::mat
