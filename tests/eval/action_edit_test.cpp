// Every action edit is atomic under allocation failure (and so are its undo and redo), and
// random sequences of action edits, envelope edits inside actions included, undo and redo
// exactly.
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vexor/package.h>
#include <vexor/undo.h>

#include "action_fixture.h"
#include "support/edit_table.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

// A scene of two items whose actions hold constants, envelopes and removed entries in every
// default action and in a spare action, built without recording.
struct Layers {
    Cinema *scene = nullptr;
    CineItem *a = nullptr;
    CineItem *b = nullptr;
    CineAction *setup = nullptr;
    CineAction *scene_action = nullptr;
    CineAction *edit = nullptr;
    CineAction *spare = nullptr;
    int made = 0;  // actions made by edits, for fresh names

    Layers() {
        UndoSysSuspend();
        scene = CinemaCreate(0);
        a = CineItemCreate(scene, CineLookupType("layered"));
        b = CineItemCreate(scene, CineLookupType("layered"));
        CineItemAddPackage(a, CinePackageFind("extra"));
        CineItemAddPackage(a, CinePackageFind("tail"));
        setup = CineActionGetDefault(scene, CINE_ACTION_SETUP);
        scene_action = CineActionGetDefault(scene, CINE_ACTION_SCENE);
        edit = CineActionGetDefault(scene, CINE_ACTION_EDIT);
        spare = CineActionCreate(scene, "spare", 5, setup);
        CineActionSetConstant(setup, a, kX, 3.0);
        CineActionSetConstantInt(setup, a, kCount, 2);
        CineActionSetEnvelope(scene_action, a, kX, curve({0.0, 0.0, 2.0, 4.0}));
        CineActionSetConstant(scene_action, b, kX, 1.0);
        CineActionSetConstant(edit, a, kY, 7.0);
        CineActionSetEnvelope(edit, b, kX, curve({1.0, 1.0, 3.0, 3.0}));
        CineActionSetState(edit, a, kLabel, CINE_STATE_REMOVED, nullptr);
        CineActionSetConstant(edit, a, 6, 5.0);  // "e0" of the add-on package
        CineActionSetConstant(spare, a, kY, 9.0);
        CineActionSetConstant(spare, a, 8, 4.0);  // "t0", after them
        UndoSysResume();
        UndoSysClear();
    }
    ~Layers() {
        UndoSysClear();
        CinemaDestroy(scene);
    }
    Layers(const Layers &) = delete;
    Layers &operator=(const Layers &) = delete;

    std::string snapshot() const { return actions_snapshot(scene, {a, b}); }
    std::size_t events() const { return heard.size(); }
    std::string fresh_name() { return "layer" + std::to_string(++made); }

    std::vector<ActionEvent> heard;
    ActionEventLog log{heard};
};

// Hands an envelope with keys to an entry; the caller's envelope is destroyed when refused.
bool give_curve(CineAction *action, CineItem *item, unsigned channel, double shift) {
    UndoSysSuspend();
    Envelope *env = EnvCreate(nullptr);
    const bool built = env != nullptr && EnvAddKey(env, shift, 1.0) != nullptr &&
                       EnvAddKey(env, shift + 1.0, 2.0) != nullptr;
    UndoSysResume();
    if (built && CineActionSetEnvelope(action, item, channel, env) == 1) return true;
    EnvDestroyNoUndo(env);
    return false;
}

