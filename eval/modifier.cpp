// Modifier validation: the records of the modifier servers, the nodes their factories make,
// and the links between nodes, with the cycles among them reported and left out.
#include "eval/modifier.h"

#include <vexor/package.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <sstream>

#include "eval/eval_data.h"
#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/registry.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

constexpr const char *kChannel = "modifiers";

std::vector<std::string> words(const char *text) {
    std::vector<std::string> out;
    if (text == nullptr) return out;
    std::istringstream in(text);
    for (std::string word; in >> word;) out.push_back(word);
    return out;
}

// The item's unique name for messages; its identity when the name cannot be made.
const char *item_name(CineItem &item) noexcept {
    try {
        return cine::unique_name(item).c_str();
    } catch (...) {
        return item.ident.c_str();
    }
}

void destroy_node(CineModNode *node) noexcept {
    if (node->instance != nullptr) com::release(node->instance);
    delete node;
}

void destroy_record_nodes(ModRecord &record) noexcept {
    for (auto &[key, node] : record.instances) destroy_node(node);
    record.instances.clear();
}

ModRecord &record_for(Modifiers &mods, HostServer *server) {
    for (auto &record : mods.records) {
        if (record->server == server) return *record;
    }
    auto record = std::make_unique<ModRecord>();
    record->server = server;
    mods.records.push_back(std::move(record));
    return *mods.records.back();
}

// Makes the factory object when the record has none. Returns false when it cannot be made or
// does not have the factory interface.
bool ensure_factory(ModRecord &record) noexcept {
    if (record.methods != nullptr) return true;
    try {
        com::Ref object(host::allocate(record.server));
        const void *table = com::find_interface(object.get(), CINE_MOD_FACTORY_GUID);
        if (table == nullptr) return false;
        record.methods = static_cast<const CineModFactoryMethods *>(table);
        record.factory = object.take();
        return true;
    } catch (...) {
        return false;
    }
}

void read_tags(ModRecord &record, const Cinema &scene) {
    record.types.clear();
    for (const std::string &name : words(host::tag(record.server, "modifier.typeList"))) {
        const std::uint32_t code = CineLookupType(name.c_str());
        if (code != 0 && code != CINE_TYPE_NONE) record.types.push_back(code);
    }
    const bool has_list = !words(host::tag(record.server, "modifier.typeList")).empty();
    record.graphs = words(host::tag(record.server, "modifier.graphList"));
    record.guids = words(host::tag(record.server, "modifier.guidList"));
    record.required = host::tag(record.server, "modifier.required") != nullptr;
    record.absent =
        has_list && std::none_of(record.types.begin(), record.types.end(), [&](std::uint32_t code) {
            return cine::any_item_of_type(scene, code);
        });
    record.done = false;
}

CineModNode *make_node(ModRecord &record, CineItem &item, std::uint32_t index) {
    auto node = std::make_unique<CineModNode>();
    node->record = &record;
    node->item = &item;
    node->index = index;
    char name[512];
    std::snprintf(name, sizeof name, "%s:%s:%u", host::name_of(record.server), item_name(item),
                  index);
    node->name = name;
    void *instance = nullptr;
    const unsigned int code = record.methods->Create(record.factory, &item, index, &instance);
    com::Ref held(instance);
    if (code != rc::ok || instance == nullptr) fail(code != rc::ok ? code : rc::failed, "factory");
    const void *table = com::find_interface(instance, CINE_MOD_NODE_GUID);
    if (table == nullptr) fail(rc::not_found, "no node interface");
    // A node must report every interface its server promises.
    for (const std::string &guid : record.guids) {
        if (com::find_interface(instance, guid.c_str()) == nullptr)
            fail(rc::not_found, "node lacks a listed interface");
    }
    node->methods = static_cast<const CineModNodeMethods *>(table);
    node->instance = held.take();
    return node.release();
}

