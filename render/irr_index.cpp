// Packing a cache's octree for reading, and when a gather asks for it.
#include "render/irr_index.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace vx::irr {

namespace {

// Appends `node` and its subtree, for the values of list `kind`, in the order of the descent:
// the node, then its children in index order. Corners and edges are worked out in floats as
// the descent from the pointers does, so both test the same boxes.
void pack_node(const Node &node, int kind, int depth, const float corner[3], double edge,
               const std::uint64_t cell[3], Index &index, std::vector<std::uint64_t> &keys) {
    const Bound &bound = node.bounds[kind];
    if (bound.max_radius == 0.0f) return;  // nothing of this list here or below
    std::vector<PackedNode> &nodes = index.nodes[kind];
    const std::size_t at = nodes.size();
    PackedNode packed{};
    for (int axis = 0; axis < 3; ++axis) {
        packed.low[axis] = bound.low[axis];
        packed.high[axis] = bound.high[axis];
        packed.corner[axis] = corner[axis];
    }
    packed.low[3] = bound.max_radius;
    packed.corner[3] = static_cast<float>(edge);
    packed.first = static_cast<std::uint32_t>(index.blocks.size());
    for (const Block *b = node.lists[kind].first; b != nullptr; b = b->next) {
        index.blocks.push_back(*b);
        index.blocks.back().next = nullptr;
        ++packed.count;
    }
    packed.depth = depth;
    nodes.push_back(packed);
    keys.push_back(depth <= kDeepestEntry ? cell_key(cell[0], cell[1], cell[2]) : 0);
    const double half = edge * 0.5;
    const float step = static_cast<float>(half);
    for (int i = 0; i < 8; ++i) {
        if (node.children[i] == nullptr) continue;
        float child[3];
        std::uint64_t child_cell[3];
        for (int axis = 0; axis < 3; ++axis) {
            const bool upper = (i >> axis & 1) != 0;
            child[axis] = corner[axis] + (upper ? step : 0.0f);
            child_cell[axis] = 2 * cell[axis] + (upper ? 1 : 0);
        }
        pack_node(*node.children[i], kind, depth + 1, child, half, child_cell, index, keys);
    }
    nodes[at].end = static_cast<std::uint32_t>(nodes.size());
}

// The entry of the top node whose subtree the packed nodes [begin, end) are.
Entry entry_for(const std::vector<PackedNode> &nodes, const std::vector<std::uint64_t> &keys,
                std::uint32_t begin, std::uint32_t end) {
    Entry entry;
    entry.begin = begin;
    entry.end = end;
    int depth = kMaxDepth + 1;
    for (std::uint32_t i = begin; i < end; ++i) {
        if (nodes[i].count != 0) depth = std::min(depth, nodes[i].depth);
    }
    if (depth == 0 || depth > kDeepestEntry) return entry;
    std::size_t count = 0;
    for (std::uint32_t i = begin; i < end; ++i) count += nodes[i].depth == depth ? 1u : 0u;
    std::size_t slots = 16;
    while (slots < 2 * count) slots *= 2;
    entry.slots.assign(slots, Entry::Slot{0, 0});
    for (std::uint32_t i = begin; i < end; ++i) {
        if (nodes[i].depth != depth) continue;
        std::size_t slot = cell_slot(keys[i], slots - 1);
        while (entry.slots[slot].key != 0) slot = (slot + 1) & (slots - 1);
        entry.slots[slot] = {keys[i] + 1, i};
    }
    entry.depth = depth;
    return entry;
}

}  // namespace

std::unique_ptr<Index> pack(const IrrCache &cache) {
    auto index = std::make_unique<Index>();
    index->blocks.reserve(cache.blocks);
    for (int kind = 0; kind < 2; ++kind) {
        std::vector<std::uint64_t> keys;  // of each packed node, 0 below kDeepestEntry
        for (int i = 0; i < 8; ++i) {
            if (cache.top[i] == nullptr) continue;
            double corner[3];
            top_box(i, cache.edge, corner);
            const float at[3] = {static_cast<float>(corner[0]), static_cast<float>(corner[1]),
                                 static_cast<float>(corner[2])};
            const std::uint64_t cell[3] = {0, 0, 0};
            const auto begin = static_cast<std::uint32_t>(index->nodes[kind].size());
            pack_node(*cache.top[i], kind, 0, at, cache.edge, cell, *index, keys);
            const auto end = static_cast<std::uint32_t>(index->nodes[kind].size());
            if (begin == end) continue;
            Entry entry = entry_for(index->nodes[kind], keys, begin, end);
            std::copy(corner, corner + 3, entry.corner);
            entry.inverse = std::ldexp(1.0 / cache.edge, std::max(entry.depth, 0));
            entry.edge = static_cast<float>(std::ldexp(cache.edge, -std::max(entry.depth, 0)));
            entry.last = std::ldexp(1.0, std::max(entry.depth, 0)) - 1.0;
            index->entries[kind].push_back(std::move(entry));
        }
    }
    return index;
}

const Index *index_for(const IrrCache &cache) noexcept {
    if (cache.packed.load(std::memory_order_acquire)) return cache.index.get();
    // Packing copies every block once; after as many reads as an eighth of the values, the
    // gathers it speeds up outweigh it, while a cache that is read and stored into by turns
    // (a pass filling it) is never packed.
    const unsigned due = 256 + cache.values / 8;
    if (cache.unpacked_gathers.fetch_add(1, std::memory_order_relaxed) + 1 < due) return nullptr;
    try {
        const std::lock_guard<std::mutex> lock(cache.packing);
        if (!cache.packed.load(std::memory_order_relaxed)) {
            cache.index = pack(cache);
            cache.packed.store(true, std::memory_order_release);
        }
        return cache.index.get();
    } catch (...) {
        // Out of memory: read through the pointers, and try again after as many reads.
        cache.unpacked_gathers.store(0, std::memory_order_relaxed);
        return nullptr;
    }
}

void forget_index(IrrCache &cache) noexcept {
    cache.packed.store(false, std::memory_order_relaxed);
    cache.index.reset();
    cache.unpacked_gathers.store(0, std::memory_order_relaxed);
}

}  // namespace vx::irr
