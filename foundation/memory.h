// Memory: records by size, and fixed-size block pools.
//
// Every allocation of the library goes through operator new (directly or through these), so
// the tests can make the Nth allocation fail.
#pragma once

#include <cstddef>

namespace vx {

// Allocates a block of `size` bytes, zero-filled; raises std::bad_alloc when out of memory.
void *StdAlloc(std::size_t size);
// Releases a block from StdAlloc given with the size it was allocated with; null is ignored.
void FreeHeap(void *block, std::size_t size) noexcept;
// The clean-up armed on a checkpoint for a block from StdAlloc.
void StdFreeArm(void *block, std::size_t size) noexcept;

// A pool of fixed-size blocks carved from larger chunks. Freed blocks are reused; chunks are
// returned when the pool is destroyed (blocks still handed out go with them). The block size
// is rounded up to a multiple of alignof(std::max_align_t), and every block is aligned to it.
// Not thread-safe; see BlockPoolMT.
class BlockPool {
  public:
    // blocks_per_chunk 0 picks chunks of about 16 KiB (at least 8 blocks). Raises
    // rc::bad_argument for a block size of 0 or sizes too large to add up.
    explicit BlockPool(std::size_t block_size, std::size_t blocks_per_chunk = 0);
    ~BlockPool();
    BlockPool(const BlockPool &) = delete;
    BlockPool &operator=(const BlockPool &) = delete;

    void *alloc();                    // zero-filled; raises std::bad_alloc
    void free(void *block) noexcept;  // a block of this pool, or null
    std::size_t block_size() const noexcept { return block_size_; }  // after rounding
    std::size_t live() const noexcept { return live_; }              // blocks handed out
    std::size_t chunks() const noexcept { return chunks_; }          // chunks held

  private:
    struct Chunk;
    std::size_t block_size_;
    std::size_t per_chunk_;
    Chunk *chunk_list_ = nullptr;
    void *free_list_ = nullptr;
    std::size_t live_ = 0;
    std::size_t chunks_ = 0;
};

// The thread-safe pool (BZCreateMT): the same operations under a lock.
class BlockPoolMT {
  public:
    explicit BlockPoolMT(std::size_t block_size, std::size_t blocks_per_chunk = 0);
    ~BlockPoolMT();
    BlockPoolMT(const BlockPoolMT &) = delete;
    BlockPoolMT &operator=(const BlockPoolMT &) = delete;

    void *alloc();
    void free(void *block) noexcept;
    std::size_t block_size() const noexcept;
    std::size_t live() const noexcept;
    std::size_t chunks() const noexcept;

  private:
    struct Impl;
    Impl *impl_;
};

}  // namespace vx
