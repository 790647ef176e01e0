// Every vertex map edit is atomic under allocation failure (and so are its undo and redo), and
// random sequences of map edits undo and redo exactly.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vexor/undo.h>
#include <vexor/vmap.h>

#include "mesh_fixture.h"
#include "support/edit_table.h"
#include "support/undo_property.h"
#include "vmap_fixture.h"

namespace vx::test {
namespace {

// A mesh of `count` vertices in a row and two quads, with a weight map, a texture map and a
// morph map lying over another, filled without recording.
struct MapScene {
    Mesh *mesh = nullptr;
    std::vector<MeshVertex *> v;
    std::vector<MeshPolygon *> p;
    VMap *positions = nullptr;
    VMap *weight = nullptr;
    VMap *uv = nullptr;
    VMap *base = nullptr;
    VMap *top = nullptr;
    VMap *pick = nullptr;
    Mesh *instance = nullptr;

    explicit MapScene(int count) {
        UndoSysSuspend();
        mesh = MeshCreate();
        v = vertices(mesh, count);
        p.push_back(MeshNewPolygon(mesh, kFace, 4, v.data(), 0));
        p.push_back(MeshNewPolygon(mesh, kFace, 4, v.data() + 2, 0));
        positions = VMapFindForMesh(mesh, kPosition);
        weight = VMapCreate(mesh, kWeight);
        uv = VMapCreate(mesh, kTexture);
        base = VMapCreate(mesh, kMorph);
        top = VMapCreateOver(mesh, base);
        pick = VMapCreate(mesh, kEdgePick);
        // Every vertex but the second has a weight: with 17 vertices a new weight overloads
        // the table's first bucket array.
        for (int i = 0; i < count; ++i) {
            const float w = static_cast<float>(i) / 4.0f;
            const float m[3] = {w, -w, 1};
            if (i != 1) VMapSet(weight, v[static_cast<std::size_t>(i)], &w);
            if (i % 2 == 0) VMapSet(base, v[static_cast<std::size_t>(i)], m);
        }
        const float seam[2] = {0.5f, 0.25f};
        VMapPSet(uv, v[2], p[1], seam);
        VMapUnset(top, v[2]);
        VMapESet(pick, v[0], v[1], nullptr);
        instance = MeshCreateInstance(mesh, 1);
        UndoSysResume();
        UndoSysClear();
    }
    ~MapScene() {
        UndoSysClear();
        destroy_mesh(instance);
        destroy_mesh(mesh);
    }
    MapScene(const MapScene &) = delete;
    MapScene &operator=(const MapScene &) = delete;

