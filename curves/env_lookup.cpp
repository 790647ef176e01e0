// Key lookup by time. The envelope caches the key found last and its successor, so playback,
// which asks for nearby times in order, walks at most a key or two per lookup.
#include "curves/env_edits.h"
#include "curves/env_index.h"

namespace vx::env {

Found find(Envelope &env, double time) noexcept {
    EnvKey *first = first_key(env);
    if (first == nullptr || first->time - time > kTolerance) return Found{nullptr, first};
    EnvKey *last = last_key(env);
    if (last == nullptr || last->time <= time + kTolerance) return Found{last, nullptr};
    // Evaluation keeps an index beside the list; lookups use it while it is current but never
    // build it, so that edits, which look keys up, allocate nothing for it.
    if (index_current(env)) return find_indexed(env, time);

    // The answer lies strictly inside the keys: start from the cached key when it is usable.
    EnvKey *key = env.lookup_key != nullptr ? env.lookup_key : first;
    while (key->time > time + kTolerance) {
        EnvKey *prev = prev_key(key);
        if (prev == nullptr) break;
        key = prev;
    }
    for (EnvKey *next = next_key(key); next != nullptr && next->time <= time + kTolerance;
         next = next_key(key)) {
        key = next;
    }
    env.lookup_key = key;
    env.lookup_next = next_key(key);
    return Found{key, env.lookup_next};
}

EnvKey *get_key(Envelope &env, double time) noexcept {
    const Found found = find(env, time);
    // Keys lie at least the tolerance apart, so only the found key or the one before it can
    // lie within the tolerance of the time.
    EnvKey *best = nullptr;
    for (EnvKey *key = found.at_or_before; key != nullptr; key = prev_key(key)) {
        const double distance = key->time > time ? key->time - time : time - key->time;
        if (distance < kTolerance) {
            if (best == nullptr ||
                distance < (best->time > time ? best->time - time : time - best->time)) {
                best = key;
            }
        } else if (key->time < time) {
            break;
        }
    }
    return best;
}

EnvKey *next_key_after(Envelope &env, double time) noexcept {
    return find(env, time).after;
}

EnvKey *prev_key_before(Envelope &env, double time) noexcept {
    EnvKey *key = find(env, time).at_or_before;
    while (key != nullptr && time - key->time <= kTolerance) key = prev_key(key);
    return key;
}

}  // namespace vx::env
