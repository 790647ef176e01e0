// Undoable edits of entries: setting constants and envelopes, marking removed, clearing,
// copying, merging into another action, purging and applying one item's entries to another.
//
// Three records do all of it. EntryLink puts an entry into its action's table or takes it out;
// EntrySwap exchanges what an entry holds with what the record holds; PayloadMove moves what one
// entry holds into another, empty one. Compound edits prepare every record before applying any,
// so a failure changes nothing and sends no event.
#include <cmath>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "curves/env_edits.h"
#include "curves/envelope.h"
#include "eval/action_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "scene/scene.h"

namespace vx::act {

namespace {

constexpr std::uint32_t kEntryChange = CINE_CHANGE_ENTRY | CINE_CHANGE_VALUE;

// The record owns the entry while it is out of the table: when its making is undone or its
// removal is in effect.
struct EntryLink {
    Entry *entry;
    bool insert;

    void apply(int direction) noexcept {
        EntryTable &table = entry->action->entries;
        if ((direction == 1) == insert) {
            table.link(*entry);
        } else {
            table.unlink(*entry);
        }
        announce_entry(*entry, kEntryChange);
    }
    void release(int state) noexcept {
        if ((state == 0) != insert) free_entry(entry);
    }
};

// The record always owns the payload it holds.
struct EntrySwap {
    Entry *entry;
    Payload payload;

    void apply(int) noexcept {
        const Payload held = take_payload(*entry);
        put_payload(*entry, payload);
        payload = held;
        announce_entry(*entry, CINE_CHANGE_VALUE);
    }
    void release(int) noexcept { free_payload(payload); }
};

// Moves the payload of `from` into `to` (which holds nothing) and back. Owns nothing.
struct PayloadMove {
    Entry *from;
    Entry *to;

    void apply(int direction) noexcept {
        Entry &source = direction == 1 ? *from : *to;
        Entry &target = direction == 1 ? *to : *from;
        put_payload(target, take_payload(source));
        announce_entry(source, CINE_CHANGE_VALUE);
        announce_entry(target, CINE_CHANGE_VALUE);
    }
};

// Moves the item's entries of channels from `first + count` on down by `count` (and back), in
// every action of the scene: what removing a package in the middle of the chain does to the
// channels after it.
struct ChannelShift {
    ActionData *data;
    CineItem *item;
    std::uint32_t first;
    std::uint32_t count;

    void apply(int direction) noexcept {
        const std::uint32_t from = direction == 1 ? first + count : first;
        for (CineAction *action = data->first; action != nullptr; action = action->next) {
            // Unlinked first and relinked after, so that no entry is met twice.
            Entry *moved = nullptr;
            action->entries.for_each([&](Entry &entry) {
                if (entry.item != item || entry.channel() < from) return;
                action->entries.unlink(entry);
                entry.next = moved;
                moved = &entry;
            });
            while (moved != nullptr) {
                Entry &entry = *moved;
                moved = entry.next;
                const std::uint32_t channel =
                    direction == 1 ? entry.channel() - count : entry.channel() + count;
                entry.word = (entry.word & ~kChannelMask) | (channel & kChannelMask);
                action->entries.link(entry);
            }
            announce(*action, item, 0, CINE_CHANGE_ENTRY | CINE_CHANGE_VALUE);
        }
    }
};

// Gives (item, channel) of an action a payload, into the entry it has in any state or into a
// new one. Prepared on construction; it owns the payload once constructed (a constructor that
// fails leaves the payload to the caller). apply() cannot fail.
class Give {
  public:
    Give(CineAction &action, CineItem &item, std::uint32_t channel, const Payload &payload) {
        if (Entry *entry = find_entry(action, item, channel)) {
            swap_.emplace(entry, payload);
            return;
        }
        Entry *entry = new_entry(action, item, channel);
        OnFailure drop_entry([&] {
            take_payload(*entry);
            free_entry(entry);
        });
        put_payload(*entry, payload);
        link_.emplace(entry, true);
    }
    void apply() {
        if (swap_) swap_->apply_then_record(1);
        if (link_) link_->apply_then_record(0);
    }

