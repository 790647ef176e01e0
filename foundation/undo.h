// The undo system.
//
// One history for the process, driven by the thread that started it (the owner). A history
// is a list of steps; a step is the list of records handed over outside any block, or inside
// one outermost UndoBlockBegin/UndoBlockEnd bracket. Undo applies a step's records in reverse
// order, each in the opposite of the direction it was first applied in; redo applies them in
// order, in that direction. A record is freed by its free function exactly once, told whether
// its edit is in effect (0) or undone (non-zero) at that moment.
//
// Edits in flight: every record handed over inside an EditTransaction is kept by the
// transaction until the outermost one completes. If a failure unwinds a transaction, the
// records it took are reverted (in reverse order) and freed as undone, so a compound edit
// that fails half-way leaves the data as it was. Records are handed over through an UndoSlot
// reserved before the record is applied, so hand-over itself never fails.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

using UndoApplyFn = void (*)(void *record, int direction, int extra);
using UndoFreeFn = void (*)(void *record, int state);
// Optional: does whatever can fail before a record is applied in `direction` (allocates what
// the apply step will need) without changing anything observable. Undo and redo prepare every
// record of a step before applying any, so a failure leaves the data untouched and silent.
using UndoPrepareFn = void (*)(void *record, int direction);

// State bits of UndoSysState().
inline constexpr std::uint32_t kUndoSuspended = 0x10;
inline constexpr std::uint32_t kUndoEnabled = 0x100;
inline constexpr std::uint32_t kUndoApplying = 0x200;
inline constexpr std::uint32_t kUndoRecordingMask = kUndoEnabled | kUndoSuspended;

inline bool undo_recording(std::uint32_t state) noexcept {
    return (state & kUndoRecordingMask) == kUndoEnabled;
}

// The state bits as seen by the calling thread: 0 on any thread but the owner. While an undo
// or redo is applied the state carries kUndoApplying and kUndoSuspended, so nothing records.
std::uint32_t UndoSysState() noexcept;

// Takes a record whose change is already applied (direction 1). The flag tells the kind of
// change: 1 for a plain swap of stored values, 0 for a structural change (keys inserted or
// removed, objects made or destroyed); it is kept with the record and shown in the "undo"
// debug channel. May raise a failure (out of memory): the record is then reverted and freed as
// undone before the failure propagates. Edits use UndoSlot instead, which cannot fail.
void UndoAddComplete(int flag, UndoApplyFn apply, void *record, UndoFreeFn free);
// Applies a record in `direction` and takes it. When the apply step fails, the record is freed
// as undone and the failure propagates.
void UndoApplyPending(int direction, UndoApplyFn apply, void *record, UndoFreeFn free);

void UndoBlockBegin() noexcept;
void UndoBlockEnd() noexcept;

// Tells the host that the document's structure changed (undoing is 1 when an undo caused it).
void UndoNewCode(int undoing) noexcept;
std::uint32_t UndoSysCode() noexcept;

// Host control. Startup is reference counted: the first call makes the calling thread the
// owner and enables recording; the last Shutdown frees every record.
void UndoSysStartup() noexcept;
void UndoSysShutdown() noexcept;
void UndoSysEnable(bool on) noexcept;
void UndoSysSuspend() noexcept;  // nests
void UndoSysResume() noexcept;
// Undo or redo one step. Returns false when there is nothing to do, when called off the owner
// thread, inside an open block or while an edit is in flight. A failure while applying puts
// back the records already applied and propagates; data and position stay as they were.
bool UndoSysUndo();
bool UndoSysRedo();
bool UndoSysCanUndo() noexcept;
bool UndoSysCanRedo() noexcept;
// Drops every step: those in effect are freed with state 0, those undone with state 1.
void UndoSysClear() noexcept;
// Keeps at most `steps` steps (0: no limit); the oldest are freed as in effect.
void UndoSysSetLimit(std::uint32_t steps) noexcept;
std::uint32_t UndoSysLimit() noexcept;
std::size_t UndoSysUndoCount() noexcept;  // steps that can be undone
std::size_t UndoSysRedoCount() noexcept;  // steps that can be redone

// Room for one record, reserved before the record is applied so that handing it over cannot
// fail. A slot that is never used releases its room when destroyed.
class UndoSlot {
  public:
    UndoSlot();  // raises std::bad_alloc
    ~UndoSlot();
    UndoSlot(UndoSlot &&other) noexcept : node_(other.node_) { other.node_ = nullptr; }
    UndoSlot(const UndoSlot &) = delete;
    UndoSlot &operator=(const UndoSlot &) = delete;
    UndoSlot &operator=(UndoSlot &&) = delete;

    // Hands over a record already applied forward. Never fails. Uses up the slot.
    void add_complete(int flag, UndoApplyFn apply, void *record, UndoFreeFn free,
                      UndoPrepareFn prepare = nullptr) noexcept;
    // Prepares and applies the record in `direction` and hands it over. If either step fails,
    // the record is freed as undone and the failure propagates. Uses up the slot either way.
    void apply_pending(int direction, UndoApplyFn apply, void *record, UndoFreeFn free,
                       UndoPrepareFn prepare = nullptr);

    struct Node;

  private:
    Node *node_;
};

// Brackets an edit in flight (see the header comment). Nesting is free.
class EditTransaction {
  public:
    EditTransaction() noexcept;
    ~EditTransaction();
    EditTransaction(const EditTransaction &) = delete;
    EditTransaction &operator=(const EditTransaction &) = delete;

  private:
    UndoSlot::Node *mark_;
    int entry_exceptions_;
};

// RAII bracket of UndoBlockBegin and UndoBlockEnd.
class UndoBlock {
  public:
    UndoBlock() noexcept { UndoBlockBegin(); }
    ~UndoBlock() { UndoBlockEnd(); }
    UndoBlock(const UndoBlock &) = delete;
    UndoBlock &operator=(const UndoBlock &) = delete;
};

}  // namespace vx
