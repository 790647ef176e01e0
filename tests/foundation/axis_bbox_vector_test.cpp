// Axis tests, bounding boxes and the vector helpers the polygon tests stand on.
#include "foundation/foundation_fixture.h"

#include <vexor/axis.h>
#include <vexor/bbox.h>
#include <vexor/vector.h>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The unit vectors e_u, e_v seen from +axis run counter-clockwise around the origin, so their
// triangle must have a positive area in (u, v) whichever axis is dropped; the dropped coordinate
// reads as 0 after the projection, in place.
TEST(AxisTest, EveryDroppedAxisReadsACounterClockwiseLoopWithPositiveArea) {
    for (int axis : {0, 1, 2, -1, 3}) {
        AxisTest test;
        AxisTestSet(&test, axis);
        const int dropped = axis == 0 || axis == 1 ? axis : 2;
        EXPECT_EQ(test.axis, dropped);
        double b[3] = {0, 0, 5}, c[3] = {0, 0, 5};
        b[(dropped + 1) % 3] = 1.0;
        c[(dropped + 2) % 3] = 1.0;
        AxisTestMultiply(b, &test, b);
        AxisTestMultiply(c, &test, c);
        EXPECT_GT(b[test.u] * c[test.v] - c[test.u] * b[test.v], 0.0) << axis;
        EXPECT_EQ(b[dropped], 0.0);
        float f[3] = {1.5f, -2.0f, 3.25f};
        AxisTestMultiplyF(f, &test, f);
        EXPECT_EQ(f[dropped], 0.0f);
    }
}

TEST(AxisTest, ExtentsCompareMagnitudesAndTiesGoToTheHigherAxis) {
    struct Row {
        double v[3];
        int max, min;
    };
    const Row rows[] = {
        {{1, 2, 3}, 2, 0},    {{-5, 2, 3}, 0, 1},   {{0, 0, 0}, 2, 2},
        {{1, 1, 0}, 1, 2},    {{2, 1, 1}, 0, 2},    {{1, -1, 1}, 2, 2},
        {{kNaN, 1, 2}, 2, 1}, {{1, 2, kNaN}, 2, 2}, {{0, 1e-300, 0}, 1, 2},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(AxisMaxExtent(row.v), row.max) << row.v[0] << " " << row.v[1] << " " << row.v[2];
        EXPECT_EQ(AxisMinExtent(row.v), row.min) << row.v[0] << " " << row.v[1] << " " << row.v[2];
        const float f[3] = {static_cast<float>(row.v[0]), static_cast<float>(row.v[1]),
                            static_cast<float>(row.v[2])};
        if (std::fabs(row.v[1]) > 1e-30 || row.v[1] == 0.0) {
            EXPECT_EQ(AxisMaxExtentF(f), row.max);
            EXPECT_EQ(AxisMinExtentF(f), row.min);
        }
        AxisTest test, flipped;
        AxisTestSetFromVector(&test, row.v);
        const double negated[3] = {-row.v[0], -row.v[1], -row.v[2]};
        AxisTestSetFromVector(&flipped, negated);
        EXPECT_EQ(test.axis, row.max);
        EXPECT_EQ(flipped.axis, test.axis) << "the sign never changes the projection";
        EXPECT_EQ(flipped.u, test.u);
    }
}

TEST(VNormalize, ScalesToUnitLengthOrRefusesWithoutTouchingTheVector) {
    double v[3] = {3, 0, -4};
    EXPECT_EQ(VNormalize(v), 5.0);
    EXPECT_DOUBLE_EQ(v[0], 0.6);
    EXPECT_DOUBLE_EQ(v[2], -0.8);
    double tiny[3] = {3e-310, 4e-310, 0};
    EXPECT_NEAR(VNormalize(tiny), 5e-310, 1e-320);
    EXPECT_NEAR(tiny[0], 0.6, 1e-12);
    for (const double bad : {0.0, kNaN, kInf}) {
        double w[3] = {bad, 0, 0};
        EXPECT_EQ(VNormalize(w), 0.0) << bad;
        EXPECT_TRUE(w[0] == bad || (std::isnan(w[0]) && std::isnan(bad)));
    }
}

TEST(VCrossNormalF, PointsTowardsAViewerWhoSeesTheCornerCounterClockwise) {
    const float a[3] = {0, 0, 0}, b[3] = {2, 0, 0}, c[3] = {2, 3, 0}, d[3] = {4, 0, 0};
    float n[3];
    EXPECT_EQ(VCrossNormalF(a, b, c, n), 1);
    EXPECT_EQ(n[2], 1.0f);
    EXPECT_EQ(VCrossNormalF(c, b, a, n), 1);
    EXPECT_EQ(n[2], -1.0f);
    EXPECT_EQ(VCrossNormalF(a, b, d, n), 0) << "collinear";
    EXPECT_EQ(n[0], 0.0f);
    EXPECT_EQ(n[2], 0.0f);
}

TEST(DistancePointLineSegment, MeasuresToTheSegmentAndGivesTheLineParameter) {
    const double a[3] = {0, 0, 0}, b[3] = {2, 0, 0};
    struct Row {
        double p[3];
        double distance, t;
    };
    const Row rows[] = {{{1, 1, 0}, 1.0, 0.5},
                        {{-3, 4, 0}, 5.0, -1.5},
                        {{5, 0, 4}, 5.0, 2.5},
                        {{2, 0, 0}, 0.0, 1.0}};
    for (const Row &row : rows) {
        double t = kNaN;
        EXPECT_DOUBLE_EQ(DistancePointLineSegment(row.p, a, b, &t), row.distance);
        EXPECT_DOUBLE_EQ(t, row.t);
    }
    const double p[3] = {3, 4, 0};
    double t = kNaN;
    EXPECT_EQ(DistancePointLineSegment(p, a, a, &t), 5.0);
    EXPECT_EQ(t, 0.0);
    EXPECT_EQ(DistancePointLineSegment(p, a, b, nullptr), std::sqrt(17.0));
}

TEST(BBox, GrowsFromOnePositionAndScalesItsToleranceWithSizeAndDistance) {
    BBox box;
    const float first[3] = {1, 2, 3};
    BBoxInitF(&box, first);
    const double more[][3] = {{-1, 5, 3}, {kNaN, 0, 4}};
    for (const auto &p : more) BBoxExpand(&box, p);
    BBoxSetExtent(&box);
    EXPECT_EQ(box.min[0], -1.0);
    EXPECT_EQ(box.max[0], 1.0) << "NaN leaves the box as it was";
    EXPECT_EQ(box.min[1], 0.0);
    EXPECT_EQ(box.extent[1], 5.0);
    EXPECT_EQ(box.extent[2], 1.0);
    EXPECT_DOUBLE_EQ(BBoxTolerance(&box), 1e-5 * 5.0 + std::ldexp(5.0, -20));

    const double origin[3] = {0, 0, 0};
    BBoxInit(&box, origin);
    EXPECT_EQ(BBoxTolerance(&box), 1e-9) << "a point at the origin keeps a floor";
}

}  // namespace
