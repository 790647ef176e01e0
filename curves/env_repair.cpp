#include "curves/env_repair.h"

#include <cmath>

#include "curves/env_checks.h"
#include "curves/env_records.h"

namespace vx::env {

namespace {

unsigned mend_settings(Envelope &env) noexcept {
    unsigned repaired = 0;
    for (std::uint32_t *behavior : {&env.pre_behavior, &env.post_behavior}) {
        if (!valid_behavior(*behavior)) {
            *behavior = ENV_BEHAVIOR_CONSTANT;
            repaired = kRepairedSettings;
        }
    }
    if (!valid_interpolation(env.interpolation)) {
        env.interpolation = ENV_INTERP_CURVE;
        repaired = kRepairedSettings;
    }
    return repaired;
}

unsigned mend_number(double &number) noexcept {
    if (std::isfinite(number)) return 0;
    number = 0.0;
    return kRepairedNumbers;
}

unsigned mend_side(EnvKeySide &side, bool floating) noexcept {
    unsigned repaired = mend_number(side.slope) | mend_number(side.weight);
    if (floating) repaired |= mend_number(side.value.f);
    if (!valid_slope_type(side.flags & kSlopeTypeMask)) {
        side.flags = (side.flags & ~kSlopeTypeMask) | ENV_SLOPE_AUTO;
        repaired |= kRepairedSlopeTypes;
    }
    return repaired;
}

void drop(Envelope &env, EnvKey *key) noexcept {
    unlink(env, key);
    free_key(key);
}

}  // namespace

unsigned repair(Envelope &env) noexcept {
    unsigned repaired = mend_settings(env);
    const bool floating = env.type == kTypeFloat;
    bool sorted = true;
    for (EnvKey *key = first_key(env), *next = nullptr; key != nullptr; key = next) {
        next = next_key(key);
        if (!std::isfinite(key->time)) {
            drop(env, key);
            repaired |= kRepairedKeyTimes;
            continue;
        }
        repaired |= mend_side(key->side[0], floating) | mend_side(key->side[1], floating);
        const EnvKey *prev = prev_key(key);
        if (prev != nullptr && prev->time > key->time) sorted = false;
    }
    if (!sorted) {
        sort_keys(env);
        repaired |= kRepairedOrder;
    }
    for (EnvKey *key = first_key(env), *next = nullptr; key != nullptr; key = next) {
        next = next_key(key);
        const EnvKey *prev = prev_key(key);
        if (prev != nullptr && key->time - prev->time < kTolerance) {
            drop(env, key);
            repaired |= kRepairedKeyTimes;
        }
    }
    if (repaired != 0) {
        reset_cache(env);
        ++env.edits;
    }
    return repaired;
}

}  // namespace vx::env
