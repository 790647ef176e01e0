// Polygons for the geometry tests: a mesh started for each test and polygons built from lists of
// points through the C interface.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include <vexor/bbox.h>
#include <vexor/mesh.h>
#include <vexor/polygon.h>
#include <vexor/vmap.h>

namespace vx::test {

using Point = std::array<double, 3>;

inline constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');
inline constexpr std::uint32_t kCurve = VX_CODE4('C', 'U', 'R', 'V');
inline constexpr std::uint32_t kText = VX_CODE4('T', 'E', 'X', 'T');

class PolygonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(MeshStartup(), 1);
        mesh_ = MeshCreate();
        ASSERT_NE(mesh_, nullptr);
    }
    void TearDown() override {
        MeshDestroy(mesh_);
        MeshShutdown();
    }

    std::vector<MeshVertex *> vertices(const std::vector<Point> &points) {
        std::vector<MeshVertex *> out;
        for (const Point &p : points) out.push_back(MeshNewVertex(mesh_, p.data()));
        return out;
    }
    MeshPolygon *polygon(const std::vector<Point> &points, std::uint32_t type = kFace) {
        const std::vector<MeshVertex *> v = vertices(points);
        return MeshNewPolygon(mesh_, type, static_cast<unsigned>(v.size()), v.data(), 0);
    }
    MeshPolygon *polygon_of(const std::vector<MeshVertex *> &v, std::uint32_t type = kFace) {
        return MeshNewPolygon(mesh_, type, static_cast<unsigned>(v.size()), v.data(), 0);
    }
    // Rotates a point list so that it starts at `first`.
    static std::vector<Point> rotated(std::vector<Point> points, std::size_t first) {
        std::vector<Point> out(points.begin() + static_cast<long>(first), points.end());
        out.insert(out.end(), points.begin(), points.begin() + static_cast<long>(first));
        return out;
    }
    static std::vector<Point> reversed(std::vector<Point> points) {
        return {points.rbegin(), points.rend()};
    }
    static AxisTest drop(int axis) {
        AxisTest test;
        AxisTestSet(&test, axis);
        return test;
    }

    Mesh *mesh_ = nullptr;
};

// The unit square in the XY plane, counter-clockwise seen from +Z: its left edge (last vertex
// to vertex 0) runs downward in y and its right edge upward.
inline const std::vector<Point> kUnitSquare = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
// An L-shaped hexagon whose vertex 0 is the inner (reflex) corner.
inline const std::vector<Point> kL = {{1, 1, 0}, {1, 2, 0}, {0, 2, 0},
                                      {0, 0, 0}, {2, 0, 0}, {2, 1, 0}};

using UVPoint = std::array<double, 2>;

// The distance from (x, y) to the segment a-b.
inline double segment_distance(const UVPoint &a, const UVPoint &b, double x, double y) {
    const double dx = b[0] - a[0], dy = b[1] - a[1];
    double t = ((x - a[0]) * dx + (y - a[1]) * dy) / (dx * dx + dy * dy);
    t = t < 0 ? 0 : (t > 1 ? 1 : t);
    return std::hypot(x - a[0] - t * dx, y - a[1] - t * dy);
}

// A winding number from the angles the edges of a closed loop subtend at (x, y): a notion of
// inside independent of the library's crossing rules.
inline int winding(const std::vector<UVPoint> &loop, double x, double y) {
    double turn = 0.0;
    for (std::size_t i = 0; i < loop.size(); ++i) {
        const UVPoint &a = loop[i], &b = loop[(i + 1) % loop.size()];
        turn += std::atan2((a[0] - x) * (b[1] - y) - (a[1] - y) * (b[0] - x),
                           (a[0] - x) * (b[0] - x) + (a[1] - y) * (b[1] - y));
    }
    return static_cast<int>(std::lround(turn / 6.283185307179586));
}

}  // namespace vx::test
