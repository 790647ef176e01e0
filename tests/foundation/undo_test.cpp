// The undo system where it can go wrong: order within a step, grouping, dropping records in
// each state, the limit, suspension, threads, and failures while applying.
#include "foundation/foundation_fixture.h"

#include <initializer_list>
#include <stdexcept>

#include <vexor/undo.h>

#include "foundation/undo.h"

namespace vx {
namespace {

// Records that write what happens to them into one trace.
std::vector<std::string> trace;
int fail_apply_of = -1;  // the record id whose next apply throws

struct TraceRecord {
    int id;
};

void trace_apply(void *block, int direction, int) {
    auto *record = static_cast<TraceRecord *>(block);
    if (record->id == fail_apply_of) {
        fail_apply_of = -1;
        throw std::runtime_error("apply refused");
    }
    trace.push_back("apply " + std::to_string(record->id) + " " + std::to_string(direction));
}

void trace_free(void *block, int state) {
    auto *record = static_cast<TraceRecord *>(block);
    trace.push_back("free " + std::to_string(record->id) + " " + std::to_string(state));
    delete record;
}

// Hands over a record as already applied forward, as form A edits do.
void complete(int id, int flag = 1) {
    UndoSlot slot;
    slot.add_complete(flag, trace_apply, new TraceRecord{id}, trace_free);
}

// One step of several records.
void complete_step(std::initializer_list<int> ids) {
    UndoBlock block;
    for (int id : ids) complete(id);
}

class UndoSystem : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysSetLimit(0);
        UndoSysClear();
        trace.clear();
        fail_apply_of = -1;
    }
    void TearDown() override {
        UndoSysClear();
        UndoSysSetLimit(0);
        UndoSysShutdown();
    }
    static std::vector<std::string> take_trace() { return std::exchange(trace, {}); }
};

using Trace = std::vector<std::string>;

TEST_F(UndoSystem, StepsUndoInReverseOrderRedoInOrderAndNestedBlocksFormOneStep) {
    complete_step({1, 2, 3});
    EXPECT_EQ(UndoSysUndoCount(), 1u);
    take_trace();
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(take_trace(), (Trace{"apply 3 0", "apply 2 0", "apply 1 0"}));
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(take_trace(), (Trace{"apply 1 1", "apply 2 1", "apply 3 1"}));
    EXPECT_FALSE(UndoSysRedo());
    UndoSysClear();

    // Records outside blocks are steps of their own.
    complete(1);
    UndoBlockBegin();
    complete(2);
    UndoBlockBegin();
    complete(3);
    UndoBlockEnd();
    complete(4);
    UndoBlockEnd();
    complete(5);
    UndoBlockBegin();  // an empty block makes no step
    UndoBlockEnd();
    EXPECT_EQ(UndoSysUndoCount(), 3u);
    take_trace();
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(take_trace(), (Trace{"apply 5 0"}));
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(take_trace(), (Trace{"apply 4 0", "apply 3 0", "apply 2 0"}));
}

TEST_F(UndoSystem, PendingRecordsAreAppliedFirstAndUndoneInTheOtherDirection) {
    UndoApplyPending(0, trace_apply, new TraceRecord{7}, trace_free);
    UndoApplyPending(1, trace_apply, new TraceRecord{8}, trace_free);
    EXPECT_EQ(take_trace(), (Trace{"apply 7 0", "apply 8 1"}));
    UndoSysUndo();
    UndoSysUndo();
    EXPECT_EQ(take_trace(), (Trace{"apply 8 0", "apply 7 1"}));
    UndoSysRedo();
    EXPECT_EQ(take_trace(), (Trace{"apply 7 0"}));
}

// Each way a record leaves the history frees it in the state it stands in: dropped redo steps
// and cleared undone ones as undone, steps past the limit and cleared ones as in effect.
TEST_F(UndoSystem, RecordsAreFreedInTheStateTheyStandIn) {
    complete(1);
    complete(2);
    UndoSysUndo();
    take_trace();
    complete(3);  // a new edit drops the redo step
    EXPECT_EQ(take_trace(), (Trace{"free 2 1"}));
    EXPECT_FALSE(UndoSysCanRedo());
    EXPECT_EQ(UndoSysUndoCount(), 2u);
    UndoSysUndo();
    take_trace();
    UndoSysClear();
    EXPECT_EQ(take_trace(), (Trace{"free 3 1", "free 1 0"}));
    EXPECT_FALSE(UndoSysCanUndo());

    UndoSysSetLimit(2);
    complete_step({1, 2});
    complete(3);
    take_trace();
    complete(4);
    EXPECT_EQ(take_trace(), (Trace{"free 1 0", "free 2 0"}));
    EXPECT_EQ(UndoSysUndoCount(), 2u);
    UndoSysSetLimit(1);
    EXPECT_EQ(take_trace(), (Trace{"free 3 0"}));

    UndoSysStartup();  // a second reference: shutdown frees nothing yet
    UndoSysShutdown();
    EXPECT_TRUE(take_trace().empty());
}

