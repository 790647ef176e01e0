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
        for (unsigned k = 0; k < MeshNumVrtInPol(polygon); ++k) {
            const MeshVertex *v = MeshPolVrtByIndex(polygon, static_cast<int>(k));
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

// A fresh mesh for every attempt, built with `vertices` vertices and `quads` quads (and, when
// asked, an instance of it whose lists are shared), and an edit on it.
// Meshes made by an edit under test, destroyed with its target.
std::vector<Mesh *> g_made;

class MeshTarget : public AtomicityTarget {
  public:
    using EditFn = std::function<bool(Mesh *source, Mesh *instance, std::vector<MeshVertex *> &)>;
    MeshTarget(int count, int quads, bool with_instance, EditFn edit, EditFn setup)
        : edit_(std::move(edit)) {
        source_ = MeshCreate();
        v_ = vertices(source_, count);
        for (int q = 0; q + 4 <= count && q < quads; ++q) {
            MeshNewPolygon(source_, kFace, 4, &v_[static_cast<std::size_t>(q)], 0);
        }
        if (with_instance) instance_ = MeshCreateInstance(source_, 1);
        if (setup) setup(source_, instance_, v_);
        g_made.reserve(4);
        Mesh *watched = instance_ != nullptr ? instance_ : source_;
        log_ = std::make_unique<EventLog>(MeshEventPort(watched));
        global_ = std::make_unique<EventLog>(MeshGlobalPort());
    }
    ~MeshTarget() override {
        log_.reset();
        global_.reset();
        for (Mesh *mesh : g_made) destroy_mesh(mesh);
        g_made.clear();
        if (instance_ != nullptr) destroy_mesh(instance_);
        destroy_mesh(source_);
    }
    std::string snapshot() override {
        std::string out = test::snapshot(source_);
        if (instance_ != nullptr) out += " // " + test::snapshot(instance_);
        return out + " meshes " + std::to_string(MeshGlobalCount());
    }
    bool edit() override { return edit_(source_, instance_, v_); }
    std::size_t events() override { return log_->count() + global_->count(); }

  private:
    EditFn edit_;
    Mesh *source_ = nullptr;
    Mesh *instance_ = nullptr;
    std::vector<MeshVertex *> v_;
    std::unique_ptr<EventLog> log_;
    std::unique_ptr<EventLog> global_;
};

AtomicityFactory factory(int count, int quads, bool with_instance, MeshTarget::EditFn edit,
                         MeshTarget::EditFn setup = nullptr) {
    return [=] { return std::make_unique<MeshTarget>(count, quads, with_instance, edit, setup); };
}

TEST_F(MeshAtomicity, MeshCreateLeavesNoPartialMesh) {
    MeshMetaClass *cls = PolyTypeMetaClass(PolyTypeCodeLookup(VX_CODE4('T', 'A', 'T', 'M')));
    const AtomicityReport report = check_atomicity(
        "MeshCreate", factory(0, 0, false, [&](Mesh *, Mesh *, std::vector<MeshVertex *> &) {
            Mesh *mesh = MeshCreate();
            if (mesh == nullptr) return false;
            g_made.push_back(mesh);
            // The polygon type's record was made and set up with the mesh.
            return *static_cast<int *>(MeshMetaRecord(cls, mesh)) == 7;
        }));
    EXPECT_GE(report.tried, 4u);  // the record, its related array, its port, a meta record
}

TEST_F(MeshAtomicity, MeshCreateInstanceLeavesNoPartialInstance) {
    check_atomicity("MeshCreateInstance",
                    factory(4, 1, false, [&](Mesh *source, Mesh *, std::vector<MeshVertex *> &) {
                        Mesh *mesh = MeshCreateInstance(source, 1);
                        if (mesh != nullptr) g_made.push_back(mesh);
                        return mesh != nullptr;
                    }));
}

// Vertex counts at which the element store takes a new chunk, and some at which nothing has
// to grow.
TEST_F(MeshAtomicity, MeshNewVertexLeavesNoPartialVertex) {
    for (int count : {0, 5, 8, 16, 48}) {
        const AtomicityReport report = check_atomicity(
            "MeshNewVertex " + std::to_string(count),
            factory(count, 0, false, [](Mesh *source, Mesh *, std::vector<MeshVertex *> &) {
                return vertex(source, 1.5, 2.5, -3.5) != nullptr;
            }));
        if (count == 16) {
            EXPECT_GE(report.tried, 1u);
        }
    }
    // On an instance: its own copy of the vertex list comes first.
    check_atomicity("MeshNewVertex on an instance",
                    factory(6, 1, true, [](Mesh *, Mesh *instance, std::vector<MeshVertex *> &) {
                        return vertex(instance, 4.0) != nullptr;
                    }));
}

TEST_F(MeshAtomicity, MeshNewPolygonLeavesNoPartialPolygon) {
    for (int quads : {0, 7, 8, 16}) {
        for (unsigned size : {3u, 4u, 6u}) {
            check_atomicity(
                "MeshNewPolygon " + std::to_string(quads) + "/" + std::to_string(size),
                factory(20, quads, false, [=](Mesh *source, Mesh *, std::vector<MeshVertex *> &v) {
                    return MeshNewPolygon(source, kFace, size, v.data() + 1, 1) != nullptr;
                }));
        }
    }
    check_atomicity("MeshNewPolygon on an instance",
                    factory(6, 2, true, [](Mesh *, Mesh *instance, std::vector<MeshVertex *> &v) {
                        return MeshNewPolygon(instance, kCurve, 5, v.data(), 0) != nullptr;
                    }));
}

TEST_F(MeshAtomicity, DeletingThroughAnInstanceCopiesTheListCompletelyOrNotAtAll) {
    check_atomicity("MeshFreeVertex on an instance",
                    factory(9, 2, true, [](Mesh *, Mesh *instance, std::vector<MeshVertex *> &v) {
                        return MeshFreeVertex(instance, v[4]) == 1;
                    }));
    check_atomicity("MeshFreePolygon on an instance",
                    factory(9, 2, true, [](Mesh *, Mesh *instance, std::vector<MeshVertex *> &) {
                        return MeshFreePolygon(instance, MeshPolByIndex(instance, 1)) == 1;
                    }));
    // Inside a batch that has already marked eight elements: the changed list must grow.
    check_atomicity("MeshFreeVertex with the changed list growing",
                    factory(
                        9, 0, false,
                        [](Mesh *source, Mesh *, std::vector<MeshVertex *> &v) {
                            return MeshFreeVertex(source, v[8]) == 1;
                        },
                        [](Mesh *source, Mesh *, std::vector<MeshVertex *> &v) {
                            MeshBatchBegin(source);
                            for (std::size_t i = 0; i < 8; ++i) MeshFreeVertex(source, v[i]);
                            return true;
                        }));
}

}  // namespace
}  // namespace vx::test
