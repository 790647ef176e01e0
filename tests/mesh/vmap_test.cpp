// Vertex maps as callers see them: the type registry, plain, per-polygon and edge values,
// layers with removed keys, computed maps, the position map and the lookup of a mesh's maps.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <vexor/undo.h>
#include <vexor/vmap.h>

#include "mesh_fixture.h"
#include "support/in_order.h"
#include "vmap_fixture.h"

namespace vx::test {
namespace {

using VMapTypes = MeshTest;
using VMapLookup = OnMesh;

std::uint32_t code(const char *text) {
    return VX_CODE4(text[0], text[1], text[2], text[3]);
}

TEST_F(VMapTypes, BuiltInTypesComeFirstInTheirOrderAndUnknownsAnswerTheirMarkers) {
    struct Expected {
        const char *code;
        const char *name;
        std::uint32_t dimension;
        std::uint32_t flags;
    };
    const Expected expected[] = {
        {"PICK", "pick", 0, 0},         {"WGHT", "weight", 1, 0x4},    {"EPCK", "edgepick", 0, 0x3},
        {"SUBV", "subvweight", 1, 0xA}, {"TXUV", "texture", 2, 0},     {"OPOS", "position", 3, 0x9},
        {"MORF", "morph", 3, 0x5},      {"POSE", "poseShape", 3, 0x5}, {"SPOT", "spot", 3, 0x1},
        {"NORM", "normal", 3, 0xC},     {"RGB ", "rgb", 3, 0x4},       {"RGBA", "rgba", 4, 0x4},
    };
    ASSERT_GE(VMapTypeCount(), 12u);
    for (unsigned i = 0; i < 12; ++i) {
        const Expected &e = expected[i];
        const std::uint32_t c = code(e.code);
        SCOPED_TRACE(e.code);
        EXPECT_EQ(VMapTypeByIndex(i), c);
        EXPECT_STREQ(VMapTypeName(c), e.name);
        EXPECT_EQ((std::vector<std::uint32_t>{VMapTypeDimension(c), VMapTypeFlags(c),
                                              VMapTypeByName(e.name)}),
                  (std::vector<std::uint32_t>{e.dimension, e.flags, c}));
    }
    const std::uint32_t unknown = code("ZZZZ");
    EXPECT_EQ(VMapTypeDimension(unknown), 0xFFFFFFFFu);
    EXPECT_EQ(VMapTypeFlags(unknown), 0xFFFFFFFFu);
    EXPECT_EQ(VMapTypeName(unknown), nullptr);
    // Names compare whole and with case.
    for (const char *name : {"Weight", "weigh", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(VMapTypeByName(name), 0u) << (name != nullptr ? name : "null");
    }
    EXPECT_EQ(VMapTypeByIndex(VMapTypeCount()), 0u);
}

TEST_F(VMapTypes, DefinedTypesAreAppendedAndSurviveARestart) {
    const std::uint32_t xfrm = code("XFRM");
    const unsigned before = VMapTypeCount();
    ASSERT_EQ(VMapDefineType(xfrm, "transform", 9, 0x8), 1);
    const unsigned after = VMapTypeCount();
    EXPECT_TRUE(after == before + 1 || VMapTypeByIndex(before - 1) == xfrm);
    EXPECT_EQ(VMapTypeDimension(xfrm), 9u);
    // The same definition again is a module starting again: nothing is added. A different one
    // for a taken code or name is appended, and lookups answer the first of the code or name.
    EXPECT_EQ(VMapDefineType(xfrm, "transform", 9, 0x8), 1);
    EXPECT_EQ(VMapTypeCount(), after);
    EXPECT_EQ(VMapDefineType(xfrm, "transform2", 3, 0x8), 1);
    EXPECT_EQ(VMapDefineType(code("XFR2"), "transform", 4, 0x8), 1);
    EXPECT_EQ(VMapTypeCount(), after + 2);
    EXPECT_EQ(VMapTypeByIndex(after + 1), code("XFR2"));
    EXPECT_EQ(VMapTypeDimension(xfrm), 9u);
    EXPECT_EQ(VMapTypeByName("transform"), xfrm);
    EXPECT_EQ(VMapTypeByName("transform2"), xfrm);
    EXPECT_STREQ(VMapTypeName(xfrm), "transform");
    EXPECT_EQ(VMapDefineType(code("XFR3"), "", 1, 0), 0);
    EXPECT_EQ(VMapTypeCount(), after + 2);

    MeshShutdown();
    ASSERT_EQ(MeshStartup(), 1);
    EXPECT_EQ(VMapTypeCount(), after + 2);
    EXPECT_EQ(VMapTypeByName("transform"), xfrm);

    // A map of the new type stores nine floats per entry; flag 0x8: a second create gives the
    // same map.
    Mesh *mesh = MeshCreate();
    MeshVertex *a = vertex(mesh, 1);
    VMap *map = VMapCreate(mesh, xfrm);
    ASSERT_NE(VMapSet(map, a, std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9}.data()), nullptr);
    EXPECT_EQ(reads(map, {a}), "(1,2,3,4,5,6,7,8,9)");
    EXPECT_EQ(VMapCreate(mesh, xfrm), map);
    destroy_mesh(mesh);
}

// Modules start on their own threads: definitions race with lookups and with each other.
TEST_F(VMapTypes, ConcurrentDefinitionsEachLandOnce) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 8;
    const unsigned before = VMapTypeCount();
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&refused] {
            for (int i = 0; i < kPerThread; ++i) {
                // Every thread defines every type once: each lands exactly one record.
                for (int owner = 0; owner < kThreads; ++owner) {
                    const std::string name =
                        "race" + std::to_string(owner) + "_" + std::to_string(i);
                    const std::uint32_t c = VX_CODE4('r', '0' + owner, '0' + i, 'c');
                    if (VMapDefineType(c, name.c_str(), static_cast<std::uint32_t>(i), 0) != 1) {
                        ++refused;
                    }
                    if (VMapTypeDimension(c) != static_cast<std::uint32_t>(i)) ++refused;
                }
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(refused.load(), 0);
    EXPECT_EQ(VMapTypeCount(), before + kThreads * kPerThread);
    for (unsigned i = before; i < VMapTypeCount(); ++i) {
        const std::uint32_t c = VMapTypeByIndex(i);
        EXPECT_EQ(VMapTypeByName(VMapTypeName(c)), c);
    }
}

class VMapOnMesh : public OnMesh {
  protected:
    void SetUp() override {
        OnMesh::SetUp();
        v = vertices(mesh, 4);
        quad = MeshNewPolygon(mesh, kFace, 4, v.data(), 0);
    }
    std::vector<MeshVertex *> v;
    MeshPolygon *quad = nullptr;
};

TEST_F(VMapOnMesh, PlainPolygonAndEdgeValuesAreSeparateKeys) {
    VMap *uv = VMapCreate(mesh, kTexture);
    ASSERT_NE(uv, nullptr);
    const float plain[2] = {0.25f, 0.5f};
    const float seam[2] = {0.75f, 1.0f};
    ASSERT_NE(VMapSet(uv, v[0], plain), nullptr);
    ASSERT_NE(VMapPSet(uv, v[1], quad, seam), nullptr);
    // A per-polygon value does not answer for the vertex alone, nor for another polygon.
    // Evaluation prefers the polygon's own value and falls back to the vertex's.
    EXPECT_EQ(reads(uv, v), "(0.25,0.5)---");
    EXPECT_EQ(reads(uv, v, quad), "-(0.75,1)--");
    std::string evaluated;
    for (MeshVertex *a : v) evaluated += values_text(VMapEval(uv, a, quad), 2);
    EXPECT_EQ(evaluated, "(0.25,0.5)(0.75,1)--");
    EXPECT_EQ(VMapTestPolygon(uv, quad), 1);

    // Setting again overwrites in place of a second entry; unsetting removes.
    const float moved[2] = {2, 3};
    VMapSet(uv, v[0], moved);
    EXPECT_EQ(reads(uv, v), "(2,3)---");
    EXPECT_EQ(VMapUnset(uv, v[0]), 1);
    EXPECT_EQ(VMapUnset(uv, v[0]), 0);
    EXPECT_EQ(VMapPUnset(uv, v[1], quad), 1);
    EXPECT_EQ(VMapTestPolygon(uv, quad), 0);

    // Edges are unordered pairs.
    const float w = 0.5f;
    VMap *weight = VMapCreate(mesh, kWeight);
    ASSERT_NE(VMapESet(weight, v[2], v[1], &w), nullptr);
    EXPECT_EQ(values_text(VMapEGet(weight, v[1], v[2]), 1), "(0.5)");
    EXPECT_EQ(VMapEGet(weight, v[1], v[3]), nullptr);
    EXPECT_EQ(VMapGet(weight, v[1]), nullptr);
    EXPECT_EQ(VMapEUnset(weight, v[1], v[2]), 1);
    EXPECT_EQ(VMapEGet(weight, v[2], v[1]), nullptr);
}

TEST_F(VMapOnMesh, SelectionsHaveNoValuesButPresence) {
    VMap *pick = VMapCreate(mesh, kPick);
    EXPECT_EQ(VMapDimension(pick), 0u);
    ASSERT_NE(VMapSet(pick, v[1], nullptr), nullptr);
    EXPECT_EQ(reads(pick, v), "-()--");

    // Edge picks: an edge with one empty end answers for its other end alone, in either slot;
    // a full edge is not a vertex's value.
    VMap *edges = VMapCreate(mesh, kEdgePick);
    ASSERT_NE(VMapESet(edges, nullptr, v[3], nullptr), nullptr);
    EXPECT_NE(VMapEGet(edges, v[3], nullptr), nullptr);
    ASSERT_NE(VMapESet(edges, v[0], v[1], nullptr), nullptr);
    EXPECT_EQ(reads(edges, v), "---()");
    // A plain pick type does not read edge halves.
    ASSERT_NE(VMapESet(pick, nullptr, v[2], nullptr), nullptr);
    EXPECT_EQ(VMapGet(pick, v[2]), nullptr);
}

TEST_F(VMapOnMesh, ThePositionMapIsTheMeshesPositionsAndLayersOverItKeepTheirOwn) {
    VMap *positions = VMapFindForMesh(mesh, kPosition);
    ASSERT_NE(positions, nullptr);
    EXPECT_NE(VMapFlags(positions) & VMAP_POSITIONS, 0u);
    EXPECT_STREQ(VMapName(positions), "position");
    EXPECT_EQ(VMapCreate(mesh, kPosition), positions);  // at most one per mesh
    EXPECT_EQ(VMapCount(mesh, kPosition), 1u);

    EXPECT_EQ(reads(positions, v), "(0,0,0)(1,0,0)(2,0,0)(3,0,0)");
    const float p[3] = {1.5f, -2.0f, 8.0f};
    MeshMetaClass *bounds = MeshMetaLookup(MESH_META_BOUNDS);
    ASSERT_NE(MeshMetaValidate(bounds, mesh), nullptr);
    EventLog log(MeshEventPort(mesh));
    ASSERT_NE(VMapSet(positions, v[2], p), nullptr);
    double read[3];
    MeshVertexPos(mesh, v[2], read);
    EXPECT_EQ(std::vector<double>(read, read + 3), (std::vector<double>{1.5, -2.0, 8.0}));
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_MAPS | MESH_CHANGE_VERTICES |
                                                      MESH_CHANGE_POSITIONS});
    EXPECT_EQ(MeshMetaIsValid(bounds, mesh), 0);  // the mesh's box moved with the vertex
    // Narrowing: positions are stored as 32-bit floats whichever way they come in.
    const double fine[3] = {0.1, 0.2, 0.3};
    MeshVertexSet(mesh, v[1], fine);
    EXPECT_EQ(VMapGet(positions, v[1])[0], 0.1f);

