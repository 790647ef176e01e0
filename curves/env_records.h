// The edit records of envelopes: what each undoable envelope edit keeps, and its apply and
// release steps. Every apply step raises the envelope's change note, so undo and redo are
// heard exactly as the first application.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "curves/envelope.h"
#include "foundation/memory.h"
#include "foundation/undo.h"

namespace vx::env {

// Keys held outside any envelope by an edit, in their list order. The chain owns the keys it
// holds: a record whose keys are out of the envelope when it is dropped frees them so.
struct KeyChain {
    EnvKey *first = nullptr;
    EnvKey *last = nullptr;

    KeyChain() = default;
    KeyChain(const KeyChain &) = delete;
    KeyChain &operator=(const KeyChain &) = delete;
    ~KeyChain() { free_all(); }

    void push_back(EnvKey *key) noexcept {
        key->pred = last;
        key->succ = nullptr;
        (last != nullptr ? last->succ : first) = key;
        last = key;
    }
    // Moves every key of the envelope into the chain, announcing each removal when asked.
    void take_all(Envelope &env, bool announce) noexcept {
        while (EnvKey *key = first_key(env)) {
            if (announce) notify(env, ENV_NOTE_REMOVE, key);
            unlink(env, key);
            push_back(key);
        }
    }
    // Appends the chain's keys to the envelope, in order, and empties the chain.
    void give_all(Envelope &env) noexcept {
        EnvKey *key = first;
        first = last = nullptr;
        while (key != nullptr) {
            EnvKey *next = key->succ;
            append(env, key);
            key = next;
        }
    }
    void free_all() noexcept {
        while (first != nullptr) free_key(std::exchange(first, first->succ));
        last = nullptr;
    }
};

// Keys that a cut record keeps for undo, counted per record, so that a paste can tell a key it
// may adopt from one it must copy (env_key_edits.cpp). Holding raises std::bad_alloc.
void hold_cut_key(const EnvKey *key);
void drop_cut_key(const EnvKey *key) noexcept;
bool is_cut_key(const EnvKey *key) noexcept;

// Inserts a key or removes it, by direction. `forward_inserts` says which one direction 1
// is. The key is freed with the record when the record is dropped while the key is out.
// `note_key` adds the whole-envelope note of cuts and pastes (with the key). A record made
// with `owns_key` false (a paste of the caller's key, before it is handed over) leaves the key
// alone when dropped; a cut record tells the cut-key count that it lets go of its key.
struct KeyLink {
    Envelope *env;
    EnvKey *key;
    bool forward_inserts;
    bool note_key;  // cut and paste name the key in their whole-envelope note
    bool owns_key = true;

    void apply(int direction) noexcept {
        if ((direction != 0) == forward_inserts) {
            insert_sorted(*env, key);
            notify(*env, ENV_NOTE_INSERT, key);
            if (note_key) notify(*env, ENV_NOTE_ENVELOPE, key);
        } else {
            notify(*env, ENV_NOTE_REMOVE, key);
            unlink(*env, key);
            if (!forward_inserts || note_key) {
                notify(*env, ENV_NOTE_ENVELOPE, note_key ? key : nullptr);
            }
        }
        UndoNewCode(direction == 0 ? 1 : 0);
    }
    void release(int state) noexcept {
        if (!forward_inserts && note_key) drop_cut_key(key);
        const bool key_out = (state == 0) != forward_inserts;
        if (key_out && owns_key) free_key(key);
    }
};

// Swaps a side's value slot. With `active` the side is chosen as the key's value is: side 1
// when it has a value break and side 1 is active, else side 0.
struct ValueSwap {
    Envelope *env;
    EnvKey *key;
    int side;
    bool active;
    EnvValue value;

