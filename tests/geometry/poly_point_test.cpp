// Point-in-polygon tests: the tie-breaks on the boundary, the band with its one-sided edges, and
// agreement with an independent winding-number count on random star polygons.
#include <cmath>
#include <random>

#include "geometry/poly_fixture.h"

namespace vx::test {
namespace {

using PolygonPoint = PolygonTest;

// The unit square in both windings, t = 0.001. The band covers the left edge only when it runs
// downward in y (counter-clockwise), the right edge only clockwise.
TEST_F(PolygonPoint, TheSquaresBoundaryAnswersByEdgeDirection) {
    struct Row {
        double x, y;
        int pos;                // PolygonTestPos, either winding
        int ccw_band, cw_band;  // PolygonTestPosTol
    };
    const Row rows[] = {
        {0.5, 0.5, 1, 1, 1},      {1.5, 0.5, 0, -1, -1},     {0.0005, 0.5, 1, 0, 1},
        {-0.0005, 0.5, 0, 0, -1}, {0.9995, 0.5, 1, 1, 0},    {1.0005, 0.5, 0, -1, 0},
        {0.5, 0.0005, 1, 0, 0},   {0.0003, 1.0004, 0, 0, 0}, {0.5, 0.0, 1, 0, 0},
        {0.5, 1.0, 0, 0, 0},
    };
    MeshPolygon *ccw = polygon(kUnitSquare);
    MeshPolygon *cw = polygon(reversed(kUnitSquare));
    const AxisTest z = drop(2);
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.x << ", " << row.y);
        const double p[3] = {row.x, row.y, 9.0};
        EXPECT_EQ(PolygonTestPos(mesh_, ccw, &z, p), row.pos);
        EXPECT_EQ(PolygonTestPos(mesh_, cw, &z, p), row.pos);
        EXPECT_EQ(PolygonTestPosTol(mesh_, ccw, &z, p, 0.001), row.ccw_band);
        EXPECT_EQ(PolygonTestPosTol(mesh_, cw, &z, p, 0.001), row.cw_band);
    }
    const double inside[3] = {0.0005, 0.5, 0.0};
    EXPECT_EQ(PolygonTestPosTol(mesh_, ccw, &z, inside, 0.0), 1) << "no band";
    EXPECT_EQ(PolygonTestPosTol(mesh_, ccw, &z, inside, -1.0), 1) << "no band";
}

double boundary_distance(const std::vector<UVPoint> &loop, double x, double y) {
    double best = 1e300;
    for (std::size_t i = 0; i < loop.size(); ++i) {
        best = std::fmin(best, segment_distance(loop[i], loop[(i + 1) % loop.size()], x, y));
    }
    return best;
}

// The two rules written plainly, one edge at a time in double, as a reference for the screened
// loops of the library.
std::pair<int, int> plain_rules(const std::vector<UVPoint> &loop, double pu, double pv, double t) {
    unsigned crossings = 0, band_crossings = 0;
    int band = 2;
    auto prev = loop.back();
    for (const auto &cur : loop) {
        if ((pv < prev[1]) != (pv < cur[1]) &&
            (pv - cur[1]) * (prev[0] - cur[0]) / (prev[1] - cur[1]) + cur[0] > pu) {
            ++crossings;
        }
        if (band == 2 && std::fabs(pv - cur[1]) < t &&
            (std::fabs(pu - cur[0]) < t ||
             (std::fabs(pv - prev[1]) < t && (pu < cur[0]) != (pu < prev[0])))) {
            band = 0;
        }
        if (band == 2 && (pv < prev[1]) != (pv < cur[1])) {
            const double dv = prev[1] - cur[1], du = prev[0] - cur[0];
            const double d = (pv - cur[1]) * du / dv - (pu - cur[0]);
            if (std::sqrt(du * du + dv * dv) * t / dv > std::fabs(d)) band = 0;
            band_crossings += d > 0.0 ? 1u : 0u;
        }
        prev = cur;
    }
    if (band == 2) band = band_crossings % 2 == 1 ? 1 : -1;
    return {static_cast<int>(crossings % 2), band};
}

