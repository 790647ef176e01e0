// The read path of a channel: a valid record in the cache is the answer; otherwise the value
// the action gives at the cache's time, passed through the modifier nodes that write the
// channel, each run after the channels it reads have been read in the same cache.
#include <algorithm>
#include <mutex>
#include <optional>
#include <vector>

#include "curves/env_evaluate.h"
#include "eval/action_access.h"
#include "eval/eval_data.h"
#include "foundation/failure.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

bool is_object(const ValueType &type) noexcept {
    const value::Kind kind = value::kind_of(type);
    return kind != value::Kind::floating && kind != value::Kind::integer;
}

// The channel's value as the action sees it at the cache's time. Object values are left
// pointing into the action or the package default, which outlive the computation.
Computed action_value(const Cache &cache, const ChannelKey &key, const cine::ChannelDesc &desc) {
    Computed out;
    const act::ValueSource source = act::find_value(cache.action(), *key.item, key.channel);
    if (source.envelope != nullptr) {
        // Evaluation updates the envelope's lookup cache; the envelope itself is not changed.
        auto &env = const_cast<Envelope &>(*source.envelope);
        out.number = env.type == env::kTypeFloat ? env::evaluate(env, cache.time())
                                                 : env::evaluate_int(env, cache.time());
        out.envelope = &env;
        out.animated = true;
        return out;
    }
    const value::Value &constant =
        source.constant != nullptr ? *source.constant : desc.default_value;
    if (is_object(*desc.value_type)) {
        out.object = &constant;
    } else {
        out.number = constant.get_float();
    }
    return out;
}

bool node_runs(const CineModNode &node) noexcept {
    return !node.has_control || (node.control & 1) != 0;
}

using Writers = std::vector<CineModNode *>;

const ValueRecord &compute(Cache &cache, const ChannelKey &key, const cine::ChannelDesc &desc,
                           ValueRecord *found, const Writers *const *writers_known);

// A node's input whose record (`found`, possibly null) the caller has looked for, and whose
// description and writers validation has found.
const ValueRecord &read_found(Cache &cache, const ChannelKey &key, ValueRecord *found,
                              const cine::ChannelDesc *desc, const Writers *writers) {
    if (found != nullptr && (cache.current(*found) || cache.refresh(*found))) return *found;
    if (key.item == nullptr) {
        cache.retime(cache.time());
        return cache.time_record();
    }
    return compute(cache, key, *desc, found, &writers);
}

// The value of the channel being computed, as it passes through the nodes that write it. An
// object channel's action value is looked up only when no node replaces it (`pending`): an
// object channel cannot be animated by an action, and a node cannot read an object output.
struct Passing {
    Computed value;
    std::optional<value::Value> object;  // the last node's object, which `value` points to
    bool pending = false;
};

// Runs one node for the channel `key`. Other outputs of the node come in with their action
// values, and are stored when this node is the only one that writes them. The node's lock is
// held for the whole run, over its scratch lists; nodes upstream lock theirs while this one
// waits, which cannot cycle since cyclic nodes never run.
void run_node(Cache &cache, CineModNode &node, const ChannelKey &key, Passing &passing) {
    std::lock_guard lock(node.lock);
    Computed &value = passing.value;
    const bool known = node.records_of == cache.serial();
    const std::uint64_t drops = cache.drops();
    const bool steady = known && node.records_drops == drops;
    node.records_of = 0;  // until every input has its record again
    for (InputRun &in : node.runs_in) {
        if (steady && in.steady) continue;  // still valid, and not animated
        ValueRecord *found = known ? const_cast<ValueRecord *>(in.record) : cache.find(in.key);
        const ValueRecord &rec = read_found(cache, in.key, found, in.desc, in.writers);
        const bool animated = (rec.flags.load(std::memory_order_relaxed) & kAnimated) != 0;
        if (animated) value.animated = true;
        in.steady = !animated;
        in.record = &rec;
    }
    node.records_of = cache.serial();
    node.records_drops = drops;
    for (OutputRun &out : node.runs_out) {
        out.written = false;
        if (out.key == key) {
            out.number = value.number;
        } else if (!out.is_object) {
            const Computed incoming =
                action_value(cache, out.key, *cine::item_channel(*out.key.item, out.key.channel));
            out.number = incoming.number;
            out.animated = incoming.animated;
        } else {
            out.number = 0.0;
            out.animated = false;
        }
    }
    CineModEval context;
    context.inputs = node.runs_in.data();
    context.input_count = node.runs_in.size();
    context.outputs = node.runs_out.data();
    context.output_count = node.runs_out.size();
    context.time = cache.time();
    if (node.methods->Evaluate(node.instance, &context) != rc::ok) return;  // the incoming stand
    for (const OutputRun &out : node.runs_out) {
        if (out.key == key) {
            value.number = out.number;
            if (out.written) {
                if (passing.object) {
                    *passing.object = *out.object;
                } else {
                    passing.object.emplace(*out.object);
                }
                value.object = &*passing.object;
                passing.pending = false;
            }
            continue;
        }
        if (!out.sole) continue;
        ValueRecord *rec = cache.find(out.key);
        if (rec != nullptr && cache.current(*rec)) continue;
        Computed done;
        if (out.is_object && !out.written) {
            done =
                action_value(cache, out.key, *cine::item_channel(*out.key.item, out.key.channel));
        } else {
            done.number = out.number;
            done.object = out.object;
            done.animated = out.animated && !out.is_object;
        }
        done.animated = done.animated || value.animated;
        done.modified = true;
        done.envelope = nullptr;
        cache.store(cache.record(out.key), done, *out.type);
    }
}

