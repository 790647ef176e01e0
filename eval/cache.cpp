// Cache storage: records by slot table or map, storing, re-timing and invalidation.
#include "eval/cache.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <mutex>
#include <new>

#include "curves/env_evaluate.h"
#include "foundation/failure.h"
#include "foundation/time.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

std::atomic<std::uint64_t> next_serial{1};

// A record of an object channel is followed by its value in one block.
constexpr std::size_t kObjectOffset = (sizeof(ValueRecord) + alignof(value::Value) - 1) /
                                      alignof(value::Value) * alignof(value::Value);
constexpr std::size_t kObjectRecordSize = kObjectOffset + sizeof(value::Value);

value::Value *object_beside(ValueRecord *rec) noexcept {
    return reinterpret_cast<value::Value *>(reinterpret_cast<char *>(rec) + kObjectOffset);
}

bool holds_object(const ValueType &type) noexcept {
    const value::Kind kind = value::kind_of(type);
    return kind != value::Kind::floating && kind != value::Kind::integer;
}

}  // namespace

Cache::Cache(EvalData &data, CineAction *action, double time, std::uint32_t mode)
    : data_(data),
      action_(action),
      time_(time),
      mode_(mode),
      serial_(next_serial.fetch_add(1, std::memory_order_relaxed)),
      records_(sizeof(ValueRecord)),
      object_records_(kObjectRecordSize),
      objects_(sizeof(value::Value)) {}

Cache::~Cache() {
    for_each_record([this](const ChannelKey &, ValueRecord &rec) { release_record(&rec); });
}

void Cache::release_record(ValueRecord *rec) noexcept {
    if (rec->object != nullptr && rec->object == object_beside(rec)) {
        rec->object->~Value();
        rec->~ValueRecord();
        object_records_.free(rec);
        return;
    }
    if (rec->object != nullptr) {
        rec->object->~Value();
        objects_.free(rec->object);
    }
    rec->~ValueRecord();
    records_.free(rec);
}

template <class Fn>
void Cache::for_each_record(Fn &&fn) noexcept {
    if (mode_ == 2) {
        std::shared_lock lock(map_lock_);
        for (auto &[key, rec] : map_) fn(key, *rec);
        return;
    }
    for (ItemSlots &slots : slots_) {
        for (std::uint32_t channel = 0; channel < slots.records.size(); ++channel) {
            if (slots.records[channel] != nullptr)
                fn(ChannelKey{slots.item, channel}, *slots.records[channel]);
        }
    }
}

ValueRecord *Cache::find(const ChannelKey &key) const noexcept {
    if (key.item == nullptr) return const_cast<ValueRecord *>(&time_record_);
    if (mode_ == 2) {
        std::shared_lock lock(map_lock_);
        auto it = map_.find(key);
        return it == map_.end() ? nullptr : it->second;
    }
    const std::uint32_t serial = key.item->serial;
    if (serial >= slots_.size()) return nullptr;
    const ItemSlots &slots = slots_[serial];
    if (slots.item != key.item || key.channel >= slots.records.size()) return nullptr;
    return slots.records[key.channel];
}

ValueRecord &Cache::record(const ChannelKey &key) {
    if (ValueRecord *found = find(key)) return *found;
    const cine::ChannelDesc *desc = cine::item_channel(*key.item, key.channel);
    ValueRecord *rec = nullptr;
    if (desc != nullptr && holds_object(*desc->value_type)) {
        void *block = object_records_.alloc();
        rec = new (block) ValueRecord;
        rec->object = new (object_beside(rec)) value::Value(*desc->value_type);
    } else {
        rec = new (records_.alloc()) ValueRecord;
    }
    OnFailure give_back([&] { release_record(rec); });
    if (mode_ == 2) {
        std::unique_lock lock(map_lock_);
        map_.emplace(key, rec);
    } else {
        const std::uint32_t serial = key.item->serial;
        if (serial >= slots_.size()) {
            const std::uint32_t wanted =
                std::max(serial + 1, cine::serial_capacity(*key.item->scene));
            slots_.resize(wanted);
        }
        ItemSlots &slots = slots_[serial];
        if (slots.item != key.item) {
            // The serial was held by an item that has gone: its records are of no use now.
            note_drop();
            for (ValueRecord *old : slots.records) {
                if (old != nullptr) release_record(old);
            }
            slots.records.clear();
            slots.item = key.item;
        }
        if (key.channel >= slots.records.size())
            slots.records.resize(std::max(key.channel + 1, key.item->channel_count), nullptr);
        slots.records[key.channel] = rec;
    }
    give_back.disarm();
    return *rec;
}