    EXPECT_EQ(VMapUnset(positions, v[2]), 0);
    EXPECT_EQ(VMapDestroy(positions), 0);
    EXPECT_EQ(VMapPSet(positions, v[0], quad, p), nullptr);

    // A layer over the positions is an ordinary map that reads through to them.
    VMap *deformed = VMapCreateOver(mesh, positions);
    ASSERT_NE(deformed, nullptr);
    EXPECT_EQ(VMapFlags(deformed) & VMAP_POSITIONS, 0u);
    const float seven[3] = {7, 7, 7};
    VMapSet(deformed, v[1], seven);
    VMapUnset(deformed, v[0]);
    EXPECT_EQ(reads(deformed, v), "-(7,7,7)(1.5,-2,8)(3,0,0)");
    EXPECT_EQ(reads(positions, {v[0], v[1]}), "(0,0,0)(0.1,0.2,0.3)");
}

TEST_F(VMapOnMesh, ValueEditsAreAnnouncedAndUndoable) {
    VMap *weight = VMapCreate(mesh, kWeight);
    EventLog log(MeshEventPort(mesh));
    UndoSysClear();
    const float values[2] = {1.0f, 2.0f};
    VMapSet(weight, v[0], &values[0]);
    VMapSet(weight, v[0], &values[1]);
    VMapUnset(weight, v[0]);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>(3, MESH_CHANGE_MAPS));
    std::string undone;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(UndoSysUndo());
        undone += reads(weight, {v[0]});
    }
    EXPECT_EQ(undone, "(2)(1)-");
    EXPECT_EQ(log.masks().size(), 3u);  // undo is heard like the edit
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(reads(weight, {v[0]}), "(1)");
}

