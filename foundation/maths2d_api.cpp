// 2D affine matrices, the angle between 2D vectors, and comparing doubles with a tolerance.
#include <algorithm>
#include <cmath>

#include <vexor/matrix2d.h>

extern "C" {

VX_API void Matrix2DIdent(Matrix2D *matrix) {
    if (matrix == nullptr) return;
    *matrix = Matrix2D{{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}}};
}

VX_API void Matrix2DRotate(Matrix2D *matrix, double angle) {
    if (matrix == nullptr) return;
    const double c = std::cos(angle), s = std::sin(angle);
    Matrix2D &m = *matrix;
    for (int col = 0; col < 3; ++col) {
        const double x = m.m[0][col], y = m.m[1][col];
        m.m[0][col] = c * x - s * y;
        m.m[1][col] = s * x + c * y;
    }
}

VX_API void Matrix2DTranslate(Matrix2D *matrix, double x, double y) {
    if (matrix == nullptr) return;
    matrix->m[0][2] += x;
    matrix->m[1][2] += y;
}

VX_API void Matrix2DMultiply(const Matrix2D *matrix, const double point[2], double out[2]) {
    if (matrix == nullptr || point == nullptr || out == nullptr) return;
    const double x = point[0], y = point[1];
    out[0] = matrix->m[0][0] * x + matrix->m[0][1] * y + matrix->m[0][2];
    out[1] = matrix->m[1][0] * x + matrix->m[1][1] * y + matrix->m[1][2];
}

VX_API double AngleVectors(const double a[2], const double b[2]) {
    if (a == nullptr || b == nullptr) return 0.0;
    const double la = std::hypot(a[0], a[1]), lb = std::hypot(b[0], b[1]);
    if (!(la > 0.0) || !(lb > 0.0) || !std::isfinite(la) || !std::isfinite(lb)) return 0.0;
    // atan2 of the cross and dot products keeps its precision at angles near 0 and pi, where
    // acos of the dot product loses it.
    // Unit vectors first, so that tiny vectors do not underflow.
    const double ax = a[0] / la, ay = a[1] / la, bx = b[0] / lb, by = b[1] / lb;
    return std::fabs(std::atan2(ax * by - ay * bx, ax * bx + ay * by));
}

VX_API int DCompare(double a, double b) {
    if (std::isnan(a)) return -1;
    if (std::isnan(b)) return 1;
    if (a == b) return 0;
    const double scale = std::max({1.0, std::fabs(a), std::fabs(b)});
    if (std::fabs(a - b) <= VX_DCOMPARE_TOLERANCE * scale) return 0;
    return a < b ? -1 : 1;
}

}  // extern "C"
