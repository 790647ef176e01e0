// Marks: the mark mode when marking single elements and in bulk, and enumeration with its
// filter rules, early stop on a client's result, the monitor's abort, dead elements with and
// without show-dead, and the walk of a kind-2 source's subset.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <vexor/mark.h>
#include <vexor/sys/component.h>

#include "mesh_fixture.h"

// After the fixture, whose calls of the C port functions would otherwise also find their C++
// twins.
#include "foundation/failure.h"
#include "mesh/mark.h"

namespace vx::test {
namespace {

using Vertices = std::vector<MeshVertex *>;
using Polygons = std::vector<MeshPolygon *>;
using Marks = OnMesh;

std::vector<std::uint32_t> vertex_marks(const Vertices &v) {
    std::vector<std::uint32_t> out;
    for (const MeshVertex *each : v) out.push_back(MeshVertexMarks(each));
    return out;
}

TEST_F(Marks, TheHighHalfIsClearedThenTheLowHalfSet) {
    MeshVertex *v = vertex(mesh, 0);
    MeshMarkVertex(v, MESH_MARK_MODE(0x000F, 0));
    EXPECT_EQ(MeshMarkVertex(v, MESH_MARK_MODE(0, 0x0006)), 0xFFFFFFF9u);  // ~(mode >> 16)
    EXPECT_EQ(MeshVertexMarks(v), 0x0009u);
    EXPECT_EQ(MeshMarkVertex(v, 0x00200021u), 0xFFFFFFDFu);  // in both halves: set
    EXPECT_EQ(MeshVertexMarks(v), 0x0029u);
    EXPECT_EQ(MeshMarkVertex(nullptr, 0xFFFF0000u), 0xFFFF0000u);
    EXPECT_EQ(MeshVertexFlags(v), 0x1100u);  // the flag word is left alone

    MeshPolygon *p = MeshNewPolygon(mesh, kFace, 1, &v, 0);
    for (std::uint32_t mode :
         {MESH_MARK_MODE(0x0300, 0), MESH_MARK_MODE(0x0001, 0x0100), 0x02000200u}) {
        MeshMarkPolygon(p, mode);
    }
    EXPECT_EQ(MeshPolygonMarks(p), 0x0201u);
    EXPECT_EQ(MeshPolygonFlags(p), 0x1200u);
}

TEST_F(Marks, BulkFormsMarkWhatTheFilterPasses) {
    Vertices v = vertices(mesh, 6);
    const std::uint32_t before[6] = {0x0, 0x1, 0x1, 0x3, 0x1, 0x0};
    for (std::size_t i = 0; i < v.size(); ++i) MeshMarkVertex(v[i], before[i]);
    MeshFreeVertex(mesh, v[4]);

    // Marked 0x1, not 0x2, alive: v1 and v2.
    EXPECT_EQ(MeshMarkVrts(mesh, MESH_MARK_MODE(0x1, 0x2), MESH_MARK_MODE(0x10, 0x1)), 2u);
    EXPECT_EQ(vertex_marks(v), (std::vector<std::uint32_t>{0x0, 0x10, 0x10, 0x3, 0x1, 0x0}));
    MeshSetShowDead(mesh, 1);
    EXPECT_EQ(MeshMarkVrts(mesh, 0, 0x100u), 6u);
    MeshSetShowDead(mesh, 0);

    // The vertices of the polygons marked 0x1, skipping the empty slots of a partial polygon.
    MeshPolygon *a = MeshNewPolygon(mesh, kFace, 4, v.data(), 0);
    MeshPolygon *b = MeshNewPolygon(mesh, kFace, 3, v.data() + 1, 0);
    MeshPolygon *partial = MeshNewEmptyPolygon(mesh, kFace, 3);
    ASSERT_EQ(MeshPolSetVrt(mesh, partial, 1, v[5]), 1);
    EXPECT_EQ(MeshMarkPols(mesh, MESH_MARK_MODE(0, 0x8), 0x1u), 3u);
    MeshMarkPolygon(b, MESH_MARK_MODE(0, 0x1));
    EXPECT_EQ(MeshMarkVrtsOfPols(mesh, 0x1u, MESH_MARK_MODE(0x4, 0x100)), 2u);
    EXPECT_EQ(vertex_marks(v), (std::vector<std::uint32_t>{0x4, 0x14, 0x14, 0x7, 0x101, 0x4}));
    EXPECT_EQ(MeshPolygonMarks(a), 0x1u);
    EXPECT_EQ(MeshMarkVrts(nullptr, 0, 1u), 0u);
}

// The elements a client is called with, in order; the visit of `stop_at` returns `stop_code`.
template <class Element>
struct Visits {
    std::vector<Element *> seen;
    Element *stop_at = nullptr;
    unsigned stop_code = 0;

