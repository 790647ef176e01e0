// The actions of a scene: the action data, the default actions, the evaluation order, making,
// copying and destroying actions, their type, enable flag and parents, and the events they
// send.
#include <strings.h>
#include <algorithm>
#include <utility>

#include "eval/action_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/undo.h"
#include "scene/scene.h"

namespace vx::act {

// ---- Events ----

void announce(CineAction &action, CineItem *item, std::uint32_t channel, std::uint32_t flags,
              double start, double end) noexcept {
    ActionChange change{&action, item, channel, flags, start, end};
    Cinema &scene = *action.data->scene;
    if (!scene.quiet) vx::PortNotify(action.port, &action, kActionChanged, &change);
    vx::cine::send_event(scene, kActionChanged, &change);
}

void announce_entry(const Entry &entry, std::uint32_t flags) noexcept {
    announce(*entry.action, entry.item, entry.channel(), flags);
}

namespace {

constexpr std::uint32_t kWholeAction = CINE_CHANGE_SETTINGS | CINE_CHANGE_TYPE | CINE_CHANGE_VALUE;

void send(CineAction &action, std::uint32_t code) noexcept {
    vx::cine::send_event(*action.data->scene, code, &action);
}

}  // namespace

// ---- Evaluation order ----

bool setup_state(const ActionData &data) noexcept {
    return data.edit != nullptr && !data.edit->parents.empty() &&
           data.edit->parents.front() == data.setup;
}

void rebuild_order(ActionData &data) noexcept {
    data.order.clear();
    if (data.edit == nullptr) return;
    const std::uint32_t stamp = ++data.visit_stamp;
    const bool setup = setup_state(data);
    data.edit->visit = stamp;
    data.order.push_back(data.edit);  // capacity is kept by the makers of actions
    for (std::size_t i = 0; i < data.order.size(); ++i) {
        for (CineAction *parent : data.order[i]->parents) {
            if (parent->visit == stamp || !parent->linked) continue;
            if (setup && parent->type == CINE_ACTION_SCENE) continue;
            if (data.order.size() == data.order.capacity()) break;
            parent->visit = stamp;
            data.order.push_back(parent);
        }
    }
    if (log::channel_enabled("action")) {
        const char *scene_name = data.scene->file.empty() ? "untitled" : data.scene->file.c_str();
        log::debug("action", "\nAction Order: ");
        for (CineAction *action : data.order) {
            log::debug("action", "%s:%s -> ", scene_name, action->name.c_str());
        }
    }
    send(*data.edit, CINE_EVENT_ACTION_ORDER);
}

// ---- Records of action edits ----

namespace {

void link_after(ActionData &data, CineAction &action, CineAction *after) noexcept {
    action.prev = after;
    action.next = after != nullptr ? after->next : data.first;
    (action.next != nullptr ? action.next->prev : data.last) = &action;
    (after != nullptr ? after->next : data.first) = &action;
    action.linked = true;
}

void unlink(ActionData &data, CineAction &action) noexcept {
    (action.prev != nullptr ? action.prev->next : data.first) = action.next;
    (action.next != nullptr ? action.next->prev : data.last) = action.prev;
    action.prev = action.next = nullptr;
    action.linked = false;
}

// Puts an action into its scene's list (after `after`) or takes it out. The record owns the
// action while it is out: when the making is undone or the destruction is in effect.
struct ActionLink {
    CineAction *action;
    bool insert;
    CineAction *after;

    void apply(int direction) noexcept {
        ActionData &data = *action->data;
        if ((direction == 1) == insert) {
            link_after(data, *action, after);
            send(*action, CINE_EVENT_ACTION_ADDED);
            announce(*action, nullptr, 0, kWholeAction);
            send(*action, CINE_EVENT_ACTION_DEFINED);
        } else {
            after = action->prev;
            unlink(data, *action);
            send(*action, CINE_EVENT_ACTION_REMOVED);
        }
        UndoNewCode(0);
    }
    void release(int state) noexcept {
        if ((state == 0) != insert) free_action(action);
    }
};

// Swaps one setting of an action (type or enable flag) with the record's.
struct SettingSwap {
    CineAction *action;
    std::uint32_t CineAction::*field;
    std::uint32_t value;

