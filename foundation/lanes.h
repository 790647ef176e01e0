// Arithmetic written once for a single value and for a block of lanes.
//
// Per-pixel operations are written as templates over a lane type: a plain float or double for
// the reference form that works on one pixel, or a GCC vector of them for the forms that work on
// whole rows. Only operations that give the same bits in both are allowed: +, -, *, / and
// comparisons, and the helpers below, which use nothing else (no library calls, no fused
// multiply-add: the library is compiled with -ffp-contract=off). A template written this way
// gives the same result for a pixel whichever form computes it.
#pragma once

#include <type_traits>

// Code built for a particular instruction set (a row kernel compiled for AVX2) defines
// VX_LANES_ISA, so that its instantiations of these templates never stand in for those of the
// code built for every processor.
#ifndef VX_LANES_ISA
#define VX_LANES_ISA portable
#endif

namespace vx::lanes {
inline namespace VX_LANES_ISA {

// N lanes of S, for the blocks in use: four, eight or sixteen pixels.
template <class S, int N>
struct VecOf;
template <>
struct VecOf<float, 4> {
    using type = float __attribute__((vector_size(16)));
};
template <>
struct VecOf<double, 4> {
    using type = double __attribute__((vector_size(32)));
};
template <>
struct VecOf<float, 8> {
    using type = float __attribute__((vector_size(32)));
};
template <>
struct VecOf<double, 8> {
    using type = double __attribute__((vector_size(64)));
};
template <>
struct VecOf<float, 16> {
    using type = float __attribute__((vector_size(64)));
};
template <>
struct VecOf<double, 16> {
    using type = double __attribute__((vector_size(128)));
};
template <class S, int N>
using Vec = typename VecOf<S, N>::type;

template <class T>
inline constexpr bool is_vector = !std::is_floating_point_v<T>;

// A value with every lane set to x.
template <class T, class S>
inline T splat(S x) noexcept {
    if constexpr (is_vector<T>) {
        return T{} + x;
    } else {
        return static_cast<T>(x);
    }
}

// Lane by lane: `when` is a comparison of this lane type.
template <class M, class T>
inline T select(M when, T yes, T no) noexcept {
    return when ? yes : no;
}

// The smaller and larger: a < b ? a : b, the same rule for every lane (a NaN in b is kept by
// min_of, a NaN in a is dropped).
template <class T>
inline T min_of(T a, T b) noexcept {
    return select(a < b, a, b);
}
template <class T>
inline T max_of(T a, T b) noexcept {
    return select(a > b, a, b);
}

// The largest whole number not above x (x itself when it is not finite). Adding and taking
// away 1.5 * 2^52 rounds to the nearest whole number in the default rounding mode; magnitudes
// beyond that are whole already.
template <class T>
inline T floor_of(T x) noexcept {
    constexpr double kRound = 6755399441055744.0;  // 1.5 * 2^52
    const T rounded = (x + kRound) - kRound;
    const T nearest = select((x < kRound) & (x > -kRound), rounded, x);
    return select(nearest > x, nearest - 1.0, nearest);
}

}  // namespace VX_LANES_ISA
}  // namespace vx::lanes
