// The read path of a channel: a valid record in the cache is the answer; otherwise the value
// the action gives at the cache's time, passed through the modifier nodes that write the
// channel, each run after the channels it reads have been read in the same cache.
#include <algorithm>
#include <mutex>
#include <optional>
#include <span>
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
using WriterList = std::span<CineModNode *const>;

WriterList list_of(const Writers *writers) noexcept {
    return writers != nullptr ? WriterList(writers->data(), writers->size()) : WriterList();
}

// The nodes that write a channel, and whether its record remembers them: a record remembers
// them while the set of nodes holds, so a value computed again does not look them up.
struct FoundWriters {
    WriterList list;
    const Writers *vector = nullptr;  // when looked up
    bool remembered = false;
};

// `known` are the writers validation found for a node's input (null: look them up).
FoundWriters writers_for(Cache &cache, const ChannelKey &key, const ValueRecord *found,
                         const Writers *const *known) {
    const std::uint64_t generation =
        cache.data().modifiers.generation.load(std::memory_order_acquire);
    FoundWriters out;
    if (found != nullptr && found->writers_generation == generation) {
        out.remembered = true;
        out.list = found->sole_writer != nullptr ? WriterList(&found->sole_writer, 1)
                                                 : list_of(found->writers);
        return out;
    }
    out.vector = known != nullptr ? *known : writers_of(cache.data(), key);
    out.list = list_of(out.vector);
    return out;
}

void remember_writers(const Cache &cache, ValueRecord &rec, const FoundWriters &writers) noexcept {
    if (writers.remembered) return;
    rec.writers = writers.vector;
    rec.sole_writer = writers.list.size() == 1 ? writers.list.front() : nullptr;
    rec.writers_generation = cache.data().modifiers.generation.load(std::memory_order_acquire);
}

const ValueRecord &compute(Cache &cache, const ChannelKey &key, const cine::ChannelDesc *desc,
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
    return compute(cache, key, desc, found, &writers);
}

// The value of the channel being computed, as it passes through the nodes that write it. An
// object channel's action value is looked up only when no node replaces it (`pending`): an
// object channel cannot be animated by an action, and a node cannot read an object output.
// When one node alone writes an object channel, its object goes straight from the node to the
// channel's record (`target`), and `stored` tells that it did.
struct Passing {
    Computed value;
    std::optional<value::Value> object;  // the last node's object, which `value` points to
    ValueRecord *target = nullptr;
    bool pending = false;
    bool stored = false;
};

// Reads a node's input `i` (its record `found` when known) and keeps the record for the run;
// true when its value depends on the time.
bool read_input(Cache &cache, CineModNode &node, std::uint32_t i, ValueRecord *found) {
    const InputRun &in = node.runs_in[i];
    const ValueRecord &rec = read_found(cache, in.key, found, in.desc, in.writers);
    node.in_records[i] = &rec;
    return (rec.flags.load(std::memory_order_relaxed) & kAnimated) != 0;
}

// Brings the records of a node's inputs up to date. While nothing has been dropped from the
// cache since the node's last run in it, only the inputs that depended on the time then can
// be out of date; otherwise every input is read, and found again when the cache is another.
void read_inputs(Cache &cache, CineModNode &node, Computed &value) {
    const bool known = node.records_of == cache.serial();
    const std::uint64_t drops = cache.drops();
    node.records_of = 0;  // until every input has its record again
    if (known && node.records_drops == drops) {
        for (std::uint32_t m = 0; m < node.moving_count; ++m) {
            const std::uint32_t i = node.moving[m];
            auto *found = const_cast<ValueRecord *>(node.in_records[i]);
            if (read_input(cache, node, i, found)) value.animated = true;
        }
    } else {
        node.moving_count = 0;
        for (std::uint32_t i = 0; i < node.runs_in.size(); ++i) {
            ValueRecord *found = known ? const_cast<ValueRecord *>(node.in_records[i])
                                       : cache.find(node.runs_in[i].key);
            if (!read_input(cache, node, i, found)) continue;
            value.animated = true;
            node.moving[node.moving_count++] = i;
        }
    }
    node.records_of = cache.serial();
    node.records_drops = drops;
}

