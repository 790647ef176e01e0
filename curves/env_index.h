// The lookup index of an envelope: its keys and their times in one sorted array beside the
// linked list, so that a lookup at an arbitrary time is a binary search instead of a walk, and
// beside them what evaluation reads of each segment between two keys (its shape, end values,
// slopes or Bezier cubics), so that a read touches the index and no key.
//
// The index is built lazily by the first evaluation or lookup after a change of the envelope
// (it is stamped with the envelope's edit and change counts), only for envelopes with enough
// keys to be worth it. Building may allocate; when it cannot, lookups fall back to the linked
// walk and evaluation to reading the keys, and both still answer correctly. Lookups never fail
// and allocate nothing once the index is current.
#pragma once

#include <cstddef>
#include <cstdint>

#include "curves/env_edits.h"

namespace vx::env {

// How a float envelope's curve runs from one key to the next.
enum class SegmentShape : std::uint8_t { held, line, hermite, bezier };

// What evaluation reads of key i and the segment from it to key i + 1, in one cache line: the
// two keys' times (the last key's next time is infinite), the key's active value (what the
// curve is at the key itself), the value the segment starts from (for a held segment, the
// value it holds) and, by shape, line {end value} or Hermite {end value, start slope, end
// slope}. A Bezier segment's cubics are in the index's `beziers`.
struct alignas(64) SegmentData {
    double k_time;
    double n_time;
    double active;
    double start;
    double coef[3];
    SegmentShape shape;
};

// The time and value cubics of a weighted segment, {ax, bx, cx} and {ay, by, cy}, whose
// constant terms are the key's time and the segment's start; and where to start looking for
// the parameter at a time: the cubic in the time's fraction f of the span through the
// parameters at f = 0, 1/3, 2/3 and 1, f·(g0 + (f − 1/3)·(g1 + (f − 2/3)·g2)).
struct BezierData {
    double x[3];
    double y[3];
    double guess[3];
    double inverse_span;
};

// The index: the keys and their times in list order, a bucket table over the keyed time range
// that narrows a search to the few keys of one bucket, and the segments. One heap block holds
// the header and the arrays.
struct LookupIndex {
    std::size_t capacity;  // entries the block has room for
    std::size_t count;     // keys indexed
    std::size_t buckets;   // cells of the bucket table; 0 when there is none
    double origin;         // the first key's time
    double scale;          // buckets per second
    double *times;
    EnvKey **keys;
    std::uint32_t *bucket_start;  // buckets + 1 entries: keys in the cells before each cell
    SegmentData *segments;        // one per key, filled for evaluation
    BezierData *beziers;          // one per key, filled for weighted segments
};

// Envelopes with fewer keys than this are searched by walking the list from the lookup cache.
inline constexpr std::size_t kIndexMinKeys = 8;

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

// Whether the index is current (built, and no edit or change since).
inline bool index_current(const Envelope &env) noexcept {
    return env.index_stamp == revision(env) + 1;
}

// The bucket of a time. Monotone in the time (a NaN goes to bucket 0), and computed the same
// way when building and searching, so a key's bucket is never above that of a later time.
inline std::size_t bucket_of(const LookupIndex &index, double time) noexcept {
    const double cell = (time - index.origin) * index.scale;
    const double last = static_cast<double>(index.buckets - 1);
    if (!(cell > 0.0)) return 0;
    return cell < last ? static_cast<std::size_t>(cell) : index.buckets - 1;
}

// Keys in [from, from + len) not later than the limit, by a binary search without branches on
// the comparisons (random times would mispredict half of them).
inline std::size_t count_not_later(const double *times, std::size_t from, std::size_t len,
                                   double limit) noexcept {
    if (len == 0) return from;
    const double *base = times + from;
    while (len > 1) {
        const std::size_t half = len / 2;
        base += half & (std::size_t{0} - static_cast<std::size_t>(base[half - 1] <= limit));
        len -= half;
    }
    return static_cast<std::size_t>(base - times) + (base[0] <= limit ? 1 : 0);
}

// The number of keys not later than `limit`: the index of the key after it.
inline std::size_t keys_not_later(const LookupIndex &index, double limit) noexcept {
    if (index.buckets == 0) return count_not_later(index.times, 0, index.count, limit);
    const std::size_t b = bucket_of(index, limit);
    const std::size_t lo = index.bucket_start[b];
    return count_not_later(index.times, lo, index.bucket_start[b + 1] - lo, limit);
}

}  // namespace vx::env
