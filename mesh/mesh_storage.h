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
    // A block at a boundary of `align` bytes (a power of two).
    RawBlock(std::size_t bytes, std::size_t align)
        : block_(::operator new (bytes, std::align_val_t{align})), bytes_(bytes), align_(align) {}
    ~RawBlock() { reset(); }
    RawBlock(RawBlock &&other) noexcept
        : block_(std::exchange(other.block_, nullptr)),
          bytes_(std::exchange(other.bytes_, 0)),
          align_(std::exchange(other.align_, 0)) {}
    RawBlock &operator=(RawBlock &&other) noexcept {
        if (this != &other) {
            reset();
            block_ = std::exchange(other.block_, nullptr);
            bytes_ = std::exchange(other.bytes_, 0);
            align_ = std::exchange(other.align_, 0);
        }
        return *this;
    }
    RawBlock(const RawBlock &) = delete;
    RawBlock &operator=(const RawBlock &) = delete;

    void *get() const noexcept { return block_; }
    std::size_t bytes() const noexcept { return bytes_; }
    void reset() noexcept {
        if (block_ != nullptr && align_ != 0) {
            ::operator delete (block_, bytes_, std::align_val_t{align_});
        } else if (block_ != nullptr) {
            ::operator delete(block_, bytes_);
        }
        block_ = nullptr;
        bytes_ = align_ = 0;
    }
    // Gives up ownership without freeing: the memory now belongs to the caller.
    void *forget() noexcept {
        bytes_ = align_ = 0;
        return std::exchange(block_, nullptr);
    }
    void swap(RawBlock &other) noexcept {
        std::swap(block_, other.block_);
        std::swap(bytes_, other.bytes_);
        std::swap(align_, other.align_);
    }

  private:
    void *block_ = nullptr;
    std::size_t bytes_ = 0;
    std::size_t align_ = 0;  // 0: the default alignment
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

// The element records of one mesh, in the order they were made, in blocks that never move (so
// handles stay valid). Every block starts at a 4 KiB boundary with a small header (the mesh that
// owns the records, the number of its first record) and holds records after it, at most a page
// of them: so a record's address alone gives its owner and its number (the block is the address
// with its low bits cleared), and a record need not carry a pointer to its mesh. The number of a
// record gives its address from a table of the pages (a pointer per page). The first blocks
// hold 16, 32, 64 ... records, as many as fit in less than a page, and take only the bytes they
// hold, so a mesh of a few elements stays small; then come runs of whole pages that grow from
// one page to kLargestRun pages. Records are never given back: elements are deleted by marking.
template <class Record>
class ElementStore {
  public:
    static constexpr std::size_t kPage = 4096;

    // The block for the next record, when the last block is full, and room in the tables.
    struct Growth {
        RawBlock block;
        typename DenseArray<char *>::Growth blocks;
        typename DenseArray<char *>::Growth pages;
    };

    explicit ElementStore(const void *owner) noexcept : owner_(owner) {}
    ~ElementStore() { release(); }
    ElementStore(const ElementStore &) = delete;
    ElementStore &operator=(const ElementStore &) = delete;

    // Makes sure the next take() has a record (raises std::bad_alloc); changes nothing.
    void prepare(Growth &growth) const {
        if (size_ < capacity_ || growth.block.get() != nullptr) return;
        blocks_.prepare(growth.blocks, 1);
        pages_.prepare(growth.pages, block_pages(blocks_.size()));
        growth.block = RawBlock(block_bytes(blocks_.size()), kPage);
    }
    // Hands out the next record, zero-filled, adopting the prepared block if it needs one.
    Record *take(Growth &growth) noexcept {
        if (size_ == capacity_) {
            blocks_.commit(growth.blocks);
            pages_.commit(growth.pages);
            const std::size_t pages = block_pages(blocks_.size());
            capacity_ += block_records(blocks_.size());
            char *block = static_cast<char *>(growth.block.forget());
            blocks_.push_back(block);
            for (std::size_t k = 0; k < pages; ++k) pages_.push_back(block + k * kPage);
        }
        const std::size_t index = size_++;
        Record *record = at(index);
        auto *header = reinterpret_cast<Header *>(page_of(record));
        if (static_cast<void *>(header + 1) == static_cast<void *>(record)) {
            header->owner = owner_;
            header->first = index;
        }
        std::memset(static_cast<void *>(record), 0, sizeof(Record));
        return record;
    }
    // The record made `index`-th (below size()).
    Record *at(std::size_t index) const noexcept {
        std::size_t in_page;
        return first_of_page(index, in_page) + in_page;
    }
    // The record made `index`-th and, in `count`, how many records from it on lie one after the
    // other in its page (at least one; index below size()): for walks that go in order.
    Record *run(std::size_t index, std::size_t &count) const noexcept {
        std::size_t in_page;
        Record *first = first_of_page(index, in_page);
        const std::size_t left = page_records(index) - in_page;
        count = size_ - index < left ? size_ - index : left;
        return first + in_page;
    }
    // The number of a record of a store: where it stands in its mesh's order of making.
    static std::size_t index_of(const Record *record) noexcept {
        const auto at = reinterpret_cast<std::uintptr_t>(record);
        const std::uintptr_t page = at & ~std::uintptr_t{kPage - 1};
        return reinterpret_cast<const Header *>(page)->first +
               (at - page - kHeader) / sizeof(Record);
    }
    // The owner given to the store that made a record.
    static const void *owner_of(const Record *record) noexcept {
        return reinterpret_cast<const Header *>(page_of(record))->owner;
    }
    std::size_t size() const noexcept { return size_; }
    void release() noexcept {
        for (std::size_t b = 0; b < blocks_.size(); ++b) {
            ::operator delete (static_cast<void *>(blocks_[b]), block_bytes(b),
                               std::align_val_t{kPage});
        }
        blocks_.release();
        pages_.release();
        size_ = capacity_ = 0;
    }

