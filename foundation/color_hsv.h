// The HDR HSV colour model: hue, saturation and value of colours whose components may exceed 1.
//
// Value is the largest component, unclamped; saturation is (largest - smallest) / largest, 0
// for a grey and for a colour whose largest component is 0 or below (it exceeds 1 when the
// smallest component is negative); hue is in radians in [0, 2pi): 0 red, 2pi/3 green, 4pi/3
// blue, 0 for a grey. Any hue converts back: it is taken modulo 2pi.
//
// The conversions are templates over the lane type (see lanes.h) so that a pixel gives the same
// bits whether it is converted alone or in a block. They compute in double: a float colour
// converted to HSV and back, rounding to float only at the end, is the colour it was for every
// colour in [0, 1] whose smallest non-zero component is above 1e-8 of the largest.
#pragma once

#include "foundation/lanes.h"

namespace vx::color {

inline constexpr double kTwoPi = 6.283185307179586;
inline constexpr double kRadiansPerSixth = kTwoPi / 6.0;
inline constexpr double kSixthsPerRadian = 6.0 / kTwoPi;

inline namespace VX_LANES_ISA {

template <class T>
struct Hsv {
    T h, s, v;
};

template <class T>
struct Rgb {
    T r, g, b;
};

template <class T>
inline Hsv<T> rgb_to_hsv_hdr(Rgb<T> c) noexcept {
    using lanes::max_of;
    using lanes::min_of;
    using lanes::select;
    const T one = lanes::splat<T>(1.0);
    const T zero = lanes::splat<T>(0.0);
    const T largest = max_of(c.r, max_of(c.g, c.b));
    const T smallest = min_of(c.r, min_of(c.g, c.b));
    const T range = largest - smallest;
    // The hue in sixths of a turn, from the two components other than the largest.
    const T rising =
        select(largest == c.r, c.g - c.b, select(largest == c.g, c.b - c.r, c.r - c.g));
    const T base =
        select(largest == c.r, zero, select(largest == c.g, one + one, lanes::splat<T>(4.0)));
    T sixths = select(range > 0.0, rising / select(range > 0.0, range, one) + base, zero);
    sixths = select(sixths < 0.0, sixths + 6.0, sixths);
    Hsv<T> out;
    out.h = sixths * kRadiansPerSixth;
    out.s = select(largest > 0.0, range / select(largest > 0.0, largest, one), zero);
    out.v = largest;
    return out;
}

template <class T>
inline Rgb<T> hsv_to_rgb_hdr(Hsv<T> c) noexcept {
    using lanes::max_of;
    using lanes::min_of;
    // The hue in sixths of a turn, brought into [0, 6).
    T sixths = c.h * kSixthsPerRadian;
    sixths = sixths - lanes::floor_of(sixths * (1.0 / 6.0)) * 6.0;
    const T chroma = c.v * c.s;
    // Each component falls from the value by the chroma over the part of the hue circle that
    // lies away from it: n is 5 for red, 3 for green, 1 for blue.
    const auto component = [&](double n) {
        T k = sixths + n;
        k = lanes::select(k >= 6.0, k - 6.0, k);
        const T t = max_of(lanes::splat<T>(0.0), min_of(min_of(k, 4.0 - k), lanes::splat<T>(1.0)));
        return c.v - chroma * t;
    };
    return {component(5.0), component(3.0), component(1.0)};
}

}  // namespace VX_LANES_ISA
}  // namespace vx::color
