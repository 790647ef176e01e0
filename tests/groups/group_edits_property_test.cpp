// Memberships stay consistent when items go and come back, copies keep members as a user
// expects, and membership edits are atomic and undo exactly.
#include <functional>
#include <memory>
#include <random>

#include <vexor/undo.h>

#include "group_fixture.h"
#include "scene/scene.h"
#include "support/edit_table.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

using GroupConsistency = GroupTest;

TEST_F(GroupConsistency, DeletingAnItemTakesItsMembershipsAndUndoRestoresThem) {
    CineItem *g = make_group(scene, "G");
    CineItem *h = make_group(scene, "H");
    CineItem *items[] = {make_item(scene, thing, "A"), make_item(scene, thing, "B"),
                         make_item(scene, thing, "C")};
    for (CineItem *item : items) GroupAddItem(g, item);
    GroupSetItem(h, items[1], 0);
    GroupAddItem(h, items[2]);
    GroupAddChannel(g, items[2], 0);
    GroupAddChannel(g, items[1], 1);
    GroupAddChannel(h, items[1], 0);
    GroupAddItem(g, h);
    const std::string before = memberships(scene);

    for (CineItem *gone : {items[1], g}) {
        ASSERT_EQ(CineItemDelete(gone), 1);
        EXPECT_EQ(GroupMemberItem(g, gone), GROUP_NOT_MEMBER);
        EXPECT_EQ(GroupGet(gone, 0, 0), nullptr);
        EXPECT_EQ(CineItemDelete(gone), 0);
        ASSERT_EQ(UndoSysUndo(), 1);
        EXPECT_EQ(memberships(scene), before);
        ASSERT_EQ(UndoSysRedo(), 1);
        EXPECT_EQ(GroupMemberCount(h, 1), gone == g ? 1u : 0u);
        ASSERT_EQ(UndoSysUndo(), 1);
        EXPECT_EQ(memberships(scene), before);
    }
}

TEST_F(GroupConsistency, AnItemWhoseCreationIsUndoneLeavesItsGroupsUntilRedone) {
    CineItem *g = make_group(scene, "G");
    CineItem *a = make_item(scene, thing, "A");
    CineItem *b = make_item(scene, thing, "B");
    // Links made while undo is suspended are not undone with the item, so the module takes
    // them away when the item leaves and puts them back when it returns.
    UndoSysSuspend();
    GroupAddItem(g, a);
    GroupAddItem(g, b);
    GroupAddChannel(g, b, 1);
    UndoSysResume();
    const std::string before = memberships(scene);
    ASSERT_EQ(UndoSysUndo(), 1);  // B's name
    ASSERT_EQ(UndoSysUndo(), 1);  // B itself
    EXPECT_EQ(GroupMemberCount(g, 0), 1u);
    EXPECT_EQ(GroupMemberCount(g, 1), 0u);
    ASSERT_EQ(UndoSysRedo(), 1);
    ASSERT_EQ(UndoSysRedo(), 1);
    EXPECT_EQ(memberships(scene), before);
}

TEST_F(GroupConsistency, ACopiedGroupTakesTheCopiesOfCopiedMembers) {
    CineItem *g = make_group(scene, "G");
    CineItem *a = make_item(scene, thing, "A");
    CineItem *b = make_item(scene, thing, "B");
    GroupAddItem(g, a);
    GroupAddItem(g, b);
    GroupAddChannel(g, a, 1);
    CineItem *copy = make_group(scene, "G2");
    CineItem *a2 = make_item(scene, thing, "A2");
    vx::cine::begin_copy(*scene);
    vx::cine::note_copy(*scene, *g, *copy);
    vx::cine::note_copy(*scene, *a, *a2);
    EXPECT_EQ(GroupCopyMembers(copy, g), 3u);
    vx::cine::end_copy(*scene);
    EXPECT_EQ(memberships(scene), "G: A B | A.1 kind 0; G2: A2 B | A2.1 kind 0; ");
    EXPECT_EQ(GroupCopyMembers(copy, g), 2u);  // outside a copy the members themselves
    EXPECT_EQ(GroupCopyMembers(copy, g), 0u);
}

