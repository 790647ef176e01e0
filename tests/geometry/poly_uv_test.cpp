// Polygons in UV space: the point test, the three distances with their closest points, polygons
// without UVs, discontinuous UVs, curve-like types and text polygons.
#include <cmath>
#include <random>

#include "geometry/poly_fixture.h"

namespace vx::test {
namespace {

class PolygonUV : public PolygonTest {
  protected:
    void SetUp() override {
        PolygonTest::SetUp();
        uv_ = VMapCreate(mesh_, VX_CODE4('T', 'X', 'U', 'V'));
        ASSERT_NE(uv_, nullptr);
    }
    // A polygon whose corners carry the UVs (x, y) of the points.
    MeshPolygon *mapped(const std::vector<Point> &points, std::uint32_t type = kFace) {
        std::vector<MeshVertex *> v = vertices(points);
        for (std::size_t i = 0; i < v.size(); ++i) {
            const float uv[2] = {static_cast<float>(points[i][0]),
                                 static_cast<float>(points[i][1])};
            VMapSet(uv_, v[i], uv);
        }
        return polygon_of(v, type);
    }
    VMap *uv_ = nullptr;
};

TEST_F(PolygonUV, ThePointTestReadsEachCornersUVAsThePolygonSeesIt) {
    MeshPolygon *square = mapped(kUnitSquare);
    const double inside[2] = {0.5, 0.5}, right[2] = {1.25, 0.5};
    EXPECT_EQ(PolygonTestUVPos(uv_, square, inside), 1);
    EXPECT_EQ(PolygonTestUVPos(uv_, square, right), 0);
    // Corner 1 given a UV of its own on this polygon widens it to the right.
    const float wide[2] = {2.0f, 0.0f};
    ASSERT_NE(VMapPSet(uv_, MeshPolVrtByIndex(square, 1), square, wide), nullptr);
    EXPECT_EQ(PolygonTestUVPos(uv_, square, right), 1);
    EXPECT_EQ(PolygonTestUVPos(uv_, mapped(kUnitSquare, kCurve), inside), 0) << "curve-like";
}

TEST_F(PolygonUV, WithoutUVsTheTestsSayOutsideAndTheDistancesAreFarAndWriteNothing) {
    MeshPolygon *bare = polygon(kUnitSquare);
    VMap *weight = VMapCreate(mesh_, VX_CODE4('W', 'G', 'H', 'T'));
    const float one = 1.0f;
    VMapSet(weight, MeshPolVrtByIndex(bare, 0), &one);
    const double at[2] = {0.5, 0.5};
    for (const VMap *map : {static_cast<const VMap *>(uv_), static_cast<const VMap *>(weight),
                            static_cast<const VMap *>(nullptr)}) {
        double closest[2] = {-7, -7};
        EXPECT_EQ(PolygonTestUVPos(map, bare, at), 0);
        EXPECT_EQ(PolyEdgeDistanceUVPos(map, bare, 0, at, closest), 1e10);
        EXPECT_EQ(PolyVerxDistanceUVPos(map, bare, 0, at, closest), 1e10);
        EXPECT_EQ(PolygonDistanceUVPos(map, bare, at, closest), 1e10);
        EXPECT_EQ(closest[0], -7.0);
        EXPECT_EQ(closest[1], -7.0);
    }
}

TEST_F(PolygonUV, EdgeAndCornerDistancesTakeTheirIndexModuloTheCount) {
    MeshPolygon *square = mapped(kUnitSquare);
    struct Row {
        int index;
        double u, v;
        double edge, edge_u, edge_v;  // to edge `index`
        double corner;                // to corner `index`
    };
    const Row rows[] = {
        {0, 0.5, -1.0, 1.0, 0.5, 0.0, std::hypot(0.5, 1.0)},
        {0, 2.0, 0.0, 1.0, 1.0, 0.0, 2.0},
        {1, 3.0, 4.0, std::hypot(2.0, 3.0), 1.0, 1.0, std::hypot(2.0, 4.0)},
        {-1, -0.5, 0.5, 0.5, 0.0, 0.5, std::hypot(0.5, 0.5)},
        {7, 0.25, 0.5, 0.25, 0.0, 0.5, std::hypot(0.25, 0.5)},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.index);
        const double at[2] = {row.u, row.v};
        double closest[2];
        EXPECT_DOUBLE_EQ(PolyEdgeDistanceUVPos(uv_, square, row.index, at, closest), row.edge);
        EXPECT_DOUBLE_EQ(closest[0], row.edge_u);
        EXPECT_DOUBLE_EQ(closest[1], row.edge_v);
        EXPECT_DOUBLE_EQ(PolyVerxDistanceUVPos(uv_, square, row.index, at, closest), row.corner);
        const Point &corner = kUnitSquare[static_cast<std::size_t>((row.index % 4 + 4) % 4)];
        EXPECT_EQ(closest[0], corner[0]);
        EXPECT_EQ(closest[1], corner[1]);
        EXPECT_DOUBLE_EQ(PolyEdgeDistanceUVPos(uv_, square, row.index, at, nullptr), row.edge);
    }
}

TEST_F(PolygonUV, ThePolygonDistanceIsZeroInsideAreasAndTiesKeepTheFirstEdge) {
    MeshPolygon *square = mapped(kUnitSquare);
    MeshPolygon *loop = mapped(kUnitSquare, kCurve);
    struct Row {
        MeshPolygon *polygon;
        double u, v;
        double distance, cu, cv;
    };
    const Row rows[] = {
        {square, 0.5, 0.25, 0.0, 0.5, 0.25},  // inside: the position itself
        {square, 1.5, 0.5, 0.5, 1.0, 0.5},    // outside: the nearest edge point
        {square, 2.0, 2.0, std::sqrt(2.0), 1.0, 1.0},
        {loop, 0.5, 0.25, 0.25, 0.5, 0.0},  // a curve encloses nothing
        {loop, 0.5, 0.5, 0.5, 0.0, 0.5},    // four equal edges: the closing one comes first
    };
    for (const Row &row : rows) {
        const double at[2] = {row.u, row.v};
        double closest[2];
        EXPECT_DOUBLE_EQ(PolygonDistanceUVPos(uv_, row.polygon, at, closest), row.distance);
        EXPECT_DOUBLE_EQ(closest[0], row.cu) << row.u << " " << row.v;
        EXPECT_DOUBLE_EQ(closest[1], row.cv) << row.u << " " << row.v;
    }
}

TEST_F(PolygonUV, TheFloatFormsAnswerAsTheDoubleForms) {
    MeshPolygon *shape = mapped(kL);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> coordinate(-0.5f, 2.5f);
    for (int k = 0; k < 500; ++k) {
        const float f[2] = {coordinate(random), coordinate(random)};
        const double d[2] = {f[0], f[1]};
        EXPECT_EQ(PolygonTestUVPosF(uv_, shape, f), PolygonTestUVPos(uv_, shape, d));
        float cf[2];
        double cd[2];
        EXPECT_EQ(PolygonDistanceUVPosF(uv_, shape, f, cf),
                  PolygonDistanceUVPos(uv_, shape, d, cd));
        EXPECT_EQ(cf[0], static_cast<float>(cd[0]));
        EXPECT_EQ(PolyEdgeDistanceUVPosF(uv_, shape, k, f, cf),
                  PolyEdgeDistanceUVPos(uv_, shape, k, d, cd));
        EXPECT_EQ(cf[1], static_cast<float>(cd[1]));
        EXPECT_EQ(PolyVerxDistanceUVPosF(uv_, shape, k, f, cf),
                  PolyVerxDistanceUVPos(uv_, shape, k, d, cd));
    }
}

// A glyph cell: inside means strictly inside a triangle of its fan, so the diagonal shared by
// the two triangles of a quad cell is outside.
TEST_F(PolygonUV, TextPolygonsAreTestedOnTheTrianglesOfTheirGlyphCell) {
    MeshPolygon *cell = mapped({{0.25, 0.5, 0}, {0.75, 0.5, 0}, {0.75, 1, 0}, {0.25, 1, 0}}, kText);
    float corners[4][2];
    ASSERT_EQ(TEXTGetUVCorners(uv_, cell, corners), 1);
    EXPECT_EQ(corners[0][0], 0.25f);
    EXPECT_EQ(corners[0][1], 0.5f);
    EXPECT_EQ(corners[2][0], 0.75f);
    EXPECT_EQ(corners[2][1], 1.0f);
    EXPECT_EQ(TEXTGetUVCorners(uv_, mapped(kUnitSquare), corners), 0) << "not text";
    EXPECT_EQ(TEXTGetUVCorners(uv_, polygon(kUnitSquare, kText), corners), 0) << "no UVs";

    const double inside[2] = {0.375, 0.75}, diagonal[2] = {0.4375, 0.6875}, edge[2] = {0.25, 0.75},
                 out[2] = {1.0, 0.75};
    EXPECT_EQ(PolygonTestUVPos(uv_, cell, inside), 1);
    EXPECT_EQ(PolygonTestUVPos(uv_, cell, diagonal), 0);
    EXPECT_EQ(PolygonTestUVPos(uv_, cell, edge), 0);
    EXPECT_EQ(PolygonTestUVPos(uv_, cell, out), 0);
    double closest[2];
    EXPECT_EQ(PolygonDistanceUVPos(uv_, cell, inside, closest), 0.0);
    // As near to the bottom edge as to the left one: the run of corners starts at corner 0,
    // so the bottom edge (0 to 1) is met first.
    EXPECT_EQ(PolygonDistanceUVPos(uv_, cell, diagonal, closest), 0.1875);
    EXPECT_EQ(closest[0], 0.4375);
    EXPECT_EQ(closest[1], 0.5);
    EXPECT_DOUBLE_EQ(PolygonDistanceUVPos(uv_, cell, out, closest), 0.25);
}

}  // namespace
}  // namespace vx::test
