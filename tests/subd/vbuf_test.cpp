// Polygon vertex buffers: outlines along the subdivided boundary, corners for other polygons,
// fan triangles, and the attribute buffer's lifetime.
#include "subd/subd_fixture.h"

#include <cmath>

namespace vx::test {
namespace {

class VBuf : public SubdTest {};

// A lone polygon's boundary is straight (its corners stay sharp), so its outline at level L
// divides every edge into 2^L equal steps, corner k at sample k * 2^L.
TEST_F(VBuf, ALonePolygonsOutlineStepsEvenlyAlongItsEdges) {
    for (int n = 3; n <= 6; ++n) {
        Shape s;
        s.faces.push_back({});
        s.uvs.push_back({});
        for (int i = 0; i < n; ++i) {
            const float a = 6.2831853f * float(i) / float(n);
            s.points.push_back({std::cos(a), std::sin(a), 0.0f});
            s.faces[0].push_back(i);
            s.uvs[0].push_back({0.5f + 0.5f * std::cos(a), 0.5f + 0.5f * std::sin(a)});
        }
        BuiltShape b = build(s);
        for (int level = 1; level <= 3; ++level) {
            SCOPED_TRACE(testing::Message() << n << " corners, level " << level);
            SUBDSetLevel(b.mesh, level);
            const std::vector<float> uv = outline(b.mesh, b.uv, b.polygons[0]);
            const std::vector<float> xyz = outline(b.mesh, nullptr, b.polygons[0]);
            const std::size_t steps = std::size_t{1} << level;
            ASSERT_EQ(uv.size(), 2 * steps * std::size_t(n));
            ASSERT_EQ(xyz.size(), 3 * steps * std::size_t(n));
            for (std::size_t i = 0; i < steps * std::size_t(n); ++i) {
                const std::size_t e = i / steps, next = (e + 1) % std::size_t(n);
                const float t = float(i % steps) / float(steps);
                for (std::size_t k = 0; k < 2; ++k) {
                    const float a = s.uvs[0][e][k], c = s.uvs[0][next][k];
                    EXPECT_NEAR(uv[2 * i + k], a + (c - a) * t, 1e-5) << "sample " << i;
                    const float pa = s.points[e][k], pc = s.points[next][k];
                    EXPECT_NEAR(xyz[3 * i + k], pa + (pc - pa) * t, 1e-5) << "sample " << i;
                }
            }
        }
        MeshDestroy(b.mesh);
    }
}

// Where the map is continuous and its values are the positions' x and y, the smoothed UV
// outline is the x and y of the refined boundary.
TEST_F(VBuf, ContinuousUVsFollowTheRefinedSurface) {
    const Shape s = mixed();
    BuiltShape b = build(s);
    for (int level : {1, 3}) {
        for (MeshPolygon *polygon : b.polygons) {
            const std::vector<float> uv = outline(b.mesh, b.uv, polygon, level);
            const std::vector<float> xyz = outline(b.mesh, nullptr, polygon, level);
            ASSERT_EQ(uv.size(), 2 * (MeshNumVrtInPol(polygon) << level));
            ASSERT_EQ(xyz.size() / 3, uv.size() / 2);
            for (std::size_t i = 0; i < uv.size() / 2; ++i) {
                EXPECT_NEAR(uv[2 * i], xyz[3 * i], 1e-4);
                EXPECT_NEAR(uv[2 * i + 1], xyz[3 * i + 1], 1e-4);
            }
        }
    }
    MeshDestroy(b.mesh);
}

double shoelace(const float *xyz, std::size_t count) {
    double area = 0.0;
    for (std::size_t k = 0; k < count; ++k) {
        const float *a = xyz + 3 * k, *c = xyz + 3 * ((k + 1) % count);
        area += 0.5 * (double{a[0]} * double{c[1]} - double{c[0]} * double{a[1]});
    }
    return area;
}

// A flat surface's refined quads of a polygon tile the region its refined outline encloses.
TEST_F(VBuf, TheQuadsOfAPolygonTileItsOutline) {
    Shape s;
    s.points = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 2, 0}, {0, 1, 0}, {3, 0, 0}, {3, 1, 0}};
    s.faces = {{0, 1, 2, 3, 4}, {1, 5, 6, 2}};
    BuiltShape b = build(s);
    for (int level = 1; level <= 3; ++level) {
        SUBDSetLevel(b.mesh, level);
        for (std::size_t f = 0; f < 2; ++f) {
            PolyVBuf *buffer = PolyVBufCreate(b.mesh, nullptr, PVBUF_QUADS);
            const unsigned samples = fill(buffer, b.polygons[f]);
            EXPECT_EQ(samples, s.faces[f].size() << (2 * level));
            const std::vector<float> quads = values_of(PolyVBufAttributes(buffer));
            ASSERT_EQ(quads.size(), 3u * samples);
            double area = 0.0;
            for (unsigned q = 0; q + 3 < samples; q += 4) {
                const double quad = shoelace(quads.data() + 3 * q, 4);
                EXPECT_GT(quad, 0.0);
                area += quad;
            }
            PolyVBufDestroy(buffer);
            const std::vector<float> loop = outline(b.mesh, nullptr, b.polygons[f]);
            EXPECT_NEAR(area, shoelace(loop.data(), loop.size() / 3), 1e-4)
                << "face " << f << " level " << level;
        }
    }
    MeshDestroy(b.mesh);
}

