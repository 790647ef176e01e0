// The C interface of the scene module's start and stop.
#include <vexor/cinema.h>

#include "foundation/guard.h"
#include "scene/cinema_module.h"

extern "C" {

VX_API void CinemaStartup(void) {
    vx::guard([] { vx::cine::start_module(); });
}

VX_API void CinemaShutdown(void) {
    vx::cine::stop_module();
}
}
