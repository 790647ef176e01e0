// Clips and groups in scene files (the same bytes after a load, a missing action), and clip
// edits that are atomic and undo exactly.
#include <functional>
#include <memory>
#include <random>

#include <vexor/undo.h>

#include "clip_fixture.h"
#include "scene_bytes.h"
#include "support/edit_table.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

// The members of a group, item members then channel members, and its kind.
std::string group_text(CineItem *group) {
    std::string text = "kind " + std::to_string(GroupType(group)) + ":";
    GroupScan(
        group, 0,
        [](CineItem *, void *out, CineItem *item, std::uint32_t) {
            *static_cast<std::string *>(out) += std::string(" ") + CineItemUniqueName(item);
            return 0;
        },
        0, &text);
    GroupScan(
        group, 1,
        [](CineItem *, void *out, CineItem *item, std::uint32_t channel) {
            *static_cast<std::string *>(out) +=
                std::string(" ") + CineItemUniqueName(item) + "." + std::to_string(channel);
            return 0;
        },
        0, &text);
    return text;
}

// A character with two clips in a group, a pose and an item of its own.
struct Stage {
    Cinema *scene;
    CineItem *group, *walk, *jump, *pose, *arm, *leg;
    explicit Stage(std::uint32_t body = CineLookupType("tstBody")) {
        UndoSysSuspend();
        scene = CinemaCreate(0);
        group = make_named(scene, GROUP_TYPE_CODE, "Actor");
        walk = make_named(scene, ACTIONCLIP_TYPE_CODE, "walk");
        jump = make_named(scene, ACTIONCLIP_TYPE_CODE, "jump");
        pose = make_named(scene, CineLookupType("actionpose"), "rest");
        arm = make_named(scene, body, "arm");
        leg = make_named(scene, body, "leg");
        for (CineItem *member : {walk, jump, arm}) GroupAddItem(group, member);
        GroupAddChannel(group, leg, 1);
        GroupSetType(group, GROUP_KIND_ACTOR);
        ActionClipAddItem(walk, group, arm);
        ActionClipAddItem(jump, group, arm);
        ActionClipAddChannel(jump, group, leg, 1);
        CineActionSetValue(ActionClipAction(walk), arm, 0, 2.0, 0.0);
        CineActionSetValue(ActionClipAction(jump), arm, 0, 5.0, 1.0);
        ActionClipSetActive(walk, group, 1);
        ActionClipSetEnabled(pose, 0);
        UndoSysResume();
        UndoSysClear();
    }
    ~Stage() {
        UndoSysClear();
        CinemaDestroy(scene);
    }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;
    // Unique names are made on first request and kept; asking for all of them first keeps the
    // snapshot itself from changing what the scene holds.
    std::string snapshot() const {
        std::string names;
        for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
            names += std::string(CineItemUniqueName(CinemaItemByIndex(scene, i))) + ",";
        }
        return names + clips(scene) + group_text(group) + std::to_string(CinemaItemCount(scene)) +
               " items " + std::to_string(CineActionOrderCount(scene)) + " in order";
    }
};

using ClipFiles = ClipTest;

TEST_F(ClipFiles, GroupsAndClipsSaveLoadAndSaveToTheSameBytes) {
    Stage stage(body);
    const Bytes first = saved(stage.scene);
    Cinema *again = loaded(first);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(saved(again), first);
    EXPECT_EQ(clips(again) + group_text(CineLookupItem(again, "Actor")),
              clips(stage.scene) + group_text(stage.group));
    EXPECT_EQ(evaluated(again, CineLookupItem(again, "arm"), 0), 2.0);
    CinemaDestroy(again);
}

