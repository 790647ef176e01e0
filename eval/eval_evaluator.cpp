// Evaluators and the policy by which a shared evaluator gets a cache.
#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>

#include "eval/action_access.h"
#include "eval/eval_data.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/time.h"
#include "scene/cinema_module.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

void attach(CineEval &eval, Cache &cache) noexcept {
    ++cache.refs;
    cache.in_use = true;
    eval.cache = &cache;
}

// A shared evaluator lets go of its cache; the cache stays in the list for reuse.
void release(CineEval &eval) noexcept {
    Cache *cache = eval.cache;
    if (cache == nullptr || cache->is_private()) return;
    --cache->refs;
    cache->in_use = false;
    eval.cache = nullptr;
}

bool is_free(const Cache &cache) noexcept {
    return !cache.is_private() && cache.refs == 0;
}

// How many evaluators without a cache want the action.
std::size_t wanted_by(const EvalData &data, const CineAction *action) noexcept {
    return static_cast<std::size_t>(std::count_if(
        data.evaluators.begin(), data.evaluators.end(),
        [&](const CineEval *e) { return e->cache == nullptr && e->action == action; }));
}

Cache &make_cache(EvalData &data, CineAction *action, double time, std::uint32_t mode) {
    if (mode != 2) validate(data);
    auto cache = std::make_unique<Cache>(data, action, time, mode);
    data.caches.push_back(cache.get());
    Cache &made = *cache.release();
    made.retime(time);
    return made;
}

void check_action(const CineEval &eval) {
    if (eval.action == nullptr) {
        VX_FAIL_LINE("evaluator has no action", nullptr);
        fail(rc::bad_argument, "evaluator has no action");
    }
}

// The lock is held.
Cache &attach_locked(CineEval &eval) {
    EvalData &data = *eval.data;
    check_action(eval);
    if (eval.cache != nullptr) {
        if (eval.cache->is_private()) eval.cache->retime(eval.time);
        return *eval.cache;
    }
    for (Cache *cache : data.caches) {
        if (!cache->is_private() && cache->action() == eval.action &&
            std::fabs(cache->time() - eval.time) < kTimeSameTolerance) {
            attach(eval, *cache);
            cache->retime(eval.time);
            return *cache;
        }
    }
    Cache *nearest = nullptr;
    for (Cache *cache : data.caches) {
        if (!is_free(*cache) || cache->action() != eval.action) continue;
        if (nearest == nullptr ||
            std::fabs(cache->time() - eval.time) < std::fabs(nearest->time() - eval.time))
            nearest = cache;
    }
    if (nearest != nullptr) {
        attach(eval, *nearest);
        nearest->retime(eval.time);
        return *nearest;
    }
    Cache *least = nullptr;
    std::size_t least_wanted = 0;
    for (Cache *cache : data.caches) {
        if (!is_free(*cache)) continue;
        const std::size_t wanted = wanted_by(data, cache->action());
        if (least == nullptr || wanted < least_wanted) {
            least = cache;
            least_wanted = wanted;
        }
    }
    if (least != nullptr) {
        least->switch_action(eval.action);
        attach(eval, *least);
        least->retime(eval.time);
        return *least;
    }
    Cache &made = make_cache(data, eval.action, eval.time, 0);
    attach(eval, made);
    return made;
}

}  // namespace

CineEval *make_evaluator(Cinema &scene, std::uint32_t mode) {
    EvalData &data = eval_data(scene);
    auto eval = std::make_unique<CineEval>();
    eval->data = &data;
    eval->mode = mode == 1 ? 0 : mode;
    std::lock_guard lock(data.lock);
    data.evaluators.reserve(data.evaluators.size() + 1);
    if (eval->mode != 0) {
        data.caches.reserve(data.caches.size() + 1);
        eval->cache = &make_cache(data, nullptr, eval->time, eval->mode);
    }
    data.evaluators.push_back(eval.get());
    return eval.release();
}

void destroy_evaluator(CineEval *eval) noexcept {
    if (eval == nullptr) return;
    if (eval->data == nullptr) {  // its scene is gone: nothing is left to detach from
        forget_orphan(*eval);
        delete eval;
        return;
    }
    EvalData &data = *eval->data;
    {
        std::lock_guard lock(data.lock);
        std::erase(data.evaluators, eval);
        if (eval->cache != nullptr && eval->cache->is_private()) {
            std::erase(data.caches, eval->cache);
            delete eval->cache;
            eval->cache = nullptr;
        } else {
            release(*eval);
        }
        for (const ChannelKey &key : eval->baked) {
            auto it = data.bakes.find(key);
            if (it != data.bakes.end() && --it->second == 0) data.bakes.erase(it);
        }
    }
    delete eval;
}

void set_action(CineEval &eval, CineAction *action) {
    if (action == eval.action) return;
    if (action == nullptr || act::scene_of(*action) != &eval.data->scene) {
        VX_FAIL_LINE("action not in evaluator's cinema", nullptr);
        fail(rc::bad_argument, "action of another scene");
    }
    std::lock_guard lock(eval.data->lock);
    eval.action = action;
    if (eval.mode == 0) {
        release(eval);
    } else if (eval.cache != nullptr) {
        // A private cache follows its evaluator: its values were for the other action.
        eval.cache->switch_action(action);
        eval.cache->retime(eval.time);
        eval.cache->primed = true;
    }
}

void set_time(CineEval &eval, double time) {
    if (!std::isfinite(time)) fail(rc::bad_argument, "the time is not a finite number");
    // Times closer than the tolerance are one time: the evaluator stays where it is, and so do
    // its cached values.
    if (std::fabs(time - eval.time) < kTimeSameTolerance) return;
    eval.time = time;
    if (eval.mode != 0) {
        if (eval.cache != nullptr) eval.cache->retime(time);
        return;
    }
    std::lock_guard lock(eval.data->lock);
    release(eval);
}

Cache &attach_cache(CineEval &eval) {
    if (eval.cache != nullptr) {
        // A private cache is re-timed with its evaluator, so it needs no lock here.
        if (eval.mode != 0) check_action(eval);
        return *eval.cache;
    }
    std::lock_guard lock(eval.data->lock);
    return attach_locked(eval);
}

void evaluate(CineEval &eval) {
    EvalData &data = *eval.data;
    std::lock_guard lock(data.lock);
    validate(data);
    attach_locked(eval);
    // Only the host's main thread ends the in-flux state: a worker's evaluation may overlap an
    // open batch of edits there.
    if (cine::on_main_thread()) data.scene.in_flux = false;
}

}  // namespace vx::eval