// Inside a baking bracket a channel read is remembered for the end of the bracket, once.
const ValueRecord &remember_bake(CineEval &eval, const ChannelKey &key, const ValueRecord &rec) {
    if (!eval.baking) return rec;
    if (std::find(eval.baked.begin(), eval.baked.end(), key) == eval.baked.end()) {
        std::lock_guard lock(eval.data->lock);
        eval.baked.reserve(eval.baked.size() + 1);
        ++eval.data->bakes[key];
        eval.baked.push_back(key);
    }
    return rec;
}

// Computes a node's value and stores it in its record (`found`, or a new one). `writers` are
// the nodes that write it, as validation found them; without them they are looked up.
const ValueRecord &compute(Cache &cache, const ChannelKey &key, const cine::ChannelDesc &desc,
                           ValueRecord *found, const Writers *const *writers_known = nullptr) {
    // Every computation sees a validated set of nodes, whichever thread validates first.
    ensure_validated(cache.data());
    const Writers *writers =
        writers_known != nullptr ? *writers_known : writers_of(cache.data(), key);
    if (writers == nullptr) {
        ValueRecord &rec = found != nullptr ? *found : cache.record(key);
        cache.store(rec, action_value(cache, key, desc), *desc.value_type);
        return rec;
    }
    Passing passing;
    passing.pending = is_object(*desc.value_type);
    if (!passing.pending) passing.value = action_value(cache, key, desc);
    for (CineModNode *node : *writers) {
        if (node_runs(*node)) run_node(cache, *node, key, passing);
    }
    Computed &value = passing.value;
    if (passing.pending) {
        // No node replaced the object: the action's value stands, with what the inputs made
        // of the mark of animation.
        const Computed base = action_value(cache, key, desc);
        value.object = base.object;
        value.animated = value.animated || base.animated;
    }
    value.modified = true;
    ValueRecord &rec = found != nullptr ? *found : cache.record(key);
    cache.store(rec, value, *desc.value_type);
    return rec;
}

}  // namespace

const ValueRecord &read_in_cache(Cache &cache, const ChannelKey &key) {
    ValueRecord *found = cache.find(key);
    if (found != nullptr && (cache.current(*found) || cache.refresh(*found))) return *found;
    if (key.item == nullptr) {
        cache.retime(cache.time());
        return cache.time_record();
    }
    return compute(cache, key, *cine::item_channel(*key.item, key.channel), found);
}

const ValueRecord &read_channel(CineEval &eval, const CineItem &item, std::uint32_t channel) {
    const ChannelKey key{&item, channel};
    Cache *cache = eval.cache;
    ValueRecord *found = nullptr;
    if (cache != nullptr && !eval.baking) {
        found = cache->find(key);
        if (found != nullptr && (cache->current(*found) || cache->refresh(*found))) return *found;
    }
    if (item.scene != &eval.data->scene) fail(rc::bad_argument, "item of another scene");
    const cine::ChannelDesc *desc = cine::item_channel(item, channel);
    if (desc == nullptr) fail(rc::bad_argument, "no such channel");
    if (cache == nullptr || eval.baking || eval.action == nullptr) {
        cache = &attach_cache(eval);  // fails without an action
        found = cache->find(key);
        if (found != nullptr && (cache->current(*found) || cache->refresh(*found)))
            return remember_bake(eval, key, *found);
    }
    return remember_bake(eval, key, compute(*cache, key, *desc, found));
}

}  // namespace vx::eval
