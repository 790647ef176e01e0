// Every envelope edit is atomic under allocation failure, and random sequences of all edits
// undo and redo bit for bit.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/time.h>
#include <vexor/undo.h>

#include "env_fixture.h"
#include "support/atomicity.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

using EnvEdit = std::function<int(Envelope *)>;

// Five keys with distinct shapes: a value break, a slope break with manual slopes, a manual
// weight, built without recording.
void build(Envelope *env, bool integer) {
    UndoSysSuspend();
    for (int i = 0; i < 5; ++i) {
        if (integer) {
            EnvAddKeyInt(env, i, 3 * i);
        } else {
            EnvAddKey(env, i * 1.0, i * 1.5);
        }
    }
    EnvKey *k1 = key_at(env, 1);
    EnvKeyBreak(env, k1, ENV_BREAK_VALUE);
    EnvKey *k2 = key_at(env, 2);
    EnvKeyBreak(env, k2, ENV_BREAK_SLOPE);
    EnvKeySetSlopeType(env, k2, 1, ENV_SLOPE_MANUAL);
    EnvKeySetSlopeValue(env, k2, 1, -2.0);
    EnvKeySetWeightType(env, key_at(env, 3), 0, 1);
    EnvKeySetWeightValue(env, key_at(env, 3), 0, 0.4);
    EnvKeySetTime(env, key_at(env, 4), 4.01, 0);  // off its frame, for quantising
    UndoSysResume();
}

// A second envelope for the edits that need one: the source of a copy.
Envelope *g_source = nullptr;

class EnvTarget : public AtomicityTarget {
  public:
    EnvTarget(EnvEdit edit, bool integer) : e_(integer), edit_(std::move(edit)) {
        UndoSysSuspend();
        EnvKeySetDefaultSlopeType(ENV_SLOPE_AUTO);
        UndoSysResume();
        build(e_.env, integer);
        e_.notes.take();
    }
    std::string snapshot() override {
        return test::snapshot(e_.env) + "steps " + std::to_string(UndoSysUndoCount()) + "/" +
               std::to_string(UndoSysRedoCount()) + " slope " +
               std::to_string(EnvKeyDefaultSlopeType());
    }
    bool edit() override { return edit_(e_.env) != 0; }
    std::size_t events() override { return e_.notes.count(); }
    Envelope *env() { return e_.env; }

  private:
    ListenedEnvelope e_;
    EnvEdit edit_;
};

struct NamedEdit {
    const char *name;
    EnvEdit edit;
    bool integer = false;
};