TEST_F(VMapOnMesh, ComputedMapsAskTheirFunction) {
    struct Calls {
        const MeshVertex *vertex = nullptr;
        const MeshPolygon *polygon = nullptr;
        int count = 0;
        float value[2] = {4, 5};
    } calls;
    auto eval = [](const VMap *, const MeshVertex *vertex, const MeshPolygon *polygon,
                   void *client) -> const float * {
        auto *c = static_cast<Calls *>(client);
        c->vertex = vertex;
        c->polygon = polygon;
        ++c->count;
        return vertex != nullptr ? c->value : nullptr;
    };
    VMap *map = VMapCreateComputed(mesh, kTexture, eval, &calls);
    ASSERT_NE(map, nullptr);
    EXPECT_NE(VMapFlags(map) & VMAP_COMPUTED, 0u);
    EXPECT_EQ(values_text(VMapGet(map, v[1]), 2), "(4,5)");
    EXPECT_EQ(calls.vertex, v[1]);
    EXPECT_EQ(calls.polygon, nullptr);
    VMapPGet(map, v[2], quad);
    EXPECT_EQ(calls.polygon, quad);
    EXPECT_EQ(calls.count, 2);
    // Its values are not stored: setting is refused.
    const float zeros[3] = {0, 0, 0};
    EXPECT_EQ(VMapSet(map, v[1], zeros), nullptr);
    EXPECT_EQ(VMapUnset(map, v[1]), 0);
    EXPECT_EQ(VMapCreateComputed(mesh, kTexture, nullptr, nullptr), nullptr);

    // Elements of other meshes are refused.
    Mesh *other = MeshCreate();
    MeshVertex *stranger = vertex(other, 9);
    VMap *weight = VMapCreate(mesh, kWeight);
    EXPECT_EQ(VMapSet(weight, stranger, zeros), nullptr);
    EXPECT_EQ(VMapSet(VMapFindForMesh(mesh, kPosition), stranger, zeros), nullptr);
    EXPECT_EQ(VMapGet(VMapFindForMesh(mesh, kPosition), stranger), nullptr);
    EXPECT_EQ(VMapCreateOver(other, weight), nullptr);
    destroy_mesh(other);
}

