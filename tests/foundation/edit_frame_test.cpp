// The edit frame on a small object: forms A and B, compound and nested edits, the state each
// record is freed in, change notes through undo and redo, and failures inside the frame.
#include "foundation/foundation_fixture.h"

#include "foundation/edit_frame.h"
#include "foundation/undo.h"
#include "support/toy_shelf.h"

namespace vx {
namespace {

using test::ShelfItem;

class EditFrame : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
    }
    void TearDown() override {
        UndoSysClear();
        UndoSysEnable(true);
        UndoSysShutdown();
    }
    test::HeardShelf shelf;
};

using Codes = std::vector<std::uint32_t>;

TEST_F(EditFrame, FormAAndFormBEditsUndoAndRedoWithTheirNotesAndNoOpsRecordNothing) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 5);
    const auto steps = UndoSysUndoCount();
    test::shelf_set(shelf, item, 5);
    test::shelf_set_label(shelf, 0);
    EXPECT_EQ(UndoSysUndoCount(), steps) << "an edit that would change nothing records nothing";
    test::shelf_set(shelf, item, 9);
    test::shelf_set_label(shelf, 3);
    EXPECT_EQ(shelf.snapshot(), "label 3: 9");
    EXPECT_EQ(shelf.take(), (Codes{test::kShelfInserted, test::kShelfChanged, test::kShelfLabel}));
    EXPECT_EQ(UndoSysUndoCount(), 3u);

    while (UndoSysUndo()) {
    }
    EXPECT_EQ(shelf.snapshot(), "label 0:");
    EXPECT_EQ(shelf.take(), (Codes{test::kShelfLabel, test::kShelfChanged, test::kShelfRemoving}));
    while (UndoSysRedo()) {
    }
    EXPECT_EQ(shelf.snapshot(), "label 3: 9");
    EXPECT_EQ(shelf.take(), (Codes{test::kShelfInserted, test::kShelfChanged, test::kShelfLabel}));
    UndoSysClear();

    // A compound edit is one step.
    test::shelf_append_pair(shelf, 1, 2);
    test::shelf_append_pair(shelf, 3, 4);
    EXPECT_EQ(UndoSysUndoCount(), 2u);
    UndoSysUndo();
    EXPECT_EQ(shelf.snapshot(), "label 3: 9 1 2");
    shelf.take();
    UndoSysUndo();
    EXPECT_EQ(shelf.take(), (Codes{test::kShelfRemoving, test::kShelfRemoving}));
}

TEST_F(EditFrame, ARemovedElementLivesWhileItsRemovalCanBeUndone) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 1);
    test::shelf_insert(shelf, item, 2);
    UndoSysClear();
    const auto live = test::live_blocks();

    test::shelf_remove(shelf, item);  // recorded: the item stays allocated
    EXPECT_EQ(shelf.snapshot(), "label 0: 2");
    EXPECT_EQ(test::live_blocks(), live + 2) << "the record and its history entry";
    UndoSysUndo();
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");
    UndoSysClear();  // dropped while undone: the item is back in the shelf and not freed
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");
    EXPECT_EQ(test::live_blocks(), live);

    test::shelf_remove(shelf, shelf.head);
    UndoSysClear();  // dropped in effect: the item goes with the record
    EXPECT_EQ(test::live_blocks(), live - 1);

    UndoSysEnable(false);  // not recording: freed when the edit ends
    test::shelf_remove(shelf, shelf.head);
    EXPECT_EQ(test::live_blocks(), live - 2);
    EXPECT_EQ(shelf.size(), 0);
}

TEST_F(EditFrame, NestedEditsRecordTheirOwnStepsAndFailTogether) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 1);
    auto add_then_set = [&] {
        EditTransaction transaction;
        ShelfItem *added = test::shelf_insert(shelf, item, 2);
        test::shelf_set(shelf, added, 3);
    };
    add_then_set();
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 3");
    EXPECT_EQ(UndoSysUndoCount(), 3u) << "each nested edit is a step of its own";
    UndoSysUndo();
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");

    // Fail the nested set: the insertion already made is taken back with it.
    UndoSysRedo();
    const std::string before = shelf.snapshot();
    const auto live = test::live_blocks();
    const auto steps = UndoSysUndoCount();
    {
        test::FailAllocation fail(4);  // the insert's item, slot and record come first
        EXPECT_THROW(add_then_set(), std::bad_alloc);
    }
    EXPECT_EQ(shelf.snapshot(), before);
    EXPECT_EQ(test::live_blocks(), live);
    EXPECT_EQ(UndoSysUndoCount(), steps);
    EXPECT_TRUE(UndoSysCanUndo());
}

}  // namespace
}  // namespace vx
