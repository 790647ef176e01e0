// Scene files: a scene with every kind of thing survives a save and a load; a file that needs a
// package the session lacks loads without it, or fails in strict mode; damaged files and
// allocation failures leave no scene behind.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <vexor/block.h>
#include <vexor/host.h>
#include <vexor/log.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/scene_io.h>
#include <vexor/undo.h>

#include "action_fixture.h"
#include "scene/scene.h"
#include "scene_bytes.h"
#include "support/alloc_injection.h"
#include "support/atomicity.h"

namespace vx::test {
namespace {

constexpr std::uint32_t kNoteTag = 0x4E4F5445;  // "NOTE"
constexpr std::uint32_t kFlagTag = 0x464C4147;  // "FLAG"

std::vector<CineItem *> items_of(Cinema *scene) {
    std::vector<CineItem *> items;
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i)
        items.push_back(CinemaItemByIndex(scene, i));
    return items;
}

std::string name_of(CineItem *item) {
    return item != nullptr ? CineItemUniqueName(item) : "-";
}

// Envelope details the action snapshot leaves out: behaviours, key flags, tangents.
std::string envelope_text(Envelope *env) {
    std::string text = " pre " + std::to_string(EnvPreBehavior(env)) + " post " +
                       std::to_string(EnvPostBehavior(env)) + " type " +
                       std::to_string(EnvType(env));
    for (EnvKey *k = EnvGetKeyList(env)->head; k->succ != nullptr; k = k->succ) {
        text += " [" + std::to_string(k->flags);
        // A key without breaks has no side 1 of its own (the file does not keep one).
        for (int side = 0; side < ((k->flags & 0x7u) != 0 ? 2 : 1); ++side) {
            const EnvKeySide &s = k->side[side];
            text += " " + std::to_string(s.flags) + "/" +
                    (EnvType(env) == 1 ? std::to_string(s.value.i) : std::to_string(s.value.f)) +
                    "/" + std::to_string(s.slope) + "/" + std::to_string(s.weight);
        }
        text += "]";
    }
    return text;
}

// Everything a scene file keeps, by unique names and positions, never by identity.
std::string scene_snapshot(Cinema *scene) {
    const std::vector<CineItem *> items = items_of(scene);
    std::string text = "flags " + std::to_string(CinemaFlags(scene)) + "\n";
    for (CineItem *item : items) {
        const char *own = CineItemName(item);
        text += name_of(item) + " type " + CineTypeName(CineItemType(item)) + " own " +
                (own != nullptr ? own : "(none)") + " hidden " +
                std::to_string(CineItemHidden(item)) + " parent " + name_of(CineItemParent(item)) +
                " source " + name_of(CineItemSource(item)) + " packages";
        for (unsigned p = 0; p < CineItemPackageCount(item); ++p) {
            text += std::string(" ") + CinePackageName(CineItemPackageByIndex(item, p));
        }
        text += " children";
        for (unsigned c = 0; c < CineItemSubCount(item); ++c) {
            text += " " + name_of(CineItemSubByIndex(item, c));
        }
        for (const cine::ItemTag &tag : item->tags) {
            text += " tag " + std::to_string(tag.code) + "=" + tag.value;
        }
        text += "\n";
    }
    text += actions_snapshot(scene, items);
    for (CineAction *a = CineActionFirst(scene); a != nullptr; a = CineActionNext(a)) {
        for (std::size_t i = 0; i < items.size(); ++i) {
            for (unsigned ch = 0; ch < CineChannelCount(items[i]); ++ch) {
                if (Envelope *env = CineActionEnv(a, items[i], ch)) {
                    text += std::string(CineActionName(a)) + " " + std::to_string(i) + "." +
                            std::to_string(ch) + envelope_text(env) + "\n";
                }
            }
        }
    }
    return text;
}

// An object of the "$Cinema" server of the class, with its file interface (two references).
void *file_object(const char *cls, const CinemaFileMethods **methods) {
    void *object = nullptr;
    void *table = nullptr;
    EXPECT_EQ(ServerAllocate(HostLookupServer(cls, "$Cinema"), &object), VX_OK);
    EXPECT_EQ(XObjectQueryInterface(object, CINEMA_FILE_GUID, &table), VX_OK);
    *methods = static_cast<const CinemaFileMethods *>(table);
    return object;
}

class SceneFileTest : public ActionTest {
  protected:
    // A scene with every kind of thing a scene file keeps.
    void build_full_scene() {
        CinePackageDefine("sublayered");
        sublayered = CineDefineType(0, static_cast<std::int32_t>(layered), "sublayered");
        ASSERT_NE(sublayered, CINE_TYPE_NONE);
        CinePackage *tail = CinePackageFind("tail");
        CineItem *lamp = item();
        CineItem *lamp2 = item();
        CineItem *plain = item();
        UndoSysSuspend();
        CineItem *sub = CineItemCreate(scene, sublayered);
        UndoSysResume();
        items.push_back(sub);
        CineItemSetName(lamp, "Light");
        CineItemSetName(lamp2, "Light");
        CineItemSetName(sub, "Cam \"one\" \xC3\xBC");
        EXPECT_EQ(CineItemSetParent(lamp2, lamp, -1), 0u);
        EXPECT_EQ(CineItemSetParent(plain, lamp, 0), 0u);  // before lamp2
        EXPECT_EQ(CineItemSetParent(sub, lamp2, -1), 0u);
        EXPECT_EQ(CineItemSetSource(sub, lamp), 1);
        CineItemSetTag(lamp, kNoteTag, "hello world");
        CineItemSetTag(plain, kFlagTag, "");
        CineItemSetHidden(plain, 1);
        CineItemAddPackage(lamp2, extra);
        CineItemAddPackage(sub, extra);
        CineItemAddPackage(sub, tail);

        const double matrix[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0.1};
        EXPECT_EQ(CineActionSetConstant(setup(), lamp, kX, 0.1), 1);
        EXPECT_EQ(CineActionSetConstantInt(setup(), lamp, kCount, -5), 1);
        EXPECT_EQ(CineActionSetConstantText(setup(), lamp2, kLabel, "a \"text\"\n\xC3\xA9"), 1);
        EXPECT_EQ(CineActionSetConstantMatrix(setup(), sub, kMatrix, matrix), 1);
        EXPECT_EQ(CineActionSetState(edit(), lamp, kX, CINE_STATE_REMOVED, nullptr), 1);

        Envelope *y = curve({0.0, 1.0, 0.5, -2.0, 1.25, 3.0});
        EnvSetPreBehaviorDirect(y, ENV_BEHAVIOR_REPEAT);
        EnvSetPostBehaviorDirect(y, ENV_BEHAVIOR_OSCILLATE);
        EnvKey *broken = EnvGetKeyList(y)->head->succ;
        EnvKeyBreak(y, broken, ENV_BREAK_SLOPE);
        EnvKeySetSlopeValue(y, broken, 1, -0.75);
        EnvKeySetUserFlag(broken, 0x10000u);
        EXPECT_EQ(CineActionSetEnvelope(scene_action(), lamp2, kY, y), 1);
        Envelope *count = EnvCreateInt(nullptr);
        EnvAddKeyInt(count, -1.0, 3);
        EnvAddKeyInt(count, 2.0, 2000000000);
        EXPECT_EQ(CineActionSetEnvelope(scene_action(), sub, kCount, count), 1);

        CineAction *walk = CineActionCreate(scene, "walk", 5, scene_action());
        CineActionAddParent(walk, setup(), -1);
        CineActionSetEnable(walk, 0);
        CineAction *run = CineActionCreate(scene, "Run", 7, walk);
        CineActionAddParent(edit(), walk, -1);
        const int e1 = CineItemLookupChannel(sub, "e1");
        const int t0 = CineItemLookupChannel(sub, "t0");
        ASSERT_GE(e1, 0);
        ASSERT_GE(t0, 0);
        EXPECT_EQ(CineActionSetConstant(walk, sub, static_cast<unsigned>(e1), -1e300), 1);
        EXPECT_EQ(CineActionSetConstant(run, sub, static_cast<unsigned>(t0), 42.0), 1);
    }

