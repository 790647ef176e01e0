// Vector types: the type pools, the adding rule, copies, merges and intersections.
#include "shading/vtype.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "foundation/failure.h"

const VType::Entry *VType::find(std::uint32_t index) const noexcept {
    if (offset_of(index) == vx::svec::kNone) return nullptr;
    for (const Entry &e : entries) {
        if (e.index == index) return &e;
    }
    return nullptr;
}

namespace vx::svec {

struct TypePool::Chunk {
    alignas(VType) unsigned char storage[kChunkSlots * sizeof(VType)];
    unsigned char used[kChunkSlots];

    VType *at(std::size_t i) noexcept {
        return std::launder(reinterpret_cast<VType *>(storage + i * sizeof(VType)));
    }
};

TypePool::TypePool(Category *category) noexcept : category_(category) {}

TypePool::~TypePool() {
    for (const std::unique_ptr<Chunk> &chunk : chunks_) {
        for (std::size_t i = 0; i < kChunkSlots; ++i) {
            if (chunk->used[i] != 0) chunk->at(i)->~VType();
        }
    }
}

VType *TypePool::take() {
    const std::size_t total = chunks_.size() * kChunkSlots;
    std::size_t found = total;
    auto used = [&](std::size_t i) { return chunks_[i / kChunkSlots]->used[i % kChunkSlots] != 0; };
    for (std::size_t i = hint_; i < total && found == total; ++i) {
        if (!used(i)) found = i;
    }
    for (std::size_t i = 0; i < std::min(hint_, total) && found == total; ++i) {
        if (!used(i)) found = i;
    }
    if (found == total) {
        if (chunks_.size() == kMaxChunks) return nullptr;
        chunks_.reserve(chunks_.size() + 1);
        chunks_.push_back(std::make_unique<Chunk>());
    }
    Chunk &chunk = *chunks_[found / kChunkSlots];
    VType *type = new (chunk.storage + (found % kChunkSlots) * sizeof(VType)) VType(category_);
    chunk.used[found % kChunkSlots] = 1;
    type->slot = static_cast<std::uint32_t>(found);
    ++in_use_;
    hint_ = found + 1;
    return type;
}

void TypePool::give(VType *type) noexcept {
    const std::size_t slot = type->slot;
    type->~VType();
    chunks_[slot / kChunkSlots]->used[slot % kChunkSlots] = 0;
    --in_use_;
    hint_ = std::min(hint_, slot);
}

VType *allocate_type(const char *category, std::uint32_t reserve) {
    std::lock_guard hold(module_lock());
    Category &c = category_locked(category);
    VType *type = c.pool->take();
    if (type == nullptr) return nullptr;
    OnFailure give_back([&] { c.pool->give(type); });
    if (reserve > 0) type->entries.reserve(reserve);
    count_allocation();
    return type;
}

void free_type(VType *type) noexcept {
    std::lock_guard hold(module_lock());
    type->category->pool->give(type);
}

namespace {

void merge_flags(VType::Entry &entry, std::uint32_t flags) noexcept {
    entry.flags |= flags & 3u;
    if ((flags & 4u) == 0) entry.flags &= ~4u;
}

// Appends an entry; everything that can fail happens before the type changes.
void append_entry(VType &t, const CategoryEntry &ce, std::uint64_t item, std::uint32_t flags) {
    const std::uint32_t bytes = ce.def->slot_size();
    if (t.size > kNone - 1 - bytes) fail(rc::refused, "the vector type is too large");
    if (t.offsets.size() < t.category->entries.size()) {
        t.offsets.resize(t.category->entries.size(), kNone);
    }
    t.entries.reserve(t.entries.size() + 1);
    if ((flags & 2u) != 0) t.with_bit1.reserve(t.with_bit1.size() + 1);
    if ((flags & 1u) != 0) t.with_bit0.reserve(t.with_bit0.size() + 1);
    const auto position = static_cast<std::uint32_t>(t.entries.size());
    t.entries.push_back({ce.index, ce.name.c_str(), item, flags, t.size, ce.def});
    if ((flags & 2u) != 0) t.with_bit1.push_back(position);
    if ((flags & 1u) != 0) t.with_bit0.push_back(position);
    t.offsets[ce.index] = t.size;
    t.size += bytes;
}

}  // namespace

bool add_packet(VType &t, const char *name, std::uint64_t item, bool qualified,
                std::uint32_t flags) {
    if (name == nullptr) return false;
    for (VType::Entry &e : t.entries) {
        if (e.item == item && std::strcmp(e.name, name) == 0) {
            merge_flags(e, flags);
            return true;
        }
    }
    std::lock_guard hold(module_lock());
    const std::uint32_t index = resolve_locked(*t.category, name, item, qualified);
    if (index >= kNone - 1) return false;
    for (VType::Entry &e : t.entries) {
        if (e.index == index) {  // an item-less name that found an item's entry
            merge_flags(e, flags);
            return true;
        }
    }
    append_entry(t, t.category->entries[index], item, flags);
    return true;
}

namespace {

void take_layout(VType &dst, VType &from) noexcept {
    dst.entries.swap(from.entries);
    dst.with_bit1.swap(from.with_bit1);
    dst.with_bit0.swap(from.with_bit0);
    dst.offsets.swap(from.offsets);
    dst.size = from.size;
}

void copy_layout(VType &dst, const VType &src) {
    dst.entries = src.entries;
    dst.with_bit1 = src.with_bit1;
    dst.with_bit0 = src.with_bit0;
    dst.offsets = src.offsets;
    dst.size = src.size;
}

}  // namespace

void merge(VType &dst, const VType &src, std::uint32_t mask) {
    if (dst.category != src.category) fail(rc::bad_argument, "types of different categories");
    VType work(dst.category);
    copy_layout(work, dst);
    for (const VType::Entry &e : src.entries) {
        if ((e.flags & mask) == 0 && mask != ~0u) continue;
        if (!add_packet(work, e.name, e.item, e.item != 0, e.flags)) {
            fail(rc::not_found, "a packet of the source type is unknown");
        }
    }
    take_layout(dst, work);
}

void relayout(VType &dst, const std::vector<VType::Entry> &keep) {
    std::lock_guard hold(module_lock());
    VType work(dst.category);
    work.offsets.assign(dst.offsets.size(), kNone);
    for (const VType::Entry &e : keep) {
        append_entry(work, dst.category->entries[e.index], e.item, e.flags);
    }
    take_layout(dst, work);
}

VType *copy_type(const VType &src) {
    VType *type = allocate_type(src.category->name.c_str(), 0);
    if (type == nullptr) return nullptr;
    OnFailure give_back([&] { free_type(type); });
    copy_layout(*type, src);
    type->test_name = src.test_name;
    type->has_test_name = src.has_test_name;
    return type;
}

}  // namespace vx::svec
