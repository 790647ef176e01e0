// Maths the curves need.
#pragma once

namespace vx {

// The cubic Hermite basis at u: weights of the start value, end value, start tangent and end
// tangent, in that order.
inline void Hermite(double u, double basis[4]) noexcept {
    const double u2 = u * u;
    const double u3 = u2 * u;
    basis[0] = 2.0 * u3 - 3.0 * u2 + 1.0;
    basis[1] = -2.0 * u3 + 3.0 * u2;
    basis[2] = u3 - 2.0 * u2 + u;
    basis[3] = u3 - u2;
}

}  // namespace vx
