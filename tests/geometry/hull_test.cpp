// Convex hulls: the duplicate rule, the pivot and ray rules, the projection of 3D points, the
// major axis and its candidates, the mesh helpers, random point sets against an independent
// hull, and failed allocations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <vexor/hull.h>
#include <vexor/mesh.h>
#include <vexor/vmap.h>

#include "geometry/poly_fixture.h"
#include "support/alloc_injection.h"
#include "support/atomicity.h"

namespace {

using UV = std::pair<double, double>;

struct HullDeleter {
    void operator()(ConvexHull *hull) const { ConvexHullDestroy(hull); }
};
using Hull = std::unique_ptr<ConvexHull, HullDeleter>;

Hull hull_of(const std::vector<UV> &points) {
    Hull hull(ConvexHullCreate());
    ConvexHullStart(hull.get());
    for (std::size_t i = 0; i < points.size(); ++i)
        ConvexHullAppend(hull.get(), points[i].first, points[i].second, i);
    return hull;
}

Hull hull_of_positions(const std::vector<vx::test::Point> &points) {
    Hull hull(ConvexHullCreate());
    ConvexHullStart(hull.get());
    for (const auto &p : points) ConvexHullAppendPos(hull.get(), p.data(), 0);
    return hull;
}

std::vector<UV> list_of(const ConvexHull *hull) {
    std::vector<UV> out;
    double uv[2];
    for (unsigned i = 0; ConvexHullGetVertex(hull, i, uv, nullptr) != 0; ++i)
        out.emplace_back(uv[0], uv[1]);
    return out;
}

TEST(ConvexHull, AppendsFollowTheDuplicateRule) {
    Hull hull(ConvexHullCreate());
    ASSERT_NE(hull, nullptr);
    EXPECT_EQ(ConvexHullAppend(hull.get(), 1, 1, 0), -1);  // not started
    ConvexHullStart(hull.get());
    EXPECT_EQ(ConvexHullAppend(hull.get(), 1, 1, 0), 0);
    EXPECT_EQ(ConvexHullAppend(hull.get(), 1, 1, 0), 1);
    EXPECT_EQ(ConvexHullAppend(hull.get(), 1 + 1e-12, 1, 0), 1);  // the same float
    EXPECT_EQ(ConvexHullAppend(hull.get(), 0.0, 2, 0), 0);
    EXPECT_EQ(ConvexHullAppend(hull.get(), -0.0, 2, 0), 1);
    const double same_as_2d[3] = {1, 1, 0};
    EXPECT_EQ(ConvexHullAppendPos(hull.get(), same_as_2d, 0), 1);
    EXPECT_EQ(ConvexHullAppend(hull.get(), NAN, 2, 0), -1);
    EXPECT_EQ(ConvexHullPointCount(hull.get()), 2u);
    EXPECT_EQ(ConvexHullDone(hull.get()), 1);
    EXPECT_EQ(ConvexHullAppend(hull.get(), 5, 5, 0), -1);  // done: start again first
}

TEST(ConvexHull, KeepsCornersOnlyAndListsThemClockwiseEndingAtThePivot) {
    struct Case {
        const char *name;
        std::vector<UV> points;
        std::vector<UV> list;  // expected hull list, first element first
    };
    const std::vector<Case> cases = {
        {"square and centre",
         {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0.5, 0.5}},
         {{0, 0}, {0, 1}, {1, 1}, {1, 0}}},
        {"with edge midpoints",
         {{0.5, 0}, {0, 0}, {1, 0.5}, {1, 0}, {0.5, 0.5}, {1, 1}, {0.5, 1}, {0, 1}, {0, 0.5}},
         {{0, 0}, {0, 1}, {1, 1}, {1, 0}}},
        {"pivot: largest u of the lowest", {{0, 0}, {2, 0}, {1, 1}}, {{0, 0}, {1, 1}, {2, 0}}},
        {"one ray keeps the farthest",
         {{0, 0}, {1, 1}, {3, 3}, {2, 2}, {-1, 2}},
         {{-1, 2}, {3, 3}, {0, 0}}},
        {"points on one line", {{2, 2}, {0, 0}, {1, 1}, {3, 3}}, {{3, 3}, {0, 0}}},
        {"two points", {{4, 1}, {0, 3}}, {{0, 3}, {4, 1}}},
    };
    for (const Case &c : cases) {
        Hull hull = hull_of(c.points);
        ASSERT_EQ(ConvexHullDone(hull.get()), 1) << c.name;
        EXPECT_EQ(list_of(hull.get()), c.list) << c.name;
    }
    Hull same = hull_of({{1, 1}, {1, 1}, {1, 1}});
    EXPECT_EQ(ConvexHullDone(same.get()), 0);
    EXPECT_EQ(ConvexHullVertexCount(same.get()), 0u);
}

