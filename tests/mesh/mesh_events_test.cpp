// Change events as an observer sees them: nothing while a mesh is built, one event per batch
// with the union of its bits, immediate events, hold-back, relay to instances, accumulated
// changes, listener objects, and silence during recovery from a failure.
#include <gtest/gtest.h>

#include <vector>

#include <vexor/sys/component.h>
#include <vexor/sys/mesh_listener.h>

#include "foundation/failure.h"
#include "mesh_fixture.h"
#include "support/alloc_injection.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

using Events = OnMesh;

// A meta data class whose set-up tries to announce a change while the mesh is being built.
int g_init_calls = 0;
void announce_during_build(void *, Mesh *mesh) {
    ++g_init_calls;
    MeshChangeEvent(mesh, MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS);
    MeshChangeEvent(mesh, MESH_CHANGE_IMMEDIATE | 0x1);
    EXPECT_EQ(MeshBatchBegin(mesh), 0xFFFFFFFFu);
}
int build_nothing(void *, Mesh *) {
    return 1;
}

TEST_F(MeshTest, NothingIsAnnouncedBeforeMeshCreateReturnsThenEachPortInTurn) {
    static const MeshMetaOps ops = {8, 0, &announce_during_build, &build_nothing, nullptr};
    MeshMetaClass *cls = MeshMetaDefine("test.announcer", &ops);
    ASSERT_NE(cls, nullptr);
    const PolyType *type = PolyTypeDefine(VX_CODE4('T', 'A', 'N', 'N'), "announcer", 0, 0);
    ASSERT_NE(type, nullptr);
    ASSERT_EQ(PolyTypeSetMetaClass(type, cls), 1);

    EventLog global(MeshGlobalPort());
    g_init_calls = 0;
    Mesh *mesh = MeshCreate();
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(g_init_calls, 1);  // the type's per-mesh set-up ran during creation
    EXPECT_EQ(global.count(), 0u);
    EXPECT_EQ(MeshReadChanges(mesh), 0u);
    EXPECT_EQ(MeshBatchMask(mesh), 0xFFFFFFFFu);

    // Once built, the mesh announces: each event reaches the mesh's port, then the global
    // one, with the port as sender. A zero mask announces nothing.
    EventLog own(MeshEventPort(mesh));
    vertex(mesh, 1);
    EXPECT_EQ(own.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES});
    EXPECT_EQ(global.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES});
    std::vector<HeardEvent> heard;
    heard.reserve(8);
    const auto hear = [](void *client, void *sender, std::uint32_t code, void *data) {
        static_cast<std::vector<HeardEvent> *>(client)->push_back(
            {sender, code, static_cast<Mesh *>(data)});
    };
    PortAttach(MeshGlobalPort(), hear, &heard, nullptr);
    PortAttach(MeshEventPort(mesh), hear, &heard, nullptr);
    MeshChangeEvent(mesh, 0x200);
    MeshChangeEvent(mesh, 0);
    EXPECT_EQ(heard, (std::vector<HeardEvent>{{MeshEventPort(mesh), 0x200, mesh},
                                              {MeshGlobalPort(), 0x200, mesh}}));
    PortDetachListener(MeshGlobalPort(), hear, &heard);
    destroy_mesh(mesh);
}

TEST_F(Events, ABatchReachesObserversAsOneEventWithTheUnionOfItsBits) {
    std::vector<MeshVertex *> v = vertices(mesh, 3);
    EventLog log(MeshEventPort(mesh));
    MeshReadChanges(mesh);

    EXPECT_EQ(in_order({MeshBatchMask(mesh), MeshBatchBegin(mesh), MeshBatchMask(mesh)}),
              (Ints{0xFFFFFFFF, 1, 0}));
    MeshVertex *extra = vertex(mesh, 9);
    EXPECT_NE(MeshVertexFlags(extra) & MESH_ELEMENT_CHANGED, 0u);
    EXPECT_EQ(MeshBatchBegin(mesh), 2u);  // nested
    MeshPolygon *tri = MeshNewPolygon(mesh, kFace, 3, v.data(), 0);
    MeshChangeEvent(mesh, 0x800);
    MeshBatchEnd(mesh);
    // The inner end announces nothing.
    EXPECT_EQ(in_order({static_cast<long long>(log.count()), MeshBatchMask(mesh)}),
              (Ints{0, 0x800}));
    MeshFreeVertex(mesh, v[0]);
    EXPECT_EQ(log.count(), 0u);
    MeshBatchEnd(mesh);

    EXPECT_EQ(log.masks(),
              std::vector<std::uint32_t>{MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS | 0x800});
    EXPECT_EQ(in_order({MeshReadChanges(mesh), MeshReadChanges(mesh)}),
              (Ints{MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS | 0x800, 0}));
    // The batch's transient marks are cleared; the deletion stays.
    EXPECT_EQ(in_order({MeshVertexFlags(extra), MeshPolygonFlags(tri), MeshVertexFlags(v[0])}),
              (Ints{0x1100, 0x1200, 0x1100 | MESH_ELEMENT_DEAD}));

    // A batch without changes announces nothing; an unbalanced end is ignored.
    MeshBatchBegin(mesh);
    MeshBatchEnd(mesh);
    MeshBatchEnd(mesh);
    EXPECT_EQ(log.count(), 0u);
    vertex(mesh, 4);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES});
}

