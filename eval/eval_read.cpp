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

// Runs one node for the channel `key`, whose value so far is `value` (its object, if any, in
// `object`). Other outputs of the node come in with their action values, and are stored when
// this node is the only one that writes them.
void run_node(Cache &cache, CineModNode &node, const ChannelKey &key, Computed &value,
              std::optional<value::Value> &object) {
    std::vector<const ValueRecord *> inputs;
    inputs.reserve(node.inputs.size());
    for (const ChannelKey &input : node.inputs) {
        const ValueRecord &rec = read_in_cache(cache, input);
        if ((rec.flags.load(std::memory_order_relaxed) & kAnimated) != 0) value.animated = true;
        inputs.push_back(&rec);
    }
    std::vector<CineModEval::Output> outputs(node.outputs.size());
    std::vector<std::optional<value::Value>> objects(node.outputs.size());
    std::vector<Computed> incoming(node.outputs.size());
    for (std::size_t i = 0; i < node.outputs.size(); ++i) {
        const ChannelKey &out = node.outputs[i];
        const cine::ChannelDesc &desc = *cine::item_channel(*out.item, out.channel);
        incoming[i] = out == key ? value : action_value(cache, out, desc);
        outputs[i].number = incoming[i].number;
        if (is_object(*desc.value_type)) {
            objects[i].emplace(*desc.value_type);
            if (out == key && object) {
                *objects[i] = *object;
            } else if (incoming[i].object != nullptr) {
                *objects[i] = *incoming[i].object;
            }
            outputs[i].object = &*objects[i];
        }
    }
    CineModEval context;
    context.inputs = inputs.data();
    context.input_count = inputs.size();
    context.outputs = outputs.data();
    context.output_count = outputs.size();
    context.time = cache.time();
    unsigned int result;
    {
        std::lock_guard lock(node.lock);
        result = node.methods->Evaluate(node.instance, &context);
    }
    if (result != rc::ok) return;  // the incoming values stand
    for (std::size_t i = 0; i < node.outputs.size(); ++i) {
        const ChannelKey &out = node.outputs[i];
        if (out == key) {
            value.number = outputs[i].number;
            if (objects[i]) {
                object = std::move(objects[i]);
                value.object = &*object;
            }
            continue;
        }
        const std::vector<CineModNode *> *writers = writers_of(cache.data(), out);
        if (writers == nullptr || writers->size() != 1) continue;
        ValueRecord *rec = cache.find(out);
        if (rec != nullptr && cache.current(*rec)) continue;
        Computed done = incoming[i];
        done.number = outputs[i].number;
        done.object = objects[i] ? &*objects[i] : nullptr;
        done.animated = done.animated || value.animated;
        done.modified = true;
        done.envelope = nullptr;
        const cine::ChannelDesc &desc = *cine::item_channel(*out.item, out.channel);
        cache.store(cache.record(out), done, *desc.value_type);
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

// Computes a node's value and stores it in its record (`found`, or a new one).
const ValueRecord &compute(Cache &cache, const ChannelKey &key, const cine::ChannelDesc &desc,
                           ValueRecord *found) {
    // Every computation sees a validated set of nodes, whichever thread validates first.
    ensure_validated(cache.data());
    Computed value = action_value(cache, key, desc);
    std::optional<value::Value> object;
    if (const std::vector<CineModNode *> *writers = writers_of(cache.data(), key)) {
        for (CineModNode *node : *writers) {
            if (node_runs(*node)) run_node(cache, *node, key, value, object);
        }
        value.modified = true;
    }
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
