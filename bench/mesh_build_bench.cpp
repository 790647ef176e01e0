// Mesh storage on the hot path: building a 1000 x 1000 quad grid (1,002,001 vertices and
// 1,000,000 quads) from index arrays, reading every vertex position, and deleting a tenth of
// the elements. The counters give the time per polygon (with its vertex and the two default
// tags, "MATR" and "PART", that MeshNewPolygon sets), per position read and per deletion, in
// seconds with SI prefixes. Everything goes through the public C functions, as a host calls them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/mesh.h>

namespace {

constexpr int kQuadsPerSide = 1000;
constexpr int kSide = kQuadsPerSide + 1;  // vertices per side
constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');

// The grid as a host holds it before building: positions and the quads' vertex indices.
struct Grid {
    std::vector<double> positions;
    std::vector<std::uint32_t> quads;
    Grid() {
        positions.reserve(3u * kSide * kSide);
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                positions.push_back(x * 0.01);
                positions.push_back(y * 0.01);
                positions.push_back(((x ^ y) & 7) * 0.001);
            }
        }
        quads.reserve(4u * kQuadsPerSide * kQuadsPerSide);
        for (int y = 0; y < kQuadsPerSide; ++y) {
            for (int x = 0; x < kQuadsPerSide; ++x) {
                const auto a = static_cast<std::uint32_t>(y * kSide + x);
                quads.insert(quads.end(), {a, a + 1, a + 1 + kSide, a + kSide});
            }
        }
    }
};

const Grid &grid() {
    static const Grid g;
    return g;
}

Mesh *build(const Grid &g, std::vector<MeshVertex *> &vertices) {
    Mesh *mesh = MeshCreate();
    MeshBatchBegin(mesh);
    const std::size_t count = g.positions.size() / 3;
    vertices.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        vertices[i] = MeshNewVertex(mesh, &g.positions[3 * i]);
    }
    MeshVertex *corners[4];
    for (std::size_t q = 0; q < g.quads.size(); q += 4) {
        for (int k = 0; k < 4; ++k) corners[k] = vertices[g.quads[q + static_cast<std::size_t>(k)]];
        MeshNewPolygon(mesh, kFace, 4, corners, 0);
    }
    MeshBatchEnd(mesh);
    return mesh;
}

void BM_BuildGrid(benchmark::State &state) {
    MeshStartup();
    const Grid &g = grid();
    std::vector<MeshVertex *> vertices;
    for (auto _ : state) {
        Mesh *mesh = build(g, vertices);
        state.PauseTiming();
        MeshDestroy(mesh);
        state.ResumeTiming();
    }
    const double quads = static_cast<double>(g.quads.size() / 4);
    state.counters["per_polygon"] = benchmark::Counter(
        quads, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    MeshShutdown();
}
BENCHMARK(BM_BuildGrid)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_ReadPositions(benchmark::State &state) {
    MeshStartup();
    std::vector<MeshVertex *> vertices;
    Mesh *mesh = build(grid(), vertices);
    const unsigned count = MeshNumVrts(mesh);
    for (auto _ : state) {
        double sum = 0.0;
        double p[3];
        for (unsigned i = 0; i < count; ++i) {
            MeshVertexPos(mesh, MeshVrtByIndex(mesh, i), p);
            sum += p[0] + p[1] + p[2];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.counters["per_position"] = benchmark::Counter(
        static_cast<double>(count),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    MeshDestroy(mesh);
    MeshShutdown();
}
BENCHMARK(BM_ReadPositions)->Unit(benchmark::kMillisecond);

// Every tenth vertex and every tenth polygon deleted in one batch, then the positions of the
// survivors read by index (the live-index table is rebuilt once).
void BM_DeleteTenth(benchmark::State &state) {
    MeshStartup();
    std::vector<MeshVertex *> vertices;
    std::size_t deleted = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Mesh *mesh = build(grid(), vertices);
        std::vector<MeshPolygon *> polygons;
        for (unsigned i = 0; i < MeshNumPols(mesh); i += 10) {
            polygons.push_back(MeshPolByIndex(mesh, i));
        }
        state.ResumeTiming();
        MeshBatchBegin(mesh);
        deleted = 0;
        for (std::size_t i = 0; i < vertices.size(); i += 10, ++deleted) {
            MeshFreeVertex(mesh, vertices[i]);
        }
        for (MeshPolygon *polygon : polygons) {
            MeshFreePolygon(mesh, polygon);
            ++deleted;
        }
        MeshBatchEnd(mesh);
        double sum = 0.0;
        double p[3];
        for (unsigned i = 0; i < MeshNumVrts(mesh); ++i) {
            MeshVertexPos(mesh, MeshVrtByIndex(mesh, i), p);
            sum += p[0];
        }
        benchmark::DoNotOptimize(sum);
        state.PauseTiming();
        MeshDestroy(mesh);
        state.ResumeTiming();
    }
    state.counters["per_deletion"] = benchmark::Counter(
        static_cast<double>(deleted),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    MeshShutdown();
}
BENCHMARK(BM_DeleteTenth)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
