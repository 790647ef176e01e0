// Radiance maps: RGB radiance by direction over an octahedral layout of the sphere.
#pragma once

#include <vector>

struct RadMap {
    unsigned size = 0;
    bool kept_by_cache = false;
    std::vector<float> sums;       // 3 per cell
    std::vector<unsigned> counts;  // additions per cell
};
