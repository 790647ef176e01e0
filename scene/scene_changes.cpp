// The scene's one event routine and its change counters.
//
// Every scene edit sends its event through send_event: it counts change batches, reaches the
// global port "cinema-db", the scene's own port and (for events that are neither item nor
// action events) every sub-scene, and marks the scene changed. Marking is itself an undoable
// edit of the counter, made from inside the edit that sent the event; the room for it is
// reserved before that edit changes anything (reserve_change_mark), so it cannot fail there.
#include <vexor/scene.h>

#include <exception>

#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/port.h"
#include "scene/cinema_module.h"
#include "scene/scene.h"

namespace vx::cine {

namespace {

constexpr const char *kChannel = "cinemachanged";

// The change counter set to `value`; applying again swaps it back.
struct CounterEdit {
    Cinema *scene;
    std::uint64_t id;
    std::uint32_t value;

    void apply(int) {
        if (!scene_alive(scene, id)) return;
        const std::uint32_t before = scene->changed;
        scene->changed = value;
        value = before;
        scene->changed_last = scene->changed > before ? 1 : 0;
        if ((before == 0) != (scene->changed == 0)) {
            send_event(*scene, CINE_EVENT_CHANGED_STATE, nullptr);
        }
    }
};

}  // namespace

struct ChangeMark {
    Edit<CounterEdit> edit;
};

namespace {

Cinema *current = nullptr;  // the scene whose event "cinema-db" is delivering
ActionSceneFn action_scene_fn = nullptr;

void count_read(Cinema &scene) noexcept {
    if (!scene.absolute_read) return;
    scene.absolute_read = false;
    ++scene.absolute_changes;
}

void debug_line(const Cinema &scene, int flag, std::uint32_t value) noexcept {
    log::debug(kChannel,
               "CinemaChanged() called for 0x%p with changed set to %d; cinema->changed is %d, "
               "newVal is %d\n",
               static_cast<const void *>(&scene), flag, static_cast<int>(scene.changed),
               static_cast<int>(value));
}

// CinemaChanged with a nonzero flag, from inside an edit: uses the reserved room, or makes it
// now when there is none; if even that fails, the mark is skipped (and logged) rather than
// failing an edit whose data has already changed.
void mark_changed(Cinema &scene) noexcept {
    count_read(scene);
    if (scene.changed_last == 1) return;
    ChangeMark *mark = std::exchange(scene.spare_mark, nullptr);
    if (mark == nullptr) {
        try {
            reserve_change_mark(scene);
        } catch (...) {
            VX_FAIL_LINE("no room to mark the scene changed", nullptr);
            return;
        }
        mark = std::exchange(scene.spare_mark, nullptr);
    }
    const std::uint32_t value = scene.changed + 1;
    debug_line(scene, 1, value);
    mark->edit->value = value;
    mark->edit.apply_then_record(1);
    delete mark;
}

bool marks_change(std::uint32_t code) noexcept {
    return code == CINE_EVENT_BATCH_BEGIN || code == CINE_EVENT_ITEM_ADDED ||
           code == CINE_EVENT_ITEM_REMOVED || code == CINE_EVENT_ITEM_CHANGED;
}

// Events after which what an evaluation holds may no longer fit the scene.
bool changes_structure(std::uint32_t code) noexcept {
    return code == CINE_EVENT_ITEM_ADDED || code == CINE_EVENT_ITEM_REMOVED ||
           code == CINE_EVENT_ITEM_CHANGED || code == CINE_EVENT_PACKAGE ||
           code == CINE_EVENT_CHANNELS_MOVED;
}

bool is_action_event(std::uint32_t code) noexcept {
    return code >= 0x8000 && code <= 0x8005;
}

// Whether an action event concerns an action of this scene. Events 0x8002 and 0x8003 carry a
// record that starts with the action; the others carry the action.
bool own_action(Cinema &scene, std::uint32_t code, void *data) noexcept {
    if (data == nullptr) return false;
    auto *action = (code == 0x8002 || code == 0x8003) ? *static_cast<CineAction **>(data)
                                                      : static_cast<CineAction *>(data);
    return action_scene_fn == nullptr || action_scene_fn(action) == &scene;
}

}  // namespace

void reserve_change_mark(Cinema &scene) {
    if (scene.spare_mark != nullptr) return;
    scene.spare_mark = new ChangeMark{Edit<CounterEdit>(&scene, scene.id, 0u)};
}

SceneEdit::SceneEdit(Cinema &scene)
    : scene_(scene),
      reserved_(scene.spare_mark == nullptr),
      exceptions_(std::uncaught_exceptions()) {
    reserve_change_mark(scene);
}

SceneEdit::~SceneEdit() {
    if (reserved_ && std::uncaught_exceptions() > exceptions_) drop_change_mark(scene_);
}

void drop_change_mark(Cinema &scene) noexcept {
    delete std::exchange(scene.spare_mark, nullptr);
}

void set_action_scene_query(ActionSceneFn fn) noexcept {
    action_scene_fn = fn;
}

Cinema *current_scene() noexcept {
    return current;
}

void send_event(Cinema &scene, std::uint32_t code, void *data) noexcept {
    if (code == CINE_EVENT_BATCH_BEGIN) ++scene.batch_depth;
    if (code == CINE_EVENT_BATCH_END) --scene.batch_depth;
    if (code == CINE_EVENT_NAMES_REBUILD) scene.names_built = false;
    // Structure changed inside an open batch: the scene is half-way through a larger change.
    if (changes_structure(code) && scene.batch_depth > 0) scene.in_flux = true;
    if (!scene.quiet) {
        Cinema *outer = std::exchange(current, &scene);
        vx::PortNotify(database_port(), &scene, code, data);
        current = outer;
        vx::PortNotify(scene.port, &scene, code, data);
        if ((code & 0x8000u) == 0 && (code & 0x12000u) == 0) {
            for (Cinema *sub : scene.subs) vx::PortNotify(sub->port, &scene, code, data);
        }
    }
    if (scene.making || recovering() || (UndoSysState() & kUndoApplying) != 0) return;
    if (marks_change(code) || (is_action_event(code) && own_action(scene, code, data))) {
        mark_changed(scene);
    }
}

void set_changed(Cinema &scene, int flag) {
    count_read(scene);
    const std::int32_t wanted = flag != 0 ? 1 : 0;
    if (wanted == scene.changed_last) return;
    if (wanted == 0 && scene.changed == 0) return;
    if ((UndoSysState() & kUndoApplying) != 0) return;
    const std::uint32_t value = wanted != 0 ? scene.changed + 1 : 0;
    debug_line(scene, flag, value);
    edit_pending<CounterEdit>(1, &scene, scene.id, value);
}

std::uint32_t has_changed(Cinema &scene) noexcept {
    log::debug(kChannel,
               "CinemaHasChanged() called for 0x%p: resetting cinema->changedLast to -1; "
               "cinema->changed is %d\n",
               static_cast<const void *>(&scene), static_cast<int>(scene.changed));
    scene.changed_last = -1;
    return scene.changed;
}

std::uint32_t absolute_changes(Cinema &scene) noexcept {
    scene.absolute_read = true;
    return scene.absolute_changes;
}

}  // namespace vx::cine
