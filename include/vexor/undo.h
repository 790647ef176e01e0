/* The undo system: one history for the process, driven by the thread that started it.
 *
 * Every undoable edit of the library hands a record to this system. Hosts control it (start,
 * enable, suspend, undo and redo a step, clear, limit); plug-ins that keep their own data can
 * make their edits undoable with UndoAddComplete or UndoApplyPending.
 *
 * A record's apply function changes the data in a direction (1 = do or redo, 0 = undo); its
 * free function releases it, told whether its edit is in effect (state 0) or undone (non-zero)
 * at that moment. Every record is freed exactly once. An apply function that can fail must
 * fail before it changes anything. */
#ifndef VEXOR_UNDO_H
#define VEXOR_UNDO_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

#define VX_UNDO_SUSPENDED 0x10u
#define VX_UNDO_ENABLED 0x100u
#define VX_UNDO_APPLYING 0x200u
/* Recording happens when (UndoSysState() & VX_UNDO_RECORDING_MASK) == VX_UNDO_ENABLED. */
#define VX_UNDO_RECORDING_MASK 0x110u

typedef void (*UndoApplyFunc)(void *record, int direction, int extra);
typedef void (*UndoFreeFunc)(void *record, int state);

/* The state bits seen by the calling thread; 0 on any thread but the owner. While an undo or
 * redo is being applied the state carries VX_UNDO_APPLYING and VX_UNDO_SUSPENDED. */
VX_API unsigned int UndoSysState(void);

/* Takes a record whose change the caller has already applied (direction 1); undo applies it
 * with direction 0 and redo with 1. Flag: 1 for a plain swap of stored values, 0 for a
 * structural change. When nothing is recording, the record is freed at once with state 0.
 * If the record cannot be kept (out of memory) it is reverted and freed with state 1, and
 * the failure is left in VxLastFailure(). The system owns the record in every case. */
VX_API void UndoAddComplete(int flag, UndoApplyFunc apply, void *record, UndoFreeFunc free_fn);

/* Applies a record in `direction` and takes it: undo applies the other direction, redo the
 * same one. When nothing is recording the record is applied and freed with state 0. Returns 1,
 * or 0 when the apply function failed or memory ran out (the record is then freed with state
 * 1). The system owns the record in every case. */
VX_API int UndoApplyPending(int direction, UndoApplyFunc apply, void *record, UndoFreeFunc free_fn);

/* Bracket several edits into one undo step. Blocks nest; the outermost is the step. */
VX_API void UndoBlockBegin(void);
VX_API void UndoBlockEnd(void);

/* Bumps the structure counter: apply functions that insert, remove or reorder call it, with
 * `undoing` 1 when an undo caused the change. Hosts compare UndoSysCode() to notice. */
VX_API void UndoNewCode(int undoing);
VX_API unsigned int UndoSysCode(void);

/* Reference counted: the first call makes the calling thread the owner and enables recording;
 * the last UndoSysShutdown frees every record. Call from the owner thread. */
VX_API void UndoSysStartup(void);
VX_API void UndoSysShutdown(void);
/* Owner thread only; calls from other threads are ignored. */
VX_API void UndoSysEnable(int on);
VX_API void UndoSysSuspend(void); /* nests with UndoSysResume */
VX_API void UndoSysResume(void);

/* Undo or redo one step. Return 1 when a step was applied; 0 when there is none, off the
 * owner thread, inside an open block or an edit in progress, or when applying failed, in
 * which case the data and the position in the history are as they were and a retry may
 * succeed. */
VX_API int UndoSysUndo(void);
VX_API int UndoSysRedo(void);
VX_API int UndoSysCanUndo(void);
VX_API int UndoSysCanRedo(void);
/* Number of steps that can be undone, and redone. */
VX_API unsigned int UndoSysUndoCount(void);
VX_API unsigned int UndoSysRedoCount(void);
/* Drops every step: steps in effect are freed with state 0, undone ones with state 1. */
VX_API void UndoSysClear(void);
/* Keeps at most `steps` steps (0: no limit); the oldest are freed as in effect. */
VX_API void UndoSysSetLimit(unsigned int steps);
VX_API unsigned int UndoSysGetLimit(void);

VX_EXTERN_C_END

#endif
