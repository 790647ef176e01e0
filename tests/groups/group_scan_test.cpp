// The scan over a hierarchy of groups, every scope, both directions.
#include <string>

#include "group_fixture.h"

namespace vx::test {
namespace {

// R
// +-- P
// |   +-- C1
// |   |   +-- D
// |   +-- C2
// +-- Q
// Each group has one item member named after it in lower case, and one channel member.
class GroupScanTest : public GroupTest {
  protected:
    void SetUp() override {
        GroupTest::SetUp();
        const char *names[] = {"R", "P", "C1", "D", "C2", "Q"};
        const int parents[] = {-1, 0, 1, 2, 1, 0};
        for (int i = 0; i < 6; ++i) {
            groups[i] = make_group(scene, names[i]);
            std::string member = names[i];
            member[0] = static_cast<char>(member[0] + ('a' - 'A'));
            CineItem *item = make_item(scene, thing, member.c_str());
            GroupAddItem(groups[i], item);
            GroupAddChannel(groups[i], item, 1);
            if (parents[i] >= 0) CineItemSetParent(groups[i], groups[parents[i]], -1);
        }
    }

    static int note(CineItem *group, void *client, CineItem *item, std::uint32_t channel) {
        auto &seen = *static_cast<std::string *>(client);
        seen += std::string(CineItemName(group)) + ":" + CineItemName(item);
        seen += channel == 0xFFFFFFFFu ? " " : "." + std::to_string(channel) + " ";
        return 0;
    }

    std::string scan(int at, unsigned what, unsigned scope, bool reverse = false) {
        std::string seen;
        const int result = reverse ? GroupScanRev(groups[at], what, note, scope, &seen)
                                   : GroupScan(groups[at], what, note, scope, &seen);
        EXPECT_EQ(result, 0);
        return seen;
    }

    CineItem *groups[6] = {};
};

TEST_F(GroupScanTest, EachScopeStartsWhereItShould) {
    enum { R, P, C1, D, C2, Q };
    const struct {
        int group;
        unsigned scope;
        const char *expect;
    } rows[] = {
        {D, 0, "D:d "},
        {P, 0, "P:p "},
        {P, 1, "P:p C1:c1 D:d C2:c2 "},
        {D, 2, "P:p C1:c1 D:d C2:c2 "},      // climbs through C1, stops at P (two children)
        {D, 3, "P:p C1:c1 D:d C2:c2 Q:q "},  // from P's parent R, without R itself
        {Q, 2, "R:r P:p C1:c1 D:d C2:c2 Q:q "},
        {Q, 3, ""},  // R has no parent: falls back to Q, which is skipped and has no children
        {C2, 4, "R:r P:p C1:c1 D:d C2:c2 Q:q "},
        {R, 4, "R:r P:p C1:c1 D:d C2:c2 Q:q "},
        {P, 5, "P:p C1:c1 D:d C2:c2 "},  // from the group itself, as scope 1
        {D, 99, "D:d "},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(scan(row.group, 0, row.scope), row.expect) << row.group << " scope " << row.scope;
    }
}

TEST_F(GroupScanTest, ChannelsReverseOrderAndEarlyEnd) {
    EXPECT_EQ(scan(1, 1, 1), "P:p.1 C1:c1.1 D:d.1 C2:c2.1 ");
    EXPECT_EQ(scan(1, 0, 1, true), "C2:c2 D:d C1:c1 P:p ");
    EXPECT_EQ(scan(1, 2, 1), "");
    int calls = 0;
    auto stop_at_third = [](CineItem *, void *client, CineItem *, std::uint32_t) {
        return ++*static_cast<int *>(client) == 3 ? 42 : 0;
    };
    EXPECT_EQ(GroupScan(groups[0], 0, stop_at_third, 4, &calls), 42);
    EXPECT_EQ(calls, 3);
    calls = 0;
    EXPECT_EQ(GroupScanRev(groups[0], 0, stop_at_third, 4, &calls), 42);
}

}  // namespace
}  // namespace vx::test
