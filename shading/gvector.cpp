// Vectors: creation, levels, rows and copies.
#include "shading/gvector.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "foundation/component.h"

namespace vx::svec {
namespace {

// A zero-filled block for `rows` rows (never empty, so every level has an address).
unsigned char *new_block(const GVector &gv, std::uint32_t rows) {
    const std::size_t bytes = std::max<std::size_t>(std::size_t{rows} * gv.row, 16);
    return new unsigned char[bytes]();
}

bool needs_clear(const PacketDef &def) noexcept {
    return def.holds_object() || (def.ops != nullptr && def.ops->Clear != nullptr);
}

// An object packet may lie at any 4-byte offset, so its pointer is moved as bytes.
void *load_object(const void *packet) noexcept {
    void *object;
    std::memcpy(&object, packet, sizeof object);
    return object;
}

void store_object(void *packet, void *object) noexcept {
    std::memcpy(packet, &object, sizeof object);
}

}  // namespace

void copy_value(const PacketDef &def, void *dst, const void *src) noexcept {
    if (dst == src) return;
    if (def.holds_object()) {
        void *object = load_object(src);
        if (object != nullptr) com::add_ref(object);
        void *old = load_object(dst);
        store_object(dst, object);
        if (old != nullptr) com::release(old);
    } else if (def.ops != nullptr && def.ops->Copy != nullptr) {
        def.ops->Copy(dst, src);
    } else {
        std::memcpy(dst, src, def.size);
    }
}

void clear_value(const PacketDef &def, void *packet) noexcept {
    if (def.holds_object()) {
        void *old = load_object(packet);
        store_object(packet, nullptr);
        if (old != nullptr) com::release(old);
    } else if (def.ops != nullptr && def.ops->Clear != nullptr) {
        def.ops->Clear(packet);
    }
}

void reset_value(const PacketDef &def, void *packet, std::uint32_t bytes) noexcept {
    if (def.holds_object()) {
        clear_value(def, packet);
    } else if (def.ops != nullptr && def.ops->Reset != nullptr) {
        def.ops->Reset(packet);
    } else {
        std::memset(packet, 0, bytes);
    }
}

GVector *create_vector(const VType &type, void *parent, bool reset) {
    auto gv = std::make_unique<GVector>();
    gv->type = &type;
    gv->row = type.size;
    gv->slots.resize(type.offsets.size());
    gv->blocks.reserve(4);
    gv->blocks.push_back(new_block(*gv, 1));
    for (const VType::Entry &e : type.entries) {
        gv->slots[e.index] = {e.def, e.offset, e.def->slot_size(), -1};
        const bool plain =
            !e.def->holds_object() && (e.def->ops == nullptr || e.def->ops->Copy == nullptr);
        if (!plain) {
            gv->special.push_back(e.index);
        } else if (!gv->runs.empty() &&
                   gv->runs.back().offset + gv->runs.back().bytes == e.offset) {
            gv->runs.back().bytes += e.def->size;
        } else {
            gv->runs.push_back({e.offset, e.def->size});
        }
    }
    if (reset) {
        for (const VType::Entry &e : type.entries) {
            reset_value(*e.def, gv->blocks[0] + e.offset, e.def->slot_size());
        }
    }
    if (parent != nullptr) com::add_ref(parent);
    gv->parent = parent;
    return gv.release();
}

void destroy_vector(GVector *gv) noexcept {
    clear(*gv);
    if (gv->parent != nullptr) com::release(gv->parent);
    delete gv;
}

void copy_up(GVector &gv, std::uint32_t index) noexcept {
    GVector::Slot &s = gv.slots[index];
    if (gv.level > 0) {
        const unsigned char *from = gv.blocks[static_cast<std::size_t>(std::max(s.stamp, 0))];
        unsigned char *to = gv.blocks[static_cast<std::size_t>(gv.level)];
        // The copy lands on storage in its cleared state (fresh, or cleared when its level
        // was last left), as a packet's Copy operation expects.
        for (std::size_t r = 0, at = s.offset; r < gv.count; ++r, at += gv.row) {
            if (s.def->holds_object()) {
                void *object = load_object(from + at);
                if (object != nullptr) com::add_ref(object);
                store_object(to + at, object);
            } else if (s.def->ops != nullptr && s.def->ops->Copy != nullptr) {
                s.def->ops->Copy(to + at, from + at);
            } else {
                std::memcpy(to + at, from + at, s.def->size);
            }
        }
        gv.saved.push_back({index, s.stamp});  // room reserved by push()
    }
    s.stamp = gv.level;
}

bool push(GVector &gv) {
    const auto next = static_cast<std::size_t>(gv.level) + 1;
    gv.saved.reserve(gv.saved.size() + gv.type->entries.size());
    gv.marks.reserve(next);
    if (gv.blocks.size() <= next) {
        gv.blocks.reserve(next + 1);
        gv.blocks.push_back(new_block(gv, gv.capacity));
    }
    gv.marks.push_back(gv.saved.size());
    gv.level = static_cast<int>(next);
    return true;
}

int pop(GVector &gv) noexcept {
    if (gv.level == 0) return 0;
    const std::size_t mark = gv.marks.back();
    unsigned char *block = gv.blocks[static_cast<std::size_t>(gv.level)];
    for (std::size_t i = gv.saved.size(); i-- > mark;) {
        const GVector::Saved sv = gv.saved[i];
        GVector::Slot &s = gv.slots[sv.index];
        if (needs_clear(*s.def)) {
            for (std::size_t r = 0, at = s.offset; r < gv.count; ++r, at += gv.row) {
                clear_value(*s.def, block + at);
            }
        }
        s.stamp = sv.stamp;
    }
    gv.saved.resize(mark);
    gv.marks.pop_back();
    return --gv.level;
}

void clear(GVector &gv) noexcept {
    while (gv.level > 0) pop(gv);
    unsigned char *block = gv.blocks[0];
    for (GVector::Slot &s : gv.slots) {
        if (s.def == nullptr) continue;
        if (needs_clear(*s.def)) {
            for (std::size_t r = 0, at = s.offset; r < gv.count; ++r, at += gv.row) {
                clear_value(*s.def, block + at);
            }
        }
        s.stamp = -1;
    }
    std::memset(block, 0, std::size_t{gv.count} * gv.row);
}

bool append(GVector &gv) {
    if (gv.count == 0xFFFFFFFEu) return false;
    if (gv.count == gv.capacity) {
        const std::uint32_t grown = gv.capacity > 0x7FFFFFFFu ? 0xFFFFFFFEu : gv.capacity * 2;
        std::vector<std::unique_ptr<unsigned char[]>> made;
        made.reserve(gv.blocks.size());
        for (std::size_t i = 0; i < gv.blocks.size(); ++i) {
            made.emplace_back(new_block(gv, grown));
            std::memcpy(made.back().get(), gv.blocks[i], std::size_t{gv.capacity} * gv.row);
        }
        for (std::size_t i = 0; i < gv.blocks.size(); ++i) {
            delete[] std::exchange(gv.blocks[i], made[i].release());
        }
        gv.capacity = grown;
    }
    gv.current = gv.count++;
    return true;
}

int copy(GVector &dst, const GVector &src, const VType *only, bool fast) noexcept {
    if (src.current >= src.count || dst.current >= dst.count) return 0;
    if (only == nullptr && dst.type == src.type && dst.level == 0 && src.saved.empty()) {
        // Both rows are whole in their level-0 blocks: plain stretches copy in one go.
        unsigned char *d = row_at(dst, 0);
        const unsigned char *s = row_at(src, 0);
        if (d == s) return static_cast<int>(src.type->entries.size());
        for (const GVector::Run &run : dst.runs)
            std::memcpy(d + run.offset, s + run.offset, run.bytes);
        for (std::uint32_t index : dst.special) {
            const GVector::Slot &slot = dst.slots[index];
            copy_value(*slot.def, d + slot.offset, s + slot.offset);
        }
        return static_cast<int>(src.type->entries.size());
    }
    int copied = 0;
    for (const VType::Entry &e : (only != nullptr ? *only : *src.type).entries) {
        const GVector::Slot *from = slot_of(src, e.index);
        const GVector::Slot *to = slot_of(dst, e.index);
        if (from == nullptr || to == nullptr) continue;
        void *d = fast ? read_packet(dst, *to) : write_packet(dst, e.index);
        copy_value(*from->def, d, read_packet(src, *from));
        ++copied;
    }
    return copied;
}

}  // namespace vx::svec
