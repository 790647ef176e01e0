// The edit frame on a small object: forms A and B, compound and nested edits, the state each
// record is freed in, change notes through undo and redo, and failures inside the frame.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/edit_frame.h"
#include "foundation/port.h"
#include "foundation/undo.h"
#include "support/alloc_injection.h"
#include "support/toy_shelf.h"

namespace vx {
namespace {

using test::Shelf;
using test::ShelfItem;

struct Heard {
    std::vector<std::uint32_t> codes;
    static void listen(void *client, void *, std::uint32_t code, void *) {
        static_cast<Heard *>(client)->codes.push_back(code);
    }
    // Keeps its capacity, so hearing a note never allocates inside an edit under test.
    std::vector<std::uint32_t> take() {
        std::vector<std::uint32_t> heard = codes;
        codes.clear();
        return heard;
    }
};

class EditFrame : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        heard.codes.reserve(64);
        shelf.port = PortCreate(nullptr);
        PortAttach(shelf.port, Heard::listen, &heard, nullptr);
    }
    void TearDown() override {
        UndoSysClear();
        UndoSysEnable(true);
        UndoSysShutdown();
        PortDestroy(shelf.port);
        shelf.port = nullptr;
    }
    Shelf shelf;
    Heard heard;
};

using Codes = std::vector<std::uint32_t>;

TEST_F(EditFrame, FormAAndFormBEditsUndoAndRedoWithTheirNotes) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 5);
    test::shelf_set(shelf, item, 9);
    test::shelf_set_label(shelf, 3);
    EXPECT_EQ(shelf.snapshot(), "label 3: 9");
    EXPECT_EQ(heard.take(), (Codes{test::kShelfInserted, test::kShelfChanged, test::kShelfLabel}));
    EXPECT_EQ(UndoSysUndoCount(), 3u);

    while (UndoSysUndo()) {
    }
    EXPECT_EQ(shelf.snapshot(), "label 0:");
    EXPECT_EQ(heard.take(), (Codes{test::kShelfLabel, test::kShelfChanged, test::kShelfRemoving}));
    while (UndoSysRedo()) {
    }
    EXPECT_EQ(shelf.snapshot(), "label 3: 9");
    EXPECT_EQ(heard.take(), (Codes{test::kShelfInserted, test::kShelfChanged, test::kShelfLabel}));
}

TEST_F(EditFrame, AnEditThatWouldChangeNothingRecordsNothing) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 5);
    const auto steps = UndoSysUndoCount();
    test::shelf_set(shelf, item, 5);
    test::shelf_set_label(shelf, 0);
    EXPECT_EQ(UndoSysUndoCount(), steps);
}

TEST_F(EditFrame, ARemovedElementLivesWhileItsRemovalCanBeUndone) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 1);
    test::shelf_insert(shelf, item, 2);
    UndoSysClear();
    const auto live = test::alloc_counts().live_blocks;

    test::shelf_remove(shelf, item);  // recorded: the item stays allocated
    EXPECT_EQ(shelf.snapshot(), "label 0: 2");
    EXPECT_EQ(test::alloc_counts().live_blocks, live + 2) << "the record and its history entry";
    UndoSysUndo();
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");
    UndoSysClear();  // dropped while undone: the item is back in the shelf and not freed
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");
    EXPECT_EQ(test::alloc_counts().live_blocks, live);

    test::shelf_remove(shelf, shelf.head);
    UndoSysClear();  // dropped in effect: the item goes with the record
    EXPECT_EQ(test::alloc_counts().live_blocks, live - 1);

    UndoSysEnable(false);  // not recording: freed when the edit ends
    test::shelf_remove(shelf, shelf.head);
    EXPECT_EQ(test::alloc_counts().live_blocks, live - 2);
    EXPECT_EQ(shelf.size(), 0);
}

TEST_F(EditFrame, ACompoundEditIsOneStep) {
    test::shelf_append_pair(shelf, 1, 2);
    test::shelf_append_pair(shelf, 3, 4);
    EXPECT_EQ(UndoSysUndoCount(), 2u);
    UndoSysUndo();
    EXPECT_EQ(shelf.snapshot(), "label 0: 1 2");
    heard.take();
    UndoSysUndo();
    EXPECT_EQ(heard.take(), (Codes{test::kShelfRemoving, test::kShelfRemoving}));
}

TEST_F(EditFrame, AFailureInsideTheFrameFreesTheArmedRecordAndChangesNothing) {
    ShelfItem *item = test::shelf_insert(shelf, nullptr, 5);
    heard.take();
    const auto live = test::alloc_counts().live_blocks;
    const auto steps = UndoSysUndoCount();
    for (std::uint64_t n = 1; n <= 2; ++n) {  // the undo slot, then the record
        bool failed = false;
        {
            test::FailAllocation fail(n);
            try {
                test::shelf_set(shelf, item, 6);
            } catch (const std::bad_alloc &) {
                failed = true;
            }
        }
        EXPECT_TRUE(failed) << "allocation " << n;
        EXPECT_EQ(shelf.snapshot(), "label 0: 5");
        EXPECT_EQ(test::alloc_counts().live_blocks, live);
        EXPECT_EQ(UndoSysUndoCount(), steps);
        EXPECT_TRUE(heard.take().empty());
    }
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
    const auto live = test::alloc_counts().live_blocks;
    const auto steps = UndoSysUndoCount();
    {
        test::FailAllocation fail(4);  // the insert's item, slot and record come first
        EXPECT_THROW(add_then_set(), std::bad_alloc);
    }
    EXPECT_EQ(shelf.snapshot(), before);
    EXPECT_EQ(test::alloc_counts().live_blocks, live);
    EXPECT_EQ(UndoSysUndoCount(), steps);
    EXPECT_TRUE(UndoSysCanUndo());
}

}  // namespace
}  // namespace vx