    std::string snapshot() {
        return maps_snapshot(mesh, v, p) + " // " + maps_snapshot(instance, v, p) + " steps " +
               std::to_string(UndoSysUndoCount()) + "/" + std::to_string(UndoSysRedoCount());
    }
};

// The scene of `Count` vertices with a log of the mesh's change events.
template <int Count>
struct MapStage : MapScene {
    MapStage() : MapScene(Count), log(MeshEventPort(mesh)) {}
    std::size_t events() const { return log.count(); }
    EventLog log;
};

const float kValues[3] = {9, 8, 7};

template <class Stage>
std::vector<NamedEdit<Stage>> all_edits() {
    return {
        {"set new", [](MapScene &s) { return VMapSet(s.weight, s.v[1], kValues) != nullptr; }},
        {"set existing", [](MapScene &s) { return VMapSet(s.weight, s.v[2], kValues) != nullptr; }},
        {"unset", [](MapScene &s) { return VMapUnset(s.weight, s.v[2]) == 1; }},
        {"set per polygon",
         [](MapScene &s) { return VMapPSet(s.uv, s.v[3], s.p[0], kValues) != nullptr; }},
        {"unset per polygon", [](MapScene &s) { return VMapPUnset(s.uv, s.v[2], s.p[1]) == 1; }},
        {"set edge",
         [](MapScene &s) { return VMapESet(s.pick, s.v[4], s.v[3], nullptr) != nullptr; }},
        {"unset edge", [](MapScene &s) { return VMapEUnset(s.pick, s.v[1], s.v[0]) == 1; }},
        {"set edge half",
         [](MapScene &s) { return VMapESet(s.pick, nullptr, s.v[0], nullptr) != nullptr; }},
        {"set layer", [](MapScene &s) { return VMapSet(s.top, s.v[0], kValues) != nullptr; }},
        {"set hidden key", [](MapScene &s) { return VMapSet(s.top, s.v[2], kValues) != nullptr; }},
        {"unset layer hides", [](MapScene &s) { return VMapUnset(s.top, s.v[4]) == 1; }},
        {"set position",
         [](MapScene &s) { return VMapSet(s.positions, s.v[1], kValues) != nullptr; }},
        {"create", [](MapScene &s) { return VMapCreate(s.mesh, kTexture) != nullptr; }},
        {"create over", [](MapScene &s) { return VMapCreateOver(s.mesh, s.top) != nullptr; }},
        {"create computed",
         [](MapScene &s) {
             auto eval = [](const VMap *, const MeshVertex *, const MeshPolygon *,
                            void *) -> const float * { return kValues; };
             return VMapCreateComputed(s.mesh, kMorph, eval, nullptr) != nullptr;
         }},
        {"destroy", [](MapScene &s) { return VMapDestroy(s.uv) == 1; }},
        {"name", [](MapScene &s) { return VMapSetName(s.uv, "seams") == 1; }},
        {"public name", [](MapScene &s) { return VMapSetPublicName(s.top, "Smile") == 1; }},
        {"create on an instance",
         [](MapScene &s) { return VMapCreate(s.instance, kPosition) != nullptr; }},
    };
}

class VMapEdits : public MeshTest {};

// With 17 vertices a new weight overloads the table's first bucket array; the edits without
// recording are tried there.
TEST_F(VMapEdits, EveryEditIsAtomicAndSoAreItsUndoAndRedo) {
    {
        SCOPED_TRACE("6 vertices");
        check_edits_atomic(all_edits<MapStage<6>>(), kUndoRedo);
    }
    SCOPED_TRACE("17 vertices");
    check_edits_atomic(all_edits<MapStage<17>>(), kUndoRedo | kUnrecorded);
    // A new weight there takes its record, its undo room and larger buckets.
    const NamedEdit<MapStage<17>> set_new = all_edits<MapStage<17>>().front();
    EXPECT_GE(
        check_atomicity("set new, 17 vertices",
                        [&] { return std::make_unique<StageTarget<MapStage<17>>>(set_new.edit); })
            .tried,
        3u);
}

// Random edits of every kind on the maps that the mesh or its instance shows, including maps
// made (and destroyed) along the way and the instance's own layers over the mesh's maps.
class MapUndoTarget : public UndoTarget {
  public:
    MapUndoTarget() : scene_(8) {}
    std::string snapshot() override {
        return maps_snapshot(scene_.mesh, scene_.v, scene_.p) + " // " +
               maps_snapshot(scene_.instance, scene_.v, scene_.p);
    }
    std::string random_edit(std::mt19937 &rng) override {
        auto pick = [&](std::size_t n) {
            return static_cast<std::size_t>(
                std::uniform_int_distribution<std::size_t>(0, n - 1)(rng));
        };
        MapScene &s = scene_;
        Mesh *mesh = pick(3) == 0 ? s.instance : s.mesh;
        // The live maps as the chosen mesh shows them now.
        std::vector<VMap *> maps;
        for (unsigned i = 0; VMap *map = VMapByIndex(mesh, 0, i); ++i) maps.push_back(map);
        VMap *map = maps[pick(maps.size())];
        MeshVertex *a = s.v[pick(s.v.size())];
        MeshVertex *b = s.v[pick(s.v.size())];
        MeshPolygon *polygon = s.p[pick(s.p.size())];
        const float values[3] = {static_cast<float>(pick(100)), 0.5f, -1.0f};
        const std::string where = std::string(VMapName(map)) + (mesh == s.instance ? " @i" : "");
        switch (pick(12)) {
            case 0:
            case 1:
                VMapSet(map, a, values);
                return "set " + where;
            case 2:
                VMapUnset(map, a);
                return "unset " + where;
            case 3:
                VMapPSet(map, a, polygon, values);
                return "pset " + where;
            case 4:
                VMapPUnset(map, a, polygon);
                return "punset " + where;
            case 5:
                VMapESet(map, a, pick(3) == 0 ? nullptr : b, values);
                return "eset " + where;
            case 6:
                VMapEUnset(map, a, b);
                return "eunset " + where;
            case 7:
                VMapSet(s.positions, a, values);
                return "move";
            case 8: {
                UndoBlockBegin();  // two edits as one step
                VMap *made = pick(2) == 0 ? VMapCreate(mesh, kMorph) : VMapCreateOver(mesh, map);
                if (made != nullptr) VMapSet(made, a, values);
                UndoBlockEnd();
                return "create and fill " + where;
            }
            case 9:
                VMapCreate(mesh, pick(2) == 0 ? kPosition : kWeight);
                return "create " + where;
            case 10:
                VMapSetPublicName(map, pick(2) == 0 ? "left" : "right");
                return "rename " + where;
            default:
                VMapDestroy(map);
                return "destroy " + where;
        }
    }

  private:
    MapScene scene_;
};

TEST_F(VMapEdits, RandomEditsUndoAndRedoExactly) {
    const UndoPropertyReport report = check_undo_property(
        "vertex maps", [] { return std::make_unique<MapUndoTarget>(); }, 20, 40);
    EXPECT_GE(report.sequences, 20u);
    EXPECT_GT(report.steps, 0u);
}

}  // namespace
}  // namespace vx::test
