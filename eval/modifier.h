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

struct CineModNode;

namespace vx::cine {
struct ChannelDesc;
}  // namespace vx::cine

namespace vx::eval {

// One input of a node as validation found it: its description and the nodes that write it.
// What a run reads is the input's record, kept apart (CineModNode::in_records) so that the
// records of all inputs sit together.
struct InputRun {
    ChannelKey key;                                         // the time node has a null item
    const cine::ChannelDesc *desc = nullptr;                // null for the time node
    const std::vector<::CineModNode *> *writers = nullptr;  // null when no node writes it
};

// One output of a node: its type, whether the node is its only writer, and the value the node
// sets. Number outputs come in with the values they have so far; object outputs can only be
// replaced, so they come in empty and `written` tells whether the node replaced them.
struct OutputRun {
    double number = 0.0;
    value::Value *object = nullptr;  // for object channels
    bool written = false;            // the object was set
    bool is_object = false;          // the channel holds an object (a matrix, text)
    bool sole = false;               // no other node writes the channel
    bool animated = false;           // the value it came in with depends on the time
    const ValueType *type = nullptr;
    ChannelKey key;
};

}  // namespace vx::eval

// What a node sees while it evaluates: its inputs and outputs.
struct CineModEval {
    const vx::eval::ValueRecord *const *inputs = nullptr;  // the inputs' records
    std::size_t input_count = 0;
    vx::eval::OutputRun *outputs = nullptr;
    std::size_t output_count = 0;
    double time = 0.0;
};

// A modifier node: the instance a factory made for one (item, index) pair, with the channels it
// reads and writes. What a run touches comes first, together.
struct CineModNode {
    const CineModNodeMethods *methods = nullptr;
    void *instance = nullptr;
    bool has_control = false;
    std::uint32_t control = 0;
    // The cache (its serial) the inputs' records are in, and its drop count, at the last run:
    // records never move, so the next run in that cache starts from them, and while nothing
    // has been dropped only the inputs that depended on the time (`moving`) are looked at.
    std::uint64_t records_of = 0;
    std::uint64_t records_drops = 0;
    // Made by validation for every node that runs. A run fills them in place, so it allocates
    // nothing; they belong to the thread that holds `lock`.
    // By input, and the inputs that depended on the time at the last run: both in the
    // modifiers' lists (Modifiers::input_records), beside those of the nodes of nearby items.
    const vx::eval::ValueRecord **in_records = nullptr;
    std::uint32_t *moving = nullptr;
    std::uint32_t moving_count = 0;
    std::vector<vx::eval::InputRun> runs_in;
    std::vector<vx::eval::OutputRun> runs_out;
    std::vector<vx::value::Value> output_objects;
    std::mutex lock;  // held while the node runs: its inputs are read and the instance evaluates
    vx::eval::ModRecord *record = nullptr;
    CineItem *item = nullptr;
    std::uint32_t index = 0;
    std::string name;                          // "<server>:<item>:<index>"
    std::vector<vx::eval::ChannelKey> inputs;  // the time node has a null item
    std::vector<vx::eval::ChannelKey> outputs;
    bool linked = false;      // Link succeeded
    bool cyclic = false;      // part of a dependency cycle: left out
    std::uint32_t order = 0;  // position in the evaluation order
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
    // What the nodes' runs keep of their inputs (CineModNode::in_records and moving), one run
    // of entries per node, laid out by the nodes' items so that the nodes one read runs sit
    // together. Made by validation.
    std::vector<const ValueRecord *> input_records;
    std::vector<std::uint32_t> moving_inputs;
    std::unordered_map<ChannelKey, std::vector<CineModNode *>, ChannelKeyHash> writers;
    // Advanced whenever `writers` changes: a value record remembers the writers of its channel
    // with the generation it found them in.
    std::atomic<std::uint64_t> generation{1};
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
