// The subdivision surface against OpenSubdiv's own limit evaluation, and the answers for input
// that makes no surface.
#include "subd/subd_fixture.h"

namespace vx::test {
namespace {

class Surface : public SubdTest {};

void expect_corners_match(const Shape &shape, bool linear_uv) {
    SCOPED_TRACE(linear_uv ? "linear UVs" : "smoothed UVs");
    BuiltShape b = build(shape);
    SUBDSetLinearUV(b.mesh, linear_uv ? 1 : 0);
    const Reference ref = reference(shape, linear_uv);
    std::size_t at = 0;
    for (std::size_t f = 0; f < shape.faces.size(); ++f) {
        for (std::size_t c = 0; c < shape.faces[f].size(); ++c, ++at) {
            float p[3], uv[3];
            ASSERT_EQ(SUBDGetCorner(b.mesh, b.vertices[std::size_t(shape.faces[f][c])], p), 1);
            ASSERT_EQ(SUBDGetUVCorner(b.mesh, b.uv, b.polygons[f], unsigned(c), uv), 1);
            float first_map[3];  // no map given: the mesh's first, here its only one
            ASSERT_EQ(SUBDGetUVCorner(b.mesh, nullptr, b.polygons[f], unsigned(c), first_map), 1);
            EXPECT_EQ(first_map[0], uv[0]);
            for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(p[k], ref.corner_points[at][k], 1e-5);
            EXPECT_NEAR(uv[0], ref.corner_uvs[at][0], 1e-5) << "face " << f << " corner " << c;
            EXPECT_NEAR(uv[1], ref.corner_uvs[at][1], 1e-5) << "face " << f << " corner " << c;
            EXPECT_EQ(uv[2], 0.0f);
        }
    }
    MeshDestroy(b.mesh);
}

TEST_F(Surface, CornersAgreeWithOpenSubdivLimitEvaluation) {
    for (const Shape &shape : {cube(), mixed()}) {
        expect_corners_match(shape, false);
        expect_corners_match(shape, true);
    }
}

TEST_F(Surface, ACubeCornerHasTheLimitOfValenceThreeAndAnEditRebuildsTheSurface) {
    BuiltShape b = build(cube());
    float before[3], after[3];
    ASSERT_EQ(SUBDGetCorner(b.mesh, b.vertices[6], before), 1);
    // A corner of valence 3: (9 v + 4 (edge ends) + (face opposites)) / 24, a quarter of the
    // way in from (1, 1, 1).
    for (float x : before) EXPECT_NEAR(x, 0.75f, 1e-6);
    const double moved[3] = {2, 2, 2};
    MeshVertexSet(b.mesh, b.vertices[6], moved);
    ASSERT_EQ(SUBDGetCorner(b.mesh, b.vertices[6], after), 1);
    EXPECT_GT(after[0], before[0] + 0.3f);
    MeshDestroy(b.mesh);
}

TEST_F(Surface, InputThatMakesNoSurfaceIsAnsweredWithZero) {
    Mesh *mesh = MeshCreate();
    std::vector<MeshVertex *> v;
    for (int i = 0; i < 5; ++i) {
        const double p[3] = {double(i), double(i * i % 3), 0};
        v.push_back(MeshNewVertex(mesh, p));
    }
    MeshPolygon *one = MeshNewPolygon(mesh, kSubd, 1, v.data(), 0);
    MeshPolygon *two = MeshNewPolygon(mesh, kSubd, 2, v.data(), 0);
    MeshVertex *repeated_vs[4] = {v[0], v[1], v[1], v[2]};
    MeshPolygon *repeated = MeshNewPolygon(mesh, kSubd, 4, repeated_vs, 0);
    MeshPolygon *face = MeshNewPolygon(mesh, VX_CODE4('F', 'A', 'C', 'E'), 3, v.data() + 2, 0);
    VMap *uv = VMapCreate(mesh, kTexture);
    float out[3];
    // No SUBD polygon takes part: no corner, no UV corner; the levels still work.
    EXPECT_EQ(SUBDGetCorner(mesh, v[0], out), 0);
    EXPECT_EQ(SUBDGetCorner(mesh, v[4], out), 0);
    for (MeshPolygon *p : {one, two, repeated, face}) {
        EXPECT_EQ(SUBDGetUVCorner(mesh, uv, p, 0, out), 0);
        EXPECT_EQ(outline(mesh, uv, p).size(), 2u * MeshNumVrtInPol(p));
    }
    EXPECT_EQ(SUBDSetLevel(mesh, 3), 3);
    EXPECT_EQ(SUBDGetLevel(mesh), 3);
    // A proper face beside them makes a surface of its own.
    MeshPolygon *good = MeshNewPolygon(mesh, kSubd, 3, v.data() + 1, 0);
    EXPECT_EQ(SUBDGetCorner(mesh, v[2], out), 1);
    EXPECT_EQ(SUBDGetUVCorner(mesh, uv, good, 0, out), 0) << "the map has no values for it";
    EXPECT_EQ(SUBDGetUVCorner(mesh, uv, good, 3, out), 0);
    EXPECT_EQ(SUBDGetCorner(mesh, nullptr, out), 0);
    EXPECT_EQ(SUBDGetCorner(nullptr, v[2], out), 0);
    MeshDestroy(mesh);
}

TEST_F(Surface, NonManifoldEdgesAreRefinedNotRefused) {
    // Three quads around one edge, and a fourth face touching the fan at a single vertex.
    Shape s;
    s.points = {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}, {-1, 0, 0}, {-1, 1, 0},
                {0, 0, 1}, {0, 1, 1}, {2, 1, 0}, {2, 2, 0}, {1, 2, 0}};
    s.faces = {{0, 2, 3, 1}, {0, 1, 5, 4}, {0, 6, 7, 1}, {3, 8, 9, 10}};
    BuiltShape b = build(s);
    for (int level = 1; level <= 3; ++level) {
        SUBDSetLevel(b.mesh, level);
        float p[3];
        for (MeshVertex *v : b.vertices) EXPECT_EQ(SUBDGetCorner(b.mesh, v, p), 1);
        EXPECT_EQ(outline(b.mesh, nullptr, b.polygons[2]).size(), 3u * (4u << level));
    }
    MeshDestroy(b.mesh);
}

}  // namespace
}  // namespace vx::test
