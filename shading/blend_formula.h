// The fifteen blend modes: one definition of each formula, for scalars (float, double) and
// for vectors of floats, so that the per-pixel functions and the image forms compute the same
// operations in the same order and agree bit for bit.
//
// Every formula is written branch-free with sel(): both sides are computed and one is chosen,
// which gives the same result as choosing first (a side that is not chosen may divide by
// zero or take the root of a negative; its value is thrown away).
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vx::blend {

inline constexpr int kModeCount = 15;

// Four floats, one SSE register.
typedef float F4 __attribute__((vector_size(16)));
typedef std::int32_t I4 __attribute__((vector_size(16)));

template <class T>
inline constexpr bool is_vector = std::is_same_v<T, F4>;

template <class T>
inline T splat(double v) noexcept {
    if constexpr (is_vector<T>) {
        return F4{} + static_cast<float>(v);
    } else {
        return static_cast<T>(v);
    }
}

// mask ? a : b, lane by lane for vectors.
template <class M, class T>
inline T sel(M mask, T a, T b) noexcept {
    if constexpr (is_vector<T>) {
        return mask ? a : b;
    } else {
        return mask ? a : b;
    }
}

template <class T>
inline T abs_of(T v) noexcept {
    if constexpr (is_vector<T>) {
        I4 bits;
        std::memcpy(&bits, &v, sizeof v);
        bits &= 0x7FFFFFFF;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    } else {
        return std::fabs(v);
    }
}

template <class T>
inline T sqrt_of(T v) noexcept {
    if constexpr (is_vector<T>) {
#if defined(__SSE2__)
        return reinterpret_cast<F4>(_mm_sqrt_ps(reinterpret_cast<__m128>(v)));
#else
        return F4{std::sqrt(v[0]), std::sqrt(v[1]), std::sqrt(v[2]), std::sqrt(v[3])};
#endif
    } else {
        return std::sqrt(v);
    }
}

// std::min and std::max as they choose: the first argument unless the second is smaller
// (larger).
template <class T>
inline T min_of(T a, T b) noexcept {
    return sel(b < a, b, a);
}
template <class T>
inline T max_of(T a, T b) noexcept {
    return sel(a < b, b, a);
}

// The blended value b for base x and layer value y. `guard` is the zero guard of "divide"
// that the colour and scalar functions have (both exactly 0 gives 0; a NaN is not 0).
template <int Mode, bool Guard, class T>
inline T formula(T x, T y) noexcept {
    const T zero = splat<T>(0.0), one = splat<T>(1.0), half = splat<T>(0.5), two = splat<T>(2.0);
    if constexpr (Mode == 0) {  // normal
        return y;
    } else if constexpr (Mode == 1) {  // add
        return x + y;
    } else if constexpr (Mode == 2) {  // subtract
        return x - y;
    } else if constexpr (Mode == 3) {  // difference
        return abs_of(x - y);
    } else if constexpr (Mode == 4) {  // normal multiply
        return sqrt_of(abs_of(x * y));
    } else if constexpr (Mode == 5) {  // divide
        const T b = ((y + one) / (x + one) - half) / splat<T>(1.5);
        if constexpr (Guard) {
            return sel(x == zero && y == zero, zero, b);
        } else {
            return b;
        }
    } else if constexpr (Mode == 6) {  // multiply
        return x * y;
    } else if constexpr (Mode == 7) {  // screen
        return one - (one - x) * (one - y);
    } else if constexpr (Mode == 8) {  // overlay: the lower half is the plain product
        return sel(x < half, x * y, one - two * (one - x) * (one - y));
    } else if constexpr (Mode == 9) {  // softlight
        const T low = two * x * y + x * x * (one - two * y);
        const T high = sel(x >= zero, sqrt_of(x) * (two * y - one) + two * x * (one - y), zero);
        return sel(y < half, low, high);
    } else if constexpr (Mode == 10) {  // hardlight: overlay chosen by the layer
        return sel(y < half, x * y, one - two * (one - x) * (one - y));
    } else if constexpr (Mode == 11) {  // darken
        return min_of(x, y);
    } else if constexpr (Mode == 12) {  // lighten
        return max_of(x, y);
    } else if constexpr (Mode == 13) {  // colordodge
        return sel(x >= one, one,
                   sel(x == zero, zero, sel(y >= one, one, min_of(one, x / (one - y)))));
    } else {  // colorburn
        static_assert(Mode == 14);
        return sel(x >= one, one, sel(y == zero, zero, max_of(zero, one - (one - x) / y)));
    }
}

template <class T>
using Formula = T (*)(T x, T y);

// The tables stay inside the file that includes this header: the library exports only C.
namespace {

template <class T, bool Guard, std::size_t... M>
constexpr std::array<Formula<T>, kModeCount> make_table(std::index_sequence<M...>) {
    return {&formula<static_cast<int>(M), Guard, T>...};
}

// The table of the fifteen formulas by mode, for one value type and guard.
template <class T, bool Guard>
inline constexpr std::array<Formula<T>, kModeCount> kFormulas =
    make_table<T, Guard>(std::make_index_sequence<kModeCount>());

// The blend of one colour channel as the colour and scalar functions make it.
template <int Mode, class T>
inline T composite(T base, T layer, T opacity) noexcept {
    if constexpr (Mode == 0) {
        return base + (layer - base) * opacity;
    } else {
        return base * (splat<T>(1.0) - opacity) + opacity * formula<Mode, true, T>(base, layer);
    }
}

template <class T>
using Composite = T (*)(T base, T layer, T opacity);

template <class T, std::size_t... M>
constexpr std::array<Composite<T>, kModeCount> make_composites(std::index_sequence<M...>) {
    return {&composite<static_cast<int>(M), T>...};
}

// The channel blends of the colour and scalar functions by mode.
template <class T>
inline constexpr std::array<Composite<T>, kModeCount> kComposites =
    make_composites<T>(std::make_index_sequence<kModeCount>());

}  // namespace

// A channel blend by mode; an unknown mode blends towards 0.
template <class T>
inline T composite_by_mode(int mode, T base, T layer, T opacity) noexcept {
    if (mode < 0 || mode >= kModeCount) return base * (splat<T>(1.0) - opacity);
    return kComposites<T>[static_cast<std::size_t>(mode)](base, layer, opacity);
}

}  // namespace vx::blend
