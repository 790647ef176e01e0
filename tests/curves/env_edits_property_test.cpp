// Every envelope edit is atomic under allocation failure, and random sequences of all edits
// undo and redo bit for bit.

#include <functional>
#include <iterator>
#include <memory>
#include <random>

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

class EnvProperties : public UndoTest {
  protected:
    void SetUp() override {
        UndoTest::SetUp();
        TimeSetGlobalFPS(24.0);
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
        UndoTest::TearDown();
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
                if (redo) undo();
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

// What a random edit draws from: the envelope, a key of it (null without keys), a side, a
// break kind and the random source.
struct Draw {
    Envelope *env;
    bool integer;
    std::mt19937 &rng;
    EnvKey *key = nullptr;
    int side = 0;
    unsigned bit = 0;
    EnvKey *pick() {
        const int n = key_count(env);
        return n == 0 ? nullptr : key_at(env, static_cast<int>(rng() % unsigned(n)));
    }
    double real(double lo, double hi) {
        return lo + (hi - lo) * std::uniform_real_distribution<double>(0.0, 1.0)(rng);
    }
    unsigned draw(unsigned n) { return static_cast<unsigned>(rng() % n); }
    int draw_int(unsigned n) { return static_cast<int>(rng() % n); }
    // The drawn key and, when another key is drawn, that one too.
    int pick_pair(EnvKey *(&keys)[2]) {
        keys[0] = key;
        keys[1] = pick();
        return key == nullptr ? 0 : keys[1] == key ? 1 : 2;
    }
};

// Every kind of edit; those on a key are skipped (the step stays) when the envelope has none.
struct RandomEdit {
    const char *name;
    bool on_key;
    void (*run)(Draw &);
};
const RandomEdit kRandomEdits[] = {
    {"add", false,
     [](Draw &d) {
         if (d.integer) {
             EnvAddKeyInt(d.env, d.real(-1, 6), d.draw_int(50));
         } else {
             EnvAddKey(d.env, d.real(-1, 6), d.real(-5, 5));
         }
     }},
    {"delete", true, [](Draw &d) { EnvDelKey(d.env, d.key); }},
    {"set time", true, [](Draw &d) { EnvKeySetTime(d.env, d.key, d.real(-1, 6), d.draw(2)); }},
    {"set value", true,
     [](Draw &d) {
         if (d.integer) EnvKeySetValueInt(d.env, d.key, d.draw_int(9));
         if (!d.integer) EnvKeySetValue(d.env, d.key, d.real(-5, 5));
     }},
    {"set side value", true,
     [](Draw &d) {
         if (!d.integer) EnvKeySetTangentValue(d.env, d.key, d.side, d.real(-5, 5));
     }},
    {"slope", true, [](Draw &d) { EnvKeySetSlopeValue(d.env, d.key, d.side, d.real(-3, 3)); }},
    {"slope type", true,
     [](Draw &d) { EnvKeySetSlopeType(d.env, d.key, d.side, 1u << (d.rng() % 6)); }},
    {"weight type", true, [](Draw &d) { EnvKeySetWeightType(d.env, d.key, d.side, d.draw(2)); }},
    {"weight", true, [](Draw &d) { EnvKeySetWeightValue(d.env, d.key, d.side, d.real(0, 1)); }},
    {"break", true, [](Draw &d) { EnvKeyBreak(d.env, d.key, d.bit); }},
    {"unify", true, [](Draw &d) { EnvKeyUnify(d.env, d.key, d.bit, 0); }},
    {"invert", true, [](Draw &d) { EnvKeyTangentInvert(d.env, d.key, d.side); }},
    {"quantise", true, [](Draw &d) { EnvKeyQuantise(d.env, d.key); }},
    {"cut", true, [](Draw &d) { EnvKeyCut(d.env, d.key); }},
    {"paste", true, [](Draw &d) { EnvKeyPaste(d.env, d.key, d.real(-1, 6)); }},
    {"pre", false, [](Draw &d) { EnvSetPreBehavior(d.env, d.draw(7)); }},
    {"post", false, [](Draw &d) { EnvSetPostBehavior(d.env, d.draw(7)); }},
    {"interpolation", false, [](Draw &d) { EnvSetInterpolation(d.env, d.draw(3)); }},
    {"shift", false, [](Draw &d) { EnvShiftAllKeys(d.env, d.real(-1, 1)); }},
    {"scale", false, [](Draw &d) { EnvScaleAllKeys(d.env, d.real(0, 3), d.real(0.2, 2.0)); }},
    {"ripple", false, [](Draw &d) { EnvRippleKeys(d.env, d.real(0, 4), d.real(-2, 2)); }},
    {"move array", false,
     [](Draw &d) {
         EnvKey *keys[2];
         const int n = d.pick_pair(keys);
         EnvMoveKeyArray(d.env, keys, n, d.real(-2, 2));
     }},
    {"scale array", false,
     [](Draw &d) {
         EnvKey *keys[2];
         const int n = d.pick_pair(keys);
         EnvScaleKeyArray(d.env, keys, n, d.real(0, 3), d.real(0.3, 3.0));
     }},
    {"delete range", false,
     [](Draw &d) {
         const double a = d.real(-1, 6);
         EnvDelKeyRange(d.env, a, a + d.real(0, 1.5));
     }},
    {"shift values", false,
     [](Draw &d) {
         if (d.integer) {
             EnvShiftValuesInt(d.env, d.real(-1, 3), d.real(2, 6), d.draw_int(5));
         } else {
             EnvShiftValues(d.env, d.real(-1, 3), d.real(2, 6), d.real(-2, 2));
         }
     }},
    {"scale values or clear", false,
     [](Draw &d) {
         if (!d.integer) {
             EnvScaleValues(d.env, d.real(-1, 3), d.real(2, 6), d.real(-1, 1), d.real(-2, 2));
         }
         if (d.rng() % 4 == 0) EnvClearKeys(d.env);
     }},
};

// Random edits of every kind on a float or an integer envelope, picked by index so that they
// reach keys that exist.
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
        Draw d{env_, integer_, rng};
        d.side = static_cast<int>(rng() % 2);
        const unsigned bits[] = {ENV_BREAK_VALUE, ENV_BREAK_SLOPE, ENV_BREAK_WEIGHT};
        d.bit = bits[rng() % 3];
        d.key = d.pick();
        const RandomEdit &edit = kRandomEdits[rng() % std::size(kRandomEdits)];
        if (!edit.on_key || d.key != nullptr) edit.run(d);
        return edit.name;
    }

  private:
    bool integer_;
    Envelope *env_;
};

TEST_F(EnvProperties, RandomSequencesOfEditsUndoAndRedoBitForBit) {
    const auto floats = check_undo_property(
        "float envelope", [] { return std::make_unique<RandomEnvelope>(false); }, 30, 60);
    const auto integers = check_undo_property(
        "integer envelope", [] { return std::make_unique<RandomEnvelope>(true); }, 15, 60);
    EXPECT_GT(floats.steps, 500u);
    EXPECT_GT(integers.steps, 200u);
}

}  // namespace
}  // namespace vx::test
