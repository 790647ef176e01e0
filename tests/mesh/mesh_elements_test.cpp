// Vertices and polygons: creation, positions, deletion by marking, counting and indexing with
// and without show-dead, the flip rule, polygon vertex access, instances with copy on write,
// and the module's start and stop.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <vexor/mark.h>

#include "mesh_fixture.h"
#include "support/alloc_injection.h"

namespace vx::test {
namespace {

using Elements = OnMesh;
using Vertices = std::vector<MeshVertex *>;

TEST_F(Elements, VerticesStoreTheirPositionsAsFloats) {
    EXPECT_EQ(MeshFlags(mesh), MESH_OWNS_VERTICES | MESH_OWNS_POLYGONS | MESH_OWNS_THIRD);
    EXPECT_EQ(MeshIsEmpty(mesh), 1);
    MeshVertex *v = vertex(mesh, 0.1, -2.5, 1e10);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(MeshVertexFlags(v), 0x1100u);
    EXPECT_EQ(MeshVertexMesh(v), mesh);
    double p[3];
    ASSERT_EQ(MeshVertexPos(mesh, v, p), 1);
    // Narrowed, then widened.
    EXPECT_EQ(std::vector<double>(p, p + 3), (std::vector<double>{0.1f, -2.5, 1e10f}));

    const double moved[3] = {3.0, 4.0, 5.0};
    const float *stored = MeshVertexSet(mesh, v, moved);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored, MeshVertexPosV(mesh, v));
    float f[3];
    ASSERT_EQ(MeshVertexPosF(mesh, v, f), 1);
    EXPECT_EQ(std::vector<float>(f, f + 3), (std::vector<float>{3.0f, 4.0f, 5.0f}));
    EXPECT_EQ(MeshVertexPos(mesh, nullptr, p), 0);
    EXPECT_EQ(MeshNewVertex(mesh, nullptr), nullptr);
    EXPECT_EQ(MeshNewVertex(nullptr, moved), nullptr);
    EXPECT_EQ(MeshIsEmpty(mesh), 0);
}

TEST_F(Elements, DeletedElementsStayInTheListAndIndexingSkipsThemUnlessShowDeadIsSet) {
    MeshVertex *first = vertex(mesh, 1);
    MeshVertex *second = vertex(mesh, 2);
    ASSERT_EQ(MeshFreeVertex(mesh, first), 1);
    EXPECT_EQ(MeshFreeVertex(mesh, first), 0);  // already dead
    EXPECT_LT(static_cast<std::int16_t>(MeshVertexFlags(first)), 0);
    EXPECT_EQ(MeshNumVrts(mesh), 1u);
    EXPECT_EQ((Vertices{MeshVrtByIndex(mesh, 0), MeshVrtByIndex(mesh, 1)}),
              (Vertices{second, nullptr}));
    MeshSetShowDead(mesh, 1);
    EXPECT_EQ(MeshNumVrts(mesh), 1u);
    EXPECT_EQ((Vertices{MeshVrtByIndex(mesh, 0), MeshVrtByIndex(mesh, 1)}),
              (Vertices{first, second}));
    MeshSetShowDead(mesh, 0);

    // Indices close up across many deletions and stay right as elements are added.
    Vertices row = vertices(mesh, 20);
    for (int i = 0; i < 20; i += 3) MeshFreeVertex(mesh, row[static_cast<std::size_t>(i)]);
    EXPECT_EQ(vertex_xs(mesh), "2 1 2 4 5 7 8 10 11 13 14 16 17 19 ");
    vertex(mesh, 30);
    EXPECT_EQ(MeshNumVrts(mesh), 15u);
    EXPECT_EQ(vertex_xs(mesh), "2 1 2 4 5 7 8 10 11 13 14 16 17 19 30 ");

    // A mesh whose lists hold only dead entries is empty.
    Vertices all;
    for (unsigned i = 0; MeshVrtByIndex(mesh, i) != nullptr; ++i) {
        all.push_back(MeshVrtByIndex(mesh, i));
    }
    MeshPolygon *tri = MeshNewPolygon(mesh, kFace, 3, all.data(), 0);
    for (MeshVertex *v : all) ASSERT_EQ(MeshFreeVertex(mesh, v), 1);
    EXPECT_EQ(MeshIsEmpty(mesh), 0);
    ASSERT_EQ(MeshFreePolygon(mesh, tri), 1);
    EXPECT_EQ(MeshIsEmpty(mesh), 1);
    EXPECT_EQ(MeshPolByIndex(mesh, 0), nullptr);
    EXPECT_EQ(MeshVertexSet(mesh, all[0], nullptr), nullptr);
}

TEST_F(Elements, FlippingKeepsTheFirstVertexOnlyForTypesThatSaySo) {
    const Vertices v = vertices(mesh, 6);  // a, b, c, d, e, f
    const struct {
        std::uint32_t type;
        unsigned count;
        int flip;
        Vertices order;
    } cases[] = {
        {kFace, 4, 0, {v[0], v[1], v[2], v[3]}},
        {kFace, 4, 1, {v[0], v[3], v[2], v[1]}},
        {kCurve, 4, 1, {v[3], v[2], v[1], v[0]}},
        {kCurve, 4, 0, {v[0], v[1], v[2], v[3]}},
        {kCurve, 2, 1, {v[0], v[1]}},  // fewer than three vertices are never reordered
        // Long arrays (from the heap) follow the same rule.
        {kCurve, 6, 1, {v[5], v[4], v[3], v[2], v[1], v[0]}},
        {kFace, 6, 1, {v[0], v[5], v[4], v[3], v[2], v[1]}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(polygon_vertices(MeshNewPolygon(mesh, c.type, c.count, v.data(), c.flip)),
                  c.order)
            << c.count << (c.type == kFace ? " face" : " curve") << " flip " << c.flip;
    }
    EXPECT_EQ(MeshNumPols(mesh), 7u);
}

TEST_F(Elements, PolygonVertexAccessAndEmptyPolygons) {
    Vertices v = vertices(mesh, 3);
    MeshPolygon *tri = MeshNewPolygon(mesh, kFace, 3, v.data(), 0);
    ASSERT_NE(tri, nullptr);
    EXPECT_EQ(MeshPolygonFlags(tri), 0x1200u);
    EXPECT_EQ(MeshPolygonMesh(tri), mesh);
    EXPECT_EQ(PolyTypeCode(MeshPolygonType(tri)), kFace);
    // The slot after the last vertex, and beyond, and before the first, are empty.
    EXPECT_EQ((Vertices{MeshPolVrtByIndex(tri, 2), MeshPolVrtByIndex(tri, 3),
                        MeshPolVrtByIndex(tri, 4), MeshPolVrtByIndex(tri, -1)}),
              (Vertices{v[2], nullptr, nullptr, nullptr}));

    EXPECT_EQ(MeshNewEmptyPolygon(mesh, VX_CODE4('N', 'O', 'N', 'E'), 3), nullptr);
    EXPECT_EQ(MeshNewEmptyPolygon(mesh, kFace, 70000), nullptr);
    EXPECT_EQ(MeshNewPolygon(mesh, kFace, 3, nullptr, 0), nullptr);
    EXPECT_EQ(MeshNumPols(mesh), 1u);

    for (unsigned count : {0u, 1u, 4u, 9u}) {
        MeshPolygon *empty = MeshNewEmptyPolygon(mesh, kFace, count);
        ASSERT_NE(empty, nullptr) << count;
        EXPECT_EQ(polygon_vertices(empty), Vertices(count, nullptr));
        EXPECT_EQ(MeshPolVrtByIndex(empty, static_cast<int>(count)), nullptr);
        if (count == 0) continue;
        EXPECT_EQ(MeshPolSetVrt(mesh, empty, count - 1, v[1]), 1);
        EXPECT_EQ(MeshPolSetVrt(mesh, empty, count, v[1]), 0);
        EXPECT_EQ(MeshPolVrtByIndex(empty, static_cast<int>(count - 1)), v[1]);
    }

    // Vertices of an unrelated mesh are refused.
    Mesh *other = MeshCreate();
    MeshVertex *mixed[3] = {v[0], v[1], vertex(other, 1)};
    EXPECT_EQ(MeshNewPolygon(mesh, kFace, 3, mixed, 0), nullptr);
    EXPECT_EQ(MeshFreeVertex(mesh, mixed[2]), 0);
    EXPECT_EQ(MeshNumPols(mesh), 5u);
    MeshDestroy(other);
}

TEST_F(Elements, AnInstanceSharesItsSourcesListsUntilItChangesOne) {
    Mesh *source = mesh;
    Vertices v = vertices(source, 4);
    MeshPolygon *quad = MeshNewPolygon(source, kFace, 4, v.data(), 0);
    Mesh *instance = MeshCreateInstance(source, 1);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(MeshSource(instance), source);
    EXPECT_EQ(MeshInstanceCount(source), 1u);
    EXPECT_EQ(MeshInstanceByIndex(source, 0), instance);
    EXPECT_EQ(MeshInstanceByIndex(source, 1), nullptr);
    // An instance of an instance is made of the first source.
    Mesh *second = MeshCreateInstance(instance, 1);
    EXPECT_EQ(MeshSource(second), source);
    EXPECT_EQ(MeshInstanceCount(source), 2u);

    EXPECT_EQ(MeshNumVrts(instance), 4u);
    EXPECT_EQ(MeshVrtByIndex(instance, 2), v[2]);
    EXPECT_EQ(MeshPolByIndex(instance, 0), quad);
    double p[3];
    ASSERT_EQ(MeshVertexPos(instance, v[3], p), 1);
    EXPECT_EQ(p[0], 3.0);

    // Deleting one of the source's vertices through the instance copies the list first.
    ASSERT_EQ(MeshFreeVertex(instance, v[1]), 1);
    EXPECT_EQ(MeshFlags(instance) & (MESH_OWNS_VERTICES | MESH_OWNS_POLYGONS), MESH_OWNS_VERTICES);
    EXPECT_EQ(MeshNumVrts(instance), 3u);
    EXPECT_EQ(MeshNumVrts(source), 4u);
    EXPECT_EQ(MeshVertexFlags(v[1]), 0x1100u);
    EXPECT_EQ(vertex_xs(source), "0 1 2 3 ");
    EXPECT_EQ(vertex_xs(instance), "0 2 3 ");
    EXPECT_EQ(MeshFreeVertex(instance, v[1]), 0);  // no longer in the instance's list
    EXPECT_EQ(vertex_xs(second), "0 1 2 3 ");      // the other instance still shares

    // The polygon list is still shared: the source's new polygon shows in the instance.
    MeshNewPolygon(source, kFace, 3, v.data(), 0);
    EXPECT_EQ(MeshNumPols(instance), 2u);
    // The source deleting a vertex shows in the instance's copy as well.
    ASSERT_EQ(MeshFreeVertex(source, v[3]), 1);
    EXPECT_EQ(MeshNumVrts(instance), 2u);
    EXPECT_EQ(vertex_xs(instance), "0 2 ");
    EXPECT_EQ(vertex_xs(second), "0 1 2 ");

    // A polygon made on the instance gives it its own polygon list; the source's is untouched.
    MeshVertex *own = vertex(instance, 9);
    EXPECT_EQ(MeshVertexMesh(own), instance);
    MeshVertex *tri[3] = {v[0], v[2], own};
    ASSERT_NE(MeshNewPolygon(instance, kFace, 3, tri, 0), nullptr);
    EXPECT_EQ(MeshNumPols(instance), 3u);
    EXPECT_EQ(MeshNumPols(source), 2u);
    EXPECT_EQ(MeshFlags(instance) & MESH_OWNS_POLYGONS, MESH_OWNS_POLYGONS);
    // A vertex of the instance cannot go into its source's polygons.
    EXPECT_EQ(MeshNewPolygon(source, kFace, 3, tri, 0), nullptr);

    EXPECT_EQ(MeshDestroy(source), 0);  // instances first
    EXPECT_EQ(MeshDestroy(instance), 1);
    EXPECT_EQ(MeshDestroy(second), 1);
    EXPECT_EQ(MeshInstanceCount(source), 0u);
    EXPECT_EQ(MeshDestroy(source), 1);
    mesh = nullptr;
}

// Elements are found by index across every size of storage chunk (the first chunks grow, the
// later ones do not), keep their handles while more are made, and an instance's copy of such a
// list indexes the same elements. Polygons of more vertices than their record holds keep them.
TEST_F(Elements, IndexingFindsEveryElementAcrossStorageChunks) {
    const Vertices v = vertices(mesh, 9000);
    std::vector<MeshPolygon *> polygons;
    for (unsigned i = 0; i + 6 <= v.size(); i += 2) {
        const unsigned count = 1 + i % 6;  // 1 to 6 vertices
        polygons.push_back(MeshNewPolygon(mesh, kFace, count, &v[i], 0));
    }
    Mesh *instance = MeshCreateInstance(mesh, 1);
    ASSERT_EQ(MeshFreeVertex(instance, v[8999]), 1);  // the instance copies the vertex list
    for (Mesh *m : {mesh, instance}) {
        SCOPED_TRACE(m == mesh ? "source" : "instance");
        for (std::uint32_t i : {0u, 15u, 16u, 4079u, 4080u, 8175u, 8176u, 8998u}) {
            ASSERT_EQ(MeshVrtByIndex(m, i), v[i]) << i;
            EXPECT_EQ(MeshVertexPosV(m, v[i])[0], static_cast<float>(i));
        }
        // Walks take the elements a chunk at a time, and an instance's copy one by one.
        EXPECT_EQ(MeshMarkVrts(m, 0, 0x1), m == mesh ? 9000u : 8999u);
        EXPECT_EQ(MeshVrtByIndex(m, 8999), m == mesh ? v[8999] : nullptr);
        EXPECT_EQ(MeshVrtByIndex(m, 9000), nullptr);
    }
    for (std::size_t i = 0; i < polygons.size(); i += 997) {
        ASSERT_EQ(MeshPolByIndex(mesh, static_cast<unsigned>(i)), polygons[i]);
        EXPECT_EQ(polygon_vertices(polygons[i]),
                  Vertices(v.begin() + static_cast<std::ptrdiff_t>(2 * i),
                           v.begin() + static_cast<std::ptrdiff_t>(2 * i + 1 + (2 * i) % 6)));
        EXPECT_EQ(MeshPolVrtByIndex(polygons[i], static_cast<int>(1 + (2 * i) % 6)), nullptr);
    }
    EXPECT_EQ(MeshDestroy(instance), 1);
}

TEST_F(Elements, DestroyingMeshesGivesBackEveryBlock) {
    const AllocCounts before = alloc_counts();
    Vertices v;
    v.reserve(300);
    const AllocCounts with_vector = alloc_counts();
    EXPECT_EQ(with_vector.live_blocks, before.live_blocks + 1);
    Mesh *made = MeshCreate();
    for (int i = 0; i < 300; ++i) v.push_back(vertex(made, i));
    for (std::size_t i = 0; i + 7 < v.size(); i += 7) {
        MeshNewPolygon(made, kFace, 1 + static_cast<unsigned>(i % 9), &v[i], 0);
    }
    Mesh *instance = MeshCreateInstance(made, 1);
    MeshFreePolygon(instance, MeshPolByIndex(instance, 3));
    MeshNewPolygon(instance, kCurve, 7, v.data(), 1);
    MeshMetaValidate(MeshMetaLookup(MESH_META_NORMALS), made);
    MeshMetaValidate(MeshMetaLookup(MESH_META_BOUNDS), instance);
    EXPECT_GT(alloc_counts().live_blocks, with_vector.live_blocks);
    MeshDestroy(instance);
    MeshDestroy(made);
    const AllocCounts after = alloc_counts();
    EXPECT_EQ(after.live_blocks, with_vector.live_blocks);
    EXPECT_EQ(after.live_bytes, with_vector.live_bytes);
}

TEST_F(Elements, MeshesAreMadeAndDestroyedFromManyThreadsAtOnce) {
    const unsigned before = MeshGlobalCount();
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (std::size_t t = 0; t < failures.size(); ++t) {
        threads.emplace_back([t, &failures] {
            std::vector<Mesh *> mine;
            for (int i = 0; i < 200; ++i) {
                Mesh *made = MeshCreate();
                if (made == nullptr || vertex(made, i) == nullptr) ++failures[t];
                mine.push_back(made);
                if (i % 3 == 2) {
                    if (MeshDestroy(mine.front()) != 1) ++failures[t];
                    mine.erase(mine.begin());
                }
            }
            for (Mesh *m : mine) {
                if (MeshDestroy(m) != 1) ++failures[t];
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
    EXPECT_EQ(MeshGlobalCount(), before);
}

TEST_F(MeshTest, StartupIsCountedAndTheLastShutdownDestroysWhatIsLeft) {
    const unsigned before = MeshGlobalCount();
    MeshCreateInstance(MeshCreate(), 1);
    EXPECT_EQ(MeshGlobalCount(), before + 2);
    ASSERT_EQ(MeshStartup(), 1);
    MeshShutdown();
    EXPECT_EQ(MeshGlobalCount(), before + 2);  // still started once
    Port *port = MeshGlobalPort();
    EXPECT_NE(port, nullptr);
    EXPECT_EQ(PortLookup(MESH_GLOBAL_PORT_NAME), port);

    MeshShutdown();
    EXPECT_EQ(MeshGlobalCount(), 0u);
    EXPECT_EQ(MeshGlobalPort(), nullptr);
    EXPECT_EQ(MeshCreate(), nullptr);  // not started
    MeshShutdown();                    // unbalanced: ignored
    ASSERT_EQ(MeshStartup(), 1);       // for the fixture's TearDown
}

}  // namespace
}  // namespace vx::test