void Cache::store(ValueRecord &rec, const Computed &value, const ValueType &type) {
    if (value.object != nullptr) {
        if (rec.object == nullptr) rec.object = new (objects_.alloc()) value::Value(type);
        *rec.object = *value.object;
    } else if (rec.object != nullptr) {
        rec.object->reset();
    }
    rec.number = value.number;
    rec.epoch = epoch_;
    rec.envelope = value.modified ? nullptr : value.envelope;
    std::uint8_t flags = rec.flags.load(std::memory_order_relaxed);
    flags = static_cast<std::uint8_t>((flags & ~(6 | kAnimated | kModified)) | 5);
    if (value.animated) flags |= kAnimated;
    if (value.modified) flags |= kModified;
    rec.flags.store(flags, std::memory_order_release);
}

bool Cache::refresh(ValueRecord &rec) noexcept {
    const std::uint8_t flags = rec.flags.load(std::memory_order_acquire);
    if ((flags & kValid) == 0 || rec.envelope == nullptr) return false;
    Envelope &env = *rec.envelope;
    rec.number =
        env.type == env::kTypeFloat ? env::evaluate(env, time_) : env::evaluate_int(env, time_);
    rec.epoch = epoch_;
    return true;
}

void Cache::retime(double time) {
    if (std::fabs(time - time_) < kTimeSameTolerance && current(time_record_)) return;
    time_ = time;
    ++epoch_;  // every value that depends on the time is out of date
    time_record_.number = time;
    time_record_.epoch = epoch_;
    const std::uint8_t flags = time_record_.flags.load(std::memory_order_relaxed);
    time_record_.flags.store(static_cast<std::uint8_t>((flags & ~6) | 5 | kAnimated),
                             std::memory_order_release);
}

void Cache::switch_action(CineAction *action) noexcept {
    action_ = action;
    invalidate_all();
}

void Cache::invalidate_all() noexcept {
    note_drop();
    for_each_record([](const ChannelKey &, ValueRecord &rec) { rec.invalidate(); });
    time_record_.invalidate();
}

void Cache::invalidate_channel(const ChannelKey &key) noexcept {
    note_drop();
    if (ValueRecord *rec = find(key)) rec->invalidate();
    // A value written by modifiers may have been computed from the one that changed.
    for_each_record([](const ChannelKey &, ValueRecord &rec) {
        if ((rec.flags.load(std::memory_order_relaxed) & kModified) != 0) rec.invalidate();
    });
}

void Cache::forget_item(const CineItem &item) noexcept {
    note_drop();
    if (mode_ == 2) {
        std::unique_lock lock(map_lock_);
        for (auto it = map_.begin(); it != map_.end();) {
            if (it->first.item == &item) {
                release_record(it->second);
                it = map_.erase(it);
            } else {
                ++it;
            }
        }
        return;
    }
    if (item.serial >= slots_.size() || slots_[item.serial].item != &item) return;
    ItemSlots &slots = slots_[item.serial];
    for (ValueRecord *rec : slots.records) {
        if (rec != nullptr) release_record(rec);
    }
    slots.records.clear();
    slots.item = nullptr;
}

}  // namespace vx::eval
