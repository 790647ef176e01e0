// Undoable edits of single keys.
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>

#include "curves/env_checks.h"
#include "curves/env_edits.h"
#include "curves/env_index.h"
#include "curves/env_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/log.h"

namespace vx::env {

namespace {

void require_in_list(const EnvKey *key) {
    if (key == nullptr || key->succ == nullptr) fail(rc::bad_argument, "the key is in no envelope");
}

void require_side(int side) {
    if (side != 0 && side != 1) fail(rc::bad_argument, "a side is 0 (incoming) or 1 (outgoing)");
}

double frame_length() noexcept {
    return 1.0 / TimeGlobalFPS();
}

bool same_bits(const EnvValue &a, const EnvValue &b) noexcept {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Fills a slope-type record for the key as it stands now (see set_slope_type).
void fill_slope_type(SlopeTypeSwap &record, const EnvKey *key, int side, std::uint32_t type) {
    const int s = key->flags & ENV_BREAK_SLOPE ? side : reached_side(key, side);
    record.sides = key->flags & ENV_BREAK_SLOPE ? (1u << s) : 3u;
    record.type[0] = record.type[1] = type;
    record.slope[0] = record.slope[1] = key->side[s].slope;
    record.weight[0] = auto_weight(key, 0);
    record.weight[1] = auto_weight(key, 1);
}

// An integer key is set up like a float key with the value 0, and gets its integer value once
// the envelope's port is back, so observers hear of that as a change of the new key.
EnvKey *add_new_key(Envelope &env, double time, EnvValue value, bool integer) {
    // Every record is prepared before any is applied, so adding a key happens whole or not at
    // all.
    EditTransaction transaction;
    reserve_index(env, key_count(env) + 1);
    EnvKey *key = new_key(time);
    OnFailure drop_key([&] { free_key(key); });
    Edit<KeyLink> insert(&env, key, true, false);
    drop_key.disarm();  // the insertion record owns the key from here on
    Edit<ValueSwap> set_up_value(&env, key, 0, true);
    Edit<SlopeTypeSwap> slope(&env, key, 3u);
    std::optional<Edit<ValueSwap>> integer_value;
    if (integer) integer_value.emplace(&env, key, 0, true, value);

    insert.apply_then_record(0);
    // Observers hear of the insertion, not of the new key's set-up.
    Port *port = std::exchange(env.port, nullptr);
    if (!integer) set_up_value->value = value;
    set_up_value.apply_then_record(1);
    fill_slope_type(*slope, key, 0, default_slope_type());
    slope.hand_over(1);
    env.port = port;
    if (integer_value) integer_value->apply_then_record(1);
    return key;
}

}  // namespace

EnvKey *add_key(Envelope &env, double time, double value) {
    if (env.type != kTypeFloat) return nullptr;
    require_finite(time, "the time is not a finite number");
    require_finite(value, "the value is not a finite number");
    EnvValue v{};
    v.f = value;
    if (EnvKey *existing = get_key(env, time)) {
        set_value(env, existing, v);
        return existing;
    }
    return add_new_key(env, time, v, false);
}

EnvKey *add_key_int(Envelope &env, double time, int value) {
    if (env.type != kTypeInt) return nullptr;
    require_finite(time, "the time is not a finite number");
    EnvValue v{};
    v.i = value;
    if (EnvKey *existing = get_key(env, time)) {
        set_value(env, existing, v);
        return existing;
    }
    return add_new_key(env, time, v, true);
}

void delete_key(Envelope &env, EnvKey *key) {
    require_in_list(key);
    edit_apply<KeyLink>(0, &env, key, false, false);
}

void TimeMove::apply(int direction) noexcept {
    const double old = key->time;
    double target = time;
    const double frame = frame_length();
    if (reorder == 0) {
        EnvKey *prev = prev_key(key);
        EnvKey *next = next_key(key);
        if (target < old && prev != nullptr && target <= prev->time) {
            target = prev->time + frame;
        } else if (target > old && next != nullptr && target >= next->time) {
            target = next->time - frame;
        }
        // A neighbour closer than a frame on the other side leaves no room: stay put.
        if ((prev != nullptr && target <= prev->time) ||
            (next != nullptr && target >= next->time)) {
            target = old;
        }
        key->time = target;
    } else {
        unlink(*env, key);
        EnvKey *after = last_key(*env);
        while (after != nullptr && after->time > target) after = prev_key(after);
        if (after != nullptr && after->time == target) {
            if (old > target) {
                target += frame;  // came from later: stays just after the key it met
            } else {
                target -= frame;
                after = prev_key(after);
            }
        }
        key->time = target;
        insert_after(*env, after, key);
    }
    time = old;
    reset_cache(*env);
    ++env->edits;
    notify(*env, ENV_NOTE_TIME, key);
    if (structural) UndoNewCode(direction == 0 ? 1 : 0);
}

void set_time(Envelope &env, EnvKey *key, double time, std::uint32_t reorder) {
    require_in_list(key);
    require_finite(time, "the time is not a finite number");
    if (key->time == time) return;
    // The move is prepared before the key in its way is deleted, so that nothing can fail
    // once that deletion has been made.
    EditTransaction transaction;
    Edit<TimeMove> move(&env, key, time, reorder, false);
    EnvKey *other = get_key(env, time);
    if (other != nullptr && other != key) delete_key(env, other);
    move.apply_then_record(1);
}

void set_value(Envelope &env, EnvKey *key, EnvValue value) {
    require_in_list(key);
    if (env.type == kTypeFloat) require_finite(value.f, "the value is not a finite number");
    const int s =
        (key->flags & (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)) == (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)
            ? 1
            : 0;
    if (same_bits(key->side[s].value, value)) return;
    edit_apply<ValueSwap>(1, &env, key, 0, true, value);
}

namespace {

// The side a per-side edit of a key in a list really reaches, after checking its arguments.
int edited_side(const EnvKey *key, int side) {
    require_in_list(key);
    require_side(side);
    return reached_side(key, side);
}

}  // namespace

void set_side_value(Envelope &env, EnvKey *key, int side, EnvValue value) {
    const int s = edited_side(key, side);
    if (env.type == kTypeFloat) require_finite(value.f, "the value is not a finite number");
    if (same_bits(key->side[s].value, value)) return;
    edit_apply<ValueSwap>(1, &env, key, s, false, value);
}

void set_slope(Envelope &env, EnvKey *key, int side, double slope) {
    const int s = edited_side(key, side);
    require_finite(slope, "the slope is not a finite number");
    if (key->side[s].slope == slope) return;
    edit_apply<SideFieldSwap>(1, &env, key, s, SideFieldSwap::slope, slope, 0u);
}

void set_weight(Envelope &env, EnvKey *key, int side, double weight) {
    const int s = edited_side(key, side);
    require_finite(weight, "the weight is not a finite number");
    if (key->side[s].weight == weight) return;
    edit_apply<SideFieldSwap>(1, &env, key, s, SideFieldSwap::weight, weight, 0u);
}

void set_weight_type(Envelope &env, EnvKey *key, int side, bool manual) {
    const int s = edited_side(key, side);
    const std::uint32_t bits = manual ? ENV_WEIGHT_MANUAL : 0u;
    if ((key->side[s].flags & ENV_WEIGHT_MANUAL) == bits) return;
    edit_apply<SideFieldSwap>(1, &env, key, s, SideFieldSwap::weight_type, 0.0, bits);
}

void set_slope_type(Envelope &env, EnvKey *key, int side, std::uint32_t type) {
    require_in_list(key);
    require_side(side);
    if (type > kSlopeTypeMask) return;  // ignored, as hosts have always relied on
    require_slope_type(type);
    const int tested = reached_side(key, side);
    if ((key->side[tested].flags & kSlopeTypeMask & type) != 0) return;
    EditTransaction transaction;
    Edit<SlopeTypeSwap> edit(&env, key, 0u);
    fill_slope_type(*edit, key, side, type);
    edit.hand_over(1);
}

namespace {

void require_break_bit(std::uint32_t bit) {
    if (bit != ENV_BREAK_VALUE && bit != ENV_BREAK_SLOPE && bit != ENV_BREAK_WEIGHT) {
        fail(rc::bad_argument, "a break is 0x1 (value), 0x2 (slope) or 0x4 (weight)");
    }
}

// Break and unify share one record, filled from side 0, and differ in their direction.
void hand_over_break(Envelope &env, EnvKey *key, std::uint32_t bit, int direction) {
    const EnvKeySide &s0 = key->side[0];
    const double value = env.type == kTypeInt ? static_cast<double>(s0.value.i) : s0.value.f;
    edit_pending<BreakSwap>(direction, &env, key, bit, value, s0.flags & kSlopeTypeMask, s0.slope,
                            s0.flags & ENV_WEIGHT_MANUAL, s0.weight);
}

}  // namespace

bool break_key(Envelope &env, EnvKey *key, std::uint32_t bit) {
    require_in_list(key);
    require_break_bit(bit);
    if (key->flags & bit) {
        log::debug("envelope", "Key is already broken\n");
        return false;
    }
    hand_over_break(env, key, bit, 1);
    return true;
}

bool unify_key(Envelope &env, EnvKey *key, std::uint32_t bit) {
    require_in_list(key);
    require_break_bit(bit);
    if ((key->flags & bit) == 0) {
        log::debug("envelope", "Key is not broken\n");
        return false;
    }
    hand_over_break(env, key, bit, 0);
    return true;
}

bool set_active_side(Envelope &env, EnvKey *key, int side) noexcept {
    if (key == nullptr || side < 0 || side > 1) return false;
    if (side == 1 && (key->flags & kBrokenMask) == 0) return false;
    const std::uint32_t flags =
        side == 1 ? key->flags | ENV_ACTIVE_SIDE1 : key->flags & ~ENV_ACTIVE_SIDE1;
    if (flags == key->flags) return false;
    key->flags = flags;
    notify(env, ENV_NOTE_KEY, key);
    return true;
}

namespace {

// Negates a side's slope; both sides of a key without a slope break, which share one slope.
struct TangentInvert {
    Envelope *env;
    EnvKey *key;
    int side;
    void apply(int) noexcept {
        if (key->flags & ENV_BREAK_SLOPE) {
            key->side[side].slope = -key->side[side].slope;
        } else {
            key->side[0].slope = -key->side[0].slope;
            key->side[1].slope = -key->side[1].slope;
        }
        notify(*env, ENV_NOTE_ENVELOPE, key);
    }
};

}  // namespace

void invert_tangent(Envelope &env, EnvKey *key, int side) {
    require_in_list(key);
    require_side(side);
    edit_pending<TangentInvert>(1, &env, key, side);
}

void quantise(Envelope &env, EnvKey *key) {
    require_in_list(key);
    const double fps = TimeGlobalFPS();
    const double product = key->time * fps;
    double whole = 0.0;
    const double fraction = std::modf(product, &whole);  // the fraction keeps the sign
    if (fraction >= 0.5) whole += 1.0;                   // so negative times round toward zero
    const double time = whole / fps;
    if (time == key->time) return;
    EditTransaction transaction;
    Edit<TimeMove> move(&env, key, time, 1u, true);
    EnvKey *other = get_key(env, time);
    if (other != nullptr && other != key) delete_key(env, other);
    move.apply_then_record(0);
}

namespace {

// A key may be held by several cut records at once (cut, undone, cut again before the first
// record is dropped), so each record counts once.
struct CutKeys {
    std::mutex lock;
    std::unordered_map<const EnvKey *, unsigned> held;
};

CutKeys &cut_keys() {
    static CutKeys keys;
    return keys;
}

bool in_list(Envelope &env, const EnvKey *key) noexcept {
    for (const EnvKey *k = first_key(env); k != nullptr; k = next_key(k)) {
        if (k == key) return true;
    }
    return false;
}

}  // namespace

void hold_cut_key(const EnvKey *key) {
    CutKeys &keys = cut_keys();
    std::lock_guard hold(keys.lock);
    ++keys.held[key];
}

void drop_cut_key(const EnvKey *key) noexcept {
    CutKeys &keys = cut_keys();
    std::lock_guard hold(keys.lock);
    auto it = keys.held.find(key);
    if (it != keys.held.end() && --it->second == 0) keys.held.erase(it);
}

bool is_cut_key(const EnvKey *key) noexcept {
    CutKeys &keys = cut_keys();
    std::lock_guard hold(keys.lock);
    return keys.held.contains(key);
}

void cut_key(Envelope &env, EnvKey *key) {
    require_in_list(key);
    EditTransaction transaction;
    hold_cut_key(key);
    OnFailure let_go([&] { drop_cut_key(key); });
    Edit<KeyLink> cut(&env, key, false, true);
    let_go.disarm();  // from here the record's release lets go, handed over or not
    cut.hand_over(1);
}

// A free key (from EnvKeyCopy, or one the caller made some other way) is adopted: the
// envelope owns it from the paste on. A key that a cut record keeps for undo, or that stands in
// this envelope, is pasted as a copy, so that no key is ever owned twice.
void paste_key(Envelope &env, EnvKey *key, double time) {
    if (key == nullptr) fail(rc::bad_argument, "no key to paste");
    require_finite(time, "the time is not a finite number");
    EditTransaction transaction;
    reserve_index(env, key_count(env) + 1);
    const bool adopt = !is_cut_key(key) && !in_list(env, key);
    EnvKey *pasted = key;
    if (!adopt) pasted = new_key(time);
    OnFailure drop_copy([&] {
        if (!adopt) free_key(pasted);
    });
    Edit<KeyLink> insert(&env, pasted, true, true, !adopt);
    drop_copy.disarm();
    if (!adopt) *pasted = *key;
    EnvKey *other = get_key(env, time);
    if (other != nullptr) delete_key(env, other);
    pasted->time = time;
    pasted->succ = pasted->pred = nullptr;
    insert->owns_key = true;
    insert.hand_over(1);
}

}  // namespace vx::env
