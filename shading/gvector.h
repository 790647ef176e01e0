// Vectors: blocks of rows laid out by a vector type, with a stack of levels.
//
// Each level has a block of its own for all rows. A packet's slot remembers the level it was
// last written at (its stamp, -1 before any write); reading finds it in that level's block,
// and writing at a higher level first copies it up (through its Copy operation, or with a new
// reference for an object packet) and notes the old stamp, so that leaving the level clears
// the copy and shows the lower one again. Entering a level reserves everything its writes
// need, so reading and writing packets never allocates and never fails.
#pragma once

#include <cstdint>
#include <vector>

#include "shading/vtype.h"

struct GVector {
    struct Slot {
        const vx::svec::PacketDef *def = nullptr;  // null: the type lacks the packet
        std::uint32_t offset = 0;
        std::uint32_t bytes = 0;
        int stamp = -1;
    };
    struct Saved {
        std::uint32_t index;
        int stamp;
    };
    struct Run {  // a stretch of packets copied as plain bytes
        std::uint32_t offset;
        std::uint32_t bytes;
    };

    GVector() = default;
    GVector(const GVector &) = delete;
    GVector &operator=(const GVector &) = delete;
    ~GVector() {
        for (unsigned char *block : blocks) delete[] block;
    }

    const VType *type = nullptr;
    void *parent = nullptr;
    std::uint32_t row = 0;  // bytes per row
    std::uint32_t count = 1;
    std::uint32_t capacity = 1;
    std::uint32_t current = 0;
    int level = 0;
    std::vector<Slot> slots;              // by category index
    std::vector<unsigned char *> blocks;  // one per level entered so far
    std::vector<std::size_t> marks;       // saved.size() when each level was entered
    std::vector<Saved> saved;
    std::vector<Run> runs;
    std::vector<std::uint32_t> special;  // indices of packets not copied as plain bytes
};

namespace vx::svec {

GVector *create_vector(const VType &type, void *parent, bool reset);
void destroy_vector(GVector *gv) noexcept;

inline unsigned char *row_at(const GVector &gv, int level) noexcept {
    return gv.blocks[static_cast<std::size_t>(level)] +
           static_cast<std::size_t>(gv.current) * gv.row;
}

// Read access: the packet where its last write left it. The slot must be present.
inline unsigned char *read_packet(const GVector &gv, const GVector::Slot &s) noexcept {
    return row_at(gv, s.stamp < 0 ? 0 : s.stamp) + s.offset;
}

void copy_up(GVector &gv, std::uint32_t index) noexcept;

// Write access at the current level.
inline unsigned char *write_packet(GVector &gv, std::uint32_t index) noexcept {
    GVector::Slot &s = gv.slots[index];
    if (s.stamp < gv.level) copy_up(gv, index);
    return row_at(gv, gv.level) + s.offset;
}

inline const GVector::Slot *slot_of(const GVector &gv, std::uint32_t index) noexcept {
    if (index >= gv.slots.size() || gv.slots[index].def == nullptr) return nullptr;
    return &gv.slots[index];
}

// Copies one packet's value from src storage into dst storage (dst holds a value already).
void copy_value(const PacketDef &def, void *dst, const void *src) noexcept;
// Releases what one packet holds.
void clear_value(const PacketDef &def, void *packet) noexcept;
// Resets one packet.
void reset_value(const PacketDef &def, void *packet, std::uint32_t bytes) noexcept;

bool push(GVector &gv);
int pop(GVector &gv) noexcept;
void clear(GVector &gv) noexcept;
bool append(GVector &gv);

// Copies from src's current row and level into dst; `fast` writes into dst's storage as it
// stands. With a type, only that type's packets.
int copy(GVector &dst, const GVector &src, const VType *only, bool fast) noexcept;

}  // namespace vx::svec