TEST_F(VMapOnMesh, LayersReadThroughAndHideRemovedKeys) {
    VMap *base = VMapCreate(mesh, kMorph);
    const float a[3] = {1, 1, 1};
    const float b[3] = {2, 2, 2};
    const float c[3] = {3, 3, 3};
    for (int i = 0; i < 3; ++i) VMapSet(base, v[static_cast<std::size_t>(i)], a);
    VMap *top = VMapCreateOver(mesh, base);
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(VMapUnderlying(top), base);
    EXPECT_EQ(VMapType(top), kMorph);

    // Through, then the upper value wins.
    EXPECT_EQ(reads(top, v), "(1,1,1)(1,1,1)(1,1,1)-");
    VMapSet(top, v[0], b);
    EXPECT_EQ(reads(top, {v[0]}) + reads(base, {v[0]}), "(2,2,2)(1,1,1)");

    // Unsetting in the upper map hides the lower value, whether or not the upper had its own.
    EXPECT_EQ(VMapUnset(top, v[0]), 1);
    EXPECT_EQ(VMapUnset(top, v[1]), 1);
    EXPECT_EQ(VMapUnset(top, v[1]), 0);  // already hidden
    EXPECT_EQ(reads(top, v), "--(1,1,1)-");
    // A hidden key stays hidden when the lower map changes; other keys follow it.
    VMapSet(base, v[1], c);
    VMapSet(base, v[2], c);
    EXPECT_EQ(reads(top, v), "--(3,3,3)-");
    // Setting a hidden key shows the upper value.
    VMapSet(top, v[1], b);
    EXPECT_EQ(reads(top, {v[1]}), "(2,2,2)");

    // Three layers: the middle one's removed key ends the search.
    VMap *third = VMapCreateOver(mesh, top);
    EXPECT_EQ(reads(third, v), "-(2,2,2)(3,3,3)-");
    // Per-polygon keys are hidden separately from the vertex's.
    VMapPSet(base, v[2], quad, b);
    EXPECT_EQ(values_text(VMapPGet(third, v[2], quad), 3), "(2,2,2)");
    VMapPUnset(top, v[2], quad);
    EXPECT_EQ(VMapPGet(third, v[2], quad), nullptr);
    EXPECT_EQ(reads(third, {v[2]}), "(3,3,3)");

    // A destroyed middle layer reads as empty: its removed keys no longer hide.
    ASSERT_EQ(VMapDestroy(top), 1);
    EXPECT_EQ(VMapGet(top, v[2]), nullptr);
    EXPECT_EQ(reads(third, {v[0]}), "(1,1,1)");
    EXPECT_EQ(VMapSet(top, v[0], a), nullptr);
    EXPECT_EQ(VMapCreateOver(mesh, top), nullptr);
}

