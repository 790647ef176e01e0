// The action module's start and stop, and the hooks through which the scene module tells it
// of scenes and items coming and going.
#include <vexor/action.h>
#include <vexor/sys/modifier.h>

#include <cstddef>

#include "eval/action_clip.h"
#include "eval/action_io.h"
#include "eval/action_records.h"
#include "eval/eval_data.h"
#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/port.h"
#include "scene/scene.h"
#include "scene/scene_client.h"

namespace vx::act {

namespace {

struct Module {
    unsigned starts = 0;
    Port *modifier_list = nullptr;
};

Module &module() noexcept {
    static Module m;
    return m;
}

void scene_made(Cinema &scene) {
    ActionData &data = make_data(scene);
    OnFailure drop([&] { destroy_data(&data); });
    make_defaults(scene);
}

// Evaluation data holds caches attached to the actions, so it goes first.
void scene_unmade(Cinema &scene) noexcept {
    vx::eval::destroy_eval_data(scene);
    destroy_data(data_of(scene));
}

void purge_channels(CineItem &item, std::uint32_t first, std::uint32_t count) {
    purge_package(item, first, count);
}

void item_unmade(CineItem &item) noexcept {
    vx::eval::forget_item(item);
    forget_item(item);
}

// The scene's event routine marks the scene changed only for events of its own actions.
Cinema *scene_of_action(const CineAction *action) {
    return action != nullptr ? scene_of(*action) : nullptr;
}

constexpr vx::cine::SceneClient kClient = {scene_made,          scene_unmade,
                                           purge_channels,      item_unmade,
                                           vx::clip::item_made, vx::clip::item_deleting};

// Hosts read the change record through the C declaration: both must be the same record.
static_assert(sizeof(ActionChange) == sizeof(CineActionChange));
static_assert(offsetof(ActionChange, channel) == offsetof(CineActionChange, channel));
static_assert(offsetof(ActionChange, start) == offsetof(CineActionChange, start));
static_assert(kActionChanged == CINE_EVENT_ACTION_CHANGED);

}  // namespace

void start() {
    Module &m = module();
    if (m.starts++ > 0) return;
    OnFailure undo_count([&] { m.starts = 0; });
    vx::com::add_guid_alias(CINE_MODIFIER_CLASS, CINE_MODIFIER_CLASS_GUID);
    register_io();
    OnFailure drop_io([] { unregister_io(); });
    // Modifier servers announce their changes here; evaluation listens.
    m.modifier_list = vx::PortCreate("modifier.list");
    vx::cine::set_scene_client(&kClient);
    vx::cine::set_action_scene_query(scene_of_action);
}

void stop() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    vx::cine::set_scene_client(nullptr);
    vx::cine::set_action_scene_query(nullptr);
    unregister_io();
    vx::eval::free_orphan_evaluators();
    vx::PortDestroy(m.modifier_list);
    m.modifier_list = nullptr;
}

}  // namespace vx::act
