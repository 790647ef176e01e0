// The corner normal, the projection, orientation, convexity, centroid, tolerance and validity.
#include <cmath>

#include <vexor/mark.h>

#include "geometry/poly_fixture.h"

namespace vx::test {
namespace {

using PolygonShape = PolygonTest;

TEST_F(PolygonShape, TheNormalIsTheCornerNormalAtVertexZero) {
    // A quad folded along its diagonal 1-3: only vertices 0, 1 and 3 decide the normal.
    MeshPolygon *folded = polygon({{0, 0, 0}, {1, 0, 0}, {1, 1, 5}, {0, 1, 0}});
    double n[3];
    EXPECT_EQ(PolygonGetNormal(folded, n, nullptr), 1);
    EXPECT_EQ(n[0], 0.0);
    EXPECT_EQ(n[1], 0.0);
    EXPECT_EQ(n[2], 1.0);
    AxisTest test;
    EXPECT_EQ(PolygonSetTestAxis(nullptr, folded, &test), 1);
    EXPECT_EQ(test.axis, 2);

    // Vertex 0 on the segment from the last vertex to vertex 1: no normal, and the projection
    // falls back to the axis the polygon is thinnest along (here X: it stands in the YZ plane).
    MeshPolygon *flat = polygon({{0, 1, 0}, {0, 2, 0}, {0, 2, 3}, {0, 0, 0}});
    n[0] = n[1] = n[2] = 7.0;
    EXPECT_EQ(PolygonGetNormal(flat, n, mesh_), 0);
    EXPECT_EQ(n[0], 0.0);
    EXPECT_EQ(n[2], 0.0);
    EXPECT_EQ(PolygonSetTestAxis(mesh_, flat, &test), 0);
    EXPECT_EQ(test.axis, 0);
    EXPECT_EQ(PolygonFirstConvex(mesh_, flat), 0);
}

// Reflex or convex is read against the loop's own winding, so reversing the loop keeps the
// answer; only moving vertex 0 to another corner changes it.
TEST_F(PolygonShape, FirstCornerConvexityFollowsTheCornerNotTheWinding) {
    struct Row {
        std::size_t first;
        bool reverse;
        int convex;
    };
    for (const Row row : {Row{0, false, -1}, Row{0, true, -1}, Row{1, false, 1}, Row{3, true, 1}}) {
        std::vector<Point> points = rotated(kL, row.first);
        if (row.reverse) points = rotated(reversed(points), points.size() - 1);
        EXPECT_EQ(PolygonFirstConvex(nullptr, polygon(points)), row.convex)
            << row.first << " " << row.reverse;
    }
    // Stood up in the XZ plane (a mirror image, read with Y dropped) the same holds.
    std::vector<Point> standing;
    for (const Point &p : kL) standing.push_back({p[0], 0.0, p[1]});
    EXPECT_EQ(PolygonFirstConvex(nullptr, polygon(standing)), -1);
    EXPECT_EQ(PolygonFirstConvex(nullptr, polygon(rotated(standing, 1))), 1);
}

TEST_F(PolygonShape, OrientationCountsZeroAreaAsCounterClockwise) {
    const AxisTest z = drop(2);
    MeshPolygon *ccw = polygon(kUnitSquare);
    MeshPolygon *cw = polygon(reversed(kUnitSquare));
    MeshPolygon *line = polygon({{0, 0, 0}, {1, 1, 0}, {2, 2, 0}});
    EXPECT_EQ(PolygonOrientation(mesh_, ccw, &z), 1);
    EXPECT_EQ(PolygonOrientation(mesh_, cw, &z), 0);
    EXPECT_EQ(PolygonOrientation(mesh_, line, &z), 1);
    const AxisTest x = drop(0);  // seen along X the square is a line
    EXPECT_EQ(PolygonOrientation(mesh_, cw, &x), 1);

    std::vector<MeshVertex *> v = vertices(kUnitSquare);
    EXPECT_EQ(VertexListOrientation(&z, mesh_, 4, v.data()), 1);
    std::vector<MeshVertex *> back(v.rbegin(), v.rend());
    EXPECT_EQ(VertexListOrientation(&z, nullptr, 4, back.data()), 0);
    EXPECT_EQ(TriangleOrient(&z, v[0], v[1], v[2]), 1);
    EXPECT_EQ(TriangleOrient(&z, v[2], v[1], v[0]), 0);
    EXPECT_EQ(TriangleOrient(&z, v[0], v[0], v[2]), 1);
}

TEST_F(PolygonShape, IsConvexTestsEveryCornerOfAreaTypesOfFourOrMoreVertices) {
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon(kUnitSquare)), 1);
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon(kL)), 0);
    EXPECT_EQ(PolygonIsConvex(nullptr, polygon(rotated(kL, 2))), 0) << "wherever the reflex corner";
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon(kL, kCurve)), 1) << "curve-like types";
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})), 1);
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon({{0, 0, 0}, {0, 1, 0}, {1, 0, 0}})), 1)
        << "a triangle, whatever its vertices";
    // A collinear corner (vertex 1 on the bottom edge) counts as convex.
    EXPECT_EQ(
        PolygonIsConvex(mesh_, polygon({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}})),
        1);
    // A dart whose reflex corner is vertex 0, the last corner the walk reaches.
    EXPECT_EQ(PolygonIsConvex(mesh_, polygon({{1, 1, 0}, {2, 3, 0}, {0, 0, 0}, {3, 0, 0}})), 0);
}

