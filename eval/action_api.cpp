// The C interface of actions.
#include <vexor/action.h>

#include <cmath>
#include <cstring>
#include <utility>

#include "eval/action_records.h"
#include "foundation/guard.h"
#include "scene/scene.h"

namespace {

using vx::act::ActionData;

// Runs an edit of a scene's actions as one scene edit: one undo step together with the change
// mark it causes, whose room is reserved before anything changes.
template <class R, class Fn>
R scene_edit(Cinema &scene, R failed, Fn &&fn) noexcept {
    return vx::guard(failed, [&] {
        vx::cine::SceneEdit frame(scene);
        return fn();
    });
}

template <class Fn>
int action_edit(CineAction &action, Fn &&fn) noexcept {
    return scene_edit(*vx::act::scene_of(action), 0, std::forward<Fn>(fn));
}

// Runs an edit of an action's entry; 1, or 0 on failure or a null argument.
template <class Body>
int entry_edit(CineAction *action, CineItem *item, Body &&body) noexcept {
    if (action == nullptr || item == nullptr) return 0;
    return action_edit(*action, [&] {
        body(*action, *item);
        return 1;
    });
}

// Values and times an action keeps must be numbers: a NaN or an infinity would reach every
// evaluation and every saved file.
void require_finite(double value) {
    if (!std::isfinite(value)) vx::fail(vx::rc::bad_argument, "not a finite number");
}

// The value the action sees for a channel: an entry's constant, or the channel's default
// (also when an envelope governs it). Null when the channel does not exist.
const vx::value::Value *seen_value(CineAction *action, const CineItem *item,
                                   unsigned int channel) noexcept {
    if (item == nullptr) return nullptr;
    const vx::cine::ChannelDesc *desc = vx::cine::item_channel(*item, channel);
    if (desc == nullptr) return nullptr;
    const vx::act::ValueSource source = vx::act::find_value(action, *item, channel);
    return source.constant != nullptr ? source.constant : &desc->default_value;
}

template <class Fn>
auto read_action(CineAction *action, Fn &&fn) noexcept -> decltype(fn(*action)) {
    return action != nullptr ? fn(*action) : decltype(fn(*action)){};
}

}  // namespace

extern "C" {

// ---- Module and scene data ----

VX_API int CineActionStartup(void) {
    return vx::guard(0, [] {
        vx::act::start();
        return 1;
    });
}

VX_API void CineActionShutdown(void) {
    vx::act::stop();
}

VX_API CineActionData *CineActionDataCreate(Cinema *scene) {
    if (scene == nullptr) return nullptr;
    return vx::guard(static_cast<CineActionData *>(nullptr),
                     [&] { return &vx::act::make_data(*scene); });
}

VX_API void CineActionDataDestroy(CineActionData *data) {
    vx::act::destroy_data(data);
}

VX_API void CineActionCreateDefaults(Cinema *scene) {
    if (scene == nullptr) return;
    vx::guard([&] {
        vx::act::make_data(*scene);
        vx::act::make_defaults(*scene);
    });
}

VX_API CineAction *CineActionGetDefault(Cinema *scene, unsigned int kind) {
    return scene != nullptr ? vx::act::default_action(*scene, kind) : nullptr;
}

VX_API int CinemaSetupState(Cinema *scene) {
    const ActionData *data = scene != nullptr ? vx::act::data_of(*scene) : nullptr;
    return data != nullptr && vx::act::setup_state(*data) ? 1 : 0;
}

VX_API unsigned int CineActionOrderCount(Cinema *scene) {
    const ActionData *data = scene != nullptr ? vx::act::data_of(*scene) : nullptr;
    return data != nullptr ? static_cast<unsigned int>(data->order.size()) : 0u;
}

VX_API CineAction *CineActionOrderByIndex(Cinema *scene, unsigned int index) {
    const ActionData *data = scene != nullptr ? vx::act::data_of(*scene) : nullptr;
    return data != nullptr && index < data->order.size() ? data->order[index] : nullptr;
}

// ---- Actions ----

VX_API CineAction *CineActionCreate(Cinema *scene, const char *name, unsigned int type,
                                    CineAction *parent) {
    if (scene == nullptr) return nullptr;
    return scene_edit(*scene, static_cast<CineAction *>(nullptr),
                      [&] { return vx::act::create(*scene, name, type, parent); });
}

VX_API CineAction *CineActionCopy(CineAction *action, const char *name) {
    if (action == nullptr) return nullptr;
    return scene_edit(*vx::act::scene_of(*action), static_cast<CineAction *>(nullptr),
                      [&] { return vx::act::copy_action(*action, name); });
}

VX_API int CineActionDestroy(CineAction *action) {
    if (action == nullptr) return 0;
    return action_edit(*action, [&] { return vx::act::destroy(*action) ? 1 : 0; });
}

VX_API CineAction *CineActionFirst(Cinema *scene) {
    const ActionData *data = scene != nullptr ? vx::act::data_of(*scene) : nullptr;
    return data != nullptr ? data->first : nullptr;
}

VX_API CineAction *CineActionLast(Cinema *scene) {
    const ActionData *data = scene != nullptr ? vx::act::data_of(*scene) : nullptr;
    return data != nullptr ? data->last : nullptr;
}

VX_API CineAction *CineActionNext(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.next; });
}