  private:
    std::optional<Edit<EntrySwap>> swap_;
    std::optional<Edit<EntryLink>> link_;
};

// Queues a Give, taking over the payload whatever happens.
void queue(std::deque<Give> &gives, CineAction &action, CineItem &item, std::uint32_t channel,
           const Payload &payload) {
    OnFailure drop([&] { free_payload(payload); });
    gives.emplace_back(action, item, channel, payload);
    drop.disarm();
}

void give(CineAction &action, CineItem &item, std::uint32_t channel, const Payload &payload) {
    OnFailure drop([&] { free_payload(payload); });
    EditTransaction transaction;
    std::optional<Give> edit;
    edit.emplace(action, item, channel, payload);
    drop.disarm();
    edit->apply();
}

void require_linked(const CineAction &action) {
    if (!action.linked) fail(rc::refused, "the action is not in its scene");
}

const vx::cine::ChannelDesc &require_channel(const CineItem &item, std::uint32_t channel) {
    const vx::cine::ChannelDesc *desc = vx::cine::item_channel(item, channel);
    if (desc == nullptr || channel > kChannelMask) fail(rc::bad_argument, "no such channel");
    return *desc;
}

// The item as the action's scene knows it: entries are made only for items of that scene.
CineItem &scene_item(const CineAction &action, CineItem &item) {
    Cinema &scene = *action.data->scene;
    if (item.scene == &scene) return item;
    VX_FAIL_LINE("item not in action's cinema", item.ident.c_str());
    const auto found = scene.by_ident.find(item.ident);
    if (found == scene.by_ident.end()) fail(rc::bad_argument, "item not in action's cinema");
    return *found->second;
}

value::Kind kind_of(const vx::cine::ChannelDesc &desc) noexcept {
    return value::kind_of(*desc.value_type);
}

// An envelope of the channel's kind: float envelopes for floating channels, integer ones for
// integer channels; other kinds are not animated.
std::uint32_t envelope_type_for(const vx::cine::ChannelDesc &desc) {
    switch (kind_of(desc)) {
        case value::Kind::floating:
            return env::kTypeFloat;
        case value::Kind::integer:
            return env::kTypeInt;
        default:
            fail(rc::type_mismatch, "the channel cannot hold an envelope");
    }
}

// Writes a value into one of another type, converting as the value setters do.
void convert(value::Value &to, const value::Value &from) {
    switch (value::kind_of(from.type())) {
        case value::Kind::floating:
            to.set_float(from.get_float());
            break;
        case value::Kind::integer:
            to.set_int(from.get_int());
            break;
        case value::Kind::text: {
            std::string text(from.export_text(nullptr, 0) + 1, '\0');
            from.export_text(text.data(), text.size());
            to.set_text(text.c_str());
            break;
        }
        case value::Kind::matrix:
            to.set_matrix(from.get_matrix());
            break;
        case value::Kind::object:
            to.set_object(from.get_object());
            break;
    }
}

// A payload for the destination channel made from an entry's: values are converted to the
// destination's type, envelopes duplicated (and must suit the destination).
Payload converted_copy(const Entry &from, const vx::cine::ChannelDesc &to) {
    const Payload source{from.flags(), from.envelope, from.constant};
    if (!from.live()) return Payload{kRemovedBit, nullptr, nullptr};
    if (from.envelope != nullptr) {
        if (envelope_type_for(to) != from.envelope->envelope->type) {
            fail(rc::type_mismatch, "the envelope does not suit the channel");
        }
        return copy_payload(source);
    }
    auto *value = new value::Value(*to.value_type);
    OnFailure drop([&] { delete value; });
    if (from.constant != nullptr) convert(*value, *from.constant);
    return Payload{0, nullptr, value};
}

}  // namespace

// ---- Setters ----

void fill_float(value::Value &to, const void *from) {
    to.set_float(*static_cast<const double *>(from));
}
void fill_int(value::Value &to, const void *from) {
    to.set_int(*static_cast<const int *>(from));
}
void fill_text(value::Value &to, const void *from) {
    to.set_text(static_cast<const char *>(from));
}
void fill_matrix(value::Value &to, const void *from) {
    value::Matrix4 m;
    std::memcpy(m.data(), from, sizeof m);
    to.set_matrix(m);
}
void fill_object(value::Value &to, const void *from) {
    to.set_object(const_cast<void *>(from));
}

void set_constant(CineAction &action, CineItem &item, std::uint32_t channel, Fill fill,
                  const void *source) {
    require_linked(action);
    CineItem &target = scene_item(action, item);
    const vx::cine::ChannelDesc &desc = require_channel(target, channel);
    auto *value = new value::Value(*desc.value_type);
    {
        OnFailure drop([&] { delete value; });
        if (fill != nullptr) {
            fill(*value, source);
        } else {
            convert(*value, desc.default_value);
        }
    }
    give(action, target, channel, Payload{0, nullptr, value});
}

void set_value(CineAction &action, CineItem &item, std::uint32_t channel, double value,
               bool integer, double time) {
    require_linked(action);
    Entry *entry = find_entry(action, item, channel);
    if (entry != nullptr && entry->live() && entry->envelope != nullptr) {
        UndoBlock step;  // a new key is several records
        Envelope &env = *entry->envelope->envelope;
        const EnvKey *key = env.type == env::kTypeInt
                                ? env::add_key_int(env, time, static_cast<int>(std::lround(value)))
                                : env::add_key(env, time, value);
        if (key == nullptr) fail(rc::type_mismatch, "the envelope cannot take the value");
        return;
    }
    if (integer) {
        const int v = static_cast<int>(value);
        set_constant(action, item, channel, fill_int, &v);
    } else {
        set_constant(action, item, channel, fill_float, &value);
    }
}

void set_envelope(CineAction &action, CineItem &item, std::uint32_t channel, Envelope *env) {
    if (env == nullptr) fail(rc::bad_argument, "no envelope");
    require_linked(action);
    CineItem &target = scene_item(action, item);
    if (envelope_type_for(require_channel(target, channel)) != env->type) {
        fail(rc::type_mismatch, "the envelope does not suit the channel");
    }
    HeldEnvelope *held = hold_envelope(env);
    give(action, target, channel, Payload{kEnvelopeBit, held, nullptr});
    held->owned = true;
}

void set_state(CineAction &action, CineItem &item, std::uint32_t channel, int state, void *extra) {
    require_linked(action);
    switch (state) {
        case CINE_STATE_NONE:
            if (Entry *entry = find_entry(action, item, channel)) {
                edit_apply<EntryLink>(0, entry, false);
            }
            return;
        case CINE_STATE_REMOVED: {
            CineItem &target = scene_item(action, item);
            require_channel(target, channel);
            give(action, target, channel, Payload{kRemovedBit, nullptr, nullptr});
            return;
        }
        case CINE_STATE_CONSTANT:
            set_constant(action, item, channel, extra != nullptr ? fill_float : nullptr, extra);
            return;
        case CINE_STATE_ENVELOPE: {
            if (extra != nullptr) {
                set_envelope(action, item, channel, static_cast<Envelope *>(extra));
                return;
            }
            CineItem &target = scene_item(action, item);
            Envelope *env =
                env::create(nullptr, envelope_type_for(require_channel(target, channel)));
            OnFailure drop([&] { env::destroy_no_undo(env); });
            set_envelope(action, target, channel, env);
            return;
        }
        default:
            fail(rc::bad_argument, "an entry state is 0 to 3");
    }
}

// ---- Copying, merging, purging ----

bool copy_channel(CineAction &to, CineItem &dst, std::uint32_t dst_channel, CineAction &from,
                  const CineItem &src, std::uint32_t src_channel, std::uint32_t flags) {
    const Entry *source = find_entry(from, src, src_channel);
    if (source == nullptr) return false;
    require_linked(to);
    CineItem &target = scene_item(to, dst);
    const vx::cine::ChannelDesc &desc = require_channel(target, dst_channel);
    if ((flags & CINE_COPY_KEEP_EXISTING) != 0) {
        const Entry *existing = find_entry(to, target, dst_channel);
        if (existing != nullptr && existing->live()) return false;
    }
    if (source == find_entry(to, target, dst_channel)) return true;  // onto itself
    give(to, target, dst_channel, converted_copy(*source, desc));
    return true;
}

bool merge_channel(CineAction &action, CineAction *target, CineItem &item, std::uint32_t channel) {
    Entry *source = find_entry(action, item, channel);
    if (source == nullptr || !source->live()) return false;
    require_linked(action);
    ActionData &data = *action.data;
    if (target == nullptr) {
        const bool animated = source->envelope != nullptr;
        target = holder_for(action, item, channel, animated ? CINE_ACTION_SCENE : 0xFFFFFFFFu, 1);
        if (target == nullptr) target = animated ? data.scene_action : data.setup;
    }
    if (target == nullptr || target == &action) return false;
    require_linked(*target);
    if (item.scene != target->data->scene) {
        VX_FAIL_LINE("item not in action's cinema", item.ident.c_str());
        edit_apply<EntryLink>(0, source, false);
        return true;
    }

    UndoBlock step;  // one undo step for the user
    EditTransaction transaction;
    Entry *into = find_entry(*target, item, channel);
    std::optional<Edit<EntrySwap>> emptied;  // what the target held goes to this record
    std::optional<Edit<EntryLink>> made;
    if (into != nullptr) {
        emptied.emplace(into, Payload{});
    } else {
        into = new_entry(*target, item, channel);
        OnFailure drop([&] { free_entry(into); });
        made.emplace(into, true);
    }
    Edit<PayloadMove> move(source, into);
    Edit<EntryLink> removal(source, false);

    if (emptied) emptied->apply_then_record(1);
    if (made) made->apply_then_record(0);
    move.apply_then_record(1);
    removal.apply_then_record(0);
    return true;
}

void purge_package(CineItem &item, std::uint32_t first, std::uint32_t count) {
    ActionData *data = data_of(*item.scene);
    if (data == nullptr || count == 0) return;
    EditTransaction transaction;
    Edit<ChannelShift> shift(data, &item, first, count);
    purge(item, first, count);
    shift.apply_then_record(0);
}

void purge(CineItem &item, std::uint32_t first, std::uint32_t count) {
    ActionData *data = data_of(*item.scene);
    if (data == nullptr) return;
    UndoBlock step;
    EditTransaction transaction;
    std::deque<Edit<EntryLink>> removals;
    for (CineAction *action = data->first; action != nullptr; action = action->next) {
        action->entries.for_each([&](Entry &entry) {
            if (entry.item != &item) return;
            if (count != 0 && (entry.channel() < first || entry.channel() - first >= count)) {
                return;
            }
            removals.emplace_back(&entry, false);
        });
    }
    for (Edit<EntryLink> &removal : removals) removal.apply_then_record(0);
}

bool apply_item(CineAction &target, CineAction &action, CineItem &dst, const CineItem &src,
                std::uint32_t flags) {
    if (vx::cine::common_channels(dst, src) == 0) return false;
    require_linked(target);
    CineItem &to_item = scene_item(target, dst);

    std::vector<const Entry *> sources;
    action.entries.for_each([&](const Entry &entry) {
        if (entry.item == &src) sources.push_back(&entry);
    });
    UndoBlock step;
    EditTransaction transaction;
    std::deque<Give> gives;
    for (const Entry *entry : sources) {
        const vx::cine::ChannelDesc *desc = vx::cine::item_channel(src, entry->channel());
        if (desc == nullptr) continue;
        const std::int64_t at = vx::cine::lookup_channel(to_item, desc->name.c_str());
        if (at < 0) continue;
        const auto channel = static_cast<std::uint32_t>(at);
        const Entry *existing = find_entry(target, to_item, channel);
        if (existing == entry) continue;
        if ((flags & CINE_COPY_KEEP_EXISTING) != 0 && existing != nullptr && existing->live()) {
            continue;
        }
        const vx::cine::ChannelDesc &to_desc = require_channel(to_item, channel);
        queue(gives, target, to_item, channel, converted_copy(*entry, to_desc));
    }
    for (Give &edit : gives) edit.apply();
    return true;
}

void forget_item(CineItem &item) noexcept {
    const ActionData *data = item.scene != nullptr ? data_of(*item.scene) : nullptr;
    if (data == nullptr) return;
    for (CineAction *action = data->first; action != nullptr; action = action->next) {
        action->entries.for_each([&](Entry &entry) {
            if (entry.item != &item) return;
            action->entries.unlink(entry);
            free_entry(&entry);
        });
    }
}

}  // namespace vx::act
