// Where a channel's value comes from: the default actions and their order, the fall-backs of a
// look-up, states, holders, extents and the events that actions send.
#include <cstring>

#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/undo.h>

#include "action_fixture.h"

namespace vx::test {
namespace {

using ActionLookup = ActionTest;

TEST_F(ActionLookup, DefaultActionsFormTheOrderAndSetupStateLeavesSceneOut) {
    ASSERT_NE(edit(), nullptr);
    EXPECT_STREQ(CineActionName(setup()), "setup");
    EXPECT_EQ(CineActionType(scene_action()), CINE_ACTION_SCENE);
    EXPECT_EQ(CineActionType(edit()), CINE_ACTION_EDIT);
    EXPECT_EQ(CineActionFirstParent(edit()), scene_action());
    EXPECT_EQ(CineActionFirstParent(setup()), nullptr);
    EXPECT_EQ(CineActionGetDefault(scene, 5), nullptr);
    EXPECT_EQ(CineActionLookup(scene, "EdIt"), edit());
    EXPECT_EQ(CineActionLookup(scene, nullptr), nullptr);
    EXPECT_EQ(CineActionContext(edit()), scene);
    EXPECT_EQ(order(), "edit scene setup");
    EXPECT_EQ(CinemaSetupState(scene), 0);

    ASSERT_EQ(CineActionAddParent(edit(), setup(), 0), 1);
    EXPECT_EQ(CinemaSetupState(scene), 1);
    EXPECT_EQ(order(), "edit setup");
    EXPECT_GT(events_of(CINE_EVENT_ACTION_ORDER), 0u);
    // A value held only by "scene" is out of sight in setup state.
    CineItem *a = item();
    ASSERT_EQ(CineActionSetConstant(scene_action(), a, kX, 9.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), kDefaultX);
    ASSERT_EQ(CineActionRemoveParent(edit(), setup()), 1);
    EXPECT_EQ(order(), "edit scene setup");
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 9.0);
}

TEST_F(ActionLookup, LookupsSkipRemovedEntriesAndFallBackThroughTheChain) {
    CineItem *a = item();
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), kDefaultX);
    EXPECT_EQ(CineActionValueInt(edit(), a, kCount), kDefaultCount);
    EXPECT_EQ(CineActionValueFloat(nullptr, a, kX), kDefaultX);
    char text[32];
    EXPECT_EQ(CineActionValueExport(edit(), a, kX, text, sizeof text), 0u);

    ASSERT_EQ(CineActionSetConstant(setup(), a, kX, 3.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 3.0);
    ASSERT_EQ(CineActionSetConstant(scene_action(), a, kX, 4.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 4.0);
    EXPECT_EQ(CineActionValueFloat(setup(), a, kX), 3.0) << "earlier actions are not seen";

    ASSERT_EQ(CineActionSetState(edit(), a, kX, CINE_STATE_REMOVED, nullptr), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 4.0) << "a removed entry masks nothing";
    EXPECT_EQ(CineActionState(edit(), a, kX), CINE_STATE_REMOVED);
    EXPECT_EQ(CineActionState(scene_action(), a, kX), CINE_STATE_CONSTANT);
    EXPECT_EQ(CineActionState(edit(), a, kY), CINE_STATE_NONE);
    EXPECT_EQ(CineActionValueState(edit(), a, kX), CINE_STATE_REMOVED);
    EXPECT_EQ(CineActionValueState(edit(), a, kY), CINE_STATE_NONE);
    EXPECT_EQ(CineActionTestChannel(edit(), a, kX), 1);
    EXPECT_EQ(CineActionTestItem(edit(), a), 1);
    EXPECT_EQ(CineActionTestItem(edit(), item()), 0);

    // Holders further down the order: mode 0 wants live entries, mode 1 takes any.
    EXPECT_EQ(CineActionForChannel(edit(), a, kX, 0xFFFFFFFFu, 0), scene_action());
    EXPECT_EQ(CineActionForChannel(edit(), a, kX, CINE_ACTION_SETUP, 0), setup());
    EXPECT_EQ(CineActionForChannel(scene_action(), a, kX, 0xFFFFFFFFu, 0), setup());
    EXPECT_EQ(CineActionForChannel(setup(), a, kX, 0xFFFFFFFFu, 0), nullptr);
    EXPECT_EQ(CineActionForChannel(edit(), a, kX, 0xFFFFFFFFu, 2), nullptr);
    ASSERT_EQ(CineActionSetState(scene_action(), a, kX, CINE_STATE_REMOVED, nullptr), 1);
    EXPECT_EQ(CineActionForChannel(edit(), a, kX, 0xFFFFFFFFu, 1), scene_action());
    EXPECT_EQ(CineActionForChannel(edit(), a, kX, 0xFFFFFFFFu, 0), setup());
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 3.0);

    // Reviving a removed entry with a value, and clearing it altogether.
    ASSERT_EQ(CineActionSetConstant(edit(), a, kX, 5.0), 1);
    EXPECT_EQ(CineActionState(edit(), a, kX), CINE_STATE_CONSTANT);
    EXPECT_EQ(CineActionValueExport(edit(), a, kX, text, sizeof text), 1u);
    EXPECT_STREQ(text, "5");
    ASSERT_EQ(CineActionSetState(edit(), a, kX, CINE_STATE_NONE, nullptr), 1);
    EXPECT_EQ(CineActionTestChannel(edit(), a, kX), 0);
    EXPECT_EQ(CineActionExtents(edit(), nullptr, nullptr), 0) << "constants have no keys";
}

