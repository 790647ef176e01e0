// The C interface of the scene module's start and stop. It lives in the top module that takes
// part in scenes, because starting scenes also starts actions and the item types of the
// modules above them (transforms), and stopping them stops those first; the scene module
// cannot reach the modules above it.
#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/xfrm.h>

#include "eval/action_clip.h"
#include "eval/modifier_builtin.h"
#include "foundation/failure.h"
#include "foundation/guard.h"
#include "groups/xfrm.h"
#include "scene/cinema_module.h"

namespace {

// Action clips claim the channels of a placed item's transforms with the item's own. The hook
// stays set: the transforms' C function answers 0 while the module is stopped.
std::size_t chain_items(CineItem &item, CineItem **out, std::size_t capacity) {
    return XfrmGetTransformArray(&item, out, static_cast<unsigned int>(capacity));
}

}  // namespace

extern "C" {

// Both modules count their starts, so every successful CinemaStartup starts each once and every
// CinemaShutdown stops each once, actions first. Unbalanced calls are ignored by both. The
// modifiers this library ships and the transform types are registered with the first start.
VX_API void CinemaStartup(void) {
    vx::guard([] {
        vx::cine::start_module();
        vx::OnFailure stop_scenes([] { vx::cine::stop_module(); });
        if (CineActionStartup() == 0) vx::fail(vx::rc::no_memory, "actions could not start");
        vx::OnFailure stop_actions([] { CineActionShutdown(); });
        vx::eval::register_builtin_modifiers();
        vx::xfrm::start();
        vx::clip::set_transform_items(chain_items);
    });
}

VX_API void CinemaShutdown(void) {
    // Scenes still alive at the last stop go while actions can still drop their data.
    vx::cine::destroy_scenes_before_stop();
    vx::xfrm::stop();
    CineActionShutdown();
    vx::cine::stop_module();
}
}
