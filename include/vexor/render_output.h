/* Render output pixel operations: the colour adjustments a render output applies to its
 * pixels, one RGB pixel of three floats at a time, or to a whole image.
 *
 * Two operations, in this order:
 *
 * Hue and saturation (RenderHueSatPixelColor...): the pixel goes to HDR HSV (vexor/color.h),
 *   its hue is turned by hueOffset radians (wrapped once into [0, 2pi]), its saturation is
 *   multiplied by `saturation` (saturation pushed above 1 is set to 1 and brightens the pixel
 *   instead: the value is multiplied by the excess), it comes back to RGB, and then moves
 *   towards `color` by colorAmount: out = c + colorAmount * (color - c). The conversion runs
 *   in double precision; the result is rounded to float once.
 *
 * Output levels (RenderOutputLevelPixelColor...), in float:
 *   black and white: with luma L = 0.3 R + 0.59 G + 0.11 B, every component is scaled by
 *     (outputMin + (L - blackLevel) / max(1 - blackLevel, 1e-5) * (outputMax - outputMin)) / L,
 *     which keeps the hue; a pixel whose luma is 0 becomes outputMin in every component.
 *   per component: c becomes outMin + (c - inMin) / max(inMax - inMin, 0.0001) *
 *     (outMax - outMin) with the component's own ranges (the ...RGB arrays); a component that
 *     is 0, and every component of a pixel whose luma is 0, becomes its outMin.
 *   both: the black-and-white mapping, then the per-component mapping of its result. A black
 *     pixel therefore becomes the per-component mapping of outputMin, which is each
 *     component's outMin when outputMin is 0.
 *
 * Which adjustments are on: `enable` switches both operations; the flag bits switch hue offset,
 * saturation and colorization; an adjustment that would change nothing (offset 0, factor 1,
 * amount 0) counts as off. The black-and-white levels are on when they differ from the
 * identity (blackLevel 0, outputMin 0, outputMax 1). The per-component levels: each of red,
 * green and blue takes part when its bit is set; a component that takes part uses its own
 * input range when RENDER_LEVELS_INPUT is set (else 0 to 1) and its own output range when
 * RENDER_LEVELS_OUTPUT is set (else 0 to 1); a component that does not take part maps 0 to 1
 * onto 0 to 1, and the per-component levels are on when some component takes part with its
 * own input or output range.
 *
 * The general functions (RenderHueSatPixelColor, RenderOutputLevelPixelColor) test these
 * switches for every pixel. The specialisations test nothing: each applies exactly the
 * adjustments its name lists, and the per-component ones use the ...RGB ranges as given.
 * RenderOutputPrepare resolves the switches once into settings for the specialisation that
 * RenderHueSatPixelFunc and RenderOutputLevelPixelFunc choose, and
 *     f = RenderOutputLevelPixelFunc(&prepared); f(&prepared, in, out);
 * gives the same bits as RenderOutputLevelPixelColor(&settings, in, out).
 *
 * Every pixel function reads its input before writing: `in` and `out` may be the same pixel.
 * Pure functions: any thread. */
#ifndef VEXOR_RENDER_OUTPUT_H
#define VEXOR_RENDER_OUTPUT_H

#include <stddef.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Flag bits of RenderOutputSettings.flags. */
#define RENDER_HUE_OFFSET 0x2000u
#define RENDER_SATURATION 0x4000u
#define RENDER_COLORIZE 0x8000u
#define RENDER_LEVELS_INPUT 0x200u  /* taking components use their own input range */
#define RENDER_LEVELS_OUTPUT 0x800u /* taking components use their own output range */
#define RENDER_LEVELS_RED 0x20000u
#define RENDER_LEVELS_GREEN 0x40000u
#define RENDER_LEVELS_BLUE 0x80000u

