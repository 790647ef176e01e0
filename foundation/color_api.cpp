#include <vexor/color.h>

#include "foundation/color_hsv.h"

extern "C" VX_API void FColorRGBtoHSVHDR(const float rgb[3], double hsv[3]) {
    const vx::color::Hsv<double> c = vx::color::rgb_to_hsv_hdr<double>(
        {static_cast<double>(rgb[0]), static_cast<double>(rgb[1]), static_cast<double>(rgb[2])});
    hsv[0] = c.h;
    hsv[1] = c.s;
    hsv[2] = c.v;
}

extern "C" VX_API void FColorHSVtoRGBHDR(const double hsv[3], float rgb[3]) {
    const vx::color::Rgb<double> c = vx::color::hsv_to_rgb_hdr<double>({hsv[0], hsv[1], hsv[2]});
    rgb[0] = static_cast<float>(c.r);
    rgb[1] = static_cast<float>(c.g);
    rgb[2] = static_cast<float>(c.b);
}
