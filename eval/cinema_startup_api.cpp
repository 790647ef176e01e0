// The C interface of the scene module's start and stop. It lives with the action module because
// starting scenes also starts actions (and stopping them stops actions first), and the scene
// module cannot reach the modules above it.
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
