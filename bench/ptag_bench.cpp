// Polygon tags on a mesh of 100,000 triangles, each carrying the default material and part:
// reading a polygon's material (what shading does for every polygon it bins), and setting it
// to one of a few shared texts (a shared record found, its count moved, the old one released).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/ptag.h>

namespace {

constexpr int kPolygons = 100000;
constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');

struct Tagged {
    Mesh *mesh = MeshCreate();
    std::vector<MeshPolygon *> polygons;
    Tagged() {
        const double p[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
        MeshVertex *v[3] = {MeshNewVertex(mesh, p[0]), MeshNewVertex(mesh, p[1]),
                            MeshNewVertex(mesh, p[2])};
        MeshBatchBegin(mesh);
        for (int i = 0; i < kPolygons; ++i) {
            polygons.push_back(MeshNewPolygon(mesh, kFace, 3, v, 0));
        }
        MeshBatchEnd(mesh);
    }
    ~Tagged() { MeshDestroy(mesh); }
};

void BM_GetMaterial(benchmark::State &state) {
    MeshStartup();
    {
        Tagged t;
        for (auto _ : state) {
            std::size_t sum = 0;
            for (MeshPolygon *polygon : t.polygons) {
                sum += static_cast<unsigned char>(PTagGet(polygon, PTAG_MATERIAL)[0]);
            }
            benchmark::DoNotOptimize(sum);
        }
        state.counters["per_get"] = benchmark::Counter(
            kPolygons, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    }
    MeshShutdown();
}
BENCHMARK(BM_GetMaterial)->Unit(benchmark::kMillisecond);

void BM_SetMaterial(benchmark::State &state) {
    MeshStartup();
    {
        Tagged t;
        const char *texts[] = {"Wood", "Steel", "Glass"};
        int round = 0;
        for (auto _ : state) {
            MeshBatchBegin(t.mesh);
            for (std::size_t i = 0; i < t.polygons.size(); ++i) {
                PTagSet(t.polygons[i], PTAG_MATERIAL,
                        texts[(i + static_cast<unsigned>(round)) % 3]);
            }
            MeshBatchEnd(t.mesh);
            ++round;
        }
        state.counters["per_set"] = benchmark::Counter(
            kPolygons, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    }
    MeshShutdown();
}
BENCHMARK(BM_SetMaterial)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