// A non-null mesh supplies the positions: an instance that lays its own position map over its
// source's sees its own shape.
TEST_F(PolygonShape, AnInstancesOwnPositionsAreTheOnesTested) {
    std::vector<MeshVertex *> v = vertices(kUnitSquare);
    MeshPolygon *square = polygon_of(v);
    Mesh *instance = MeshCreateInstance(mesh_, 1);
    ASSERT_NE(instance, nullptr);
    VMap *moved = VMapCreate(instance, VX_CODE4('O', 'P', 'O', 'S'));
    ASSERT_NE(moved, nullptr);
    const float dent[3] = {0.25f, 0.25f, 0.0f};  // vertex 2 pushed in: an arrowhead
    ASSERT_NE(VMapSet(moved, v[2], dent), nullptr);

    double p[3];
    EXPECT_EQ(MeshVertexPos(instance, v[2], p), 1);
    EXPECT_EQ(p[0], 0.25);
    EXPECT_EQ(MeshVertexPos(nullptr, v[2], p), 1);
    EXPECT_EQ(p[0], 1.0);
    EXPECT_EQ(MeshVertexPos(instance, v[1], p), 1) << "values not laid over read through";
    EXPECT_EQ(p[0], 1.0);

    EXPECT_EQ(PolygonIsConvex(mesh_, square), 1);
    EXPECT_EQ(PolygonIsConvex(instance, square), 0);
    const AxisTest z = drop(2);
    const double corner[3] = {0.9, 0.8, 0.0};
    EXPECT_EQ(PolygonTestPos(nullptr, square, &z, corner), 1);
    EXPECT_EQ(PolygonTestPos(instance, square, &z, corner), 0);
    EXPECT_EQ(PolygonTestPosTol(instance, square, &z, corner, 1e-3), -1);
    double projected[3] = {7, 7, 7};
    const AxisTest y = drop(1);
    VertexTestAxisPos(&y, instance, v[2], projected);
    EXPECT_EQ(projected[0], 0.25);
    EXPECT_EQ(projected[1], 0.0);
    double centroid[3];
    EXPECT_EQ(PolygonGetCentroid(square, centroid, instance), 4u);
    EXPECT_DOUBLE_EQ(centroid[0], 0.3125);
    MeshDestroy(instance);
}

