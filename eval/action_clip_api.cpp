// The C interface of action clips: argument checks, then the clip functions under guard, each
// edit one scene edit (one undo step with its change mark).
#include <vexor/actionclip.h>

#include "eval/action_clip.h"
#include "eval/action_records.h"
#include "foundation/guard.h"
#include "scene/scene.h"

namespace {

bool usable(const CineItem *clip) noexcept {
    return clip != nullptr && clip->in_scene && vx::clip::is_clip(*clip);
}

template <class Fn>
int clip_edit(CineItem *clip, Fn &&fn) noexcept {
    if (!usable(clip)) return 0;
    return vx::guard(0, [&] {
        vx::cine::SceneEdit frame(*clip->scene);
        return fn() ? 1 : 0;
    });
}

// A group argument that is not an item of the clip's scene counts as none.
CineItem *group_in(const CineItem *clip, CineItem *group) noexcept {
    return group != nullptr && group->scene == clip->scene ? group : nullptr;
}

}  // namespace

extern "C" {

VX_API int ActionClipStartup(void) {
    return vx::guard(0, [] {
        vx::clip::start();
        return 1;
    });
}

VX_API void ActionClipShutdown(void) {
    vx::clip::stop();
}

VX_API CineAction *ActionClipAction(CineItem *clip) {
    return clip != nullptr ? vx::clip::action_of(*clip) : nullptr;
}

VX_API CineItem *ActionClipFromAction(CineAction *action) {
    return action != nullptr && action->linked ? vx::clip::clip_of(*action) : nullptr;
}

VX_API unsigned int ActionClipType(CineItem *clip) {
    return clip != nullptr ? vx::clip::kind_of(*clip) : ACTIONCLIP_KIND_NONE;
}

VX_API int ActionClipSetType(CineItem *clip, unsigned int kind) {
    return clip_edit(clip, [&] { return vx::clip::set_kind(*clip, kind); });
}

VX_API int ActionClipAddItem(CineItem *clip, CineItem *group, CineItem *item) {
    if (item == nullptr) return 0;
    return clip_edit(clip, [&] { return vx::clip::add_item(*clip, group_in(clip, group), *item); });
}

VX_API int ActionClipRemoveItem(CineItem *clip, CineItem *group, CineItem *item) {
    if (item == nullptr) return 0;
    return clip_edit(clip,
                     [&] { return vx::clip::remove_item(*clip, group_in(clip, group), *item); });
}

VX_API int ActionClipAddChannel(CineItem *clip, CineItem *, CineItem *item, unsigned int channel) {
    if (item == nullptr) return 0;
    return clip_edit(clip, [&] { return vx::clip::add_channel(*clip, *item, channel); });
}

VX_API int ActionClipRemoveChannel(CineItem *clip, CineItem *, CineItem *item,
                                   unsigned int channel) {
    if (item == nullptr) return 0;
    return clip_edit(clip, [&] { return vx::clip::remove_channel(*clip, *item, channel); });
}

VX_API int ActionClipParentAction(CineItem *clip, CineAction *parent, CineAction *child) {
    return clip_edit(clip, [&] { return vx::clip::parent_action(*clip, parent, child); });
}

VX_API int ActionClipSetParenting(CineItem *clip, int flag) {
    return clip_edit(clip, [&] { return vx::clip::set_parenting(*clip, flag != 0); });
}

VX_API int ActionClipSetActive(CineItem *clip, CineItem *group, unsigned int flag) {
    return clip_edit(clip,
                     [&] { return vx::clip::set_active(*clip, group_in(clip, group), flag); });
}

VX_API int ActionClipIsActive(CineItem *clip) {
    return clip != nullptr && vx::clip::is_active(*clip) ? 1 : 0;
}

VX_API CineItem *ActionClipGetActive(CineItem *group) {
    return group != nullptr ? vx::clip::active_in(*group) : nullptr;
}

VX_API int ActionClipSetEnabled(CineItem *clip, unsigned int flag) {
    return clip_edit(clip, [&] { return vx::clip::set_enabled(*clip, flag); });
}

VX_API int ActionClipIsEnabled(CineItem *clip) {
    return clip != nullptr && vx::clip::is_enabled(*clip) ? 1 : 0;
}

}  // extern "C"
