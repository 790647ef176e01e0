// The lookup index of an envelope: its keys and their times in one sorted array beside the
// linked list, so that a lookup at an arbitrary time is a binary search instead of a walk.
//
// The index is built lazily by the first lookup after an edit that changed the list or a key's
// time (it is stamped with the envelope's edit count), only for envelopes with enough keys to
// be worth it. Building may allocate; when it cannot, lookups fall back to the linked walk and
// still answer correctly. Lookups never fail and allocate nothing once the index is current.
#pragma once

#include <cstddef>

#include "curves/env_edits.h"

namespace vx::env {

// Envelopes with fewer keys than this are searched by walking the list from the lookup cache.
inline constexpr std::size_t kIndexMinKeys = 16;

// The key at or before the time (the last key not later than the time by more than the
// tolerance) and the key after it, either possibly null; the answer is also stored in the
// envelope's lookup cache. Uses the index when the envelope has one or can build one, else
// walks the list from the cached keys.
Found find_indexed(Envelope &env, double time) noexcept;

// Brings the index up to date now, outside any hot path. False when the envelope is too small
// for an index or the memory for it could not be had (lookups then walk the list).
bool build_index(Envelope &env) noexcept;

// Makes sure the index has room for `keys` keys, so that the evaluation after an edit that
// brings the envelope to that many only refills it. Called by the edits that add keys, before
// they change anything; raises std::bad_alloc. Room grows geometrically, so adding keys one by
// one stays linear.
void reserve_index(Envelope &env, std::size_t keys);

// Releases the index; the envelope stays usable (a later lookup may build it again). Must be
// called before the envelope's memory is freed.
void drop_index(Envelope &env) noexcept;

// Whether the index is current (built, and no edit since).
inline bool index_current(const Envelope &env) noexcept {
    return env.index_stamp == env.edits + 1;
}

}  // namespace vx::env
