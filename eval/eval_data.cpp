// The scene's evaluation data: made on first use, destroyed with the scene, and kept current
// by the scene's events.
#include "eval/eval_data.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>

#include "eval/action_access.h"
#include "foundation/failure.h"
#include "foundation/registry.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

// Scene events after which the modifiers must be validated again: items made, destroyed or
// restored, packages added to or taken from items, channels moved.
bool changes_structure(std::uint32_t code) noexcept {
    switch (code) {
        case 0x12004:
        case 0x12005:
        case 0x12011:
        case 0x12015:
        case 0x1201B:
            return true;
        default:
            return false;
    }
}

bool is_action_event(std::uint32_t code) noexcept {
    return code >= 0x8000 && code <= 0x8005;
}

void hear_scene(void *client, void *, std::uint32_t code, void *event) {
    auto &data = *static_cast<EvalData *>(client);
    std::lock_guard lock(data.lock);
    if (code == act::kActionChanged && event != nullptr) {
        const auto &change = *static_cast<const act::ActionChange *>(event);
        // Any action of the scene may lie on the evaluation order of any cache's action, so
        // every cache hears every change.
        for (Cache *cache : data.caches) {
            if (change.item == nullptr) {
                cache->invalidate_all();
            } else {
                cache->invalidate_channel(ChannelKey{change.item, change.channel});
            }
        }
    } else if (is_action_event(code)) {
        for (Cache *cache : data.caches) cache->invalidate_all();
    } else if (changes_structure(code)) {
        data.modifiers.validated = false;
        for (Cache *cache : data.caches) cache->invalidate_all();
    }
}

// A modifier server registered after validation is taken in by the next one.
void hear_modifier(void *client, HostServer *) {
    auto &data = *static_cast<EvalData *>(client);
    std::lock_guard lock(data.lock);
    data.modifiers.validated = false;
}

int scene_filter(void *, std::uint32_t code) {
    return is_action_event(code) || changes_structure(code) ? 1 : 0;
}

// The scene's slot is written once, under this lock, and read without it by every thread.
std::atomic_ref<void *> slot(Cinema &scene) noexcept {
    return std::atomic_ref<void *>(scene.eval);
}

std::mutex making;

// Evaluators that outlived their scene, linked through their own records.
struct Orphans {
    std::mutex lock;
    CineEval *first = nullptr;
};

Orphans &orphans() {
    static Orphans list;
    return list;
}

void adopt_orphan(CineEval &eval) noexcept {
    Orphans &o = orphans();
    std::lock_guard hold(o.lock);
    eval.orphan_prev = nullptr;
    eval.orphan_next = o.first;
    if (o.first != nullptr) o.first->orphan_prev = &eval;
    o.first = &eval;
}

}  // namespace

void forget_orphan(CineEval &eval) noexcept {
    Orphans &o = orphans();
    std::lock_guard hold(o.lock);
    (eval.orphan_prev != nullptr ? eval.orphan_prev->orphan_next : o.first) = eval.orphan_next;
    if (eval.orphan_next != nullptr) eval.orphan_next->orphan_prev = eval.orphan_prev;
    eval.orphan_prev = eval.orphan_next = nullptr;
}

void free_orphan_evaluators() noexcept {
    Orphans &o = orphans();
    std::lock_guard hold(o.lock);
    while (CineEval *eval = o.first) {
        o.first = eval->orphan_next;
        delete eval;
    }
}

EvalData &eval_data(Cinema &scene) {
    if (void *made = slot(scene).load(std::memory_order_acquire))
        return *static_cast<EvalData *>(made);
    std::lock_guard lock(making);
    if (void *made = slot(scene).load(std::memory_order_acquire))
        return *static_cast<EvalData *>(made);
    auto owned = std::make_unique<EvalData>(scene);
    EvalData &data = *owned;
    if (scene.port != nullptr)
        data.listener = vx::PortAttach(scene.port, hear_scene, &data, scene_filter);
    OnFailure detach([&] {
        if (data.listener != 0) vx::PortDetach(scene.port, data.listener);
    });
    if (host::started()) {
        host::watch(CINE_MODIFIER_CLASS, hear_modifier, &data);
        data.watching = true;
    }
    slot(scene).store(owned.release(), std::memory_order_release);
    return data;
}

EvalData *find_eval_data(Cinema &scene) noexcept {
    return static_cast<EvalData *>(slot(scene).load(std::memory_order_acquire));
}

void destroy_eval_data(Cinema &scene) noexcept {
    EvalData *data = find_eval_data(scene);
    if (data == nullptr) return;
    if (data->listener != 0 && scene.port != nullptr) vx::PortDetach(scene.port, data->listener);
    if (data->watching) host::unwatch(CINE_MODIFIER_CLASS, hear_modifier, data);
    // Hosts may still hold evaluators: they outlive the scene, inert, until CineEvalDestroy.
    for (CineEval *eval : data->evaluators) {
        eval->data = nullptr;
        eval->action = nullptr;
        eval->cache = nullptr;
        eval->baking = false;
        eval->baked.clear();
        adopt_orphan(*eval);
    }
    for (Cache *cache : data->caches) delete cache;
    destroy_modifiers(*data);
    delete data;
    slot(scene).store(nullptr, std::memory_order_release);
}

void forget_item(CineItem &item) noexcept {
    if (item.scene == nullptr) return;
    EvalData *data = find_eval_data(*item.scene);
    if (data == nullptr) return;
    std::lock_guard lock(data->lock);
    drop_item_nodes(*data, item);
    for (Cache *cache : data->caches) cache->forget_item(item);
    for (auto it = data->bakes.begin(); it != data->bakes.end();) {
        it = it->first.item == &item ? data->bakes.erase(it) : std::next(it);
    }
    for (CineEval *eval : data->evaluators) {
        std::erase_if(eval->baked, [&](const ChannelKey &key) { return key.item == &item; });
    }
}

}  // namespace vx::eval