TEST_F(Events, ImmediateEventsGoOutAtOnceAndAreNeitherBatchedNorAccumulated) {
    Mesh *instance = MeshCreateInstance(mesh, 1);
    EventLog log(MeshEventPort(mesh));
    EventLog instance_log(MeshEventPort(instance));
    MeshMetaClass *bounds = MeshMetaLookup(MESH_META_BOUNDS);
    ASSERT_NE(MeshMetaValidate(bounds, mesh), nullptr);

    MeshBatchBegin(mesh);
    MeshChangeEvent(mesh, MESH_CHANGE_IMMEDIATE | MESH_CHANGE_POSITIONS);
    EXPECT_EQ(log.masks(),
              std::vector<std::uint32_t>{MESH_CHANGE_IMMEDIATE | MESH_CHANGE_POSITIONS});
    EXPECT_EQ(MeshBatchMask(mesh), 0u);
    MeshBatchEnd(mesh);
    // Neither instances nor meta data hear of it.
    EXPECT_EQ(
        in_order({static_cast<long long>(log.count()), MeshReadChanges(mesh),
                  static_cast<long long>(instance_log.count()), MeshMetaIsValid(bounds, mesh)}),
        (Ints{0, 0, 0, 1}));

    // The same bits deferred do reach them.
    MeshChangeEvent(mesh, MESH_CHANGE_POSITIONS);
    EXPECT_EQ(instance_log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_POSITIONS});
    EXPECT_EQ(MeshMetaIsValid(bounds, mesh), 0);
    destroy_mesh(instance);
}

TEST_F(Events, HeldBackEventsAreDroppedUntilOneCarriesVerticesAndPolygons) {
    EventLog log(MeshEventPort(mesh));
    EventLog global(MeshGlobalPort());
    MeshHoldEvents(mesh);
    EXPECT_NE(MeshFlags(mesh) & MESH_HOLD_EVENTS, 0u);

    std::vector<MeshVertex *> v = vertices(mesh, 3);
    MeshNewPolygon(mesh, kFace, 3, v.data(), 0);
    MeshChangeEvent(mesh, MESH_CHANGE_IMMEDIATE | MESH_CHANGE_VERTICES);
    EXPECT_EQ(log.count() + global.count(), 0u);
    // Dropped events still count as changes.
    EXPECT_EQ(MeshReadChanges(mesh), MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS);

    MeshBatchBegin(mesh);
    vertex(mesh, 5);
    MeshNewPolygon(mesh, kFace, 3, v.data(), 1);
    MeshBatchEnd(mesh);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS});
    EXPECT_EQ(global.count(), 1u);
    EXPECT_EQ(MeshFlags(mesh) & MESH_HOLD_EVENTS, 0u);

    // The flag is gone: single-bit events flow again.
    vertex(mesh, 6);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES});
}