TEST_F(VBuf, LinearUVsCageModeAndLevelZeroGiveTheCorners) {
    BuiltShape b = build(cube());
    MeshPolygon *face = b.polygons[2];
    const auto corners_only = [&] {
        const std::vector<float> uv = outline(b.mesh, b.uv, face);
        ASSERT_EQ(uv.size(), 8u);
        for (std::size_t c = 0; c < 4; ++c) {
            EXPECT_EQ(uv[2 * c], cube().uvs[2][c][0]);
            EXPECT_EQ(uv[2 * c + 1], cube().uvs[2][c][1]);
        }
    };
    EXPECT_EQ(outline(b.mesh, b.uv, face).size(), 2u * 4u * 4u);  // level 2
    EXPECT_EQ(outline(b.mesh, b.uv, face, 0).size(), 8u);
    SUBDSetLinearUV(b.mesh, 1);
    corners_only();
    EXPECT_EQ(outline(b.mesh, nullptr, face).size(), 3u * 4u * 4u);  // positions still smooth
    SUBDSetLinearUV(b.mesh, 0);
    SUBDSetCageMode(b.mesh, 1);
    corners_only();
    MeshDestroy(b.mesh);
}

TEST_F(VBuf, TrianglesFanOverTheCornersAndBuffersCheckTheirArguments) {
    BuiltShape b = build(mixed(), VX_CODE4('T', 'E', 'X', 'T'));
    MeshPolygon *pentagon = b.polygons.back();
    PolyVBuf *buffer = PolyVBufCreate(b.mesh, b.uv, PVBUF_TRIANGLES);
    ASSERT_NE(buffer, nullptr);
    PolyVBufResetCount(buffer);
    EXPECT_EQ(PolyVBufCountPoly(buffer, pentagon), 1);
    EXPECT_EQ(PolyVBufCountPoly(buffer, b.polygons[0]), 1);
    ASSERT_EQ(PolyVBufAllocate(buffer), 1);
    PolyVBufResetCount(buffer);
    EXPECT_EQ(PolyVBufGenPoly(buffer, pentagon), 5u);
    EXPECT_EQ(PolyVBufGenPoly(buffer, b.polygons[0]), 4u);
    EXPECT_EQ(PolyVBufGenPoly(buffer, b.polygons[1]), 0u);  // no room was counted for it
    AttrVBuf *avb = PolyVBufAttributes(buffer);
    AVBView view{};
    ASSERT_EQ(AVBUpdateBegin(avb, &view), 1);
    EXPECT_EQ(PolyVBufAllocate(buffer), 0);  // not while it is read
    EXPECT_EQ(view.count, 9u);
    const std::vector<std::uint32_t> expected = {0, 1, 2, 0, 2, 3, 0, 3, 4, 5, 6, 7, 5, 7, 8};
    EXPECT_EQ(std::vector<std::uint32_t>(view.indices, view.indices + view.indexCount), expected);
    EXPECT_EQ(view.values[2 * 5], mixed().uvs[0][0][0]);
    AVBUpdateEnd(avb);
    PolyVBufDestroy(buffer);

    Mesh *other = MeshCreate();
    EXPECT_EQ(PolyVBufCreate(nullptr, nullptr, PVBUF_OUTLINE), nullptr);
    EXPECT_EQ(PolyVBufCreate(b.mesh, b.uv, 7), nullptr);
    EXPECT_EQ(PolyVBufCreate(other, b.uv, PVBUF_OUTLINE), nullptr);
    PolyVBuf *foreign = PolyVBufCreate(other, nullptr, PVBUF_OUTLINE);
    EXPECT_EQ(PolyVBufCountPoly(foreign, pentagon), 0);
    EXPECT_EQ(PolyVBufGenPoly(foreign, pentagon), 0u);
    PolyVBufDestroy(foreign);
    MeshDestroy(other);
    MeshDestroy(b.mesh);
}

}  // namespace
}  // namespace vx::test