    std::uint32_t sublayered = 0;
};

TEST_F(SceneFileTest, ASceneWithEveryKindOfThingSurvivesASaveAndALoad) {
    build_full_scene();
    const std::string expected = scene_snapshot(scene);
    const Bytes bytes = saved(scene);

    UndoSysClear();
    const std::size_t events_before = events.size();
    Cinema *copy = loaded(bytes);
    ASSERT_NE(copy, nullptr) << VxLastFailure().text;
    EXPECT_EQ(scene_snapshot(copy), expected);
    EXPECT_EQ(saved(copy), bytes) << "a loaded scene saves to other bytes";
    EXPECT_EQ(CinemaHasChanged(copy), 0u);
    EXPECT_EQ(UndoSysCanUndo(), 0) << "the load left an undo step";
    EXPECT_EQ(events.size(), events_before) << "the scene sent events while it was loaded";
    CinemaSetIndexStyle(3);  // the name index is kept, not the text
    EXPECT_STREQ(CineItemUniqueName(CinemaItemByIndex(copy, 1)), "Light_2");
    CinemaSetIndexStyle(0);
    CinemaDestroy(copy);

    // The same through a file, by the saver and loader objects of the registry; the file
    // names the loaded scene.
    const std::string path =
        (std::filesystem::temp_directory_path() / "vexor_scene_file_test.vxr").string();
    const CinemaFileMethods *saver_file = nullptr;
    const CinemaFileMethods *loader_file = nullptr;
    void *saver = file_object("saver", &saver_file);
    void *loader = file_object("loader", &loader_file);
    ASSERT_EQ(saver_file->Save(saver, scene, path.c_str()), 1);
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    Cinema *from_file = loader_file->Load(loader, path.c_str(), CINEMA_LOAD_STRICT);
    ASSERT_NE(from_file, nullptr) << VxLastFailure().text;
    EXPECT_EQ(scene_snapshot(from_file), expected);
    EXPECT_EQ(std::string(CinemaFileName(from_file)), path);
    CinemaDestroy(from_file);
    std::filesystem::remove(path);
    EXPECT_EQ(CinemaLoadCustom(path.c_str(), 0), nullptr);
    for (void *object : {saver, loader}) {
        XObjectRelease(object);
        XObjectRelease(object);
    }
}

TEST_F(SceneFileTest, ObjectValuesAreNotSavedAndLoadOptionsAreChecked) {
    CineItem *one = item();
    int object = 0;
    ASSERT_EQ(CineActionSetConstantObject(setup(), one, kObject, &object), 1);
    ASSERT_EQ(CineActionSetConstant(setup(), one, kY, 4.0), 1);
    const Bytes bytes = saved(scene);
    Cinema *copy = loaded(bytes);
    ASSERT_NE(copy, nullptr);
    CineItem *again = CinemaItemByIndex(copy, 0);
    CineAction *copy_setup = CineActionGetDefault(copy, CINE_ACTION_SETUP);
    EXPECT_EQ(CineActionState(copy_setup, again, kObject), CINE_STATE_NONE);
    EXPECT_EQ(CineActionState(copy_setup, again, kY), CINE_STATE_CONSTANT);
    CinemaDestroy(copy);

    const unsigned count = CinemaCount();
    EXPECT_EQ(loaded(bytes, 0x2), nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
    EXPECT_EQ(CinemaCount(), count);
}

// A host package known when the file was saved and missing when it is loaded.
TEST_F(SceneFileTest, AFileNeedingAMissingPackageLosesItOrFailsInStrictMode) {
    const char *const none = nullptr;
    CinePackageDefine("plugin");
    CinePackageAddChannel("plugin", CINE_CH_NAME, "p0", VX_STORE_FLOAT, none, CINE_CH_NAME, none);
    const std::uint32_t plugin = CineDefineType(0, 0, "plugin");
    CinePackageDefine("plugpack");
    CinePackageAddChannel("plugpack", CINE_CH_NAME, "q0", VX_STORE_FLOAT, none, CINE_CH_NAME, none);
    CineItem *plug = CineItemCreate(scene, plugin);
    CineItem *kept = item();
    CineItem *child = item();
    ASSERT_NE(plug, nullptr);
    ASSERT_EQ(CineItemAddPackage(kept, CinePackageFind("plugpack")), 1);
    ASSERT_EQ(CineItemSetParent(kept, plug, -1), 0u);
    ASSERT_EQ(CineItemSetParent(child, kept, -1), 0u);
    ASSERT_EQ(CineActionSetConstant(setup(), plug, 0, 3.0), 1);
    ASSERT_EQ(CineActionSetConstant(setup(), kept, 6, 4.0), 1);  // q0, after layered's six
    ASSERT_EQ(CineActionSetConstant(setup(), kept, kX, 5.0), 1);
    const Bytes bytes = saved(scene);

    TearDown();  // a new session, without the plugin's packages
    SetUp();
    lines.clear();
    Cinema *copy = loaded(bytes);
    ASSERT_NE(copy, nullptr) << VxLastFailure().text;
    ASSERT_EQ(CinemaItemCount(copy), 2u);
    CineItem *k = CinemaItemByIndex(copy, 0);
    EXPECT_EQ(CineItemParent(k), nullptr);
    EXPECT_EQ(CineItemParent(CinemaItemByIndex(copy, 1)), k);
    EXPECT_EQ(CineItemPackageCount(k), 1u);
    CineAction *copy_setup = CineActionGetDefault(copy, CINE_ACTION_SETUP);
    EXPECT_EQ(CineActionValueFloat(copy_setup, k, kX), 5.0);
    EXPECT_EQ(CineActionTestItem(copy_setup, k), 1);
    unsigned missing = 0;
    for (const std::string &line : lines)
        missing += line.find("missing package:") != std::string::npos;
    EXPECT_EQ(missing, 2u);
    CinemaDestroy(copy);

    const unsigned count = CinemaCount();
    EXPECT_EQ(loaded(bytes, CINEMA_LOAD_STRICT), nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOTFOUND);
    EXPECT_EQ(CinemaCount(), count);
}

// Every cut of a file fails cleanly, and damaged bytes either load or fail without leaving a
// scene or memory behind.
TEST_F(SceneFileTest, TruncatedAndDamagedFilesFailCleanly) {
    build_full_scene();
    const Bytes bytes = saved(scene);
    quiet_log();
    const unsigned count = CinemaCount();
    CinemaDestroy(loaded(bytes));  // warms up what loads keep for good
    const AllocCounts before = alloc_counts();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        Cinema *scene_of_cut = loaded(cut);
        EXPECT_EQ(scene_of_cut, nullptr) << "a file cut at " << size << " loaded";
        CinemaDestroy(scene_of_cut);
        EXPECT_EQ(CinemaCount(), count);
    }
    std::size_t refused = 0;
    for (std::size_t at = 8; at < bytes.size(); ++at) {
        Bytes damaged = bytes;
        damaged[at] ^= 0xA5;
        Cinema *result = loaded(damaged);
        refused += result == nullptr;
        CinemaDestroy(result);
        EXPECT_EQ(CinemaCount(), count);
    }
    EXPECT_GT(refused, bytes.size() / 4);
    EXPECT_EQ(alloc_counts().live_blocks, before.live_blocks);
}

class LoadTarget : public AtomicityTarget {
  public:
    explicit LoadTarget(const Bytes &bytes) : bytes_(bytes) {
        attachment_ = ::PortAttach(::PortLookup("cinema-db"), count, &events_, nullptr);
    }
    ~LoadTarget() override {
        ::PortDetach(::PortLookup("cinema-db"), attachment_);
        CinemaDestroy(scene_);
    }
    std::string snapshot() override {
        return std::to_string(CinemaCount()) + "\n" + (scene_ ? scene_snapshot(scene_) : "");
    }
    bool edit() override {
        scene_ = loaded(bytes_);
        return scene_ != nullptr;
    }
    std::size_t events() override { return events_; }

  private:
    static void count(void *client, void *, std::uint32_t, void *) {
        ++*static_cast<std::size_t *>(client);
    }
    const Bytes &bytes_;
    Cinema *scene_ = nullptr;
    std::size_t events_ = 0;
    std::uint64_t attachment_ = 0;
};

TEST_F(SceneFileTest, ALoadThatRunsOutOfMemoryLeavesNothingBehind) {
    build_full_scene();
    const Bytes bytes = saved(scene);
    quiet_log();
    const AtomicityReport report =
        check_atomicity("CinemaLoadAccess", [&] { return std::make_unique<LoadTarget>(bytes); });
    EXPECT_GT(report.held, 50u);
}

}  // namespace
}  // namespace vx::test
