// Enumeration through a mark filter on a 1000 x 1000 quad grid (1,002,001 vertices and
// 1,000,000 quads). A tenth of the elements, scattered so that the branch on the filter cannot
// be learnt, carry the mark the filter requires, and some of them a mark it forbids. The
// per_element counter is the time per element the filter looks at (every element of the list),
// single-threaded; the threaded forms are measured beside it for comparison.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include <vexor/mark.h>
#include <vexor/mesh.h>

namespace {

constexpr int kQuadsPerSide = 1000;
constexpr int kSide = kQuadsPerSide + 1;
constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');
constexpr std::uint32_t kSelected = 0x1;
constexpr std::uint32_t kHidden = 0x2;
constexpr std::uint32_t kFilter = MESH_MARK_MODE(kSelected, kHidden);

// A fixed scramble of the element numbers: about one in ten is selected and one in fifty of
// those hidden, in no pattern a branch predictor follows.
std::uint32_t scramble(std::uint32_t i) {
    i ^= i >> 16;
    i *= 0x7FEB352Du;
    i ^= i >> 15;
    i *= 0x846CA68Bu;
    i ^= i >> 16;
    return i;
}

std::uint32_t marks_for(std::uint32_t i) {
    const std::uint32_t h = scramble(i);
    std::uint32_t marks = h % 10 == 0 ? kSelected : 0;
    if ((h >> 8) % 50 == 0) marks |= kHidden;
    return marks;
}

struct Grid {
    Mesh *mesh = nullptr;
    unsigned passing_vertices = 0;
    unsigned passing_polygons = 0;

    Grid() {
        MeshStartup();
        mesh = MeshCreate();
        MeshBatchBegin(mesh);
        std::vector<MeshVertex *> vertices;
        vertices.reserve(static_cast<std::size_t>(kSide) * kSide);
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                const double p[3] = {x * 0.01, y * 0.01, 0.0};
                MeshVertex *v = MeshNewVertex(mesh, p);
                MeshMarkVertex(v, marks_for(static_cast<std::uint32_t>(vertices.size())));
                vertices.push_back(v);
            }
        }
        std::uint32_t n = 0;
        for (int y = 0; y < kQuadsPerSide; ++y) {
            for (int x = 0; x < kQuadsPerSide; ++x) {
                const auto a = static_cast<std::size_t>(y * kSide + x);
                MeshVertex *corners[4] = {vertices[a], vertices[a + 1], vertices[a + 1 + kSide],
                                          vertices[a + kSide]};
                MeshPolygon *p = MeshNewPolygon(mesh, kFace, 4, corners, 0);
                MeshMarkPolygon(p, marks_for(n++ ^ 0x55555555u));
            }
        }
        MeshBatchEnd(mesh);
        passing_vertices = MeshMarkVrts(mesh, kFilter, 0);
        passing_polygons = MeshMarkPols(mesh, kFilter, 0);
    }
    ~Grid() {
        MeshDestroy(mesh);
        MeshShutdown();
    }
};

Grid &grid() {
    static Grid g;
    return g;
}

unsigned count_vertex(MeshVertex *, void *data, void *) {
    ++*static_cast<unsigned *>(data);
    return 0;
}

unsigned count_polygon(MeshPolygon *, void *data, void *) {
    ++*static_cast<unsigned *>(data);
    return 0;
}

void report(benchmark::State &state, unsigned visited, unsigned expected, unsigned looked_at) {
    if (visited != expected) state.SkipWithError("the filter passed the wrong elements");
    state.counters["per_element"] = benchmark::Counter(
        static_cast<double>(looked_at),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["passing"] = static_cast<double>(expected);
}

void BM_EnumerateVertices(benchmark::State &state) {
    Grid &g = grid();
    unsigned visited = 0;
    for (auto _ : state) {
        visited = 0;
        MeshEnumerateVrts(g.mesh, kFilter, &count_vertex, &visited, nullptr, nullptr);
        benchmark::DoNotOptimize(visited);
    }
    report(state, visited, g.passing_vertices, MeshNumVrts(g.mesh));
}
BENCHMARK(BM_EnumerateVertices)->Unit(benchmark::kMillisecond);

void BM_EnumeratePolygons(benchmark::State &state) {
    Grid &g = grid();
    unsigned visited = 0;
    for (auto _ : state) {
        visited = 0;
        MeshEnumeratePols(g.mesh, kFilter, &count_polygon, &visited, nullptr, nullptr);
        benchmark::DoNotOptimize(visited);
    }
    report(state, visited, g.passing_polygons, MeshNumPols(g.mesh));
}
BENCHMARK(BM_EnumeratePolygons)->Unit(benchmark::kMillisecond);

unsigned count_vertex_shared(MeshVertex *, void *data, void *) {
    static_cast<std::atomic<unsigned> *>(data)->fetch_add(1, std::memory_order_relaxed);
    return 0;
}

void BM_EnumerateVerticesThreaded(benchmark::State &state) {
    Grid &g = grid();
    std::atomic<unsigned> visited{0};
    for (auto _ : state) {
        visited = 0;
        MeshEnumVrtsThreaded(g.mesh, kFilter, &count_vertex_shared, &visited, nullptr);
    }
    report(state, visited.load(), g.passing_vertices, MeshNumVrts(g.mesh));
}
BENCHMARK(BM_EnumerateVerticesThreaded)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