TEST_F(Events, InstancesHearTheirSourceUnlessMadeDeafAndKeepOnlyTheirOwnBits) {
    Mesh *source = mesh;
    Mesh *hearing = MeshCreateInstance(source, 1);
    Mesh *deaf = MeshCreateInstance(source, 0);
    ASSERT_NE(hearing, nullptr);
    ASSERT_NE(deaf, nullptr);
    EXPECT_EQ(in_order({MeshFlags(hearing), MeshFlags(deaf)}), (Ints{0, MESH_NO_SOURCE_EVENTS}));
    EventLog hearing_log(MeshEventPort(hearing));
    EventLog deaf_log(MeshEventPort(deaf));

    MeshChangeEvent(source, MESH_CHANGE_VERTICES | 0x20);
    EXPECT_EQ(hearing_log.take(),
              (std::vector<HeardEvent>{{MeshEventPort(hearing), 0x21, hearing}}));
    EXPECT_EQ(deaf_log.count(), 0u);
    // An instance that owns none of its lists accumulates only the bits beyond them.
    EXPECT_EQ(in_order({MeshReadChanges(hearing), MeshReadChanges(source)}), (Ints{0x20, 0x21}));

    // A batch open on the instance gathers the relayed bits.
    MeshBatchBegin(hearing);
    MeshChangeEvent(source, MESH_CHANGE_POLYGONS);
    EXPECT_EQ(in_order({static_cast<long long>(hearing_log.count()), MeshBatchMask(hearing)}),
              (Ints{0, MESH_CHANGE_POLYGONS}));
    MeshBatchEnd(hearing);
    EXPECT_EQ(hearing_log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_POLYGONS});

    // Once the instance owns a list it accumulates every bit.
    ASSERT_EQ(MeshFreeVertex(hearing, nullptr), 0);
    vertex(hearing, 1);
    EXPECT_EQ(MeshFlags(hearing) & MESH_OWNS_VERTICES, MESH_OWNS_VERTICES);
    MeshReadChanges(hearing);
    MeshChangeEvent(source, MESH_CHANGE_VERTICES);
    EXPECT_EQ(MeshReadChanges(hearing), MESH_CHANGE_VERTICES);

    // An instance's own changes do not reach its source.
    EventLog source_log(MeshEventPort(source));
    vertex(hearing, 2);
    EXPECT_EQ(source_log.count(), 0u);

    EXPECT_EQ(destroy_mesh(source), 0);  // instances first
    destroy_mesh(deaf);
    destroy_mesh(hearing);
    EXPECT_EQ(destroy_mesh(source), 1);
    mesh = nullptr;
}

TEST_F(Events, NothingIsAnnouncedWhileRecoveringAndAFailureInABatchKeepsTheBatch) {
    std::vector<MeshVertex *> v = vertices(mesh, 4);
    EventLog log(MeshEventPort(mesh));
    {
        RecoveryScope recovering;
        MeshChangeEvent(mesh, MESH_CHANGE_VERTICES);
        MeshChangeEvent(mesh, MESH_CHANGE_IMMEDIATE | MESH_CHANGE_VERTICES);
    }
    EXPECT_EQ(log.count(), 0u);

    // (Each allocation of an edit failing in turn is swept in mesh_atomicity_test.cpp.)
    // A failure inside an open batch keeps the batch and the changes made before it.
    MeshBatchBegin(mesh);
    vertex(mesh, 7);
    const unsigned before = MeshNumVrts(mesh);
    unsigned made = 0;
    {
        // Vertices are made until one needs memory, which then fails.
        FailAllocation fail(1, FailMode::from_then_on);
        while (vertex(mesh, 100) != nullptr) ++made;
    }
    EXPECT_EQ(
        in_order({MeshNumVrts(mesh), static_cast<long long>(log.count()), MeshBatchMask(mesh)}),
        (Ints{before + made, 0, 0}));
    MeshBatchEnd(mesh);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_VERTICES});
}

// ---- Listener objects ---------------------------------------------------------------------

struct Listener {
    Mesh *mesh;
    std::uint32_t masks;
    int calls;
};

void listener_changed(void *obj, Mesh *mesh, std::uint32_t mask) {
    auto *l = static_cast<Listener *>(obj);
    l->mesh = mesh;
    l->masks |= mask;
    ++l->calls;
}

const MeshListenerMethods kListenerMethods = {XOBJECT_METHODS_INIT, &listener_changed};

TEST_F(Events, ListenerObjectsHearThroughTheirInterface) {
    ASSERT_EQ(XObjectDefineClass("test.meshListener", sizeof(Listener), nullptr), VX_OK);
    ASSERT_EQ(XObjectAddInterface("test.meshListener", MESH_LISTENER_GUID, &kListenerMethods),
              VX_OK);
    ASSERT_EQ(XObjectDefineClass("test.notListener", 8, nullptr), VX_OK);
    void *obj = nullptr;
    void *other = nullptr;
    ASSERT_EQ(XObjectAllocate("test.meshListener", &obj), VX_OK);
    ASSERT_EQ(XObjectAllocate("test.notListener", &other), VX_OK);

    EXPECT_EQ(MeshAttachListener(mesh, other), 0u);
    EXPECT_NE(MeshAttachListener(mesh, obj), 0u);
    EXPECT_NE(MeshAttachListener(nullptr, obj), 0u);
    vertex(mesh, 1);
    auto *l = static_cast<Listener *>(obj);
    // Heard on the mesh's port and the global one.
    EXPECT_EQ(in_order({l->calls, l->masks}), (Ints{2, MESH_CHANGE_VERTICES}));
    EXPECT_EQ(l->mesh, mesh);

    EXPECT_EQ(in_order({MeshDetachListener(mesh, obj), MeshDetachListener(nullptr, obj)}),
              (Ints{1, 1}));
    vertex(mesh, 2);
    EXPECT_EQ(l->calls, 2);
    XObjectRelease(obj);
    XObjectRelease(other);
}

}  // namespace
}  // namespace vx::test
