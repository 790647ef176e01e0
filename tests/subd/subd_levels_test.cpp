// The level functions as a mesh's port and the log see them: clamps, results, events, the
// slots they flush and the failure lines they write.
#include <cctype>
#include <string>

#include <vexor/log.h>

#include "mesh/mesh_fixture.h"
#include "subd/subd_data.h"
#include "subd/subd_fixture.h"

namespace vx::test {
namespace {

constexpr std::uint32_t kBefore = SUBD_EVENT_BEFORE, kAfter = SUBD_EVENT_AFTER;

struct FailureLines {
    std::vector<std::string> lines;
    FailureLines() { VxLogSetSink(&sink, this); }
    ~FailureLines() { VxLogSetSink(nullptr, nullptr); }
    static void sink(void *client, int kind, const char *, const char *text) {
        if (kind == VX_LOG_FAILURE) static_cast<FailureLines *>(client)->lines.push_back(text);
    }
};

// Whether a line is "#[fail] <ptch>:LINE MESSAGE " with an empty argument, as the level
// functions write them.
bool ptch_failure(const std::string &line, const std::string &message) {
    const std::string head = "#[fail] <ptch>:";
    if (line.compare(0, head.size(), head) != 0) return false;
    std::size_t at = head.size();
    const std::size_t digits = at;
    while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])) != 0) ++at;
    return at > digits && line.substr(at) == " " + message + " \n";
}

class Levels : public SubdTest {
  protected:
    void SetUp() override {
        SubdTest::SetUp();
        shape = build(cube());
        float p[3];
        ASSERT_EQ(SUBDGetCorner(shape.mesh, shape.vertices[0], p), 1);  // builds the data
        events = std::make_unique<EventLog>(MeshEventPort(shape.mesh));
    }
    void TearDown() override {
        events.reset();
        MeshDestroy(shape.mesh);
        SubdTest::TearDown();
    }
    subd::SubdData &data() { return *subd::record_of(shape.mesh); }
    bool slot_filled() { return data().table.slots[0] != nullptr; }
    bool surface_valid() {
        return MeshMetaIsValid(PolyTypeMetaClass(PolyTypeCodeLookup(kSubd)), shape.mesh) != 0;
    }
    BuiltShape shape;
    std::unique_ptr<EventLog> events;
};

TEST_F(Levels, SubdLevelClampsToOneToTwentyFourAndReturnsTheLevelPassed) {
    struct Case {
        int passed, stored;
        bool logged;
    };
    const Case cases[] = {{0, 1, false},   {-5, 1, false}, {3, 3, false},    {30, 24, false},
                          {47, 24, false}, {48, 24, true}, {1000, 24, true}, {2, 2, false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.passed);
        FailureLines log;
        const bool rebuilt = c.stored != data().table.level.load();
        const bool had = slot_filled();
        EXPECT_EQ(SUBDSetLevel(shape.mesh, c.passed), c.passed);
        EXPECT_EQ(events->masks(), (std::vector<std::uint32_t>{kBefore, kAfter}));
        EXPECT_EQ(SUBDGetLevel(shape.mesh), c.stored);
        EXPECT_EQ(SUBDGetRenderLevel(shape.mesh), c.stored);
        EXPECT_EQ(slot_filled(), had && !rebuilt) << "the slots are emptied for a new level only";
        ASSERT_EQ(log.lines.size(), c.logged ? 1u : 0u);
        if (c.logged) {
            EXPECT_TRUE(ptch_failure(log.lines[0], "SUBD level set to ridiculous value!"))
                << log.lines[0];
        }
        // Reading the refined geometry again refills it at the new level.
        if (c.stored <= 3) {
            EXPECT_EQ(outline(shape.mesh, nullptr, shape.polygons[0]).size(),
                      3u * (4u << c.stored));
        }
    }
}

