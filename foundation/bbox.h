// Bounding boxes of 3D positions.
#pragma once

#include <cmath>

#include <vexor/bbox.h>

namespace vx {

template <class Real>
void bbox_init(BBox &box, const Real position[3]) noexcept {
    for (int k = 0; k < 3; ++k) {
        box.min[k] = box.max[k] = static_cast<double>(position[k]);
        box.extent[k] = 0.0;
    }
}

template <class Real>
void bbox_expand(BBox &box, const Real position[3]) noexcept {
    for (int k = 0; k < 3; ++k) {
        const double c = static_cast<double>(position[k]);
        if (c < box.min[k]) box.min[k] = c;
        if (c > box.max[k]) box.max[k] = c;
    }
}

inline void bbox_set_extent(BBox &box) noexcept {
    for (int k = 0; k < 3; ++k) box.extent[k] = box.max[k] - box.min[k];
}

// Whether a position lies in the box, faces included.
template <class Real>
bool bbox_contains(const BBox &box, const Real position[3]) noexcept {
    for (int k = 0; k < 3; ++k) {
        const double c = static_cast<double>(position[k]);
        if (!(box.min[k] <= c && c <= box.max[k])) return false;
    }
    return true;
}

double bbox_tolerance(const BBox &box) noexcept;

}  // namespace vx
