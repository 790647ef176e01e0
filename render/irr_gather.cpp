// Gathering from the irradiance cache: the octree descent, the four-wide test of each block, and
// the estimate that stores a new value when the gather finds too few.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "foundation/guard.h"
#include "foundation/lanes.h"
#include "render/irr_cache.h"
#include "render/irr_index.h"

namespace vx::irr {

namespace {

using F = lanes::Vec<float, 4>;
using M = decltype(F{} < F{});  // a comparison of four lanes: all bits set where it holds

struct Gather {
    float q[3], n[3];
    float s;
    int list;
    bool gradients;
    bool skip_current;
    std::uint8_t current;
    float low, high;  // the acceptance radius's bounds: minimum and maximum distance x s
    float half_scale;
    float cosine, factor;
    double margin_low, margin_high, quarter_scale;
    float quarter_scale_f;  // 0.25 x scale
    double next_edge;       // the edge of the first depth not yet worked out
    // Cell edges and margins by depth, the first `depths` of them worked out.
    int depths;
    float edge_at[kMaxDepth + 1], margin_at[kMaxDepth + 1];
    IrrCacheQuery *out;
    F qx, qy, qz, half_scales, lows, highs;  // q, half_scale, low and high in every lane
};

// Four floats from `at` on.
F load(const void *at) noexcept {
    F v;
    std::memcpy(&v, at, sizeof v);
    return v;
}

// The lanes of a comparison that hold, as bits 0 to 3.
unsigned lanes_set(M c) noexcept {
#if defined(__SSE__)
    return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(c)));
#else
    return (c[0] != 0 ? 1u : 0u) | (c[1] != 0 ? 2u : 0u) | (c[2] != 0 ? 4u : 0u) |
           (c[3] != 0 ? 8u : 0u);
#endif
}

// The weights of the values of a block within their acceptance radii (`near`, with the offsets
// d, squared distances d2 and radii `accept`) that pass the normal and plane tests.
[[gnu::noinline]] void weigh(const Block &b, unsigned near, F dx, F dy, F dz, F d2, F accept,
                             Gather &g) noexcept {
    const F r = load(b.radius);
    const F nx = load(b.nx), ny = load(b.ny), nz = load(b.nz);
    const F dot = g.n[0] * nx + g.n[1] * ny + g.n[2] * nz;
    F plane = dx * nx + dy * ny + dz * nz;
    plane = lanes::select(plane < 0.0f, -plane, plane);
    const F limit = lanes::min_of(lanes::splat<F>(g.s), r * 0.75f);
    for (unsigned pass = near & lanes_set((dot > g.cosine) & (plane <= limit)); pass != 0;
         pass &= pass - 1) {
        const int i = __builtin_ctz(pass);
        if (g.skip_current && b.pass[i] == g.current) continue;
        const float dist = std::sqrt(d2[i]);
        const float angle = dot[i] < 1.0f ? std::sqrt(1.0f - dot[i]) * g.factor : 0.0f;
        const float e = std::max(dist / accept[i], angle);
        float g1 = 0.0f, g2 = 0.0f;
        if (g.gradients) {
            const float d[3] = {dx[i], dy[i], dz[i]};
            for (int c = 0; c < 3; ++c) {
                g1 += b.gradient[c][i] * d[c];
                g2 += b.gradient2[c][i] * d[c];
            }
            const float half = 0.5f * b.radius[i];
            if (dist > half) {
                g1 *= half / dist;
                g2 *= half / dist;
            }
        }
        const float w = (1.0f - e) * (1.0f - std::fabs(g1));
        const float w2 = (1.0f - e) * (1.0f - std::fabs(g2));
        if (w <= 0.0f) continue;
        for (int c = 0; c < 3; ++c) g.out->irradiance[c] += w * b.irradiance[c][i];
        g.out->weight += w;
        if (w2 > 0.0f) {
            for (int c = 0; c < 3; ++c) g.out->irradiance2[c] += w2 * b.irradiance2[c][i];
            g.out->weight2 += w2;
        }
        g.out->count += dist < 0.0001f ? 16 : 1;
    }
}

// The values of one block, four at once. Most blocks a gather reaches hold no value near
// enough, so the distance test comes first and settles them alone.
inline void scan(const Block &b, Gather &g) noexcept {
    const F dx = g.qx - load(b.px), dy = g.qy - load(b.py), dz = g.qz - load(b.pz);
    const F accept = lanes::min_of(lanes::max_of(load(b.radius) * g.half_scales, g.lows), g.highs);
    const F d2 = dx * dx + dy * dy + dz * dz;
    const unsigned near = lanes_set(d2 < accept * accept);  // never a slot not in use
    if (near != 0) weigh(b, near, dx, dy, dz, d2, accept, g);
}

