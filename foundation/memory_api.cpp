#include <vexor/memory.h>

#include <memory>
#include <type_traits>

#include "foundation/guard.h"
#include "foundation/memory.h"

// A zone wraps either pool kind; which one is fixed when it is created.
struct BlockZone {
    std::unique_ptr<vx::BlockPool> single;
    std::unique_ptr<vx::BlockPoolMT> shared;
};

namespace {

template <class Pool>
BlockZone *make_zone(std::size_t block_size) {
    auto zone = std::make_unique<BlockZone>();
    if constexpr (std::is_same_v<Pool, vx::BlockPool>) {
        zone->single = std::make_unique<Pool>(block_size);
    } else {
        zone->shared = std::make_unique<Pool>(block_size);
    }
    return zone.release();
}

}  // namespace

extern "C" VX_API void *StdAlloc(size_t size) {
    return vx::guard(static_cast<void *>(nullptr), [&] { return vx::StdAlloc(size); });
}

extern "C" VX_API void FreeHeap(void *block, size_t size) {
    vx::FreeHeap(block, size);
}

extern "C" VX_API BlockZone *BZCreate(size_t block_size) {
    return vx::guard(static_cast<BlockZone *>(nullptr),
                     [&] { return make_zone<vx::BlockPool>(block_size); });
}

extern "C" VX_API BlockZone *BZCreateMT(size_t block_size) {
    return vx::guard(static_cast<BlockZone *>(nullptr),
                     [&] { return make_zone<vx::BlockPoolMT>(block_size); });
}

extern "C" VX_API void *BZAlloc(BlockZone *zone) {
    if (zone == nullptr) return nullptr;
    return vx::guard(static_cast<void *>(nullptr),
                     [&] { return zone->single ? zone->single->alloc() : zone->shared->alloc(); });
}

extern "C" VX_API void BZFree(BlockZone *zone, void *block) {
    if (zone == nullptr || block == nullptr) return;
    if (zone->single) {
        zone->single->free(block);
    } else {
        zone->shared->free(block);
    }
}

extern "C" VX_API void BZDestroy(BlockZone *zone) {
    delete zone;
}

extern "C" VX_API size_t BZLive(const BlockZone *zone) {
    if (zone == nullptr) return 0;
    return zone->single ? zone->single->live() : zone->shared->live();
}
