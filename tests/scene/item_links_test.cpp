// Parents with the package's veto, sources, the hidden set and item tags.
#include <vexor/undo.h>

#include "scene/scene.h"
#include "scene_fixture.h"

namespace vx::test {
namespace {

std::vector<CineItem *> children(const CineItem *item) {
    std::vector<CineItem *> list;
    for (unsigned i = 0; i < CineItemSubCount(item); ++i)
        list.push_back(CineItemSubByIndex(item, i));
    return list;
}

TEST_F(SceneTest, ParentingKeepsChildrenInOrderAndUndoes) {
    CineItem *root = CineItemCreate(scene, object);
    CineItem *a = CineItemCreate(scene, light);
    CineItem *b = CineItemCreate(scene, light);
    CineItem *c = CineItemCreate(scene, mesh);
    CineItem *stranger = CineItemCreate(CinemaCreate(0), object);
    EXPECT_EQ(CineItemSetParent(a, root, -1), 0u);
    EXPECT_EQ(CineItemSetParent(b, root, -1), 0u);
    EXPECT_EQ(CineItemSetParent(c, root, 0), 0u);
    EXPECT_EQ(children(root), (std::vector<CineItem *>{c, a, b}));
    EXPECT_EQ(CineItemParent(c), root);
    EXPECT_EQ(CineItemRoot(c), root);
    EXPECT_EQ(CineItemRoot(root), root);

    // Moving to another parent takes the item from the first.
    EXPECT_EQ(CineItemSetParent(b, a, -1), 0u);
    EXPECT_EQ(children(root), (std::vector<CineItem *>{c, a}));
    EXPECT_EQ(CineItemRoot(b), root);
    // An item can't go under itself or its descendants, nor under another scene's item.
    EXPECT_EQ(CineItemSetParent(a, b, -1), static_cast<unsigned>(VX_E_REFUSED));
    EXPECT_EQ(CineItemSetParent(a, a, -1), static_cast<unsigned>(VX_E_REFUSED));
    EXPECT_EQ(CineItemSetParent(a, stranger, -1), static_cast<unsigned>(VX_E_REFUSED));

    ASSERT_TRUE(UndoSysUndo());  // b back under root, last
    EXPECT_EQ(children(root), (std::vector<CineItem *>{c, a, b}));
    EXPECT_EQ(CineItemSubCount(a), 0u);
    EXPECT_EQ(CineItemSetParent(a, nullptr, 0), 0u);
    EXPECT_EQ(CineItemParent(a), nullptr);
    EXPECT_EQ(children(root), (std::vector<CineItem *>{c, b}));
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(children(root), (std::vector<CineItem *>{c, a, b})) << "back in its place";
}

TEST_F(SceneTest, ThePackageOfTheItemsTypeMayRefuseAParent) {
    CineItem *item = CineItemCreate(scene, picky);
    CineItem *parent = CineItemCreate(scene, object);
    ASSERT_NE(item, nullptr);
    own.events.clear();
    g_parent_answer = 0x80000123u;
    EXPECT_EQ(CineItemSetParent(item, parent, 3), 0x80000123u);
    EXPECT_EQ(CineItemParent(item), nullptr);
    EXPECT_TRUE(own.events.empty());
    // The general failure code counts as consent.
    g_parent_answer = VX_E_FAILED;
    EXPECT_EQ(CineItemSetParent(item, parent, 3), 0u);
    EXPECT_EQ(CineItemParent(item), parent);
    EXPECT_EQ(own.count(CINE_EVENT_ITEM_CHANGED), 1u);
    // Only the item's type is asked: the parent's is not.
    g_parent_answer = VX_E_REFUSED;
    CineItem *child = CineItemCreate(scene, object);
    EXPECT_EQ(CineItemSetParent(child, item, -1), 0u);
}

TEST_F(SceneTest, SourcesLinkItemsWithoutLoops) {
    CineItem *a = CineItemCreate(scene, light);
    CineItem *b = CineItemCreate(scene, light);
    EXPECT_EQ(CineItemSetSource(a, b), 1);
    EXPECT_EQ(CineItemSetSource(b, a), 0) << "a loop of sources";
    EXPECT_EQ(CineItemSource(b), nullptr);
    EXPECT_EQ(CineItemSetSource(a, nullptr), 1);
    EXPECT_EQ(CineItemSource(a), nullptr);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CineItemSource(a), b);
}

TEST_F(SceneTest, HidingSendsAnEventOnlyWhenTheStateChanges) {
    CineItem *item = CineItemCreate(scene, object);
    own.events.clear();
    CineItemSetHidden(item, 1);
    CineItemSetHidden(item, 5);
    EXPECT_EQ(CineItemHidden(item), 1);
    EXPECT_EQ(own.data_of(CINE_EVENT_HIDDEN), std::vector<void *>{item});
    CineItemSetHidden(item, 0);
    CineItemSetHidden(item, 0);
    EXPECT_EQ(own.count(CINE_EVENT_HIDDEN), 2u);
    EXPECT_EQ(db.count(CINE_EVENT_HIDDEN), 2u);
}

TEST_F(SceneTest, ItemTagsAreSetReplacedAndRemovedUndoably) {
    constexpr std::uint32_t kKind = 0x47545950;  // 'GTYP'
    constexpr std::uint32_t kNote = 0x4E4F5445;
    CineItem *item = CineItemCreate(scene, object);
    ASSERT_EQ(CineItemSetTag(item, kKind, "actor"), 1);
    ASSERT_EQ(CineItemSetTag(item, kNote, "n"), 1);
    ASSERT_EQ(CineItemSetTag(item, kKind, "render"), 1);
    EXPECT_STREQ(CineItemGetTag(item, kKind), "render");
    ASSERT_EQ(CineItemSetTag(item, kKind, nullptr), 1);
    EXPECT_EQ(CineItemGetTag(item, kKind), nullptr);
    EXPECT_STREQ(CineItemGetTag(item, kNote), "n");
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_STREQ(CineItemGetTag(item, kKind), "render");
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_STREQ(CineItemGetTag(item, kKind), "actor");
}

}  // namespace
}  // namespace vx::test