    static unsigned visit(Element *element, void *data, void *argument) {
        auto *self = static_cast<Visits *>(data);
        EXPECT_EQ(argument, &self->seen);
        self->seen.push_back(element);
        return element == self->stop_at ? self->stop_code : 0u;
    }
};
using VertexVisits = Visits<MeshVertex>;
using PolygonVisits = Visits<MeshPolygon>;

Vertices enumerate_vertices(Mesh *mesh, std::uint32_t mode, void *monitor = nullptr) {
    VertexVisits visits;
    EXPECT_EQ(MeshEnumerateVrts(mesh, mode, &VertexVisits::visit, &visits, &visits.seen, monitor),
              0u);
    return visits.seen;
}

Polygons enumerate_polygons(Mesh *mesh, std::uint32_t mode) {
    PolygonVisits visits;
    EXPECT_EQ(MeshEnumeratePols(mesh, mode, &PolygonVisits::visit, &visits, &visits.seen, nullptr),
              0u);
    return visits.seen;
}

// A monitor that counts its steps and asks to stop from step `abort_at` on (never when 0).
struct StepMonitor {
    unsigned steps;
    unsigned abort_at;
};

unsigned monitor_initialize(void *, unsigned) {
    return VX_OK;
}

unsigned monitor_step(void *obj, unsigned count) {
    auto *m = static_cast<StepMonitor *>(obj);
    EXPECT_EQ(count, 1u);
    ++m->steps;
    return m->abort_at != 0 && m->steps >= m->abort_at ? VX_E_REFUSED : VX_OK;
}

const MonitorMethods kMonitorMethods = {XOBJECT_METHODS_INIT, monitor_initialize, monitor_step};

TEST_F(Marks, EnumerationNeedsTheLowHalfSetAndTheHighHalfClear) {
    Vertices v = vertices(mesh, 5);
    const std::uint32_t marks[5] = {0x0, 0x1, 0x2, 0x3, 0x5};
    for (int i = 0; i < 5; ++i) MeshMarkVertex(v[static_cast<std::size_t>(i)], marks[i]);

    EXPECT_EQ(enumerate_vertices(mesh, 0), v);
    EXPECT_EQ(enumerate_vertices(mesh, 0x00020001u), (Vertices{v[1], v[4]}));
    EXPECT_EQ(enumerate_vertices(mesh, 0x1u), (Vertices{v[1], v[3], v[4]}));
    EXPECT_EQ(enumerate_vertices(mesh, MESH_MARK_MODE(0, 0x7)), Vertices{v[0]});
    EXPECT_EQ(enumerate_vertices(mesh, 0x00010001u), Vertices{});  // required and forbidden

    MeshPolygon *a = MeshNewPolygon(mesh, kFace, 3, v.data(), 0);
    MeshPolygon *b = MeshNewPolygon(mesh, kFace, 3, v.data() + 1, 0);
    MeshMarkPolygon(a, 0x30u);
    EXPECT_EQ(enumerate_polygons(mesh, 0), (Polygons{a, b}));
    EXPECT_EQ(enumerate_polygons(mesh, MESH_MARK_MODE(0, 0x10)), Polygons{b});
}

TEST_F(Marks, AClientsResultOrAMonitorSteppedAfterEachVisitStopsTheWalk) {
    ASSERT_EQ(XObjectDefineClass("test.stepMonitor", sizeof(StepMonitor), nullptr), VX_OK);
    ASSERT_EQ(XObjectAddInterface("test.stepMonitor", MONITOR_GUID, &kMonitorMethods), VX_OK);
    void *objects[3] = {};
    for (void *&obj : objects) ASSERT_EQ(XObjectAllocate("test.stepMonitor", &obj), VX_OK);
    auto *aborts = static_cast<StepMonitor *>(objects[0]);
    auto *patient = static_cast<StepMonitor *>(objects[1]);
    auto *late = static_cast<StepMonitor *>(objects[2]);
    aborts->abort_at = 3;
    late->abort_at = 2;

    Vertices v = vertices(mesh, 6);
    VertexVisits visits;
    EXPECT_EQ(MeshEnumerateVrts(mesh, 0, &VertexVisits::visit, &visits, &visits.seen, aborts), 1u);
    EXPECT_EQ(visits.seen.size(), 3u);
    EXPECT_EQ(aborts->steps, 3u);

    // Only visits are steps.
    MeshMarkVertex(v[1], 0x2u);
    MeshMarkVertex(v[4], 0x2u);
    EXPECT_EQ(enumerate_vertices(mesh, 0x2u, patient), (Vertices{v[1], v[4]}));
    EXPECT_EQ(patient->steps, 2u);

    // The first non-zero result of a client stops the walk and is returned as it is; it comes
    // first: the monitor is not asked about that visit.
    visits.seen.clear();
    visits.stop_at = v[1];
    visits.stop_code = 0x80000017u;
    EXPECT_EQ(MeshEnumerateVrts(mesh, 0, &VertexVisits::visit, &visits, &visits.seen, late),
              0x80000017u);
    EXPECT_EQ(visits.seen, (Vertices{v[0], v[1]}));
    EXPECT_EQ(late->steps, 1u);
    for (void *obj : objects) XObjectRelease(obj);

    MeshPolygon *a = MeshNewPolygon(mesh, kFace, 2, v.data(), 0);
    MeshPolygon *b = MeshNewPolygon(mesh, kFace, 2, v.data() + 2, 0);
    MeshNewPolygon(mesh, kFace, 2, v.data() + 3, 0);
    MeshMarkPols(mesh, 0, 0x1u);
    PolygonVisits pols;
    pols.stop_at = b;
    pols.stop_code = 2;
    EXPECT_EQ(MeshEnumeratePols(mesh, 0x1u, &PolygonVisits::visit, &pols, &pols.seen, nullptr), 2u);
    EXPECT_EQ(pols.seen, (Polygons{a, b}));
}

TEST_F(Marks, DeadElementsAreVisitedOnlyByTheDeadWalkOrWithShowDead) {
    Vertices v = vertices(mesh, 4);
    MeshMarkVrts(mesh, 0, 0x1u);
    ASSERT_EQ(MeshFreeVertex(mesh, v[1]), 1);
    ASSERT_EQ(MeshFreeVertex(mesh, v[3]), 1);
    for (std::uint32_t show_dead : {0u, 1u}) {
        MeshSetShowDead(mesh, show_dead);
        const Vertices want = show_dead != 0 ? v : Vertices{v[0], v[2]};
        EXPECT_EQ(enumerate_vertices(mesh, 0), want);
        EXPECT_EQ(enumerate_vertices(mesh, 0x1u), want);
    }
    MeshSetShowDead(mesh, 0);

    VertexVisits dead;
    dead.stop_at = v[3];
    dead.stop_code = 5;
    EXPECT_EQ(MeshEnumDeadVrts(mesh, &VertexVisits::visit, &dead, &dead.seen), 5u);
    EXPECT_EQ(dead.seen, (Vertices{v[1], v[3]}));
    MeshPolygon *a = MeshNewPolygon(mesh, kFace, 1, v.data(), 0);
    MeshNewPolygon(mesh, kFace, 1, v.data() + 2, 0);
    ASSERT_EQ(MeshFreePolygon(mesh, a), 1);
    PolygonVisits dead_polygons;
    EXPECT_EQ(MeshEnumDeadPols(mesh, &PolygonVisits::visit, &dead_polygons, &dead_polygons.seen),
              0u);
    EXPECT_EQ(dead_polygons.seen, Polygons{a});

    // An instance sharing the source's list has no dead walk; its own copy (taken on its first
    // deletion) then holds the vertices its source deletes later.
    Mesh *instance = MeshCreateInstance(mesh, 1);
    VertexVisits none;
    EXPECT_EQ(MeshEnumDeadVrts(instance, &VertexVisits::visit, &none, &none.seen), 0u);
    EXPECT_TRUE(none.seen.empty());
    ASSERT_EQ(MeshFreeVertex(instance, v[0]), 1);
    ASSERT_EQ(MeshFreeVertex(mesh, v[2]), 1);
    EXPECT_EQ(MeshEnumDeadVrts(instance, &VertexVisits::visit, &none, &none.seen), 0u);
    EXPECT_EQ(none.seen, (Vertices{v[1], v[2], v[3]}));
    MeshDestroy(instance);
}

TEST_F(Marks, TheSubsetBitWalksTheSubsetOfAKindTwoSource) {
    Vertices v = vertices(mesh, 5);
    MeshNewPolygon(mesh, kFace, 2, v.data(), 0);
    MeshPolygon *b = MeshNewPolygon(mesh, kFace, 2, v.data() + 2, 0);
    Mesh *instance = MeshCreateInstance(mesh, 1);
    MeshMarkVertex(v[3], 0x4u);
    MeshMarkVertex(v[4], 0x1u);
    MeshMarkVertex(v[1], 0x1u);
    EXPECT_EQ(enumerate_vertices(instance, 0x4u), Vertices{v[3]});  // an ordinary source

    vx::mesh::set_kind(mesh, vx::mesh::kSubsetKind);
    for (MeshVertex *member : {v[4], v[1], v[2]}) vx::mesh::subset_add(mesh, member);
    vx::mesh::subset_add(mesh, b);
    // The subset in its own order; the bit is not required of its members.
    EXPECT_EQ(enumerate_vertices(instance, 0x4u), (Vertices{v[4], v[1], v[2]}));
    EXPECT_EQ(enumerate_vertices(instance, MESH_MARK_MODE(0x4, 0x1)), Vertices{v[2]});
    EXPECT_EQ(enumerate_polygons(instance, 0x4u), Polygons{b});
    // Without the bit, or on the source itself, the lists as usual.
    EXPECT_EQ(enumerate_vertices(instance, 0x1u), (Vertices{v[1], v[4]}));
    EXPECT_EQ(enumerate_vertices(mesh, 0x4u), Vertices{v[3]});
    MeshFreeVertex(mesh, v[1]);
    EXPECT_EQ(MeshMarkVrts(instance, 0x5u, 0x8u), 1u);
    EXPECT_EQ(MeshVertexMarks(v[4]), 0x9u);

    EXPECT_THROW(vx::mesh::subset_add(instance, v[0]), vx::Failure);
    MeshDestroy(instance);
}

}  // namespace
}  // namespace vx::test