  private:
    struct Header {
        const void *owner;
        std::size_t first;
    };
    static constexpr std::size_t kHeader = sizeof(Header);
    static_assert(sizeof(Record) % 8 == 0 && kHeader % 8 == 0);
    static constexpr std::size_t kPerPage = (kPage - kHeader) / sizeof(Record);
    static constexpr unsigned kFirstBits = 4;
    static constexpr std::size_t kFirst = std::size_t{1} << kFirstBits;
    static_assert(kFirst < kPerPage);
    // The small blocks: 16, 32, ... records while less than a page, kSmall records in all.
    static constexpr unsigned kSmallBlocks = [] {
        unsigned n = 0;
        while ((kFirst << n) < kPerPage) ++n;
        return n;
    }();
    static constexpr std::size_t kSmall = (kFirst << kSmallBlocks) - kFirst;
    // Then runs of 1, 2, 4, ... pages, and of kLargestRun pages from there on.
    static constexpr unsigned kGrowingRuns = 6;
    static constexpr std::size_t kLargestRun = std::size_t{1} << kGrowingRuns;

    static std::size_t block_records(std::size_t block) noexcept {
        if (block < kSmallBlocks) return kFirst << block;
        return run_pages(block - kSmallBlocks) * kPerPage;
    }
    static std::size_t block_bytes(std::size_t block) noexcept {
        if (block < kSmallBlocks) return kHeader + (kFirst << block) * sizeof(Record);
        return run_pages(block - kSmallBlocks) * kPage;
    }
    static std::size_t block_pages(std::size_t block) noexcept {
        return block < kSmallBlocks ? 1 : run_pages(block - kSmallBlocks);
    }
    static std::size_t run_pages(std::size_t run) noexcept {
        return run < kGrowingRuns ? std::size_t{1} << run : kLargestRun;
    }
    // The records that the page of record `index` holds.
    static std::size_t page_records(std::size_t index) noexcept {
        if (index < kSmall) {
            return std::size_t{1} << (std::bit_width(index + kFirst) - 1);
        }
        return kPerPage;
    }
    // The first record of the page that holds record `index`, and the record's place in it.
    Record *first_of_page(std::size_t index, std::size_t &in_page) const noexcept {
        std::size_t page;
        if (index < kSmall) {
            const std::size_t n = index + kFirst;
            page = static_cast<std::size_t>(std::bit_width(n)) - kFirstBits - 1;
            in_page = n - (kFirst << page);
        } else {
            page = kSmallBlocks + (index - kSmall) / kPerPage;
            in_page = (index - kSmall) % kPerPage;
        }
        return reinterpret_cast<Record *>(pages_[page] + kHeader);
    }
    static const char *page_of(const Record *record) noexcept {
        return reinterpret_cast<const char *>(reinterpret_cast<std::uintptr_t>(record) &
                                              ~std::uintptr_t{kPage - 1});
    }
    static char *page_of(Record *record) noexcept {
        return reinterpret_cast<char *>(reinterpret_cast<std::uintptr_t>(record) &
                                        ~std::uintptr_t{kPage - 1});
    }

    const void *owner_;
    DenseArray<char *> blocks_;  // as allocated
    DenseArray<char *> pages_;   // every page of the blocks, in order
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace vx::mesh
