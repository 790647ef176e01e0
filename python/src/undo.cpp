// The undo history as Python sees it: one history for the process, steps undone and redone,
// and blocks that make several edits one step (the `undo_block` context manager wraps them).
#include "common.h"

namespace vxpy {

void register_undo(py::module_ &m) {
    m.def(
        "undo",
        [] {
            LibraryLock lock;
            return UndoSysUndo() != 0;
        },
        "Undoes the last step; False when there is none (or a block is still open).");
    m.def(
        "redo",
        [] {
            LibraryLock lock;
            return UndoSysRedo() != 0;
        },
        "Redoes the last undone step; False when there is none.");
    m.def(
        "can_undo", [] { return UndoSysCanUndo() != 0; }, "Whether a step can be undone.");
    m.def(
        "can_redo", [] { return UndoSysCanRedo() != 0; }, "Whether a step can be redone.");
    m.def(
        "undo_count", [] { return UndoSysUndoCount(); }, "How many steps can be undone.");
    m.def(
        "redo_count", [] { return UndoSysRedoCount(); }, "How many steps can be redone.");
    m.def(
        "clear_undo",
        [] {
            LibraryLock lock;
            UndoSysClear();
            flush_released_envelopes();
            flush_released_meshes();
        },
        "Forgets every step of the history, and frees the envelopes and meshes Python dropped "
        "while the history could still replay their edits.");
    m.def(
        "set_undo_enabled",
        [](bool on) {
            LibraryLock lock;
            UndoSysEnable(on ? 1 : 0);
        },
        py::arg("on"), "Turns recording of undo steps on or off.");
    m.def(
        "undo_recording",
        [] { return (UndoSysState() & VX_UNDO_RECORDING_MASK) == VX_UNDO_ENABLED; },
        "Whether edits are being recorded now.");
    m.def(
        "_undo_block_begin",
        [] {
            LibraryLock lock;
            UndoBlockBegin();
        },
        "Opens an undo block (use the undo_block() context manager).");
    m.def(
        "_undo_block_end",
        [] {
            LibraryLock lock;
            UndoBlockEnd();
        },
        "Closes an undo block.");
}

}  // namespace vxpy
