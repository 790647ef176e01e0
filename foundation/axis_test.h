// Axis tests: which coordinate plane a planar test projects onto. Inline, since point tests use
// them per vertex.
#pragma once

#include <cmath>
#include <cstdint>

#include <vexor/axis.h>

namespace vx {

// The in-plane coordinates for each dropped axis, so that (u, v, axis) is cyclic: (1, 2, 0),
// (2, 0, 1), (0, 1, 2).
inline void axis_test_set(AxisTest &test, int axis) noexcept {
    if (axis != 0 && axis != 1) axis = 2;
    test.axis = axis;
    test.u = (axis + 1) % 3;
    test.v = (axis + 2) % 3;
}

// The index of the component largest (Larger) or smallest in magnitude. Comparisons are strict
// and run from Z down, so ties keep the higher index and a NaN never displaces Z.
template <bool Larger, class Real>
int axis_extent(const Real vector[3]) noexcept {
    int best = 2;
    for (int axis = 1; axis >= 0; --axis) {
        const Real candidate = std::fabs(vector[axis]);
        const Real held = std::fabs(vector[best]);
        if (Larger ? candidate > held : candidate < held) best = axis;
    }
    return best;
}

template <class Real>
void axis_test_set_from_vector(AxisTest &test, const Real vector[3]) noexcept {
    axis_test_set(test, axis_extent<true>(vector));
}

// Whether a test is one AxisTestSet could have made: callers index arrays with u and v.
inline bool axis_test_usable(const AxisTest &test) noexcept {
    return test.axis >= 0 && test.axis <= 2 && test.u == (test.axis + 1) % 3 &&
           test.v == (test.axis + 2) % 3;
}

template <class Real>
void axis_test_multiply(Real out[3], const AxisTest &test, const Real in[3]) noexcept {
    const Real u = in[test.u];
    const Real v = in[test.v];
    out[test.axis] = Real(0);
    out[test.u] = u;
    out[test.v] = v;
}

}  // namespace vx