/* The colour settings of a render output. */
typedef struct RenderOutputSettings {
    int enable;         /* 0: both operations copy the pixel */
    unsigned int flags; /* RENDER_... bits */
    float hueOffset;    /* radians */
    float saturation;   /* factor */
    float colorAmount;  /* 0 keeps the colour, 1 replaces it by `color` */
    float color[3];     /* the colorization colour */
    float blackLevel;   /* input black level of the black-and-white levels */
    float outputMin;    /* output levels of the black-and-white levels */
    float outputMax;
    float inputMinRGB[3]; /* per-component input and output ranges */
    float inputMaxRGB[3];
    float outputMinRGB[3];
    float outputMaxRGB[3];
} RenderOutputSettings;

/* A pixel operation: reads in[0..2], writes out[0..2]. */
typedef void (*RenderPixelFunc)(const RenderOutputSettings *settings, const float in[3],
                                float out[3]);

/* Settings that change nothing: enabled, no flags, saturation 1, black level 0, output
 * levels 0 to 1, every range 0 to 1. */
VX_API void RenderOutputSettingsInit(RenderOutputSettings *settings);

/* Hue and saturation: the general function, then one specialisation per set of adjustments;
 * _NOP copies. */
VX_API void RenderHueSatPixelColor(const RenderOutputSettings *settings, const float in[3],
                                   float out[3]);
VX_API void RenderHueSatPixelColor_NOP(const RenderOutputSettings *settings, const float in[3],
                                       float out[3]);
VX_API void RenderHueSatPixelColor_HueOffset(const RenderOutputSettings *settings,
                                             const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_Saturation(const RenderOutputSettings *settings,
                                              const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_Colorization(const RenderOutputSettings *settings,
                                                const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_HueOffset_Saturation(const RenderOutputSettings *settings,
                                                        const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_HueOffset_Colorization(const RenderOutputSettings *settings,
                                                          const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_Saturation_Colorization(const RenderOutputSettings *settings,
                                                           const float in[3], float out[3]);
VX_API void RenderHueSatPixelColor_HueOffset_Saturation_Colorization(
    const RenderOutputSettings *settings, const float in[3], float out[3]);

/* Output levels: the general function, then the specialisations; _NOP copies. */
VX_API void RenderOutputLevelPixelColor(const RenderOutputSettings *settings, const float in[3],
                                        float out[3]);
VX_API void RenderOutputLevelPixelColor_BlackWhite(const RenderOutputSettings *settings,
                                                   const float in[3], float out[3]);
VX_API void RenderOutputLevelPixelColor_ComponentRGB(const RenderOutputSettings *settings,
                                                     const float in[3], float out[3]);
VX_API void RenderOutputLevelPixelColor_BlackWhite_ComponentRGB(
    const RenderOutputSettings *settings, const float in[3], float out[3]);
VX_API void RenderOutputLevelPixelColor_NOP(const RenderOutputSettings *settings, const float in[3],
                                            float out[3]);

/* Resolves the switches of `settings` into `prepared` (which may be the same record): the
 * per-component ranges of components that do not take part become 0 to 1. */
VX_API void RenderOutputPrepare(const RenderOutputSettings *settings,
                                RenderOutputSettings *prepared);

/* The specialisation the general function would apply to every pixel, for settings made by
 * RenderOutputPrepare. */
VX_API RenderPixelFunc RenderHueSatPixelFunc(const RenderOutputSettings *prepared);
VX_API RenderPixelFunc RenderOutputLevelPixelFunc(const RenderOutputSettings *prepared);

/* Both operations, hue and saturation first, on `count` RGB pixels of three floats each, read
 * from `in` and written to `out` (the same array, or arrays that do not overlap). The
 * specialisations are chosen once for the image, and each pixel comes out with the same bits
 * as RenderHueSatPixelColor followed by RenderOutputLevelPixelColor would give it. */
VX_API void RenderOutputApplyImage(const RenderOutputSettings *settings, const float *in,
                                   float *out, size_t count);

VX_EXTERN_C_END

#endif