// The edge and margin of cells at `depth`, worked out the first time a gather goes that deep:
// the margin is max(min distance x s, min(max distance x s, edge x 0.25 x scale)).
void reach_depth(Gather &g, int depth) noexcept {
    for (; g.depths <= depth; ++g.depths) {
        const double e = g.next_edge;
        g.next_edge *= 0.5;  // exact: edges are powers of two
        g.edge_at[g.depths] = static_cast<float>(e);
        g.margin_at[g.depths] = static_cast<float>(
            std::max(g.margin_low, std::min(g.margin_high, e * g.quarter_scale)));
    }
}

// The margin of cells of edge `edge` as reach_depth works it out, in floats: the product is
// exact, edges being powers of two.
inline float margin(const Gather &g, float edge) noexcept {
    return std::max(g.low, std::min(g.high, edge * g.quarter_scale_f));
}

// The children chosen by which of their grown boxes hold the point along each axis: entry
// lower | upper << 3 for the axes (bits 0 to 2) along which the lower and upper children hold it.
constexpr auto kChildrenHolding = [] {
    constexpr unsigned lower[3] = {0x55, 0x33, 0x0F}, upper[3] = {0xAA, 0xCC, 0xF0};
    std::array<std::uint8_t, 64> table{};
    for (unsigned entry = 0; entry < 64; ++entry) {
        unsigned children = 0xFF;
        for (unsigned axis = 0; axis < 3; ++axis) {
            children &= ((entry >> axis & 1u) != 0 ? lower[axis] : 0u) |
                        ((entry >> (axis + 3) & 1u) != 0 ? upper[axis] : 0u);
        }
        table[entry] = static_cast<std::uint8_t>(children);
    }
    return table;
}();

// The axes (bits 0 to 2) along which `offset` lies outside [-margin, reach].
unsigned axes_outside(F offset, float margin, float reach) noexcept {
    return lanes_set((offset < -margin) | (offset > reach)) & 7u;
}

// The octree below one top node, without recursion: a node is searched, and its children
// looked at, when the query point lies in its box grown by the margin of its size. Points and
// corners are held x, y, z in the first three lanes.
void descend(const Node &top, const double top_corner[3], Gather &g) noexcept {
    struct Cell {
        F corner;
        const Node *node;
        int depth;
    };
    const F q = {g.q[0], g.q[1], g.q[2], 0.0f};
    // Whether a value below a node can reach the point: a node that fails holds nothing to
    // search, here or below, and is never put on the stack. (Its values' acceptance radii are at
    // most that of its largest radius.) The bound's low and high corners are read four floats
    // at a time, the fourth lane ignored.
    const auto reaches = [&g, q](const Node &node) {
        const Bound &bound = node.bounds[g.list];
        const float reach = std::min(std::max(bound.max_radius * g.half_scale, g.low), g.high);
        const char *bytes = reinterpret_cast<const char *>(&bound);
        const F low = load(bytes + offsetof(Bound, low)),
                high = load(bytes + offsetof(Bound, high));
        const unsigned out = lanes_set((q < low - reach) | (q > high + reach)) & 7u;
        return bound.max_radius != 0.0f && out == 0;
    };
    if (!reaches(top)) return;
    const F top_at = {static_cast<float>(top_corner[0]), static_cast<float>(top_corner[1]),
                      static_cast<float>(top_corner[2]), 0.0f};
    if (axes_outside(q - top_at, g.margin_at[0], g.edge_at[0] + g.margin_at[0]) != 0) return;
    // Lanes picking the upper side, by child index.
    static const M kUpperSide[8] = {{0, 0, 0, 0},  {-1, 0, 0, 0},  {0, -1, 0, 0},  {-1, -1, 0, 0},
                                    {0, 0, -1, 0}, {-1, 0, -1, 0}, {0, -1, -1, 0}, {-1, -1, -1, 0}};
    Cell stack[8 * (kMaxDepth + 1)];
    int size = 0;
    stack[size++] = {top_at, &top, 0};
    while (size > 0) {
        const Cell cell = stack[--size];
        for (const Block *b = cell.node->lists[g.list].first; b != nullptr; b = b->next) {
            __builtin_prefetch(b->next);
            scan(*b, g);
        }
        if (cell.depth == kMaxDepth) continue;
        const int depth = cell.depth + 1;
        if (depth >= g.depths) reach_depth(g, depth);
        const float half = g.edge_at[depth], m = g.margin_at[depth], grown = half + m;
        const F lower = cell.corner + 0.0f, upper = cell.corner + half;
        unsigned wanted = kChildrenHolding[(~axes_outside(q - lower, m, grown) & 7u) |
                                           (~axes_outside(q - upper, m, grown) & 7u) << 3];
        for (; wanted != 0; wanted &= wanted - 1) {
            const int i = __builtin_ctz(wanted);
            const Node *child = cell.node->children[i];
            if (child == nullptr || !reaches(*child)) continue;
            // Its first block is read when it comes off the stack, after its siblings.
            __builtin_prefetch(child->lists[g.list].first);
            stack[size++] = {lanes::select(kUpperSide[i], upper, lower), child, depth};
        }
    }
}

