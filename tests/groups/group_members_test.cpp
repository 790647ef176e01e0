// Membership edits and queries, kinds, the member filter and the group type itself.
#include <vexor/action.h>
#include <vexor/package.h>
#include <vexor/sys/group.h>
#include <vexor/undo.h>

#include "group_fixture.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

using GroupMembers = GroupTest;

TEST_F(GroupMembers, TheTypeGraphsAndMirrorChannelAreDefined) {
    EXPECT_EQ(CineLookupType("group"), GROUP_TYPE_CODE);
    EXPECT_EQ(CineLookupSuper(GROUP_TYPE_CODE), 0u);
    EXPECT_EQ(CineTypeIsMask(GROUP_TYPE_CODE), 1);
    CineItem *group = make_group(scene, "G");
    const int mirror = CineItemLookupChannel(group, "mirror");
    ASSERT_GE(mirror, 0);
    EXPECT_EQ(CineActionValueInt(nullptr, group, static_cast<unsigned>(mirror)), 6);
    char text[32];
    TextHintEncode(6, CineItemPackageChannelHints(CinePackageFind("group"), "mirror"), text,
                   sizeof text);
    EXPECT_STREQ(text, "off");
    EXPECT_EQ(GraphIsGroupItemGraph(GroupItemGraph(scene)), 1);
    EXPECT_EQ(GraphIsGroupChanGraph(GroupChanGraph(scene)), 1);
    EXPECT_EQ(GraphIsGroupItemGraph(GroupChanGraph(scene)), 0);
    EXPECT_STREQ(CinemaGraphName(GroupGraph(scene)), "groups");
    const auto *methods = static_cast<const GroupItemMethods *>(
        CinePackageQueryIfc(CinePackageFind("group"), GROUP_ITEM_GUID));
    ASSERT_NE(methods, nullptr);
    GroupSetType(group, GROUP_KIND_ACTOR);
    EXPECT_EQ(methods->Kind(group), GROUP_KIND_ACTOR);
}

TEST_F(GroupMembers, EditsReportWhetherTheyChangedAnything) {
    CineItem *g = make_group(scene, "G");
    CineItem *h = make_group(scene, "H");
    CineItem *a = make_item(scene, thing, "A");
    CineItem *b = make_item(scene, lamp, "B");
    CineItem *c = make_item(scene, box, "C");
    Cinema *other = CinemaCreate(0);
    CineItem *stranger = make_item(other, thing, "S");

    EXPECT_EQ(
        in_order({GroupAddItem(g, a), GroupAddItem(g, a), GroupAddItem(g, c), GroupSetItem(g, b, 1),
                  GroupSetItem(g, b, 0), GroupAddItem(h, a), GroupAddChannel(g, a, 1),
                  GroupAddChannel(g, a, 1), GroupAddChannel(g, b, 0)}),
        (Ints{1, 0, 1, 1, 0, 1, 1, 0, 1}));
    EXPECT_EQ(memberships(scene), "G: A B C | A.1 B.0 kind 0; H: A | kind 0; ");
    // Refusals: not a group, a stranger, the group itself, a channel out of range, no member.
    EXPECT_EQ(in_order({GroupAddItem(a, b), GroupAddItem(g, stranger), GroupAddItem(g, g),
                        GroupAddChannel(g, a, 99), GroupRemItem(h, b), GroupRemChannel(g, a, 0)}),
              (Ints{0, 0, 0, 0, 0, 0}));
    const long long no = GROUP_NOT_MEMBER;
    EXPECT_EQ(
        in_order({GroupMemberCount(g, 0), GroupMemberCount(g, 1), GroupMemberItem(g, c),
                  GroupMemberItem(h, c), GroupMemberChannel(g, b, 0), GroupMemberChannel(g, b, 1)}),
        (Ints{3, 2, 2, no, 1, no}));
    EXPECT_EQ(
        in_order({GroupGet(a, 0, 0), GroupGet(b, 0, 1), GroupGet(b, 1, 1), GroupGet(a, 1, 2)}),
        (Ptrs{g, g, nullptr, nullptr}));

    EXPECT_EQ(GroupSetItemPosition(g, c, 0), 1);
    EXPECT_EQ(GroupSetChannelPosition(g, b, 0, 0), 1);
    EXPECT_EQ(GroupSetItemPosition(h, c, 0), 0);
    EXPECT_EQ(memberships(scene), "G: C A B | B.0 A.1 kind 0; H: A | kind 0; ");

    EXPECT_EQ(GroupRemItem(nullptr, a), 1);
    EXPECT_EQ(GroupRemChannel(g, a, 1), 1);
    EXPECT_EQ(memberships(scene), "G: C B | B.0 kind 0; H: | kind 0; ");
    EXPECT_EQ(GroupGet(a, 0, 0), nullptr);
    CinemaDestroy(other);
}

