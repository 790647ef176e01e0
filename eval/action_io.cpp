// The scene file's chunk of actions. Byte layout in docs/formats.md, "The action chunk".
//
// Actions are written in creation order, each with its parents (by position in the file) and
// its entries sorted by item and channel, so that a scene always saves to the same bytes.
// Loading reuses the default actions the new scene was made with and makes the others; their
// settings and parents are written directly, since the load as a whole is not undoable.
#include "eval/action_io.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "curves/env_edits.h"
#include "curves/env_persist.h"
#include "curves/env_repair.h"
#include "eval/action_records.h"
#include "foundation/failure.h"
#include "scene/scene.h"
#include "scene/scene_io.h"

namespace vx::act {
namespace {

using cine::io::Fields;
using cine::io::LeaveBlock;
using cine::io::LoadContext;
using cine::io::SaveContext;

constexpr const char *kClientName = "action";

constexpr std::uint32_t kAction = 300;
constexpr std::uint32_t kParent = 301;
constexpr std::uint32_t kEntry = 302;

constexpr BlkBlockId kChunkBlocks[] = {{kAction, "action"}, {0, nullptr}};
constexpr BlkBlockId kActionBlocks[] = {{kParent, "parent"}, {kEntry, "entry"}, {0, nullptr}};

// ---- Saving ----

struct Saved {
    std::uint32_t item;
    std::uint32_t channel;
    const Entry *entry;
    bool operator<(const Saved &other) const noexcept {
        return item != other.item ? item < other.item : channel < other.channel;
    }
};

// Object values belong to whoever set them and cannot be written down.
bool savable(const Entry &entry) noexcept {
    if (!entry.live() || entry.envelope != nullptr) return true;
    return entry.constant != nullptr &&
           value::kind_of(entry.constant->type()) != value::Kind::object;
}

void save_constant(const value::Value &value, BlkWriter &writer) {
    const value::Kind kind = value::kind_of(value.type());
    cine::io::put_u32(writer, static_cast<std::uint32_t>(kind));
    switch (kind) {
        case value::Kind::floating:
            cine::io::put_double(writer, value.get_float());
            break;
        case value::Kind::integer:
            cine::io::put_i32(writer, value.get_int());
            break;
        case value::Kind::text: {
            const std::size_t length = value.export_text(nullptr, 0);
            std::string text(length + 1, '\0');
            value.export_text(text.data(), text.size());
            text.resize(length);
            cine::io::put_text(writer, text);
            break;
        }
        case value::Kind::matrix:
            for (double element : value.get_matrix()) cine::io::put_double(writer, element);
            break;
        case value::Kind::object:
            break;
    }
}

void save_entry(const SaveContext &context, const Entry &entry, BlkWriter &writer) {
    writer.begin(kEntry);
    context.put_channel(writer, *entry.item, entry.channel());
    cine::io::put_u32(writer, static_cast<std::uint32_t>(entry_state(&entry)));
    if (!entry.live()) {
        // nothing more: a removed marker
    } else if (entry.envelope != nullptr) {
        const Envelope &env = *entry.envelope->envelope;
        cine::io::put_u32(writer, env.type);
        cine::io::put_u32(writer, env.interpolation);
        // The envelope's own blocks keep only the pre behaviour.
        cine::io::put_u32(writer, env.post_behavior);
        env::save(env, writer);
    } else {
        save_constant(*entry.constant, writer);
    }
    writer.end();
}

void save_action(const SaveContext &context, const CineAction &action,
                 const std::vector<const CineAction *> &listed, BlkWriter &writer) {
    writer.begin(kAction);
    cine::io::put_text(writer, action.name);
    cine::io::put_u32(writer, action.type);
    cine::io::put_u32(writer, action.enabled);
    for (const CineAction *parent : action.parents) {
        auto at = std::find(listed.begin(), listed.end(), parent);
        if (at == listed.end()) continue;
        writer.begin(kParent);
        cine::io::put_u32(writer, static_cast<std::uint32_t>(at - listed.begin()));
        writer.end();
    }
    std::vector<Saved> entries;
    action.entries.for_each([&](const Entry &entry) {
        const std::uint32_t item = context.item_index(entry.item);
        if (item == cine::io::kNone ||
            cine::item_channel(*entry.item, entry.channel()) == nullptr || !savable(entry)) {
            return;
        }
        entries.push_back({item, entry.channel(), &entry});
    });
    std::sort(entries.begin(), entries.end());
    for (const Saved &saved : entries) save_entry(context, *saved.entry, writer);
    writer.end();
}

void save_actions(const SaveContext &context, BlkWriter &writer) {
    const ActionData *data = data_of(context.scene());
    if (data == nullptr) return;
    std::vector<const CineAction *> listed;
    for (const CineAction *action = data->first; action != nullptr; action = action->next) {
        listed.push_back(action);
    }
    for (const CineAction *action : listed) save_action(context, *action, listed, writer);
}

// ---- Loading ----

// Reads a constant of the kind the file gives; drops it when the channel now holds another.
void load_constant(LoadContext &context, CineAction &action, CineItem &item, std::uint32_t channel,
                   Fields &fields) {
    const cine::ChannelDesc &desc = *cine::item_channel(item, channel);
    const std::uint32_t kind = fields.u32();
    double number = 0.0;
    std::int32_t integer = 0;
    std::string text;
    double matrix[16] = {};
    Fill fill = nullptr;
    const void *source = nullptr;
    switch (kind) {
        case static_cast<std::uint32_t>(value::Kind::floating):
            number = fields.f64();
            if (!std::isfinite(number)) {
                context.repaired("a constant that is not a finite number:", desc.name.c_str());
                return;  // the channel keeps its default
            }
            fill = fill_float;
            source = &number;
            break;
        case static_cast<std::uint32_t>(value::Kind::integer):
            integer = fields.i32();
            fill = fill_int;
            source = &integer;
            break;
        case static_cast<std::uint32_t>(value::Kind::text):
            text = fields.text();
            fill = fill_text;
            source = text.c_str();
            break;
        case static_cast<std::uint32_t>(value::Kind::matrix):
            for (double &element : matrix) element = fields.f64();
            if (!std::all_of(std::begin(matrix), std::end(matrix),
                             [](double e) { return std::isfinite(e); })) {
                context.repaired("a matrix that is not finite:", desc.name.c_str());
                return;
            }
            fill = fill_matrix;
            source = matrix;
            break;
        default:
            cine::io::corrupt("a constant of an unknown kind");
    }
    if (kind != static_cast<std::uint32_t>(value::kind_of(*desc.value_type))) {
        context.lost("a constant of another kind than its channel:", desc.name.c_str());
        return;
    }
    set_constant(action, item, channel, fill, source);
}

// Reports each kind of mending an envelope needed.
void report_repairs(LoadContext &context, unsigned repaired, const char *channel) {
    static constexpr struct {
        unsigned bit;
        const char *what;
    } kRepairs[] = {
        {env::kRepairedSettings, "repaired an envelope behaviour or interpolation out of range:"},
        {env::kRepairedKeyTimes, "dropped envelope keys without a time of their own:"},
        {env::kRepairedOrder, "sorted envelope keys out of time order:"},
        {env::kRepairedNumbers, "repaired envelope numbers that were not finite:"},
        {env::kRepairedSlopeTypes, "repaired unknown slope types:"},
    };
    for (const auto &r : kRepairs) {
        if ((repaired & r.bit) != 0) context.repaired(r.what, channel);
    }
}

void load_envelope(LoadContext &context, CineAction &action, CineItem &item, std::uint32_t channel,
                   Fields &fields, BlkReader &reader) {
    const cine::ChannelDesc &desc = *cine::item_channel(item, channel);
    const std::uint32_t type = fields.u32();
    const std::uint32_t interpolation = fields.u32();
    const std::uint32_t post = fields.u32();
    if (type > env::kTypeInt) {
        context.repaired("dropped an envelope of an unknown type:", desc.name.c_str());
        return;
    }
    const value::Kind wanted = type == env::kTypeInt ? value::Kind::integer : value::Kind::floating;
    if (value::kind_of(*desc.value_type) != wanted) {
        context.lost("an envelope of another kind than its channel:", desc.name.c_str());
        return;
    }
    Envelope *env = env::create(nullptr, type);
    OnFailure drop([&] { env::destroy_no_undo(env); });
    if (!env::load(*env, reader)) cine::io::corrupt("a damaged envelope");
    env->interpolation = interpolation;
    env->post_behavior = post;
    report_repairs(context, env::repair(*env), desc.name.c_str());
    set_envelope(action, item, channel, env);
}

void load_entry(LoadContext &context, CineAction &action, BlkReader &reader) {
    Fields fields(reader);
    CineItem *item = nullptr;
    std::uint32_t channel = 0;
    if (!context.get_channel(fields, item, channel)) return;
    switch (fields.u32()) {
        case CINE_STATE_REMOVED:
            set_state(action, *item, channel, CINE_STATE_REMOVED, nullptr);
            break;
        case CINE_STATE_CONSTANT:
            load_constant(context, action, *item, channel, fields);
            break;
        case CINE_STATE_ENVELOPE:
            load_envelope(context, action, *item, channel, fields, reader);
            break;
        default:
            cine::io::corrupt("an entry state out of range");
    }
}

struct Loaded {
    CineAction *action;
    std::vector<std::uint32_t> parents;
};

CineAction &load_action(LoadContext &context, BlkReader &reader, const std::vector<Loaded> &loaded,
                        std::vector<std::uint32_t> &parents) {
    Cinema &scene = context.scene();
    Fields fields(reader);
    const std::string name = fields.text();
    const std::uint32_t type = fields.u32();
    const std::uint32_t enabled = fields.u32();
    if (name.empty()) cine::io::corrupt("an action without a name");
    // The default actions are there already; names compare without regard to case.
    CineAction *action = lookup(scene, name.c_str());
    for (const Loaded &earlier : loaded) {
        if (earlier.action == action) cine::io::corrupt("two actions of one name");
    }
    if (action == nullptr) action = create(scene, name.c_str(), type, nullptr);
    action->type = type;
    action->enabled = enabled != 0 ? 1u : 0u;
    for (;;) {
        const std::uint32_t id = reader.find(kActionBlocks);
        if (id == 0) break;
        LeaveBlock leave{reader};
        if (id == kParent) {
            parents.push_back(Fields(reader).u32());
        } else {
            load_entry(context, *action, reader);
        }
    }
    return *action;
}

void load_actions(LoadContext &context, BlkReader &reader) {
    ActionData *data = data_of(context.scene());
    if (data == nullptr) fail(rc::refused, "the scene has no actions");
    std::vector<Loaded> loaded;
    for (;;) {
        if (reader.find(kChunkBlocks) == 0) break;
        LeaveBlock leave{reader};
        std::vector<std::uint32_t> parents;
        CineAction &action = load_action(context, reader, loaded, parents);
        loaded.push_back({&action, std::move(parents)});
    }
    if (reader.bad()) cine::io::corrupt("a malformed block stream");
    // Parents may come later in the file than their children.
    for (Loaded &one : loaded) {
        std::vector<CineAction *> parents;
        for (std::uint32_t index : one.parents) {
            if (index >= loaded.size()) cine::io::corrupt("a parent action not in the file");
            CineAction *parent = loaded[index].action;
            if (parent == one.action ||
                std::find(parents.begin(), parents.end(), parent) != parents.end()) {
                cine::io::corrupt("an action listed twice among parents, or as its own");
            }
            parents.push_back(parent);
        }
        one.action->parents = std::move(parents);
    }
    rebuild_order(*data);
}

}  // namespace

void register_io() {
    cine::io::add_client({kClientName, save_actions, load_actions});
}

void unregister_io() noexcept {
    cine::io::remove_client(kClientName);
}

}  // namespace vx::act
