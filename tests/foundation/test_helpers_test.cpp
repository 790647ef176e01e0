// The atomicity and undo property helpers, proven on the toy shelf: they pass on edits that
// are right, and they catch the faults they exist for.
#include "foundation/foundation_fixture.h"

#include <gtest/gtest-spi.h>

#include <iterator>

#include "foundation/guard.h"
#include "foundation/undo.h"
#include "support/atomicity.h"
#include "support/toy_shelf.h"
#include "support/undo_property.h"

namespace vx {
namespace {

using test::Shelf;

// A shelf with three items, a tag and a listener, built without recording.
class ShelfTarget : public test::AtomicityTarget {
  public:
    using Op = std::function<void(Shelf &)>;
    explicit ShelfTarget(Op op) : op_(std::move(op)) {
        UndoSysSuspend();
        test::ShelfItem *a = test::shelf_insert(shelf_, nullptr, 1);
        test::ShelfItem *b = test::shelf_insert(shelf_, a, 2);
        test::shelf_insert(shelf_, b, 3);
        test::shelf_add_tag(shelf_, "a tag long enough to live on the heap");
        UndoSysResume();
        shelf_.take();
    }
    ~ShelfTarget() override { UndoSysClear(); }  // records may point into this shelf
    std::string snapshot() override {
        return shelf_.snapshot() + " | steps " + std::to_string(UndoSysUndoCount()) + "/" +
               std::to_string(UndoSysRedoCount());
    }
    bool edit() override {
        return guard(false, [&] {
            op_(shelf_);
            return true;
        });
    }
    std::size_t events() override { return shelf_.heard.size(); }
    Shelf &shelf() { return shelf_; }

  private:
    test::HeardShelf shelf_;
    Op op_;
};

test::AtomicityReport check(const std::string &name, ShelfTarget::Op op) {
    return test::check_atomicity(name, [op] { return std::make_unique<ShelfTarget>(op); });
}

// Undo (or redo) of one recorded step as the edit under test.
test::AtomicityReport check_step(const std::string &name, ShelfTarget::Op recorded, bool redo) {
    return test::check_atomicity(name,
                                 [recorded, redo]() -> std::unique_ptr<test::AtomicityTarget> {
                                     auto target = std::make_unique<ShelfTarget>([redo](Shelf &) {
                                         const bool moved = redo ? UndoSysRedo() : UndoSysUndo();
                                         if (!moved) fail(rc::failed, "nothing to move");
                                     });
                                     recorded(target->shelf());
                                     if (redo) UndoSysUndo();
                                     return target;
                                 });
}

class Helpers : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
    }
    void TearDown() override {
        UndoSysClear();
        UndoSysShutdown();
    }
};

void expect_all_held(const test::AtomicityReport &report) {
    EXPECT_GT(report.tried, 0u);
    EXPECT_EQ(report.held, report.tried);
}

TEST_F(Helpers, EveryShelfEditIsAtomic) {
    expect_all_held(check("insert", [](Shelf &s) { test::shelf_insert(s, s.head, 9); }));
    expect_all_held(check("set", [](Shelf &s) { test::shelf_set(s, s.tail, 9); }));
    expect_all_held(check("remove", [](Shelf &s) { test::shelf_remove(s, s.head->next); }));
    expect_all_held(check("label", [](Shelf &s) { test::shelf_set_label(s, 4); }));
    expect_all_held(check("pair", [](Shelf &s) { test::shelf_append_pair(s, 7, 8); }));
    expect_all_held(
        check("tag", [](Shelf &s) { test::shelf_add_tag(s, "another long tag text"); }));
    UndoSysEnable(false);
    expect_all_held(check("remove unrecorded", [](Shelf &s) { test::shelf_remove(s, s.head); }));
    UndoSysEnable(true);
}

TEST_F(Helpers, UndoAndRedoStepsAreAtomic) {
    // Undoing a tag's removal and redoing its addition allocate; the set beside them in the
    // same step, applied before them, must not be touched when they fail.
    auto drop_tag_and_set = [](Shelf &s) {
        UndoBlock block;
        test::shelf_drop_tag(s);
        test::shelf_set(s, s.head, 42);
    };
    auto set_and_add_tag = [](Shelf &s) {
        UndoBlock block;
        test::shelf_set(s, s.head, 42);
        test::shelf_add_tag(s, "a second tag that lives on the heap");
    };
    expect_all_held(check_step("undo", drop_tag_and_set, false));
    expect_all_held(check_step("redo", set_and_add_tag, true));
}