std::vector<NamedEdit> all_edits() {
    return {
        {"add", [](Envelope *e) { return EnvAddKey(e, 2.5, 7.0) != nullptr; }},
        {"add at a key", [](Envelope *e) { return EnvAddKey(e, 2.0, 7.0) != nullptr; }},
        {"add int", [](Envelope *e) { return EnvAddKeyInt(e, 2.5, 7) != nullptr; }, true},
        {"delete", [](Envelope *e) { return EnvDelKey(e, key_at(e, 1)); }},
        {"set time", [](Envelope *e) { return EnvKeySetTime(e, key_at(e, 1), 1.5, 0); }},
        {"set time onto a key", [](Envelope *e) { return EnvKeySetTime(e, key_at(e, 1), 3.0, 1); }},
        {"set value", [](Envelope *e) { return EnvKeySetValue(e, key_at(e, 1), 9.0); }},
        {"set value int", [](Envelope *e) { return EnvKeySetValueInt(e, key_at(e, 1), 9); }, true},
        {"set side value",
         [](Envelope *e) { return EnvKeySetTangentValue(e, key_at(e, 1), 1, 4.0); }},
        {"set slope", [](Envelope *e) { return EnvKeySetSlopeValue(e, key_at(e, 2), 0, 0.5); }},
        {"set slope type", [](Envelope *e) { return EnvKeySetSlopeType(e, key_at(e, 0), 0, 4); }},
        {"set weight type", [](Envelope *e) { return EnvKeySetWeightType(e, key_at(e, 0), 0, 1); }},
        {"set weight", [](Envelope *e) { return EnvKeySetWeightValue(e, key_at(e, 0), 0, 0.2); }},
        {"break", [](Envelope *e) { return EnvKeyBreak(e, key_at(e, 0), ENV_BREAK_WEIGHT); }},
        {"unify", [](Envelope *e) { return EnvKeyUnify(e, key_at(e, 2), ENV_BREAK_SLOPE, 0); }},
        {"invert", [](Envelope *e) { return EnvKeyTangentInvert(e, key_at(e, 2), 1); }},
        {"quantise", [](Envelope *e) { return EnvKeyQuantise(e, key_at(e, 4)); }},
        {"cut", [](Envelope *e) { return EnvKeyCut(e, key_at(e, 3)); }},
        {"paste", [](Envelope *e) { return EnvKeyPaste(e, key_at(e, 3), 1.0); }},
        {"pre behaviour", [](Envelope *e) { return EnvSetPreBehavior(e, 3); }},
        {"post behaviour", [](Envelope *e) { return EnvSetPostBehavior(e, 4); }},
        {"interpolation", [](Envelope *e) { return EnvSetInterpolation(e, 1); }},
        {"default slope type", [](Envelope *) { return EnvKeySetDefaultSlopeType(16); }},
        {"clear", [](Envelope *e) { return EnvClearKeys(e); }},
        {"copy", [](Envelope *e) { return EnvCopy(e, g_source); }},
        {"shift", [](Envelope *e) { return EnvShiftAllKeys(e, 0.25); }},
        {"scale", [](Envelope *e) { return EnvScaleAllKeys(e, 1.0, 0.5); }},
        {"ripple", [](Envelope *e) { return EnvRippleKeys(e, 1.0, -1.5); }},
        {"move array",
         [](Envelope *e) {
             EnvKey *keys[] = {key_at(e, 0), key_at(e, 2)};
             return EnvMoveKeyArray(e, keys, 2, 1.0);
         }},
        {"scale array",
         [](Envelope *e) {
             EnvKey *keys[] = {key_at(e, 3), key_at(e, 4)};
             return EnvScaleKeyArray(e, keys, 2, 0.0, 0.5);
         }},
        {"delete range", [](Envelope *e) { return EnvDelKeyRange(e, 1.0, 3.0); }},
        {"shift values", [](Envelope *e) { return EnvShiftValues(e, 0.0, 2.0, 1.0); }},
        {"shift values int", [](Envelope *e) { return EnvShiftValuesInt(e, 0.0, 2.0, 2); }, true},
        {"scale values", [](Envelope *e) { return EnvScaleValues(e, 0.0, 4.0, 1.0, 3.0); }},
    };
}

class EnvProperties : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        default_slope_ = EnvKeyDefaultSlopeType();
        g_source = EnvCreate(nullptr);
        UndoSysSuspend();
        EnvAddKey(g_source, 0.5, 1.0);
        EnvAddKey(g_source, 8.0, 2.0);
        UndoSysResume();
    }
    void TearDown() override {
        EnvDestroyNoUndo(g_source);
        UndoSysClear();
        UndoSysEnable(1);
        EnvKeySetDefaultSlopeType(default_slope_);
        UndoSysClear();
        UndoSysShutdown();
    }
    unsigned default_slope_ = 1;
};

