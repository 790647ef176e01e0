// UV tests on a subdivision surface that smooths its UVs: the answers follow the subdivided
// outline that the polygon vertex buffer generates, checked against a brute-force reading of
// that outline, and follow the corners again once the mesh's UVs are linear.
#include <cmath>
#include <random>

#include <vexor/subd.h>
#include <vexor/vbuf.h>

#include "geometry/poly_fixture.h"

namespace vx::test {
namespace {

constexpr std::uint32_t kSubd = VX_CODE4('S', 'U', 'B', 'D');

class SmoothedUV : public PolygonTest {
  protected:
    // A 3 x 3 grid of subdivision quads whose UVs follow the positions but for one interior
    // vertex, so the centre face's smoothed outline bends away from its corners' straight edges.
    void SetUp() override {
        PolygonTest::SetUp();
        uv_ = VMapCreate(mesh_, VX_CODE4('T', 'X', 'U', 'V'));
        ASSERT_NE(uv_, nullptr);
        MeshVertex *grid[4][4];
        for (int i = 0; i < 4; ++i) {
            for (int j = 0; j < 4; ++j) {
                const double p[3] = {static_cast<double>(i), static_cast<double>(j), 0.0};
                grid[i][j] = MeshNewVertex(mesh_, p);
                float uv[2] = {static_cast<float>(i) / 3.0f, static_cast<float>(j) / 3.0f};
                if (i == 1 && j == 1) uv[0] = 0.45f;
                VMapSet(uv_, grid[i][j], uv);
            }
        }
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                MeshVertex *quad[4] = {grid[i][j], grid[i + 1][j], grid[i + 1][j + 1],
                                       grid[i][j + 1]};
                MeshPolygon *face = MeshNewPolygon(mesh_, kSubd, 4, quad, 0);
                if (i == 1 && j == 1) centre_ = face;
            }
        }
        ASSERT_EQ(SUBDGetLinearUV(mesh_), 0);
    }
    // The outline as the buffer makes it.
    std::vector<UVPoint> outline() {
        std::vector<UVPoint> samples;
        PolyVBuf *buffer = PolyVBufCreate(mesh_, uv_, PVBUF_OUTLINE);
        PolyVBufResetCount(buffer);
        PolyVBufCountPoly(buffer, centre_);
        PolyVBufAllocate(buffer);
        PolyVBufResetCount(buffer);
        PolyVBufGenPoly(buffer, centre_);
        AVBView view;
        AVBUpdateBegin(PolyVBufAttributes(buffer), &view);
        for (unsigned i = 0; i < view.count; ++i) {
            samples.push_back({view.values[2 * i], view.values[2 * i + 1]});
        }
        AVBUpdateEnd(PolyVBufAttributes(buffer));
        PolyVBufDestroy(buffer);
        return samples;
    }
    VMap *uv_ = nullptr;
    MeshPolygon *centre_ = nullptr;
};

TEST_F(SmoothedUV, TheAnswersFollowTheSubdividedOutline) {
    const std::vector<UVPoint> loop = outline();
    ASSERT_EQ(loop.size() % 4, 0u);
    ASSERT_GT(loop.size(), 4u);
    const std::size_t per = loop.size() / 4;
    // The outline is not the corners' square: some sample leaves the straight edges.
    double bend = 0.0;
    for (const auto &s : loop) {
        bend = std::fmax(bend, std::fmin(std::fabs(s[0] - 2.0 / 3.0), std::fabs(s[1] - 1.0 / 3.0)));
    }
    EXPECT_GT(bend, 1e-3);

    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(0.2, 0.8);
    for (int k = 0; k < 300; ++k) {
        const double at[2] = {coordinate(random), coordinate(random)};
        double all = 1e300, edges[4] = {1e300, 1e300, 1e300, 1e300};
        for (std::size_t i = 0; i < loop.size(); ++i) {
            const double d = segment_distance(loop[i], loop[(i + 1) % loop.size()], at[0], at[1]);
            all = std::fmin(all, d);
            edges[i / per] = std::fmin(edges[i / per], d);
        }
        if (all < 1e-6) continue;
        const bool inside = winding(loop, at[0], at[1]) != 0;
        EXPECT_EQ(PolygonTestUVPos(uv_, centre_, at), inside ? 1 : 0);
        EXPECT_NEAR(PolygonDistanceUVPos(uv_, centre_, at, nullptr), inside ? 0.0 : all, 1e-12);
        for (int e = 0; e < 4; ++e) {
            EXPECT_NEAR(PolyEdgeDistanceUVPos(uv_, centre_, e, at, nullptr), edges[e], 1e-12);
            const auto &corner = loop[static_cast<std::size_t>(e) * per];
            double closest[2];
            EXPECT_NEAR(PolyVerxDistanceUVPos(uv_, centre_, e, at, closest),
                        std::hypot(at[0] - corner[0], at[1] - corner[1]), 1e-12);
            EXPECT_EQ(closest[0], corner[0]);
        }
    }

    // With linear UVs the corners' own UVs count again: corner 0 is the moved one.
    SUBDSetLinearUV(mesh_, 1);
    const double at[2] = {static_cast<double>(0.45f), static_cast<double>(1.0f / 3.0f)};
    EXPECT_EQ(PolyVerxDistanceUVPos(uv_, centre_, 0, at, nullptr), 0.0);
    double closest[2];
    PolyVerxDistanceUVPos(uv_, centre_, 2, at, closest);
    EXPECT_EQ(closest[0], static_cast<double>(2.0f / 3.0f));
}

}  // namespace
}  // namespace vx::test