VX_API CineAction *CineActionPrev(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.prev; });
}

VX_API CineAction *CineActionLookup(Cinema *scene, const char *name) {
    return scene != nullptr ? vx::act::lookup(*scene, name) : nullptr;
}

VX_API const char *CineActionName(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.name.c_str(); });
}

VX_API Cinema *CineActionContext(CineAction *action) {
    return read_action(action, [](CineAction &a) { return vx::act::scene_of(a); });
}

VX_API unsigned int CineActionType(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.type; });
}

VX_API int CineActionIsEnabled(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.enabled != 0 ? 1 : 0; });
}

VX_API Port *CineActionPort(CineAction *action) {
    return read_action(action, [](CineAction &a) { return a.port; });
}

VX_API int CineActionSetType(CineAction *action, unsigned int type) {
    if (action == nullptr) return 0;
    return action_edit(*action, [&] {
        vx::act::set_type(*action, type);
        return 1;
    });
}

VX_API int CineActionSetEnable(CineAction *action, int enabled) {
    if (action == nullptr) return 0;
    return action_edit(*action, [&] {
        vx::act::set_enable(*action, enabled != 0);
        return 1;
    });
}

VX_API int CineActionAddParent(CineAction *action, CineAction *parent, int index) {
    if (action == nullptr || parent == nullptr) return 0;
    return action_edit(*action,
                       [&] { return vx::act::add_parent(*action, *parent, index) ? 1 : 0; });
}

VX_API int CineActionRemoveParent(CineAction *action, CineAction *parent) {
    if (action == nullptr || parent == nullptr) return 0;
    return action_edit(*action, [&] { return vx::act::remove_parent(*action, *parent) ? 1 : 0; });
}

VX_API int CineActionIsParent(CineAction *action, CineAction *parent) {
    return read_action(action, [&](CineAction &a) {
        for (CineAction *p : a.parents) {
            if (p == parent) return 1;
        }
        return 0;
    });
}

VX_API CineAction *CineActionFirstParent(CineAction *action) {
    return read_action(action, [](CineAction &a) -> CineAction * {
        return a.parents.empty() ? nullptr : a.parents.front();
    });
}

VX_API unsigned int CineActionParentCount(CineAction *action) {
    return read_action(action,
                       [](CineAction &a) { return static_cast<unsigned int>(a.parents.size()); });
}

VX_API CineAction *CineActionParentByIndex(CineAction *action, unsigned int index) {
    return read_action(action, [&](CineAction &a) -> CineAction * {
        return index < a.parents.size() ? a.parents[index] : nullptr;
    });
}

// ---- Reading entries ----

VX_API int CineActionState(CineAction *action, CineItem *item, unsigned int channel) {
    if (action == nullptr || item == nullptr) return CINE_STATE_NONE;
    return vx::act::entry_state(vx::act::find_entry(*action, *item, channel));
}

VX_API int CineActionValueState(CineAction *action, CineItem *item, unsigned int channel) {
    if (action == nullptr || item == nullptr) return CINE_STATE_NONE;
    return vx::act::value_state(*action, *item, channel);
}

VX_API Envelope *CineActionEnv(CineAction *action, CineItem *item, unsigned int channel) {
    if (action == nullptr || item == nullptr) return nullptr;
    const vx::act::Entry *entry = vx::act::find_entry(*action, *item, channel);
    if (entry == nullptr || !entry->live() || entry->envelope == nullptr) return nullptr;
    return entry->envelope->envelope;
}

VX_API Envelope *CineActionValueEnv(CineAction *action, CineItem *item, unsigned int channel) {
    if (action == nullptr || item == nullptr) return nullptr;
    return const_cast<Envelope *>(vx::act::find_value(action, *item, channel).envelope);
}

VX_API int CineActionIsAnimated(CineAction *action, CineItem *item, unsigned int channel) {
    return CineActionValueEnv(action, item, channel) != nullptr ? 1 : 0;
}

VX_API double CineActionValueFloat(CineAction *action, CineItem *item, unsigned int channel) {
    const vx::value::Value *value = seen_value(action, item, channel);
    if (value == nullptr) return 0.0;
    return vx::guard(0.0, [&] { return value->get_float(); });
}

VX_API int CineActionValueInt(CineAction *action, CineItem *item, unsigned int channel) {
    const vx::value::Value *value = seen_value(action, item, channel);
    if (value == nullptr) return 0;
    return vx::guard(0, [&] { return static_cast<int>(value->get_int()); });
}

VX_API void *CineActionValueCust(CineAction *action, CineItem *item, unsigned int channel) {
    const vx::value::Value *value = seen_value(action, item, channel);
    return value != nullptr ? const_cast<void *>(value->address()) : nullptr;
}

