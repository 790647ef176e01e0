/* Blend modes of texture layers, per value and over whole images.
 *
 * A layer's value y is blended over the value x that the layers below produced, by one of
 * fifteen modes (index: name, blended value b):
 *    0 "normal"          y
 *    1 "add"             x + y
 *    2 "subtract"        x - y
 *    3 "difference"      |x - y|
 *    4 "normal multiply" sqrt(|x y|)
 *    5 "divide"          ((y + 1) / (x + 1) - 0.5) / 1.5
 *    6 "multiply"        x y
 *    7 "screen"          1 - (1 - x)(1 - y)
 *    8 "overlay"         x < 0.5: x y;  else 1 - 2(1 - x)(1 - y)
 *    9 "softlight"       y < 0.5: 2xy + x^2 (1 - 2y);  else x >= 0: sqrt(x)(2y - 1) + 2x(1 - y);
 *                        else 0
 *   10 "hardlight"       as "overlay", chosen by y < 0.5
 *   11 "darken"          min(x, y)
 *   12 "lighten"         max(x, y)
 *   13 "colordodge"      x >= 1: 1;  x = 0: 0;  y >= 1: 1;  else min(1, x / (1 - y))
 *   14 "colorburn"       x >= 1: 1;  y = 0: 0;  else max(0, 1 - (1 - x) / y)
 * The lower halves of "overlay" and "hardlight" are the plain product, with no factor 2.
 *
 * All functions are pure and may be called from any thread. */
#ifndef VEXOR_BLEND_H
#define VEXOR_BLEND_H

#include <stddef.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* A texture layer's value: a scalar, its opacity and a colour. */
typedef struct TextureLayerValue {
    double value;
    double opacity;
    double rgb[3];
} TextureLayerValue;

/* 15. */
VX_API int TextureLayerBlendCount(void);
/* The mode's name, or null for an index out of range. */
VX_API const char *TextureLayerBlendName(int mode);
/* The mode of that name, or -1. */
VX_API int TextureLayerBlendLookup(const char *name);

/* Blends three channels: mode 0 gives base + (layer - base) * opacity; other modes
 * base * (1 - opacity) + opacity * b. "divide" gives b = 0 when both channels are exactly 0.
 * `out` may be `base` or `layer`. An unknown mode blends towards 0 (b = 0). */
VX_API void ColorBlendValue(float out[3], const float base[3], const float layer[3], float opacity,
                            int mode);
/* The same on one channel. */
VX_API float ScalarBlendValue(float base, float layer, float opacity, int mode);

/* Blends a layer's value into a destination of four doubles (RGB and coverage) when isColor
 * is non-zero, else into one double (the scalar). With mode 0, opacity 1 and factor 1 the
 * value is copied (a colour copy sets coverage to 1). Otherwise, with w = opacity * factor,
 * each channel becomes dest (1 - w) + w b, and a colour's coverage 1 - (1 - coverage)(1 - w).
 * Here "divide" has no zero guard. An unknown mode blends towards 0. */
VX_API void TextureLayerBlendValue(const TextureLayerValue *value, double *dest, int isColor,
                                   int mode, double factor);

/* Blends rows of pixels as a compositor does: `channels` is 3 (RGB) or 4 (RGBA), floats
 * interleaved. RGB channels blend as ColorBlendValue with opacity `opacity` (RGB) or
 * `opacity` times the layer pixel's alpha (RGBA); an RGBA result's alpha is
 * base.a + (1 - base.a) * that opacity. `out` may equal `base` or `layer` (whole rows, no
 * partial overlap). Returns 1, or 0 for an unknown mode, a null pointer or another channel
 * count (nothing written). The results equal those of the per-pixel functions bit for bit. */
VX_API int ColorBlendRow(float *out, const float *base, const float *layer, size_t pixels,
                         int channels, float opacity, int mode);
/* The same over images of `width` x `height` pixels whose rows start `outStride`,
 * `baseStride` and `layerStride` floats apart (0: rows packed). */
VX_API int ColorBlendImage(float *out, size_t outStride, const float *base, size_t baseStride,
                           const float *layer, size_t layerStride, size_t width, size_t height,
                           int channels, float opacity, int mode);

VX_EXTERN_C_END

#endif
