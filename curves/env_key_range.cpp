// Edits of many keys at once: shifting, scaling and rippling times, moving and scaling chosen
// keys, deleting a time range, shifting and scaling values. Keys stay in time order and never
// within the time tolerance of each other: a key that a moved key lands on is deleted, the
// moved key winning, as when a single key is moved onto another.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "curves/env_checks.h"
#include "curves/env_edits.h"
#include "curves/env_range.h"
#include "curves/env_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"

namespace vx::env {

namespace {

void require_scale(double scale) {
    if (!std::isfinite(scale) || scale <= 0.0) fail(rc::bad_argument, "a scale must be above 0");
}

struct Placement {
    EnvKey *key;
    double time;  // where the key will stand
    bool moving;
    bool removed;
};

// Plans where every key goes and which keys must go, then makes it one step: the removals
// and the new times are both prepared before either is applied.
template <class Moving, class NewTime, class Swept>
void move_keys(Envelope &env, Moving moving, NewTime new_time, Swept swept, bool form_a) {
    std::vector<Placement> plan;
    for (EnvKey *key = first_key(env); key != nullptr; key = next_key(key)) {
        const bool moves = moving(key);
        plan.push_back({key, moves ? new_time(key->time) : key->time, moves, !moves && swept(key)});
    }
    std::vector<Placement *> order;
    for (Placement &p : plan) {
        if (!p.removed) order.push_back(&p);
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const Placement *a, const Placement *b) { return a->time < b->time; });
    Placement *kept = nullptr;
    for (Placement *p : order) {
        if (kept != nullptr && p->time - kept->time < kTolerance) {
            if (!kept->moving && p->moving) {
                kept->removed = true;
                kept = p;
            } else {
                p->removed = true;
            }
        } else {
            kept = p;
        }
    }

    std::size_t removed = 0;
    std::size_t moved = 0;
    for (const Placement &p : plan) {
        if (p.removed) {
            ++removed;
        } else if (p.moving && p.time != p.key->time) {
            ++moved;
        }
    }
    if (removed == 0 && moved == 0) return;

    EditTransaction transaction;
    UndoBlock block;
    std::optional<Edit<KeySetRemoval>> removal;
    std::optional<Edit<KeyTimes>> times;
    if (removed > 0) {
        removal.emplace(&env);
        (*removal)->keys.allocate(removed);
    }
    if (moved > 0) {
        times.emplace(&env);
        (*times)->keys.allocate(moved);
        (*times)->times.allocate(moved);
    }
    std::size_t r = 0;
    std::size_t m = 0;
    for (const Placement &p : plan) {
        if (p.removed) {
            (*removal)->keys[r++] = p.key;
        } else if (p.moving && p.time != p.key->time) {
            (*times)->keys[m] = p.key;
            (*times)->times[m++] = p.time;
        }
    }
    if (removal) removal->hand_over(1);
    if (times) {
        if (form_a) {
            times->apply_then_record(0);
        } else {
            times->hand_over(1);
        }
    }
}

bool never(const EnvKey *) {
    return false;
}

// The chosen keys, checked to be keys of this envelope, each once.
std::vector<EnvKey *> chosen_keys(Envelope &env, EnvKey *const *keys, int count) {
    if (count < 0 || (count > 0 && keys == nullptr)) fail(rc::bad_argument, "no keys given");
    std::vector<EnvKey *> sorted(keys, keys + count);
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        fail(rc::bad_argument, "a key is given twice");
    }
    std::size_t found = 0;
    for (EnvKey *key = first_key(env); key != nullptr; key = next_key(key)) {
        if (std::binary_search(sorted.begin(), sorted.end(), key)) ++found;
    }
    if (found != sorted.size()) fail(rc::bad_argument, "a key is not in this envelope");
    return sorted;
}

// The keys whose times lie in [start, end], either way round, within the tolerance.
std::vector<EnvKey *> keys_in_range(Envelope &env, double start, double end) {
    if (start > end) std::swap(start, end);
    std::vector<EnvKey *> keys;
    for (EnvKey *key = first_key(env); key != nullptr; key = next_key(key)) {
        if (key->time > start - kTolerance && key->time < end + kTolerance) keys.push_back(key);
    }
    return keys;
}