TEST(ConvexHull, Projects3DPointsAlongTheirPlaneOrTheirDirection) {
    struct Case {
        const char *name;
        std::vector<vx::test::Point> points;
        int axis;
        unsigned vertices;
    };
    const std::vector<Case> cases = {
        {"plane x = 5", {{5, 0, 0}, {5, 2, 0}, {5, 2, 3}, {5, 0, 3}, {5, 1, 1}}, 0, 4},
        {"plane y = -1", {{0, -1, 0}, {3, -1, 0}, {0, -1, 3}}, 1, 3},
        {"two points along x", {{0, 7, 7}, {4, 8, 7}}, 0, 2},
        {"three on a line", {{0, 0, 0}, {1, 1, 0}, {2, 2, 0}}, 2, 2},
    };
    for (const Case &c : cases) {
        Hull hull = hull_of_positions(c.points);
        ASSERT_EQ(ConvexHullDone(hull.get()), 1) << c.name;
        AxisTest test;
        ConvexHullGetAxisTest(hull.get(), &test);
        EXPECT_EQ(test.axis, c.axis) << c.name;
        EXPECT_EQ(ConvexHullVertexCount(hull.get()), c.vertices) << c.name;
    }
}

TEST(ConvexHull, MajorAxisOfTwoPointsThinRectanglesAndDegenerateHulls) {
    double cu, cv, au, av, length, width;
    Hull two = hull_of({{4, 1}, {0, 3}});
    ConvexHullDone(two.get());
    ASSERT_EQ(ConvexHullMajorAxis(two.get(), &cu, &cv, &au, &av, &length, &width), 1);
    // From the list's first element towards the second, the pivot: not turned to positive v.
    EXPECT_DOUBLE_EQ(length, std::sqrt(20.0));
    EXPECT_DOUBLE_EQ(au, 4 / length);
    EXPECT_DOUBLE_EQ(av, -2 / length);
    EXPECT_EQ(width, 0.0);
    EXPECT_EQ(cu, 2.0);

    // A thin rectangle turned 30 degrees: the long side is the length.
    const double c = std::cos(M_PI / 6), s = std::sin(M_PI / 6);
    std::vector<UV> rect;
    for (const UV &p : std::vector<UV>{{-5, -0.5}, {5, -0.5}, {5, 0.5}, {-5, 0.5}})
        rect.emplace_back(10 + c * p.first - s * p.second, 20 + s * p.first + c * p.second);
    Hull thin = hull_of(rect);
    ConvexHullDone(thin.get());
    ASSERT_EQ(ConvexHullMajorAxis(thin.get(), &cu, &cv, &au, &av, &length, &width), 1);
    EXPECT_NEAR(length, 10.0, 1e-12);
    EXPECT_NEAR(width, 1.0, 1e-12);
    EXPECT_NEAR(std::fabs(au * c + av * s), 1.0, 1e-12);
    EXPECT_NEAR(cu, 10.0, 1e-12);
    EXPECT_NEAR(cv, 20.0, 1e-12);

    // Two 3D points that project to one place have no axis: nothing is written.
    Hull coincident = hull_of_positions({{1, 2, 0}, {1, 2, 5}});
    ASSERT_EQ(ConvexHullDone(coincident.get()), 1);
    length = -1.0;
    EXPECT_EQ(
        ConvexHullMajorAxis(coincident.get(), nullptr, nullptr, nullptr, nullptr, &length, nullptr),
        0);
    EXPECT_EQ(length, -1.0);
}

