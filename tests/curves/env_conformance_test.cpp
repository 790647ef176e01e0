// Envelope rules that hosts rely on beyond the single-key edits: what setters refuse, how a
// pasted key is owned, and how structural undo steps announce themselves.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include <vexor/failure.h>

#include "env_fixture.h"

namespace vx::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

class EnvRules : public UndoTest {
  protected:
    void SetUp() override {
        UndoTest::SetUp();
        UndoSysSuspend();
        for (int i = 0; i < 3; ++i) EnvAddKey(e.env, i, 10.0 * i);
        UndoSysResume();
        e.notes.take();
    }
    ListenedEnvelope e;
};

TEST_F(EnvRules, SettersRefuseWhatTheCurveCannotHonour) {
    struct Case {
        const char *what;
        std::function<int(Envelope *, EnvKey *)> call;
    };
    const std::vector<Case> cases = {
        {"post behaviour 99", [](Envelope *v, EnvKey *) { return EnvSetPostBehavior(v, 99); }},
        {"pre behaviour 7", [](Envelope *v, EnvKey *) { return EnvSetPreBehavior(v, 7); }},
        {"interpolation 3", [](Envelope *v, EnvKey *) { return EnvSetInterpolation(v, 3); }},
        {"slope type 8", [](Envelope *v, EnvKey *k) { return EnvKeySetSlopeType(v, k, 0, 8); }},
        {"slope type 3", [](Envelope *v, EnvKey *k) { return EnvKeySetSlopeType(v, k, 1, 3); }},
        {"NaN key time", [](Envelope *v, EnvKey *) { return EnvAddKey(v, kNaN, 1.0) != nullptr; }},
        {"NaN key value", [](Envelope *v, EnvKey *) { return EnvAddKey(v, 5.0, kNaN) != nullptr; }},
        {"infinite time", [](Envelope *v, EnvKey *k) { return EnvKeySetTime(v, k, kInf, 1); }},
        {"infinite value", [](Envelope *v, EnvKey *k) { return EnvKeySetValue(v, k, -kInf); }},
        {"NaN tangent",
         [](Envelope *v, EnvKey *k) { return EnvKeySetTangentValue(v, k, 0, kNaN); }},
        {"NaN slope", [](Envelope *v, EnvKey *k) { return EnvKeySetSlopeValue(v, k, 0, kNaN); }},
        {"NaN weight", [](Envelope *v, EnvKey *k) { return EnvKeySetWeightValue(v, k, 1, kNaN); }},
        {"NaN paste time", [](Envelope *v, EnvKey *k) { return EnvKeyPaste(v, k, kNaN); }},
        {"NaN shift", [](Envelope *v, EnvKey *) { return EnvShiftAllKeys(v, kNaN); }},
        {"direct behaviour",
         [](Envelope *v, EnvKey *) {
             EnvSetPostBehaviorDirect(v, 42);
             return VxLastFailure().code == VX_E_BADARG ? 0 : 1;
         }},
        {"direct interpolation",
         [](Envelope *v, EnvKey *) {
             EnvSetInterpolationDirect(v, 9);
             return VxLastFailure().code == VX_E_BADARG ? 0 : 1;
         }},
        {"raw tangent slope type",
         [](Envelope *v, EnvKey *k) {
             EnvKeySetRawTangents(v, k, 0, 1.0, 77, 0.0, 0, 0.0, 0);
             return VxLastFailure().code == VX_E_BADARG ? 0 : 1;
         }},
        {"raw weight",
         [](Envelope *, EnvKey *k) {
             EnvKeySetWeightValueD(k, 0, kNaN);
             return VxLastFailure().code == VX_E_BADARG ? 0 : 1;
         }},
    };
    const std::string before = snapshot(e.env);
    for (const Case &c : cases) {
        VxClearFailure();
        EXPECT_EQ(c.call(e.env, key_at(e.env, 1)), 0) << c.what;
        EXPECT_EQ(VxLastFailure().code, VX_E_BADARG) << c.what;
        EXPECT_EQ(snapshot(e.env), before) << c.what;
    }
    EXPECT_EQ(UndoSysUndoCount(), 0u);
    EXPECT_EQ(e.notes.count(), 0u);

    EnvSetDefaultBehavior(17);
    EnvSetDefaultInterpolation(17);
    EXPECT_EQ(EnvGetDefaultBehavior(), ENV_BEHAVIOR_CONSTANT);
    EXPECT_EQ(EnvGetDefaultInterpolation(), ENV_INTERP_CURVE);
    EXPECT_EQ(EnvKeySetDefaultSlopeType(64), 0);
    EXPECT_EQ(EnvKeySetSlopeType(e.env, key_at(e.env, 0), 0, 300), 1) << "above 255: ignored";
}