void make_nodes(EvalData &data, ModRecord &record) {
    std::vector<std::pair<CineItem *, std::uint32_t>> wanted;
    record.methods->Enumerate(
        record.factory, &data.scene,
        [](void *client, CineItem *item, unsigned int index) {
            try {
                static_cast<decltype(wanted) *>(client)->emplace_back(item, index);
            } catch (...) {  // a pair that cannot be remembered makes no node
            }
        },
        &wanted);
    std::map<std::pair<const CineItem *, std::uint32_t>, CineModNode *> kept;
    for (auto [item, index] : wanted) {
        if (item == nullptr || item->scene != &data.scene) continue;
        const auto key = std::make_pair(static_cast<const CineItem *>(item), index);
        if (kept.contains(key)) continue;
        auto it = record.instances.find(key);
        if (it != record.instances.end()) {
            kept.emplace(key, it->second);
            record.instances.erase(it);
            continue;
        }
        try {
            data.modifiers.made.reserve(data.modifiers.made.size() + 1);
            CineModNode *node = make_node(record, *item, index);
            OnFailure drop([&] { destroy_node(node); });
            kept.emplace(key, node);
            drop.disarm();
            data.modifiers.made.push_back(node);
        } catch (...) {
            log::level(1, "failed to create modifier: %s for %s\n", host::name_of(record.server),
                       item_name(*item));
        }
    }
    // Nodes no longer wanted (their item has gone, or no longer qualifies) are dropped.
    destroy_record_nodes(record);
    record.instances = std::move(kept);
}

// Tarjan's strongly connected components over "reads what the other writes".
class CycleFinder {
  public:
    CycleFinder(
        const std::vector<CineModNode *> &nodes,
        const std::unordered_map<ChannelKey, std::vector<CineModNode *>, ChannelKeyHash> &writers)
        : nodes_(nodes), writers_(writers) {
        for (std::size_t i = 0; i < nodes.size(); ++i) position_.emplace(nodes[i], i);
        index_.assign(nodes.size(), -1);
        low_.assign(nodes.size(), 0);
        on_stack_.assign(nodes.size(), false);
    }

    std::vector<std::vector<CineModNode *>> run() {
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            if (index_[i] < 0) visit(i);
        }
        return std::move(cycles_);
    }

  private:
    std::vector<std::size_t> successors(std::size_t i) const {
        std::vector<std::size_t> out;
        for (const ChannelKey &input : nodes_[i]->inputs) {
            auto it = writers_.find(input);
            if (it == writers_.end()) continue;
            for (CineModNode *writer : it->second) out.push_back(position_.at(writer));
        }
        return out;
    }

    void visit(std::size_t i) {
        index_[i] = low_[i] = counter_++;
        stack_.push_back(i);
        on_stack_[i] = true;
        bool self_loop = false;
        for (std::size_t j : successors(i)) {
            if (j == i) self_loop = true;
            if (index_[j] < 0) {
                visit(j);
                low_[i] = std::min(low_[i], low_[j]);
            } else if (on_stack_[j]) {
                low_[i] = std::min(low_[i], index_[j]);
            }
        }
        if (low_[i] != index_[i]) return;
        std::vector<CineModNode *> component;
        std::size_t j;
        do {
            j = stack_.back();
            stack_.pop_back();
            on_stack_[j] = false;
            component.push_back(nodes_[j]);
        } while (j != i);
        if (component.size() > 1 || self_loop) {
            std::reverse(component.begin(), component.end());
            cycles_.push_back(std::move(component));
        }
    }

    const std::vector<CineModNode *> &nodes_;
    const std::unordered_map<ChannelKey, std::vector<CineModNode *>, ChannelKeyHash> &writers_;
    std::unordered_map<const CineModNode *, std::size_t> position_;
    std::vector<int> index_, low_;
    std::vector<bool> on_stack_;
    std::vector<std::size_t> stack_;
    std::vector<std::vector<CineModNode *>> cycles_;
    int counter_ = 0;
};

void report_cycle(const std::vector<CineModNode *> &cycle) {
    log::level(1, "found cycle:\n");
    int step = 0;
    for (const CineModNode *node : cycle) {
        log::level(1, "  %d/%d/%d (%d) #%d: %s:%s\n", step++, static_cast<int>(cycle.size()),
                   static_cast<int>(node->index), static_cast<int>(node->inputs.size()),
                   static_cast<int>(node->outputs.size()), host::name_of(node->record->server),
                   item_name(*node->item));
    }
}

