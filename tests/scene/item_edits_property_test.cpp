// Item edits leave no trace when memory runs out part-way (nor do their undo and redo), and
// random sequences of item edits undo and redo exactly.
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vexor/undo.h>

#include "scene_fixture.h"
#include "support/edit_table.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

constexpr std::uint32_t kTag = 0x47545950;

std::string ident_of(const CineItem *item) {
    return item != nullptr ? CineItemIdent(item) : "-";
}

// Everything a host can read of the scene's items.
std::string describe(Cinema *scene) {
    std::string text = "changed " + std::to_string(CinemaHasChanged(scene)) + ";";
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        const char *name = CineItemName(item);
        const char *tag = CineItemGetTag(item, kTag);
        text += " [" + ident_of(item) + " " + (name != nullptr ? name : "-") + " \"" +
                CineItemUniqueName(item) + "\" ch " + std::to_string(CineChannelCount(item));
        for (unsigned p = 0; p < CineItemPackageCount(item); ++p) {
            text += std::string(" ") + CinePackageName(CineItemPackageByIndex(item, p));
        }
        text += " parent " + ident_of(CineItemParent(item)) + " kids";
        for (unsigned k = 0; k < CineItemSubCount(item); ++k) {
            text += " " + ident_of(CineItemSubByIndex(item, k));
        }
        text += " source " + ident_of(CineItemSource(item)) + " tag " + (tag ? tag : "-") + "]";
    }
    return text;
}

// A scene with a few items, made without recording; every package is already made, so that
// an edit's allocations are its own.
struct Stage {
    Cinema *scene = nullptr;
    std::vector<CineItem *> items;
    const std::uint32_t light = CineLookupType("tstLight"), mesh = CineLookupType("tstMesh"),
                        picky = CineLookupType("tstPicky");
    CinePackage *const extra = CinePackageFind("tstExtra"), *const more =
                                                                CinePackageFind("tstMore");
    PortLog log;

    Stage() {
        UndoSysSuspend();
        scene = CinemaCreate(0);
        items.push_back(named_item(scene, light, "Key"));
        items.push_back(named_item(scene, light, "Key"));
        items.push_back(named_item(scene, mesh, nullptr));
        CineItemAddPackage(items[0], extra);
        CineItemAddPackage(items[0], more);
        CineItemSetParent(items[1], items[2], -1);
        UndoSysResume();
        UndoSysClear();
        CinemaHasChanged(scene);
        log.attach(CinemaPort(scene));
    }
    ~Stage() {
        log.detach();
        UndoSysClear();
        CinemaDestroy(scene);
    }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;
    std::string snapshot() const { return describe(scene); }
    std::size_t events() const { return log.events.size(); }
};

class ItemProperties : public SceneTest {
  protected:
    // Every package's object is made once, on its first item; making them here keeps that
    // out of the edits under test.
    void SetUp() override {
        SceneTest::SetUp();
        UndoSysSuspend();
        Cinema *warm = CinemaCreate(0);
        CineItemAddPackage(CineItemCreate(warm, picky), extra);
        CineItemAddPackage(CineItemCreate(warm, mesh), more);
        CinemaDestroy(warm);
        UndoSysResume();
        UndoSysClear();
    }
};

TEST_F(ItemProperties, ItemEditsAndTheirUndoAndRedoAreAtomic) {
    check_edits_atomic<Stage>(
        {
            {"create", [](Stage &s) { return CineItemCreate(s.scene, s.light) != nullptr; }},
            {"create first of a type",
             [](Stage &s) { return CineItemCreate(s.scene, s.picky) != nullptr; }},
            {"add package", [](Stage &s) { return CineItemAddPackage(s.items[1], s.extra) == 1; }},
            {"remove package",
             [](Stage &s) { return CineItemRemPackage(s.items[0], s.extra) == 1; }},
            {"rename", [](Stage &s) { return CineItemSetName(s.items[2], "Body") == 1; }},
            {"parent", [](Stage &s) { return CineItemSetParent(s.items[0], s.items[2], 0) == 0; }},
            {"source", [](Stage &s) { return CineItemSetSource(s.items[1], s.items[0]) == 1; }},
            {"tag", [](Stage &s) { return CineItemSetTag(s.items[0], kTag, "actor") == 1; }},
            {"delete a parent", [](Stage &s) { return CineItemDelete(s.items[2]) == 1; }},
        },
        kUndoRedo);
}

// Random edits of every kind, on items picked among those in the scene.
class RandomStage : public UndoTarget {
  public:
    explicit RandomStage(std::unique_ptr<Stage> stage) : s_(std::move(stage)) {}
    std::string snapshot() override { return describe(s_->scene); }
    std::string random_edit(std::mt19937 &rng) override {
        auto draw = [&](unsigned n) { return static_cast<unsigned>(rng() % n); };
        auto pick = [&]() -> CineItem * {
            const unsigned n = CinemaItemCount(s_->scene);
            return n == 0 ? nullptr : CinemaItemByIndex(s_->scene, draw(n));
        };
        CineItem *item = pick();
        CineItem *other = pick();
        const char *names[] = {"Key", "Fill", "Rim", nullptr};
        const std::uint32_t types[] = {s_->light, s_->mesh, s_->picky};
        CinePackage *packages[] = {s_->extra, s_->more};
        const std::function<const char *()> steps[] = {
            [&] { return CineItemCreate(s_->scene, types[draw(3)]), "create"; },
            [&] { return CineItemSetName(item, names[draw(4)]), "rename"; },
            [&] {
                CineItemSetParent(item, draw(4) == 0 ? nullptr : other,
                                  static_cast<int>(draw(3)) - 1);
                return "parent";
            },
            [&] { return CineItemSetSource(item, draw(3) == 0 ? nullptr : other), "source"; },
            [&] { return CineItemAddPackage(item, packages[draw(2)]), "add package"; },
            [&] { return CineItemRemPackage(item, packages[draw(2)]), "remove package"; },
            [&] { return CineItemSetTag(item, kTag, names[draw(4)]), "tag"; },
            [&] { return CineItemDelete(item), "delete"; },
            [&] { return CinemaChanged(s_->scene, static_cast<int>(draw(2))), "changed"; },
        };
        return steps[item == nullptr ? 0 : draw(9)]();
    }

  private:
    std::unique_ptr<Stage> s_;
};

TEST_F(ItemProperties, RandomItemEditsUndoAndRedoExactly) {
    const auto report = check_undo_property("items", [&]() -> std::unique_ptr<UndoTarget> {
        return std::make_unique<RandomStage>(std::make_unique<Stage>());
    });
    EXPECT_GT(report.steps, 0u);
}

}  // namespace
}  // namespace vx::test
