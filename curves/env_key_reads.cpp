// Reads of keys, and the raw writes that loaders and importers use (no undo, no note).
#include <cmath>

#include "curves/env_edits.h"

namespace vx::env {

namespace {
bool shows_side1(const EnvKey *key) noexcept {
    return (key->flags & (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)) ==
           (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1);
}
}  // namespace

double value_of(const EnvKey *key) noexcept {
    if (key == nullptr) return 0.0;
    return key->side[shows_side1(key) ? 1 : 0].value.f;
}

int value_of_int(const EnvKey *key) noexcept {
    if (key == nullptr) return 0;
    return key->side[shows_side1(key) ? 1 : 0].value.i;
}

double span_of(const EnvKey *key, int side) noexcept {
    if (key == nullptr) return 0.0;
    if (side == 1) {
        const EnvKey *next = next_key(key);
        return next != nullptr ? next->time - key->time : 0.0;
    }
    const EnvKey *prev = prev_key(key);
    return prev != nullptr ? key->time - prev->time : 0.0;
}

// The length of a handle that reaches a third of the way to the neighbour along the tangent.
double auto_weight(const EnvKey *key, int side) noexcept {
    if (key == nullptr) return 0.0;
    const double w = span_of(key, side) / 3.0;
    const double s = key->side[side == 1 ? 1 : 0].slope;
    if (s == 0.0) return w;
    return std::sqrt(w * w + (s * w) * (s * w));
}

double weight_of(const EnvKey *key, int side) noexcept {
    if (key == nullptr) return 0.0;
    const EnvKeySide &s = key->side[side == 1 ? 1 : 0];
    if ((s.flags & ENV_WEIGHT_MANUAL) != 0 && s.weight != 0.0) return s.weight;
    return auto_weight(key, side);
}

}  // namespace vx::env
