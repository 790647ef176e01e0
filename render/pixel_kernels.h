// Row kernels of the render output pixel operations: N pixels at a time through one hue and
// saturation variant and one level variant. One table of kernels is built for every processor
// (pixel_image.cpp), one for processors with AVX2 (pixel_image_avx2.cpp) and one for
// those with AVX-512 (pixel_image_avx512.cpp); both are
// instantiations of the templates below and of those in pixel_ops.h.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__SSE__)
#include <immintrin.h>
#endif

#include "render/pixel_ops.h"

namespace vx::render {

using Kernel = void (*)(const RenderOutputSettings &s, const float *in, float *out,
                        std::size_t count);
using KernelTable = std::array<Kernel, kHueSatVariants * kLevelVariants>;

// The tables built for AVX2 and for AVX-512, indexed by hue variant * kLevelVariants + level
// variant.
const KernelTable &avx2_kernels() noexcept;
const KernelTable &avx512_kernels() noexcept;

inline namespace VX_LANES_ISA {

// Three vectors of N interleaved RGB floats to one vector per channel and back, by two
// shuffles of two vectors each (index -1: any lane).
template <class F, int N, int Ch, int... K>
inline F channel_of(F v0, F v1, F v2, std::integer_sequence<int, K...>) noexcept {
    const F first = __builtin_shufflevector(v0, v1, (3 * K + Ch < 2 * N ? 3 * K + Ch : -1)...);
    return __builtin_shufflevector(first, v2, (3 * K + Ch < 2 * N ? K : 3 * K + Ch - N)...);
}

template <class F, int N, int J, int... K>
inline F interleaved(F r, F g, F b, std::integer_sequence<int, K...>) noexcept {
    // Lane K of output vector J holds component (J N + K) % 3 of pixel (J N + K) / 3.
    const F rg = __builtin_shufflevector(
        r, g, ((J * N + K) % 3 == 2 ? -1 : (J * N + K) / 3 + ((J * N + K) % 3) * N)...);
    return __builtin_shufflevector(rg, b, ((J * N + K) % 3 == 2 ? N + (J * N + K) / 3 : K)...);
}

// N RGB pixels, all read before any is written.
template <int N, unsigned HueSat, unsigned Level>
inline void block(const RenderOutputSettings &s, const float *in, float *out) noexcept {
    using F = lanes::Vec<float, N>;
    using D = lanes::Vec<double, N>;
    constexpr auto lanes_of = std::make_integer_sequence<int, N>{};
    F v[3];
    std::memcpy(v, in, sizeof v);
    color::Rgb<F> c{channel_of<F, N, 0>(v[0], v[1], v[2], lanes_of),
                    channel_of<F, N, 1>(v[0], v[1], v[2], lanes_of),
                    channel_of<F, N, 2>(v[0], v[1], v[2], lanes_of)};
    if constexpr (HueSat != 0) {
        const color::Rgb<D> d = hue_sat<HueSat>(
            s, color::Rgb<D>{__builtin_convertvector(c.r, D), __builtin_convertvector(c.g, D),
                             __builtin_convertvector(c.b, D)});
        c = {__builtin_convertvector(d.r, F), __builtin_convertvector(d.g, F),
             __builtin_convertvector(d.b, F)};
    }
    c = levels<Level>(s, c);
    v[0] = interleaved<F, N, 0>(c.r, c.g, c.b, lanes_of);
    v[1] = interleaved<F, N, 1>(c.r, c.g, c.b, lanes_of);
    v[2] = interleaved<F, N, 2>(c.r, c.g, c.b, lanes_of);
    std::memcpy(out, v, sizeof v);
}

// Images larger than the caches are written past them: the pixels written are not read again
// soon, and fetching their old contents first would cost as much as reading the input.
inline constexpr std::size_t kStreamBytes = std::size_t{8} << 20;

// The same, the result going straight to memory; `out` is 16-byte aligned.
template <int N, unsigned HueSat, unsigned Level>
inline void block_streamed(const RenderOutputSettings &s, const float *in, float *out) noexcept {
#if defined(__SSE__)
    alignas(16) float result[3 * static_cast<std::size_t>(N)];
    block<N, HueSat, Level>(s, in, result);
    for (std::size_t j = 0; j < 3 * static_cast<std::size_t>(N); j += 4)
        _mm_stream_ps(out + j, _mm_load_ps(result + j));
#else
    block<N, HueSat, Level>(s, in, out);
#endif
}

// How far ahead of the block in hand the input is fetched, in floats (the hardware's own
// prefetching alone leaves the kernels waiting on memory).
inline constexpr std::size_t kPrefetchAhead = 384;

template <int N, unsigned HueSat, unsigned Level>
void run(const RenderOutputSettings &s, const float *in, float *out, std::size_t count) {
    if constexpr (HueSat == 0 && Level == 0) {
        if (in != out) std::memmove(out, in, count * 3 * sizeof(float));
    } else {
        constexpr auto n = static_cast<std::size_t>(N);
        std::size_t i = 0;
        const bool stream = count * 3 * sizeof(float) >= kStreamBytes &&
                            reinterpret_cast<std::uintptr_t>(out) % 16 == 0;
        if (stream) {
            for (; i + n <= count; i += n) {
                __builtin_prefetch(in + 3 * i + kPrefetchAhead);
                block_streamed<N, HueSat, Level>(s, in + 3 * i, out + 3 * i);
            }
#if defined(__SSE__)
            _mm_sfence();
#endif
        }
        for (; i + n <= count; i += n) {
            __builtin_prefetch(in + 3 * i + kPrefetchAhead);
            block<N, HueSat, Level>(s, in + 3 * i, out + 3 * i);
        }
        if (i < count) {
            // The last pixels go through a padded block of their own.
            float rest[3 * n] = {};
            std::copy(in + 3 * i, in + 3 * count, rest);
            block<N, HueSat, Level>(s, rest, rest);
            std::copy(rest, rest + 3 * (count - i), out + 3 * i);
        }
    }
}

// Hue kernels work on HueLanes pixels at a time, level-only kernels on LevelLanes: as many as
// fit one register of the instruction set, for the doubles and the floats respectively.
template <int HueLanes, int LevelLanes, unsigned... V>
constexpr KernelTable kernel_table(std::integer_sequence<unsigned, V...>) {
    return {&run < V / kLevelVariants == 0 ? LevelLanes : HueLanes, V / kLevelVariants,
            V % kLevelVariants > ...};
}

template <int HueLanes, int LevelLanes>
inline constexpr KernelTable kKernels = kernel_table<HueLanes, LevelLanes>(
    std::make_integer_sequence<unsigned, kHueSatVariants * kLevelVariants>{});

}  // namespace VX_LANES_ISA

}  // namespace vx::render
