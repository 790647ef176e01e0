// Row kernels of the render output pixel operations: N pixels at a time through one hue and
// saturation variant and one level variant. One table of kernels is built for every processor
// (pixel_image.cpp), one for processors with AVX2 (pixel_image_avx2.cpp) and one for
// those with AVX-512 (pixel_image_avx512.cpp); both are
// instantiations of the templates below and of those in pixel_ops.h.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

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

// N RGB pixels, all read before any is written.
template <int N, unsigned HueSat, unsigned Level>
inline void block(const RenderOutputSettings &s, const float *in, float *out) noexcept {
    using F = lanes::Vec<float, N>;
    using D = lanes::Vec<double, N>;
    color::Rgb<F> c;
    for (int k = 0; k < N; ++k) {
        c.r[k] = in[3 * k];
        c.g[k] = in[3 * k + 1];
        c.b[k] = in[3 * k + 2];
    }
    if constexpr (HueSat != 0) {
        const color::Rgb<D> d = hue_sat<HueSat>(
            s, color::Rgb<D>{__builtin_convertvector(c.r, D), __builtin_convertvector(c.g, D),
                             __builtin_convertvector(c.b, D)});
        c = {__builtin_convertvector(d.r, F), __builtin_convertvector(d.g, F),
             __builtin_convertvector(d.b, F)};
    }
    c = levels<Level>(s, c);
    for (int k = 0; k < N; ++k) {
        out[3 * k] = c.r[k];
        out[3 * k + 1] = c.g[k];
        out[3 * k + 2] = c.b[k];
    }
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
