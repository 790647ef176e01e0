// Undoable edits of single keys.
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

#include "curves/env_edits.h"
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

void TimeMove::apply(int) noexcept {
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
    if (structural) UndoNewCode(0);
}

void set_time(Envelope &env, EnvKey *key, double time, std::uint32_t reorder) {
    require_in_list(key);
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
    if (same_bits(key->side[s].value, value)) return;
    edit_apply<ValueSwap>(1, &env, key, s, false, value);
}

void set_slope(Envelope &env, EnvKey *key, int side, double slope) {
    const int s = edited_side(key, side);
    if (key->side[s].slope == slope) return;
    edit_apply<SideFieldSwap>(1, &env, key, s, SideFieldSwap::slope, slope, 0u);
}

void set_weight(Envelope &env, EnvKey *key, int side, double weight) {
    const int s = edited_side(key, side);
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
    if (type > kSlopeTypeMask) return;
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

void cut_key(Envelope &env, EnvKey *key) {
    require_in_list(key);
    edit_pending<KeyLink>(1, &env, key, false, true);
}

void paste_key(Envelope &env, const EnvKey *key, double time) {
    if (key == nullptr) fail(rc::bad_argument, "no key to paste");
    EditTransaction transaction;
    EnvKey *copy = new_key(time);
    OnFailure drop_copy([&] { free_key(copy); });
    Edit<KeyLink> insert(&env, copy, true, true);
    drop_copy.disarm();
    *copy = *key;
    copy->time = time;
    copy->succ = copy->pred = nullptr;
    EnvKey *other = get_key(env, time);
    if (other != nullptr) delete_key(env, other);
    insert.hand_over(1);
}

}  // namespace vx::env