TEST_F(Helpers, TheUndoPropertyHoldsForRandomShelfEdits) {
    class RandomShelf : public test::UndoTarget {
      public:
        std::string snapshot() override { return shelf.snapshot(); }
        std::string random_edit(std::mt19937 &rng) override {
            const int size = shelf.size();
            const int pick = size > 0 ? static_cast<int>(rng() % static_cast<unsigned>(size)) : 0;
            const int value = static_cast<int>(rng() % 10);
            switch (rng() % 7) {
                case 0:
                    test::shelf_insert(shelf, shelf.at(pick - 1), value);
                    return "insert";
                case 1:
                    if (size > 0) test::shelf_set(shelf, shelf.at(pick), value);
                    return "set";
                case 2:
                    if (size > 0) test::shelf_remove(shelf, shelf.at(pick));
                    return "remove";
                case 3:
                    test::shelf_set_label(shelf, value);
                    return "label";
                case 4:
                    test::shelf_append_pair(shelf, value, value + 1);
                    return "pair";
                case 5:
                    test::shelf_add_tag(shelf, "tag " + std::to_string(value));
                    return "tag";
                default:
                    test::shelf_drop_tag(shelf);
                    return "drop tag";
            }
        }
        Shelf shelf;
    };
    const auto report =
        test::check_undo_property("shelf", [] { return std::make_unique<RandomShelf>(); });
    EXPECT_GE(report.sequences, 20u);
    EXPECT_GT(report.steps, 100u);
}

// Faulty edits the helpers must catch. They use globals because gtest's failure-capturing
// macros cannot see locals.
// The blocks the leaky edit forgets, kept reachable so that the optimiser cannot drop the
// allocation and the test can free them afterwards.
int *g_forgotten[64];
std::size_t g_forgotten_count = 0;

void leaky_edit(Shelf &s) {
    int *block = new int[4];  // forgotten on purpose
    if (g_forgotten_count < std::size(g_forgotten)) g_forgotten[g_forgotten_count++] = block;
    test::shelf_set(s, s.head, 5);
}
void edit_that_changes_before_allocating(Shelf &s) {
    s.label = 77;  // outside any record: a failure below cannot take it back
    test::shelf_set(s, s.head, 5);
}
void compound_that_notifies_before_failing(Shelf &s) {
    EditTransaction transaction;
    test::ShelfItem *item = test::shelf_insert(s, nullptr, 5);
    test::shelf_set(s, item, 6);  // prepared only after the insert was applied
}

TEST_F(Helpers, TheAtomicityHelperCatchesLeaksChangesAndNotes) {
    EXPECT_NONFATAL_FAILURE(check("leaky", leaky_edit), "leaked");
    while (g_forgotten_count > 0) delete[] g_forgotten[--g_forgotten_count];
    EXPECT_NONFATAL_FAILURE(check("careless", edit_that_changes_before_allocating),
                            "state changed by the failed edit");
    EXPECT_NONFATAL_FAILURE(check("noisy", compound_that_notifies_before_failing),
                            "change events sent by the failed edit");
}

// A value edit whose apply forgets the value it replaced: undo cannot restore it.
struct ForgetfulSet {
    Shelf *shelf;
    test::ShelfItem *item;
    int value;
    void apply(int) noexcept { item->value = value; }
};

class ForgetfulShelf : public test::UndoTarget {
  public:
    ForgetfulShelf() {
        UndoSysSuspend();
        test::shelf_insert(shelf, nullptr, 1);
        UndoSysResume();
    }
    std::string snapshot() override { return shelf.snapshot(); }
    std::string random_edit(std::mt19937 &rng) override {
        edit_apply<ForgetfulSet>(1, &shelf, shelf.head, static_cast<int>(rng() % 1000) + 2);
        return "forgetful set";
    }
    Shelf shelf;
};

void run_forgetful_property() {
    test::check_undo_property(
        "forgetful", [] { return std::make_unique<ForgetfulShelf>(); }, 2, 3);
}

TEST_F(Helpers, TheUndoPropertyHelperCatchesAnEditThatUndoCannotRestore) {
    EXPECT_NONFATAL_FAILURE(run_forgetful_property(), "differs");
}

}  // namespace
}  // namespace vx
