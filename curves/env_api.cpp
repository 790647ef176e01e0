// The C interface of envelopes: argument checks and the guard around the C++ operations.
#include <vexor/env.h>

#include <cmath>

#include "curves/env_checks.h"
#include "curves/env_edits.h"
#include "curves/env_range.h"
#include "foundation/guard.h"

using namespace vx::env;

namespace {

EnvValue float_value(double value) {
    EnvValue v{};
    v.f = value;
    return v;
}

EnvValue int_value(int value) {
    EnvValue v{};
    v.i = value;
    return v;
}

void require(bool condition, const char *what) {
    if (!condition) vx::fail(vx::rc::bad_argument, what);
}

void require_type(const Envelope *env, std::uint32_t type) {
    if (env->type != type) vx::fail(vx::rc::type_mismatch, "the envelope is of another type");
}

// Runs an edit that reports success as 1 and failure as 0.
template <class Body>
int edit(const Envelope *env, Body &&body) {
    return vx::guard(0, [&] {
        require(env != nullptr, "no envelope");
        body();
        return 1;
    });
}

bool valid_side(int side) {
    return side == 0 || side == 1;
}

}  // namespace

extern "C" {

VX_API Envelope *EnvCreate(void *data) {
    return vx::guard<Envelope *>(nullptr, [&] { return create(data, kTypeFloat); });
}

VX_API Envelope *EnvCreateInt(void *data) {
    return vx::guard<Envelope *>(nullptr, [&] { return create(data, kTypeInt); });
}

VX_API int EnvDestroy(Envelope *env) {
    return edit(env, [&] { destroy(*env); });
}

VX_API void EnvDestroyNoUndo(Envelope *env) {
    destroy_no_undo(env);
}

VX_API int EnvCopy(Envelope *dst, const Envelope *src) {
    return edit(dst, [&] {
        require(src != nullptr, "no source envelope");
        if (src != dst) copy(*dst, *src);
    });
}

VX_API int EnvClearKeys(Envelope *env) {
    return edit(env, [&] { clear_keys(*env, true); });
}

VX_API unsigned int EnvType(const Envelope *env) {
    return env != nullptr ? env->type : 0;
}
VX_API void *EnvData(const Envelope *env) {
    return env != nullptr ? env->data : nullptr;
}

VX_API void EnvSetData(Envelope *env, void *data) {
    if (env != nullptr) env->data = data;
}

VX_API void EnvSetPort(Envelope *env, Port *port) {
    if (env != nullptr) env->port = port;
}

VX_API Port *EnvGetPort(const Envelope *env) {
    return env != nullptr ? env->port : nullptr;
}
VX_API EnvKeyList *EnvGetKeyList(Envelope *env) {
    return env != nullptr ? &env->keys : nullptr;
}

VX_API unsigned int EnvPreBehavior(const Envelope *env) {
    return env != nullptr ? env->pre_behavior : 0;
}
VX_API unsigned int EnvPostBehavior(const Envelope *env) {
    return env != nullptr ? env->post_behavior : 0;
}
VX_API unsigned int EnvInterpolation(const Envelope *env) {
    return env != nullptr ? env->interpolation : 0;
}

VX_API int EnvSetPreBehavior(Envelope *env, unsigned int behavior) {
    return edit(env, [&] { set_behavior(*env, 0, behavior); });
}
VX_API int EnvSetPostBehavior(Envelope *env, unsigned int behavior) {
    return edit(env, [&] { set_behavior(*env, 1, behavior); });
}
VX_API int EnvSetInterpolation(Envelope *env, unsigned int interpolation) {
    return edit(env, [&] { set_interpolation(*env, interpolation); });
}

// The direct setters refuse what the undoable ones refuse; they have no result, so a refusal
// shows only in VxLastFailure.
VX_API void EnvSetPreBehaviorDirect(Envelope *env, unsigned int behavior) {
    edit(env, [&] {
        require_behavior(behavior);
        env->pre_behavior = behavior;
        mark_changed(*env);
    });
}
VX_API void EnvSetPostBehaviorDirect(Envelope *env, unsigned int behavior) {
    edit(env, [&] {
        require_behavior(behavior);
        env->post_behavior = behavior;
        mark_changed(*env);
    });
}
VX_API void EnvSetInterpolationDirect(Envelope *env, unsigned int interpolation) {
    edit(env, [&] {
        require_interpolation(interpolation);
        env->interpolation = interpolation;
        mark_changed(*env);
    });
}

VX_API int EnvIsAnimated(const Envelope *env) {
    if (env == nullptr) return 0;
    const EnvKey *first = first_key(*env);
    return first != nullptr && next_key(first) != nullptr ? 1 : 0;
}

VX_API void EnvBoundsTime(const Envelope *env, double *first, double *last) {
    const EnvKey *f = env != nullptr ? first_key(*env) : nullptr;
    const EnvKey *l = env != nullptr ? last_key(*env) : nullptr;
    if (first != nullptr) *first = f != nullptr ? f->time : vx::kTimeLineStart;
    if (last != nullptr) *last = l != nullptr ? l->time : vx::kTimeLineEnd;
}

VX_API int EnvTestValidTime(const Envelope *env, double time) {
    if (env == nullptr) return 0;
    if (env->pre_behavior != ENV_BEHAVIOR_NONE && env->post_behavior != ENV_BEHAVIOR_NONE) {
        return 1;
    }
    const EnvKey *first = first_key(*env);
    if (first == nullptr) return 0;
    if (env->pre_behavior == ENV_BEHAVIOR_NONE && first->time - time > kTolerance) return 0;
    const EnvKey *last = last_key(*env);
    if (env->post_behavior == ENV_BEHAVIOR_NONE && last != nullptr &&
        time - last->time > kTolerance) {
        return 0;
    }
    return 1;
}

VX_API void EnvClampAll(void) {}

VX_API unsigned int EnvGetDefaultBehavior(void) {
    return default_behavior();
}
VX_API void EnvSetDefaultBehavior(unsigned int behavior) {
    vx::guard([&] { set_default_behavior(behavior); });
}
VX_API unsigned int EnvGetDefaultInterpolation(void) {
    return default_interpolation();
}
VX_API void EnvSetDefaultInterpolation(unsigned int interpolation) {
    vx::guard([&] { set_default_interpolation(interpolation); });
}
VX_API unsigned int EnvKeyDefaultSlopeType(void) {
    return default_slope_type();
}
VX_API int EnvKeySetDefaultSlopeType(unsigned int type) {
    return vx::guard(0, [&] {
        set_default_slope_type(type);
        return 1;
    });
}

VX_API EnvKey *EnvFirstKey(Envelope *env) {
    return env != nullptr ? first_key(*env) : nullptr;
}
VX_API EnvKey *EnvLastKey(Envelope *env) {
    return env != nullptr ? last_key(*env) : nullptr;
}
VX_API EnvKey *EnvGetKey(Envelope *env, double time) {
    return env != nullptr ? get_key(*env, time) : nullptr;
}
VX_API EnvKey *EnvNextKey(Envelope *env, double time) {
    return env != nullptr ? next_key_after(*env, time) : nullptr;
}
VX_API EnvKey *EnvPrevKey(Envelope *env, double time) {
    return env != nullptr ? prev_key_before(*env, time) : nullptr;
}
VX_API double EnvKeyTime(const EnvKey *key) {
    return key != nullptr ? key->time : 0.0;
}
VX_API double EnvKeyGetSpan(const EnvKey *key, int side) {
    return span_of(key, side);
}

VX_API EnvKey *EnvAddKey(Envelope *env, double time, double value) {
    return vx::guard<EnvKey *>(nullptr, [&]() -> EnvKey * {
        require(env != nullptr, "no envelope");
        require(std::isfinite(time), "the time is not a number");
        return add_key(*env, time, value);
    });
}

VX_API EnvKey *EnvAddKeyInt(Envelope *env, double time, int value) {
    return vx::guard<EnvKey *>(nullptr, [&]() -> EnvKey * {
        require(env != nullptr, "no envelope");
        require(std::isfinite(time), "the time is not a number");
        return add_key_int(*env, time, value);
    });
}

VX_API int EnvDelKey(Envelope *env, EnvKey *key) {
    return edit(env, [&] { delete_key(*env, key); });
}

VX_API int EnvKeySetTime(Envelope *env, EnvKey *key, double time, unsigned int reorder) {
    return edit(env, [&] {
        require(std::isfinite(time), "the time is not a number");
        set_time(*env, key, time, reorder);
    });
}

VX_API int EnvKeySetValue(Envelope *env, EnvKey *key, double value) {
    return edit(env, [&] {
        require_type(env, kTypeFloat);
        set_value(*env, key, float_value(value));
    });
}

VX_API int EnvKeySetValueInt(Envelope *env, EnvKey *key, int value) {
    return edit(env, [&] {
        require_type(env, kTypeInt);
        set_value(*env, key, int_value(value));
    });
}

VX_API int EnvKeySetTangentValue(Envelope *env, EnvKey *key, int side, double value) {
    return edit(env, [&] {
        require_type(env, kTypeFloat);
        set_side_value(*env, key, side, float_value(value));
    });
}

VX_API int EnvKeySetTangentValueInt(Envelope *env, EnvKey *key, int side, int value) {
    return edit(env, [&] {
        require_type(env, kTypeInt);
        set_side_value(*env, key, side, int_value(value));
    });
}

VX_API int EnvKeySetSlopeValue(Envelope *env, EnvKey *key, int side, double slope) {
    return edit(env, [&] { set_slope(*env, key, side, slope); });
}

VX_API int EnvKeySetSlopeType(Envelope *env, EnvKey *key, int side, unsigned int type) {
    return edit(env, [&] { set_slope_type(*env, key, side, type); });
}

VX_API int EnvKeySetWeightType(Envelope *env, EnvKey *key, int side, unsigned int manual) {
    return edit(env, [&] { set_weight_type(*env, key, side, manual != 0); });
}

VX_API int EnvKeySetWeightValue(Envelope *env, EnvKey *key, int side, double weight) {
    return edit(env, [&] { set_weight(*env, key, side, weight); });
}

VX_API int EnvKeyBreak(Envelope *env, EnvKey *key, unsigned int bit) {
    return vx::guard(0, [&] {
        require(env != nullptr, "no envelope");
        return break_key(*env, key, bit) ? 1 : 0;
    });
}

VX_API int EnvKeyUnify(Envelope *env, EnvKey *key, unsigned int bit, int) {
    return vx::guard(0, [&] {
        require(env != nullptr, "no envelope");
        return unify_key(*env, key, bit) ? 1 : 0;
    });
}

VX_API int EnvKeyUnifyAll(Envelope *env, EnvKey *key, int unused) {
    int any = 0;
    for (unsigned int bit : {ENV_BREAK_VALUE, ENV_BREAK_SLOPE, ENV_BREAK_WEIGHT}) {
        any |= EnvKeyUnify(env, key, bit, unused);
    }
    return any;
}

VX_API int EnvKeySetActiveValue(Envelope *env, EnvKey *key, int side) {
    return env != nullptr && set_active_side(*env, key, side) ? 1 : 0;
}

VX_API int EnvKeyTangentInvert(Envelope *env, EnvKey *key, int side) {
    return edit(env, [&] { invert_tangent(*env, key, side); });
}

VX_API int EnvKeyQuantise(Envelope *env, EnvKey *key) {
    return edit(env, [&] { quantise(*env, key); });
}

VX_API int EnvKeyCut(Envelope *env, EnvKey *key) {
    return edit(env, [&] { cut_key(*env, key); });
}

VX_API int EnvKeyPaste(Envelope *env, EnvKey *key, double time) {
    return edit(env, [&] {
        require(std::isfinite(time), "the time is not a number");
        paste_key(*env, key, time);
    });
}

VX_API EnvKey *EnvKeyCopy(const EnvKey *key) {
    return vx::guard<EnvKey *>(nullptr, [&] {
        require(key != nullptr, "no key");
        EnvKey *copy = new_key(key->time);
        *copy = *key;
        return copy;
    });
}

VX_API void EnvKeyFree(EnvKey *key) {
    if (key != nullptr) free_key(key);
}

VX_API double EnvKeyValue(const EnvKey *key) {
    return value_of(key);
}
VX_API int EnvKeyValueInt(const EnvKey *key) {
    return value_of_int(key);
}

VX_API double EnvKeyGetTangentValue(const EnvKey *key, int side) {
    return key != nullptr ? key->side[reached_side(key, side)].value.f : 0.0;
}
VX_API int EnvKeyGetTangentValueInt(const EnvKey *key, int side) {
    return key != nullptr ? key->side[reached_side(key, side)].value.i : 0;
}
VX_API double EnvKeyGetSlopeValue(const EnvKey *key, int side) {
    return key != nullptr ? key->side[reached_side(key, side)].slope : 0.0;
}
VX_API unsigned int EnvKeyGetSlopeType(const EnvKey *key, int side) {
    return key != nullptr ? key->side[reached_side(key, side)].flags & kSlopeTypeMask : 0;
}
VX_API unsigned int EnvKeyGetWeightType(const EnvKey *key, int side) {
    if (key == nullptr) return 0;
    return (key->side[reached_side(key, side)].flags & ENV_WEIGHT_MANUAL) != 0 ? 1 : 0;
}
VX_API double EnvKeyGetWeightValue(const EnvKey *key, int side) {
    return key != nullptr ? weight_of(key, reached_side(key, side)) : 0.0;
}
VX_API double EnvKeyGetAutoWeightValue(const EnvKey *key, int side) {
    return auto_weight(key, side);
}
VX_API int EnvKeyGetActiveValue(const EnvKey *key) {
    if (key == nullptr || (key->flags & kBrokenMask) == 0) return 0;
    return (key->flags & ENV_ACTIVE_SIDE1) != 0 ? 1 : 0;
}
VX_API int EnvKeyIsBroken(const EnvKey *key, unsigned int bits) {
    return key != nullptr && (key->flags & bits) != 0 ? 1 : 0;
}
VX_API unsigned int EnvKeyGetBreakTypes(const EnvKey *key) {
    if (key == nullptr) return 0;
    return (key->flags & (ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT)) | (key->flags & ENV_BREAK_VALUE);
}
VX_API int EnvKeyGetUserFlag(const EnvKey *key, unsigned int bits) {
    return key != nullptr && (key->flags & bits) != 0 ? 1 : 0;
}

VX_API int EnvKeySetUserFlag(EnvKey *key, unsigned int bits) {
    if (key == nullptr || (key->flags & bits) != 0) return 0;
    key->flags |= bits;
    note_loose_key_write(bits, 0);
    return 1;
}

VX_API int EnvKeyClearUserFlag(EnvKey *key, unsigned int bits) {
    if (key == nullptr || (key->flags & bits) == 0) return 0;
    key->flags ^= bits;  // toggles: asked bits that were clear become set
    note_loose_key_write(bits, 0);
    return 1;
}

VX_API int EnvKeyTangentSetUserFlag(EnvKey *key, int side, unsigned int bits) {
    if (key == nullptr || !valid_side(side)) return 0;
    if (side == 1 && (key->flags & kBrokenMask) == 0) return 0;
    unsigned int &flags = key->side[side].flags;
    if ((flags & bits) != 0) return 0;
    flags |= bits;
    note_loose_key_write(0, bits);
    return 1;
}

VX_API int EnvKeyTangentClearUserFlag(EnvKey *key, int side, unsigned int bits) {
    if (key == nullptr || !valid_side(side)) return 0;
    if (side == 1 && (key->flags & kBrokenMask) == 0) return 0;
    unsigned int &flags = key->side[side].flags;
    if ((flags & bits) == 0) return 0;
    flags ^= bits;
    note_loose_key_write(0, bits);
    return 1;
}

VX_API unsigned int EnvKeyTangentGetUserFlag(const EnvKey *key, int side, unsigned int bits) {
    if (key == nullptr || !valid_side(side)) return 0;
    if (side == 1 && (key->flags & kBrokenMask) == 0) return 0xFFFFFFFFu;
    return (key->side[side].flags & bits) != 0 ? 1 : 0;
}

VX_API void EnvKeySetWeightValueD(EnvKey *key, int side, double weight) {
    vx::guard([&] {
        require(key != nullptr && valid_side(side), "no key, or no such side");
        require_finite(weight, "the weight is not a finite number");
        key->side[side].weight = weight;
        note_loose_key_write(0, ENV_WEIGHT_MANUAL);
    });
}

VX_API void EnvKeySetRawWeight(EnvKey *key, int side, double weight) {
    EnvKeySetWeightValueD(key, side, weight);
}

VX_API void EnvKeySetRawTangents(Envelope *env, EnvKey *key, int side, double value,
                                 unsigned int slope_type, double slope, unsigned int weight_type,
                                 double weight, unsigned int key_flags) {
    const bool accepted = vx::guard(false, [&] {
        require(key != nullptr && valid_side(side), "no key, or no such side");
        require_finite(value, "the value is not a finite number");
        require_finite(slope, "the slope is not a finite number");
        require_finite(weight, "the weight is not a finite number");
        require_slope_type(slope_type);
        return true;
    });
    if (!accepted) return;
    auto write_shape = [&](EnvKeySide &s) {
        s.flags = (s.flags & ~(kSlopeTypeMask | ENV_WEIGHT_MANUAL)) |
                  (slope_type & kSlopeTypeMask) | (weight_type != 0 ? ENV_WEIGHT_MANUAL : 0u);
        s.slope = slope;
    };
    EnvKeySide &s = key->side[side];
    if (env != nullptr && env->type == kTypeInt) {
        s.value.i = static_cast<int>(value);
    } else {
        s.value.f = value;
    }
    write_shape(s);
    s.weight = weight;
    key->flags = key_flags;
    if (side == 0) {
        write_shape(key->side[1]);
        key->side[1].weight = weight_type != 0 ? -1.0 : 0.0;
    }
    if (env != nullptr) {
        mark_changed(*env);
    } else {
        note_loose_key_write(kBrokenMask, kSlopeTypeMask);
    }
}

VX_API int EnvShiftAllKeys(Envelope *env, double offset) {
    return edit(env, [&] { shift_all_keys(*env, offset); });
}
VX_API int EnvShiftKeys(Envelope *env, double offset) {
    return EnvShiftAllKeys(env, offset);
}
VX_API int EnvScaleAllKeys(Envelope *env, double pivot, double scale) {
    return edit(env, [&] { scale_all_keys(*env, pivot, scale); });
}
VX_API int EnvScaleKeys(Envelope *env, double pivot, double scale) {
    return EnvScaleAllKeys(env, pivot, scale);
}
VX_API int EnvRippleKeys(Envelope *env, double time, double offset) {
    return edit(env, [&] { ripple_keys(*env, time, offset); });
}
VX_API int EnvMoveKeyArray(Envelope *env, EnvKey *const *keys, int count, double offset) {
    return edit(env, [&] { move_key_array(*env, keys, count, offset); });
}
VX_API int EnvScaleKeyArray(Envelope *env, EnvKey *const *keys, int count, double pivot,
                            double scale) {
    return edit(env, [&] { scale_key_array(*env, keys, count, pivot, scale); });
}
VX_API int EnvDelKeyRange(Envelope *env, double start, double end) {
    return edit(env, [&] { delete_key_range(*env, start, end); });
}
VX_API int EnvShiftValues(Envelope *env, double start, double end, double offset) {
    return edit(env, [&] { shift_values(*env, start, end, offset); });
}
VX_API int EnvShiftValuesInt(Envelope *env, double start, double end, int offset) {
    return edit(env, [&] { shift_values_int(*env, start, end, offset); });
}
VX_API int EnvScaleValues(Envelope *env, double start, double end, double pivot, double scale) {
    return edit(env, [&] { scale_values(*env, start, end, pivot, scale); });
}

}  // extern "C"
