// Scenes as a host sees them: the scene list and untitled numbers, the module's servers and
// graphs, the event routine (batches, quiet scenes, sub-scenes) and the change counters.
#include <vexor/host.h>
#include <vexor/undo.h>

#include "foundation/log.h"
#include "scene/scene.h"
#include "scene_fixture.h"

namespace vx::test {
namespace {

TEST_F(SceneTest, ScenesAreListedInOrderUndoablyAndUntitledNumbersSkipNamedScenes) {
    Cinema *second = CinemaCreate(7);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(CinemaIndex(scene), 0u);
    EXPECT_EQ(CinemaIndex(second), 1u);
    EXPECT_EQ(CinemaFlags(second), 7u);
    // Undoing the creation takes the scene out of the list.
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CinemaIndex(second), 0xFFFFFFFFu);
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(CinemaIndex(second), 1u);
    EXPECT_EQ(CinemaUntitledIndex(scene), 1u);
    EXPECT_EQ(CinemaUntitledIndex(second), 2u);

    // Only scenes without a file name count: the largest unnamed number is 1, so the next is 2.
    ASSERT_EQ(CinemaSetFileName(second, "shot.vxr"), 1);
    Cinema *third = CinemaCreate(0);
    EXPECT_EQ(CinemaUntitledIndex(third), 2u);
    // An empty name counts as none.
    ASSERT_EQ(CinemaSetFileName(second, ""), 1);
    Cinema *fourth = CinemaCreate(0);
    EXPECT_EQ(CinemaUntitledIndex(fourth), 3u);

    CinemaDestroy(second);
    EXPECT_EQ(CinemaIndex(third), 1u);
    EXPECT_EQ(CinemaCount(), 3u);
    EXPECT_EQ(CinemaByIndex(2), fourth);
}

TEST_F(SceneTest, StartupRegistersTheSceneFileServersAndGraphs) {
    HostServer *saver = HostLookupServer("saver", "$Cinema");
    HostServer *loader = HostLookupServer("loader", "$Cinema");
    ASSERT_NE(saver, nullptr);
    ASSERT_NE(loader, nullptr);
    EXPECT_STREQ(ServerGetInfoTag(saver, "server.username"), "Vexor Scene");
    EXPECT_STREQ(ServerGetInfoTag(saver, "saver.outClass"), "scene");
    EXPECT_STREQ(ServerGetInfoTag(saver, "saver.dosType"), "vxr");
    EXPECT_STREQ(ServerGetInfoTag(loader, "loader.classList"), "scene");
    EXPECT_STREQ(ServerGetInfoTag(loader, "loader.dosPattern"), "*.vxr");

    EXPECT_STREQ(CinemaGraphName(CinemaGraphLookup(scene, "parent")), "parent");
    EXPECT_NE(CinemaGraphLookup(scene, "source"), nullptr);
    EXPECT_EQ(CinemaGraphLookup(scene, "groups"), nullptr);
    // A graph registered later is made in the scenes made after.
    ASSERT_EQ(CinemaGraphDefault("groups", 1), 1);
    EXPECT_EQ(CinemaGraphLookup(scene, "groups"), nullptr);
    EXPECT_NE(CinemaGraphLookup(CinemaCreate(0), "groups"), nullptr);

    CinemaDefineStrings("sans titre");
    EXPECT_STREQ(CinemaUntitledText(), "sans titre");
    CinemaDefineStrings(nullptr);
    EXPECT_STREQ(CinemaUntitledText(), "untitled");
}

TEST_F(SceneTest, EventsReachBothPortsAndOnlyNonItemEventsReachSubScenes) {
    Cinema *sub = CinemaCreate(0);
    PortLog heard_by_sub;
    heard_by_sub.attach(CinemaPort(sub));
    db.events.clear();

    CinemaBatchBegin(scene);
    CinemaBatchBegin(scene);
    EXPECT_EQ(CinemaBatchDepth(scene), 2);
    CinemaBatchEnd(scene);
    EXPECT_EQ(CinemaBatchDepth(scene), 1);
    EXPECT_EQ(db.count(CINE_EVENT_BATCH_BEGIN), 2u);
    EXPECT_EQ(own.count(CINE_EVENT_BATCH_END), 1u);
    EXPECT_EQ(db.events.front().sender, scene);
    // Item events stay with the scene; the clean/changed flip does too.
    EXPECT_TRUE(heard_by_sub.events.empty());

    CinemaChanged(scene, 0);
    CinemaHasChanged(scene);
    CinemaChanged(scene, 0);  // back to clean: sent, but not to sub-scenes
    EXPECT_EQ(db.count(CINE_EVENT_CHANGED_STATE), 2u);
    EXPECT_TRUE(heard_by_sub.events.empty());

    ASSERT_NE(CineItemCreate(scene, object), nullptr);
    EXPECT_EQ(heard_by_sub.count(CINE_EVENT_ITEM_ADDED), 0u);
    // The root scene passes other events on to its sub-scenes.
    vx::cine::send_event(*scene, 0x4001, nullptr);
    ASSERT_EQ(heard_by_sub.events.size(), 1u);
    EXPECT_EQ(heard_by_sub.events[0].sender, scene);
}

TEST_F(SceneTest, AQuietSceneSendsNothingButStillCountsChanges) {
    CinemaSetQuiet(scene, 1);
    CineItemSetHidden(CineItemCreate(scene, object), 1);
    EXPECT_TRUE(db.events.empty());
    EXPECT_TRUE(own.events.empty());
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
}

TEST_F(SceneTest, ChangeCountersRiseOnceUntilReadAndUndoRestoresThem) {
    EXPECT_EQ(CinemaAbsoluteChanges(scene), 0u);
    CinemaChanged(scene, 1);
    CinemaChanged(scene, 1);
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
    EXPECT_EQ(own.count(CINE_EVENT_CHANGED_STATE), 1u);
    EXPECT_EQ(CinemaAbsoluteChanges(scene), 1u) << "only the first change after a read counts";
    CinemaChanged(scene, 1);  // counts again after the read
    EXPECT_EQ(CinemaHasChanged(scene), 2u);
    EXPECT_EQ(own.count(CINE_EVENT_CHANGED_STATE), 1u) << "still changed: no flip";

    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CinemaHasChanged(scene), 0u);
    EXPECT_EQ(own.count(CINE_EVENT_CHANGED_STATE), 2u) << "undo flips back to clean";
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(CinemaHasChanged(scene), 1u);