TEST_F(GroupMembers, KindsLiveInTheTag) {
    CineItem *g = make_group(scene, "G");
    CineItem *a = make_item(scene, thing, "A");
    EXPECT_EQ(GroupType(g), 0u);
    const struct {
        unsigned kind;
        const char *tag;
        unsigned read;
    } rows[] = {
        {1, "assembly", 1}, {2, "actor", 2}, {3, "render", 3}, {7, nullptr, 0}, {0, nullptr, 0}};
    for (const auto &row : rows) {
        EXPECT_EQ(GroupSetType(g, row.kind), 1);
        const char *tag = CineItemGetTag(g, GROUP_KIND_TAG);
        EXPECT_STREQ(tag, row.tag) << row.kind;
        EXPECT_EQ(GroupType(g), row.read) << row.kind;
        EXPECT_EQ(GroupIsAssembly(g), row.kind == 1 ? 1 : 0);
    }
    CineItemSetTag(g, GROUP_KIND_TAG, "Actor");
    EXPECT_EQ(GroupType(g), 0u);
    CineItemSetTag(a, GROUP_KIND_TAG, "assembly");
    EXPECT_EQ(GroupIsAssembly(a), 0);
    EXPECT_EQ(GroupSetType(a, 1), 0);
}

TEST_F(GroupMembers, TheFilterTakesTypesWithAndWithoutSubtypes) {
    CineItem *g = make_group(scene, "G");
    const char *names[] = {"T", "L", "X", "S"};
    CineItem *members[] = {make_item(scene, thing, names[0]), make_item(scene, lamp, names[1]),
                           make_item(scene, box, names[2]), make_group(scene, names[3])};
    for (CineItem *m : members) GroupAddItem(g, m);
    const std::uint32_t none = CINE_TYPE_NONE;
    const struct {
        std::uint32_t type;
        int sub;
        std::uint32_t excluded;
        int exsub;
        const char *expect;
    } rows[] = {
        {none, 0, none, 0, "TLXS"},         {thing, 0, none, 0, "T"},   {thing, 1, none, 0, "TLX"},
        {thing, 1, lamp, 0, "TX"},          {thing, 1, thing, 0, "LX"}, {thing, 1, thing, 1, ""},
        {none, 0, thing, 1, "S"},           {none, 0, thing, 0, "LXS"}, {lamp, 1, none, 1, "L"},
        {GROUP_TYPE_CODE, 0, none, 0, "S"},
    };
    for (const auto &row : rows) {
        std::string got;
        const unsigned count =
            GroupMemberItemTypeCount(g, row.type, row.sub, row.excluded, row.exsub);
        for (unsigned i = 0; i <= count; ++i) {
            CineItem *m =
                GroupMemberItemTypeByIndex(g, row.type, row.sub, row.excluded, row.exsub, i);
            if (m != nullptr) got += CineItemName(m);
        }
        EXPECT_EQ(got, row.expect)
            << row.type << "/" << row.sub << " - " << row.excluded << "/" << row.exsub;
        EXPECT_EQ(count, got.size());
    }
}

TEST_F(GroupMembers, EnumObjectsWalkTheMembersUntilTheGroupGoes) {
    CineItem *g = make_group(scene, "G");
    CineItem *a = make_item(scene, thing, "A");
    GroupAddItem(g, a);
    GroupAddChannel(g, a, 1);
    for (unsigned what : {0u, 1u}) {
        void *walk = GroupEnumCreate(g, what);
        ASSERT_NE(walk, nullptr);
        void *table = nullptr;
        ASSERT_EQ(XObjectQueryInterface(walk, GROUP_ENUM_GUID, &table), VX_OK);
        const auto *methods = static_cast<const GroupEnumMethods *>(table);
        CineItem *item = nullptr;
        unsigned channel = 0;
        EXPECT_EQ(methods->Next(walk, &item, &channel), VX_OK);
        EXPECT_EQ(item, a);
        EXPECT_EQ(channel, what == 0 ? 0xFFFFFFFFu : 1u);
        EXPECT_EQ(methods->Next(walk, &item, &channel), VX_E_NOTFOUND);
        methods->Reset(walk);
        CineItemDelete(g);
        EXPECT_EQ(methods->Next(walk, &item, &channel), VX_E_NOTFOUND);
        UndoSysUndo();
        EXPECT_EQ(methods->Next(walk, &item, &channel), VX_OK);
        XObjectRelease(walk);
        XObjectRelease(walk);
    }
}

}  // namespace
}  // namespace vx::test