TEST_F(VMapLookup, MapsAreFoundByNamePublicNameAndIndex) {
    VMap *positions = VMapFindForMesh(mesh, kPosition);
    VMap *uv1 = VMapCreate(mesh, kTexture);
    VMap *weight = VMapCreate(mesh, kWeight);
    VMap *uv2 = VMapCreate(mesh, kTexture);
    ASSERT_NE(uv1, uv2);  // TXUV allows many maps per mesh
    EXPECT_EQ(VMapSetName(uv2, "seams"), 1);
    EXPECT_EQ(VMapSetPublicName(uv1, "Main UVs"), 1);
    EXPECT_EQ(VMapSetName(uv1, std::string(64, 'x').c_str()), 0);  // too long

    EXPECT_EQ(in_order({VMapCount(mesh, 0), VMapCount(mesh, kTexture)}), (Ints{4, 2}));
    EXPECT_EQ(in_order({VMapByIndex(mesh, 0, 0), VMapByIndex(mesh, 0, 2),
                        VMapByIndex(mesh, kTexture, 1), VMapByIndex(mesh, kTexture, 2),
                        VMapFindForMesh(mesh, kTexture), VMapFindForMesh(mesh, kMorph)}),
              (Ptrs{positions, weight, uv2, nullptr, uv1, nullptr}));
    // The type narrows the search; public names compare with case, apart from names.
    EXPECT_EQ(in_order({VMapFindName(mesh, kTexture, "texture"),
                        VMapFindName(mesh, kTexture, "seams"), VMapFindName(mesh, kWeight, "seams"),
                        VMapFindName(mesh, 0, "seams"), VMapFindPublic(mesh, kTexture, "Main UVs"),
                        VMapFindPublic(mesh, kTexture, "main uvs"),
                        VMapFindName(mesh, kTexture, "Main UVs")}),
              (Ptrs{uv1, uv2, nullptr, uv2, uv1, nullptr, nullptr}));

    VMap *list[8] = {};
    EXPECT_EQ(VMapGetList(mesh, kTexture, list, 1), 2u);  // the count, even when cut short
    EXPECT_EQ(list[0], uv1);
    EXPECT_EQ(list[1], nullptr);

    // Dead maps are skipped unless the mesh shows dead entries.
    EXPECT_EQ(in_order({VMapDestroy(uv1), VMapDestroy(uv1), VMapCount(mesh, kTexture)}),
              (Ints{1, 0, 1}));
    EXPECT_EQ(
        in_order({VMapFindForMesh(mesh, kTexture), VMapFindPublic(mesh, kTexture, "Main UVs")}),
        (Ptrs{uv2, nullptr}));
    MeshSetShowDead(mesh, 1);
    EXPECT_EQ(VMapCount(mesh, kTexture), 2u);
    EXPECT_EQ(VMapFindPublic(mesh, kTexture, "Main UVs"), uv1);
    MeshSetShowDead(mesh, 0);

    // Undoing the destruction brings it back in its place.
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(VMapFindForMesh(mesh, kTexture), uv1);
}

