// Vector helpers and their C interface.
#include "foundation/vector_maths.h"

#include <cmath>

#include <vexor/vector.h>

namespace vx {

double normalize(double vector[3]) noexcept {
    // Scaling by the largest magnitude first keeps tiny and huge vectors from under- or
    // overflowing in the sum of squares.
    double largest = 0.0;
    for (int k = 0; k < 3; ++k) largest = std::fmax(largest, std::fabs(vector[k]));
    if (!(largest > 0.0) || !std::isfinite(largest)) return 0.0;
    for (int k = 0; k < 3; ++k) {
        if (std::isnan(vector[k])) return 0.0;
    }
    const double s[3] = {vector[0] / largest, vector[1] / largest, vector[2] / largest};
    const double scaled = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
    for (int k = 0; k < 3; ++k) vector[k] = s[k] / scaled;
    return largest * scaled;
}

double distance_point_segment(const double p[3], const double a[3], const double b[3],
                              double &t) noexcept {
    double d[3], w[3];
    double dd = 0.0, wd = 0.0;
    for (int k = 0; k < 3; ++k) {
        d[k] = b[k] - a[k];
        w[k] = p[k] - a[k];
        dd += d[k] * d[k];
        wd += w[k] * d[k];
    }
    t = dd > 0.0 ? wd / dd : 0.0;
    const double c = t < 0.0 ? 0.0 : (t > 1.0 ? 1.0 : t);
    double sum = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double e = w[k] - c * d[k];
        sum += e * e;
    }
    return std::sqrt(sum);
}

}  // namespace vx

extern "C" {

VX_API double VNormalize(double vector[3]) {
    return vector != nullptr ? vx::normalize(vector) : 0.0;
}

VX_API int VCrossNormalF(const float a[3], const float b[3], const float c[3], float normal[3]) {
    if (a == nullptr || b == nullptr || c == nullptr || normal == nullptr) return 0;
    auto difference = [](const float *to, const float *from, double out[3]) {
        for (int k = 0; k < 3; ++k)
            out[k] = static_cast<double>(to[k]) - static_cast<double>(from[k]);
    };
    double in[3], out[3];
    difference(b, a, in);
    difference(c, b, out);
    double n[3];
    vx::cross(in, out, n);
    const bool unit = vx::normalize(n) > 0.0;
    for (int k = 0; k < 3; ++k) normal[k] = unit ? static_cast<float>(n[k]) : 0.0f;
    return unit ? 1 : 0;
}

VX_API double DistancePointLineSegment(const double point[3], const double a[3], const double b[3],
                                       double *t) {
    if (point == nullptr || a == nullptr || b == nullptr) return 0.0;
    double parameter;
    const double distance = vx::distance_point_segment(point, a, b, parameter);
    if (t != nullptr) *t = parameter;
    return distance;
}

}  // extern "C"
