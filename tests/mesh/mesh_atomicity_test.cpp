// A failure inside MeshCreate, MeshNewVertex, MeshNewPolygon or a copy-on-write deletion, each
// allocation failing in turn, leaves no partial mesh or element, sends no event and leaks
// nothing; the retried call then succeeds with the same result.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mesh_fixture.h"
#include "support/atomicity.h"

namespace vx::test {
namespace {

// The whole observable state of a mesh: counts, the live and dead elements in list order with
// their flags and positions, polygons with their vertices by index, and the batch state.
std::string snapshot(Mesh *mesh) {
    std::string out = "flags " + std::to_string(MeshFlags(mesh)) + " batch " +
                      std::to_string(MeshBatchMask(mesh)) + " v" +
                      std::to_string(MeshNumVrts(mesh)) + " p" + std::to_string(MeshNumPols(mesh)) +
                      " |";
    const std::uint32_t show_dead = MeshShowDead(mesh);
    MeshSetShowDead(mesh, 1);
    std::vector<const MeshVertex *> order;
    for (unsigned i = 0; MeshVertex *v = MeshVrtByIndex(mesh, i); ++i) {
        double p[3];
        MeshVertexPos(mesh, v, p);
        char text[96];
        std::snprintf(text, sizeof text, " %x(%g,%g,%g)", MeshVertexFlags(v), p[0], p[1], p[2]);
        out += text;
        order.push_back(v);
    }
    out += " |";
    for (unsigned i = 0; MeshPolygon *polygon = MeshPolByIndex(mesh, i); ++i) {
        out += " " + std::to_string(MeshPolygonFlags(polygon)) + ":";
        for (const MeshVertex *v : polygon_vertices(polygon)) {
            std::size_t index = 0;
            while (index < order.size() && order[index] != v) ++index;
            out += std::to_string(index) + ",";
        }
    }
    MeshSetShowDead(mesh, show_dead);
    return out;
}

// A meta data class kept by a test polygon type, so that MeshCreate makes a record too.
void init_record(void *record, Mesh *) {
    *static_cast<int *>(record) = 7;
}
int build_record(void *, Mesh *) {
    return 1;
}

class MeshAtomicity : public MeshTest {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(MeshStartup(), 1);
        static const MeshMetaOps ops = {16, 0, &init_record, &build_record, nullptr};
        MeshMetaClass *cls = MeshMetaDefine("test.atomicity", &ops);
        ASSERT_NE(cls, nullptr);
        const PolyType *type = PolyTypeDefine(VX_CODE4('T', 'A', 'T', 'M'), "atomic", 0, 0);
        ASSERT_EQ(PolyTypeSetMetaClass(type, cls), 1);
    }
    static void TearDownTestSuite() { MeshShutdown(); }
};

// A fresh mesh for every attempt, built with `count` vertices and `quads` quads (and, when
// asked, an instance of it whose lists are shared), and an edit on it. Meshes the edit makes
// go into `made`, destroyed with the target.
struct MeshTarget : AtomicityTarget {
    using Edit = std::function<bool(MeshTarget &)>;
    MeshTarget(int count, int quads, bool with_instance, Edit edit_fn, const Edit &setup)
        : source(MeshCreate()), edit_(std::move(edit_fn)) {
        v = vertices(source, count);
        for (int q = 0; q + 4 <= count && q < quads; ++q) {
            MeshNewPolygon(source, kFace, 4, &v[static_cast<std::size_t>(q)], 0);
        }
        if (with_instance) instance = MeshCreateInstance(source, 1);
        if (setup) setup(*this);
        made.reserve(4);
        log_ = std::make_unique<EventLog>(MeshEventPort(instance != nullptr ? instance : source));
        global_ = std::make_unique<EventLog>(MeshGlobalPort());
    }
    ~MeshTarget() override {
        log_.reset();
        global_.reset();
        for (Mesh *mesh : made) destroy_mesh(mesh);
        if (instance != nullptr) destroy_mesh(instance);
        destroy_mesh(source);
    }
    std::string snapshot() override {
        std::string out = test::snapshot(source);
        if (instance != nullptr) out += " // " + test::snapshot(instance);
        return out + " meshes " + std::to_string(MeshGlobalCount());
    }
    bool edit() override { return edit_(*this); }
    std::size_t events() override { return log_->count() + global_->count(); }
    // Keeps a mesh the edit made; true when there is one.
    bool keep(Mesh *mesh) {
        if (mesh != nullptr) made.push_back(mesh);
        return mesh != nullptr;
    }

