// The blend modes: per value (colour, scalar, texture-layer value) and over rows and images.
//
// Both forms instantiate the one formula table of blend_formula.h: the per-value functions on
// floats and doubles, the row forms on four floats at a time with a scalar tail, so each
// pixel goes through the same operations in the same order. This file is compiled with
// -ffp-contract=off so that no multiply-add is fused in one form and not the other.
#include <vexor/blend.h>

#include <cstring>

#include "shading/blend_formula.h"

using namespace vx::blend;

namespace {

constexpr const char *kNames[kModeCount] = {
    "normal",    "add",      "subtract", "difference", "normal multiply",
    "divide",    "multiply", "screen",   "overlay",    "softlight",
    "hardlight", "darken",   "lighten",  "colordodge", "colorburn"};

F4 load(const float *p) noexcept {
    F4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void store(float *p, F4 v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// RGB rows are one run of floats that all blend alike.
template <int Mode>
void row_rgb(float *out, const float *base, const float *layer, std::size_t pixels,
             float opacity) noexcept {
    const std::size_t n = pixels * 3;
    const F4 o = splat<F4>(static_cast<double>(opacity));
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) store(out + i, composite<Mode>(load(base + i), load(layer + i), o));
    for (; i < n; ++i) out[i] = composite<Mode, float>(base[i], layer[i], opacity);
}

// RGBA rows: one pixel per vector; the layer's alpha scales the opacity, and the alpha channel
// gathers coverage.
template <int Mode>
void row_rgba(float *out, const float *base, const float *layer, std::size_t pixels,
              float opacity) noexcept {
    for (std::size_t p = 0; p < pixels * 4; p += 4) {
        const F4 x = load(base + p), y = load(layer + p);
        // The layer's alpha in every lane (written out, since only GCC has __builtin_shuffle).
        const F4 o = F4{y[3], y[3], y[3], y[3]} * opacity;
        F4 r = composite<Mode>(x, y, o);
        r[3] = x[3] + (1.0f - x[3]) * o[3];
        store(out + p, r);
    }
}

using RowFn = void (*)(float *, const float *, const float *, std::size_t, float) noexcept;

template <std::size_t... M>
constexpr std::array<RowFn, kModeCount> rgb_rows(std::index_sequence<M...>) {
    return {&row_rgb<static_cast<int>(M)>...};
}
template <std::size_t... M>
constexpr std::array<RowFn, kModeCount> rgba_rows(std::index_sequence<M...>) {
    return {&row_rgba<static_cast<int>(M)>...};
}

constexpr auto kRgbRows = rgb_rows(std::make_index_sequence<kModeCount>());
constexpr auto kRgbaRows = rgba_rows(std::make_index_sequence<kModeCount>());

RowFn row_function(int channels, int mode) noexcept {
    if (mode < 0 || mode >= kModeCount) return nullptr;
    if (channels == 3) return kRgbRows[static_cast<std::size_t>(mode)];
    if (channels == 4) return kRgbaRows[static_cast<std::size_t>(mode)];
    return nullptr;
}

}  // namespace

extern "C" {

VX_API int TextureLayerBlendCount(void) {
    return kModeCount;
}

VX_API const char *TextureLayerBlendName(int mode) {
    return mode >= 0 && mode < kModeCount ? kNames[mode] : nullptr;
}

VX_API int TextureLayerBlendLookup(const char *name) {
    for (int mode = 0; name != nullptr && mode < kModeCount; ++mode) {
        if (std::strcmp(kNames[mode], name) == 0) return mode;
    }
    return -1;
}

VX_API void ColorBlendValue(float out[3], const float base[3], const float layer[3], float opacity,
                            int mode) {
    for (int c = 0; c < 3; ++c) out[c] = composite_by_mode(mode, base[c], layer[c], opacity);
}

VX_API float ScalarBlendValue(float base, float layer, float opacity, int mode) {
    return composite_by_mode(mode, base, layer, opacity);
}

VX_API void TextureLayerBlendValue(const TextureLayerValue *value, double *dest, int isColor,
                                   int mode, double factor) {
    if (value == nullptr || dest == nullptr) return;
    if (mode == 0 && value->opacity == 1.0 && factor == 1.0) {
        if (isColor != 0) {
            std::memcpy(dest, value->rgb, sizeof value->rgb);
            dest[3] = 1.0;
        } else {
            dest[0] = value->value;
        }
        return;
    }
    const double w = value->opacity * factor;
    const bool known = mode >= 0 && mode < kModeCount;
    auto mix = [&](double &d, double y) {
        const double b =
            known ? kFormulas<double, false>[static_cast<std::size_t>(mode)](d, y) : 0.0;
        d = d * (1.0 - w) + w * b;
    };
    if (isColor != 0) {
        for (int c = 0; c < 3; ++c) mix(dest[c], value->rgb[c]);
        dest[3] = 1.0 - (1.0 - dest[3]) * (1.0 - w);
    } else {
        mix(dest[0], value->value);
    }
}

VX_API int ColorBlendRow(float *out, const float *base, const float *layer, size_t pixels,
                         int channels, float opacity, int mode) {
    return ColorBlendImage(out, 0, base, 0, layer, 0, pixels, 1, channels, opacity, mode);
}

VX_API int ColorBlendImage(float *out, size_t outStride, const float *base, size_t baseStride,
                           const float *layer, size_t layerStride, size_t width, size_t height,
                           int channels, float opacity, int mode) {
    const RowFn row = row_function(channels, mode);
    if (row == nullptr || out == nullptr || base == nullptr || layer == nullptr) return 0;
    const std::size_t packed = width * static_cast<std::size_t>(channels);
    for (std::size_t y = 0; y < height; ++y) {
        row(out + y * (outStride != 0 ? outStride : packed),
            base + y * (baseStride != 0 ? baseStride : packed),
            layer + y * (layerStride != 0 ? layerStride : packed), width, opacity);
    }
    return 1;
}

}  // extern "C"