    void apply(int) noexcept {
        std::swap(action->*field, value);
        if (field == &CineAction::type) {
            rebuild_order(*action->data);
            announce(*action, nullptr, 0, kWholeAction);
            send(*action, CINE_EVENT_ACTION_DEFINED);
        } else {
            announce(*action, nullptr, 0, CINE_CHANGE_SETTINGS);
        }
    }
};

// Swaps an action's parents with the record's list.
struct ParentsSwap {
    CineAction *action;
    std::vector<CineAction *> parents;

    void apply(int) noexcept {
        std::swap(action->parents, parents);
        ActionChange change{action, nullptr, 0, kWholeAction, kWholeStart, kWholeEnd};
        vx::cine::send_event(*action->data->scene, CINE_EVENT_ACTION_PARENTS, &change);
        announce(*action, nullptr, 0, kWholeAction);
        rebuild_order(*action->data);
    }
};

ActionData &data_or_fail(const Cinema &scene) {
    ActionData *data = data_of(scene);
    if (data == nullptr) fail(rc::refused, "the scene has no actions");
    return *data;
}

void check_new_name(const Cinema &scene, const char *name) {
    if (name == nullptr || *name == '\0') fail(rc::bad_argument, "an action needs a name");
    if (lookup(scene, name) != nullptr) fail(rc::refused, "an action of that name exists");
}

// Makes room in the evaluation order for one more action, so rebuilding never allocates.
void count_new_action(ActionData &data) {
    data.order.reserve(data.made + 1);
    ++data.made;
}

// Adds a made action (owned by the caller until then) to the end of the list, undoably.
void add_to_list(ActionData &data, CineAction *action) {
    EditTransaction transaction;
    OnFailure drop([&] { free_action(action); });
    Edit<ActionLink> link(action, true, data.last);
    drop.disarm();  // the record owns the action from here on
    count_new_action(data);
    link.apply_then_record(0);
}

}  // namespace

// ---- Action data and defaults ----

ActionData &make_data(Cinema &scene) {
    if (ActionData *data = data_of(scene)) return *data;
    auto *data = new ActionData;
    OnFailure drop([&] { delete data; });
    data->scene = &scene;
    data->order.reserve(4);
    scene.actions = data;
    return *data;
}

void destroy_data(ActionData *data) noexcept {
    if (data == nullptr) return;
    while (CineAction *action = data->first) {
        unlink(*data, *action);
        free_action(action);
    }
    if (data->scene->actions == data) data->scene->actions = nullptr;
    delete data;
}

void make_defaults(Cinema &scene) {
    ActionData &data = data_or_fail(scene);
    struct Default {
        const char *name;
        std::uint32_t type;
        CineAction *ActionData::*slot;
        CineAction *ActionData::*parent;
    };
    static constexpr Default kDefaults[] = {
        {"setup", CINE_ACTION_SETUP, &ActionData::setup, nullptr},
        {"scene", CINE_ACTION_SCENE, &ActionData::scene_action, &ActionData::setup},
        {"edit", CINE_ACTION_EDIT, &ActionData::edit, &ActionData::scene_action},
    };
    vx::UndoSysSuspend();
    struct Resume {
        ~Resume() { vx::UndoSysResume(); }
    } resume;
    for (const Default &d : kDefaults) {
        if (data.*d.slot != nullptr) continue;
        CineAction *parent = d.parent != nullptr ? data.*d.parent : nullptr;
        data.*d.slot = create(scene, d.name, d.type, parent);
    }
    if (vx::cine::root_scene() != &scene) rebuild_order(data);
}

CineAction *default_action(const Cinema &scene, std::uint32_t kind) noexcept {
    const ActionData *data = data_of(scene);
    if (data == nullptr) return nullptr;
    switch (kind) {
        case CINE_ACTION_SETUP:
            return data->setup;
        case CINE_ACTION_SCENE:
            return data->scene_action;
        case CINE_ACTION_EDIT:
            return data->edit;
        default:
            return nullptr;
    }
}

CineAction *lookup(const Cinema &scene, const char *name) noexcept {
    const ActionData *data = data_of(scene);
    if (data == nullptr || name == nullptr) return nullptr;
    for (CineAction *action = data->first; action != nullptr; action = action->next) {
        if (action->name.empty()) {
            VX_FAIL_LINE("NULL Action name", "");
            continue;
        }
        if (strcasecmp(action->name.c_str(), name) == 0) return action;
    }
    return nullptr;
}

// ---- Making and destroying actions ----

CineAction *create(Cinema &scene, const char *name, std::uint32_t type, CineAction *parent) {
    ActionData &data = data_or_fail(scene);
    check_new_name(scene, name);
    if (parent != nullptr && parent->data != &data) {
        fail(rc::bad_argument, "a parent must belong to the same scene");
    }
    CineAction *action = new_action(data, name, type);
    {
        OnFailure drop([&] { free_action(action); });
        if (parent != nullptr) action->parents.push_back(parent);
    }
    add_to_list(data, action);
    return action;
}

CineAction *copy_action(CineAction &source, const char *name) {
    ActionData &data = *source.data;
    check_new_name(*data.scene, name);
    CineAction *action = new_action(data, name, source.type);
    {
        OnFailure drop([&] { free_action(action); });
        action->enabled = source.enabled;
        action->parents = source.parents;
        source.entries.for_each([&](const Entry &from) {
            Entry *entry = new_entry(*action, *from.item, from.channel());
            OnFailure drop_entry([&] { free_entry(entry); });
            put_payload(*entry, copy_payload(Payload{from.flags(), from.envelope, from.constant}));
            action->entries.link(*entry);
        });
    }
    add_to_list(data, action);
    return action;
}

bool destroy(CineAction &action) {
    ActionData &data = *action.data;
    if (!action.linked || &action == data.edit || &action == data.scene_action ||
        &action == data.setup) {
        return false;
    }
    for (CineAction *other = data.first; other != nullptr; other = other->next) {
        const auto &p = other->parents;
        if (std::find(p.begin(), p.end(), &action) != p.end()) return false;
    }
    edit_apply<ActionLink>(0, &action, false, nullptr);
    return true;
}

// ---- Settings and parents ----

void set_type(CineAction &action, std::uint32_t type) {
    if (action.type == type) return;
    edit_apply<SettingSwap>(1, &action, &CineAction::type, type);
}

void set_enable(CineAction &action, bool enabled) {
    const std::uint32_t value = enabled ? 1u : 0u;
    if (action.enabled == value) return;
    edit_apply<SettingSwap>(1, &action, &CineAction::enabled, value);
}

bool add_parent(CineAction &action, CineAction &parent, int index) {
    if (&parent == &action || parent.data != action.data || !parent.linked) return false;
    std::vector<CineAction *> parents = action.parents;
    parents.erase(std::remove(parents.begin(), parents.end(), &parent), parents.end());
    const auto at = index < 0 || static_cast<std::size_t>(index) > parents.size()
                        ? parents.size()
                        : static_cast<std::size_t>(index);
    parents.insert(parents.begin() + static_cast<std::ptrdiff_t>(at), &parent);
    if (parents == action.parents) return false;
    edit_apply<ParentsSwap>(1, &action, std::move(parents));
    return true;
}

bool remove_parent(CineAction &action, CineAction &parent) {
    std::vector<CineAction *> parents = action.parents;
    const auto end = std::remove(parents.begin(), parents.end(), &parent);
    if (end == parents.end()) return false;
    parents.erase(end, parents.end());
    edit_apply<ParentsSwap>(1, &action, std::move(parents));
    return true;
}

}  // namespace vx::act