    Mesh *source = nullptr;
    Mesh *instance = nullptr;
    std::vector<MeshVertex *> v;
    std::vector<Mesh *> made;

  private:
    Edit edit_;
    std::unique_ptr<EventLog> log_;
    std::unique_ptr<EventLog> global_;
};

AtomicityReport sweep(const std::string &name, int count, int quads, bool with_instance,
                      const MeshTarget::Edit &edit, const MeshTarget::Edit &setup = nullptr) {
    return check_atomicity(name, [=] {
        return std::make_unique<MeshTarget>(count, quads, with_instance, edit, setup);
    });
}

TEST_F(MeshAtomicity, MeshCreateAndMeshCreateInstanceLeaveNoPartialMesh) {
    MeshMetaClass *cls = PolyTypeMetaClass(PolyTypeCodeLookup(VX_CODE4('T', 'A', 'T', 'M')));
    const AtomicityReport report = sweep("MeshCreate", 0, 0, false, [cls](MeshTarget &t) {
        // The polygon type's record was made and set up with the mesh.
        return t.keep(MeshCreate()) && *static_cast<int *>(MeshMetaRecord(cls, t.made.back())) == 7;
    });
    EXPECT_GE(report.tried, 4u);  // the record, its related array, its port, a meta record
    sweep("MeshCreateInstance", 4, 1, false,
          [](MeshTarget &t) { return t.keep(MeshCreateInstance(t.source, 1)); });
}

// Vertex counts at which the element store takes a new chunk, and some at which nothing has
// to grow; on an instance, its own copy of the vertex list comes first.
TEST_F(MeshAtomicity, MeshNewVertexLeavesNoPartialVertex) {
    for (int count : {0, 5, 8, 16, 48}) {
        const AtomicityReport report =
            sweep("MeshNewVertex " + std::to_string(count), count, 0, false,
                  [](MeshTarget &t) { return vertex(t.source, 1.5, 2.5, -3.5) != nullptr; });
        EXPECT_GE(report.tried, count == 16 ? 1u : 0u);
    }
    sweep("MeshNewVertex on an instance", 6, 1, true,
          [](MeshTarget &t) { return vertex(t.instance, 4.0) != nullptr; });
}

TEST_F(MeshAtomicity, MeshNewPolygonLeavesNoPartialPolygon) {
    for (int quads : {0, 7, 8, 16}) {
        for (unsigned size : {3u, 4u, 6u}) {
            sweep("MeshNewPolygon " + std::to_string(quads) + "/" + std::to_string(size), 20, quads,
                  false, [size](MeshTarget &t) {
                      return MeshNewPolygon(t.source, kFace, size, t.v.data() + 1, 1) != nullptr;
                  });
        }
    }
    sweep("MeshNewPolygon on an instance", 6, 2, true, [](MeshTarget &t) {
        return MeshNewPolygon(t.instance, kCurve, 5, t.v.data(), 0) != nullptr;
    });
}

TEST_F(MeshAtomicity, DeletingThroughAnInstanceCopiesTheListCompletelyOrNotAtAll) {
    sweep("MeshFreeVertex on an instance", 9, 2, true,
          [](MeshTarget &t) { return MeshFreeVertex(t.instance, t.v[4]) == 1; });
    sweep("MeshFreePolygon on an instance", 9, 2, true, [](MeshTarget &t) {
        return MeshFreePolygon(t.instance, MeshPolByIndex(t.instance, 1)) == 1;
    });
    // Inside a batch that has already marked eight elements: the changed list must grow.
    sweep(
        "MeshFreeVertex with the changed list growing", 9, 0, false,
        [](MeshTarget &t) { return MeshFreeVertex(t.source, t.v[8]) == 1; },
        [](MeshTarget &t) {
            MeshBatchBegin(t.source);
            for (std::size_t i = 0; i < 8; ++i) MeshFreeVertex(t.source, t.v[i]);
            return true;
        });
}

}  // namespace
}  // namespace vx::test
