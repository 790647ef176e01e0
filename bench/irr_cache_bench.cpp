// Irradiance cache gathers: 100,000 values on a wavy surface, 1,000,000 queries at points of the
// surface, in two orders: scan lines across the surface, as a renderer asks pixel after pixel
// (neighbouring queries share the values they read), and at random. Beside them, when nanoflann is
// installed, the same acceptance rule answered by a k-d tree radius search over the same values
// (the radius the largest acceptance radius, every value found then put through the cache's own
// tests and weights).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <vexor/irr_cache.h>

#if defined(VEXOR_BENCH_NANOFLANN)
#include <nanoflann.hpp>
#endif

namespace {

constexpr int kValues = 100000;
constexpr int kQueries = 1000000;
constexpr float kSide = 100.0f;
constexpr float kMaxDistance = 10.0f;

class Lcg {
  public:
    explicit Lcg(std::uint64_t seed) : state_(seed) {}
    float next(float lo, float hi) {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        return lo + (hi - lo) * static_cast<float>(state_ >> 40) * (1.0f / 16777216.0f);
    }

  private:
    std::uint64_t state_;
};

struct Point {
    float p[3], n[3];
};

Point on_surface(float x, float y) {
    const float z = 0.5f * std::sin(0.3f * x) * std::cos(0.2f * y);
    const float dx = 0.15f * std::cos(0.3f * x) * std::cos(0.2f * y);
    const float dy = -0.1f * std::sin(0.3f * x) * std::sin(0.2f * y);
    const float len = std::sqrt(dx * dx + dy * dy + 1.0f);
    return {{x, y, z}, {-dx / len, -dy / len, 1.0f / len}};
}

struct Scene {
    std::vector<Point> points;
    std::vector<float> radii;
    std::vector<Point> scanned;  // a 1000 x 1000 raster over the surface, line by line
    std::vector<Point> random;
    IrrCache *cache = nullptr;

    Scene() {
        IrrCacheSetPass(nullptr, 0, 0.0f, kMaxDistance, 1.0f);
        cache = IrrCacheCreate();
        Lcg lcg(7);
        const float grey[3] = {0.5f, 0.6f, 0.7f}, zero[3] = {0, 0, 0};
        for (int i = 0; i < kValues; ++i) {
            points.push_back(on_surface(lcg.next(0, kSide), lcg.next(0, kSide)));
            radii.push_back(lcg.next(0.2f, 0.8f));
            IrrCacheStoreValue(cache, points.back().p, points.back().n, grey, grey, zero, zero,
                               radii.back(), 0);
        }
        for (int i = 0; i < kQueries; ++i) {
            random.push_back(on_surface(lcg.next(0, kSide), lcg.next(0, kSide)));
            const float step = kSide / 1000.0f;
            scanned.push_back(on_surface((static_cast<float>(i % 1000) + lcg.next(0, 1)) * step,
                                         (static_cast<float>(i / 1000) + lcg.next(0, 1)) * step));
        }
        IrrCacheSetPass(nullptr, 1, 0.0f, kMaxDistance, 1.0f);  // values of pass 0 are usable
    }
};

const Scene &scene() {
    static const Scene s;
    return s;
}

IrrCacheQuery query_at(const Point &q) {
    IrrCacheQuery query{};
    std::copy(q.p, q.p + 3, query.position);
    std::copy(q.n, q.n + 3, query.normal);
    query.footprint = 1.0f;
    return query;
}

const std::vector<Point> &queries(const benchmark::State &state) {
    return state.range(0) == 0 ? scene().scanned : scene().random;
}

void BM_IrrCacheGather(benchmark::State &state) {
    const Scene &s = scene();
    std::uint64_t found = 0;
    for (auto _ : state) {
        for (const Point &q : queries(state)) {
            IrrCacheQuery query = query_at(q);
            found += IrrCacheGather(s.cache, &query);
        }
    }
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kQueries);
    state.counters["values_per_gather"] =
        static_cast<double>(found) / static_cast<double>(state.iterations() * kQueries);
}
BENCHMARK(BM_IrrCacheGather)->ArgName("random")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

#if defined(VEXOR_BENCH_NANOFLANN)

struct Cloud {
    const std::vector<Point> *points;
    std::size_t kdtree_get_point_count() const { return points->size(); }
    float kdtree_get_pt(std::size_t i, std::size_t dim) const { return (*points)[i].p[dim]; }
    template <class Box>
    bool kdtree_get_bbox(Box &) const {
        return false;
    }
};

using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud,
                                                 3, std::uint32_t>;

// The cache's acceptance rule and weights for every value the tree finds within the largest
// acceptance radius.
struct Accept {
    const Scene *scene;
    const Point *q;
    float reach2;
    float weight = 0.0f;
    unsigned count = 0;
    float cosine = 0.984807753012208f;
    float factor = static_cast<float>(1.0 / std::sqrt(1.0 - 0.984807753012208));

    void init() {}
    void clear() {}
    std::size_t size() const { return count; }
    bool full() const { return true; }
    float worstDist() const { return reach2; }
    bool addPoint(float d2, std::uint32_t index) {
        const Point &v = scene->points[index];
        const float r = scene->radii[index];
        const float accept = std::min(r * 0.5f, kMaxDistance);
        if (!(d2 < accept * accept)) return true;
        const float dot = q->n[0] * v.n[0] + q->n[1] * v.n[1] + q->n[2] * v.n[2];
        if (!(dot > cosine)) return true;
        const float d[3] = {q->p[0] - v.p[0], q->p[1] - v.p[1], q->p[2] - v.p[2]};
        const float plane = std::fabs(d[0] * v.n[0] + d[1] * v.n[1] + d[2] * v.n[2]);
        if (!(plane <= std::min(1.0f, 0.75f * r))) return true;
        const float dist = std::sqrt(d2);
        const float e = std::max(dist / accept, dot < 1.0f ? std::sqrt(1.0f - dot) * factor : 0.0f);
        if (1.0f - e <= 0.0f) return true;
        weight += 1.0f - e;
        count += dist < 0.0001f ? 16 : 1;
        return true;
    }
};

void BM_NanoflannRadiusSearch(benchmark::State &state) {
    const Scene &s = scene();
    const Cloud cloud{&s.points};
    Tree tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10));
    tree.buildIndex();
    const float reach = 0.8f * 0.5f;  // the largest acceptance radius
    std::uint64_t found = 0;
    for (auto _ : state) {
        for (const Point &q : queries(state)) {
            Accept accept{&s, &q, reach * reach};
            tree.radiusSearchCustomCallback(q.p, accept, nanoflann::SearchParams(32, 0.0f, false));
            found += accept.count;
        }
    }
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kQueries);
    state.counters["values_per_gather"] =
        static_cast<double>(found) / static_cast<double>(state.iterations() * kQueries);
}
BENCHMARK(BM_NanoflannRadiusSearch)
    ->ArgName("random")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond);

#endif

}  // namespace

BENCHMARK_MAIN();