TEST_F(EnvProperties, EveryEditIsAtomicAndItsUndoAndRedoToo) {
    for (const NamedEdit &named : all_edits()) {
        const NamedEdit edit = named;
        const auto report =
            check_atomicity(edit.name, [edit]() -> std::unique_ptr<AtomicityTarget> {
                return std::make_unique<EnvTarget>(edit.edit, edit.integer);
            });
        EXPECT_GT(report.tried, 0u) << edit.name;
        EXPECT_EQ(report.held + report.survived, report.tried) << edit.name;
        EXPECT_EQ(UndoSysUndoCount(), 0u) << "each target clears its history";

        for (const bool redo : {false, true}) {
            const std::string label = std::string(redo ? "redo " : "undo ") + edit.name;
            check_atomicity(label, [edit, redo]() -> std::unique_ptr<AtomicityTarget> {
                auto target = std::make_unique<EnvTarget>(
                    [redo](Envelope *) { return redo ? UndoSysRedo() : UndoSysUndo(); },
                    edit.integer);
                edit.edit(target->env());
                if (redo) {
                    while (UndoSysUndo()) {
                    }
                }
                return target;
            });
        }
    }
}

TEST_F(EnvProperties, EditsWithoutRecordingAreAtomicToo) {
    UndoSysEnable(0);
    for (const NamedEdit &named : all_edits()) {
        const NamedEdit edit = named;
        const auto report = check_atomicity(
            std::string("unrecorded ") + edit.name, [edit]() -> std::unique_ptr<AtomicityTarget> {
                return std::make_unique<EnvTarget>(edit.edit, edit.integer);
            });
        EXPECT_EQ(report.held + report.survived, report.tried) << edit.name;
    }
}

// Destroying: the target tracks whether its envelope went, so it frees it only if not.
class DestroyTarget : public AtomicityTarget {
  public:
    DestroyTarget() {
        build(e_.env, false);
        e_.notes.take();
    }
    ~DestroyTarget() override {
        UndoSysClear();
        if (destroyed_) e_.env = EnvCreate(nullptr);  // the fixture frees one envelope
    }
    std::string snapshot() override {
        return (destroyed_ ? std::string("destroyed") : test::snapshot(e_.env)) + " steps " +
               std::to_string(UndoSysUndoCount());
    }
    bool edit() override {
        destroyed_ = EnvDestroy(e_.env) != 0;
        return destroyed_;
    }
    std::size_t events() override { return e_.notes.count(); }

  private:
    ListenedEnvelope e_;
    bool destroyed_ = false;
};

TEST_F(EnvProperties, DestroyingIsAtomic) {
    const auto report =
        check_atomicity("destroy", [] { return std::make_unique<DestroyTarget>(); });
    EXPECT_GT(report.tried, 0u);
    EXPECT_EQ(report.held, report.tried);
}