    CinemaChanged(scene, 0);
    EXPECT_EQ(CinemaHasChanged(scene), 0u);
    CinemaChanged(scene, 0);  // already clean: no edit
    EXPECT_EQ(own.count(CINE_EVENT_CHANGED_STATE), 4u);
}

TEST_F(SceneTest, ItemEditsMarkTheSceneChangedButNotWhileUndoing) {
    CineItem *item = CineItemCreate(scene, object);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
    CineItemSetName(item, "Key");  // counted: the read above reset the last flag
    EXPECT_EQ(CinemaHasChanged(scene), 2u);
    // Undo puts the count back through the counter's own record, and marks nothing itself.
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CinemaHasChanged(scene), 0u);
}

TEST_F(SceneTest, TheChangedChannelExplainsEachChange) {
    vx::log::enable_channel("cinemachanged", true);
    CinemaChanged(scene, 1);
    CinemaHasChanged(scene);
    vx::log::enable_channel("cinemachanged", false);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("CinemaChanged() called for 0x"), std::string::npos);
    EXPECT_NE(lines[0].find("with changed set to 1; cinema->changed is 0, newVal is 1\n"),
              std::string::npos);
    EXPECT_NE(lines[1].find(": resetting cinema->changedLast to -1; cinema->changed is 1\n"),
              std::string::npos);
}

TEST_F(SceneTest, EditsOfADestroyedSceneDoNothingWhenUndone) {
    Cinema *other = CinemaCreate(0);
    CineItem *item = named_item(other, light, "Gone");
    ASSERT_NE(item, nullptr);
    CineItemAddPackage(item, extra);
    const std::size_t steps = UndoSysUndoCount();
    CinemaDestroy(other);
    // Undoing and redoing them is harmless, and so is dropping them.
    while (UndoSysUndo()) {
    }
    while (UndoSysRedo()) {
    }
    EXPECT_EQ(UndoSysUndoCount(), steps);
    // Dropped while undone, the records do not free what the scene took with it.
    while (UndoSysUndo()) {
    }
    UndoSysClear();
    EXPECT_EQ(CinemaCount(), 1u);
}

TEST_F(SceneTest, InterfacesMayBeNamedByTheirAliases) {
    CinePackage *pkg = CinePackageFind("tstObject");
    EXPECT_NE(CinePackageQueryIfc(pkg, "package"), nullptr);
    EXPECT_EQ(CinePackageQueryIfc(pkg, "scene"), nullptr);
    EXPECT_EQ(CinePackageQueryIfc(pkg, "noSuchAlias"), nullptr);
}

}  // namespace
}  // namespace vx::test
