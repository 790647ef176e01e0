// Convex hulls of a million points in four distributions, and the same hulls by the peers
// (GEOS, CGAL's convex_hull_2, Qhull) in the same program when they are installed. Every
// measurement starts from the same raw arrays of doubles and includes building the hull's own
// input from them; run with --benchmark_enable_random_interleaving=true.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include <vexor/hull.h>

#ifdef VEXOR_BENCH_GEOS
#include <geos_c.h>
#endif
#ifdef VEXOR_BENCH_CGAL
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/convex_hull_2.h>
#endif
#ifdef VEXOR_BENCH_QHULL
extern "C" {
#include <libqhull_r/libqhull_r.h>
}
#endif

namespace {

constexpr std::size_t kPoints = 1000000;

enum Distribution { kSquare, kDisc, kCircle, kGaussian };

// Interleaved x, y.
const std::vector<double> &points(int distribution) {
    static std::vector<double> sets[4];
    std::vector<double> &xy = sets[distribution];
    if (!xy.empty()) return xy;
    std::mt19937_64 random(42 + static_cast<unsigned>(distribution));
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::normal_distribution<double> normal(0.0, 1.0);
    xy.reserve(2 * kPoints);
    while (xy.size() < 2 * kPoints) {
        double x = 0.0, y = 0.0;
        switch (distribution) {
            case kSquare:
                x = unit(random);
                y = unit(random);
                break;
            case kDisc:
                do {
                    x = unit(random);
                    y = unit(random);
                } while (x * x + y * y > 1.0);
                break;
            case kCircle: {
                const double angle = M_PI * unit(random);
                x = std::cos(angle);
                y = std::sin(angle);
                break;
            }
            default:
                x = normal(random);
                y = normal(random);
        }
        xy.push_back(x);
        xy.push_back(y);
    }
    return xy;
}

void label(benchmark::State &state, std::size_t vertices) {
    static const char *const names[] = {"square", "disc", "circle", "gaussian"};
    state.SetLabel(names[state.range(0)]);
    state.counters["hull_vertices"] = static_cast<double>(vertices);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPoints));
}

void BM_Vexor(benchmark::State &state) {
    const std::vector<double> &xy = points(static_cast<int>(state.range(0)));
    unsigned vertices = 0;
    for (auto _ : state) {
        ConvexHull *hull = ConvexHullCreate();
        ConvexHullStart(hull);
        for (std::size_t i = 0; i < kPoints; ++i)
            ConvexHullAppend(hull, xy[2 * i], xy[2 * i + 1], i);
        ConvexHullDone(hull);
        vertices = ConvexHullVertexCount(hull);
        ConvexHullDestroy(hull);
    }
    label(state, vertices);
}
BENCHMARK(BM_Vexor)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

#ifdef VEXOR_BENCH_GEOS
void BM_GEOS(benchmark::State &state) {
    const std::vector<double> &xy = points(static_cast<int>(state.range(0)));
    GEOSContextHandle_t context = GEOS_init_r();
    std::size_t vertices = 0;
    for (auto _ : state) {
        GEOSCoordSequence *sequence =
            GEOSCoordSeq_copyFromBuffer_r(context, xy.data(), kPoints, 0, 0);
        GEOSGeometry *line = GEOSGeom_createLineString_r(context, sequence);
        GEOSGeometry *hull = GEOSConvexHull_r(context, line);
        vertices = static_cast<std::size_t>(GEOSGetNumCoordinates_r(context, hull)) - 1;
        GEOSGeom_destroy_r(context, hull);
        GEOSGeom_destroy_r(context, line);
    }
    GEOS_finish_r(context);
    label(state, vertices);
}
BENCHMARK(BM_GEOS)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
#endif

#ifdef VEXOR_BENCH_CGAL
void BM_CGAL(benchmark::State &state) {
    using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
    const std::vector<double> &xy = points(static_cast<int>(state.range(0)));
    std::size_t vertices = 0;
    for (auto _ : state) {
        std::vector<Kernel::Point_2> input;
        input.reserve(kPoints);
        for (std::size_t i = 0; i < kPoints; ++i) input.emplace_back(xy[2 * i], xy[2 * i + 1]);
        std::vector<Kernel::Point_2> hull;
        CGAL::convex_hull_2(input.begin(), input.end(), std::back_inserter(hull));
        vertices = hull.size();
    }
    label(state, vertices);
}
BENCHMARK(BM_CGAL)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
#endif

#ifdef VEXOR_BENCH_QHULL
void BM_Qhull(benchmark::State &state) {
    const std::vector<double> &xy = points(static_cast<int>(state.range(0)));
    std::size_t vertices = 0;
    std::vector<double> coordinates;
    for (auto _ : state) {
        coordinates.assign(xy.begin(), xy.end());  // Qhull may scale its input in place
        qhT qh_storage;
        qhT *qh = &qh_storage;
        QHULL_LIB_CHECK
        qh_zero(qh, stderr);
        char options[] = "qhull";
        const int failed = qh_new_qhull(qh, 2, static_cast<int>(kPoints), coordinates.data(), False,
                                        options, nullptr, stderr);
        vertices = failed ? 0 : static_cast<std::size_t>(qh->num_vertices);
        qh_freeqhull(qh, !qh_ALL);
        int long_memory = 0, short_memory = 0;
        qh_memfreeshort(qh, &long_memory, &short_memory);
    }
    label(state, vertices);
}
BENCHMARK(BM_Qhull)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