// Every function answers polygons of 0, 1 and 2 vertices (and a null polygon as one of none).
TEST_F(PolygonShape, PolygonsOfFewerThanThreeVerticesAreAnswered) {
    const std::vector<Point> points = {{0, 0, 0}, {0, 0, 3}};
    for (std::size_t count = 0; count <= 2; ++count) {
        const std::vector<Point> some(points.begin(), points.begin() + static_cast<long>(count));
        for (MeshPolygon *p : {polygon(some), static_cast<MeshPolygon *>(nullptr)}) {
            if (p == nullptr && count != 0) continue;
            SCOPED_TRACE(count);
            double n[3] = {7, 7, 7};
            EXPECT_EQ(PolygonGetNormal(p, n, nullptr), 0);
            EXPECT_EQ(n[0], 7.0) << "not written";
            AxisTest test;
            EXPECT_EQ(PolygonSetTestAxis(nullptr, p, &test), 0);
            EXPECT_EQ(test.axis, count == 2 ? 1 : 2) << "thinnest axis, ties to the higher";
            EXPECT_EQ(PolygonOrientation(nullptr, p, &test), 1);
            EXPECT_EQ(PolygonFirstConvex(mesh_, p), 0);
            EXPECT_EQ(PolygonIsConvex(mesh_, p), 1);
            const double at[3] = {0, 0, 0};
            EXPECT_EQ(PolygonTestPos(mesh_, p, &test, at), 0);
            EXPECT_EQ(PolygonTestPosTol(mesh_, p, &test, at, 1e-3), count == 0 ? -1 : 0);
            EXPECT_EQ(PolygonTestValidity(mesh_, p, 0), count == 0 ? POLYGON_BAD_COUNT : 0u);
            EXPECT_GE(PolygonGetTolerance(p, nullptr), 1e-9);
            double c[3];
            EXPECT_EQ(PolygonGetCentroid(p, c, nullptr), count);
            EXPECT_EQ(std::isnan(c[1]), count == 0) << "0 / 0 without vertices";
        }
    }
}

TEST_F(PolygonShape, ToleranceIsTheBoxToleranceOfThePolygonsBounds) {
    MeshPolygon *big = polygon({{10, 0, 0}, {30, 0, 0}, {30, 5, 0}});
    BBox box;
    const double lo[3] = {10, 0, 0}, hi[3] = {30, 5, 0};
    BBoxInit(&box, lo);
    BBoxExpand(&box, hi);
    BBoxSetExtent(&box);
    EXPECT_EQ(PolygonGetTolerance(big, mesh_), BBoxTolerance(&box));
    EXPECT_EQ(PolygonGetTolerance(big, nullptr), BBoxTolerance(&box));
}

TEST_F(PolygonShape, ValidityChecksCountsPerTypeAndAllowsOnlyKeyholesToRepeatVertices) {
    struct Count {
        const char *type;
        unsigned count;
        std::uint32_t result;
    };
    const Count counts[] = {{"SUBD", 2, 2}, {"SUBD", 3, 0}, {"PSUB", 256, 0}, {"PSUB", 257, 2},
                            {"SPCH", 4, 0}, {"SPCH", 5, 2}, {"SPCH", 2, 2},   {"FACE", 300, 0},
                            {"FACE", 1, 0}, {"CURV", 0, 2}};
    for (const Count &row : counts) {
        const std::uint32_t type = VX_CODE4(row.type[0], row.type[1], row.type[2], row.type[3]);
        std::vector<Point> ring;
        for (unsigned i = 0; i < row.count; ++i) {
            const double a = 6.283185307179586 * i / row.count;
            ring.push_back({std::cos(a), std::sin(a), 0});
        }
        EXPECT_EQ(PolygonTestValidity(mesh_, polygon(ring, type), 0x10), row.result)
            << row.type << " " << row.count;
    }

    // An outer square a b c d and a hole e f g h joined by the bridge a-e, travelled both ways.
    const std::vector<MeshVertex *> q = vertices(
        {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {1, 1, 0}, {1, 3, 0}, {3, 3, 0}, {3, 1, 0}});
    MeshVertex *a = q[0], *b = q[1], *c = q[2], *d = q[3], *e = q[4], *f = q[5], *g = q[6],
               *h = q[7];
    const std::vector<MeshVertex *> keyhole = {a, b, c, d, a, e, f, g, h, e};
    const std::vector<MeshVertex *> pinched = {a, b, c, a, f, g};  // two loops meeting at a
    MeshMarkVertex(h, 0x0004);
    EXPECT_EQ(PolygonTestValidity(mesh_, polygon_of(keyhole), 0x0004), 0u);
    for (MeshVertex *vertex : keyhole) EXPECT_EQ(MeshVertexMarks(vertex) & 0x4, 0x4u);
    EXPECT_EQ(PolygonTestValidity(mesh_, polygon_of(keyhole, kCurve), 0x0004), 1u);
    EXPECT_EQ(PolygonTestValidity(mesh_, polygon_of(pinched), 0x0004), 1u);
    EXPECT_EQ(PolygonTestValidity(mesh_, polygon_of(pinched), 0), 0u) << "without a bit: counts";
}

}  // namespace
}  // namespace vx::test
