/* Colour conversions for shading and render outputs.
 *
 * The HDR HSV model: value is the largest of the three components, not clamped (a colour
 * brighter than white has a value above 1); saturation is (largest - smallest) / largest, 0 for
 * greys and for colours whose largest component is 0 or below, and above 1 when a component
 * is negative; hue is in radians in [0, 2pi): 0 red, 2pi/3 green, 4pi/3 blue, 0 for greys.
 *
 * HSV is held in doubles so that no precision is lost on the way: a colour converted to HSV
 * and back is the colour it was, bit for bit, for every colour with components in [0, 1]
 * whose smallest non-zero component is above 1e-8 of its largest (and for greys, black and
 * the pure primaries whatever their brightness).
 *
 * Pure functions: any thread. */
#ifndef VEXOR_COLOR_H
#define VEXOR_COLOR_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* RGB to HDR HSV: hsv[0] hue in radians, hsv[1] saturation, hsv[2] value. */
VX_API void FColorRGBtoHSVHDR(const float rgb[3], double hsv[3]);

/* HDR HSV to RGB. Any hue is accepted and taken modulo 2pi; the saturation is not clamped (a
 * saturation above 1 gives a negative smallest component). Each component is rounded to the
 * nearest float. */
VX_API void FColorHSVtoRGBHDR(const double hsv[3], float rgb[3]);

VX_EXTERN_C_END

#endif
