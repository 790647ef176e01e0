// The polygon type registry (built-in types, definitions, flip flags, bounds, meta classes)
// and the per-mesh meta data layer (records made on first use, built on demand, dropped by the
// changes they depend on), with the built-in normals and bounds.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "mesh_fixture.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

using PolyTypes = OnMesh;
using MetaData = OnMesh;

TEST_F(PolyTypes, BuiltInTypesCarryTheirFlags) {
    struct Expected {
        const char *code;
        std::uint32_t flags;
        std::uint32_t flip;
    };
    const Expected expected[] = {
        {"FACE", POLYTYPE_AREA | POLYTYPE_LINEAR, POLYTYPE_FLIP_KEEPS_FIRST},
        {"CURV", 0, 0},
        {"BEZR", 0, 0},
        {"SUBD", POLYTYPE_AREA, POLYTYPE_FLIP_KEEPS_FIRST},
        {"PSUB", POLYTYPE_AREA, POLYTYPE_FLIP_KEEPS_FIRST},
        {"SPCH", POLYTYPE_AREA, POLYTYPE_FLIP_KEEPS_FIRST},
        {"PTCH", POLYTYPE_AREA, POLYTYPE_FLIP_KEEPS_FIRST},
        {"TEXT", POLYTYPE_AREA | POLYTYPE_LINEAR, POLYTYPE_FLIP_KEEPS_FIRST},
        {"LINE", POLYTYPE_LINEAR, 0},
        {"BONE", POLYTYPE_LINEAR, 0},
    };
    for (const Expected &e : expected) {
        const std::uint32_t code = VX_CODE4(e.code[0], e.code[1], e.code[2], e.code[3]);
        const PolyType *type = PolyTypeCodeLookup(code);
        ASSERT_NE(type, nullptr) << e.code;
        EXPECT_EQ((std::vector<std::uint32_t>{PolyTypeCode(type), PolyTypeFlags(type),
                                              PolyTypeFlipFlags(type)}),
                  (std::vector<std::uint32_t>{code, e.flags, e.flip}))
            << e.code;
        EXPECT_NE(PolyTypeName(type), nullptr);
    }
    EXPECT_EQ(VX_CODE4('F', 'A', 'C', 'E'), 0x46414345u);
    EXPECT_GE(PolyTypeCount(), 10u);
    EXPECT_EQ(in_order({PolyTypeByIndex(0), PolyTypeByIndex(PolyTypeCount()),
                        PolyTypeCodeLookup(VX_CODE4('N', 'O', 'N', 'E'))}),
              (Ptrs{PolyTypeCodeLookup(kFace), nullptr, nullptr}));
    EXPECT_EQ(PolyTypeFlags(nullptr), 0u);
}

TEST_F(PolyTypes, DefiningATypeAgainNeedsTheSameFlags) {
    const std::uint32_t code = VX_CODE4('T', 'K', 'E', 'P');
    const PolyType *type = PolyTypeDefine(code, "keeper", 0, POLYTYPE_FLIP_KEEPS_FIRST);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(PolyTypeDefine(code, "keeper", 0, POLYTYPE_FLIP_KEEPS_FIRST), type);
    EXPECT_EQ(PolyTypeDefine(code, "keeper", POLYTYPE_AREA, POLYTYPE_FLIP_KEEPS_FIRST), nullptr);
    EXPECT_EQ(PolyTypeDefine(kFace, "face", 0, 0), nullptr);
    EXPECT_EQ(PolyTypeDefine(VX_CODE4('T', 'N', 'U', 'L'), nullptr, 0, 0), nullptr);
    EXPECT_EQ(PolyTypeDefine(0, "zero", 0, 0), nullptr);
    EXPECT_STREQ(PolyTypeName(type), "keeper");
    EXPECT_EQ(PolyTypeCodeLookup(code), type);

    // The flip rule follows the flip flags, not the area flag.
    std::vector<MeshVertex *> v = vertices(mesh, 3);
    EXPECT_EQ(polygon_vertices(MeshNewPolygon(mesh, code, 3, v.data(), 1)),
              (std::vector<MeshVertex *>{v[0], v[2], v[1]}));
}

int unit_box(const Mesh *, const MeshPolygon *, float box[6]) {
    for (int k = 0; k < 3; ++k) {
        box[k] = -1.0f;
        box[k + 3] = 1.0f;
    }
    return 1;
}

