// Action clips: their own action through creation, deletion and undo; claims and releases;
// kinds; activation as evaluation sees it; parenting; enabling.
#include <functional>
#include <numeric>
#include <string>

#include <vexor/package.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

#include "clip_fixture.h"

namespace vx::test {
namespace {

using Clips = ClipTest;
constexpr unsigned kX = 0, kY = 1, kMatrix = 2;

TEST_F(Clips, AClipsActionComesAndGoesWithTheClip) {
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineAction *action = ActionClipAction(clip);
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(CineActionType(action), CINE_ACTION_SCENE);
    EXPECT_EQ(ActionClipType(clip), ACTIONCLIP_KIND_ANIMATION);
    EXPECT_EQ(ActionClipFromAction(action), clip);
    EXPECT_EQ(CineItemPackageLocal(clip, CinePackageFind("actionclip")), clip);
    EXPECT_EQ(ActionClipFromAction(CineActionGetDefault(scene, CINE_ACTION_EDIT)), nullptr);
    EXPECT_STREQ(CineActionName(action), CineItemGetTag(clip, ACTIONCLIP_ACTION_TAG));

    CineItem *pose = CineItemCreate(scene, CineLookupType("actionpose"));
    EXPECT_EQ(CineActionType(ActionClipAction(pose)), CINE_ACTION_SETUP);
    EXPECT_EQ(ActionClipType(pose), ACTIONCLIP_KIND_POSE);

    // Undoing the creation (and the name) takes the action away; redo brings it back.
    ASSERT_EQ(UndoSysUndo(), 1);
    ASSERT_EQ(UndoSysUndo(), 1);
    ASSERT_EQ(UndoSysUndo(), 1);
    EXPECT_EQ(CineActionLookup(scene, CineItemGetTag(clip, ACTIONCLIP_ACTION_TAG)), nullptr);
    UndoSysRedo();
    EXPECT_EQ(ActionClipAction(clip), action);

    // Deleting an active clip takes it out of evaluation and its action away; undo restores.
    ASSERT_EQ(ActionClipSetActive(clip, nullptr, 1), 1);
    const std::string before = clips(scene);
    ASSERT_EQ(CineItemDelete(clip), 1);
    EXPECT_EQ(CineActionLookup(scene, CineActionName(action)), nullptr);
    EXPECT_EQ(CineActionParentCount(CineActionGetDefault(scene, CINE_ACTION_EDIT)), 1u);
    UndoSysUndo();
    EXPECT_EQ(clips(scene), before);
    EXPECT_EQ(ActionClipIsActive(clip), 1);
}

TEST_F(Clips, ClaimsSkipClipsAndMatricesAndKeepWhatTheGroupHolds) {
    CineItem *group = make_named(scene, GROUP_TYPE_CODE, "Actor");
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineItem *other = make_named(scene, ACTIONCLIP_TYPE_CODE, "jump");
    CineItem *arm = make_named(scene, body, "arm");
    CineItem *leg = make_named(scene, body, "leg");
    GroupAddChannel(group, leg, kY);
    lines.clear();

    EXPECT_EQ(ActionClipAddItem(clip, group, arm), 1);
    EXPECT_EQ(ActionClipAddItem(clip, group, leg), 1);
    EXPECT_EQ(ActionClipAddItem(clip, group, other), 0);
    EXPECT_EQ(ActionClipAddChannel(other, group, leg, kX), 1);
    EXPECT_EQ(ActionClipAddChannel(other, group, leg, kX), 0);
    EXPECT_EQ(ActionClipAddChannel(other, group, leg, kMatrix), 0);
    EXPECT_EQ(ActionClipAddChannel(other, group, clip, 0), 0);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Adding Item to Action Clip: arm to walk\n");
    EXPECT_EQ(clips(scene),
              "walk kind 0 on 1 active 0: arm.x:1 arm.y:1 leg.x:1 leg.y:1; "
              "jump kind 0 on 1 active 0: leg.x:1; ");

    EXPECT_EQ(ActionClipRemoveItem(clip, group, leg), 1);
    EXPECT_EQ(ActionClipRemoveItem(clip, nullptr, arm), 1);
    EXPECT_EQ(ActionClipRemoveChannel(other, nullptr, leg, kX), 1);
    EXPECT_EQ(ActionClipRemoveChannel(other, nullptr, leg, kX), 0);
    EXPECT_EQ(lines.back(), "Removing Item from Action Clip: arm from walk\n");
    EXPECT_EQ(clips(scene), "walk kind 0 on 1 active 0: leg.y:1; jump kind 0 on 1 active 0:; ");

    Cinema *elsewhere = CinemaCreate(0);
    EXPECT_EQ(ActionClipAddItem(clip, nullptr, make_named(elsewhere, body, "far")), 0);
    EXPECT_EQ(ActionClipAddItem(arm, nullptr, leg), 0);
    CinemaDestroy(elsewhere);
}

TEST_F(Clips, APlacedItemsTransformsAreClaimedWithIt) {
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineItem *locator = make_named(scene, CineLookupType("locator"), "hand");
    CineItem *move = XfrmAddStdTransform(locator, 2);  // a translation
    ASSERT_NE(move, nullptr);
    CineAction *action = ActionClipAction(clip);
    ASSERT_EQ(ActionClipAddItem(clip, nullptr, locator), 1);
    const unsigned own = 2;  // the transform's first channel after "matrix" and "type"
    EXPECT_EQ(CineActionState(action, move, own), CINE_STATE_REMOVED);
    EXPECT_EQ(
        CineActionState(action, move, static_cast<unsigned>(CineItemLookupChannel(move, "matrix"))),
        CINE_STATE_NONE);
    ASSERT_EQ(ActionClipRemoveItem(clip, nullptr, locator), 1);
    EXPECT_EQ(CineActionState(action, move, own), CINE_STATE_NONE);
}

TEST_F(Clips, KindsFollowTheActionType) {
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    const struct {
        unsigned kind;
        int result;
        unsigned type;
    } rows[] = {{1, 1, CINE_ACTION_SETUP},
                {1, 1, CINE_ACTION_SETUP},
                {7, 1, CINE_ACTION_SETUP},
                {0, 1, CINE_ACTION_SCENE}};
    for (const auto &row : rows) {
        EXPECT_EQ(ActionClipSetType(clip, row.kind), row.result) << row.kind;
        EXPECT_EQ(CineActionType(ActionClipAction(clip)), row.type) << row.kind;
    }
    CineActionSetType(ActionClipAction(clip), 5);
    EXPECT_EQ(ActionClipType(clip), ACTIONCLIP_KIND_NONE);
    EXPECT_EQ(ActionClipType(make_named(scene, body, "arm")), ACTIONCLIP_KIND_NONE);
}

TEST_F(Clips, ActivationSwitchesWhatEvaluationReads) {
    CineItem *group = make_named(scene, GROUP_TYPE_CODE, "Actor");
    CineItem *walk = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineItem *jump = make_named(scene, ACTIONCLIP_TYPE_CODE, "jump");
    CineItem *arm = make_named(scene, body, "arm");
    GroupAddItem(group, walk);
    GroupAddItem(group, jump);
    for (CineItem *clip : {walk, jump}) ActionClipAddItem(clip, group, arm);
    CineActionSetValue(ActionClipAction(walk), arm, kX, 2.0, 0.0);
    CineActionSetValue(ActionClipAction(jump), arm, kX, 5.0, 0.0);
    CineActionSetValue(CineActionGetDefault(scene, CINE_ACTION_SETUP), arm, kX, 1.0, 0.0);
    CineActionSetValue(CineActionGetDefault(scene, CINE_ACTION_SCENE), arm, kY, 9.0, 0.0);
    CineActionSetValue(ActionClipAction(jump), arm, kY, 7.0, 0.0);
    EXPECT_EQ(evaluated(scene, arm, kX), 1.0);

    EXPECT_EQ(ActionClipSetActive(walk, group, ACTIONCLIP_TOGGLE), 1);
    EXPECT_EQ(ActionClipGetActive(group), walk);
    EXPECT_EQ(evaluated(scene, arm, kX), 2.0);
    EXPECT_EQ(ActionClipSetActive(jump, group, ACTIONCLIP_TOGGLE), 1);
    EXPECT_EQ(ActionClipIsActive(walk), 0);
    EXPECT_EQ(ActionClipGetActive(group), jump);
    EXPECT_EQ(evaluated(scene, arm, kX), 5.0);
    EXPECT_EQ(evaluated(scene, arm, kY), 9.0);  // "under": the scene's own value wins

    // "override" puts the clip before "scene" when it is next activated.
    ASSERT_EQ(CineActionSetValueInt(CineActionGetDefault(scene, CINE_ACTION_SETUP), jump, 0,
                                    ACTIONCLIP_MODE_OVERRIDE, 0.0),
              1);
    EXPECT_EQ(ActionClipSetActive(jump, group, 0), 1);
    EXPECT_EQ(ActionClipSetActive(jump, group, 1), 1);
    EXPECT_EQ(evaluated(scene, arm, kY), 7.0);

    EXPECT_EQ(ActionClipSetActive(jump, group, 0), 1);
    EXPECT_EQ(ActionClipGetActive(group), nullptr);
    EXPECT_EQ(evaluated(scene, arm, kX), 1.0);
    EXPECT_EQ(evaluated(scene, arm, kY), 9.0);
}

TEST_F(Clips, ParentingRefusesLoops) {
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineAction *action = ActionClipAction(clip);
    CineAction *edit = CineActionGetDefault(scene, CINE_ACTION_EDIT);
    CineAction *anim = CineActionGetDefault(scene, CINE_ACTION_SCENE);
    EXPECT_EQ(ActionClipSetParenting(clip, 1), 1);
    EXPECT_EQ(CineActionIsParent(action, anim), 1);
    EXPECT_EQ(ActionClipSetParenting(clip, 0), 1);
    EXPECT_EQ(CineActionParentCount(action), 0u);

    CineAction *layer = CineActionCreate(scene, "layer", 1, nullptr);
    EXPECT_EQ(ActionClipParentAction(clip, anim, layer), 1);
    EXPECT_EQ(CineActionIsParent(layer, action), 1);
    EXPECT_EQ(CineActionIsParent(action, anim), 1);
    EXPECT_EQ(ActionClipParentAction(clip, layer, nullptr), 0);  // layer -> clip -> layer
    EXPECT_EQ(ActionClipParentAction(clip, nullptr, anim), 0);   // clip -> scene -> clip
    EXPECT_EQ(ActionClipParentAction(clip, edit, nullptr), 1);
    EXPECT_EQ(ActionClipIsActive(clip), 1);  // a parent of "layer"
    EXPECT_EQ(ActionClipSetActive(clip, nullptr, 0), 1);
    EXPECT_EQ(CineActionIsParent(layer, action), 0);
    EXPECT_EQ(ActionClipSetActive(clip, nullptr, 1), 0);  // edit -> clip -> edit
}

TEST_F(Clips, WithoutDefaultActionsOnlyTheAskedStepFailsAndLogs) {
    CineActionDataDestroy(CineActionDataCreate(scene));
    ASSERT_NE(CineActionDataCreate(scene), nullptr);
    ASSERT_EQ(CineActionGetDefault(scene, CINE_ACTION_EDIT), nullptr);
    CineItem *group = make_named(scene, GROUP_TYPE_CODE, "Actor");
    CineItem *walk = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineItem *jump = make_named(scene, ACTIONCLIP_TYPE_CODE, "jump");
    GroupAddItem(group, walk);
    GroupAddItem(group, jump);
    ASSERT_EQ(ActionClipParentAction(walk, nullptr, CineActionCreate(scene, "layer", 1, nullptr)),
              1);
    const struct {
        const char *what;
        std::function<int()> call;
        int result;
        const char *failure;  // the end of the failure line, or null for none
    } rows[] = {
        {"activate", [&] { return ActionClipSetActive(jump, group, 1); }, 0,
         "ActionClipSetActive:  Unable to find Edit action\n"},
        {"unparent", [&] { return ActionClipSetParenting(jump, 0); }, 1, nullptr},
    };
    for (const auto &row : rows) {
        lines.clear();
        EXPECT_EQ(row.call(), row.result) << row.what;
        const std::string failures = std::accumulate(lines.begin(), lines.end(), std::string());
        if (row.failure == nullptr) {
            EXPECT_EQ(failures.find("#[fail]"), std::string::npos) << row.what;
        } else {
            EXPECT_EQ(failures.rfind("#[fail] <", 0), 0u) << failures;
            EXPECT_TRUE(failures.ends_with(row.failure)) << failures;
        }
    }
    EXPECT_EQ(ActionClipIsActive(walk), 0);  // the group's clips left evaluation all the same
}

TEST_F(Clips, EnablingIsAnUndoableTag) {
    CineItem *clip = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    EXPECT_EQ(ActionClipIsEnabled(clip), 1);
    EXPECT_EQ(ActionClipSetEnabled(clip, ACTIONCLIP_TOGGLE), 1);
    EXPECT_STREQ(CineItemGetTag(clip, ACTIONCLIP_DISABLED_TAG), "disabled");
    EXPECT_EQ(ActionClipIsEnabled(clip), 0);
    const unsigned steps = UndoSysUndoCount();
    EXPECT_EQ(ActionClipSetEnabled(clip, 0), 1);
    EXPECT_EQ(UndoSysUndoCount(), steps);
    EXPECT_EQ(ActionClipSetEnabled(clip, 1), 1);
    EXPECT_EQ(CineItemGetTag(clip, ACTIONCLIP_DISABLED_TAG), nullptr);
    UndoSysUndo();
    EXPECT_EQ(ActionClipIsEnabled(clip), 0);
    CineItem *arm = make_named(scene, body, "arm");
    EXPECT_EQ(ActionClipSetEnabled(arm, 0), 0);
    EXPECT_EQ(ActionClipIsEnabled(arm), 0);
}

TEST_F(Clips, PosesStillApplyInTheSetupState) {
    CineItem *walk = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    CineItem *pose = make_named(scene, CineLookupType("actionpose"), "rest");
    CineItem *arm = make_named(scene, body, "arm");
    CineActionSetValue(ActionClipAction(walk), arm, kX, 2.0, 0.0);
    CineActionSetValue(ActionClipAction(pose), arm, kY, 3.0, 0.0);
    ActionClipSetActive(walk, nullptr, 1);
    ActionClipSetActive(pose, nullptr, 1);
    CineAction *edit = CineActionGetDefault(scene, CINE_ACTION_EDIT);
    CineActionAddParent(edit, CineActionGetDefault(scene, CINE_ACTION_SETUP), 0);
    ASSERT_EQ(CinemaSetupState(scene), 1);
    EXPECT_EQ(evaluated(scene, arm, kX), 0.0);
    EXPECT_EQ(evaluated(scene, arm, kY), 3.0);
}

}  // namespace
}  // namespace vx::test
