// Plane fits, the stepwise sort, 2D matrices, angles and tolerant comparison.
#include "foundation/foundation_fixture.h"

#include <numeric>
#include <random>

#include <vexor/matrix2d.h>
#include <vexor/plane_fit.h>
#include <vexor/sort.h>

namespace {

PlaneFit fit_of(const std::vector<std::array<double, 3>> &points) {
    PlaneFit fit;
    PlaneFitStart(&fit, static_cast<unsigned>(points.size()));
    for (const auto &p : points) PlaneFitAddPos(&fit, p.data());
    return fit;
}

TEST(PlaneFit, FindsTheNormalOfNoisyPlanesFarFromTheOrigin) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> spread(-1.0, 1.0), noise(-1e-4, 1e-4);
    // The plane through (1e6, -2e6, 3e6) with normal (1, 2, 2) / 3.
    const double n[3] = {1.0 / 3, 2.0 / 3, 2.0 / 3}, origin[3] = {1e6, -2e6, 3e6};
    const double a[3] = {2.0 / 3, -2.0 / 3, 1.0 / 3}, b[3] = {2.0 / 3, 1.0 / 3, -2.0 / 3};
    std::vector<std::array<double, 3>> points;
    for (int i = 0; i < 500; ++i) {
        const double s = spread(random), t = spread(random), e = noise(random);
        points.push_back({origin[0] + s * a[0] + t * b[0] + e * n[0],
                          origin[1] + s * a[1] + t * b[1] + e * n[1],
                          origin[2] + s * a[2] + t * b[2] + e * n[2]});
    }
    PlaneFit fit = fit_of(points);
    ASSERT_EQ(PlaneFitDone(&fit), 1);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(fit.normal[k], n[k], 1e-3);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(fit.centre[k], origin[k], 0.2);
}

TEST(PlaneFit, RefusesWhatFixesNoPlane) {
    const std::vector<std::vector<std::array<double, 3>>> degenerate = {
        {},
        {{1, 2, 3}, {4, 5, 6}},
        {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {5, 5, 5}},  // a line
        {{3, 3, 3}, {3, 3, 3}, {3, 3, 3}},             // one place
        {{0, 0, 0}, {1, 0, 0}, {NAN, 1, 0}},           // two usable points
    };
    for (const auto &points : degenerate) {
        PlaneFit fit = fit_of(points);
        EXPECT_EQ(PlaneFitDone(&fit), 0) << points.size() << " points";
        EXPECT_EQ(fit.normal[0] * fit.normal[0] + fit.normal[1] * fit.normal[1] +
                      fit.normal[2] * fit.normal[2],
                  0.0);
    }
    PlaneFit fit = fit_of({{5, 0, 0}, {5, 1, 0}, {5, 0, 1}});
    ASSERT_EQ(PlaneFitDone(&fit), 1);
    EXPECT_DOUBLE_EQ(fit.normal[0], 1.0);  // the largest component is made positive
}

int compare_ints(const void *a, const void *b, void *calls) {
    ++*static_cast<int *>(calls);
    return *static_cast<const int *>(a) / 10 - *static_cast<const int *>(b) / 10;
}

TEST(StepSort, SortsStablyOneMergeAtATime) {
    std::mt19937 random(3);
    for (const unsigned count : {0u, 1u, 2u, 7u, 64u, 1000u}) {
        std::vector<int> values(count);
        for (int &v : values) v = static_cast<int>(random() % 200);
        std::vector<void *> items;
        for (int &v : values) items.push_back(&v);
        int calls = 0;
        SortState *sort = SortCreate(items.data(), count, compare_ints, &calls);
        ASSERT_NE(sort, nullptr);
        unsigned steps = 0;
        while (SortStep(sort) != 0) ++steps;
        SortDestroy(sort);
        // Equal keys (same tens) keep the order they had: their addresses ascend.
        for (unsigned i = 1; i < count; ++i) {
            const int *a = static_cast<int *>(items[i - 1]), *b = static_cast<int *>(items[i]);
            ASSERT_TRUE(*a / 10 < *b / 10 || (*a / 10 == *b / 10 && a < b)) << count << " at " << i;
        }
        EXPECT_LE(calls, count < 2 ? 0 : static_cast<int>(count * std::ceil(std::log2(count))));
        EXPECT_LE(steps, count);
    }
    EXPECT_EQ(SortCreate(nullptr, 3, compare_ints, nullptr), nullptr);
    EXPECT_EQ(SortStep(nullptr), 0);
}

TEST(Maths2D, RotationsAnglesAndComparisons) {
    Matrix2D m;
    Matrix2DIdent(&m);
    Matrix2DTranslate(&m, 1.0, 0.0);
    Matrix2DRotate(&m, M_PI / 2);  // translate first, then turn
    const double p[2] = {1.0, 0.0};
    double out[2];
    Matrix2DMultiply(&m, p, out);
    EXPECT_NEAR(out[0], 0.0, 1e-15);
    EXPECT_NEAR(out[1], 2.0, 1e-15);

    struct Angle {
        double a[2], b[2], angle;
    };
    for (const Angle &c : std::vector<Angle>{{{1, 0}, {0, 3}, M_PI / 2},
                                             {{1, 0}, {0, -3}, M_PI / 2},
                                             {{1, 0}, {-2, 0}, M_PI},
                                             {{1, 1}, {2, 2}, 0.0},
                                             {{0, 0}, {1, 0}, 0.0},
                                             {{1e-200, 0}, {0, 1e-200}, M_PI / 2}})
        EXPECT_DOUBLE_EQ(AngleVectors(c.a, c.b), c.angle);

    struct Compare {
        double a, b;
        int expected;
    };
    for (const Compare &c : std::vector<Compare>{{0.0, 1e-10, 0},
                                                 {0.0, 2e-9, -1},
                                                 {1e12, 1e12 + 100, 0},
                                                 {1e12, 1e12 + 10000, -1},
                                                 {2.0, 1.0, 1},
                                                 {INFINITY, INFINITY, 0},
                                                 {NAN, 0.0, -1},
                                                 {0.0, NAN, 1}})
        EXPECT_EQ(DCompare(c.a, c.b), c.expected) << c.a << " vs " << c.b;
}

}  // namespace
