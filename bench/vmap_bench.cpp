// Vertex maps on a mesh of 100,000 vertices: reading a texture coordinate of every vertex (a
// hash lookup per vertex), reading positions through the position map, reading through a layer
// that holds a tenth of the values, and setting a weight of every vertex without recording.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/undo.h>
#include <vexor/vmap.h>

namespace {

constexpr int kVertices = 100000;
constexpr std::uint32_t kTexture = VX_CODE4('T', 'X', 'U', 'V');
constexpr std::uint32_t kWeight = VX_CODE4('W', 'G', 'H', 'T');
constexpr std::uint32_t kPosition = VX_CODE4('O', 'P', 'O', 'S');

struct Mapped {
    Mesh *mesh = MeshCreate();
    std::vector<MeshVertex *> v;
    VMap *uv = nullptr;
    VMap *layer = nullptr;
    Mapped() {
        UndoSysSuspend();
        MeshBatchBegin(mesh);
        for (int i = 0; i < kVertices; ++i) {
            const double p[3] = {i * 0.5, 1.0, 2.0};
            v.push_back(MeshNewVertex(mesh, p));
        }
        uv = VMapCreate(mesh, kTexture);
        for (int i = 0; i < kVertices; ++i) {
            const float value[2] = {static_cast<float>(i), 0.5f};
            VMapSet(uv, v[static_cast<std::size_t>(i)], value);
        }
        layer = VMapCreateOver(mesh, uv);
        for (int i = 0; i < kVertices; i += 10) {
            const float value[2] = {-1.0f, -1.0f};
            VMapSet(layer, v[static_cast<std::size_t>(i)], value);
        }
        MeshBatchEnd(mesh);
        UndoSysResume();
    }
    ~Mapped() { MeshDestroy(mesh); }
};

void per_vertex(benchmark::State &state) {
    state.counters["per_vertex"] = benchmark::Counter(
        kVertices, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Reads the first value of every vertex through the map that `pick` chooses.
template <class Pick>
void read_all(benchmark::State &state, Pick pick) {
    MeshStartup();
    {
        Mapped m;
        const VMap *map = pick(m);
        for (auto _ : state) {
            float sum = 0;
            for (MeshVertex *vertex : m.v) sum += VMapGet(map, vertex)[0];
            benchmark::DoNotOptimize(sum);
        }
        per_vertex(state);
    }
    MeshShutdown();
}

void BM_GetTexture(benchmark::State &state) {
    read_all(state, [](Mapped &m) { return m.uv; });
}
BENCHMARK(BM_GetTexture)->Unit(benchmark::kMillisecond);

void BM_GetThroughLayer(benchmark::State &state) {
    read_all(state, [](Mapped &m) { return m.layer; });
}
BENCHMARK(BM_GetThroughLayer)->Unit(benchmark::kMillisecond);

void BM_GetPosition(benchmark::State &state) {
    read_all(state, [](Mapped &m) { return VMapFindForMesh(m.mesh, kPosition); });
}
BENCHMARK(BM_GetPosition)->Unit(benchmark::kMillisecond);

void BM_SetWeight(benchmark::State &state) {
    MeshStartup();
    {
        Mapped m;
        VMap *weight = VMapCreate(m.mesh, kWeight);
        UndoSysSuspend();
        float value = 0;
        for (auto _ : state) {
            MeshBatchBegin(m.mesh);
            for (MeshVertex *vertex : m.v) VMapSet(weight, vertex, &value);
            MeshBatchEnd(m.mesh);
            value += 1;
        }
        UndoSysResume();
        per_vertex(state);
    }
    MeshShutdown();
}
BENCHMARK(BM_SetWeight)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
