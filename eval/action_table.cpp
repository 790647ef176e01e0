// The entry table of an action, and the making and freeing of actions, entries and the
// values they hold.
#include <cstdint>
#include <new>
#include <utility>

#include "curves/env_edits.h"
#include "curves/envelope.h"
#include "eval/action_records.h"
#include "foundation/failure.h"
#include "scene/scene.h"

namespace vx::act {

namespace {

constexpr std::size_t kFirstBuckets = 8;

}  // namespace

EntryTable::EntryTable() : buckets_(new Entry *[kFirstBuckets]()), bucket_count_(kFirstBuckets) {}

EntryTable::~EntryTable() {
    delete[] buckets_;
}

std::size_t EntryTable::bucket_of(const CineItem *item, std::uint32_t channel) const noexcept {
    std::uint64_t h = reinterpret_cast<std::uintptr_t>(item);
    h ^= h >> 17;
    h += (channel & kChannelMask) * 0x9E3779B97F4A7C15ull;
    h ^= h >> 29;
    return static_cast<std::size_t>(h) & (bucket_count_ - 1);
}

Entry *EntryTable::find(const CineItem *item, std::uint32_t channel) const noexcept {
    const std::uint32_t wanted = channel & kChannelMask;
    for (Entry *e = buckets_[bucket_of(item, wanted)]; e != nullptr; e = e->next) {
        if (e->item == item && e->channel() == wanted) return e;
    }
    return nullptr;
}

void EntryTable::grow() noexcept {
    const std::size_t count = bucket_count_ * 2;
    Entry **grown = new (std::nothrow) Entry *[count]();
    if (grown == nullptr) return;  // longer chains, same answers
    Entry **old = std::exchange(buckets_, grown);
    const std::size_t old_count = std::exchange(bucket_count_, count);
    for (std::size_t b = 0; b < old_count; ++b) {
        for (Entry *e = old[b]; e != nullptr;) {
            Entry *next = e->next;
            Entry *&head = buckets_[bucket_of(e->item, e->channel())];
            e->next = head;
            head = e;
            e = next;
        }
    }
    delete[] old;
}

void EntryTable::link(Entry &entry) noexcept {
    if (size_ >= bucket_count_ * 2) grow();
    Entry *&head = buckets_[bucket_of(entry.item, entry.channel())];
    entry.next = head;
    head = &entry;
    entry.linked = true;
    ++size_;
}

void EntryTable::unlink(Entry &entry) noexcept {
    for (Entry **at = &buckets_[bucket_of(entry.item, entry.channel())]; *at != nullptr;
         at = &(*at)->next) {
        if (*at == &entry) {
            *at = entry.next;
            entry.next = nullptr;
            entry.linked = false;
            --size_;
            return;
        }
    }
}

ActionData *data_of(const Cinema &scene) noexcept {
    return static_cast<ActionData *>(scene.actions);
}

CineAction *new_action(ActionData &data, const char *name, std::uint32_t type) {
    auto *action = new CineAction;
    OnFailure drop([&] { delete action; });
    action->data = &data;
    action->name = name;
    action->type = type;
    action->port = vx::PortCreate(nullptr);
    return action;
}

void free_action(CineAction *action) noexcept {
    if (action == nullptr) return;
    action->entries.for_each([&](Entry &e) {
        action->entries.unlink(e);
        free_entry(&e);
    });
    vx::PortDestroy(action->port);
    delete action;
}

Entry *new_entry(CineAction &action, CineItem &item, std::uint32_t channel) {
    auto *entry = new Entry;
    entry->item = &item;
    entry->word = channel & kChannelMask;
    entry->action = &action;
    return entry;
}

void free_entry(Entry *entry) noexcept {
    if (entry == nullptr) return;
    free_payload(take_payload(*entry));
    delete entry;
}

Payload take_payload(Entry &entry) noexcept {
    Payload taken{entry.flags(), entry.envelope, entry.constant};
    entry.word = entry.channel();
    entry.envelope = nullptr;
    entry.constant = nullptr;
    if (taken.envelope != nullptr) taken.envelope->holder = nullptr;
    return taken;
}

void put_payload(Entry &entry, const Payload &payload) noexcept {
    entry.word = entry.channel() | (static_cast<std::uint32_t>(payload.flags) << 24);
    entry.envelope = payload.envelope;
    entry.constant = payload.constant;
    if (payload.envelope != nullptr) payload.envelope->holder = &entry;
}

void free_payload(const Payload &payload) noexcept {
    delete payload.constant;
    free_held(payload.envelope);
}

namespace {

// Relays the notes of a held envelope as changes of the action whose entry shows it. Notes of
// an envelope kept by an undo record, or of an action out of its scene, concern nobody.
void relay(void *client, void *, std::uint32_t code, void *data) {
    const auto *held = static_cast<const HeldEnvelope *>(client);
    const Entry *entry = held->holder;
    if (code == ENV_NOTE_DESTROY || entry == nullptr || !entry->linked || data == nullptr) return;
    if (!entry->action->linked) return;
    const auto *note = static_cast<const EnvNote *>(data);
    announce(*entry->action, entry->item, entry->channel(), CINE_CHANGE_KEYS | CINE_CHANGE_VALUE,
             note->start, note->end);
}

}  // namespace

HeldEnvelope *hold_envelope(Envelope *env) {
    auto *held = new HeldEnvelope;
    held->envelope = env;
    OnFailure drop([&] { free_held(held); });
    if (env->port == nullptr) {
        held->own_port = vx::PortCreate(nullptr);
        env->port = held->own_port;
    }
    held->attachment = vx::PortAttach(env->port, relay, held, nullptr);
    return held;
}

void free_held(HeldEnvelope *held) noexcept {
    if (held == nullptr) return;
    Envelope *env = held->envelope;
    if (held->attachment != 0) vx::PortDetach(env->port, held->attachment);
    if (held->owned) {
        env::destroy_no_undo(env);
    } else if (held->own_port != nullptr) {
        env->port = nullptr;
    }
    vx::PortDestroy(held->own_port);
    delete held;
}

namespace {

Envelope *duplicate(const Envelope &src) {
    Envelope *copy = env::create(src.data, src.type);
    OnFailure drop([&] { env::destroy_no_undo(copy); });
    copy->pre_behavior = src.pre_behavior;
    copy->post_behavior = src.post_behavior;
    copy->interpolation = src.interpolation;
    for (EnvKey *key = env::first_key(src); key != nullptr; key = env::next_key(key)) {
        EnvKey *twin = env::new_key(key->time);
        *twin = *key;
        env::append(*copy, twin);
    }
    return copy;
}

}  // namespace

Payload copy_payload(const Payload &payload) {
    Payload copy{payload.flags, nullptr, nullptr};
    if (payload.constant != nullptr) copy.constant = new value::Value(*payload.constant);
    OnFailure drop_constant([&] { delete copy.constant; });
    if (payload.envelope != nullptr) {
        Envelope *env = duplicate(*payload.envelope->envelope);
        OnFailure drop_env([&] { env::destroy_no_undo(env); });
        copy.envelope = hold_envelope(env);
        copy.envelope->owned = true;
    }
    return copy;
}

}  // namespace vx::act