// What a run of the node needs besides its links: the type of each output and whether the node
// is its only writer, and the scratch lists the run fills.
void prepare_runs(CineModNode &node, const Modifiers &mods) {
    auto writers_of_key = [&](const ChannelKey &key) -> const std::vector<CineModNode *> * {
        auto it = mods.writers.find(key);
        return it != mods.writers.end() ? &it->second : nullptr;
    };
    node.runs_in.clear();
    node.runs_out.clear();
    node.output_objects.clear();
    node.runs_in.reserve(node.inputs.size());
    node.runs_out.reserve(node.outputs.size());
    node.output_objects.reserve(node.outputs.size());
    for (const ChannelKey &in : node.inputs) {
        InputRun run;
        run.key = in;
        run.desc = in.item != nullptr ? cine::item_channel(*in.item, in.channel) : nullptr;
        run.writers = writers_of_key(in);
        node.runs_in.push_back(run);
    }
    for (const ChannelKey &out : node.outputs) {
        const cine::ChannelDesc &desc = *cine::item_channel(*out.item, out.channel);
        const value::Kind kind = value::kind_of(*desc.value_type);
        const std::vector<CineModNode *> *writers = writers_of_key(out);
        OutputRun run;
        run.key = out;
        run.type = desc.value_type;
        run.is_object = kind != value::Kind::floating && kind != value::Kind::integer;
        run.sole = writers != nullptr && writers->size() == 1;
        node.runs_out.push_back(run);
        node.output_objects.emplace_back(*desc.value_type);
    }
    for (std::size_t i = 0; i < node.runs_out.size(); ++i) {
        if (node.runs_out[i].is_object) node.runs_out[i].object = &node.output_objects[i];
    }
    node.records_of = 0;
}

// Gives every node that runs its run of entries in the modifiers' input lists. Nodes of items
// with neighbouring serials (items made together, such as a placed item and its transforms)
// get neighbouring runs, so that reading one channel walks the lists rather than the heap.
void lay_out_scratch(Modifiers &mods) {
    std::vector<CineModNode *> layout = mods.order;
    std::stable_sort(layout.begin(), layout.end(), [](const CineModNode *a, const CineModNode *b) {
        return a->item->serial < b->item->serial;
    });
    std::size_t total = 0;
    for (const CineModNode *node : layout) total += node->inputs.size();
    mods.input_records.assign(total, nullptr);
    mods.moving_inputs.assign(total, 0);
    std::size_t at = 0;
    for (CineModNode *node : layout) {
        node->in_records = mods.input_records.data() + at;
        node->moving = mods.moving_inputs.data() + at;
        node->moving_count = 0;
        at += node->inputs.size();
    }
}

// Declares every node's links, finds the cycles and puts the rest in an order where a node
// comes after the nodes that write its inputs.
void link(Modifiers &mods) {
    std::vector<CineModNode *> nodes;
    for (auto &record : mods.records) {
        for (auto &[key, node] : record->instances) nodes.push_back(node);
    }
    mods.writers.clear();
    mods.generation.fetch_add(1, std::memory_order_acq_rel);
    mods.order.clear();
    for (CineModNode *node : nodes) {
        node->inputs.clear();
        node->outputs.clear();
        node->has_control = false;
        node->cyclic = false;
        CineModLinks links{node};
        node->linked = node->methods->Link(node->instance, &links) == rc::ok;
        if (!node->linked) continue;
        for (const ChannelKey &out : node->outputs) mods.writers[out].push_back(node);
    }
    std::erase_if(nodes, [](const CineModNode *node) { return !node->linked; });
    for (const auto &cycle : CycleFinder(nodes, mods.writers).run()) {
        report_cycle(cycle);
        for (CineModNode *node : cycle) node->cyclic = true;
    }
    std::erase_if(nodes, [](const CineModNode *node) { return node->cyclic; });
    // Depth-first order over the acyclic rest: writers of a node's inputs first.
    std::unordered_map<const CineModNode *, bool> placed;
    std::function<void(CineModNode *)> place = [&](CineModNode *node) {
        if (placed[node]) return;
        placed[node] = true;
        for (const ChannelKey &input : node->inputs) {
            auto it = mods.writers.find(input);
            if (it == mods.writers.end()) continue;
            for (CineModNode *writer : it->second) {
                if (!writer->cyclic) place(writer);
            }
        }
        node->order = static_cast<std::uint32_t>(mods.order.size());
        mods.order.push_back(node);
    };
    for (CineModNode *node : nodes) place(node);
    for (auto &[key, writers] : mods.writers) {
        std::erase_if(writers, [](const CineModNode *node) { return node->cyclic; });
        std::sort(writers.begin(), writers.end(),
                  [](const CineModNode *a, const CineModNode *b) { return a->order < b->order; });
    }
    std::erase_if(mods.writers, [](const auto &entry) { return entry.second.empty(); });
    for (CineModNode *node : mods.order) prepare_runs(*node, mods);
    lay_out_scratch(mods);
}

}  // namespace

