#include "foundation/memory.h"

#include <cstring>
#include <mutex>
#include <new>

#include "foundation/failure.h"

namespace vx {

void *StdAlloc(std::size_t size) {
    void *block = ::operator new(size);
    std::memset(block, 0, size);
    return block;
}

void FreeHeap(void *block, std::size_t size) noexcept {
    if (block != nullptr) ::operator delete(block, size);
}

void StdFreeArm(void *block, std::size_t size) noexcept {
    FreeHeap(block, size);
}

// ---- BlockPool ---------------------------------------------------------------------------
//
// A chunk is a header followed by its blocks, in one allocation. Free blocks hold the link of
// the free list in their first bytes, which is why a block is at least a pointer wide (it is
// always at least max_align_t wide).

namespace {

constexpr std::size_t kAlign = alignof(std::max_align_t);
static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= kAlign,
              "chunks rely on operator new for the blocks' alignment");

// Chunks of about this many bytes unless the caller says otherwise, and never fewer than
// kMinBlocksPerChunk blocks, so large blocks still share a chunk.
constexpr std::size_t kDefaultChunkBytes = 16 * 1024;
constexpr std::size_t kMinBlocksPerChunk = 8;

constexpr std::size_t round_up(std::size_t n) noexcept {
    return (n + kAlign - 1) / kAlign * kAlign;
}

// The chunk header keeps the first block aligned.
constexpr std::size_t kChunkHeader = round_up(sizeof(void *));

}  // namespace

struct BlockPool::Chunk {
    Chunk *next;
};

BlockPool::BlockPool(std::size_t block_size, std::size_t blocks_per_chunk) {
    if (block_size == 0 || block_size > static_cast<std::size_t>(-1) / 2) {
        fail(rc::bad_argument, "BlockPool: unusable block size");
    }
    block_size_ = round_up(block_size);
    per_chunk_ = blocks_per_chunk;
    if (per_chunk_ == 0) {
        per_chunk_ = kDefaultChunkBytes / block_size_;
        if (per_chunk_ < kMinBlocksPerChunk) per_chunk_ = kMinBlocksPerChunk;
    }
    if (per_chunk_ > (static_cast<std::size_t>(-1) - kChunkHeader) / block_size_) {
        fail(rc::bad_argument, "BlockPool: chunk too large");
    }
}

BlockPool::~BlockPool() {
    while (chunk_list_ != nullptr) {
        Chunk *next = chunk_list_->next;
        ::operator delete(chunk_list_, kChunkHeader + per_chunk_ * block_size_);
        chunk_list_ = next;
    }
}

void *BlockPool::alloc() {
    if (free_list_ == nullptr) {
        // Only the allocation can fail, and it comes before any change to the pool.
        void *memory = ::operator new(kChunkHeader + per_chunk_ * block_size_);
        auto *chunk = static_cast<Chunk *>(memory);
        chunk->next = chunk_list_;
        chunk_list_ = chunk;
        ++chunks_;
        // Thread the blocks from the last to the first, so they are handed out in address order.
        unsigned char *blocks = static_cast<unsigned char *>(memory) + kChunkHeader;
        for (std::size_t i = per_chunk_; i-- > 0;) {
            void *block = blocks + i * block_size_;
            *static_cast<void **>(block) = free_list_;
            free_list_ = block;
        }
    }
    void *block = free_list_;
    free_list_ = *static_cast<void **>(block);
    std::memset(block, 0, block_size_);
    ++live_;
    return block;
}

void BlockPool::free(void *block) noexcept {
    if (block == nullptr) return;
    *static_cast<void **>(block) = free_list_;
    free_list_ = block;
    --live_;
}

// ---- BlockPoolMT -------------------------------------------------------------------------

struct BlockPoolMT::Impl {
    Impl(std::size_t block_size, std::size_t blocks_per_chunk)
        : pool(block_size, blocks_per_chunk) {}
    mutable std::mutex mutex;
    BlockPool pool;
};

BlockPoolMT::BlockPoolMT(std::size_t block_size, std::size_t blocks_per_chunk)
    : impl_(new Impl(block_size, blocks_per_chunk)) {}

BlockPoolMT::~BlockPoolMT() {
    delete impl_;
}

void *BlockPoolMT::alloc() {
    std::lock_guard lock(impl_->mutex);
    return impl_->pool.alloc();
}

void BlockPoolMT::free(void *block) noexcept {
    if (block == nullptr) return;
    std::lock_guard lock(impl_->mutex);
    impl_->pool.free(block);
}

std::size_t BlockPoolMT::block_size() const noexcept {
    return impl_->pool.block_size();
}

std::size_t BlockPoolMT::live() const noexcept {
    std::lock_guard lock(impl_->mutex);
    return impl_->pool.live();
}

std::size_t BlockPoolMT::chunks() const noexcept {
    std::lock_guard lock(impl_->mutex);
    return impl_->pool.chunks();
}

}  // namespace vx
