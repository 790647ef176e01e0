// Small 3D vector operations in double.
#pragma once

namespace vx {

// Scales to unit length; returns the length before, or 0 (vector untouched) when it cannot.
double normalize(double vector[3]) noexcept;

inline void cross(const double a[3], const double b[3], double out[3]) noexcept {
    const double x = a[1] * b[2] - a[2] * b[1];
    const double y = a[2] * b[0] - a[0] * b[2];
    const double z = a[0] * b[1] - a[1] * b[0];
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

// Distance from p to the segment a-b; t receives the unclamped parameter of p's foot.
double distance_point_segment(const double p[3], const double a[3], const double b[3],
                              double &t) noexcept;

}  // namespace vx
