// The C interface of the 4x4 matrix maths.
#include <vexor/matrix4.h>

#include <algorithm>

#include "foundation/matrix4.h"

namespace {

using vx::mat::Matrix4;
using vx::mat::Vector3;

Matrix4 load(const double *m) noexcept {
    Matrix4 out;
    std::copy(m, m + 16, out.begin());
    return out;
}

void store(const Matrix4 &m, double *out) noexcept {
    std::copy(m.begin(), m.end(), out);
}

}  // namespace

extern "C" {

VX_API void Matrix4Ident(double m[16]) {
    store(vx::mat::identity(), m);
}

VX_API void Matrix4Copy(double dst[16], const double src[16]) {
    std::copy(src, src + 16, dst);
}

VX_API int Matrix4Invert(double out[16], const double m[16]) {
    Matrix4 inverse;
    if (!vx::mat::invert(load(m), inverse)) return 0;
    store(inverse, out);
    return 1;
}

VX_API void Matrix4Compose(double a[16], const double b[16]) {
    store(vx::mat::multiply(load(a), load(b)), a);
}

VX_API void Matrix4Multiply(double out[16], const double a[16], const double b[16]) {
    store(vx::mat::multiply(load(a), load(b)), out);
}

VX_API void Matrix4GetSubMatrix(const double m[16], double out[9]) {
    const vx::mat::Matrix3 sub = vx::mat::sub_matrix(load(m));
    std::copy(sub.begin(), sub.end(), out);
}

VX_API void Matrix4GetTranslation(const double m[16], double out[3]) {
    const Vector3 t = vx::mat::translation_of(load(m));
    std::copy(t.begin(), t.end(), out);
}

VX_API void Matrix4TransformPoint(const double m[16], const double p[3], double out[3]) {
    const Vector3 r = vx::mat::transform_point(load(m), {p[0], p[1], p[2]});
    std::copy(r.begin(), r.end(), out);
}

VX_API void Matrix4FromEuler(double out[16], const double angles[3], int order) {
    store(vx::mat::rotation({angles[0], angles[1], angles[2]}, order), out);
}

VX_API void Matrix4ToEuler(const double m[16], int order, double angles[3]) {
    const Vector3 a = vx::mat::euler_angles(load(m), order);
    std::copy(a.begin(), a.end(), angles);
}

VX_API void Matrix4Decompose(const double m[16], double scale[16], double rotation[16],
                             double position[16]) {
    Matrix4 s, r, p;
    vx::mat::decompose(load(m), s, r, p);
    store(s, scale);
    store(r, rotation);
    store(p, position);
}
}
