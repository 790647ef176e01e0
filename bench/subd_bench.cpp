// Subdivision data: building it for a 100 x 100 quad grid and for a closed torus of 10,000
// quads at level 2 (topology, refinement, limit corners, refined geometry), against the same
// work done by calling OpenSubdiv directly on the same topology (its refiner, uniform refinement
// to level 2, interpolation and limit evaluation); and reading one limit corner once the data
// is built. Run with --benchmark_enable_random_interleaving=true --benchmark_repetitions=N and
// compare the medians of each pair.
#include <benchmark/benchmark.h>

#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include <vexor/subd.h>

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

constexpr std::uint32_t kSubd = VX_CODE4('S', 'U', 'B', 'D');
constexpr int kLevel = 2;

// A surface of n x n quads: an open grid, or a torus whose rows and columns wrap around.
struct Topology {
    std::vector<float> points;
    std::vector<int> sizes;
    std::vector<int> indices;
};

Topology make(int n, bool torus) {
    Topology t;
    const int side = torus ? n : n + 1;
    for (int j = 0; j < side; ++j) {
        for (int i = 0; i < side; ++i) {
            if (torus) {
                const double u = 6.283185307 * i / n, v = 6.283185307 * j / n;
                t.points.push_back(float((2.0 + std::cos(v)) * std::cos(u)));
                t.points.push_back(float((2.0 + std::cos(v)) * std::sin(u)));
                t.points.push_back(float(std::sin(v)));
            } else {
                t.points.push_back(float(i) * 0.01f);
                t.points.push_back(float(j) * 0.01f);
                t.points.push_back(float((i ^ j) & 7) * 0.001f);
            }
        }
    }
    auto at = [&](int i, int j) { return (j % side) * side + (i % side); };
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            t.sizes.push_back(4);
            t.indices.insert(t.indices.end(),
                             {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j + 1)});
        }
    }
    return t;
}

const Topology &topology(bool torus) {
    static const Topology grid = make(100, false), ring = make(100, true);
    return torus ? ring : grid;
}

struct Point {
    float p[3];
    void Clear(void * = nullptr) { p[0] = p[1] = p[2] = 0.0f; }
    void AddWithWeight(const Point &s, float w) {
        p[0] += w * s.p[0];
        p[1] += w * s.p[1];
        p[2] += w * s.p[2];
    }
};

// OpenSubdiv on its own: the refiner from the topology, refinement to the level, positions
// interpolated to it and their limits.
void BM_OpenSubdivDirect(benchmark::State &state) {
    const Topology &t = topology(state.range(0) != 0);
    for (auto _ : state) {
        Far::TopologyDescriptor d;
        d.numVertices = static_cast<int>(t.points.size() / 3);
        d.numFaces = static_cast<int>(t.sizes.size());
        d.numVertsPerFace = t.sizes.data();
        d.vertIndicesPerFace = t.indices.data();
        Sdc::Options options;
        options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
        std::unique_ptr<Far::TopologyRefiner> refiner(
            Far::TopologyRefinerFactory<Far::TopologyDescriptor>::Create(
                d, Far::TopologyRefinerFactory<Far::TopologyDescriptor>::Options(
                       Sdc::SCHEME_CATMARK, options)));
        Far::TopologyRefiner::UniformOptions uniform(kLevel);
        uniform.fullTopologyInLastLevel = true;
        refiner->RefineUniform(uniform);
        std::vector<Point> all(static_cast<std::size_t>(refiner->GetNumVerticesTotal()));
        std::copy_n(reinterpret_cast<const Point *>(t.points.data()), t.points.size() / 3,
                    all.begin());
        Far::PrimvarRefiner primvar(*refiner);
        Point *src = all.data();
        for (int l = 1; l <= kLevel; ++l) {
            Point *dst = src + refiner->GetLevel(l - 1).GetNumVertices();
            primvar.Interpolate(l, src, dst);
            src = dst;
        }
        std::vector<Point> limits(
            static_cast<std::size_t>(refiner->GetLevel(kLevel).GetNumVertices()));
        Point *dst = limits.data();
        primvar.Limit(src, dst);
        benchmark::DoNotOptimize(limits.data());
    }
    state.SetLabel(state.range(0) != 0 ? "torus" : "grid");
}

struct Built {
    Mesh *mesh;
    std::vector<MeshVertex *> vertices;
};

Built build(const Topology &t) {
    Built b{MeshCreate(), {}};
    MeshBatchBegin(b.mesh);
    for (std::size_t i = 0; i < t.points.size(); i += 3) {
        const double p[3] = {t.points[i], t.points[i + 1], t.points[i + 2]};
        b.vertices.push_back(MeshNewVertex(b.mesh, p));
    }
    MeshVertex *corners[4];
    for (std::size_t q = 0; q < t.indices.size(); q += 4) {
        for (std::size_t k = 0; k < 4; ++k) corners[k] = b.vertices[std::size_t(t.indices[q + k])];
        MeshNewPolygon(b.mesh, kSubd, 4, corners, 0);
    }
    MeshBatchEnd(b.mesh);
    SUBDSetLevel(b.mesh, kLevel);
    return b;
}

// Ours: the data dropped and built again through MeshMetaValidate, as after a mesh edit.
void BM_ValidateSubdivisionData(benchmark::State &state) {
    MeshStartup();
    Built b = build(topology(state.range(0) != 0));
    MeshMetaClass *cls = PolyTypeMetaClass(PolyTypeCodeLookup(kSubd));
    for (auto _ : state) {
        MeshMetaInvalidate(cls, b.mesh, 0);
        benchmark::DoNotOptimize(MeshMetaValidate(cls, b.mesh));
    }
    state.SetLabel(state.range(0) != 0 ? "torus" : "grid");
    MeshDestroy(b.mesh);
    MeshShutdown();
}

void BM_ReadCorner(benchmark::State &state) {
    MeshStartup();
    Built b = build(topology(true));
    float out[3];
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SUBDGetCorner(b.mesh, b.vertices[i], out));
        i = i + 1 == b.vertices.size() ? 0 : i + 1;
    }
    MeshDestroy(b.mesh);
    MeshShutdown();
}

BENCHMARK(BM_OpenSubdivDirect)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ValidateSubdivisionData)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadCorner);

}  // namespace

BENCHMARK_MAIN();
