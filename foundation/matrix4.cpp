// 4x4 matrix maths: products and inverses through Eigen, the elementary matrices, Euler angles
// in the six orders, and the split into scale, rotation and position.
#include "foundation/matrix4.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

namespace vx::mat {
namespace {

using Map4 = Eigen::Map<Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>;
using ConstMap4 = Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>;
using Row3 = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

// The axes of each order, the first applied first.
constexpr int kAxes[kRotationOrders][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                           {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

// The rotation by `angle` about one axis, for row vectors. Rotations are composed as 3x3
// matrices: a quarter of the work of the 4x4 products.
Row3 axis_rotation(int axis, double angle) noexcept {
    const double c = std::cos(angle), s = std::sin(angle);
    Row3 m = Row3::Identity();
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;  // u turns toward v
    m(u, u) = c;
    m(u, v) = s;
    m(v, u) = -s;
    m(v, v) = c;
    return m;
}

}  // namespace

Matrix4 identity() noexcept {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

Matrix4 multiply(const Matrix4 &a, const Matrix4 &b) noexcept {
    Matrix4 out;
    Map4(out.data()).noalias() = ConstMap4(a.data()) * ConstMap4(b.data());
    return out;
}

bool invert(const Matrix4 &m, Matrix4 &out) noexcept {
    const ConstMap4 in(m.data());
    if (!in.allFinite()) return false;
    Eigen::Matrix<double, 4, 4, Eigen::RowMajor> inverse;
    bool invertible = false;
    // The threshold is relative to the size of the entries, so small scales still invert.
    const double size = in.cwiseAbs().maxCoeff();
    in.computeInverseWithCheck(inverse, invertible, 1e-14 * size * size * size * size);
    if (!invertible || !inverse.allFinite()) return false;
    Map4(out.data()) = inverse;
    return true;
}

Matrix3 sub_matrix(const Matrix4 &m) noexcept {
    return {m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10]};
}

Vector3 translation_of(const Matrix4 &m) noexcept {
    return {m[12], m[13], m[14]};
}

Vector3 transform_point(const Matrix4 &m, const Vector3 &p) noexcept {
    Vector3 out;
    for (std::size_t c = 0; c < 3; ++c) {
        out[c] = p[0] * m[c] + p[1] * m[4 + c] + p[2] * m[8 + c] + m[12 + c];
    }
    return out;
}

Matrix4 translation(const Vector3 &t) noexcept {
    Matrix4 m = identity();
    m[12] = t[0];
    m[13] = t[1];
    m[14] = t[2];
    return m;
}

Matrix4 scaling(const Vector3 &s) noexcept {
    Matrix4 m = identity();
    m[0] = s[0];
    m[5] = s[1];
    m[10] = s[2];
    return m;
}

Matrix4 shearing(double xy, double xz, double yz) noexcept {
    Matrix4 m = identity();
    m[4] = xy;  // y feeds x
    m[8] = xz;  // z feeds x
    m[9] = yz;  // z feeds y
    return m;
}

Matrix4 rotation(const Vector3 &angles, int order) noexcept {
    if (order < 0 || order >= kRotationOrders) order = 0;
    const int *axes = kAxes[order];
    const Row3 r = axis_rotation(axes[0], angles[static_cast<std::size_t>(axes[0])]) *
                   axis_rotation(axes[1], angles[static_cast<std::size_t>(axes[1])]) *
                   axis_rotation(axes[2], angles[static_cast<std::size_t>(axes[2])]);
    Matrix4 m = identity();
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) m[static_cast<std::size_t>(row * 4 + col)] = r(row, col);
    }
    return m;
}

Vector3 euler_angles(const Matrix4 &m, int order) noexcept {
    if (order < 0 || order >= kRotationOrders) order = 0;
    // For row vectors M = R_f * R_s * R_t; its transpose is the column-vector product
    // C_t * C_s * C_f, whose angles the usual closed form gives for axes (i, j, k) = (t, s, f).
    const int f = kAxes[order][0], s = kAxes[order][1], t = kAxes[order][2];
    auto col = [&](int r, int c) { return m[static_cast<std::size_t>(c * 4 + r)]; };
    const int i = t, j = s, k = f;
    // +1 when (i, j, k) is a cyclic order of (X, Y, Z).
    const double sign = (j == (i + 1) % 3) ? 1.0 : -1.0;
    const double sb = std::clamp(sign * col(i, k), -1.0, 1.0);
    const double b = std::asin(sb);
    double a, c;
    if (std::abs(sb) < 1.0 - 1e-12) {
        a = std::atan2(-sign * col(j, k), col(k, k));
        c = std::atan2(-sign * col(i, j), col(i, i));
    } else {
        // Gimbal lock: only a + c (or a - c) is known; put it all in a.
        a = std::atan2(sign * col(k, j), col(j, j));
        c = 0.0;
    }
    Vector3 out{};
    out[static_cast<std::size_t>(i)] = a;  // angle of C_t
    out[static_cast<std::size_t>(j)] = b;
    out[static_cast<std::size_t>(k)] = c;
    return out;
}

void decompose(const Matrix4 &m, Matrix4 &scale, Matrix4 &rotation_out,
               Matrix4 &position) noexcept {
    Row3 a;
    a << m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10];
    // A^T = Q R gives A = R^T Q^T: a lower triangle times orthonormal rows.
    Eigen::HouseholderQR<Eigen::Matrix3d> qr(a.transpose());
    Eigen::Matrix3d q = qr.householderQ();
    Eigen::Matrix3d lower =
        qr.matrixQR().triangularView<Eigen::Upper>().toDenseMatrix().transpose();
    Eigen::Matrix3d rows = q.transpose();
    // Positive scales where possible; a mirror is left in the X scale.
    for (int d = 0; d < 3; ++d) {
        if (lower(d, d) < 0.0) {
            lower.col(d) *= -1.0;
            rows.row(d) *= -1.0;
        }
    }
    if (rows.determinant() < 0.0) {
        lower.col(0) *= -1.0;
        rows.row(0) *= -1.0;
    }
    scale = identity();
    rotation_out = identity();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            scale[static_cast<std::size_t>(r * 4 + c)] = lower(r, c);
            rotation_out[static_cast<std::size_t>(r * 4 + c)] = rows(r, c);
        }
    }
    position = translation(translation_of(m));
}

}  // namespace vx::mat