// The same descent over the packed nodes [begin, end) of list g.list, in the order the descent
// meets them: a node that fails its tests is skipped with its whole subtree.
void walk_range(const Index &index, std::uint32_t begin, std::uint32_t end, Gather &g) noexcept {
    const PackedNode *nodes = index.nodes[g.list].data();
    const Block *blocks = index.blocks.data();
    const F q = {g.q[0], g.q[1], g.q[2], 0.0f};
    for (std::uint32_t i = begin; i < end;) {
        const PackedNode &node = nodes[i];
        const F low = load(node.low), high = load(node.high), corner = load(node.corner);
        const F offset = q - corner;
        const float reach = std::min(std::max(low[3] * g.half_scale, g.low), g.high);
        const float m = margin(g, corner[3]), grown = corner[3] + m;
        const unsigned out =
            lanes_set((q < low - reach) | (q > high + reach) | (offset < -m) | (offset > grown)) &
            7u;
        if (out != 0) {
            i = node.end;
            continue;
        }
        for (std::uint32_t b = 0; b < node.count; ++b) scan(blocks[node.first + b], g);
        ++i;
    }
}

// The cells of the entry's level whose grown boxes may hold the point, as ranges along each
// axis: their number, or -1 when there are more than 27 and the walk starts from the top node.
int entry_cells(const Entry &entry, Gather &g, std::uint64_t lo[3], std::uint64_t hi[3]) {
    // The margin in cells, with some slack: the walk tests each node found exactly.
    const double reach = static_cast<double>(margin(g, entry.edge)) * entry.inverse + 1e-6;
    std::uint64_t cells = 1;
    for (int axis = 0; axis < 3; ++axis) {
        const double x = (static_cast<double>(g.q[axis]) - entry.corner[axis]) * entry.inverse;
        const double low = x - 1.0 - reach, high = x + reach;
        if (!(high >= 0.0 && low <= entry.last)) return 0;  // also for a point not a number
        lo[axis] = 0;
        if (low > 0.0) {  // rounded up
            lo[axis] = static_cast<std::uint64_t>(low);
            lo[axis] += static_cast<double>(lo[axis]) < low ? 1 : 0;
        }
        hi[axis] = static_cast<std::uint64_t>(std::min(high, entry.last));
        cells *= hi[axis] - lo[axis] + 1;
        if (cells > 27) return -1;
    }
    return static_cast<int>(cells);
}

void walk(const Index &index, Gather &g) noexcept {
    const std::vector<PackedNode> &nodes = index.nodes[g.list];
    for (const Entry &entry : index.entries[g.list]) {
        std::uint64_t lo[3] = {}, hi[3] = {};
        const int cells = entry.depth < 0 ? -1 : entry_cells(entry, g, lo, hi);
        if (cells < 0) {
            walk_range(index, entry.begin, entry.end, g);
            continue;
        }
        const std::size_t mask = entry.slots.size() - 1;
        const auto visit = [&](std::uint64_t key) {
            for (std::size_t slot = cell_slot(key, mask); entry.slots[slot].key != 0;
                 slot = (slot + 1) & mask) {
                if (entry.slots[slot].key != key + 1) continue;
                const std::uint32_t node = entry.slots[slot].node;
                walk_range(index, node, nodes[node].end, g);
                return;
            }
        };
        if (cells == 0) continue;
        for (std::uint64_t z = lo[2]; z <= hi[2]; ++z) {
            for (std::uint64_t y = lo[1]; y <= hi[1]; ++y) {
                for (std::uint64_t x = lo[0]; x <= hi[0]; ++x) visit(cell_key(x, y, z));
            }
        }
    }
}

}  // namespace