TEST_F(ActionLookup, ASearchThatFindsNothingMovesToTheSourceItem) {
    CineItem *source = item();
    CineItem *a = item();
    ASSERT_EQ(CineItemSetSource(a, source), 1);
    ASSERT_EQ(CineActionSetConstant(setup(), source, kY, 8.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kY), 8.0);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), kDefaultX);
    // The item's own entry anywhere in the chain comes before its source.
    ASSERT_EQ(CineActionSetConstant(setup(), a, kY, 6.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kY), 6.0);

    Envelope *env = curve({0.0, 1.0, 2.0, 3.0});
    ASSERT_EQ(CineActionSetEnvelope(scene_action(), source, kX, env), 1);
    EXPECT_EQ(CineActionValueEnv(edit(), a, kX), env);
    EXPECT_EQ(CineActionIsAnimated(edit(), a, kX), 1);
    EXPECT_EQ(CineActionIsAnimated(edit(), a, kY), 0);
    EXPECT_EQ(CineActionEnv(edit(), a, kX), nullptr) << "only this action's own entry";

    // A source of another type: the channel is found there by name, at another index.
    const char *const none = nullptr;
    CinePackageDefine("mirror");
    CinePackageAddChannel("mirror", CINE_CH_NAME, "y", VX_STORE_FLOAT, none, CINE_CH_NAME, "x",
                          VX_STORE_FLOAT, none, CINE_CH_NAME, none);
    CineItem *mirror = CineItemCreate(scene, CineDefineType(0, 0, "mirror"));
    ASSERT_NE(mirror, nullptr);
    CineItem *b = item();
    ASSERT_EQ(CineItemSetSource(b, mirror), 1);
    ASSERT_EQ(CineActionSetConstant(setup(), mirror, 1, 11.0), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), b, kX), 11.0);
    EXPECT_EQ(CineActionValueFloat(edit(), b, kY), 2.0) << "mirror's y has no entry: b's default";
}