void validate(EvalData &data) {
    Modifiers &mods = data.modifiers;
    if (mods.validated.load(std::memory_order_acquire)) return;
    if (data.scene.in_flux) VX_FAIL_LINE("Validating modifiers while cinema is in flux !", "");
    const auto start = std::chrono::steady_clock::now();
    log::debug(kChannel, "validating modifiers\n");
    mods.made.clear();
    for (auto &record : mods.records) record->seen = false;
    const std::size_t count = host::count(CINE_MODIFIER_CLASS);
    for (std::size_t i = 0; i < count; ++i) {
        HostServer *server = host::by_index(CINE_MODIFIER_CLASS, i);
        if (server == nullptr) continue;
        ModRecord &record = record_for(mods, server);
        record.seen = true;
        read_tags(record, data.scene);
        if (record.required) ensure_factory(record);
    }
    // Servers that have gone take their nodes with them.
    std::erase_if(mods.records, [](const std::unique_ptr<ModRecord> &record) {
        if (record->seen) return false;
        destroy_record_nodes(*record);
        if (record->factory != nullptr) com::release(record->factory);
        return true;
    });
    for (auto &record : mods.records) {
        if (record->done) continue;
        record->done = true;
        if (record->absent || !ensure_factory(*record) ||
            record->methods->Applies(record->factory, &data.scene) < 0) {
            destroy_record_nodes(*record);
            continue;
        }
        make_nodes(data, *record);
    }
    link(mods);
    // Values written by the old set of nodes, or that new nodes now write, are out of date.
    for (Cache *cache : data.caches) cache->invalidate_all();
    const auto spent = std::chrono::steady_clock::now() - start;
    log::debug(kChannel, "done validating (%.3f ms)\n",
               std::chrono::duration<double, std::milli>(spent).count());
    mods.validated.store(true, std::memory_order_release);
}

void ensure_validated(EvalData &data) {
    if (data.modifiers.validated.load(std::memory_order_acquire)) return;
    std::lock_guard lock(data.lock);
    validate(data);
}

const std::vector<CineModNode *> *writers_of(const EvalData &data, const ChannelKey &key) noexcept {
    const auto &writers = data.modifiers.writers;
    if (writers.empty()) return nullptr;
    auto it = writers.find(key);
    return it == writers.end() ? nullptr : &it->second;
}

void drop_item_nodes(EvalData &data, const CineItem &item) noexcept {
    Modifiers &mods = data.modifiers;
    // Nodes made for the item or reading it lose their item first, so that the lists can be
    // cleaned without allocating; then they are destroyed.
    bool any = false;
    for (auto &record : mods.records) {
        for (auto &[key, node] : record->instances) {
            const bool reads = std::any_of(node->inputs.begin(), node->inputs.end(),
                                           [&](const ChannelKey &k) { return k.item == &item; });
            if (node->item == &item || reads) {
                node->item = nullptr;
                any = true;
            }
        }
    }
    if (!any) return;
    auto gone = [](const CineModNode *node) { return node->item == nullptr; };
    std::erase_if(mods.made, gone);
    std::erase_if(mods.order, gone);
    for (auto &[key, writers] : mods.writers) std::erase_if(writers, gone);
    std::erase_if(mods.writers, [](const auto &entry) { return entry.second.empty(); });
    mods.generation.fetch_add(1, std::memory_order_acq_rel);
    for (auto &record : mods.records) {
        std::erase_if(record->instances, [](const auto &entry) {
            if (entry.second->item != nullptr) return false;
            destroy_node(entry.second);
            return true;
        });
    }
    // The scene has changed under the nodes: validate again before the next evaluation, which
    // finds the surviving nodes' inputs again.
    for (auto &record : mods.records) {
        for (auto &[key, node] : record->instances) node->records_of = 0;
    }
    mods.validated = false;
}

void destroy_modifiers(EvalData &data) noexcept {
    Modifiers &mods = data.modifiers;
    for (auto &record : mods.records) {
        destroy_record_nodes(*record);
        if (record->factory != nullptr) com::release(record->factory);
    }
    mods.records.clear();
    mods.made.clear();
    mods.order.clear();
    mods.input_records.clear();
    mods.moving_inputs.clear();
    mods.writers.clear();
    mods.generation.fetch_add(1, std::memory_order_acq_rel);
    mods.validated = false;
}

}  // namespace vx::eval
