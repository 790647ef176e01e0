// A packed copy of a cache's octree for reading: per list, the nodes that hold values of it in
// the order a depth-first walk meets them, each with the index just past its subtree, and the
// blocks of every node side by side in the same order. A gather then reads two arrays front to
// back, jumping over the subtrees it rules out, instead of chasing pointers from node to node.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "render/irr_cache.h"

namespace vx::irr {

// Lanes 0 to 2 hold x, y, z; low[3] holds the largest radius below the node, corner[3] the edge
// of its cell, high[3] 0.
struct PackedNode {
    float low[4];  // the node's bound, as in Bound
    float high[4];
    float corner[4];      // the low corner of the node's cell
    std::uint32_t end;    // the first node after this one's subtree
    std::uint32_t first;  // its first block
    std::uint32_t count;  // its blocks
    std::int32_t depth;   // 0 for a top node
};

// Where a walk of one top node's subtree may start: the levels above the first that holds
// values hold nothing but the way down, and a node's box grown by its margin lies inside its
// parent's grown box (margins grow with the cell), its bound inside its parent's bound, so a
// walk that starts at the nodes of the first level holding values meets the same values as one
// from the top. Those nodes are found by their cell (x, y, z counted from the top cell's corner
// in cells of that level) in a table with open addressing.
struct Entry {
    std::uint32_t begin = 0, end = 0;  // the top node's subtree among the packed nodes
    int depth = -1;                    // the first level holding values; -1: walk from the top
    double corner[3] = {0, 0, 0};      // of the top cell
    double inverse = 0;                // 1 / the edge of cells at `depth` (a power of two)
    float edge = 0;                    // the edge of cells at `depth`
    double last = 0;                   // the last cell index along an axis, 2^depth - 1
    struct Slot {
        std::uint64_t key;   // cell key + 1, 0 for a free slot
        std::uint32_t node;  // the packed node of the cell
    };
    std::vector<Slot> slots;
};

// Cell indices of levels down to this one fit a key of three 21-bit fields.
inline constexpr int kDeepestEntry = 20;

inline std::uint64_t cell_key(std::uint64_t x, std::uint64_t y, std::uint64_t z) noexcept {
    return x | y << 21 | z << 42;
}

// The slot of a key in a table of 2^k slots (mask 2^k - 1), probed onward from there.
inline std::size_t cell_slot(std::uint64_t key, std::size_t mask) noexcept {
    return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ull) >> 32) & mask;
}

struct Index {
    std::vector<PackedNode> nodes[2];  // first list, second list
    std::vector<Block> blocks;
    std::vector<Entry> entries[2];  // the top nodes holding values of each list, in order
};

// The packed copy of `cache` as it is now (raises std::bad_alloc).
std::unique_ptr<Index> pack(const IrrCache &cache);

// The packed copy for a gather: made once the cache has been read without changes for a while
// (the reads before it pay for its making), under the cache's lock so that concurrent readers
// wait for one copy; null until then, or when it could not be made.
const Index *index_for(const IrrCache &cache) noexcept;

// Drops the packed copy: every change to the cache's values calls it.
void forget_index(IrrCache &cache) noexcept;

}  // namespace vx::irr
