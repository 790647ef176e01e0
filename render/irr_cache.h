// The irradiance cache's records: blocks of four values stored component by component, pages of
// blocks, the octree of nodes with their two chains, and the process-wide pass settings.
#pragma once

#include <vexor/irr_cache.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

struct RadMap;

namespace vx::irr {

// Four values, each component an array of four floats so that the four are tested at once.
// The first cache line holds what the distance test reads (positions and radii), the second
// what the other tests read of the values it accepts and the block's bookkeeping; what only
// accepted values need follows. Slots not in use hold positions that are not numbers, which no
// distance test accepts.
struct alignas(64) Block {
    float px[4], py[4], pz[4];
    float radius[4];
    float nx[4], ny[4], nz[4];
    Block *next;
    std::uint8_t used;  // slots in use, 1 to 4
    std::uint8_t pass[4];
    float irradiance[3][4];
    float irradiance2[3][4];
    float gradient[3][4];
    float gradient2[3][4];
};
static_assert(offsetof(Block, nx) == 64 && sizeof(Block) == 320);

// The blocks of a node's list, oldest first; new values fill the last block.
struct Chain {
    Block *first = nullptr;
    Block *last = nullptr;
};

// Where the values of a list below a node (its own and its descendants') lie, and the largest
// radius among them: a gather skips a subtree none of whose values can reach its point. Empty
// while max_radius is 0.
struct Bound {
    float low[3] = {0, 0, 0};
    float high[3] = {0, 0, 0};
    float max_radius = 0.0f;
};

struct Node {
    Chain lists[2];  // first list (kind 0), second list (kind 1)
    Bound bounds[2];
    Node *children[8] = {};
};

// One value, as stored and as read back.
struct Value {
    float position[3], normal[3], irradiance[3], irradiance2[3], gradient[3], gradient2[3];
    float radius;
    int kind;
    std::uint8_t pass;
};

// Top cells start with edge 1 and double (the octree rebuilt) until they hold every position;
// positions must stay below 2^40.
inline constexpr double kFirstEdge = 1.0;
inline constexpr double kLargestEdge = 1099511627776.0;  // 2^40
inline constexpr int kMaxDepth = 60;

// Blocks come from pages of this many, carved in order; pages link to the next.
inline constexpr std::size_t kBlocksPerPage = 204;  // about 64 KiB a page

struct Page {
    Block blocks[kBlocksPerPage];
    std::size_t carved = 0;
    Page *next = nullptr;
};

struct Index;

}  // namespace vx::irr

struct IrrCache {
    vx::irr::Node *top[8] = {};
    double edge = vx::irr::kFirstEdge;  // of the top cells, the octants of [-edge, edge]^3
    vx::irr::Page *pages = nullptr;     // the page blocks are carved from now, linking to older
    unsigned values = 0;
    unsigned blocks = 0;
    unsigned nodes = 0;
    std::vector<std::unique_ptr<RadMap>> maps;
    // The packed copy gathers read once the cache has been only read for a while (see
    // irr_index.h): `index` is set under `packing`, then `packed`; every change drops it.
    mutable std::mutex packing;
    mutable std::unique_ptr<vx::irr::Index> index;
    mutable std::atomic<bool> packed{false};
    mutable std::atomic<unsigned> unpacked_gathers{0};

    IrrCache();
    IrrCache(const IrrCache &) = delete;
    IrrCache &operator=(const IrrCache &) = delete;
    ~IrrCache();
};

namespace vx::irr {

// The process-wide pass settings.
struct PassSettings {
    int pass = 0;
    float cosine = 0.9396926207859083f;
    float factor = 4.0813382f;  // 1 / sqrt(1 - cosine)
    float min_distance = 0.0f;
    float max_distance = 1e30f;
    float scale = 1.0f;
    bool locked = false;
};
PassSettings &pass_settings() noexcept;

// Whether a value may be stored (finite, in range, radius above 0, kind 0 or 1).
bool storable(const Value &v) noexcept;
// Stores a checked value; raises std::bad_alloc with the cache unchanged.
void store(IrrCache &cache, const Value &v);
// Stores checked values, all or none (raises std::bad_alloc with the cache unchanged).
void store_all(IrrCache &cache, const std::vector<Value> &values);
// Gathers around the query's point into its outputs; returns the count.
unsigned gather(const IrrCache &cache, IrrCacheQuery &query) noexcept;
// Calls `visit(const Value &)` for every value in file order: top nodes 0 to 7, depth first,
// children in index order; in each node the first list, then the second, block by block, slot
// by slot.
template <class Visit>
void for_each_value(const Node *node, Visit &&visit);
template <class Visit>
void for_each_value(const IrrCache &cache, Visit &&visit) {
    for (const Node *top : cache.top) for_each_value(top, visit);
}

// The corner of top node i, whose cell has edge `edge`.
void top_box(int index, double edge, double corner[3]) noexcept;

inline Value value_at(const Block &b, int slot, int kind) noexcept {
    Value v{};
    v.position[0] = b.px[slot], v.position[1] = b.py[slot], v.position[2] = b.pz[slot];
    v.normal[0] = b.nx[slot], v.normal[1] = b.ny[slot], v.normal[2] = b.nz[slot];
    for (int c = 0; c < 3; ++c) {
        v.irradiance[c] = b.irradiance[c][slot];
        v.irradiance2[c] = b.irradiance2[c][slot];
        v.gradient[c] = b.gradient[c][slot];
        v.gradient2[c] = b.gradient2[c][slot];
    }
    v.radius = b.radius[slot];
    v.kind = kind;
    v.pass = b.pass[slot];
    return v;
}

template <class Visit>
void for_each_value(const Node *node, Visit &&visit) {
    if (node == nullptr) return;
    for (int kind = 0; kind < 2; ++kind) {
        for (const Block *b = node->lists[kind].first; b != nullptr; b = b->next) {
            for (int slot = 0; slot < b->used; ++slot) visit(value_at(*b, slot, kind));
        }
    }
    for (const Node *child : node->children) for_each_value(child, visit);
}

}  // namespace vx::irr