// Runs one node for the channel `key`. Other outputs of the node come in with their action
// values, and are stored when this node is the only one that writes them. The node's lock is
// held for the whole run, over its scratch lists; nodes upstream lock theirs while this one
// waits, which cannot cycle since cyclic nodes never run.
void run_node(Cache &cache, CineModNode &node, const ChannelKey &key, Passing &passing) {
    std::lock_guard lock(node.lock);
    Computed &value = passing.value;
    read_inputs(cache, node, value);
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
    context.inputs = node.in_records;
    context.input_count = node.runs_in.size();
    context.outputs = node.runs_out.data();
    context.output_count = node.runs_out.size();
    context.time = cache.time();
    if (node.methods->Evaluate(node.instance, &context) != rc::ok) return;  // the incoming stand
    for (const OutputRun &out : node.runs_out) {
        if (out.key == key) {
            value.number = out.number;
            if (out.written && passing.target != nullptr) {
                Computed done;
                done.number = out.number;
                done.object = out.object;
                done.animated = value.animated;
                done.modified = true;
                cache.store(*passing.target, done, *out.type);
                passing.stored = true;
                passing.pending = false;
            } else if (out.written) {
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

// Computes a node's value and stores it in its record (`found`, or a new one). `desc` is the
// channel's description, looked up when null and needed; `writers` are the nodes that write
// it, as validation found them; without them they are looked up.
const ValueRecord &compute(Cache &cache, const ChannelKey &key, const cine::ChannelDesc *desc,
                           ValueRecord *found, const Writers *const *writers_known = nullptr) {
    // Every computation sees a validated set of nodes, whichever thread validates first.
    ensure_validated(cache.data());
    const FoundWriters writers = writers_for(cache, key, found, writers_known);
    auto description = [&]() -> const cine::ChannelDesc & {
        if (desc == nullptr) desc = cine::item_channel(*key.item, key.channel);
        return *desc;
    };
    if (writers.list.empty()) {
        ValueRecord &rec = found != nullptr ? *found : cache.record(key);
        remember_writers(cache, rec, writers);
        cache.store(rec, action_value(cache, key, description()), *description().value_type);
        return rec;
    }
    Passing passing;
    // A record of an object channel always carries its object.
    passing.pending =
        found != nullptr ? found->object != nullptr : is_object(*description().value_type);
    if (!passing.pending) passing.value = action_value(cache, key, description());
    if (passing.pending && writers.list.size() == 1)
        passing.target = found != nullptr ? found : &cache.record(key);
    for (CineModNode *node : writers.list) {
        if (node_runs(*node)) run_node(cache, *node, key, passing);
    }
    if (passing.stored) {
        remember_writers(cache, *passing.target, writers);
        return *passing.target;
    }
    Computed &value = passing.value;
    if (passing.pending) {
        // No node replaced the object: the action's value stands, with what the inputs made
        // of the mark of animation.
        const Computed base = action_value(cache, key, description());
        value.object = base.object;
        value.animated = value.animated || base.animated;
    }
    value.modified = true;
    ValueRecord &rec = passing.target != nullptr ? *passing.target
                       : found != nullptr        ? *found
                                                 : cache.record(key);
    remember_writers(cache, rec, writers);
    cache.store(rec, value, *description().value_type);
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
    return compute(cache, key, nullptr, found);
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
    // A record is made only for a channel the item has.
    const cine::ChannelDesc *desc = found != nullptr ? nullptr : cine::item_channel(item, channel);
    if (found == nullptr && desc == nullptr) fail(rc::bad_argument, "no such channel");
    if (cache == nullptr || eval.baking || eval.action == nullptr) {
        cache = &attach_cache(eval);  // fails without an action
        found = cache->find(key);
        if (found != nullptr && (cache->current(*found) || cache->refresh(*found)))
            return remember_bake(eval, key, *found);
    }
    return remember_bake(eval, key, compute(*cache, key, desc, found));
}

}  // namespace vx::eval