TEST_F(ActionLookup, ValuesOfEveryKindConvertToTheChannel) {
    CineItem *a = item();
    ASSERT_EQ(CineActionSetConstant(edit(), a, kCount, 2.6), 1);
    EXPECT_EQ(CineActionValueInt(edit(), a, kCount), 3);
    ASSERT_EQ(CineActionSetConstantText(edit(), a, kX, "0.25"), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, kX), 0.25);
    ASSERT_EQ(CineActionSetConstantInt(edit(), a, kLabel, 42), 1);
    char text[64];
    EXPECT_EQ(CineActionValueExport(edit(), a, kLabel, text, sizeof text), 2u);
    EXPECT_STREQ(text, "42");
    const double m[16] = {1, 0, 0, 5, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    ASSERT_EQ(CineActionSetConstantMatrix(edit(), a, kMatrix, m), 1);
    EXPECT_EQ(CineActionSetConstantMatrix(edit(), a, kX, m), 0) << "a float is no matrix";
    int object = 0;
    ASSERT_EQ(CineActionSetConstantObject(edit(), a, kObject, &object), 1);
    EXPECT_EQ(CineActionValueCust(edit(), a, kObject), &object);
    // Every kind answers a value object: numbers as a double, text in place.
    ASSERT_NE(CineActionValueCust(edit(), a, kX), nullptr);
    EXPECT_EQ(*static_cast<const double *>(CineActionValueCust(edit(), a, kX)), 0.25);
    EXPECT_STREQ(static_cast<const char *>(CineActionValueCust(edit(), a, kLabel)), "42");
    EXPECT_EQ(*static_cast<const double *>(CineActionValueCust(edit(), a, kCount)),
              CineActionValueInt(edit(), a, kCount));
    EXPECT_EQ(static_cast<const double *>(CineActionValueCust(edit(), a, kMatrix))[3], 5.0);
    EXPECT_EQ(CineActionSetConstantObject(edit(), a, kX, &object), 0);
    EXPECT_EQ(CineActionSetConstant(edit(), a, 99, 1.0), 0) << "no such channel";
    EXPECT_EQ(CineActionSetState(edit(), a, kLabel, CINE_STATE_ENVELOPE, nullptr), 0);
    Envelope *ints = EnvCreateInt(nullptr);
    EXPECT_EQ(CineActionSetEnvelope(edit(), a, kX, ints), 0) << "the caller keeps it";
    ASSERT_EQ(CineActionSetEnvelope(edit(), a, kCount, ints), 1);
    ASSERT_EQ(CineActionSetValueInt(edit(), a, kCount, 4, 2.0), 1);
    EXPECT_EQ(key_count(ints), 1u);
}

TEST_F(ActionLookup, HeldEnvelopesAreKeyedAndTheirEditsAnnouncedAsActionChanges) {
    CineItem *a = item();
    Envelope *env = curve({1.0, 0.0, 3.0, 6.0});
    ASSERT_EQ(CineActionSetEnvelope(scene_action(), a, kX, env), 1);
    EXPECT_EQ(CineActionState(scene_action(), a, kX), CINE_STATE_ENVELOPE);
    EXPECT_EQ(CineActionValueState(edit(), a, kX), CINE_STATE_ENVELOPE);
    double first = 0.0;
    double last = 0.0;
    ASSERT_EQ(CineActionExtents(scene_action(), &first, &last), 1);
    EXPECT_EQ(first, 1.0);
    EXPECT_EQ(last, 3.0);
    ASSERT_EQ(CineActionSetEnvelope(scene_action(), a, kY, curve({})), 1);
    ASSERT_EQ(CineActionExtents(scene_action(), &first, &last), 1) << "no keys: skipped";
    EXPECT_EQ(first, 1.0);

    struct Heard {
        int changes = 0;
        CineActionChange last{};
    } heard;
    const std::uint64_t id = ::PortAttach(
        CineActionPort(scene_action()),
        [](void *client, void *, std::uint32_t code, void *data) {
            auto &h = *static_cast<Heard *>(client);
            if (code != CINE_EVENT_ACTION_CHANGED) return;
            ++h.changes;
            h.last = *static_cast<const CineActionChange *>(data);
        },
        &heard, nullptr);
    // Keying through the action, and editing the envelope directly, both reach its port.
    ASSERT_EQ(CineActionSetValue(scene_action(), a, kX, 9.0, 5.0), 1);
    EXPECT_EQ(key_count(env), 3u);
    EXPECT_GE(heard.changes, 1);
    EXPECT_EQ(heard.last.item, a);
    EXPECT_EQ(heard.last.channel, kX);
    EXPECT_NE(heard.last.flags & CINE_CHANGE_KEYS, 0u);
    heard.changes = 0;
    ASSERT_NE(EnvAddKey(env, 2.0, 1.0), nullptr);
    EXPECT_GE(heard.changes, 1);
    EXPECT_LE(heard.last.start, 2.0);
    EXPECT_GE(heard.last.end, 2.0);

    // Once the entry is cleared, the envelope (kept for undo) speaks for nobody.
    ASSERT_EQ(CineActionSetState(scene_action(), a, kX, CINE_STATE_NONE, nullptr), 1);
    const std::size_t cleared = UndoSysUndoCount();
    heard.changes = 0;
    ASSERT_NE(EnvAddKey(env, 4.0, 1.0), nullptr);
    EXPECT_EQ(heard.changes, 0);
    while (UndoSysUndoCount() >= cleared) ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CineActionEnv(scene_action(), a, kX), env);
    heard.changes = 0;
    ASSERT_NE(EnvAddKey(env, 4.0, 1.0), nullptr);
    EXPECT_EQ(heard.changes, 1);
    ::PortDetach(CineActionPort(scene_action()), id);
}