TEST_F(Levels, NewMeshesStartAtLevelTwoAndRenderLevelAnnouncesOnceAndFlushesNothing) {
    const PolyTypeLevels *l = PolyTypeGetLevels(shape.mesh);
    ASSERT_NE(l, nullptr);
    EXPECT_EQ((std::vector<int>{l->subdLevel, l->renderLevel, l->patchLevel, l->splineLevel}),
              (std::vector<int>(4, 2)));
    EXPECT_EQ(l->linearUV + l->cageMode, 0);
    EXPECT_EQ(PolyTypeGetLevels(nullptr), nullptr);
    EXPECT_EQ(SUBDSetRenderLevel(shape.mesh, 2), 2);
    EXPECT_EQ(events->masks(), std::vector<std::uint32_t>{kBefore});
    for (const auto &[passed, stored] : {std::pair{100, 24}, {-1, 1}, {7, 7}}) {
        EXPECT_EQ(SUBDSetRenderLevel(shape.mesh, passed), passed);
        EXPECT_EQ(SUBDGetRenderLevel(shape.mesh), stored);
    }
    EXPECT_EQ(events->masks(), (std::vector<std::uint32_t>(3, kBefore)));
    EXPECT_EQ(SUBDGetLevel(shape.mesh), 2);
    EXPECT_TRUE(slot_filled());
}

TEST_F(Levels, PatchLevelsClampToOneTo4095AndReturnTheClampedLevel) {
    struct Setter {
        int (*set)(Mesh *, int);
        int (*get)(Mesh *);
        std::uint32_t code;
    };
    for (const Setter &s : {Setter{PTCHSetLevel, PTCHGetLevel, VX_CODE4('P', 'T', 'C', 'H')},
                            Setter{SPCHSetLevel, SPCHGetLevel, VX_CODE4('S', 'P', 'C', 'H')}}) {
        MeshMetaClass *cls = PolyTypeMetaClass(PolyTypeCodeLookup(s.code));
        ASSERT_NE(cls, nullptr);
        for (const auto &[passed, stored] : {std::pair{5000, 4095}, {0, 1}, {-3, 1}, {7, 7}}) {
            ASSERT_NE(MeshMetaValidate(cls, shape.mesh), nullptr);
            const bool changes = s.get(shape.mesh) != stored;
            EXPECT_EQ(s.set(shape.mesh, passed), stored);
            EXPECT_EQ(s.get(shape.mesh), stored);
            EXPECT_EQ(MeshMetaIsValid(cls, shape.mesh), changes ? 0 : 1);
            EXPECT_EQ(events->masks(), (std::vector<std::uint32_t>{kBefore, kAfter}));
        }
    }
    EXPECT_EQ(SUBDGetLevel(shape.mesh), 2);
    EXPECT_EQ(PTCHSetLevel(nullptr, 9000), 0);
}

TEST_F(Levels, CageModeIsQuietAndRefreshesByItsOwnerWhileLinearUVsAnnounceAChange) {
    float p[3];
    EXPECT_EQ(SUBDSetCageMode(shape.mesh, 1), 1);
    EXPECT_EQ(SUBDGetCageMode(shape.mesh), 1);
    EXPECT_EQ(events->count(), 0u);
    EXPECT_FALSE(surface_valid()) << "without an owner the whole surface is refreshed";
    EXPECT_EQ(SUBDGetCorner(shape.mesh, shape.vertices[0], p), 0);
    EXPECT_EQ(SUBDGetUVCorner(shape.mesh, shape.uv, shape.polygons[0], 0, p), 0);
    // An owner holds the topology: entering cage mode keeps it, leaving refills the geometry.
    data().owner->flags = 1;
    EXPECT_EQ(SUBDSetCageMode(shape.mesh, 2), 2);
    EXPECT_TRUE(surface_valid());
    EXPECT_FALSE(slot_filled());
    EXPECT_EQ(SUBDSetCageMode(shape.mesh, 0), 0);
    EXPECT_TRUE(surface_valid());
    EXPECT_TRUE(slot_filled());
    EXPECT_EQ(SUBDGetCorner(shape.mesh, shape.vertices[0], p), 1);
    EXPECT_EQ(events->count(), 0u);
    data().owner->flags = 0;

    // Linear UVs announce both events and rebuild only on a change.
    SUBDSetLinearUV(shape.mesh, 0);
    EXPECT_TRUE(surface_valid());
    SUBDSetLinearUV(shape.mesh, 5);
    EXPECT_EQ(SUBDGetLinearUV(shape.mesh), 5);
    EXPECT_FALSE(surface_valid());
    EXPECT_EQ(events->masks(), (std::vector<std::uint32_t>{kBefore, kAfter, kBefore, kAfter}));
}