TEST_F(PolyTypes, BoundsComeFromTheVerticesUnlessTheTypeSaysOtherwise) {
    MeshVertex *v[3] = {vertex(mesh, 1, 5, -2), vertex(mesh, 4, -1, 0), vertex(mesh, 2, 2, 3)};
    MeshPolygon *tri = MeshNewPolygon(mesh, kFace, 3, v, 0);
    float box[6];
    ASSERT_EQ(PolyTypeBounds(mesh, tri, box), 1);
    const float expected[6] = {1, -1, -2, 4, 5, 3};
    EXPECT_EQ(std::memcmp(box, expected, sizeof box), 0);
    EXPECT_EQ(PolyTypeBounds(mesh, MeshNewEmptyPolygon(mesh, kFace, 3), box), 0);

    const std::uint32_t code = VX_CODE4('T', 'B', 'O', 'X');
    const PolyType *boxed = PolyTypeDefine(code, "boxed", POLYTYPE_AREA, 0);
    PolyTypeSetBounds(boxed, &unit_box);
    ASSERT_EQ(PolyTypeBounds(mesh, MeshNewPolygon(mesh, code, 3, v, 0), box), 1);
    EXPECT_EQ(box[0], -1.0f);
    EXPECT_EQ(box[5], 1.0f);
}

// A meta class that counts its steps; its record keeps a persistent field set at init.
struct Counted {
    int persistent;
    int built;
};
int g_builds = 0;
int g_drops = 0;
bool g_fail_build = false;
void counted_init(void *record, Mesh *) {
    static_cast<Counted *>(record)->persistent = 42;
}
int counted_build(void *record, Mesh *) {
    if (g_fail_build) return 0;
    ++g_builds;
    static_cast<Counted *>(record)->built = g_builds;
    return 1;
}
void counted_drop(void *record, Mesh *) {
    ++g_drops;
    static_cast<Counted *>(record)->built = 0;
}
const MeshMetaOps kCounted = {sizeof(Counted), MESH_CHANGE_POSITIONS, &counted_init, &counted_build,
                              &counted_drop};

TEST_F(MetaData, RecordsAreBuiltOnDemandAndDroppedByTheChangesTheyDependOn) {
    MeshMetaClass *cls = MeshMetaDefine("test.counted", &kCounted);
    ASSERT_NE(cls, nullptr);
    MeshMetaOps other = kCounted;
    other.depends = MESH_CHANGE_VERTICES;
    EXPECT_EQ(in_order({MeshMetaDefine("test.counted", &kCounted),
                        MeshMetaDefine("test.counted", &other), MeshMetaDefine("", &kCounted),
                        MeshMetaLookup("test.counted"), MeshMetaLookup("test.none")}),
              (Ptrs{cls, nullptr, nullptr, cls, nullptr}));

    MeshVertex *v = vertex(mesh, 1);
    g_builds = g_drops = 0;
    auto *record = static_cast<Counted *>(MeshMetaRecord(cls, mesh));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(in_order({record->persistent, MeshMetaIsValid(cls, mesh)}), (Ints{42, 0}));
    EXPECT_EQ(in_order({MeshMetaValidate(cls, mesh), MeshMetaValidate(cls, mesh)}),
              (Ptrs{record, record}));
    EXPECT_EQ(in_order({g_builds, record->built}), (Ints{1, 1}));

    // Changes it does not depend on leave it; the ones it does drop it.
    vertex(mesh, 2);
    EXPECT_EQ(MeshMetaIsValid(cls, mesh), 1);
    const double p[3] = {5, 5, 5};
    MeshVertexSet(mesh, v, p);
    EXPECT_EQ(in_order({MeshMetaIsValid(cls, mesh), g_drops, record->persistent}),
              (Ints{0, 1, 42}));
    // A batch drops it once, at its end.
    MeshMetaValidate(cls, mesh);
    MeshBatchBegin(mesh);
    MeshVertexSet(mesh, v, p);
    EXPECT_EQ(MeshMetaIsValid(cls, mesh), 1);
    MeshBatchEnd(mesh);
    EXPECT_EQ(in_order({MeshMetaIsValid(cls, mesh), g_drops}), (Ints{0, 2}));

    // A failed build gives null and leaves the record stale.
    g_fail_build = true;
    EXPECT_EQ(MeshMetaValidate(cls, mesh), nullptr);
    EXPECT_EQ(MeshMetaIsValid(cls, mesh), 0);
    g_fail_build = false;

    // Invalidation by class or for all; freeing makes the record afresh on next use.
    MeshMetaValidate(cls, mesh);
    MeshMetaInvalidate(nullptr, mesh, 0);
    EXPECT_EQ(in_order({MeshMetaIsValid(cls, mesh), g_drops}), (Ints{0, 3}));
    record->persistent = 7;
    MeshMetaInvalidate(cls, mesh, MESH_META_FREE);
    EXPECT_EQ(g_drops, 3);  // nothing built to drop
    EXPECT_EQ(static_cast<Counted *>(MeshMetaRecord(cls, mesh))->persistent, 42);
    MeshMetaValidate(cls, mesh);
    const int drops = g_drops;
    MeshDestroy(mesh);
    mesh = nullptr;
    EXPECT_EQ(g_drops, drops + 1);  // the mesh drops what was built
}