// ---- Atomicity and undo ----

struct Stage {
    Cinema *scene;
    CineItem *g, *h, *a, *b;
    Stage() {
        UndoSysSuspend();
        scene = CinemaCreate(0);
        g = make_group(scene, "G");
        h = make_group(scene, "H");
        a = make_item(scene, CineLookupType("tstThing"), "A");
        b = make_item(scene, CineLookupType("tstThing"), "B");
        GroupAddItem(g, a);
        GroupAddItem(g, b);
        GroupAddChannel(g, a, 0);
        GroupAddItem(h, a);
        UndoSysResume();
        UndoSysClear();
    }
    ~Stage() {
        UndoSysClear();
        CinemaDestroy(scene);
    }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;
    std::string snapshot() const {
        return memberships(scene) + std::to_string(CinemaItemCount(scene));
    }
};

TEST_F(GroupConsistency, MembershipEditsAreAtomic) {
    check_edits_atomic<Stage>({
        {"add", [](Stage &s) { return GroupAddItem(s.h, s.b) == 1; }},
        {"insert", [](Stage &s) { return GroupSetItem(s.h, s.b, 0) == 1; }},
        {"remove", [](Stage &s) { return GroupRemItem(s.g, s.a) == 1; }},
        {"remove everywhere", [](Stage &s) { return GroupRemItem(nullptr, s.a) == 1; }},
        {"add channel", [](Stage &s) { return GroupAddChannel(s.h, s.b, 1) == 1; }},
        {"move", [](Stage &s) { return GroupSetItemPosition(s.g, s.b, 0) == 1; }},
        {"kind", [](Stage &s) { return GroupSetType(s.g, GROUP_KIND_ACTOR) == 1; }},
        {"delete member", [](Stage &s) { return CineItemDelete(s.a) == 1; }},
    });
}

class RandomMemberships : public UndoTarget {
  public:
    explicit RandomMemberships(std::uint32_t type) : type_(type) {}
    std::string snapshot() override { return memberships(stage_.scene, true); }
    std::string random_edit(std::mt19937 &rng) override {
        auto draw = [&](unsigned n) { return static_cast<unsigned>(rng() % n); };
        const unsigned n = CinemaItemCount(stage_.scene);
        CineItem *group = draw(2) == 0 ? stage_.g : stage_.h;
        CineItem *item = CinemaItemByIndex(stage_.scene, draw(n));
        const std::pair<const char *, std::function<void()>> steps[] = {
            {"insert", [&] { GroupSetItem(group, item, draw(3)); }},
            {"remove", [&] { GroupRemItem(draw(3) == 0 ? nullptr : group, item); }},
            {"add channel", [&] { GroupAddChannel(group, item, draw(2)); }},
            {"move channel", [&] { GroupSetChannelPosition(group, item, draw(2), draw(3)); }},
            {"move", [&] { GroupSetItemPosition(group, item, draw(3)); }},
            {"delete",
             [&] {
                 if (item != stage_.g && item != stage_.h) CineItemDelete(item);
             }},
            {"create", [&] { CineItemCreate(stage_.scene, type_); }},
        };
        const auto &[name, step] = steps[draw(7)];
        step();
        return name;
    }

  private:
    Stage stage_;
    std::uint32_t type_;
};

TEST_F(GroupConsistency, RandomMembershipEditsUndoAndRedoExactly) {
    const auto report = check_undo_property("memberships", [&]() -> std::unique_ptr<UndoTarget> {
        return std::make_unique<RandomMemberships>(thing);
    });
    EXPECT_GT(report.steps, 0u);
}

}  // namespace
}  // namespace vx::test
