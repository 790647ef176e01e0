// The major axis of a hull: a small bounding rectangle in the hull's plane, and in space.
#pragma once

#include "geometry/convex_hull.h"

namespace vx {

struct HullRectangle {
    double centre[2];
    double axis[2];  // unit
    double length;
    double width;
};

// False (rectangle untouched) with fewer than 2 hull vertices, a zero diameter, or two hull
// vertices in one place.
bool hull_major_axis(const ConvexHullData &hull, HullRectangle &out);

struct HullRectangle3D {
    double centre[3];
    double axis[3];    // unit
    double across[3];  // unit, the lifted direction across the axis
    double normal[3];  // the plane's unit normal
    double length;
    double width;
};

bool hull_major_axis_3d(const ConvexHullData &hull, HullRectangle3D &out);

}  // namespace vx