TEST_F(MetaData, APolygonTypesClassGetsARecordOnEveryMesh) {
    MeshMetaClass *cls = MeshMetaDefine("test.counted", &kCounted);
    Mesh *early = mesh;
    const PolyType *type = PolyTypeDefine(VX_CODE4('T', 'M', 'E', 'T'), "metaType", 0, 0);
    EXPECT_EQ(PolyTypeMetaClass(type), nullptr);
    EXPECT_EQ(in_order({PolyTypeSetMetaClass(type, cls), PolyTypeSetMetaClass(type, cls),
                        PolyTypeSetMetaClass(type, MeshMetaLookup(MESH_META_BOUNDS))}),
              (Ints{1, 1, 0}));
    EXPECT_EQ(PolyTypeMetaClass(type), cls);

    Mesh *late = MeshCreate();
    g_builds = 0;
    EXPECT_EQ(MeshMetaIsValid(cls, late), 0);
    auto *made = static_cast<Counted *>(MeshMetaRecord(cls, late));
    EXPECT_EQ(made->persistent, 42);
    EXPECT_EQ(g_builds, 0);  // made with the mesh, not built
    // A mesh made before the class was attached gets its record on first use.
    auto *first_use = static_cast<Counted *>(MeshMetaValidate(cls, early));
    ASSERT_NE(first_use, nullptr);
    EXPECT_EQ(first_use->persistent, 42);
    EXPECT_NE(first_use, made);
    MeshDestroy(late);
}

TEST_F(MetaData, PolygonNormalsAndBoundsFollowTheGeometry) {
    MeshVertex *v[4] = {vertex(mesh, 0, 0), vertex(mesh, 1, 0), vertex(mesh, 1, 1),
                        vertex(mesh, 0, 1)};
    MeshPolygon *up = MeshNewPolygon(mesh, kFace, 4, v, 0);
    MeshPolygon *down = MeshNewPolygon(mesh, kFace, 4, v, 1);
    MeshPolygon *line = MeshNewPolygon(mesh, kCurve, 2, v, 0);
    MeshVertex *collinear[3] = {v[0], v[1], vertex(mesh, 2, 0)};
    MeshPolygon *flat = MeshNewPolygon(mesh, kFace, 3, collinear, 0);

    float n[3];
    ASSERT_EQ(MeshPolygonNormal(mesh, up, n), 1);
    EXPECT_EQ(n[2], 1.0f);
    ASSERT_EQ(MeshPolygonNormal(mesh, down, n), 1);
    EXPECT_EQ(n[2], -1.0f);
    EXPECT_EQ(MeshPolygonNormal(mesh, line, n), 0);
    EXPECT_EQ(MeshPolygonNormal(mesh, flat, n), 0);
    EXPECT_EQ(n[0], 0.0f);

    // Moving a vertex out of the plane tilts the normal at the next read.
    const double lifted[3] = {1, 1, 1};
    MeshVertexSet(mesh, v[2], lifted);
    ASSERT_EQ(MeshPolygonNormal(mesh, up, n), 1);
    EXPECT_LT(n[2], 1.0f);
    EXPECT_GT(n[2], 0.0f);

    // A polygon made inside a batch, after the normals were built, still has its own.
    MeshBatchBegin(mesh);
    ASSERT_EQ(MeshPolygonNormal(mesh, up, n), 1);
    MeshPolygon *late = MeshNewPolygon(mesh, kFace, 4, v, 1);
    ASSERT_EQ(MeshPolygonNormal(mesh, late, n), 1);
    EXPECT_LT(n[2], 0.0f);
    MeshBatchEnd(mesh);
    ASSERT_EQ(MeshPolygonNormal(mesh, up, n), 1);

    // An instance reads the normals of its source's polygons.
    Mesh *instance = MeshCreateInstance(mesh, 1);
    float m[3];
    ASSERT_EQ(MeshPolygonNormal(instance, up, m), 1);
    EXPECT_EQ(std::memcmp(n, m, sizeof n), 0);

    struct Bounds {
        float box[6];
        std::int32_t any;
    };
    MeshMetaClass *bounds = MeshMetaLookup(MESH_META_BOUNDS);
    auto *b = static_cast<const Bounds *>(MeshMetaValidate(bounds, mesh));
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->any, 1);
    EXPECT_EQ(b->box[3], 2.0f);
    EXPECT_EQ(b->box[5], 1.0f);
    // Dead vertices do not count.
    MeshFreeVertex(mesh, collinear[2]);
    b = static_cast<const Bounds *>(MeshMetaValidate(bounds, mesh));
    EXPECT_EQ(b->box[3], 1.0f);
    MeshDestroy(instance);
}

}  // namespace
}  // namespace vx::test
