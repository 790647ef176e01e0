// Modifiers of a scene: one record per modifier server, the nodes their factories make for
// (item, index) pairs, and the links between nodes that fix the order in which they run.
#pragma once

#include <vexor/sys/modifier.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "eval/cache.h"

struct HostServer;

namespace vx::eval {

struct EvalData;
struct ModRecord;

}  // namespace vx::eval

// What a node sees while it evaluates: its inputs' records, and its outputs. Number outputs
// come in with the values they have so far; object outputs can only be replaced, so they come
// in empty and `written` tells whether the node replaced them.
struct CineModEval {
    struct Output {
        double number = 0.0;
        vx::value::Value *object = nullptr;  // for object channels
        bool written = false;                // the object was set
    };
    const vx::eval::ValueRecord *const *inputs = nullptr;
    std::size_t input_count = 0;
    Output *outputs = nullptr;
    std::size_t output_count = 0;
    double time = 0.0;
};

struct CineModNode;

namespace vx::cine {
struct ChannelDesc;
}  // namespace vx::cine

namespace vx::eval {

// What validation works out once for each input and output of a node, so that a run looks
// nothing up.
struct InputSlot {
    const cine::ChannelDesc *desc = nullptr;                // null for the time node
    const std::vector<::CineModNode *> *writers = nullptr;  // null when no node writes it
};

struct OutputSlot {
    const ValueType *type = nullptr;
    bool object = false;  // the channel holds an object (a matrix, text)
    bool sole = false;    // no other node writes the channel
};

}  // namespace vx::eval

// A modifier node: the instance a factory made for one (item, index) pair, with the channels it
// reads and writes.
struct CineModNode {
    vx::eval::ModRecord *record = nullptr;
    CineItem *item = nullptr;
    std::uint32_t index = 0;
    std::string name;  // "<server>:<item>:<index>"
    void *instance = nullptr;
    const CineModNodeMethods *methods = nullptr;
    std::vector<vx::eval::ChannelKey> inputs;  // the time node has a null item
    std::vector<vx::eval::ChannelKey> outputs;
    bool has_control = false;
    std::uint32_t control = 0;
    bool linked = false;      // Link succeeded
    bool cyclic = false;      // part of a dependency cycle: left out
    std::uint32_t order = 0;  // position in the evaluation order
    // Made by validation for every node that runs, one entry per input or output. A run fills
    // the scratch lists in place, so it allocates nothing; they belong to the thread that holds
    // `lock`.
    std::vector<vx::eval::InputSlot> input_slots;
    std::vector<vx::eval::OutputSlot> slots;
    // The input records of the last run and the cache (its serial) they are in: records never
    // move, so the next run in that cache starts from them instead of finding them again.
    std::vector<const vx::eval::ValueRecord *> input_records;
    std::uint64_t records_of = 0;
    // Inputs whose records were valid and did not depend on the time at the last run, and the
    // cache's drop count then: while it holds still, those inputs need not be looked at.
    std::vector<bool> input_steady;
    std::uint64_t records_drops = 0;
    std::vector<CineModEval::Output> output_values;
    std::vector<vx::value::Value> output_objects;
    std::vector<bool> output_animated;
    std::mutex lock;  // held while the node runs: its inputs are read and the instance evaluates
};

// What a node sees while it declares its links.
struct CineModLinks {
    CineModNode *node = nullptr;
};

namespace vx::eval {

// One modifier server as a scene sees it.
struct ModRecord {
    HostServer *server = nullptr;
    void *factory = nullptr;  // component object, one reference held
    const CineModFactoryMethods *methods = nullptr;
    std::vector<std::uint32_t> types;  // "modifier.typeList"
    std::vector<std::string> graphs;   // "modifier.graphList"
    std::vector<std::string> guids;    // "modifier.guidList"
    bool required = false;             // "modifier.required"
    bool absent = false;
    bool done = false;
    bool seen = false;
    std::map<std::pair<const CineItem *, std::uint32_t>, CineModNode *> instances;
};

struct Modifiers {
    std::vector<std::unique_ptr<ModRecord>> records;  // in order of the servers
    std::vector<CineModNode *> made;                  // nodes made by the last validation, in order
    std::vector<CineModNode *> order;  // every linked node that runs, inputs before users
    std::unordered_map<ChannelKey, std::vector<CineModNode *>, ChannelKeyHash> writers;
    // Set by validation, cleared by what invalidates it; read without the lock by the read path.
    std::atomic<bool> validated{false};
};

// Validates the scene's modifiers when something has invalidated them. The caller holds the
// scene's lock; ensure_validated takes it when validation is due. Values written by modifiers are
// dropped from every cache when the set of nodes changes.
void validate(EvalData &data);
void ensure_validated(EvalData &data);
// The nodes that write a channel, in evaluation order; null when none does.
const std::vector<CineModNode *> *writers_of(const EvalData &data, const ChannelKey &key) noexcept;
// Destroys the nodes made for an item (it is going away) and unlinks them.
void drop_item_nodes(EvalData &data, const CineItem &item) noexcept;
// Destroys every record and node.
void destroy_modifiers(EvalData &data) noexcept;

}  // namespace vx::eval
