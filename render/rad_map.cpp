// Radiance maps. A direction is projected onto the octahedron |x| + |y| + |z| = 1, whose lower
// half is folded out over the corners of the square of the upper half; the square is cut into
// size x size cells of about equal solid angle.
#include <vexor/irr_cache.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "foundation/guard.h"
#include "render/irr_cache.h"
#include "render/rad_map.h"

namespace {

constexpr unsigned kMaxSize = 1024;

float sign_of(float v) {
    return v >= 0.0f ? 1.0f : -1.0f;
}

bool cell_of(const RadMap &map, const float d[3], unsigned &u, unsigned &v) {
    const float l1 = std::fabs(d[0]) + std::fabs(d[1]) + std::fabs(d[2]);
    if (!std::isfinite(l1) || l1 <= 0.0f) return false;
    float x = d[0] / l1, y = d[1] / l1;
    if (d[2] < 0.0f) {
        const float fx = (1.0f - std::fabs(y)) * sign_of(x);
        const float fy = (1.0f - std::fabs(x)) * sign_of(y);
        x = fx, y = fy;
    }
    const auto index = [&](float t) {
        const float cell = std::floor((t + 1.0f) * 0.5f * static_cast<float>(map.size));
        return static_cast<unsigned>(std::clamp(cell, 0.0f, static_cast<float>(map.size - 1)));
    };
    u = index(x);
    v = index(y);
    return true;
}

}  // namespace

extern "C" {

VX_API RadMap *RadMapAddMap(IrrCache *cache, unsigned int size) {
    if (size < 1 || size > kMaxSize) return nullptr;
    return vx::guard(static_cast<RadMap *>(nullptr), [&] {
        auto map = std::make_unique<RadMap>();
        map->size = size;
        map->sums.assign(std::size_t{size} * size * 3, 0.0f);
        map->counts.assign(std::size_t{size} * size, 0);
        if (cache == nullptr) return map.release();
        map->kept_by_cache = true;
        cache->maps.push_back(std::move(map));
        return cache->maps.back().get();
    });
}

VX_API void RadMapClear(RadMap *map) {
    if (map == nullptr) return;
    std::fill(map->sums.begin(), map->sums.end(), 0.0f);
    std::fill(map->counts.begin(), map->counts.end(), 0u);
}

VX_API void RadMapFree(RadMap *map) {
    if (map != nullptr && !map->kept_by_cache) delete map;
}

VX_API int RadMapDirectionToIndices(const RadMap *map, const float direction[3], unsigned int *u,
                                    unsigned int *v) {
    if (map == nullptr || direction == nullptr || u == nullptr || v == nullptr) return 0;
    return cell_of(*map, direction, *u, *v) ? 1 : 0;
}

VX_API int RadMapIndicesToDirection(const RadMap *map, unsigned int u, unsigned int v,
                                    float direction[3]) {
    if (map == nullptr || direction == nullptr || u >= map->size || v >= map->size) return 0;
    const float n = static_cast<float>(map->size);
    float x = (static_cast<float>(u) + 0.5f) / n * 2.0f - 1.0f;
    float y = (static_cast<float>(v) + 0.5f) / n * 2.0f - 1.0f;
    const float z = 1.0f - std::fabs(x) - std::fabs(y);
    if (z < 0.0f) {
        const float fx = (1.0f - std::fabs(y)) * sign_of(x);
        const float fy = (1.0f - std::fabs(x)) * sign_of(y);
        x = fx, y = fy;
    }
    const float length = std::sqrt(x * x + y * y + z * z);
    direction[0] = x / length;
    direction[1] = y / length;
    direction[2] = z / length;
    return 1;
}

VX_API int RadMapAddRadiance(RadMap *map, const float direction[3], const float radiance[3]) {
    unsigned u = 0, v = 0;
    if (map == nullptr || radiance == nullptr ||
        !RadMapDirectionToIndices(map, direction, &u, &v)) {
        return 0;
    }
    const std::size_t cell = std::size_t{v} * map->size + u;
    for (int c = 0; c < 3; ++c) map->sums[cell * 3 + static_cast<std::size_t>(c)] += radiance[c];
    ++map->counts[cell];
    return 1;
}

VX_API int RadMapGetRadiance(const RadMap *map, const float direction[3], float radiance[3]) {
    unsigned u = 0, v = 0;
    if (map == nullptr || radiance == nullptr ||
        !RadMapDirectionToIndices(map, direction, &u, &v)) {
        return 0;
    }
    const std::size_t cell = std::size_t{v} * map->size + u;
    const unsigned count = map->counts[cell];
    for (int c = 0; c < 3; ++c) {
        radiance[c] = count != 0 ? map->sums[cell * 3 + static_cast<std::size_t>(c)] /
                                       static_cast<float>(count)
                                 : 0.0f;
    }
    return 1;
}

}  // extern "C"
