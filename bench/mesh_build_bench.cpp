// Mesh storage on the hot path: building a 1000 x 1000 quad grid (1,002,001 vertices and
// 1,000,000 quads) from index arrays, the memory it then takes, reading vertex positions in
// order and at random (by index and through kept vertex handles), and deleting a tenth of the
// elements. The counters give the time per polygon (with its vertex and the two default tags,
// "MATR" and "PART", that MeshNewPolygon sets), per position read and per deletion, in seconds
// with SI prefixes, and the heap the built grid holds in MiB. Everything goes through the public C
// functions, as a host calls them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/mesh.h>

#include "mesh_grid.h"

namespace {

using bench::Grid;
using bench::grid;

constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');

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
    const double quads = static_cast<double>(g.quad_count());
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

// The heap the built grid holds, once its building batch has closed.
void BM_GridMemory(benchmark::State &state) {
    MeshStartup();
    // The host's own table of handles is not the mesh's: made before counting.
    std::vector<MeshVertex *> vertices(grid().vertex_count());
    double bytes = 0.0;
    for (auto _ : state) {
        const double before = bench::heap_bytes();
        Mesh *mesh = build(grid(), vertices);
        bytes = bench::heap_bytes() - before;
        state.PauseTiming();
        MeshDestroy(mesh);
        state.ResumeTiming();
    }
    state.counters["MiB"] = bytes / (1024.0 * 1024.0);
    MeshShutdown();
}
BENCHMARK(BM_GridMemory)->Unit(benchmark::kMillisecond)->Iterations(1);

// A position read at a random vertex, by index (MeshVrtByIndex) or through a vertex handle
// kept from building; the reads are independent, as a host's scattered lookups are.
void BM_RandomRead(benchmark::State &state) {
    const bool by_handle = state.range(0) != 0;
    MeshStartup();
    const Grid &g = grid();
    std::vector<MeshVertex *> vertices;
    Mesh *mesh = build(g, vertices);
    std::vector<MeshVertex *> handles(g.random.size());
    for (std::size_t i = 0; i < handles.size(); ++i) handles[i] = vertices[g.random[i]];
    for (auto _ : state) {
        double sum = 0.0;
        double p[3];
        if (by_handle) {
            for (MeshVertex *vertex : handles) {
                MeshVertexPos(mesh, vertex, p);
                sum += p[0] + p[1] + p[2];
            }
        } else {
            for (std::uint32_t index : g.random) {
                MeshVertexPos(mesh, MeshVrtByIndex(mesh, index), p);
                sum += p[0] + p[1] + p[2];
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.counters["per_read"] = benchmark::Counter(
        static_cast<double>(g.random.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    MeshDestroy(mesh);
    MeshShutdown();
}
BENCHMARK(BM_RandomRead)->ArgName("by_handle")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

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
