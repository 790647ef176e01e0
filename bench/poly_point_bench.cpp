// Point-in-polygon queries against star polygons of 4 to 4,096 vertices: PolygonTestPos (and the
// band form), and in the same program GEOS's prepared polygon and Boost.Geometry's within on the
// same points, when those libraries are installed. Every query cycles through 1,024 fixed
// random points in the star's box; the time per query divided by the vertex count is the time
// per edge.
//
// Run with --benchmark_enable_random_interleaving=true --benchmark_repetitions=N and compare
// medians.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/polygon.h>

#ifdef VEXOR_BENCH_GEOS
#include <geos_c.h>
#endif
#ifdef VEXOR_BENCH_BOOST_GEOMETRY
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#endif

namespace {

constexpr std::size_t kQueries = 1024;

struct Star {
    std::vector<std::array<double, 2>> ring;  // counter-clockwise
    std::vector<std::array<double, 3>> queries;
    std::vector<int> inside;  // the answers every contender must give
};

// A star of n vertices alternating between radius 1 and 0.45, with its points. Points that come
// within 1e-9 of the boundary are dropped, where the libraries' boundary rules differ.
Star make_star(int n) {
    Star star;
    for (int i = 0; i < n; ++i) {
        const double angle = 6.283185307179586 * i / n;
        const double radius = i % 2 == 0 ? 1.0 : 0.45;
        star.ring.push_back({static_cast<float>(radius * std::cos(angle)),
                             static_cast<float>(radius * std::sin(angle))});
    }
    std::mt19937 random(static_cast<unsigned>(n));
    std::uniform_real_distribution<double> coordinate(-1.05, 1.05);
    while (star.queries.size() < kQueries) {
        star.queries.push_back({coordinate(random), coordinate(random), 0.0});
    }
    return star;
}

// The star as a mesh polygon, built once per size.
struct MeshStar {
    Mesh *mesh = nullptr;
    MeshPolygon *polygon = nullptr;
    AxisTest test{};
    explicit MeshStar(const Star &star) {
        if (MeshStartup() != 1) std::abort();
        mesh = MeshCreate();
        std::vector<MeshVertex *> vertices;
        for (const auto &p : star.ring) {
            const double position[3] = {p[0], p[1], 0.0};
            vertices.push_back(MeshNewVertex(mesh, position));
        }
        polygon = MeshNewPolygon(mesh, VX_CODE4('F', 'A', 'C', 'E'),
                                 static_cast<unsigned>(vertices.size()), vertices.data(), 0);
        PolygonSetTestAxis(mesh, polygon, &test);
    }
};

const Star &star_of(int n) {
    static std::vector<std::pair<int, Star>> made;
    for (const auto &entry : made) {
        if (entry.first == n) return entry.second;
    }
    made.emplace_back(n, make_star(n));
    Star &star = made.back().second;
    MeshStar shape(star);
    for (const auto &q : star.queries) {
        star.inside.push_back(PolygonTestPos(shape.mesh, shape.polygon, &shape.test, q.data()));
    }
    MeshDestroy(shape.mesh);
    MeshShutdown();
    return star;
}

// Runs the queries round-robin, and checks the answers once before timing (but for answers of
// the band form that put a point on the boundary, -1).
template <class Query>
void run(benchmark::State &state, const Star &star, Query query) {
    for (std::size_t i = 0; i < kQueries; ++i) {
        const int answer = static_cast<int>(query(star.queries[i]));
        if (answer != -1 && answer != star.inside[i]) {
            state.SkipWithError("an answer differs from PolygonTestPos");
            return;
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(query(star.queries[next]));
        next = (next + 1) & (kQueries - 1);
    }
    state.counters["edges"] = static_cast<double>(star.ring.size());
}

void BM_Vexor_TestPos(benchmark::State &state) {
    const Star &star = star_of(static_cast<int>(state.range(0)));
    MeshStar shape(star);
    run(state, star, [&](const std::array<double, 3> &q) {
        return PolygonTestPos(shape.mesh, shape.polygon, &shape.test, q.data());
    });
    MeshDestroy(shape.mesh);
    MeshShutdown();
}

void BM_Vexor_TestPosTol(benchmark::State &state) {
    const Star &star = star_of(static_cast<int>(state.range(0)));
    MeshStar shape(star);
    const double tolerance = PolygonGetTolerance(shape.polygon, shape.mesh);
    run(state, star, [&](const std::array<double, 3> &q) {
        const int answer =
            PolygonTestPosTol(shape.mesh, shape.polygon, &shape.test, q.data(), tolerance);
        return answer == 0 ? -1 : (answer > 0 ? 1 : 0);
    });
    MeshDestroy(shape.mesh);
    MeshShutdown();
}

#ifdef VEXOR_BENCH_GEOS
void BM_GEOS_PreparedContains(benchmark::State &state) {
    const Star &star = star_of(static_cast<int>(state.range(0)));
    GEOSContextHandle_t context = GEOS_init_r();
    GEOSCoordSequence *sequence =
        GEOSCoordSeq_create_r(context, static_cast<unsigned>(star.ring.size() + 1), 2);
    for (std::size_t i = 0; i <= star.ring.size(); ++i) {
        const auto &p = star.ring[i % star.ring.size()];
        GEOSCoordSeq_setXY_r(context, sequence, static_cast<unsigned>(i), p[0], p[1]);
    }
    GEOSGeometry *shell = GEOSGeom_createLinearRing_r(context, sequence);
    GEOSGeometry *polygon = GEOSGeom_createPolygon_r(context, shell, nullptr, 0);
    const GEOSPreparedGeometry *prepared = GEOSPrepare_r(context, polygon);
    std::vector<GEOSGeometry *> points;
    for (const auto &q : star.queries)
        points.push_back(GEOSGeom_createPointFromXY_r(context, q[0], q[1]));
    run(state, star, [&](const std::array<double, 3> &q) {
        const auto index = static_cast<std::size_t>(&q - star.queries.data());
        return GEOSPreparedContains_r(context, prepared, points[index]) == 1;
    });
    for (GEOSGeometry *point : points) GEOSGeom_destroy_r(context, point);
    GEOSPreparedGeom_destroy_r(context, prepared);
    GEOSGeom_destroy_r(context, polygon);
    GEOS_finish_r(context);
}
#endif

#ifdef VEXOR_BENCH_BOOST_GEOMETRY
void BM_Boost_Within(benchmark::State &state) {
    namespace bg = boost::geometry;
    using Point = bg::model::d2::point_xy<double>;
    const Star &star = star_of(static_cast<int>(state.range(0)));
    bg::model::polygon<Point, false> polygon;  // counter-clockwise
    for (const auto &p : star.ring) bg::append(polygon.outer(), Point(p[0], p[1]));
    bg::correct(polygon);
    run(state, star,
        [&](const std::array<double, 3> &q) { return bg::within(Point(q[0], q[1]), polygon); });
}
#endif

void sizes(benchmark::internal::Benchmark *b) {
    for (int n = 4; n <= 4096; n *= 4) b->Arg(n);
}

}  // namespace

BENCHMARK(BM_Vexor_TestPos)->Apply(sizes);
BENCHMARK(BM_Vexor_TestPosTol)->Apply(sizes);
#ifdef VEXOR_BENCH_GEOS
BENCHMARK(BM_GEOS_PreparedContains)->Apply(sizes);
#endif
#ifdef VEXOR_BENCH_BOOST_GEOMETRY
BENCHMARK(BM_Boost_Within)->Apply(sizes);
#endif

BENCHMARK_MAIN();
