// The mesh rows beside other mesh libraries, in one program so that their medians come from one
// interleaved run: building the 1000 x 1000 quad grid (per polygon with its vertices), the heap
// the built grid holds (MiB), and a position read at a random vertex by index and by handle
// (per read). The other libraries keep 32-bit float points, as Vexor does. Built only when at
// least one of them is installed; each is compiled in only when found.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/mesh.h>

#include "../mesh_grid.h"

#ifdef VEXOR_BENCH_OPENMESH
#include <OpenMesh/Core/Mesh/PolyMesh_ArrayKernelT.hh>
#endif
#ifdef VEXOR_BENCH_CGAL
#include <CGAL/Simple_cartesian.h>
#include <CGAL/Surface_mesh.h>
#endif

namespace {

using bench::Grid;
using bench::grid;

constexpr double kMiB = 1024.0 * 1024.0;

// What each library is asked to do, as a host of that library would do it.
struct VexorLib {
    Mesh *mesh = nullptr;
    std::vector<MeshVertex *> vertices;

    // The host's table of handles is not the mesh's: made before any counting.
    VexorLib() : vertices(bench::grid().vertex_count()) { MeshStartup(); }
    ~VexorLib() {
        MeshDestroy(mesh);
        MeshShutdown();
    }
    void build(const Grid &g) {
        mesh = MeshCreate();
        MeshBatchBegin(mesh);
        vertices.resize(g.vertex_count());
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            vertices[i] = MeshNewVertex(mesh, &g.positions[3 * i]);
        }
        MeshVertex *corners[4];
        for (std::size_t q = 0; q < g.quads.size(); q += 4) {
            for (std::size_t k = 0; k < 4; ++k) corners[k] = vertices[g.quads[q + k]];
            MeshNewPolygon(mesh, VX_CODE4('F', 'A', 'C', 'E'), 4, corners, 0);
        }
        MeshBatchEnd(mesh);
    }
    void clear() {
        MeshDestroy(mesh);
        mesh = nullptr;
    }
    using Handle = MeshVertex *;
    Handle handle(std::uint32_t index) const { return vertices[index]; }
    double read_index(std::uint32_t index) const {
        double p[3];
        MeshVertexPos(mesh, MeshVrtByIndex(mesh, index), p);
        return p[0] + p[1] + p[2];
    }
    double read_handle(Handle vertex) const {
        double p[3];
        MeshVertexPos(mesh, vertex, p);
        return p[0] + p[1] + p[2];
    }
};

#ifdef VEXOR_BENCH_OPENMESH
struct OpenMeshLib {
    using PolyMesh = OpenMesh::PolyMesh_ArrayKernelT<>;
    PolyMesh *mesh = nullptr;

    ~OpenMeshLib() { delete mesh; }
    void build(const Grid &g) {
        mesh = new PolyMesh;
        std::vector<PolyMesh::VertexHandle> vertices(g.vertex_count());
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            const double *p = &g.positions[3 * i];
            vertices[i] = mesh->add_vertex(PolyMesh::Point(
                static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])));
        }
        for (std::size_t q = 0; q < g.quads.size(); q += 4) {
            mesh->add_face(vertices[g.quads[q]], vertices[g.quads[q + 1]], vertices[g.quads[q + 2]],
                           vertices[g.quads[q + 3]]);
        }
    }
    void clear() {
        delete mesh;
        mesh = nullptr;
    }
    using Handle = PolyMesh::VertexHandle;
    Handle handle(std::uint32_t index) const { return mesh->vertex_handle(index); }
    double read_index(std::uint32_t index) const { return read_handle(mesh->vertex_handle(index)); }
    double read_handle(Handle vertex) const {
        const PolyMesh::Point &p = mesh->point(vertex);
        return static_cast<double>(p[0]) + p[1] + p[2];
    }
};
#endif

#ifdef VEXOR_BENCH_CGAL
struct CgalLib {
    using Point = CGAL::Simple_cartesian<float>::Point_3;
    using SurfaceMesh = CGAL::Surface_mesh<Point>;
    SurfaceMesh *mesh = nullptr;

    ~CgalLib() { delete mesh; }
    void build(const Grid &g) {
        mesh = new SurfaceMesh;
        std::vector<SurfaceMesh::Vertex_index> vertices(g.vertex_count());
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            const double *p = &g.positions[3 * i];
            vertices[i] = mesh->add_vertex(Point(static_cast<float>(p[0]), static_cast<float>(p[1]),
                                                 static_cast<float>(p[2])));
        }
        for (std::size_t q = 0; q < g.quads.size(); q += 4) {
            mesh->add_face(vertices[g.quads[q]], vertices[g.quads[q + 1]], vertices[g.quads[q + 2]],
                           vertices[g.quads[q + 3]]);
        }
    }
    void clear() {
        delete mesh;
        mesh = nullptr;
    }
    using Handle = SurfaceMesh::Vertex_index;
    Handle handle(std::uint32_t index) const { return Handle(index); }
    double read_index(std::uint32_t index) const { return read_handle(Handle(index)); }
    double read_handle(Handle vertex) const {
        const Point &p = mesh->point(vertex);
        return static_cast<double>(p.x()) + p.y() + p.z();
    }
};
#endif

template <class Lib>
void Build(benchmark::State &state) {
    const Grid &g = grid();
    Lib lib;
    for (auto _ : state) {
        lib.build(g);
        state.PauseTiming();
        lib.clear();
        state.ResumeTiming();
    }
    state.counters["per_polygon"] = benchmark::Counter(
        static_cast<double>(g.quad_count()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <class Lib>
void Memory(benchmark::State &state) {
    const Grid &g = grid();
    Lib lib;
    double bytes = 0.0;
    for (auto _ : state) {
        const double before = bench::heap_bytes();
        lib.build(g);
        bytes = bench::heap_bytes() - before;
        state.PauseTiming();
        lib.clear();
        state.ResumeTiming();
    }
    state.counters["MiB"] = bytes / kMiB;
}

// Independent reads at random vertices, by index or through handles kept in a random order.
template <class Lib>
void RandomRead(benchmark::State &state) {
    const bool by_handle = state.range(0) != 0;
    const Grid &g = grid();
    Lib lib;
    lib.build(g);
    std::vector<typename Lib::Handle> handles;
    handles.reserve(g.random.size());
    for (std::uint32_t index : g.random) handles.push_back(lib.handle(index));
    for (auto _ : state) {
        double sum = 0.0;
        if (by_handle) {
            for (const auto &vertex : handles) sum += lib.read_handle(vertex);
        } else {
            for (std::uint32_t index : g.random) sum += lib.read_index(index);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.counters["per_read"] = benchmark::Counter(
        static_cast<double>(g.random.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

#define MESH_ROWS(Lib)                                                             \
    BENCHMARK_TEMPLATE(Build, Lib)->Unit(benchmark::kMillisecond)->Iterations(3);  \
    BENCHMARK_TEMPLATE(Memory, Lib)->Unit(benchmark::kMillisecond)->Iterations(1); \
    BENCHMARK_TEMPLATE(RandomRead, Lib)                                            \
        ->ArgName("by_handle")                                                     \
        ->Arg(0)                                                                   \
        ->Arg(1)                                                                   \
        ->Unit(benchmark::kMillisecond)

MESH_ROWS(VexorLib);
#ifdef VEXOR_BENCH_OPENMESH
MESH_ROWS(OpenMeshLib);
#endif
#ifdef VEXOR_BENCH_CGAL
MESH_ROWS(CgalLib);
#endif

}  // namespace

BENCHMARK_MAIN();
