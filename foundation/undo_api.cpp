#include <vexor/undo.h>

#include "foundation/guard.h"
#include "foundation/undo.h"

extern "C" {

VX_API unsigned int UndoSysState(void) {
    return vx::UndoSysState();
}

VX_API void UndoAddComplete(int flag, UndoApplyFunc apply, void *record, UndoFreeFunc free_fn) {
    vx::guard([&] { vx::UndoAddComplete(flag, apply, record, free_fn); });
}

VX_API int UndoApplyPending(int direction, UndoApplyFunc apply, void *record,
                            UndoFreeFunc free_fn) {
    return vx::guard(0, [&] {
        vx::UndoApplyPending(direction, apply, record, free_fn);
        return 1;
    });
}

VX_API void UndoBlockBegin(void) {
    vx::UndoBlockBegin();
}
VX_API void UndoBlockEnd(void) {
    vx::UndoBlockEnd();
}
VX_API void UndoNewCode(int undoing) {
    vx::UndoNewCode(undoing);
}
VX_API unsigned int UndoSysCode(void) {
    return vx::UndoSysCode();
}
VX_API void UndoSysStartup(void) {
    vx::UndoSysStartup();
}
VX_API void UndoSysShutdown(void) {
    vx::UndoSysShutdown();
}
VX_API void UndoSysEnable(int on) {
    vx::UndoSysEnable(on != 0);
}
VX_API void UndoSysSuspend(void) {
    vx::UndoSysSuspend();
}
VX_API void UndoSysResume(void) {
    vx::UndoSysResume();
}

VX_API int UndoSysUndo(void) {
    return vx::guard(0, [] { return vx::UndoSysUndo() ? 1 : 0; });
}

VX_API int UndoSysRedo(void) {
    return vx::guard(0, [] { return vx::UndoSysRedo() ? 1 : 0; });
}

VX_API int UndoSysCanUndo(void) {
    return vx::UndoSysCanUndo() ? 1 : 0;
}
VX_API int UndoSysCanRedo(void) {
    return vx::UndoSysCanRedo() ? 1 : 0;
}

VX_API unsigned int UndoSysUndoCount(void) {
    return static_cast<unsigned int>(vx::UndoSysUndoCount());
}

VX_API unsigned int UndoSysRedoCount(void) {
    return static_cast<unsigned int>(vx::UndoSysRedoCount());
}

VX_API void UndoSysClear(void) {
    vx::UndoSysClear();
}
VX_API void UndoSysSetLimit(unsigned int steps) {
    vx::UndoSysSetLimit(steps);
}
VX_API unsigned int UndoSysGetLimit(void) {
    return vx::UndoSysLimit();
}
}