VX_API size_t CineActionValueExport(CineAction *action, CineItem *item, unsigned int channel,
                                    char *buf, size_t size) {
    if (buf != nullptr && size > 0) buf[0] = '\0';
    if (action == nullptr || item == nullptr) return 0;
    const vx::act::ValueSource source = vx::act::find_value(action, *item, channel);
    if (source.holder == nullptr || source.constant == nullptr) return 0;
    return source.constant->export_text(buf, buf != nullptr ? size : 0);
}

VX_API CineAction *CineActionForChannel(CineAction *action, CineItem *item, unsigned int channel,
                                        unsigned int type, int mode) {
    if (action == nullptr || item == nullptr) return nullptr;
    return vx::act::holder_for(*action, *item, channel, type, mode);
}

VX_API int CineActionTestChannel(CineAction *action, CineItem *item, unsigned int channel) {
    if (action == nullptr || item == nullptr) return 0;
    return vx::act::find_entry(*action, *item, channel) != nullptr ? 1 : 0;
}

VX_API int CineActionTestItem(CineAction *action, CineItem *item) {
    if (action == nullptr || item == nullptr) return 0;
    return vx::act::holds_item(*action, *item) ? 1 : 0;
}

VX_API int CineActionExtents(CineAction *action, double *first, double *last) {
    return action != nullptr && vx::act::extents(*action, first, last) ? 1 : 0;
}

// ---- Editing entries ----

VX_API int CineActionSetValue(CineAction *action, CineItem *item, unsigned int channel,
                              double value, double time) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        require_finite(value);
        require_finite(time);
        vx::act::set_value(a, i, channel, value, false, time);
    });
}

VX_API int CineActionSetValueInt(CineAction *action, CineItem *item, unsigned int channel,
                                 int value, double time) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        require_finite(time);
        vx::act::set_value(a, i, channel, value, true, time);
    });
}

VX_API int CineActionSetConstant(CineAction *action, CineItem *item, unsigned int channel,
                                 double value) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        require_finite(value);
        vx::act::set_constant(a, i, channel, vx::act::fill_float, &value);
    });
}

VX_API int CineActionSetConstantInt(CineAction *action, CineItem *item, unsigned int channel,
                                    int value) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        vx::act::set_constant(a, i, channel, vx::act::fill_int, &value);
    });
}

VX_API int CineActionSetConstantText(CineAction *action, CineItem *item, unsigned int channel,
                                     const char *value) {
    if (value == nullptr) return 0;
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        vx::act::set_constant(a, i, channel, vx::act::fill_text, value);
    });
}

VX_API int CineActionSetConstantMatrix(CineAction *action, CineItem *item, unsigned int channel,
                                       const double *matrix) {
    if (matrix == nullptr) return 0;
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        for (int k = 0; k < 16; ++k) require_finite(matrix[k]);
        vx::act::set_constant(a, i, channel, vx::act::fill_matrix, matrix);
    });
}

VX_API int CineActionSetConstantObject(CineAction *action, CineItem *item, unsigned int channel,
                                       void *object) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        vx::act::set_constant(a, i, channel, vx::act::fill_object, object);
    });
}

VX_API int CineActionSetEnvelope(CineAction *action, CineItem *item, unsigned int channel,
                                 Envelope *env) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        vx::act::set_envelope(a, i, channel, env);
    });
}

VX_API int CineActionSetState(CineAction *action, CineItem *item, unsigned int channel, int state,
                              void *extra) {
    return entry_edit(action, item, [&](CineAction &a, CineItem &i) {
        vx::act::set_state(a, i, channel, state, extra);
    });
}

VX_API int CineActionCopyChannel(CineAction *to, CineItem *dst, unsigned int dstChannel,
                                 CineAction *from, CineItem *src, unsigned int srcChannel,
                                 unsigned int flags) {
    if (to == nullptr || dst == nullptr || from == nullptr || src == nullptr) return 0;
    return action_edit(*to, [&] {
        return vx::act::copy_channel(*to, *dst, dstChannel, *from, *src, srcChannel, flags) ? 1 : 0;
    });
}

VX_API int CineActionMergeChannel(CineAction *action, CineAction *target, CineItem *item,
                                  unsigned int channel) {
    if (action == nullptr || item == nullptr) return 0;
    return action_edit(
        *action, [&] { return vx::act::merge_channel(*action, target, *item, channel) ? 1 : 0; });
}

VX_API int CineActionPurgeChannel(CineItem *item, unsigned int channel) {
    if (item == nullptr) return 0;
    return scene_edit(*item->scene, 0, [&] {
        vx::act::purge(*item, channel, 1);
        return 1;
    });
}

VX_API int CineActionPurgeItem(CineItem *item) {
    if (item == nullptr) return 0;
    return scene_edit(*item->scene, 0, [&] {
        vx::act::purge(*item, 0, 0);
        return 1;
    });
}

VX_API int CineActionApplyItem(CineAction *target, CineAction *action, CineItem *dst, CineItem *src,
                               unsigned int flags) {
    if (action == nullptr || dst == nullptr || src == nullptr) return 0;
    CineAction &to = target != nullptr ? *target : *action;
    return action_edit(to,
                       [&] { return vx::act::apply_item(to, *action, *dst, *src, flags) ? 1 : 0; });
}

}  // extern "C"