TEST_F(UndoSystem, NothingRecordsWhileDisabledSuspendedOrApplying) {
    EXPECT_EQ(UndoSysState(), kUndoEnabled);
    UndoSysSuspend();
    UndoSysSuspend();
    EXPECT_EQ(UndoSysState(), kUndoEnabled | kUndoSuspended);
    complete(1);
    EXPECT_EQ(take_trace(), (Trace{"free 1 0"}));
    UndoSysResume();
    EXPECT_FALSE(undo_recording(UndoSysState())) << "suspension nests";
    UndoSysResume();
    EXPECT_TRUE(undo_recording(UndoSysState()));

    UndoSysEnable(false);
    UndoApplyPending(1, trace_apply, new TraceRecord{2}, trace_free);
    EXPECT_EQ(take_trace(), (Trace{"apply 2 1", "free 2 0"}));
    UndoSysEnable(true);

    // An apply step that edits again while being undone: the nested record is not kept.
    static std::uint32_t state_seen = 0;
    struct Nesting {
        static void apply(void *, int direction, int) {
            if (direction == 0) {
                state_seen = UndoSysState();
                complete(99);
            }
        }
        static void free(void *, int) {}
    };
    UndoApplyPending(1, Nesting::apply, nullptr, Nesting::free);
    take_trace();
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(state_seen, kUndoEnabled | kUndoSuspended | kUndoApplying);
    EXPECT_EQ(take_trace(), (Trace{"free 99 0"}));
    EXPECT_TRUE(UndoSysCanRedo()) << "the nested edit must not drop the redo step";
}

TEST_F(UndoSystem, OtherThreadsSeeNoRecordingAndCannotMoveTheHistory) {
    complete(1);
    std::uint32_t state = 1;
    bool undone = true;
    std::thread other([&] {
        state = UndoSysState();
        undone = UndoSysUndo();
        complete(2);  // not recorded: freed at once as in effect
    });
    other.join();
    EXPECT_EQ(state, 0u);
    EXPECT_FALSE(undone);
    EXPECT_EQ(take_trace(), (Trace{"free 2 0"}));
    EXPECT_EQ(UndoSysUndoCount(), 1u);
    EXPECT_EQ(UndoSysState(), kUndoEnabled);
}

TEST_F(UndoSystem, AFailureWhileUndoingOrRedoingPutsBackWhatItApplied) {
    complete_step({1, 2, 3});
    take_trace();
    fail_apply_of = 1;  // the last record undone
    EXPECT_EQ(::UndoSysUndo(), 0);
    EXPECT_EQ(VxLastFailure().code, VX_E_FAILED);
    EXPECT_EQ(take_trace(), (Trace{"apply 3 0", "apply 2 0", "apply 2 1", "apply 3 1"}));
    EXPECT_EQ(UndoSysUndoCount(), 1u);
    EXPECT_FALSE(UndoSysCanRedo());

    ASSERT_TRUE(UndoSysUndo()) << "a retry succeeds";
    take_trace();
    fail_apply_of = 3;
    EXPECT_EQ(::UndoSysRedo(), 0);
    EXPECT_EQ(take_trace(), (Trace{"apply 1 1", "apply 2 1", "apply 2 0", "apply 1 0"}));
    EXPECT_EQ(UndoSysRedoCount(), 1u);
    EXPECT_TRUE(UndoSysRedo());
}

TEST_F(UndoSystem, RecordsOfAFailedEditAreRevertedAndFreedAsUndone) {
    complete(1);
    take_trace();
    try {
        EditTransaction outer;
        complete(2);
        {
            EditTransaction inner;
            UndoApplyPending(0, trace_apply, new TraceRecord{3}, trace_free);
        }
        throw std::runtime_error("late failure");
    } catch (const std::runtime_error &) {
    }
    EXPECT_EQ(take_trace(), (Trace{"apply 3 0", "apply 3 1", "free 3 1", "apply 2 0", "free 2 1"}));
    EXPECT_EQ(UndoSysUndoCount(), 1u);

    // Without recording, a completed edit's records are freed when the outermost edit ends.
    UndoSysEnable(false);
    {
        EditTransaction outer;
        complete(4);
        EXPECT_TRUE(take_trace().empty());
    }
    EXPECT_EQ(take_trace(), (Trace{"free 4 0"}));
}

TEST_F(UndoSystem, HandOverWithoutRoomRevertsTheRecordInsteadOfLosingIt) {
    auto *record = new TraceRecord{5};
    {
        test::FailAllocation fail(1);
        ::UndoAddComplete(1, trace_apply, record, trace_free);
    }
    EXPECT_EQ(take_trace(), (Trace{"apply 5 0", "free 5 1"}));
    EXPECT_EQ(VxLastFailure().code, VX_E_NOMEMORY);
    EXPECT_FALSE(UndoSysCanUndo());

    auto *unapplied = new TraceRecord{7};
    int result = -1;
    {
        test::FailAllocation fail(1);
        result = ::UndoApplyPending(1, trace_apply, unapplied, trace_free);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(take_trace(), (Trace{"free 7 1"}));
    EXPECT_FALSE(UndoSysCanUndo());
}

TEST_F(UndoSystem, UndoIsRefusedInsideABlockOrAnEditInFlightAndStructureChangesBumpTheCode) {
    complete(1);
    UndoBlockBegin();
    EXPECT_FALSE(UndoSysUndo());
    UndoBlockEnd();
    {
        EditTransaction transaction;
        EXPECT_FALSE(UndoSysUndo());
    }
    EXPECT_TRUE(UndoSysUndo());

    const std::uint32_t before = UndoSysCode();
    UndoNewCode(0);
    UndoNewCode(1);
    EXPECT_EQ(UndoSysCode(), before + 2);
}

}  // namespace
}  // namespace vx