// A key from EnvKeyCopy is adopted: it is the key in the list afterwards, and the envelope (or
// the paste's undo record) frees it; sanitizers check that nothing is freed twice or leaked.
TEST_F(EnvRules, PasteAdoptsAFreeKey) {
    EnvKey *loose = EnvKeyCopy(key_at(e.env, 1));
    ASSERT_EQ(EnvKeyPaste(e.env, loose, 5.0), 1);
    EXPECT_EQ(EnvGetKey(e.env, 5.0), loose);
    EXPECT_EQ(EnvKeyValue(loose), 10.0);
    EXPECT_EQ(e.notes.take(),
              (std::vector<HeardNote>{{ENV_NOTE_INSERT, loose}, {ENV_NOTE_ENVELOPE, loose}}));
    UndoSysUndo();
    EXPECT_EQ(EnvGetKey(e.env, 5.0), nullptr);
    UndoSysRedo();
    EXPECT_EQ(EnvGetKey(e.env, 5.0), loose);

    // Pasted, then undone, then dropped undone: the record frees it.
    EnvKey *dropped = EnvKeyCopy(key_at(e.env, 0));
    ASSERT_EQ(EnvKeyPaste(e.env, dropped, 7.0), 1);
    UndoSysUndo();
    UndoSysClear();
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 2.0, 5.0}));

    // Onto a key of the same time: that key is replaced by the adopted one.
    EnvKey *onto = EnvKeyCopy(key_at(e.env, 0));
    ASSERT_EQ(EnvKeyPaste(e.env, onto, 2.0), 1);
    EXPECT_EQ(EnvGetKey(e.env, 2.0), onto);
    EXPECT_EQ(EnvKeyValue(onto), 0.0);
    undo(2);
    EXPECT_EQ(EnvKeyValue(EnvGetKey(e.env, 2.0)), 20.0);
}

// A key a cut keeps for undo is pasted as a copy, through any order of undo and redo.
TEST_F(EnvRules, PastingACutKeyPastesACopy) {
    EnvKey *cut = key_at(e.env, 1);
    ASSERT_EQ(EnvKeyCut(e.env, cut), 1);
    ASSERT_EQ(EnvKeyPaste(e.env, cut, 4.0), 1);
    EnvKey *pasted = EnvGetKey(e.env, 4.0);
    ASSERT_NE(pasted, nullptr);
    EXPECT_NE(pasted, cut);
    EXPECT_EQ(EnvKeyValue(pasted), 10.0);
    const std::string done = snapshot(e.env);
    for (int round = 0; round < 3; ++round) {
        undo(2);
        EXPECT_EQ(key_at(e.env, 1), cut);
        redo(2);
        EXPECT_EQ(snapshot(e.env), done);
    }
    // Pasting a key of this envelope copies it too.
    ASSERT_EQ(EnvKeyPaste(e.env, key_at(e.env, 0), 6.0), 1);
    EXPECT_NE(EnvGetKey(e.env, 6.0), key_at(e.env, 0));
    UndoSysClear();  // the cut is dropped in effect: it frees its key, once
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 2.0, 4.0, 6.0}));
}

// Structural apply steps bump the undo code and say whether an undo caused it.
TEST_F(EnvRules, StructuralStepsSayWhenTheyAreUndone) {
    const std::vector<std::pair<const char *, std::function<int()>>> edits = {
        {"behaviour", [&] { return EnvSetPostBehavior(e.env, ENV_BEHAVIOR_REPEAT); }},
        {"interpolation", [&] { return EnvSetInterpolation(e.env, ENV_INTERP_LINEAR); }},
        {"quantise",
         [&] {
             return EnvKeySetTime(e.env, key_at(e.env, 1), 1.01, 0) &&
                    EnvKeyQuantise(e.env, key_at(e.env, 1));
         }},
        {"break", [&] { return EnvKeyBreak(e.env, key_at(e.env, 0), ENV_BREAK_SLOPE); }},
        {"delete", [&] { return EnvDelKey(e.env, key_at(e.env, 2)); }},
    };
    LogCapture log("undo");
    auto count = [&](const char *line) {
        return std::count(log.texts.begin(), log.texts.end(), std::string(line));
    };
    for (const auto &[what, edit] : edits) {
        log.texts.clear();
        ASSERT_TRUE(edit()) << what;
        EXPECT_GE(count("new code (doing)\n"), 1) << what;
        EXPECT_EQ(count("new code (undoing)\n"), 0) << what;
        log.texts.clear();
        UndoSysUndo();
        EXPECT_GE(count("new code (undoing)\n"), 1) << what;
        EXPECT_EQ(count("new code (doing)\n"), 0) << what;
        UndoSysRedo();
    }
}

}  // namespace
}  // namespace vx::test