unsigned gather(const IrrCache &cache, IrrCacheQuery &query) noexcept {
    const PassSettings &p = pass_settings();
    Gather g;  // every field set below; the tables by depth as the descent needs them
    std::copy(query.position, query.position + 3, g.q);
    std::copy(query.normal, query.normal + 3, g.n);
    g.s = query.footprint;
    g.list = (query.flags & IRR_QUERY_SECOND_LIST) != 0 ? 1 : 0;
    g.gradients = (query.flags & IRR_QUERY_GRADIENTS) != 0;
    g.skip_current = g.list == 0;
    g.current = static_cast<std::uint8_t>(p.pass & 0xFF);
    g.low = p.min_distance * g.s;
    g.high = p.max_distance * g.s;
    g.half_scale = 0.5f * p.scale;
    g.cosine = p.cosine;
    g.factor = p.factor;
    g.margin_low = static_cast<double>(g.low);
    g.margin_high = static_cast<double>(g.high);
    g.quarter_scale = 0.25 * static_cast<double>(p.scale);
    g.quarter_scale_f = 0.25f * p.scale;
    g.next_edge = cache.edge;
    g.depths = 0;  // the fallback descent works the tables out as it goes
    g.out = &query;
    g.qx = lanes::splat<F>(g.q[0]), g.qy = lanes::splat<F>(g.q[1]), g.qz = lanes::splat<F>(g.q[2]);
    g.half_scales = lanes::splat<F>(g.half_scale);
    g.lows = lanes::splat<F>(g.low), g.highs = lanes::splat<F>(g.high);
    std::fill(query.irradiance, query.irradiance + 3, 0.0f);
    std::fill(query.irradiance2, query.irradiance2 + 3, 0.0f);
    query.weight = query.weight2 = 0.0f;
    query.count = 0;
    if (const Index *index = index_for(cache)) {
        walk(*index, g);
        return query.count;
    }
    reach_depth(g, 0);
    for (int i = 0; i < 8; ++i) {
        if (cache.top[i] == nullptr) continue;
        double corner[3];
        top_box(i, cache.edge, corner);
        descend(*cache.top[i], corner, g);
    }
    return query.count;
}

}  // namespace vx::irr

extern "C" {

VX_API unsigned int IrrCacheGather(const IrrCache *cache, IrrCacheQuery *query) {
    if (cache == nullptr || query == nullptr) return 0;
    return vx::irr::gather(*cache, *query);
}

VX_API int IrrCacheEstimateIrradiance(IrrCache *cache, IrrCacheQuery *query,
                                      IrrCacheSampler sampler, void *client, float irradiance[3],
                                      float irradiance2[3]) {
    if (cache == nullptr || query == nullptr) return 0;
    vx::irr::gather(*cache, *query);
    const unsigned wanted = std::max(query->wanted, 1u);
    if (query->count >= wanted && query->weight > 0.0f) {
        for (int c = 0; c < 3; ++c) {
            if (irradiance != nullptr) irradiance[c] = query->irradiance[c] / query->weight;
            if (irradiance2 != nullptr) {
                irradiance2[c] =
                    query->weight2 > 0.0f ? query->irradiance2[c] / query->weight2 : 0.0f;
            }
        }
        return 1;
    }
    if (vx::irr::pass_settings().locked || sampler == nullptr) return 0;
    IrrCacheSample sample{};
    if (sampler(client, query->position, query->normal, query->footprint, &sample) == 0) return 0;
    const float limit = vx::irr::pass_settings().max_distance * query->footprint;
    const float radius = std::min(sample.radius, limit);
    const int kind = (query->flags & IRR_QUERY_SECOND_LIST) != 0 ? 1 : 0;
    if (IrrCacheStoreValue(cache, query->position, query->normal, sample.irradiance,
                           sample.irradiance2, sample.gradient, sample.gradient2, radius,
                           kind) == 0) {
        return 0;
    }
    for (int c = 0; c < 3; ++c) {
        if (irradiance != nullptr) irradiance[c] = sample.irradiance[c];
        if (irradiance2 != nullptr) irradiance2[c] = sample.irradiance2[c];
    }
    return 1;
}

}  // extern "C"