template <class Change>
void change_values(Envelope &env, double start, double end, Change change) {
    const std::vector<EnvKey *> keys = keys_in_range(env, start, end);
    if (keys.empty()) return;
    EditTransaction transaction;
    UndoBlock block;
    Edit<KeyValues> edit(&env);
    edit->keys.allocate(keys.size());
    edit->values.allocate(2 * keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        edit->keys[i] = keys[i];
        edit->values[2 * i] = change(keys[i]->side[0].value);
        edit->values[2 * i + 1] = change(keys[i]->side[1].value);
    }
    edit.hand_over(1);
}

void require_type(const Envelope &env, std::uint32_t type) {
    if (env.type != type) fail(rc::type_mismatch, "the envelope holds values of another type");
}

}  // namespace

void shift_all_keys(Envelope &env, double offset) {
    require_finite(offset, "the offset is not a number");
    if (offset == 0.0) return;
    move_keys(
        env, [](const EnvKey *) { return true; }, [offset](double t) { return t + offset; }, never,
        true);
}

void scale_all_keys(Envelope &env, double pivot, double scale) {
    require_finite(pivot, "the pivot is not a number");
    require_scale(scale);
    move_keys(
        env, [](const EnvKey *) { return true; },
        [pivot, scale](double t) { return pivot + (t - pivot) * scale; }, never, false);
}

void ripple_keys(Envelope &env, double time, double offset) {
    require_finite(time, "the time is not a number");
    require_finite(offset, "the offset is not a number");
    if (offset == 0.0) return;
    // Closing a gap removes the span it closes, with the keys standing in it.
    const double gap_start = time + offset;
    move_keys(
        env, [time](const EnvKey *k) { return k->time > time + kTolerance; },
        [offset](double t) { return t + offset; },
        [time, gap_start, offset](const EnvKey *k) {
            return offset < 0.0 && k->time > gap_start - kTolerance && k->time <= time + kTolerance;
        },
        false);
}

void move_key_array(Envelope &env, EnvKey *const *keys, int count, double offset) {
    require_finite(offset, "the offset is not a number");
    const std::vector<EnvKey *> chosen = chosen_keys(env, keys, count);
    if (offset == 0.0 || chosen.empty()) return;
    move_keys(
        env, [&chosen](EnvKey *k) { return std::binary_search(chosen.begin(), chosen.end(), k); },
        [offset](double t) { return t + offset; }, never, false);
}

void scale_key_array(Envelope &env, EnvKey *const *keys, int count, double pivot, double scale) {
    require_finite(pivot, "the pivot is not a number");
    require_scale(scale);
    const std::vector<EnvKey *> chosen = chosen_keys(env, keys, count);
    if (chosen.empty()) return;
    move_keys(
        env, [&chosen](EnvKey *k) { return std::binary_search(chosen.begin(), chosen.end(), k); },
        [pivot, scale](double t) { return pivot + (t - pivot) * scale; }, never, false);
}

void delete_key_range(Envelope &env, double start, double end) {
    require_finite(start, "the start is not a number");
    require_finite(end, "the end is not a number");
    const std::vector<EnvKey *> keys = keys_in_range(env, start, end);
    if (keys.empty()) return;
    EditTransaction transaction;
    UndoBlock block;
    Edit<KeySetRemoval> removal(&env);
    removal->keys.allocate(keys.size());
    std::copy(keys.begin(), keys.end(), removal->keys.items);
    removal.hand_over(1);
}

void shift_values(Envelope &env, double start, double end, double offset) {
    require_type(env, kTypeFloat);
    require_finite(offset, "the offset is not a number");
    change_values(env, start, end, [offset](EnvValue v) {
        v.f += offset;
        return v;
    });
}

void shift_values_int(Envelope &env, double start, double end, int offset) {
    require_type(env, kTypeInt);
    change_values(env, start, end, [offset](EnvValue v) {
        const std::int64_t sum = std::int64_t{v.i} + offset;
        v.i = static_cast<int>(std::clamp<std::int64_t>(sum, std::numeric_limits<int>::min(),
                                                        std::numeric_limits<int>::max()));
        return v;
    });
}

void scale_values(Envelope &env, double start, double end, double pivot, double scale) {
    require_type(env, kTypeFloat);
    require_finite(pivot, "the pivot is not a number");
    require_finite(scale, "the scale is not a number");
    change_values(env, start, end, [pivot, scale](EnvValue v) {
        v.f = pivot + (v.f - pivot) * scale;
        return v;
    });
}

}  // namespace vx::env
