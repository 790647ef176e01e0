// Storage for mesh elements: growable arrays and fixed-size element pools whose growth is
// prepared apart from the change that uses it.
//
// Every mesh constructor first prepares what it will need (a larger array, a fresh chunk of
// blocks) into a Growth object, which can fail, and then commits it, which cannot. A Growth that
// is never committed gives its memory back when it goes out of scope, so a failed edit leaves
// the mesh's memory exactly as it was: not one block more.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

namespace vx::mesh {

// A block of raw memory owned until handed on; released with its size.
class RawBlock {
  public:
    RawBlock() noexcept = default;
    explicit RawBlock(std::size_t bytes) : block_(::operator new(bytes)), bytes_(bytes) {}
    ~RawBlock() { reset(); }
    RawBlock(RawBlock &&other) noexcept
        : block_(std::exchange(other.block_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
    RawBlock &operator=(RawBlock &&other) noexcept {
        if (this != &other) {
            reset();
            block_ = std::exchange(other.block_, nullptr);
            bytes_ = std::exchange(other.bytes_, 0);
        }
        return *this;
    }
    RawBlock(const RawBlock &) = delete;
    RawBlock &operator=(const RawBlock &) = delete;

    void *get() const noexcept { return block_; }
    std::size_t bytes() const noexcept { return bytes_; }
    void reset() noexcept {
        if (block_ != nullptr) ::operator delete(block_, bytes_);
        block_ = nullptr;
        bytes_ = 0;
    }
    // Gives up ownership without freeing: the memory now belongs to the caller.
    void *forget() noexcept {
        bytes_ = 0;
        return std::exchange(block_, nullptr);
    }
    void swap(RawBlock &other) noexcept {
        std::swap(block_, other.block_);
        std::swap(bytes_, other.bytes_);
    }

  private:
    void *block_ = nullptr;
    std::size_t bytes_ = 0;
};

// A growable array of trivially copyable values. Growth is prepared, then committed.
template <class T>
class DenseArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    // The room for `extra` more values: empty when the array already has it.
    struct Growth {
        RawBlock buffer;
        std::size_t capacity = 0;
    };

    DenseArray() noexcept = default;
    DenseArray(const DenseArray &) = delete;
    DenseArray &operator=(const DenseArray &) = delete;

    // Makes room for `extra` more values into `growth` (raises std::bad_alloc); changes nothing.
    void prepare(Growth &growth, std::size_t extra) const {
        if (size_ + extra <= capacity_) return;
        std::size_t capacity = capacity_ < 8 ? 8 : capacity_ * 2;
        if (capacity < size_ + extra) capacity = size_ + extra;
        growth.buffer = RawBlock(capacity * sizeof(T));
        growth.capacity = capacity;
    }
    // Moves the values into the prepared room; the old buffer goes into `growth` and is freed
    // with it.
    void commit(Growth &growth) noexcept {
        if (growth.buffer.get() == nullptr) return;
        if (size_ != 0) std::memcpy(growth.buffer.get(), data(), size_ * sizeof(T));
        buffer_.swap(growth.buffer);
        std::swap(capacity_, growth.capacity);
    }
    // A copy of this array with room for `extra` more values, for copy on write.
    void copy_into(DenseArray &target, std::size_t extra) const {
        RawBlock buffer((size_ + extra < 8 ? 8 : size_ + extra) * sizeof(T));
        if (size_ != 0) std::memcpy(buffer.get(), data(), size_ * sizeof(T));
        target.buffer_.swap(buffer);
        target.capacity_ = target.buffer_.bytes() / sizeof(T);
        target.size_ = size_;
    }
    void swap(DenseArray &other) noexcept {
        buffer_.swap(other.buffer_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    // Needs room (prepared and committed); never fails.
    void push_back(T value) noexcept { data()[size_++] = value; }
    void erase(std::size_t index) noexcept {
        std::memmove(data() + index, data() + index + 1, (size_ - index - 1) * sizeof(T));
        --size_;
    }
    void clear() noexcept { size_ = 0; }
    // Frees the buffer as well.
    void release() noexcept {
        buffer_.reset();
        size_ = capacity_ = 0;
    }

    T *data() noexcept { return static_cast<T *>(buffer_.get()); }
    const T *data() const noexcept { return static_cast<const T *>(buffer_.get()); }
    T &operator[](std::size_t index) noexcept { return data()[index]; }
    const T &operator[](std::size_t index) const noexcept { return data()[index]; }
    std::size_t size() const noexcept { return size_; }
    std::size_t capacity() const noexcept { return capacity_; }

  private:
    RawBlock buffer_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

// A pool of fixed-size blocks for the elements of one mesh. Chunks grow geometrically (a mesh
// of a few elements takes a few hundred bytes, a mesh of millions takes chunks of a megabyte
// or so), blocks are 8-byte aligned and zero-filled when handed out. Every chunk is freed with
// the pool; a block given back is reused.
class ElementPool {
  public:
    // A chunk prepared for the next block, when the pool has no free block left.
    struct Growth {
        RawBlock chunk;
    };

    explicit ElementPool(std::size_t block_size) noexcept : block_size_((block_size + 7) / 8 * 8) {}
    ~ElementPool() { release(); }
    ElementPool(const ElementPool &) = delete;
    ElementPool &operator=(const ElementPool &) = delete;

    // Makes sure the next take() has a block (raises std::bad_alloc); changes nothing.
    void prepare(Growth &growth) const {
        if (free_ != nullptr || next_ < end_ || growth.chunk.get() != nullptr) return;
        std::size_t blocks = chunk_blocks_ == 0 ? kFirstChunk : chunk_blocks_ * 2;
        if (blocks > kLargestChunk) blocks = kLargestChunk;
        growth.chunk = RawBlock(kHeader + blocks * block_size_);
    }
    // Hands out a zero-filled block, adopting the prepared chunk if it needs one.
    void *take(Growth &growth) noexcept {
        void *block;
        if (free_ != nullptr) {
            block = free_;
            free_ = *static_cast<void **>(free_);
        } else {
            if (next_ >= end_) adopt(growth);
            block = next_;
            next_ += block_size_;
        }
        std::memset(block, 0, block_size_);
        ++live_;
        return block;
    }
    // Gives a block back for reuse.
    void give_back(void *block) noexcept {
        *static_cast<void **>(block) = free_;
        free_ = block;
        --live_;
    }
    // Frees every chunk with the blocks still handed out.
    void release() noexcept {
        while (chunks_ != nullptr) {
            Chunk *next = chunks_->next;
            ::operator delete(static_cast<void *>(chunks_), chunks_->bytes);
            chunks_ = next;
        }
        free_ = nullptr;
        next_ = end_ = nullptr;
        chunk_blocks_ = 0;
        live_ = 0;
    }

    std::size_t block_size() const noexcept { return block_size_; }
    std::size_t live() const noexcept { return live_; }

  private:
    struct Chunk {
        Chunk *next;
        std::size_t bytes;
    };
    static constexpr std::size_t kHeader = (sizeof(Chunk) + 15) / 16 * 16;
    static constexpr std::size_t kFirstChunk = 16;
    static constexpr std::size_t kLargestChunk = 32768;

    void adopt(Growth &growth) noexcept {
        const std::size_t bytes = growth.chunk.bytes();
        auto *chunk = static_cast<Chunk *>(growth.chunk.forget());
        chunk->next = chunks_;
        chunk->bytes = bytes;
        chunks_ = chunk;
        chunk_blocks_ = (bytes - kHeader) / block_size_;
        next_ = reinterpret_cast<char *>(chunk) + kHeader;
        end_ = next_ + chunk_blocks_ * block_size_;
    }

    std::size_t block_size_;
    Chunk *chunks_ = nullptr;
    void *free_ = nullptr;
    char *next_ = nullptr;
    char *end_ = nullptr;
    std::size_t chunk_blocks_ = 0;
    std::size_t live_ = 0;
};

// The element records of one mesh, in the order they were made, in chunks that never move (so
// handles stay valid) and are found from a record's number with a shift or two (so a read by
// index touches the record alone, not a table of pointers first). The first chunks grow from 16
// blocks to kLargest blocks, a mesh of a few elements taking a few hundred bytes; every later
// chunk holds kLargest blocks. Records are never given back: elements are deleted by marking.
class ElementStore {
    struct ChunkPlace {
        const char *base;
        std::size_t chunk;
    };

  public:
    // The chunk for the next record, when the last chunk is full, and room in the chunk table.
    struct Growth {
        RawBlock chunk;
        DenseArray<char *>::Growth table;
        DenseArray<ChunkPlace>::Growth by_address;
    };

    explicit ElementStore(std::size_t block_size) noexcept
        : block_size_((block_size + 7) / 8 * 8) {}
    ~ElementStore() { release(); }
    ElementStore(const ElementStore &) = delete;
    ElementStore &operator=(const ElementStore &) = delete;

    // Makes sure the next take() has a block (raises std::bad_alloc); changes nothing.
    void prepare(Growth &growth) const {
        if (size_ < capacity_ || growth.chunk.get() != nullptr) return;
        chunks_.prepare(growth.table, 1);
        by_address_.prepare(growth.by_address, 1);
        growth.chunk = RawBlock(chunk_blocks(chunks_.size()) * block_size_);
    }
    // Hands out the next record, zero-filled, adopting the prepared chunk if it needs one.
    void *take(Growth &growth) noexcept {
        if (size_ == capacity_) {
            chunks_.commit(growth.table);
            by_address_.commit(growth.by_address);
            capacity_ += chunk_blocks(chunks_.size());
            char *chunk = static_cast<char *>(growth.chunk.forget());
            chunks_.push_back(chunk);
            // Kept in address order, for index_of().
            by_address_.push_back(ChunkPlace{chunk, chunks_.size() - 1});
            for (std::size_t i = by_address_.size() - 1;
                 i > 0 && std::less<const char *>()(chunk, by_address_[i - 1].base); --i) {
                std::swap(by_address_[i - 1], by_address_[i]);
            }
        }
        void *block = at(size_++);
        std::memset(block, 0, block_size_);
        return block;
    }
    // The record made `index`-th (below size()).
    void *at(std::size_t index) const noexcept {
        std::size_t chunk, offset;
        if (index < kGrowing) {
            const std::size_t n = index + kFirst;
            chunk = static_cast<std::size_t>(std::bit_width(n)) - kFirstBits - 1;
            offset = n - (kFirst << chunk);
        } else {
            chunk = kGrowingChunks + ((index - kGrowing) >> kLargestBits);
            offset = (index - kGrowing) & (kLargest - 1);
        }
        return chunks_[chunk] + offset * block_size_;
    }
    // The record made `index`-th and, in `count`, how many records from it on lie one after the
    // other in its chunk (at least one; index below size()): for walks that go in order.
    void *run(std::size_t index, std::size_t &count) const noexcept {
        std::size_t chunk, offset;
        if (index < kGrowing) {
            const std::size_t n = index + kFirst;
            chunk = static_cast<std::size_t>(std::bit_width(n)) - kFirstBits - 1;
            offset = n - (kFirst << chunk);
        } else {
            chunk = kGrowingChunks + ((index - kGrowing) >> kLargestBits);
            offset = (index - kGrowing) & (kLargest - 1);
        }
        const std::size_t in_chunk = chunk_blocks(chunk) - offset;
        count = size_ - index < in_chunk ? size_ - index : in_chunk;
        return chunks_[chunk] + offset * block_size_;
    }
    // The number of a record of this store: where it stands in the order of making.
    std::size_t index_of(const void *record) const noexcept {
        const char *at = static_cast<const char *>(record);
        std::size_t lo = 0, n = by_address_.size();
        while (n > 1) {  // the last chunk that starts at or before the record
            const std::size_t half = n / 2;
            if (std::less_equal<const char *>()(by_address_[lo + half].base, at)) lo += half;
            n -= half;
        }
        const ChunkPlace &place = by_address_[lo];
        return first_index(place.chunk) + static_cast<std::size_t>(at - place.base) / block_size_;
    }
    std::size_t size() const noexcept { return size_; }
    std::size_t block_size() const noexcept { return block_size_; }
    void release() noexcept {
        for (std::size_t c = 0; c < chunks_.size(); ++c) {
            ::operator delete(static_cast<void *>(chunks_[c]), chunk_blocks(c) * block_size_);
        }
        chunks_.release();
        by_address_.release();
        size_ = capacity_ = 0;
    }

  private:
    static constexpr unsigned kFirstBits = 4;
    static constexpr unsigned kLargestBits = 12;
    static constexpr std::size_t kFirst = std::size_t{1} << kFirstBits;
    static constexpr std::size_t kLargest = std::size_t{1} << kLargestBits;
    static constexpr std::size_t kGrowingChunks = kLargestBits - kFirstBits;
    // Records in the growing chunks: 16 + 32 + ... + kLargest / 2.
    static constexpr std::size_t kGrowing = kLargest - kFirst;

    static std::size_t chunk_blocks(std::size_t chunk) noexcept {
        return chunk < kGrowingChunks ? kFirst << chunk : kLargest;
    }
    static std::size_t first_index(std::size_t chunk) noexcept {
        return chunk < kGrowingChunks ? (kFirst << chunk) - kFirst
                                      : kGrowing + (chunk - kGrowingChunks) * kLargest;
    }

    std::size_t block_size_;
    DenseArray<char *> chunks_;
    DenseArray<ChunkPlace> by_address_;  // the same chunks in address order
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace vx::mesh
