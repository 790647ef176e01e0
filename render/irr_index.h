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

// Lanes 0 to 2 hold x, y, z; low[3] holds the largest radius below the node, the other fourth
// lanes 0.
struct PackedNode {
    float low[4];  // the node's bound, as in Bound
    float high[4];
    float corner[4];      // the low corner of the node's cell
    std::uint32_t end;    // the first node after this one's subtree
    std::uint32_t first;  // its first block
    std::uint32_t count;  // its blocks
    std::int32_t depth;   // 0 for a top node
};

struct Index {
    std::vector<PackedNode> nodes[2];  // first list, second list
    std::vector<Block> blocks;
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