// Random edits of every kind on a float envelope, picked by index so that they reach keys
// that exist.
class RandomEnvelope : public UndoTarget {
  public:
    explicit RandomEnvelope(bool integer) : integer_(integer) {
        env_ = integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
        build(env_, integer);
    }
    ~RandomEnvelope() override {
        UndoSysClear();
        EnvDestroyNoUndo(env_);
    }
    std::string snapshot() override { return test::snapshot(env_); }
    std::string random_edit(std::mt19937 &rng) override {
        auto pick = [&] {
            const int n = key_count(env_);
            return n == 0 ? nullptr : key_at(env_, static_cast<int>(rng() % unsigned(n)));
        };
        auto real = [&](double lo, double hi) {
            return lo + (hi - lo) * std::uniform_real_distribution<double>(0.0, 1.0)(rng);
        };
        auto draw = [&](unsigned n) { return static_cast<unsigned>(rng() % n); };
        const int side = static_cast<int>(rng() % 2);
        const unsigned bits[] = {ENV_BREAK_VALUE, ENV_BREAK_SLOPE, ENV_BREAK_WEIGHT};
        const unsigned bit = bits[rng() % 3];
        EnvKey *key = pick();
        switch (rng() % 26) {
            case 0:
                if (integer_) {
                    EnvAddKeyInt(env_, real(-1, 6), static_cast<int>(rng() % 50));
                } else {
                    EnvAddKey(env_, real(-1, 6), real(-5, 5));
                }
                return "add";
            case 1:
                if (key) EnvDelKey(env_, key);
                return "delete";
            case 2:
                if (key) EnvKeySetTime(env_, key, real(-1, 6), draw(2));
                return "set time";
            case 3:
                if (key && integer_) EnvKeySetValueInt(env_, key, static_cast<int>(rng() % 9));
                if (key && !integer_) EnvKeySetValue(env_, key, real(-5, 5));
                return "set value";
            case 4:
                if (key && !integer_) EnvKeySetTangentValue(env_, key, side, real(-5, 5));
                return "set side value";
            case 5:
                if (key) EnvKeySetSlopeValue(env_, key, side, real(-3, 3));
                return "slope";
            case 6:
                if (key) EnvKeySetSlopeType(env_, key, side, 1u << (rng() % 6));
                return "slope type";
            case 7:
                if (key) EnvKeySetWeightType(env_, key, side, draw(2));
                return "weight type";
            case 8:
                if (key) EnvKeySetWeightValue(env_, key, side, real(0, 1));
                return "weight";
            case 9:
                if (key) EnvKeyBreak(env_, key, bit);
                return "break";
            case 10:
                if (key) EnvKeyUnify(env_, key, bit, 0);
                return "unify";
            case 11:
                if (key) EnvKeyTangentInvert(env_, key, side);
                return "invert";
            case 12:
                if (key) EnvKeyQuantise(env_, key);
                return "quantise";
            case 13:
                if (key) EnvKeyCut(env_, key);
                return "cut";
            case 14:
                if (key) EnvKeyPaste(env_, key, real(-1, 6));
                return "paste";
            case 15:
                EnvSetPreBehavior(env_, draw(7));
                return "pre";
            case 16:
                EnvSetPostBehavior(env_, draw(7));
                return "post";
            case 17:
                EnvSetInterpolation(env_, draw(3));
                return "interpolation";
            case 18:
                EnvShiftAllKeys(env_, real(-1, 1));
                return "shift";
            case 19:
                EnvScaleAllKeys(env_, real(0, 3), real(0.2, 2.0));
                return "scale";
            case 20:
                EnvRippleKeys(env_, real(0, 4), real(-2, 2));
                return "ripple";
            case 21: {
                EnvKey *keys[2] = {key, pick()};
                const int n = key == nullptr ? 0 : keys[1] == key ? 1 : 2;
                EnvMoveKeyArray(env_, keys, n, real(-2, 2));
                return "move array";
            }
            case 22: {
                EnvKey *keys[2] = {key, pick()};
                const int n = key == nullptr ? 0 : keys[1] == key ? 1 : 2;
                EnvScaleKeyArray(env_, keys, n, real(0, 3), real(0.3, 3.0));
                return "scale array";
            }
            case 23: {
                const double a = real(-1, 6);
                EnvDelKeyRange(env_, a, a + real(0, 1.5));
                return "delete range";
            }
            case 24:
                if (integer_) {
                    EnvShiftValuesInt(env_, real(-1, 3), real(2, 6), static_cast<int>(rng() % 5));
                } else {
                    EnvShiftValues(env_, real(-1, 3), real(2, 6), real(-2, 2));
                }
                return "shift values";
            default:
                if (!integer_)
                    EnvScaleValues(env_, real(-1, 3), real(2, 6), real(-1, 1), real(-2, 2));
                if (rng() % 4 == 0) EnvClearKeys(env_);
                return "scale values or clear";
        }
    }

  private:
    bool integer_;
    Envelope *env_;
};

TEST_F(EnvProperties, RandomSequencesOfEditsUndoAndRedoBitForBit) {
    TimeSetGlobalFPS(24.0);
    const auto floats = check_undo_property(
        "float envelope", [] { return std::make_unique<RandomEnvelope>(false); }, 30, 60);
    const auto integers = check_undo_property(
        "integer envelope", [] { return std::make_unique<RandomEnvelope>(true); }, 15, 60);
    EXPECT_GT(floats.steps, 500u);
    EXPECT_GT(integers.steps, 200u);
}

}  // namespace
}  // namespace vx::test
