// The exported per-pixel functions: each specialisation is one instantiation of the template
// in pixel_ops.h, and the general functions pick the specialisation for every pixel.
#include <vexor/render_output.h>

#include "render/pixel_ops.h"

namespace vx::render {

namespace {

constexpr unsigned kComponentBits = RENDER_LEVELS_RED | RENDER_LEVELS_GREEN | RENDER_LEVELS_BLUE;
constexpr unsigned kOwnRangeBits = RENDER_LEVELS_INPUT | RENDER_LEVELS_OUTPUT;

}  // namespace

unsigned hue_sat_variant(const RenderOutputSettings &s) noexcept {
    if (s.enable == 0) return 0;
    unsigned variant = 0;
    if ((s.flags & RENDER_HUE_OFFSET) != 0 && s.hueOffset != 0.0f) variant |= kHue;
    if ((s.flags & RENDER_SATURATION) != 0 && s.saturation != 1.0f) variant |= kSaturation;
    if ((s.flags & RENDER_COLORIZE) != 0 && s.colorAmount != 0.0f) variant |= kColorize;
    return variant;
}

unsigned level_variant(const RenderOutputSettings &s) noexcept {
    if (s.enable == 0) return 0;
    unsigned variant = 0;
    if (s.blackLevel != 0.0f || s.outputMin != 0.0f || s.outputMax != 1.0f) variant |= kBlackWhite;
    if ((s.flags & kComponentBits) != 0 && (s.flags & kOwnRangeBits) != 0) variant |= kComponents;
    return variant;
}

RenderOutputSettings prepare(const RenderOutputSettings &s) noexcept {
    RenderOutputSettings p = s;
    for (int i = 0; i < 3; ++i) {
        const bool takes_part = (s.flags & (RENDER_LEVELS_RED << i)) != 0;
        if (!takes_part || (s.flags & RENDER_LEVELS_INPUT) == 0) {
            p.inputMinRGB[i] = 0.0f;
            p.inputMaxRGB[i] = 1.0f;
        }
        if (!takes_part || (s.flags & RENDER_LEVELS_OUTPUT) == 0) {
            p.outputMinRGB[i] = 0.0f;
            p.outputMaxRGB[i] = 1.0f;
        }
    }
    return p;
}

}  // namespace vx::render

// The specialisations: one instantiation each, named by variant number.
#define VX_PIXEL_VARIANT(name, hue_sat, level)                                           \
    extern "C" VX_API void name(const RenderOutputSettings *settings, const float in[3], \
                                float out[3]) {                                          \
        vx::render::pixel<hue_sat, level>(*settings, in, out);                           \
    }

VX_PIXEL_VARIANT(RenderHueSatPixelColor_NOP, 0, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_HueOffset, 1, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_Saturation, 2, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_HueOffset_Saturation, 3, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_Colorization, 4, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_HueOffset_Colorization, 5, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_Saturation_Colorization, 6, 0)
VX_PIXEL_VARIANT(RenderHueSatPixelColor_HueOffset_Saturation_Colorization, 7, 0)
VX_PIXEL_VARIANT(RenderOutputLevelPixelColor_NOP, 0, 0)
VX_PIXEL_VARIANT(RenderOutputLevelPixelColor_BlackWhite, 0, 1)
VX_PIXEL_VARIANT(RenderOutputLevelPixelColor_ComponentRGB, 0, 2)
VX_PIXEL_VARIANT(RenderOutputLevelPixelColor_BlackWhite_ComponentRGB, 0, 3)

#undef VX_PIXEL_VARIANT

namespace {

// By variant number.
constexpr RenderPixelFunc kHueSat[vx::render::kHueSatVariants] = {
    RenderHueSatPixelColor_NOP,
    RenderHueSatPixelColor_HueOffset,
    RenderHueSatPixelColor_Saturation,
    RenderHueSatPixelColor_HueOffset_Saturation,
    RenderHueSatPixelColor_Colorization,
    RenderHueSatPixelColor_HueOffset_Colorization,
    RenderHueSatPixelColor_Saturation_Colorization,
    RenderHueSatPixelColor_HueOffset_Saturation_Colorization,
};
constexpr RenderPixelFunc kLevels[vx::render::kLevelVariants] = {
    RenderOutputLevelPixelColor_NOP,
    RenderOutputLevelPixelColor_BlackWhite,
    RenderOutputLevelPixelColor_ComponentRGB,
    RenderOutputLevelPixelColor_BlackWhite_ComponentRGB,
};

}  // namespace

extern "C" {

VX_API void RenderOutputSettingsInit(RenderOutputSettings *settings) {
    *settings = RenderOutputSettings{};
    settings->enable = 1;
    settings->saturation = 1.0f;
    settings->outputMax = 1.0f;
    for (int i = 0; i < 3; ++i) {
        settings->inputMaxRGB[i] = 1.0f;
        settings->outputMaxRGB[i] = 1.0f;
    }
}

VX_API void RenderOutputPrepare(const RenderOutputSettings *settings,
                                RenderOutputSettings *prepared) {
    *prepared = vx::render::prepare(*settings);
}

VX_API RenderPixelFunc RenderHueSatPixelFunc(const RenderOutputSettings *prepared) {
    return kHueSat[vx::render::hue_sat_variant(*prepared)];
}

VX_API RenderPixelFunc RenderOutputLevelPixelFunc(const RenderOutputSettings *prepared) {
    return kLevels[vx::render::level_variant(*prepared)];
}

VX_API void RenderHueSatPixelColor(const RenderOutputSettings *settings, const float in[3],
                                   float out[3]) {
    kHueSat[vx::render::hue_sat_variant(*settings)](settings, in, out);
}

VX_API void RenderOutputLevelPixelColor(const RenderOutputSettings *settings, const float in[3],
                                        float out[3]) {
    const RenderOutputSettings prepared = vx::render::prepare(*settings);
    kLevels[vx::render::level_variant(prepared)](&prepared, in, out);
}

VX_API void RenderOutputApplyImage(const RenderOutputSettings *settings, const float *in,
                                   float *out, size_t count) {
    vx::render::apply_image(vx::render::prepare(*settings), in, out, count);
}

}  // extern "C"
