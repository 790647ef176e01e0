// 4x4 matrix maths: the row-vector convention, inverses, the six rotation orders and the split
// into scale, rotation and position, checked against matrices worked out by hand.
#include "foundation/foundation_fixture.h"

#include <vexor/matrix4.h>

namespace {

using M = std::array<double, 16>;
using V = std::array<double, 3>;
constexpr double kPi = 3.14159265358979323846;

M translate(double x, double y, double z) {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
}

M product(M a, const M &b) {
    Matrix4Compose(a.data(), b.data());
    return a;
}

V apply(const M &m, V p) {
    V out;
    Matrix4TransformPoint(m.data(), p.data(), out.data());
    return out;
}

void expect_near(const M &a, const M &b, double tolerance = 1e-12) {
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
}

TEST(Matrix4, ComposingAppliesTheFirstMatrixFirst) {
    M s;
    Matrix4Ident(s.data());
    s[0] = s[5] = s[10] = 2;
    const M scale = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1};
    EXPECT_EQ(s, scale);
    // Move by 1 along x, then double: (1, 0, 0) goes to (4, 0, 0); the other way to (3, 0, 0).
    EXPECT_EQ(apply(product(translate(1, 0, 0), scale), {1, 0, 0}), (V{4, 0, 0}));
    EXPECT_EQ(apply(product(scale, translate(1, 0, 0)), {1, 0, 0}), (V{3, 0, 0}));
    double t[3];
    Matrix4GetTranslation(product(scale, translate(1, 2, 3)).data(), t);
    EXPECT_EQ((V{t[0], t[1], t[2]}), (V{1, 2, 3}));
}

TEST(Matrix4, InvertsAndRefusesSingularMatrices) {
    const double angles[3] = {0.3, -1.1, 2.0};
    M r, inverse;
    Matrix4FromEuler(r.data(), angles, 2);
    const M m = product(product(r, translate(4, -5, 6)),
                        M{3, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1});
    ASSERT_EQ(Matrix4Invert(inverse.data(), m.data()), 1);
    M ident;
    Matrix4Ident(ident.data());
    expect_near(product(m, inverse), ident);
    M flat = m;
    flat[0] = flat[1] = flat[2] = 0;  // x collapses
    M untouched = ident;
    EXPECT_EQ(Matrix4Invert(untouched.data(), flat.data()), 0);
    EXPECT_EQ(untouched, ident);
    flat = m;
    flat[5] = std::nan("");
    EXPECT_EQ(Matrix4Invert(untouched.data(), flat.data()), 0);
}

TEST(Matrix4, RotationOrdersApplyTheirFirstAxisFirst) {
    // A quarter turn about X then about Y, and the other way, seen on the point (0, 1, 0):
    // X takes it to (0, 0, 1), then Y to (1, 0, 0); Y leaves it, then X takes it to (0, 0, 1).
    const double quarter[3] = {kPi / 2, kPi / 2, 0};
    struct Case {
        int order;
        V expected;
    };
    const Case cases[] = {{0, {1, 0, 0}}, {4, {1, 0, 0}}, {2, {0, 0, 1}}, {3, {0, 0, 1}}};
    for (const Case &c : cases) {
        M r;
        Matrix4FromEuler(r.data(), quarter, c.order);
        const V p = apply(r, {0, 1, 0});
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(p[i], c.expected[i], 1e-12) << c.order;
    }
    // Out-of-range orders are XYZ.
    M a, b;
    Matrix4FromEuler(a.data(), quarter, 9);
    Matrix4FromEuler(b.data(), quarter, 0);
    EXPECT_EQ(a, b);
}

TEST(Matrix4, EulerAnglesComeBackInEveryOrder) {
    const int middle[6] = {1, 2, 0, 2, 0, 1};  // the middle axis of each order
    for (int order = 0; order < 6; ++order) {
        // The last set puts the middle axis at the gimbal lock: the matrix still comes back.
        V locked = {0.4, 0.4, 0.4};
        locked[static_cast<std::size_t>(middle[order])] = kPi / 2;
        for (const V &angles :
             {V{0.3, -0.7, 1.2}, V{-2.5, 0.2, -0.4}, V{0, 0, 0}, V{1.0, 1.4, -3.0}, locked}) {
            M r, back;
            Matrix4FromEuler(r.data(), angles.data(), order);
            double found[3];
            Matrix4ToEuler(r.data(), order, found);
            Matrix4FromEuler(back.data(), found, order);
            expect_near(back, r, 1e-9);
        }
    }
}

TEST(Matrix4, DecomposesIntoScaleRotationAndPosition) {
    const double angles[3] = {0.5, -0.25, 1.5};
    M r;
    Matrix4FromEuler(r.data(), angles, 5);
    const M shear = {1, 0, 0, 0, 0.5, 1, 0, 0, 0.25, -0.5, 1, 0, 0, 0, 0, 1};
    const M mirror = {-2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1};
    for (const M &linear : {mirror, product(shear, mirror)}) {
        const M m = product(product(linear, r), translate(7, 8, 9));
        M s, rot, pos;
        Matrix4Decompose(m.data(), s.data(), rot.data(), pos.data());
        expect_near(product(product(s, rot), pos), m, 1e-12);
        expect_near(pos, translate(7, 8, 9));
        EXPECT_NEAR(s[1], 0.0, 1e-12);  // a lower triangle
        EXPECT_NEAR(s[2], 0.0, 1e-12);
        EXPECT_NEAR(s[6], 0.0, 1e-12);
        M rt = rot;  // a proper rotation: its transpose is its inverse and det is 1
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) rt[i * 4 + j] = rot[j * 4 + i];
        M ident;
        Matrix4Ident(ident.data());
        expect_near(product(rot, rt), ident, 1e-12);
        EXPECT_LT(s[0], 0.0);  // the mirror stays in the X scale
    }
    // Without shear the scale is the diagonal and the rotation the one put in.
    const M plain =
        product(product(M{2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 0, 0, 1}, r), translate(1, 1, 1));
    M s, rot, pos;
    Matrix4Decompose(plain.data(), s.data(), rot.data(), pos.data());
    expect_near(s, M{2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 0, 0, 1});
    expect_near(rot, r);
}

}  // namespace
