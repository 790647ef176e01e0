// What envelope setters accept: the behaviour, interpolation and slope-type codes evaluation
// knows, and finite numbers. A setting or key the curve cannot honour is refused up front, so
// nothing is stored that evaluation or a saved file would have to guess about.
#pragma once

#include <cmath>
#include <cstdint>

#include <vexor/env.h>

#include "foundation/failure.h"

namespace vx::env {

inline bool valid_behavior(std::uint32_t value) noexcept {
    return value <= ENV_BEHAVIOR_NONE;
}

inline bool valid_interpolation(std::uint32_t value) noexcept {
    return value <= ENV_INTERP_STEPPED;
}

inline bool valid_slope_type(std::uint32_t type) noexcept {
    switch (type) {
        case ENV_SLOPE_MANUAL:
        case ENV_SLOPE_AUTO:
        case ENV_SLOPE_LINEAR_IN:
        case ENV_SLOPE_LINEAR_OUT:
        case ENV_SLOPE_AUTO_FLAT:
        case ENV_SLOPE_STEPPED:
            return true;
        default:
            return false;
    }
}

inline void require_behavior(std::uint32_t value) {
    if (!valid_behavior(value)) fail(rc::bad_argument, "no such behaviour");
}

inline void require_interpolation(std::uint32_t value) {
    if (!valid_interpolation(value)) fail(rc::bad_argument, "no such interpolation");
}

inline void require_slope_type(std::uint32_t type) {
    if (!valid_slope_type(type)) fail(rc::bad_argument, "no such slope type");
}

// Times, values, slopes, weights, offsets and factors must be numbers a curve can hold.
inline void require_finite(double value, const char *what) {
    if (!std::isfinite(value)) fail(rc::bad_argument, what);
}

}  // namespace vx::env
