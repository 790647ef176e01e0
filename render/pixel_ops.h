// The render output pixel operations, written once as templates over the lane type (a single
// pixel or a block of four, see foundation/lanes.h) and over the set of adjustments they make.
// Every per-pixel function and every row kernel is an instantiation of these, so a pixel gets
// the same bits from all of them.
#pragma once

#include <vexor/render_output.h>

#include <cstddef>

#include "foundation/color_hsv.h"
#include "foundation/lanes.h"

namespace vx::render {

// The adjustments of the hue and saturation operation, as bits of a variant number 0 to 7.
enum HueSatBits : unsigned { kHue = 1, kSaturation = 2, kColorize = 4 };
// The level mappings, as bits of a variant number 0 to 3.
enum LevelBits : unsigned { kBlackWhite = 1, kComponents = 2 };

inline constexpr unsigned kHueSatVariants = 8;
inline constexpr unsigned kLevelVariants = 4;

// Which adjustments the general functions make for these settings (the flag bits and the
// values tested as the public header describes).
unsigned hue_sat_variant(const RenderOutputSettings &s) noexcept;
unsigned level_variant(const RenderOutputSettings &s) noexcept;
// The settings with the switches resolved (see RenderOutputPrepare).
RenderOutputSettings prepare(const RenderOutputSettings &s) noexcept;

inline namespace VX_LANES_ISA {

template <unsigned Variant, class D>
inline color::Rgb<D> hue_sat(const RenderOutputSettings &s, color::Rgb<D> c) noexcept {
    using lanes::select;
    if constexpr ((Variant & (kHue | kSaturation)) != 0) {
        color::Hsv<D> hsv = color::rgb_to_hsv_hdr(c);
        if constexpr ((Variant & kHue) != 0) {
            D h = hsv.h + static_cast<double>(s.hueOffset);
            h = select(h < 0.0, h + color::kTwoPi, h);
            hsv.h = select(h > color::kTwoPi, h - color::kTwoPi, h);
        }
        if constexpr ((Variant & kSaturation) != 0) {
            const D sat = hsv.s * static_cast<double>(s.saturation);
            // Saturation beyond 1 brightens the pixel instead.
            hsv.v = select(sat > 1.0, hsv.v * sat, hsv.v);
            hsv.s = select(sat > 1.0, lanes::splat<D>(1.0), sat);
        }
        c = color::hsv_to_rgb_hdr(hsv);
    }
    if constexpr ((Variant & kColorize) != 0) {
        const double amount = static_cast<double>(s.colorAmount);
        c.r = c.r + amount * (static_cast<double>(s.color[0]) - c.r);
        c.g = c.g + amount * (static_cast<double>(s.color[1]) - c.g);
        c.b = c.b + amount * (static_cast<double>(s.color[2]) - c.b);
    }
    return c;
}

template <class F>
inline F luma(const color::Rgb<F> &c) noexcept {
    return 0.3f * c.r + 0.59f * c.g + 0.11f * c.b;
}

template <unsigned Variant, class F>
inline color::Rgb<F> levels(const RenderOutputSettings &s, color::Rgb<F> c) noexcept {
    using lanes::select;
    if constexpr ((Variant & kBlackWhite) != 0) {
        const F l = luma(c);
        const float below = lanes::max_of(1.0f - s.blackLevel, 1e-5f);
        const float span = s.outputMax - s.outputMin;
        const F scale =
            (s.outputMin + (l - s.blackLevel) / below * span) / select(l == 0.0f, l + 1.0f, l);
        const F black = lanes::splat<F>(s.outputMin);
        c.r = select(l == 0.0f, black, c.r * scale);
        c.g = select(l == 0.0f, black, c.g * scale);
        c.b = select(l == 0.0f, black, c.b * scale);
    }
    if constexpr ((Variant & kComponents) != 0) {
        const F l = luma(c);
        const auto map = [&](F v, int i) {
            const float low = s.outputMinRGB[i];
            const float range = lanes::max_of(s.inputMaxRGB[i] - s.inputMinRGB[i], 0.0001f);
            const float span = s.outputMaxRGB[i] - low;
            return select((v == 0.0f) | (l == 0.0f), lanes::splat<F>(low),
                          low + (v - s.inputMinRGB[i]) / range * span);
        };
        c = {map(c.r, 0), map(c.g, 1), map(c.b, 2)};
    }
    return c;
}

// One pixel through one hue and saturation variant and one level variant: the reference that
// the row kernels agree with.
template <unsigned HueSat, unsigned Level>
inline void pixel(const RenderOutputSettings &s, const float in[3], float out[3]) noexcept {
    color::Rgb<float> c{in[0], in[1], in[2]};
    if constexpr (HueSat != 0) {
        const color::Rgb<double> d = hue_sat<HueSat>(
            s, color::Rgb<double>{static_cast<double>(c.r), static_cast<double>(c.g),
                                  static_cast<double>(c.b)});
        c = {static_cast<float>(d.r), static_cast<float>(d.g), static_cast<float>(d.b)};
    }
    c = levels<Level>(s, c);
    out[0] = c.r;
    out[1] = c.g;
    out[2] = c.b;
}

}  // namespace VX_LANES_ISA

// Whole images: `count` RGB pixels from `in` to `out` (the same array or apart), through the
// variants the prepared settings call for, with the kernels for the processor's widest vectors.
void apply_image(const RenderOutputSettings &prepared, const float *in, float *out,
                 std::size_t count) noexcept;

// The same with the kernels built for one instruction set, so that tests can hold each of them
// to the per-pixel functions. Returns false (and does nothing) when the processor lacks it.
enum class Isa { portable, avx2, avx512 };
bool apply_image_with(Isa isa, const RenderOutputSettings &prepared, const float *in, float *out,
                      std::size_t count) noexcept;

}  // namespace vx::render
