// The mark mode when marking: single elements, the deliberate result of MeshMarkVertex, and
// the bulk forms that mark what a filter passes.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <vexor/mark.h>

#include "mesh_fixture.h"

namespace vx::test {
namespace {

using MarkMode = MeshTest;

TEST_F(MarkMode, TheHighHalfIsClearedThenTheLowHalfSet) {
    Mesh *mesh = MeshCreate();
    MeshVertex *v = vertex(mesh, 0);
    MeshMarkVertex(v, MESH_MARK_MODE(0x000F, 0));
    EXPECT_EQ(MeshMarkVertex(v, MESH_MARK_MODE(0, 0x0006)), 0xFFFFFFF9u);  // ~(mode >> 16)
    EXPECT_EQ(MeshVertexMarks(v), 0x0009u);
    EXPECT_EQ(MeshMarkVertex(v, 0x00200021u), 0xFFFFFFDFu);  // in both halves: set
    EXPECT_EQ(MeshVertexMarks(v), 0x0029u);
    EXPECT_EQ(MeshMarkVertex(nullptr, 0xFFFF0000u), 0xFFFF0000u);
    EXPECT_EQ(MeshVertexFlags(v), 0x1100u);  // the flag word is left alone

    MeshPolygon *p = MeshNewPolygon(mesh, kFace, 1, &v, 0);
    MeshMarkPolygon(p, MESH_MARK_MODE(0x0300, 0));
    MeshMarkPolygon(p, MESH_MARK_MODE(0x0001, 0x0100));
    MeshMarkPolygon(p, 0x02000200u);
    EXPECT_EQ(MeshPolygonMarks(p), 0x0201u);
    EXPECT_EQ(MeshPolygonFlags(p), 0x1200u);
    MeshDestroy(mesh);
}

TEST_F(MarkMode, BulkFormsMarkWhatTheFilterPasses) {
    Mesh *mesh = MeshCreate();
    std::vector<MeshVertex *> v = vertices(mesh, 6);
    const std::uint32_t before[6] = {0x0, 0x1, 0x1, 0x3, 0x1, 0x0};
    for (std::size_t i = 0; i < v.size(); ++i) MeshMarkVertex(v[i], before[i]);
    MeshFreeVertex(mesh, v[4]);

    // Marked 0x1, not 0x2, alive: v1 and v2.
    EXPECT_EQ(MeshMarkVrts(mesh, MESH_MARK_MODE(0x1, 0x2), MESH_MARK_MODE(0x10, 0x1)), 2u);
    const std::uint32_t after[6] = {0x0, 0x10, 0x10, 0x3, 0x1, 0x0};
    for (std::size_t i = 0; i < v.size(); ++i) EXPECT_EQ(MeshVertexMarks(v[i]), after[i]) << i;
    MeshSetShowDead(mesh, 1);
    EXPECT_EQ(MeshMarkVrts(mesh, 0, 0x100u), 6u);
    MeshSetShowDead(mesh, 0);

    // The vertices of the polygons marked 0x1, skipping the empty slots of a partial polygon.
    MeshVertex *left[4] = {v[0], v[1], v[2], v[3]};
    MeshPolygon *a = MeshNewPolygon(mesh, kFace, 4, left, 0);
    MeshPolygon *b = MeshNewPolygon(mesh, kFace, 3, v.data() + 1, 0);
    MeshPolygon *partial = MeshNewEmptyPolygon(mesh, kFace, 3);
    ASSERT_EQ(MeshPolSetVrt(mesh, partial, 1, v[5]), 1);
    EXPECT_EQ(MeshMarkPols(mesh, MESH_MARK_MODE(0, 0x8), 0x1u), 3u);
    MeshMarkPolygon(b, MESH_MARK_MODE(0, 0x1));
    EXPECT_EQ(MeshMarkVrtsOfPols(mesh, 0x1u, MESH_MARK_MODE(0x4, 0x100)), 2u);
    const std::uint32_t last[6] = {0x4, 0x14, 0x14, 0x7, 0x101, 0x4};
    for (std::size_t i = 0; i < v.size(); ++i) EXPECT_EQ(MeshVertexMarks(v[i]), last[i]) << i;
    EXPECT_EQ(MeshPolygonMarks(a), 0x1u);
    EXPECT_EQ(MeshMarkVrts(nullptr, 0, 1u), 0u);
    MeshDestroy(mesh);
}

}  // namespace
}  // namespace vx::test
