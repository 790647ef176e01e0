// The clip types and their life: "actionclip" (code 16) and "actionpose", the clip's own action
// made with the clip, found again after a load, and destroyed when the clip is deleted.
#include <vexor/cinema.h>
#include <vexor/package.h>

#include <cstdio>
#include <string>

#include "eval/action_clip.h"
#include "eval/action_records.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "scene/cinema_module.h"
#include "scene/over_scenes.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::clip {
namespace {

struct Module {
    unsigned starts = 0;
    TransformItemsFn transform_items = nullptr;
};

Module &module() noexcept {
    static Module m;
    return m;
}

constexpr const char *kClipPackage = "actionclip";
constexpr const char *kPosePackage = "actionpose";
constexpr TextHint kModeHints[] = {
    {ACTIONCLIP_MODE_OVERRIDE, "override"}, {ACTIONCLIP_MODE_UNDER, "under"}, {0, nullptr}};

// A name no action of the scene has: the clip's unique name as it is made, with a number
// when that is taken (by the action of an earlier clip that was renamed, say).
std::string free_name(const Cinema &scene, const std::string &base) {
    std::string name = base;
    for (unsigned n = 2; act::lookup(scene, name.c_str()) != nullptr; ++n) {
        char number[16];
        std::snprintf(number, sizeof number, "_%u", n);
        name = base + number;
    }
    return name;
}

// After a load: the clip's tag names its action. A clip without the tag looks for an action
// of its unique name. A clip whose action is missing (or is another clip's, or the scene's
// own, which only a damaged file can say) has none: its tag is emptied, so that a later action
// of that name is not taken for it, now or when the scene is saved and loaded again.
bool owns_action(CineItem &clip) noexcept {
    const CineAction *action = action_of(clip);
    return action != nullptr && clip_of(*action) == &clip;
}

void set_action_tag(CineItem &clip, const std::string &name) {
    for (cine::ItemTag &tag : clip.tags) {
        if (tag.code == kActionTag) {
            tag.value = name;
            return;
        }
    }
    clip.tags.push_back(cine::ItemTag{kActionTag, name});
}

void find_again(void *item) {
    CineItem &clip = *static_cast<CineItem *>(item);
    if (cine::item_tag(clip, kActionTag) == nullptr) set_action_tag(clip, cine::unique_name(clip));
    if (owns_action(clip)) return;
    set_action_tag(clip, std::string());
    log::level(1, "Action not found for ActionClip: %s\n", cine::unique_name(clip).c_str());
}

// A clip's local data is the clip item itself: package callbacks given only the local data
// find the clip, and through it (ActionClipAction) its action.
void *clip_local(void *item, void *) {
    return item;
}

// The types survive a stop of this module while the scene module runs on.
void define_types() {
    if (cine::find_package(kClipPackage) != nullptr) return;
    const char *const none = nullptr;
    CinePackageDefine(kClipPackage);
    if (CinePackageAddChannel(kClipPackage, CINE_CH_NAME, "mode", VX_STORE_INT, none,
                              CINE_CH_DEFAULT_INT, ACTIONCLIP_MODE_UNDER, CINE_CH_HINTS, kModeHints,
                              0u, CINE_CH_NAME, none) == 0 ||
        CinePackagePostLoadFunc(kClipPackage, find_again) == nullptr ||
        CinePackageSetLocal(kClipPackage, nullptr, clip_local, nullptr) == nullptr) {
        fail(rc::no_memory, "the clip package could not be defined");
    }
    if (CineDefineType(ACTIONCLIP_TYPE_CODE, 0, kClipPackage) != ACTIONCLIP_TYPE_CODE) {
        fail(rc::failed, "the clip type could not be defined");
    }
    CinePackageDefine(kPosePackage);
    if (CineDefineType(0, ACTIONCLIP_TYPE_CODE, kPosePackage) == CINE_TYPE_NONE) {
        fail(rc::failed, "the pose type could not be defined");
    }
}

}  // namespace

void start() {
    cine::start_over_scenes(module().starts, define_types);
}

void stop() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    CinemaShutdown();
}

bool started() noexcept {
    return module().starts > 0;
}

void set_transform_items(TransformItemsFn fn) noexcept {
    module().transform_items = fn;
}

std::size_t transform_items(CineItem &item, CineItem **out, std::size_t capacity) {
    TransformItemsFn fn = module().transform_items;
    if (fn == nullptr || !cine::test_type(item, kTransformType)) return 0;
    return fn(item, out, capacity);
}

// The clip's action is made in the edit that makes the clip, as its last step: undo takes both
// away, and a failure takes both back. A pose's action has the type of "setup" (clip kind 1).
void item_made(CineItem &item) {
    if (!is_clip(item)) return;
    Cinema &scene = *item.scene;
    if (act::data_of(scene) == nullptr) {
        log::level(1, "Unable to create action for ActionClip: %s\n",
                   cine::unique_name(item).c_str());
        return;
    }
    const std::string name = free_name(scene, cine::unique_name(item));
    const bool pose = cine::test_type(item, CineLookupType(kPosePackage));
    cine::set_item_tag(item, kActionTag, name.c_str());
    act::create(scene, name.c_str(), pose ? CINE_ACTION_SETUP : CINE_ACTION_SCENE, nullptr);
}

void item_deleting(CineItem &item) {
    if (!is_clip(item)) return;
    CineAction *action = action_of(item);
    if (action == nullptr) return;
    // An action that is another's parent cannot go: the clip leaves evaluation first.
    for (CineAction *other = action->data->first; other != nullptr; other = other->next) {
        act::remove_parent(*other, *action);
    }
    act::destroy(*action);
}

}  // namespace vx::clip
