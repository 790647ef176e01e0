// Modules built over the scene module (groups, action clips) start and stop with it.
#pragma once

#include <vexor/cinema.h>

#include "foundation/failure.h"
#include "scene/cinema_module.h"

namespace vx::cine {

// Counts one start of such a module in `starts`. The first start brings the scene module up
// and runs `first_start`; should that fail, the scene module is stopped again, the count stays
// 0 and the failure goes on to the caller.
template <class FirstStart>
void start_over_scenes(unsigned &starts, FirstStart first_start) {
    if (starts > 0) {
        ++starts;
        return;
    }
    CinemaStartup();
    if (!module_started()) fail(rc::no_memory, "the scene module could not start");
    OnFailure stop_scenes([] { CinemaShutdown(); });
    first_start();
    starts = 1;
}

}  // namespace vx::cine