TEST_F(ClipFiles, AClipWhoseActionIsMissingHasNone) {
    Stage stage(body);
    ActionClipSetActive(stage.jump, stage.group, 1);
    ASSERT_EQ(CineActionDestroy(ActionClipAction(stage.walk)), 1);
    Cinema *again = loaded(saved(stage.scene));
    ASSERT_NE(again, nullptr);
    CineItem *walk = CineLookupItem(again, "walk");
    CineItem *arm = CineLookupItem(again, "arm");
    EXPECT_EQ(lines.back(), "Action not found for ActionClip: walk\n");
    EXPECT_EQ(ActionClipAction(walk), nullptr);
    EXPECT_EQ(ActionClipType(walk), ACTIONCLIP_KIND_NONE);
    EXPECT_EQ(ActionClipSetType(walk, 0), 0);
    EXPECT_EQ(ActionClipAddItem(walk, nullptr, arm), 0);
    EXPECT_EQ(ActionClipAddChannel(walk, nullptr, arm, 1), 0);
    EXPECT_EQ(ActionClipSetActive(walk, nullptr, 1), 0);
    EXPECT_EQ(ActionClipIsActive(walk), 0);
    EXPECT_EQ(ActionClipSetParenting(walk, 1), 0);
    EXPECT_EQ(ActionClipGetActive(CineLookupItem(again, "Actor")), CineLookupItem(again, "jump"));
    CinemaDestroy(again);
}

TEST_F(ClipFiles, ClipEditsAreAtomic) {
    quiet_log();
    check_edits_atomic<Stage>({
        {"create",
         [](Stage &s) { return CineItemCreate(s.scene, ACTIONCLIP_TYPE_CODE) != nullptr; }},
        {"create pose",
         [](Stage &s) { return CineItemCreate(s.scene, CineLookupType("actionpose")) != nullptr; }},
        {"claim item", [](Stage &s) { return ActionClipAddItem(s.pose, s.group, s.leg) == 1; }},
        {"release item",
         [](Stage &s) { return ActionClipRemoveItem(s.jump, s.group, s.leg) == 1; }},
        {"claim channel",
         [](Stage &s) { return ActionClipAddChannel(s.walk, s.group, s.leg, 0) == 1; }},
        {"activate",
         [](Stage &s) { return ActionClipSetActive(s.jump, s.group, ACTIONCLIP_TOGGLE) == 1; }},
        {"enable", [](Stage &s) { return ActionClipSetEnabled(s.pose, ACTIONCLIP_TOGGLE) == 1; }},
        {"kind", [](Stage &s) { return ActionClipSetType(s.walk, ACTIONCLIP_KIND_POSE) == 1; }},
        {"parenting", [](Stage &s) { return ActionClipSetParenting(s.jump, 1) == 1; }},
        {"delete active clip", [](Stage &s) { return CineItemDelete(s.walk) == 1; }},
    });
}

class RandomClips : public UndoTarget {
  public:
    explicit RandomClips(std::uint32_t body) : stage_(body) {}
    std::string snapshot() override { return stage_.snapshot(); }
    std::string random_edit(std::mt19937 &rng) override {
        auto draw = [&](unsigned n) { return static_cast<unsigned>(rng() % n); };
        CineItem *clips[] = {stage_.walk, stage_.jump, stage_.pose};
        CineItem *items[] = {stage_.arm, stage_.leg};
        CineItem *clip = clips[draw(3)];
        CineItem *item = items[draw(2)];
        switch (draw(6)) {
            case 0:
                ActionClipAddItem(clip, stage_.group, item);
                return "claim";
            case 1:
                ActionClipRemoveItem(clip, draw(2) ? stage_.group : nullptr, item);
                return "release";
            case 2:
                ActionClipSetActive(clip, stage_.group, draw(3) == 2 ? ACTIONCLIP_TOGGLE : draw(2));
                return "activate";
            case 3:
                ActionClipSetEnabled(clip, ACTIONCLIP_TOGGLE);
                return "enable";
            case 4:
                ActionClipSetType(clip, draw(2));
                return "kind";
            default:
                GroupRemChannel(stage_.group, stage_.leg, 1) ||
                    GroupAddChannel(stage_.group, stage_.leg, 1);
                return "group channel";
        }
    }

  private:
    Stage stage_;
};

TEST_F(ClipFiles, RandomClipEditsUndoAndRedoExactly) {
    const auto report = check_undo_property("clips", [&]() -> std::unique_ptr<UndoTarget> {
        return std::make_unique<RandomClips>(body);
    });
    EXPECT_GT(report.steps, 0u);
}

}  // namespace
}  // namespace vx::test
