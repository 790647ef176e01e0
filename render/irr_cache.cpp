// The irradiance cache: storing values into the octree, the counters, and the pass settings.
#include "render/irr_cache.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

#include "foundation/guard.h"
#include "render/irr_index.h"
#include "render/rad_map.h"

IrrCache::IrrCache() = default;

IrrCache::~IrrCache() {
    std::vector<vx::irr::Node *> pending(std::begin(top), std::end(top));
    while (!pending.empty()) {
        vx::irr::Node *node = pending.back();
        pending.pop_back();
        if (node == nullptr) continue;
        for (vx::irr::Node *child : node->children) pending.push_back(child);
        delete node;
    }
    while (pages != nullptr) delete std::exchange(pages, pages->next);
}

namespace vx::irr {

namespace {

// The child of a cell with corner `corner` and half edge `half` that holds p, and its corner.
int child_index(const double corner[3], double half, const float p[3], double child[3]) noexcept {
    int index = 0;
    for (int axis = 0; axis < 3; ++axis) {
        const bool upper = static_cast<double>(p[axis]) >= corner[axis] + half;
        child[axis] = corner[axis] + (upper ? half : 0.0);
        index |= upper ? 1 << axis : 0;
    }
    return index;
}

int top_index(const float p[3]) noexcept {
    return (p[0] >= 0.0f ? 1 : 0) | (p[1] >= 0.0f ? 2 : 0) | (p[2] >= 0.0f ? 4 : 0);
}

// A free slot: the last block of the chain when it has one, else a new block.
Block &block_for(IrrCache &cache, Chain &chain, bool &fresh) {
    fresh = chain.last == nullptr || chain.last->used == 4;
    if (!fresh) return *chain.last;
    if (cache.pages == nullptr || cache.pages->carved == kBlocksPerPage) {
        auto *page = new Page;
        page->next = cache.pages;
        cache.pages = page;
    }
    Block &b = cache.pages->blocks[cache.pages->carved];
    b = Block{};
    const float none = std::numeric_limits<float>::quiet_NaN();
    for (float *c : {b.px, b.py, b.pz}) std::fill(c, c + 4, none);
    return b;
}

}  // namespace

PassSettings &pass_settings() noexcept {
    static PassSettings settings;
    return settings;
}

void top_box(int index, double edge, double corner[3]) noexcept {
    for (int axis = 0; axis < 3; ++axis) corner[axis] = (index >> axis & 1) != 0 ? 0.0 : -edge;
}

bool storable(const Value &v) noexcept {
    const float *fields[] = {v.position,    v.normal,   v.irradiance,
                             v.irradiance2, v.gradient, v.gradient2};
    for (const float *f : fields) {
        for (int c = 0; c < 3; ++c) {
            if (!std::isfinite(f[c])) return false;
        }
    }
    for (float c : v.position) {
        if (std::fabs(static_cast<double>(c)) >= kLargestEdge) return false;
    }
    return std::isfinite(v.radius) && v.radius > 0.0f && (v.kind == 0 || v.kind == 1);
}

namespace {

void store_within(IrrCache &cache, const Value &v);

// The edge of top cells that hold the value: beyond its position, and at least twice its
// radius, so that the queries within its reach fall in its cell's grown box.
double edge_for(double edge, const Value &v) noexcept {
    for (float c : v.position) {
        while (std::fabs(static_cast<double>(c)) >= edge) edge *= 2.0;
    }
    while (edge < 2.0 * static_cast<double>(v.radius) && edge < kLargestEdge) edge *= 2.0;
    return edge;
}

// Stores every value of `cache` and then `more` into a new octree whose top cells hold them
// all, and gives `cache` the result: nothing changes unless all of it succeeds.
void rebuild(IrrCache &cache, const Value *more, std::size_t count) {
    IrrCache grown;
    grown.edge = cache.edge;
    for (std::size_t i = 0; i < count; ++i) grown.edge = edge_for(grown.edge, more[i]);
    for_each_value(cache, [&](const Value &old) { store_within(grown, old); });
    for (std::size_t i = 0; i < count; ++i) store_within(grown, more[i]);
    std::swap(cache.top, grown.top);
    std::swap(cache.pages, grown.pages);
    std::swap(cache.edge, grown.edge);
    std::swap(cache.values, grown.values);
    std::swap(cache.blocks, grown.blocks);
    std::swap(cache.nodes, grown.nodes);
}

}  // namespace

void store(IrrCache &cache, const Value &v) {
    forget_index(cache);
    if (edge_for(cache.edge, v) != cache.edge) {
        rebuild(cache, &v, 1);
    } else {
        store_within(cache, v);
    }
}

void store_all(IrrCache &cache, const std::vector<Value> &values) {
    forget_index(cache);
    if (!values.empty()) rebuild(cache, values.data(), values.size());
}

namespace {

void store_within(IrrCache &cache, const Value &v) {
    // Find the cell first, making the missing nodes on the way aside, so that running out of
    // memory leaves the cache as it was.
    const int top = top_index(v.position);
    double corner[3];
    top_box(top, cache.edge, corner);
    double edge = cache.edge;
    std::vector<std::unique_ptr<Node>> made;
    std::vector<std::pair<Node *, int>> links;  // the parent and index of each made child
    Node *path[kMaxDepth + 1];
    int path_length = 0;
    Node *node = cache.top[top];
    const bool made_top = node == nullptr;
    if (made_top) {
        made.push_back(std::make_unique<Node>());
        node = made.back().get();
    }
    path[path_length++] = node;
    const double reach = 2.0 * static_cast<double>(v.radius);
    for (int depth = 0; depth < kMaxDepth && edge * 0.5 >= reach; ++depth) {
        double child[3];
        const int index = child_index(corner, edge * 0.5, v.position, child);
        Node *next = node->children[index];
        if (next == nullptr) {
            made.push_back(std::make_unique<Node>());
            next = made.back().get();
            links.emplace_back(node, index);
        }
        node = next;
        path[path_length++] = node;
        edge *= 0.5;
        for (int axis = 0; axis < 3; ++axis) corner[axis] = child[axis];
    }
    Chain &chain = node->lists[v.kind];
    bool fresh = false;
    Block &b = block_for(cache, chain, fresh);

    // Nothing below can fail.
    if (made_top) cache.top[top] = made.front().get();
    const std::size_t first_child = made_top ? 1 : 0;
    for (std::size_t i = 0; i < links.size(); ++i) {
        links[i].first->children[links[i].second] = made[first_child + i].get();
    }
    cache.nodes += static_cast<unsigned>(made.size());
    for (std::unique_ptr<Node> &n : made) static_cast<void>(n.release());
    if (fresh) {
        ++cache.pages->carved;
        ++cache.blocks;
        if (chain.last != nullptr) chain.last->next = &b;
        if (chain.first == nullptr) chain.first = &b;
        chain.last = &b;
    }
    const int i = b.used;
    b.px[i] = v.position[0], b.py[i] = v.position[1], b.pz[i] = v.position[2];
    b.nx[i] = v.normal[0], b.ny[i] = v.normal[1], b.nz[i] = v.normal[2];
    for (int c = 0; c < 3; ++c) {
        b.irradiance[c][i] = v.irradiance[c];
        b.irradiance2[c][i] = v.irradiance2[c];
        b.gradient[c][i] = v.gradient[c];
        b.gradient2[c][i] = v.gradient2[c];
    }
    b.radius[i] = v.radius;
    b.pass[i] = v.pass;
    ++b.used;
    ++cache.values;
    for (int n = 0; n < path_length; ++n) {
        Bound &bound = path[n]->bounds[v.kind];
        for (int axis = 0; axis < 3; ++axis) {
            const float c = v.position[axis];
            const bool first = bound.max_radius == 0.0f;
            bound.low[axis] = first ? c : std::min(bound.low[axis], c);
            bound.high[axis] = first ? c : std::max(bound.high[axis], c);
        }
        bound.max_radius = std::max(bound.max_radius, v.radius);
    }
}

}  // namespace

}  // namespace vx::irr