TEST_F(Levels, ObsoletePatchQueriesReportAndAnswerZero) {
    FailureLines log;
    float out[12] = {};
    EXPECT_EQ(PTCHGetCorner(shape.mesh, shape.vertices[6], out), 0);
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{1, 1, 1}));
    EXPECT_EQ(PTCHGetEdgeBezier(shape.mesh, shape.polygons[0], 0, out), 0);
    ASSERT_EQ(log.lines.size(), 2u);
    EXPECT_TRUE(ptch_failure(log.lines[0], "PTCHGetCorner: SubPatch was removed."));
    EXPECT_TRUE(ptch_failure(log.lines[1], "PTCHGetEdgeBezier: SubPatch was removed."));
}

TEST_F(Levels, BufferLevelsDropTheBuffersOwnSlots) {
    PolyVBuf *buffer = PolyVBufCreate(shape.mesh, shape.uv, PVBUF_OUTLINE);
    EXPECT_EQ(PolyVBufLevel(buffer), 2);
    auto *table =
        static_cast<subd::SlotTable *>(PolyVBufGetData(buffer, PolyTypeCodeLookup(kSubd)));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(PolyVBufGetData(buffer, PolyTypeCodeLookup(VX_CODE4('F', 'A', 'C', 'E'))), nullptr);
    SUBDVBufSetLevel(buffer, 3);
    EXPECT_EQ(fill(buffer, shape.polygons[0]), 4u * 8u);
    EXPECT_NE(table->slots[1], nullptr);
    SUBDVBufSetLevel(buffer, 4);
    EXPECT_EQ(table->slots[1], nullptr);
    EXPECT_EQ(PolyVBufLevel(buffer), 4);
    SUBDVBufSetLevel(buffer, 99);
    EXPECT_EQ(PolyVBufLevel(buffer), 24);
    SUBDVBufSetLevel(nullptr, 3);
    PolyVBufDestroy(buffer);
    EXPECT_TRUE(slot_filled()) << "the mesh's own slots are not the buffer's";
}

// A meta data class whose drop step changes the levels of the mesh being destroyed.
int g_answer = -1;
void change_levels_on_drop(void *, Mesh *mesh) {
    g_answer =
        SUBDSetLevel(mesh, 5) + (PolyTypeGetLevels(mesh) == nullptr ? 0 : 100) + SUBDGetLevel(mesh);
}
int build_nothing(void *, Mesh *) {
    return 1;
}

TEST_F(Levels, NullMeshesAndMeshesBeingDestroyedChangeNothing) {
    EXPECT_EQ(SUBDSetLevel(nullptr, 3), 3);
    EXPECT_EQ(SUBDGetLevel(nullptr), 0);
    EXPECT_EQ(SUBDSetCageMode(nullptr, 1), 1);
    SUBDSetLinearUV(nullptr, 1);
    const MeshMetaOps ops = {8, 0, nullptr, &build_nothing, &change_levels_on_drop};
    MeshMetaClass *cls = MeshMetaDefine("test.levelsOnDrop", &ops);
    Mesh *mesh = build(cube()).mesh;
    ASSERT_NE(MeshMetaValidate(cls, mesh), nullptr);
    MeshDestroy(mesh);
    EXPECT_EQ(g_answer, 5) << "the level is returned; no record is made again";
}

}  // namespace
}  // namespace vx::test