TEST_F(ActionLookup, MergingPicksTheNextHolderOrTheDefaultTarget) {
    CineItem *a = item();
    // A constant with no later holder goes to "setup"; with one, to that holder.
    ASSERT_EQ(CineActionSetConstant(edit(), a, kX, 2.0), 1);
    ASSERT_EQ(CineActionMergeChannel(edit(), nullptr, a, kX), 1);
    EXPECT_EQ(CineActionTestChannel(edit(), a, kX), 0);
    EXPECT_EQ(CineActionValueFloat(setup(), a, kX), 2.0);
    ASSERT_EQ(CineActionSetConstant(scene_action(), a, kY, 1.0), 1);
    ASSERT_EQ(CineActionSetConstant(edit(), a, kY, 7.0), 1);
    ASSERT_EQ(CineActionMergeChannel(edit(), nullptr, a, kY), 1);
    EXPECT_EQ(CineActionValueFloat(scene_action(), a, kY), 7.0);
    EXPECT_EQ(CineActionTestChannel(setup(), a, kY), 0);

    // An envelope goes to the next action of type 1, replacing what it held.
    Envelope *env = curve({0.0, 1.0});
    ASSERT_EQ(CineActionSetEnvelope(edit(), a, kY, env), 1);
    ASSERT_EQ(CineActionMergeChannel(edit(), nullptr, a, kY), 1);
    EXPECT_EQ(CineActionEnv(scene_action(), a, kY), env);
    // With a target given, and with nothing live to merge.
    ASSERT_EQ(CineActionMergeChannel(scene_action(), setup(), a, kY), 1);
    EXPECT_EQ(CineActionEnv(setup(), a, kY), env);
    ASSERT_EQ(CineActionSetState(edit(), a, kCount, CINE_STATE_REMOVED, nullptr), 1);
    EXPECT_EQ(CineActionMergeChannel(edit(), nullptr, a, kCount), 0);
    EXPECT_EQ(CineActionMergeChannel(edit(), nullptr, a, kLabel), 0);
}