namespace {

void reset_passes(vx::irr::Node *node) {
    if (node == nullptr) return;
    for (vx::irr::Chain &chain : node->lists) {
        for (vx::irr::Block *b = chain.first; b != nullptr; b = b->next) {
            for (std::uint8_t &pass : b->pass) pass = 0;
        }
    }
    for (vx::irr::Node *child : node->children) reset_passes(child);
}

void copy3(float *to, const float *from) {
    to[0] = from[0], to[1] = from[1], to[2] = from[2];
}

}  // namespace

extern "C" {

VX_API IrrCache *IrrCacheCreate(void) {
    return vx::guard(static_cast<IrrCache *>(nullptr), [] { return new IrrCache; });
}

VX_API void IrrCacheDestroy(IrrCache *cache) {
    delete cache;
}

VX_API int IrrCacheStoreValue(IrrCache *cache, const float position[3], const float normal[3],
                              const float irradiance[3], const float irradiance2[3],
                              const float gradient[3], const float gradient2[3], float radius,
                              int kind) {
    if (cache == nullptr || position == nullptr || normal == nullptr || irradiance == nullptr ||
        irradiance2 == nullptr || gradient == nullptr || gradient2 == nullptr) {
        return 0;
    }
    vx::irr::Value v{};
    copy3(v.position, position);
    copy3(v.normal, normal);
    copy3(v.irradiance, irradiance);
    copy3(v.irradiance2, irradiance2);
    copy3(v.gradient, gradient);
    copy3(v.gradient2, gradient2);
    v.radius = radius;
    v.kind = kind;
    v.pass = static_cast<std::uint8_t>(vx::irr::pass_settings().pass & 0xFF);
    if (!vx::irr::storable(v)) return 0;
    return vx::guard(0, [&] {
        vx::irr::store(*cache, v);
        return 1;
    });
}

VX_API unsigned int IrrCacheForEachValue(const IrrCache *cache,
                                         void (*visit)(void *client, const IrrCacheValue *value),
                                         void *client) {
    if (cache == nullptr || visit == nullptr) return 0;
    unsigned count = 0;
    vx::irr::for_each_value(*cache, [&](const vx::irr::Value &v) {
        IrrCacheValue out{};
        copy3(out.position, v.position);
        copy3(out.normal, v.normal);
        copy3(out.irradiance, v.irradiance);
        copy3(out.irradiance2, v.irradiance2);
        copy3(out.gradient, v.gradient);
        copy3(out.gradient2, v.gradient2);
        out.radius = v.radius;
        out.kind = v.kind;
        out.pass = v.pass;
        visit(client, &out);
        ++count;
    });
    return count;
}

VX_API unsigned int IrrCacheNumValues(const IrrCache *cache) {
    return cache != nullptr ? cache->values : 0;
}

VX_API unsigned int IrrCacheNumMults(const IrrCache *cache) {
    return cache != nullptr ? cache->blocks : 0;
}

VX_API unsigned int IrrCacheNumNodes(const IrrCache *cache) {
    return cache != nullptr ? cache->nodes : 0;
}

VX_API size_t IrrCacheMemoryUsage(const IrrCache *cache) {
    if (cache == nullptr) return 0;
    return 320 * static_cast<size_t>(cache->blocks) + 120 * static_cast<size_t>(cache->nodes);
}

VX_API void IrrCacheSetPass(IrrCache *, int pass, float minDist, float maxDist, float scale) {
    vx::irr::PassSettings &s = vx::irr::pass_settings();
    const double cosine = pass != 0 ? 0.984807753012208 : 0.9396926207859083;
    s.pass = pass;
    s.cosine = static_cast<float>(cosine);
    s.factor = static_cast<float>(1.0 / std::sqrt(1.0 - cosine));
    s.scale = scale;
    s.min_distance = minDist * scale;
    s.max_distance = maxDist * scale;
}

VX_API int IrrCachePass(void) {
    return vx::irr::pass_settings().pass;
}

VX_API void IrrCacheResetPasses(IrrCache *cache) {
    if (cache == nullptr) return;
    vx::irr::forget_index(*cache);
    for (vx::irr::Node *top : cache->top) reset_passes(top);
}

VX_API int IrrCacheLock(void) {
    return vx::irr::pass_settings().locked ? 1 : 0;
}

VX_API void IrrCacheSetLock(int locked) {
    vx::irr::pass_settings().locked = locked != 0;
}

}  // extern "C"
