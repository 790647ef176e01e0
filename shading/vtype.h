// Vector types: which packets of a category a vector holds, and where.
//
// A type lists its packets in the order they were added, each at the offset the type's size
// had when it was added, with two side lists (the entries added with flag bit 1 and with flag
// bit 0) and an offset table by category index for lock-free look-ups. Types are records in
// per-category pools of fixed-size slots.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "shading/svec_module.h"

struct VType {
    struct Entry {
        std::uint32_t index;  // in the category
        const char *name;     // the category entry's, stable until shutdown
        std::uint64_t item;
        std::uint32_t flags;
        std::uint32_t offset;
        const vx::svec::PacketDef *def;
    };

    explicit VType(vx::svec::Category *c) noexcept : category(c) {}

    vx::svec::Category *category;
    std::vector<Entry> entries;
    std::vector<std::uint32_t> with_bit1;  // positions in entries
    std::vector<std::uint32_t> with_bit0;
    std::vector<std::uint32_t> offsets;  // by category index; kNone when absent
    std::uint32_t size = 0;
    std::string test_name;
    bool has_test_name = false;
    std::uint32_t slot = 0;  // in the category's pool

    std::uint32_t offset_of(std::uint32_t index) const noexcept {
        return index < offsets.size() ? offsets[index] : vx::svec::kNone;
    }
    const Entry *find(std::uint32_t index) const noexcept;
};

namespace vx::svec {

// Fixed-size type records in chunks of slots, each with a "used" byte. A new record takes the
// first free slot at or after the search hint, else the first free slot from the start; the
// pool grows by a chunk when full, up to kMaxChunks, and then is exhausted.
class TypePool {
  public:
    static constexpr std::size_t kChunkSlots = 64;
    static constexpr std::size_t kMaxChunks = 1024;

    explicit TypePool(Category *category) noexcept;
    ~TypePool();
    TypePool(const TypePool &) = delete;
    TypePool &operator=(const TypePool &) = delete;

    // A new empty type, or null when the pool is exhausted; raises std::bad_alloc.
    VType *take();
    void give(VType *type) noexcept;
    std::size_t in_use() const noexcept { return in_use_; }

  private:
    struct Chunk;
    Category *category_;
    std::vector<std::unique_ptr<Chunk>> chunks_;
    std::size_t hint_ = 0;
    std::size_t in_use_ = 0;
};

// A new type of the category from its pool (the lock taken inside); null when exhausted.
VType *allocate_type(const char *category, std::uint32_t reserve);
void free_type(VType *type) noexcept;

// The adding rule: true when the packet is in the type afterwards; false for an unknown name,
// with the type unchanged. Raises std::bad_alloc with the type unchanged.
bool add_packet(VType &type, const char *name, std::uint64_t item, bool qualified,
                std::uint32_t flags);
// Adds the packets of src that share a bit with mask (all when mask is ~0), all or nothing.
void merge(VType &dst, const VType &src, std::uint32_t mask);
// Replaces dst's packets by `keep`, laid out again from offset 0 (nothrow after the copy).
void relayout(VType &dst, const std::vector<VType::Entry> &keep);
VType *copy_type(const VType &src);

}  // namespace vx::svec
