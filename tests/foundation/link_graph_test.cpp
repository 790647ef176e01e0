// Link graphs: ordered forward and reverse links, channel nodes, and undoable link edits that
// leave nothing behind when they fail.
#include "foundation/foundation_fixture.h"

#include "foundation/link_graph.h"
#include "foundation/undo.h"
#include "support/atomicity.h"

namespace vx {
namespace {

int objects[4];
GraphNode n(int i, std::int32_t channel = -1) {
    return node_of(&objects[i], channel);
}

std::string forward(const LinkGraph &g, GraphNode node) {
    std::string text;
    for (std::size_t i = 0; i < fwd_count(g, node); ++i) {
        const GraphNode to = fwd_by_index(g, node, i);
        text += std::to_string(static_cast<int *>(to.object) - objects);
        if (to.channel >= 0) text += "." + std::to_string(to.channel);
        text += " ";
    }
    return text;
}

std::string reverse(const LinkGraph &g, GraphNode node) {
    std::string text;
    for (std::size_t i = 0; i < rev_count(g, node); ++i) {
        text += std::to_string(static_cast<int *>(rev_by_index(g, node, i).object) - objects) + " ";
    }
    return text;
}

TEST(LinkGraph, LinksKeepTheirOrderAtBothEndsAndChannelNodesAreApart) {
    LinkGraph g;
    EXPECT_TRUE(link_now(g, n(0), n(1)));
    EXPECT_TRUE(link_now(g, n(0), n(2)));
    EXPECT_TRUE(link_now(g, n(0), n(3), 1));  // inserted between
    EXPECT_FALSE(link_now(g, n(0), n(2))) << "a link is made once";
    EXPECT_TRUE(link_now(g, n(3), n(1), kNoLink, 0));  // first among 1's reverse links
    EXPECT_EQ(forward(g, n(0)), "1 3 2 ");
    EXPECT_EQ(reverse(g, n(1)), "3 0 ");
    EXPECT_EQ(fwd_position(g, n(0), n(2)), 2u);
    EXPECT_EQ(rev_position(g, n(0), n(1)), 1u);
    EXPECT_TRUE(fwd_test(g, n(3), n(1)));
    EXPECT_FALSE(fwd_test(g, n(1), n(3))) << "links have a direction";
    EXPECT_EQ(fwd_by_index(g, n(0), 9), GraphNode{});

    EXPECT_TRUE(unlink_now(g, n(0), n(3)));
    EXPECT_FALSE(unlink_now(g, n(0), n(3)));
    EXPECT_EQ(forward(g, n(0)), "1 2 ");
    clear_node_now(g, n(1));
    EXPECT_EQ(forward(g, n(0)), "2 ");
    EXPECT_EQ(fwd_count(g, n(3)), 0u);
    EXPECT_EQ(linked_node_count(g), 2u);

    // Channel nodes are apart from their object; a self link goes with its node.
    LinkGraph c;
    ASSERT_TRUE(link_now(c, n(0), n(1, 4)));
    ASSERT_TRUE(link_now(c, n(0), n(1, 5)));
    ASSERT_TRUE(link_now(c, n(0), n(1)));
    EXPECT_EQ(forward(c, n(0)), "1.4 1.5 1 ");
    EXPECT_EQ(rev_count(c, n(1, 4)), 1u);
    EXPECT_EQ(rev_count(c, n(1, 6)), 0u);
    ASSERT_TRUE(link_now(c, n(2), n(2)));
    clear_node_now(c, n(2));
    EXPECT_EQ(fwd_count(c, n(2)), 0u);
    EXPECT_EQ(rev_count(c, n(2)), 0u);
}

TEST(LinkGraph, UndoableEditsPutLinksBackWhereTheyWere) {
    UndoSysStartup();
    UndoSysClear();
    LinkGraph g;
    ASSERT_TRUE(link(g, n(0), n(1)));
    ASSERT_TRUE(link(g, n(0), n(2)));
    ASSERT_TRUE(link(g, n(0), n(3)));
    ASSERT_TRUE(unlink(g, n(0), n(2)));
    EXPECT_FALSE(unlink(g, n(0), n(2)));
    EXPECT_FALSE(link(g, n(0), n(1)));
    EXPECT_EQ(forward(g, n(0)), "1 3 ");
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(forward(g, n(0)), "1 2 3 ") << "back in the middle";
    ASSERT_TRUE(UndoSysUndo());
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(forward(g, n(0)), "1 ");
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(forward(g, n(0)), "1 2 ");
    UndoSysClear();
    UndoSysShutdown();
}

class LinkTarget : public test::AtomicityTarget {
  public:
    LinkTarget() {
        link_now(g_, n(0), n(1));
        link_now(g_, n(2), n(1));
    }
    std::string snapshot() override {
        std::string text;
        for (int i = 0; i < 4; ++i) text += forward(g_, n(i)) + "/" + reverse(g_, n(i)) + "|";
        return text + std::to_string(linked_node_count(g_));
    }
    bool edit() override {
        try {
            return link(g_, n(3), n(1), kNoLink, 1);
        } catch (const std::bad_alloc &) {
            return false;
        }
    }

  private:
    LinkGraph g_;
};

TEST(LinkGraph, ALinkEditIsAtomic) {
    const auto report =
        test::check_atomicity("graph link", [] { return std::make_unique<LinkTarget>(); });
    EXPECT_GT(report.tried, 0u);
    EXPECT_EQ(report.held + report.survived, report.tried);
}

}  // namespace
}  // namespace vx
