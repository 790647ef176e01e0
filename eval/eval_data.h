// A scene's evaluation data and its evaluators.
//
// The evaluation data is made when the scene's first evaluator is made, and hangs off the
// scene until the scene is destroyed. It keeps the scene's evaluators and caches in two lists
// that only change under its lock, the modifier records and nodes, and the bake records. It
// listens on the scene's port: action changes drop the values they touch from every cache, and
// items or packages that come and go make the modifiers be validated again.
//
// Threads: a private evaluator may be used from any thread, one thread at a time; shared
// evaluators and everything that edits the scene belong to the main thread. Actions are not
// locked, so no thread may evaluate while an action of the scene is edited.
#pragma once

#include <vexor/cinema.h>

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "eval/cache.h"
#include "eval/modifier.h"
#include "foundation/port.h"

struct CineEval {
    vx::eval::EvalData *data = nullptr;
    CineAction *action = nullptr;
    double time = 0.0;
    std::uint32_t mode = 0;  // 0 shared; otherwise the private cache's mode
    vx::eval::Cache *cache = nullptr;
    // Baking: the channels computed inside the bracket, and the time to go back to.
    bool baking = false;
    double bake_time = 0.0;
    double time_before_bake = 0.0;
    std::vector<vx::eval::ChannelKey> baked;
    int last_result = 1;
    // An inert evaluator (its scene destroyed, data null) waits in the orphan list until the
    // host destroys it or the scene module stops.
    CineEval *orphan_prev = nullptr;
    CineEval *orphan_next = nullptr;
};

namespace vx::eval {

struct EvalData {
    explicit EvalData(Cinema &owner) noexcept : scene(owner) {}

    Cinema &scene;
    std::mutex lock;  // guards the two lists below and the modifiers
    std::vector<CineEval *> evaluators;
    std::vector<Cache *> caches;  // in order of making
    Modifiers modifiers;
    // Channels inside an open baking bracket, with the number of brackets holding each.
    std::unordered_map<ChannelKey, std::uint32_t, ChannelKeyHash> bakes;
    PortAttachment listener = 0;
    bool watching = false;  // hears new modifier servers
};

// The scene's evaluation data, made when missing. Raises std::bad_alloc.
EvalData &eval_data(Cinema &scene);
// The scene's evaluation data, or null.
EvalData *find_eval_data(Cinema &scene) noexcept;
// Destroys the scene's evaluation data with its caches, modifier nodes and evaluators. Called
// when the scene is destroyed, before its actions go.
void destroy_eval_data(Cinema &scene) noexcept;
// Frees the evaluators whose scenes are gone and that no host destroyed. Called when the scene
// module stops; their handles are void from then on.
void free_orphan_evaluators() noexcept;
// Unlinks an inert evaluator from the orphan list (before CineEvalDestroy frees it).
void forget_orphan(CineEval &eval) noexcept;
// Forgets everything kept about an item that is leaving its scene for good.
void forget_item(CineItem &item) noexcept;

// Evaluators.
CineEval *make_evaluator(Cinema &scene, std::uint32_t mode);
void destroy_evaluator(CineEval *eval) noexcept;
void set_action(CineEval &eval, CineAction *action);
void set_time(CineEval &eval, double time);
// Attaches the evaluator to a cache by the sharing policy (shared) or checks its own
// (private). Fails with rc::bad_argument when the evaluator has no action.
Cache &attach_cache(CineEval &eval);
// Validates modifiers, attaches a cache and, on the main thread, clears the scene's in-flux
// state.
void evaluate(CineEval &eval);

// Baking brackets.
void begin_bake(CineEval &eval, double time);
int end_bake(CineEval &eval);
bool channel_is_baked(const CineItem &item, std::uint32_t channel) noexcept;

// The read path: the record holding the channel's value in the evaluator's cache, computed
// when not valid. Raises rc::bad_argument for an item of another scene or a channel out of
// range, and the failures of attach_cache.
const ValueRecord &read_channel(CineEval &eval, const CineItem &item, std::uint32_t channel);
// The same inside a cache, for modifier inputs and drivers.
const ValueRecord &read_in_cache(Cache &cache, const ChannelKey &key);

}  // namespace vx::eval