    void apply(int) noexcept {
        const int s = active ? ((key->flags & (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)) ==
                                        (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)
                                    ? 1
                                    : 0)
                             : side;
        std::swap(key->side[s].value, value);
        notify(*env, ENV_NOTE_KEY, key);
    }
};

// Swaps one field of a side: its slope, its weight, or its weight-type bit.
struct SideFieldSwap {
    enum Field { slope, weight, weight_type };
    Envelope *env;
    EnvKey *key;
    int side;
    Field field;
    double value;        // slope or weight
    std::uint32_t bits;  // the weight-type bit

    void apply(int) noexcept {
        EnvKeySide &s = key->side[side];
        switch (field) {
            case slope:
                std::swap(s.slope, value);
                break;
            case weight:
                std::swap(s.weight, value);
                break;
            case weight_type: {
                const std::uint32_t old = s.flags & ENV_WEIGHT_MANUAL;
                s.flags = (s.flags & ~ENV_WEIGHT_MANUAL) | bits;
                bits = old;
                break;
            }
        }
        notify(*env, ENV_NOTE_KEY, key);
    }
};

// Swaps the slope type, slope and weight of the sides in `sides` (bit 0 side 0, bit 1 side 1).
struct SlopeTypeSwap {
    Envelope *env;
    EnvKey *key;
    std::uint32_t sides;
    std::uint32_t type[2];
    double slope[2];
    double weight[2];

    void apply(int) noexcept {
        for (int s = 0; s < 2; ++s) {
            if ((sides & (1u << s)) == 0) continue;
            EnvKeySide &side = key->side[s];
            const std::uint32_t old = side.flags & kSlopeTypeMask;
            side.flags = (side.flags & ~kSlopeTypeMask) | (type[s] & kSlopeTypeMask);
            type[s] = old;
            std::swap(side.slope, slope[s]);
            std::swap(side.weight, weight[s]);
        }
        notify(*env, ENV_NOTE_KEY, key);
    }
};

// Breaks (direction 1) or unifies (direction 0) one aspect of a key: side 1 swaps the broken
// aspect's fields with the record, which starts out holding side 0's.
struct BreakSwap {
    Envelope *env;
    EnvKey *key;
    std::uint32_t bit;
    double value;  // an integer value widened
    std::uint32_t slope_type;
    double slope;
    std::uint32_t weight_bit;
    double weight;

    void apply(int direction) noexcept {
        EnvKeySide &s1 = key->side[1];
        if (bit == ENV_BREAK_VALUE) {
            if (env->type == kTypeInt) {
                const int old = s1.value.i;
                s1.value.i = static_cast<int>(value);
                value = old;
            } else {
                std::swap(s1.value.f, value);
            }
        } else if (bit == ENV_BREAK_SLOPE) {
            const std::uint32_t old = s1.flags & kSlopeTypeMask;
            s1.flags = (s1.flags & ~kSlopeTypeMask) | slope_type;
            slope_type = old;
            std::swap(s1.slope, slope);
        } else {
            const std::uint32_t old = s1.flags & ENV_WEIGHT_MANUAL;
            s1.flags = (s1.flags & ~ENV_WEIGHT_MANUAL) | weight_bit;
            weight_bit = old;
            std::swap(s1.weight, weight);
        }
        if (direction != 0) {
            key->flags |= bit;
        } else {
            key->flags &= ~bit;
        }
        notify(*env, ENV_NOTE_KEY, key);
        UndoNewCode(direction == 0 ? 1 : 0);
    }
};

// Moves a key to the record's time and keeps the old one (swap). Used by time changes and by
// quantising; `reorder` lets the key pass its neighbours.
struct TimeMove {
    Envelope *env;
    EnvKey *key;
    double time;
    std::uint32_t reorder;
    bool structural;  // quantising announces a structure change

    void apply(int direction) noexcept;
};

// A whole-envelope change of one setting (pre or post behaviour, or interpolation), swapped.
struct SettingSwap {
    enum Which { pre, post, interpolation };
    Envelope *env;
    Which which;
    std::uint32_t value;