const double kShift[16] = {1, 0, 0, 2, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
int g_object = 0;

// One row of the table of edits: a name and an expression over the layers `s`, true on success.
#define EDIT(name, expr)                     \
    {                                        \
        name, [](Layers &s) { return expr; } \
    }

std::vector<NamedEdit<Layers>> all_edits() {
    return {
        EDIT("constant", CineActionSetConstant(s.edit, s.b, kY, 5) == 1),
        EDIT("constant over an envelope", CineActionSetConstant(s.scene_action, s.a, kX, 5) == 1),
        EDIT("revive removed",
             CineActionSetConstantText(s.edit, s.a, kLabel,
                                       "a label long enough to need a block of its own") == 1),
        EDIT("integer", CineActionSetConstantInt(s.edit, s.b, kCount, 3) == 1),
        EDIT("matrix", CineActionSetConstantMatrix(s.edit, s.b, kMatrix, kShift) == 1),
        EDIT("object", CineActionSetConstantObject(s.edit, s.b, kObject, &g_object) == 1),
        EDIT("envelope", give_curve(s.edit, s.a, kX, 0.5)),
        EDIT("envelope replacing one", give_curve(s.edit, s.b, kX, 0.5)),
        EDIT("new empty envelope",
             CineActionSetState(s.setup, s.b, kY, CINE_STATE_ENVELOPE, nullptr) == 1),
        EDIT("mark removed", CineActionSetState(s.edit, s.a, kY, CINE_STATE_REMOVED, nullptr) == 1),
        EDIT("clear", CineActionSetState(s.setup, s.a, kX, CINE_STATE_NONE, nullptr)),
        EDIT("key a held envelope", CineActionSetValue(s.scene_action, s.a, kX, 4, 7.0) == 1),
        EDIT("merge a constant", CineActionMergeChannel(s.edit, nullptr, s.a, kY) == 1),
        EDIT("merge an envelope", CineActionMergeChannel(s.edit, nullptr, s.b, kX) == 1),
        EDIT("copy an envelope",
             CineActionCopyChannel(s.edit, s.b, kY, s.scene_action, s.a, kX, 0) == 1),
        EDIT("copy a constant to an integer",
             CineActionCopyChannel(s.spare, s.b, kCount, s.setup, s.a, kX, 0) == 1),
        EDIT("copy action", CineActionCopy(s.edit, "edit copy") != nullptr),
        EDIT("create action", CineActionCreate(s.scene, "layer", 4, s.spare) != nullptr),
        EDIT("destroy action", CineActionDestroy(s.spare) == 1),
        EDIT("purge item", CineActionPurgeItem(s.a) == 1),
        EDIT("apply item", CineActionApplyItem(s.spare, s.edit, s.b, s.a, 0) == 1),
        EDIT("type", CineActionSetType(s.spare, 1) == 1),
        EDIT("enable", CineActionSetEnable(s.scene_action, 0) == 1),
        EDIT("add parent", CineActionAddParent(s.edit, s.spare, 0) == 1),
        EDIT("remove parent", CineActionRemoveParent(s.scene_action, s.setup) == 1),
        EDIT("remove a package", CineItemRemPackage(s.a, CinePackageFind("extra")) == 1),
    };
}
#undef EDIT

using ActionEdits = ActionTest;

// Each edit recorded, its undo and redo, and the edit again with recording off.
TEST_F(ActionEdits, EveryEditIsAtomicAndSoAreItsUndoAndRedo) {
    check_edits_atomic(all_edits(), kUndoRedo | kUnrecorded);
}

// Random edits of every kind on every action of the scene, among them edits of the envelopes
// that entries hold, made directly on the envelope.
class LayerUndoTarget : public UndoTarget {
  public:
    std::string snapshot() override {
        return actions_snapshot(layers_.scene, {layers_.a, layers_.b});
    }
    std::string random_edit(std::mt19937 &rng) override {
        auto pick = [&](unsigned n) {
            return std::uniform_int_distribution<unsigned>(0, n - 1)(rng);
        };
        Layers &s = layers_;
        std::vector<CineAction *> actions;
        for (CineAction *a = CineActionFirst(s.scene); a != nullptr; a = CineActionNext(a)) {
            actions.push_back(a);
        }
        CineAction *action = actions[pick(static_cast<unsigned>(actions.size()))];
        CineAction *other = actions[pick(static_cast<unsigned>(actions.size()))];
        CineItem *item = pick(2) == 0 ? s.a : s.b;
        const unsigned channel = pick(3);  // x, y or count
        const double v = pick(50);
        const std::string where = std::string(CineActionName(action)) + " " +
                                  (item == s.a ? "a" : "b") + std::to_string(channel);
        // Each step makes one edit and names it.
        const std::function<const char *()> steps[] = {
            [&] { return CineActionSetConstant(action, item, channel, v), "constant"; },
            [&] { return CineActionSetValue(action, item, channel, v, pick(4)), "value"; },
            [&] { return give_curve(action, item, channel, pick(3)), "envelope"; },
            [&] {
                return CineActionSetState(action, item, channel, int(pick(2)), nullptr), "state";
            },
            [&] {
                if (Envelope *env = CineActionEnv(action, item, channel)) {
                    EnvAddKey(env, pick(5) * 0.5, v);
                }
                return "key held envelope";
            },
            [&] {
                Envelope *env = CineActionEnv(action, item, channel);
                if (env != nullptr && EnvGetKeyList(env)->head->succ != nullptr) {
                    EnvDelKey(env, EnvGetKeyList(env)->head);
                }
                return "delete held key";
            },
            [&] {
                CineActionMergeChannel(action, pick(2) == 0 ? nullptr : other, item, channel);
                return "merge";
            },
            [&] {
                CineActionCopyChannel(other, item == s.a ? s.b : s.a, pick(3), action, item,
                                      channel, pick(2));
                return "copy channel";
            },
            [&] {
                if (pick(2) == 0) {
                    CineActionCopy(action, s.fresh_name().c_str());
                } else {
                    CineActionCreate(s.scene, s.fresh_name().c_str(), pick(3), other);
                }
                return "make action from";
            },
            [&] { return CineActionDestroy(action), "destroy"; },
            [&] { return CineActionSetType(action, pick(3)), "type"; },
            [&] {
                if (pick(2) == 0) {
                    CineActionAddParent(action, other, static_cast<int>(pick(3)) - 1);
                } else {
                    CineActionRemoveParent(action, other);
                }
                return "parents";
            },
            [&] {
                if (pick(2) == 0) return CineActionPurgeChannel(item, channel), "purge";
                // Taking the middle package away moves the values of the last one down.
                if (CineItemRemPackage(s.a, CinePackageFind("extra")) == 0) {
                    CineItemAddPackage(s.a, CinePackageFind("extra"));
                }
                return "toggle package";
            },
            [&] {
                CineActionApplyItem(other, action, item == s.a ? s.b : s.a, item, pick(2));
                return "apply item";
            },
        };
        return steps[pick(14)]() + (" " + where);
    }

  private:
    Layers layers_;
};

TEST_F(ActionEdits, RandomEditsUndoAndRedoExactly) {
    const UndoPropertyReport report = check_undo_property(
        "actions", [] { return std::make_unique<LayerUndoTarget>(); }, 20, 40);
    EXPECT_GE(report.sequences, 20u);
    EXPECT_GT(report.steps, 0u);
}

TEST_F(ActionEdits, AnUndoneEnvelopeEditInsideAnActionRestoresTheCurve) {
    CineItem *a = item();
    ASSERT_TRUE(give_curve(scene_action(), a, kX, 0.0));
    Envelope *env = CineActionEnv(scene_action(), a, kX);
    const std::string before = snapshot();
    ASSERT_EQ(CineActionSetValue(scene_action(), a, kX, 8.0, 4.0), 1);
    ASSERT_EQ(key_count(env), 3u);
    events.clear();
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(snapshot(), before);
    ASSERT_FALSE(events.empty()) << "the undo is announced as a change of the action";
    EXPECT_EQ(events.back().action, scene_action());
    EXPECT_EQ(events.back().item, a);
}

// An entry edit marks the scene changed, and one undo takes back both the value and the mark.
TEST_F(ActionEdits, AnEditAndTheChangeMarkItCausesAreOneUndoStep) {
    CineItem *a = item();
    CinemaChanged(scene, 0);
    UndoSysClear();
    const std::string before = snapshot();
    ASSERT_EQ(CineActionSetConstant(edit(), a, kX, 4.0), 1);
    EXPECT_EQ(CinemaHasChanged(scene), 1u);
    EXPECT_EQ(UndoSysUndoCount(), 1u);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(CinemaHasChanged(scene), 0u);
}

TEST_F(ActionEdits, ActionsAreMadeCopiedAndDestroyedByName) {
    CineItem *a = item();
    ASSERT_EQ(CineActionSetConstant(edit(), a, kX, 2.0), 1);
    CineAction *layer = CineActionCreate(scene, "Layer", 4, setup());
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(CineActionCreate(scene, "LAYER", 4, nullptr), nullptr) << "names ignore case";
    EXPECT_EQ(CineActionCreate(scene, "", 4, nullptr), nullptr);
    EXPECT_EQ(CineActionLast(scene), layer);
    EXPECT_EQ(CineActionPrev(layer), edit());
    CineAction *copy = CineActionCopy(edit(), "copy");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(CineActionFirstParent(copy), scene_action());
    EXPECT_EQ(CineActionValueFloat(copy, a, kX), 2.0);
    EXPECT_EQ(CineActionDestroy(edit()), 0) << "default actions stay";
    ASSERT_EQ(CineActionAddParent(copy, layer, -1), 1);
    EXPECT_EQ(CineActionDestroy(layer), 0) << "a parent stays";
    ASSERT_EQ(CineActionDestroy(copy), 1);
    EXPECT_EQ(CineActionLookup(scene, "copy"), nullptr);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CineActionLookup(scene, "COPY"), copy);
    EXPECT_EQ(CineActionValueFloat(copy, a, kX), 2.0);
}

}  // namespace
}  // namespace vx::test
