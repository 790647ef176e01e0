// Caches of channel values: one per (action, time) in use, shared by the evaluators that ask
// for that action and time, or private to one evaluator.
//
// A cache holds one value record per channel node it has computed. Shared caches and private
// caches of modes other than 2 keep the records in per-item slot tables indexed by the item's
// serial; mode 2 keeps them in a map that several threads may read while one adds to it.
// Records come from a thread-safe pool owned by the cache, so a record never moves and a hit
// is a few loads and a flag test.
//
// The scene's time is a node of its own (item null, channel 0): each cache holds its value,
// written when the cache is re-timed, and modifiers that read the time take it from there like
// any other input, so a value that depends on the time is dropped with the animated ones.
#pragma once

#include <vexor/cinema.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "foundation/memory.h"
#include "foundation/value_type.h"

struct Envelope;
struct CineModNode;

namespace vx::eval {

struct EvalData;

// A channel node: an item's channel, or the scene's time node (item null).
struct ChannelKey {
    const CineItem *item = nullptr;
    std::uint32_t channel = 0;
    bool operator==(const ChannelKey &) const = default;
};

struct ChannelKeyHash {
    std::size_t operator()(const ChannelKey &key) const noexcept {
        const auto bits = reinterpret_cast<std::uintptr_t>(key.item);
        return std::hash<std::uintptr_t>()(bits ^
                                           (std::uintptr_t{key.channel} * 0x9E3779B97F4A7C15u));
    }
};

// Flags of a value record.
inline constexpr std::uint8_t kValid = 0x01;
inline constexpr std::uint8_t kStored = 0x04;    // set with kValid whenever a value is stored
inline constexpr std::uint8_t kAnimated = 0x08;  // the value depends on the time
inline constexpr std::uint8_t kModified = 0x10;  // modifier nodes wrote the value

// One channel node's value in one cache. Floating and integer channels keep their value in
// `number`; channels whose value is an object (a matrix, text) keep it in `object`, made on
// first store from the cache's object pool.
//
// A value that depends on the time holds only for the cache time it was stored at: re-timing a
// cache starts a new epoch instead of visiting every record, and an animated record of an older
// epoch is out of date. When its value came straight from an envelope it still knows that
// envelope (nothing has changed where the value comes from, or an event would have cleared the
// valid bit), so bringing it up to date is one envelope evaluation.
struct ValueRecord {
    std::atomic<std::uint8_t> flags{0};
    double number = 0.0;
    value::Value *object = nullptr;
    std::uint64_t epoch = 0;       // the cache's epoch when stored
    Envelope *envelope = nullptr;  // the envelope the value came from, without modifiers
    // The nodes that write the channel, as found in the modifiers' `generation` noted here, so
    // that a value computed again needs no look-up of them (null when none does); the node
    // itself when it is the only one.
    const std::vector<CineModNode *> *writers = nullptr;
    CineModNode *sole_writer = nullptr;
    std::uint64_t writers_generation = 0;

    // A plain load and store, as storing a value does: a locked exchange would cost more
    // than the rest of dropping a cache's values.
    void invalidate() noexcept {
        const std::uint8_t was = flags.load(std::memory_order_relaxed);
        flags.store(static_cast<std::uint8_t>(was & ~kValid), std::memory_order_release);
    }
};

// What a computation produces for a node before it is stored.
struct Computed {
    double number = 0.0;
    const value::Value *object = nullptr;  // for object channels; copied on store
    Envelope *envelope = nullptr;          // when the value is the envelope's, unmodified
    bool animated = false;
    bool modified = false;
};

class Cache {
  public:
    // mode: 0 shared; 2 private with a map; any other private with slot tables.
    Cache(EvalData &data, CineAction *action, double time, std::uint32_t mode);
    ~Cache();
    Cache(const Cache &) = delete;
    Cache &operator=(const Cache &) = delete;

    EvalData &data() const noexcept { return data_; }
    CineAction *action() const noexcept { return action_; }
    double time() const noexcept { return time_; }
    bool is_private() const noexcept { return mode_ != 0; }
    std::uint32_t mode() const noexcept { return mode_; }
    // Unique among the caches of the process, never reused: what a record pointer was found in.
    std::uint64_t serial() const noexcept { return serial_; }
    // Advanced whenever values are dropped or records released: while it holds still, a record
    // found valid and not depending on the time keeps its value.
    std::uint64_t drops() const noexcept { return drops_.load(std::memory_order_acquire); }
    void note_drop() noexcept { drops_.fetch_add(1, std::memory_order_acq_rel); }

    // The record of a node when the cache has one (valid or not); never allocates.
    ValueRecord *find(const ChannelKey &key) const noexcept;
    // The record of a node, made when missing; a record of an object channel is made with its
    // value object beside it, so that reading the value touches one place. Raises
    // std::bad_alloc.
    ValueRecord &record(const ChannelKey &key);
    // Stores a computed value: (flags & ~6) | 5, plus the animated and modified marks.
    void store(ValueRecord &rec, const Computed &value, const ValueType &type);
    // Whether a record holds the node's value at the cache's time.
    bool current(const ValueRecord &rec) const noexcept {
        const std::uint8_t flags = rec.flags.load(std::memory_order_acquire);
        return (flags & kValid) != 0 && ((flags & kAnimated) == 0 || rec.epoch == epoch_);
    }
    // Brings an animated record of an older epoch up to date when its value is an envelope's;
    // returns false when it must be computed again.
    bool refresh(ValueRecord &rec) noexcept;

    // Makes the cache hold values for another time: the values that depend on the time are
    // dropped and the time node gets the new time. Nothing happens when the time is the same
    // and the time node is still valid.
    void retime(double time);
    // Holds values for another action from now on: every value is dropped.
    void switch_action(CineAction *action) noexcept;
    // Drops every value, or those of one node and of every node written by modifiers.
    void invalidate_all() noexcept;
    void invalidate_channel(const ChannelKey &key) noexcept;
    // Takes the records of an item out of the cache (the item is going away).
    void forget_item(const CineItem &item) noexcept;

    const ValueRecord &time_record() const noexcept { return time_record_; }
    std::size_t live_records() const noexcept { return records_.live() + object_records_.live(); }

    // Shared caches: evaluators attached; the in-use flag is set while any is.
    std::int32_t refs = 0;
    bool in_use = false;
    bool primed = false;

  private:
    // The records of one item, by channel index; null where nothing was computed yet.
    struct ItemSlots {
        const CineItem *item = nullptr;
        std::vector<ValueRecord *> records;
    };
    template <class Fn>
    void for_each_record(Fn &&fn) noexcept;
    void release_record(ValueRecord *rec) noexcept;

    EvalData &data_;
    CineAction *action_;
    double time_;
    std::uint64_t epoch_ = 1;  // advanced by every re-timing
    std::uint32_t mode_;
    std::uint64_t serial_;
    std::atomic<std::uint64_t> drops_{0};
    BlockPoolMT records_;
    BlockPoolMT object_records_;  // a record followed by its value object
    BlockPoolMT objects_;
    ValueRecord time_record_;
    std::vector<ItemSlots> slots_;  // by item serial (modes other than 2)
    mutable std::shared_mutex map_lock_;
    std::unordered_map<ChannelKey, ValueRecord *, ChannelKeyHash> map_;  // mode 2
};

}  // namespace vx::eval
