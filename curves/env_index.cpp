#include "curves/env_index.h"

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <new>

#include "foundation/memory.h"

namespace vx::env {

namespace {

std::size_t block_bytes(std::size_t capacity) noexcept {
    return sizeof(LookupIndex) + capacity * (sizeof(double) + sizeof(EnvKey *)) +
           (capacity + 1) * sizeof(std::uint32_t) + alignof(SegmentData) +
           capacity * (sizeof(SegmentData) + sizeof(BezierData));
}

bool same_bits(double a, double b) noexcept {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

void fill_buckets(LookupIndex &index) noexcept {
    index.buckets = 0;
    const std::size_t count = index.count;
    if (count > std::numeric_limits<std::uint32_t>::max()) return;
    index.origin = index.times[0];
    const double span = index.times[count - 1] - index.origin;
    const double scale = static_cast<double>(count) / span;
    if (!(span > 0.0) || !(scale < std::numeric_limits<double>::infinity())) return;
    index.scale = scale;
    index.buckets = count;
    std::size_t at = 0;
    for (std::size_t b = 0; b <= index.buckets; ++b) {
        while (at < count && bucket_of(index, index.times[at]) < b) ++at;
        index.bucket_start[b] = static_cast<std::uint32_t>(at);
    }
}

Found remember(Envelope &env, EnvKey *key) noexcept {
    env.lookup_key = key;
    env.lookup_next = next_key(key);
    return Found{key, env.lookup_next};
}

// The answer from the index, checked against the list: keys that moved, or neighbours that are
// no longer linked as recorded, mean the list changed behind the edit count, and the caller
// rebuilds.
bool search(Envelope &env, double time, Found &found) noexcept {
    const LookupIndex &index = *env.index;
    const std::size_t count = index.count;
    const double *times = index.times;
    const double limit = time + kTolerance;
    const std::size_t at = keys_not_later(index, limit);
    // The segment's value reads the keys either side of it too (automatic slopes): ask for all
    // four at once rather than reaching each through its neighbour's link.
    for (std::size_t i = at > 2 ? at - 2 : 0, end = at + 2 < count ? at + 2 : count; i < end; ++i) {
        const char *record = reinterpret_cast<const char *>(index.keys[i]);
        __builtin_prefetch(record);
        __builtin_prefetch(record + sizeof(EnvKey) - 1);
    }
    EnvKey *key = at > 0 ? index.keys[at - 1] : nullptr;
    EnvKey *next = at < count ? index.keys[at] : nullptr;
    if (key != nullptr) {
        if (!same_bits(key->time, times[at - 1]) || !(key->time <= limit)) return false;
        if (next != nullptr ? key->succ != next : env.keys.tailPred != key) return false;
    } else if (env.keys.head != next) {
        return false;
    }
    if (next != nullptr && (!same_bits(next->time, times[at]) || next->time <= limit)) {
        return false;
    }
    found = Found{key, next};
    return true;
}

// The lookup without an index: bracket the time between the first and last key, narrow the
// bracket with the cached keys, then walk inward from both ends in step.
Found walk(Envelope &env, double time) noexcept {
    EnvKey *first = first_key(env);
    if (first == nullptr || first->time - time > kTolerance) return Found{nullptr, first};
    const double limit = time + kTolerance;
    EnvKey *last = last_key(env);
    if (last == nullptr) return Found{nullptr, first};  // not a list: no key is after another
    if (last->time <= limit) return remember(env, last);

    // low is never later than the time, high always is.
    EnvKey *low = first;
    EnvKey *high = last;
    for (EnvKey *cached : {env.lookup_key, env.lookup_next}) {
        if (cached == nullptr) continue;
        if (cached->time > limit) {
            if (cached->time < high->time) high = cached;
        } else if (cached->time > low->time) {
            low = cached;
        }
    }
    for (;;) {
        EnvKey *after_low = next_key(low);
        if (after_low == nullptr || after_low->time > limit) return remember(env, low);
        low = after_low;
        EnvKey *before_high = prev_key(high);
        if (before_high == nullptr) return remember(env, low);
        if (before_high->time <= limit) return remember(env, before_high);
        high = before_high;
    }
}

Found answer(Envelope &env, const Found &found) noexcept {
    if (found.at_or_before != nullptr) {
        env.lookup_key = found.at_or_before;
        env.lookup_next = found.after;
    }
    return found;
}

// A new, empty index block with room for `capacity` keys, in place of the old one.
void replace_block(Envelope &env, void *block, std::size_t capacity) noexcept {
    drop_index(env);
    auto *index = new (block) LookupIndex{};
    index->capacity = capacity;
    index->times = reinterpret_cast<double *>(index + 1);
    index->keys = reinterpret_cast<EnvKey **>(index->times + capacity);
    index->bucket_start = reinterpret_cast<std::uint32_t *>(index->keys + capacity);
    const auto segments = reinterpret_cast<std::uintptr_t>(index->bucket_start + capacity + 1);
    const std::uintptr_t align = alignof(SegmentData);
    index->segments = reinterpret_cast<SegmentData *>((segments + align - 1) & ~(align - 1));
    index->beziers = reinterpret_cast<BezierData *>(index->segments + capacity);
    env.index = index;
}

std::size_t grown_capacity(const Envelope &env, std::size_t keys) noexcept {
    const std::size_t doubled = env.index != nullptr ? 2 * env.index->capacity : 2 * kIndexMinKeys;
    return keys > doubled ? keys : doubled;
}

}  // namespace

void reserve_index(Envelope &env, std::size_t keys) {
    if (keys < kIndexMinKeys || (env.index != nullptr && env.index->capacity >= keys)) return;
    const std::size_t capacity = grown_capacity(env, keys);
    replace_block(env, StdAlloc(block_bytes(capacity)), capacity);
}

bool build_index(Envelope &env) noexcept {
    if (index_current(env)) return true;
    const std::uint64_t stamp = revision(env) + 1;
    const std::size_t count = key_count(env);
    if (count < kIndexMinKeys) {
        env.index_skipped = stamp;
        return false;
    }
    if (env.index == nullptr || count > env.index->capacity) {
        // Only when keys came by a way that did not reserve room (edits do).
        const std::size_t capacity = grown_capacity(env, count);
        void *block = nullptr;
        try {
            block = StdAlloc(block_bytes(capacity));
        } catch (const std::bad_alloc &) {
            env.index_skipped = stamp;
            return false;
        }
        replace_block(env, block, capacity);
    }
    LookupIndex &index = *env.index;
    std::size_t at = 0;
    for (EnvKey *key = first_key(env); key != nullptr; key = next_key(key), ++at) {
        index.times[at] = key->time;
        index.keys[at] = key;
    }
    index.count = count;
    env.eval_stamp = 0;  // the segments are filled again from the keys as they are now
    fill_buckets(index);
    env.index_stamp = stamp;
    return true;
}

void drop_index(Envelope &env) noexcept {
    if (env.index != nullptr) FreeHeap(env.index, block_bytes(env.index->capacity));
    env.index = nullptr;
    env.index_stamp = 0;
    env.eval_stamp = 0;
    env.index_skipped = 0;
}

Found find_indexed(Envelope &env, double time) noexcept {
    if (!index_current(env) && env.index_skipped != revision(env) + 1) build_index(env);
    if (index_current(env)) {
        Found found{};
        if (search(env, time, found)) return answer(env, found);
        // The list changed without the edit count knowing: rebuild from it once.
        env.index_stamp = 0;
        if (build_index(env) && search(env, time, found)) return answer(env, found);
    }
    return walk(env, time);
}

}  // namespace vx::env
