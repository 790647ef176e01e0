#include <vexor/time.h>

#include "foundation/guard.h"
#include "foundation/time.h"

extern "C" VX_API double TimeGlobalFPS(void) {
    return vx::TimeGlobalFPS();
}

extern "C" VX_API int TimeSetGlobalFPS(double fps) {
    return vx::guard(0, [&] {
        vx::TimeSetGlobalFPS(fps);
        return 1;
    });
}