TEST_F(ActionLookup, RemovingAPackageTakesItsValuesAndMovesTheLaterOnesDown) {
    CineItem *a = item();
    ASSERT_EQ(CineItemAddPackage(a, extra), 1);
    ASSERT_EQ(CineItemAddPackage(a, CinePackageFind("tail")), 1);
    const unsigned e1 = 7;
    const unsigned t0 = 8;
    ASSERT_EQ(CineActionSetConstant(edit(), a, e1, 5.0), 1);
    ASSERT_EQ(CineActionSetConstant(setup(), a, t0, 9.0), 1);
    const std::string before = snapshot();

    ASSERT_EQ(CineItemRemPackage(a, extra), 1);
    EXPECT_EQ(CineActionValueFloat(edit(), a, 6), 9.0) << "t0 is channel 6 now";
    EXPECT_EQ(CineActionTestChannel(edit(), a, 6), 0);
    EXPECT_EQ(CineActionTestChannel(setup(), a, t0), 0);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(snapshot(), before);

    ASSERT_EQ(CineActionPurgeItem(a), 1);
    EXPECT_EQ(CineActionTestItem(setup(), a), 0);
    EXPECT_EQ(CineActionTestItem(edit(), a), 0);
}

TEST_F(ActionLookup, ItemsOfAnotherSceneAreRefusedWithALogLine) {
    Cinema *other = CinemaCreate(0);
    ASSERT_NE(other, nullptr);
    CineItem *stranger = CineItemCreate(other, layered);
    EXPECT_EQ(CineActionSetConstant(edit(), stranger, kX, 1.0), 0);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("item not in action's cinema"), std::string::npos) << lines.back();
    EXPECT_EQ(CineActionTestItem(edit(), stranger), 0);

    // Each scene is marked changed by its own actions only.
    CinemaChanged(scene, 0);
    CinemaChanged(other, 0);
    CinemaHasChanged(scene);
    CinemaHasChanged(other);
    CineAction *their_edit = CineActionGetDefault(other, CINE_ACTION_EDIT);
    ASSERT_EQ(CineActionSetConstant(their_edit, stranger, kX, 1.0), 1);
    EXPECT_EQ(CinemaHasChanged(scene), 0u);
    EXPECT_GT(CinemaHasChanged(other), 0u);
    CinemaDestroy(other);
}

TEST_F(ActionLookup, EveryChangeIsAnnouncedAndQuietScenesKeepThePortSilent) {
    CineItem *a = item();
    events.clear();
    ASSERT_EQ(CineActionSetConstant(edit(), a, kY, 1.0), 1);
    ASSERT_EQ(events_of(CINE_EVENT_ACTION_CHANGED), 1u);
    EXPECT_EQ(events.back().action, edit());
    EXPECT_EQ(events.back().item, a);
    EXPECT_EQ(events.back().channel, kY);

    ASSERT_EQ(CineActionSetType(setup(), 4), 1);
    EXPECT_EQ(events.back().code, CINE_EVENT_ACTION_DEFINED);
    EXPECT_EQ(events.back().action, setup());
    const ActionEvent &change = events[events.size() - 2];
    EXPECT_EQ(change.flags, 266u);
    EXPECT_EQ(change.item, nullptr);
    EXPECT_EQ(change.start, -33600000.0);
    EXPECT_EQ(change.end, 33600000.0);
    ASSERT_EQ(CineActionSetEnable(setup(), 0), 1);
    EXPECT_EQ(events.back().flags, 256u);
    EXPECT_EQ(CineActionIsEnabled(setup()), 0);

    int heard = 0;
    const std::uint64_t id = ::PortAttach(
        CineActionPort(edit()),
        [](void *client, void *, std::uint32_t, void *) { ++*static_cast<int *>(client); }, &heard,
        nullptr);
    CinemaSetQuiet(scene, 1);
    events.clear();
    ASSERT_EQ(CineActionSetConstant(edit(), a, kY, 2.0), 1);
    EXPECT_EQ(heard, 0);
    EXPECT_TRUE(events.empty());
    CinemaSetQuiet(scene, 0);
    ASSERT_EQ(CineActionSetConstant(edit(), a, kY, 3.0), 1);
    EXPECT_EQ(heard, 1);
    ::PortDetach(CineActionPort(edit()), id);
}

}  // namespace
}  // namespace vx::test