TEST_F(VMapLookup, AnInstanceSeesItsSourcesMapsAndLaysItsOwnOverThem) {
    Mesh *source = mesh;
    std::vector<MeshVertex *> v = vertices(source, 3);
    VMap *source_uv = VMapCreate(source, kTexture);
    VMap *source_positions = VMapFindForMesh(source, kPosition);
    Mesh *instance = MeshCreateInstance(source, 1);
    ASSERT_NE(instance, nullptr);

    EXPECT_EQ(VMapCount(instance, 0), 2u);
    EXPECT_EQ(VMapFindForMesh(instance, kPosition), source_positions);

    // A one-per-mesh type reached through the source: the instance gets a map lying over it,
    // which takes the source map's place; a second request returns that map.
    VMap *own_positions = VMapCreate(instance, kPosition);
    ASSERT_NE(own_positions, nullptr);
    ASSERT_NE(own_positions, source_positions);
    EXPECT_EQ(VMapMesh(own_positions), instance);
    EXPECT_EQ(VMapUnderlying(own_positions), source_positions);
    EXPECT_EQ(VMapCreate(instance, kPosition), own_positions);
    EXPECT_EQ(VMapByIndex(instance, 0, 0), own_positions);
    EXPECT_EQ(VMapCount(instance, 0), 2u);
    EXPECT_EQ(VMapFindName(instance, kPosition, "position"), own_positions);
    // The source is untouched by the instance's values.
    const float p[3] = {5, 5, 5};
    VMapSet(own_positions, v[1], p);
    EXPECT_EQ(reads(own_positions, v), "(0,0,0)(5,5,5)(2,0,0)");
    EXPECT_EQ(reads(source_positions, v), "(0,0,0)(1,0,0)(2,0,0)");
    EXPECT_EQ(VMapFindForMesh(source, kPosition), source_positions);

    // Types that allow many maps: a new map of the instance's own, after the source's.
    VMap *own_uv = VMapCreate(instance, kTexture);
    EXPECT_EQ(VMapCount(instance, kTexture), 2u);
    EXPECT_EQ(VMapByIndex(instance, kTexture, 0), source_uv);
    EXPECT_EQ(VMapByIndex(instance, kTexture, 1), own_uv);
    EXPECT_EQ(VMapCount(source, 0), 2u);

    // Destroying the instance's own map gives the source's map back its place (undoing it is
    // among the random edits of vmap_edit_test.cpp).
    ASSERT_EQ(VMapDestroy(own_positions), 1);
    EXPECT_EQ(VMapFindForMesh(instance, kPosition), source_positions);
    EXPECT_EQ(VMapCount(instance, kPosition), 1u);
    destroy_mesh(instance);
}

}  // namespace
}  // namespace vx::test