    void apply(int) noexcept;
};

// Every key of an envelope taken out (direction 1) or put back (direction 0).
struct ClearKeys {
    Envelope *env;
    bool announce;
    KeyChain removed;

    void apply(int direction) noexcept {
        if (direction != 0) {
            removed.take_all(*env, announce);
        } else {
            removed.give_all(*env);
        }
        if (announce) notify(*env, ENV_NOTE_ENVELOPE, nullptr);
        UndoNewCode(direction == 0 ? 1 : 0);
    }
};

// Copies of another envelope's keys and settings put into an (empty) envelope, or taken out.
struct CopyKeys {
    Envelope *dst;
    std::uint32_t pre;
    std::uint32_t post;
    std::uint32_t interpolation;
    KeyChain copies;

    void apply(int direction) noexcept {
        std::swap(dst->pre_behavior, pre);
        std::swap(dst->post_behavior, post);
        std::swap(dst->interpolation, interpolation);
        if (direction != 0) {
            copies.give_all(*dst);
        } else {
            copies.take_all(*dst, true);
        }
        notify(*dst, ENV_NOTE_ENVELOPE, nullptr);
        UndoNewCode(direction == 0 ? 1 : 0);
    }
};

// The destruction of an envelope: nothing changes until the record is dropped in effect.
struct DestroyEnvelope {
    Envelope *env;
    void apply(int direction) noexcept { UndoNewCode(direction == 0 ? 1 : 0); }
    void release(int state) noexcept;
};

// Heap arrays owned by a record, sized at preparation.
template <class T>
struct RecordArray {
    T *items = nullptr;
    std::size_t count = 0;

    void allocate(std::size_t n) {
        items = static_cast<T *>(StdAlloc(n * sizeof(T)));
        count = n;
    }
    ~RecordArray() {
        if (items != nullptr) FreeHeap(items, count * sizeof(T));
    }
    RecordArray() = default;
    RecordArray(const RecordArray &) = delete;
    RecordArray &operator=(const RecordArray &) = delete;
    T &operator[](std::size_t i) noexcept { return items[i]; }
};

// New times for a set of keys, swapped in; the list is put back in time order afterwards.
struct KeyTimes {
    Envelope *env;
    RecordArray<EnvKey *> keys;
    RecordArray<double> times;

    void apply(int direction) noexcept;
};

// New values (both sides) for a set of keys, swapped in.
struct KeyValues {
    Envelope *env;
    RecordArray<EnvKey *> keys;
    RecordArray<EnvValue> values;  // two per key: side 0, side 1

    void apply(int) noexcept {
        for (std::size_t i = 0; i < keys.count; ++i) {
            std::swap(keys[i]->side[0].value, values[2 * i]);
            std::swap(keys[i]->side[1].value, values[2 * i + 1]);
        }
        notify(*env, ENV_NOTE_ENVELOPE, nullptr);
    }
};

// A set of keys taken out of an envelope (direction 1) or put back (direction 0). The keys
// are freed with the record when it is dropped in effect.
struct KeySetRemoval {
    Envelope *env;
    RecordArray<EnvKey *> keys;

    void apply(int direction) noexcept {
        if (direction != 0) {
            for (std::size_t i = 0; i < keys.count; ++i) {
                notify(*env, ENV_NOTE_REMOVE, keys[i]);
                unlink(*env, keys[i]);
            }
            notify(*env, ENV_NOTE_ENVELOPE, nullptr);
        } else {
            for (std::size_t i = keys.count; i-- > 0;) {
                insert_sorted(*env, keys[i]);
                notify(*env, ENV_NOTE_INSERT, keys[i]);
            }
        }
        UndoNewCode(direction == 0 ? 1 : 0);
    }
    void release(int state) noexcept {
        if (state == 0) {
            for (std::size_t i = 0; i < keys.count; ++i) free_key(keys[i]);
        }
    }
};

// Puts the key list back in time order (a stable insertion sort: the list is nearly sorted).
void sort_keys(Envelope &env) noexcept;

}  // namespace vx::env
