// What must hold for any bytes loaded as an irradiance cache file. Shared by the fuzz target and
// the test that replays its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vexor/irr_cache.h>

namespace vx::fuzz {

inline const char *check_irr_cache_load(const std::uint8_t *data, std::size_t size) {
    IrrCache *cache = IrrCacheCreate();
    if (cache == nullptr) return nullptr;
    const char *broken = nullptr;
    std::uint32_t count = 0;
    if (size >= 16) std::memcpy(&count, data + 12, sizeof count);  // the file is little-endian
    if (IrrCacheLoadMemory(cache, data, size) == 1) {
        // Everything the header promised, every value where a query finds it, and a second
        // load adds as many again.
        float first[3] = {};
        if (size >= 28) std::memcpy(first, data + 16, sizeof first);
        IrrCacheQuery q{};
        std::memcpy(q.position, first, sizeof first);
        q.normal[2] = 1.0f;
        q.footprint = 1.0f;
        IrrCacheGather(cache, &q);
        if (IrrCacheNumValues(cache) != count) {
            broken = "a loaded file holds another number of values than its header says";
        } else if (IrrCacheLoadMemory(cache, data, size) != 1 ||
                   IrrCacheNumValues(cache) != 2ull * count) {
            broken = "the same bytes did not load a second time";
        }
    } else if (IrrCacheNumValues(cache) != 0 || IrrCacheNumMults(cache) != 0 ||
               IrrCacheNumNodes(cache) != 0) {
        broken = "a refused file left something in the cache";
    }
    IrrCacheDestroy(cache);
    return broken;
}

}  // namespace vx::fuzz