// Random star polygons in each coordinate plane and either winding, with vertex rays lined up
// with some test points so that lines through vertices are common.
TEST_F(PolygonPoint, AgreesWithTheWindingNumberAndTheFloatFormsAgreeWithTheDoubleForms) {
    std::mt19937 random(18);
    std::uniform_real_distribution<float> unit(-1.5f, 1.5f);
    int checked = 0;
    for (int round = 0; round < 60; ++round) {
        const std::size_t axis = static_cast<std::size_t>(round % 3);
        const int n = 3 + round * 7 % 40;
        std::vector<UVPoint> loop;
        std::vector<Point> points;
        for (int i = 0; i < n; ++i) {
            const double angle = 6.283185307179586 * i / n;
            const double radius = i % 2 == 0 ? 1.0 : 0.25 + 0.5 * (round % 5) / 5.0;
            // Radii and angles rounded to floats: positions are stored as floats.
            const UVPoint uv = {static_cast<float>(radius * std::cos(angle)),
                                static_cast<float>(radius * std::sin(angle))};
            loop.push_back(uv);
            Point p{};
            p[(axis + 1) % 3] = uv[0];
            p[(axis + 2) % 3] = uv[1];
            p[axis] = 0.75;  // the test points' own third coordinate varies
            points.push_back(p);
        }
        if (round % 2 == 1) {
            loop = {loop.rbegin(), loop.rend()};
            points = reversed(points);
        }
        MeshPolygon *star = polygon(points);
        AxisTest test;
        ASSERT_EQ(PolygonSetTestAxis(mesh_, star, &test), 1);
        ASSERT_EQ(test.axis, static_cast<int>(axis))
            << "the corner normal lies along the plane's axis";
        for (int k = 0; k < 200; ++k) {
            float f[3] = {unit(random), unit(random), unit(random)};
            const auto &corner = loop[static_cast<std::size_t>(k % n)];
            if (k % 4 == 0) f[(axis + 2) % 3] = static_cast<float>(corner[1]);
            if (k % 8 == 1) {  // in or just out of the band around a vertex
                f[(axis + 1) % 3] = static_cast<float>(corner[0] + 1e-4 * (k % 3));
                f[(axis + 2) % 3] = static_cast<float>(corner[1] - 5e-5 * (k % 5));
            }
            // Every other point lies between floats, where the vertices' v cannot equal it.
            const double jitter = k % 2 == 0 ? 0.0 : 3e-10;
            const double d[3] = {static_cast<double>(f[0]) + jitter,
                                 static_cast<double>(f[1]) + jitter,
                                 static_cast<double>(f[2]) + jitter};
            const double x = d[(axis + 1) % 3], y = d[(axis + 2) % 3];
            const int pos = PolygonTestPos(mesh_, star, &test, d);
            const int band = PolygonTestPosTol(nullptr, star, &test, d, 1e-4);
            if (jitter == 0.0) {
                EXPECT_EQ(PolygonTestPosF(mesh_, star, &test, f), pos);
                EXPECT_EQ(PolygonTestPosTolF(nullptr, star, &test, f, 1e-4), band);
            }
            const std::pair<int, int> plain = plain_rules(loop, x, y, 1e-4);
            ASSERT_EQ(pos, plain.first) << round << " " << x << " " << y;
            ASSERT_EQ(band, plain.second) << round << " " << x << " " << y;
            if (boundary_distance(loop, x, y) < 1e-3) continue;
            const int inside = winding(loop, x, y) != 0 ? 1 : 0;
            ASSERT_EQ(pos, inside) << round << " " << x << " " << y;
            ASSERT_EQ(band, inside != 0 ? 1 : -1) << round << " " << x << " " << y;
            ++checked;
        }
    }
    EXPECT_GT(checked, 7000);
}

}  // namespace
}  // namespace vx::test
