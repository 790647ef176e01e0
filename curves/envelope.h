// The envelope record and the primitives on its key list, shared by every envelope source.
//
// The key list keeps the public header layout (head, a null tail word, tail-predecessor), so
// the header's own words act as the end nodes of the walk. Code here never dereferences the
// header as a key: links are read and written through link_of/set_link, which touch only the
// pointer-sized words that the header really has.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vexor/env.h>

#include "foundation/port.h"
#include "foundation/time.h"

namespace vx::env {
struct LookupIndex;
struct SegmentData;
}  // namespace vx::env

struct Envelope {
    void *data;
    Port *port;
    std::uint32_t type;  // 0 float, 1 integer
    std::uint32_t interpolation;
    std::uint32_t pre_behavior;
    std::uint32_t post_behavior;
    std::uint64_t edits;    // bumped by every structural change and key time change
    std::uint64_t changes;  // bumped by every other change that can alter the curve
    // Evaluation's hold on the index's segments (curves/env_evaluate.cpp), kept beside the
    // counts it is checked against so that a read during playback touches this line and one
    // segment: current while eval_stamp == revision + 1 and eval_loose == loose_key_writes().
    std::uint64_t eval_stamp;
    std::uint64_t eval_loose;
    const vx::env::SegmentData *eval_segments;
    std::size_t eval_count;   // keys indexed
    std::size_t eval_cursor;  // keys not later than the time evaluated last
    EnvKeyList keys;
    EnvKey *lookup_key;   // cache: the key found at or before the last time looked up
    EnvKey *lookup_next;  // cache: the key after it
    std::size_t linked;   // keys in the list
    // Lookup index beside the list (curves/env_index.cpp), built lazily; current while
    // index_stamp == revision + 1. Owned by the envelope: vx::env::drop_index releases it and
    // must run wherever the envelope is freed.
    vx::env::LookupIndex *index;
    std::uint64_t index_stamp;
    std::uint64_t index_skipped;  // revision + 1 when no index is to be built at that revision
    // Where the last weighted segment was solved (curves/env_evaluate.cpp): its key, the time,
    // the parameter found and the time cubic's slope there, current while solved_edits ==
    // revision. Only a starting guess for the next solve of the same segment, never the answer.
    const EnvKey *solved_key;
    std::uint64_t solved_edits;
    double solved_time;
    double solved_u;
    double solved_slope;
};

namespace vx::env {

inline constexpr double kTolerance = kTimeSameTolerance;
inline constexpr std::uint32_t kTypeFloat = 0;
inline constexpr std::uint32_t kTypeInt = 1;
inline constexpr std::uint32_t kBrokenMask = 0xFFFF;
inline constexpr std::uint32_t kSlopeTypeMask = 0xFF;

// The link words of a list node, read and written as raw words so that the header's words
// can end a walk without being taken for a key.
inline EnvKey *link_of(const void *node, std::size_t word) noexcept {
    EnvKey *link;
    std::memcpy(&link, static_cast<const unsigned char *>(node) + word * sizeof(EnvKey *),
                sizeof link);
    return link;
}
inline void set_link(void *node, std::size_t word, EnvKey *link) noexcept {
    std::memcpy(static_cast<unsigned char *>(node) + word * sizeof(EnvKey *), &link, sizeof link);
}
inline constexpr std::size_t kSucc = 0;
inline constexpr std::size_t kPred = 1;

// The header's end nodes, as addresses only.
inline EnvKey *head_node(EnvKeyList &list) noexcept {
    return reinterpret_cast<EnvKey *>(&list.head);
}
inline EnvKey *tail_node(EnvKeyList &list) noexcept {
    return reinterpret_cast<EnvKey *>(&list.tail);
}

inline void list_init(EnvKeyList &list) noexcept {
    list.head = tail_node(list);
    list.tail = nullptr;
    list.tailPred = head_node(list);
}

inline EnvKey *first_key(const Envelope &env) noexcept {
    EnvKey *head = env.keys.head;
    return link_of(head, kSucc) != nullptr ? head : nullptr;
}
inline EnvKey *last_key(const Envelope &env) noexcept {
    EnvKey *last = env.keys.tailPred;
    return link_of(last, kPred) != nullptr ? last : nullptr;
}
// The neighbours of a key in its list; null at the ends and for a key in no list.
inline EnvKey *next_key(const EnvKey *key) noexcept {
    EnvKey *next = key->succ;
    return next != nullptr && link_of(next, kSucc) != nullptr ? next : nullptr;
}
inline EnvKey *prev_key(const EnvKey *key) noexcept {
    EnvKey *prev = key->pred;
    return prev != nullptr && link_of(prev, kPred) != nullptr ? prev : nullptr;
}
inline bool is_empty(const Envelope &env) noexcept {
    return first_key(env) == nullptr;
}

// Counts every change of the envelope's keys or settings; what evaluation keeps beside the
// keys holds while it stands still. Edits count through notify(); writes that send no note
// call mark_changed().
inline std::uint64_t revision(const Envelope &env) noexcept {
    return env.edits + env.changes;
}
inline void mark_changed(Envelope &env) noexcept {
    ++env.changes;
}

// Writes to a key that the envelope does not see (the raw writers given a key alone). Those
// that touch what the curve is made of (break and active bits of the key's flags, slope type
// or weight bits of a side's flags, a side's weight) count for every envelope, and drop what
// evaluation keeps beside the keys of each.
void note_loose_key_write(std::uint32_t key_bits, std::uint32_t side_bits) noexcept;
extern std::atomic<std::uint64_t> g_loose_key_writes;
inline std::uint64_t loose_key_writes() noexcept {
    return g_loose_key_writes.load(std::memory_order_relaxed);
}

// Structural changes. Each empties the lookup cache and counts as an edit.
void insert_after(Envelope &env, EnvKey *after, EnvKey *key) noexcept;  // after null: at head
void append(Envelope &env, EnvKey *key) noexcept;
// After the last key whose time is not later than the key's time.
void insert_sorted(Envelope &env, EnvKey *key) noexcept;
void unlink(Envelope &env, EnvKey *key) noexcept;
void reset_cache(Envelope &env) noexcept;
inline std::size_t key_count(const Envelope &env) noexcept {
    return env.linked;
}

// Counts a change of the envelope and sends a change note to its port, if it has one. Every
// edit calls it from its apply step, also with the port cleared.
void notify(Envelope &env, std::uint32_t code, EnvKey *key) noexcept;

// The side an operation aimed at `side` really reaches: side 1 only on a broken key.
inline int reached_side(const EnvKey *key, int side) noexcept {
    return side == 1 && (key->flags & kBrokenMask) != 0 ? 1 : 0;
}

// A new key at a time, zero-filled; raises std::bad_alloc. Freed with free_key.
EnvKey *new_key(double time);
void free_key(EnvKey *key) noexcept;

}  // namespace vx::env