TEST(ConvexHull, EdgeCandidatesBeatTheDiameterOnSquares) {
    // A square's diagonal rectangle has twice the area of the square: an edge wins, its sides the
    // square's.
    Hull square = hull_of({{0, 0}, {2, 0}, {2, 2}, {0, 2}, {1, 1}});
    ConvexHullDone(square.get());
    double cu, cv, au, av, length, width;
    ASSERT_EQ(ConvexHullMajorAxis(square.get(), &cu, &cv, &au, &av, &length, &width), 1);
    EXPECT_NEAR(length * width, 4.0, 1e-12);
    EXPECT_NEAR(std::fabs(au * av), 0.0, 1e-12);
    EXPECT_NEAR(cu, 1.0, 1e-12);
    EXPECT_NEAR(cv, 1.0, 1e-12);
    BBox box;
    EXPECT_EQ(ConvexHullGetBBox(square.get(), &box), 4u);
    EXPECT_EQ(box.extent[0], 2.0);
    EXPECT_EQ(box.extent[2], 0.0);
}

// An independent hull (Andrew's monotone chain with exact integer turns) for the random test.
std::set<UV> monotone_chain(std::vector<std::pair<long, long>> p) {
    std::sort(p.begin(), p.end());
    p.erase(std::unique(p.begin(), p.end()), p.end());
    if (p.size() < 3) {
        std::set<UV> few;
        for (const auto &q : p) few.emplace(q.first, q.second);
        return few;
    }
    auto turn = [](std::pair<long, long> o, std::pair<long, long> a, std::pair<long, long> b) {
        return (a.first - o.first) * (b.second - o.second) -
               (a.second - o.second) * (b.first - o.first);
    };
    std::vector<std::pair<long, long>> h(2 * p.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && turn(h[k - 2], h[k - 1], p[i]) <= 0) --k;
        h[k++] = p[i];
    }
    for (std::size_t i = p.size() - 1, t = k + 1; i > 0; --i) {
        while (k >= t && turn(h[k - 2], h[k - 1], p[i - 1]) <= 0) --k;
        h[k++] = p[i - 1];
    }
    std::set<UV> out;
    for (std::size_t i = 0; i + 1 < k; ++i) out.emplace(h[i].first, h[i].second);
    return out;
}

TEST(ConvexHull, RandomPointSetsMatchAnIndependentHull) {
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        const int count = 2 + static_cast<int>(random() % 60);
        const unsigned long range = 2 + random() % 30;  // small grids: many collinear points
        std::vector<std::pair<long, long>> grid;
        std::vector<UV> points;
        for (int i = 0; i < count; ++i) {
            grid.emplace_back(static_cast<long>(random() % range),
                              static_cast<long>(random() % range));
            points.emplace_back(grid.back().first, grid.back().second);
        }
        Hull hull = hull_of(points);
        const int built = ConvexHullDone(hull.get());
        const std::set<UV> expected = monotone_chain(grid);
        if (expected.size() < 2) {
            ASSERT_EQ(built, 0);
            continue;
        }
        const std::vector<UV> list = list_of(hull.get());
        ASSERT_EQ(std::set<UV>(list.begin(), list.end()), expected) << "round " << round;
        // Clockwise and strictly convex: every input point is inside or on each edge.
        for (std::size_t i = 0; list.size() > 2 && i < list.size(); ++i) {
            const UV &a = list[i], &b = list[(i + 1) % list.size()];
            for (const UV &p : points)
                ASSERT_LE((b.first - a.first) * (p.second - a.second) -
                              (b.second - a.second) * (p.first - a.first),
                          0.0)
                    << "round " << round;
        }
    }
}

using MeshHulls = vx::test::PolygonTest;

TEST_F(MeshHulls, VerticesPolygonsAndPlanes) {
    // A 4 x 1 rectangle tilted 30 degrees about X, with a point inside.
    const double c = std::cos(M_PI / 6), s = std::sin(M_PI / 6);
    auto v = vertices({{0, 0, 0}, {4, 0, 0}, {4, c, s}, {0, c, s}, {2, c / 2, s / 2}});
    AxisTest test;
    AxisTestSet(&test, 2);
    Hull hull(ConvexHullFromVertices(&test, mesh_, 5, v.data()));
    ASSERT_NE(hull, nullptr);
    EXPECT_EQ(ConvexHullVertexCount(hull.get()), 4u);
    uint64_t client = 0;
    ConvexHullGetVertex(hull.get(), 3, nullptr, &client);
    EXPECT_EQ(client, reinterpret_cast<uint64_t>(v[1]));  // the pivot: lowest, then rightmost
    MeshPolygon *polygon = MeshNewPolygon(mesh_, VX_CODE4('F', 'A', 'C', 'E'), 4, v.data(), 0);
    double centre[3], axis[3], length = 0, width = 0;
    ASSERT_EQ(ConvexHullPolygonAxis(mesh_, polygon, centre, axis, &length, &width), 1);
    EXPECT_NEAR(length, 4.0, 1e-6);
    EXPECT_NEAR(width, 1.0, 1e-6);
    EXPECT_NEAR(std::fabs(axis[0]), 1.0, 1e-6);
    EXPECT_NEAR(centre[1], c / 2, 1e-6);
    EXPECT_NEAR(centre[2], s / 2, 1e-6);

    double normal[3];
    EXPECT_EQ(PlaneFitFromVertices(mesh_, 5, v.data(), centre, normal), 1);
    EXPECT_NEAR(normal[1], -s, 1e-6);
    EXPECT_NEAR(normal[2], c, 1e-6);
    EXPECT_EQ(PlaneFitFromVertices(mesh_, 2, v.data(), centre, normal), 1);
    EXPECT_EQ(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2], 0.0);
}

TEST_F(MeshHulls, UVAxesFallBackToTheBoxOfFewUVs) {
    auto v = vertices({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    MeshPolygon *polygon = MeshNewPolygon(mesh_, VX_CODE4('F', 'A', 'C', 'E'), 3, v.data(), 0);
    VMap *uv = VMapCreate(mesh_, VX_CODE4('T', 'X', 'U', 'V'));
    const float a[2] = {0.5f, 0.25f}, b[2] = {4.5f, 0.25f}, c[2] = {2.5f, 1.25f};
    VMapSet(uv, v[0], a);
    double cu, cv, au, av, length, width;
    ASSERT_EQ(ConvexHullUVPolygonAxis(uv, polygon, &cu, &cv, &au, &av, &length, &width), 1);
    EXPECT_EQ(std::vector<double>({cu, cv, au, av, length, width}),
              std::vector<double>({0.5, 0.25, 1, 0, 0, 0}));
    VMapSet(uv, v[1], b);
    VMapSet(uv, v[2], c);
    // The diameter's rectangle: centred on the diameter's midpoint, as wide as the apex is high.
    ASSERT_EQ(ConvexHullUVPolygonAxis(uv, polygon, &cu, &cv, &au, &av, &length, &width), 1);
    EXPECT_EQ(std::vector<double>({cu, cv, au, av, length, width}),
              std::vector<double>({2.5, 0.25, 1, 0, 4, 1}));
}

// Allocation failures: a failed append adds nothing, a failed ConvexHullDone loses no point.
class HullTarget : public vx::test::AtomicityTarget {
  public:
    HullTarget(int points, bool done) : done_(done), hull_(ConvexHullCreate()) {
        ConvexHullStart(hull_.get());
        for (int i = 0; i < points; ++i)
            ConvexHullAppend(hull_.get(), std::cos(i * 0.7) * i, std::sin(i * 0.7) * i,
                             static_cast<uint64_t>(i));
    }
    std::string snapshot() override {
        std::string out = std::to_string(ConvexHullPointCount(hull_.get())) + ":";
        for (const UV &p : list_of(hull_.get()))
            out += std::to_string(p.first) + "," + std::to_string(p.second) + ";";
        return out;
    }
    bool edit() override {
        return done_ ? ConvexHullDone(hull_.get()) == 1
                     : ConvexHullAppend(hull_.get(), 1e3, -1e3, 99) == 0;
    }

  private:
    bool done_;
    Hull hull_;
};

TEST(ConvexHull, FailedAllocationsAddAndLoseNothing) {
    for (const int points : {0, 1, 15, 16, 31, 32, 200}) {
        vx::test::check_atomicity("ConvexHullAppend after " + std::to_string(points),
                                  [=] { return std::make_unique<HullTarget>(points, false); });
    }
    for (const int points : {2, 3, 50}) {
        vx::test::check_atomicity("ConvexHullDone of " + std::to_string(points),
                                  [=] { return std::make_unique<HullTarget>(points, true); });
    }
}

}  // namespace
