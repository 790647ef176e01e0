// Envelope keys as callers see them through the C interface: lookup, edits, their notes
// through do, undo and redo, their debug lines, and the rules that keep keys ordered.

#include <cmath>
#include <cstdio>
#include <memory>

#include <vexor/env_eval.h>
#include <vexor/failure.h>

#include "env_fixture.h"
#include "support/alloc_injection.h"

namespace vx::test {
namespace {

using Codes = std::vector<std::uint32_t>;

class EnvKeys : public UndoTest {
  protected:
    // Keys at 0, 1, 2 and 3 s with values 0, 10, 20, 30, built without recording or notes.
    void fill() {
        test::fill(e.env);
        e.notes.take();
    }
    ListenedEnvelope e;
};

TEST_F(EnvKeys, LookupUsesTheTimeTolerance) {
    fill();
    // Which key each lookup finds, by index (-1 for none); 0.0001 is exactly the tolerance away.
    const struct {
        EnvKey *(*find)(Envelope *, double);
        double time;
        int key;
    } rows[] = {{EnvGetKey, 1.00009, 1}, {EnvGetKey, 0.99991, 1}, {EnvGetKey, 0.0001, -1},
                {EnvGetKey, 0.00009, 0}, {EnvGetKey, 3.0001, -1}, {EnvGetKey, -0.00005, 0},
                {EnvNextKey, 1.0, 2},    {EnvNextKey, 1.5, 2},    {EnvNextKey, -5.0, 0},
                {EnvNextKey, 3.0, -1},   {EnvPrevKey, 1.0, 0},    {EnvPrevKey, 1.5, 1},
                {EnvPrevKey, 0.0, -1},   {EnvPrevKey, 9.0, 3}};
    for (const auto &row : rows) {
        EXPECT_EQ(row.find(e.env, row.time), key_at(e.env, row.key)) << row.time;
    }

    // Playback forward and back, then a jump: the cache never gives a stale answer.
    for (double t = -1.0; t < 4.0; t += 0.05) {
        const int expected = t < -0.0001 ? -1 : t > 3.0 ? 3 : static_cast<int>(t + 0.0001);
        EnvKey *prev = EnvPrevKey(e.env, t + 0.0002);
        EXPECT_EQ(prev, expected < 0 ? nullptr : key_at(e.env, expected)) << t;
    }
    EXPECT_EQ(EnvGetKey(e.env, 0.0), key_at(e.env, 0));
}

TEST_F(EnvKeys, LookupsNeverReturnAKeyThatAnEditRemoved) {
    // A short envelope is searched from the lookup cache; a long one through the index that
    // evaluation builds. Both must forget removed keys.
    for (const int count : {4, 40}) {
        ListenedEnvelope le;
        UndoSysSuspend();
        for (int i = 0; i < count; ++i) EnvAddKey(le.env, i, i);
        UndoSysResume();
        for (int i = 0; i < count; ++i) EnvEvaluate(le.env, i + 0.5);  // warm cache and index
        EnvKey *doomed = EnvGetKey(le.env, 2.0);
        ASSERT_NE(doomed, nullptr);
        EnvDelKey(le.env, doomed);
        EXPECT_EQ(EnvGetKey(le.env, 2.0), nullptr) << count;
        EXPECT_EQ(EnvPrevKey(le.env, 2.5), key_at(le.env, 1)) << count;
        EXPECT_EQ(EnvNextKey(le.env, 1.5), key_at(le.env, 2)) << count;
        EXPECT_EQ(EnvKeyTime(EnvNextKey(le.env, 1.5)), 3.0) << count;
        Envelope *cold = EnvCreate(nullptr);  // the same keys with no cache or index yet
        EnvCopy(cold, le.env);
        EXPECT_EQ(EnvEvaluate(le.env, 2.0), EnvEvaluate(cold, 2.0)) << count;
        undo(2);
        EnvDestroyNoUndo(cold);

        EnvKey *moved = EnvGetKey(le.env, 3.0);
        EnvKeyCut(le.env, moved);
        EXPECT_EQ(EnvGetKey(le.env, 3.0), nullptr) << count;
        undo(2);
        EXPECT_EQ(EnvGetKey(le.env, 2.0), doomed) << "undo brings the same key back";
        EXPECT_EQ(EnvGetKey(le.env, 3.0), moved);
    }
}

TEST_F(EnvKeys, EmptyEnvelopesAndBounds) {
    double first = 0.0;
    double last = 0.0;
    EnvBoundsTime(e.env, &first, &last);
    EXPECT_EQ(first, -33600000.0);
    EXPECT_EQ(last, 33600000.0);
    EXPECT_EQ(EnvFirstKey(e.env), nullptr);
    EXPECT_EQ(EnvGetKey(e.env, 0.0), nullptr);
    EXPECT_EQ(EnvIsAnimated(e.env), 0);
    fill();
    EnvBoundsTime(e.env, &first, nullptr);
    EnvBoundsTime(e.env, nullptr, &last);
    EXPECT_EQ(first, 0.0);
    EXPECT_EQ(last, 3.0);
    EXPECT_EQ(EnvIsAnimated(e.env), 1);
}

TEST_F(EnvKeys, AddingAKeyWhereOneStandsSetsItsValue) {
    fill();
    EnvKey *key = EnvAddKey(e.env, 2.00005, 99.0);
    EXPECT_EQ(key, key_at(e.env, 2));
    EXPECT_EQ(key_count(e.env), 4);
    EXPECT_EQ(EnvKeyValue(key), 99.0);

    Envelope *integer = EnvCreateInt(nullptr);
    EXPECT_EQ(EnvAddKey(integer, 0.0, 1.0), nullptr);
    EXPECT_EQ(EnvAddKeyInt(e.env, 0.0, 1), nullptr);
    EnvKey *ikey = EnvAddKeyInt(integer, 1.0, -7);
    EXPECT_EQ(EnvKeyValueInt(ikey), -7);
    EXPECT_EQ(EnvKeySetValue(integer, ikey, 2.0), 0) << "a float value into an integer key";
    EXPECT_EQ(VxLastFailure().code, VX_E_TYPEMISMATCH);
    EnvDestroyNoUndo(integer);
}

TEST_F(EnvKeys, ANewKeyIsHeardAsOneInsertionAndUndoneInThreeSteps) {
    EnvKey *key = EnvAddKey(e.env, 1.0, 5.0);
    EXPECT_EQ(e.notes.take(), (std::vector<HeardNote>{{ENV_NOTE_INSERT, key}}));
    EXPECT_EQ(EnvKeyGetSlopeType(key, 0), EnvKeyDefaultSlopeType());
    EXPECT_EQ(UndoSysUndoCount(), 3u);
    undo();
    EXPECT_EQ(e.notes.codes(), (Codes{ENV_NOTE_KEY, ENV_NOTE_KEY, ENV_NOTE_REMOVE}));
    EXPECT_EQ(key_count(e.env), 0);
    redo();
    EXPECT_EQ(e.notes.codes(), (Codes{ENV_NOTE_INSERT, ENV_NOTE_KEY, ENV_NOTE_KEY}));
    EXPECT_EQ(EnvKeyValue(key_at(e.env, 0)), 5.0);
    EXPECT_FALSE(e.notes.wrong_span());

    // An integer key gets its value after the set-up, so observers hear that too.
    ListenedEnvelope ie(true);
    EnvKey *ikey = EnvAddKeyInt(ie.env, 1.0, 3);
    EXPECT_EQ(ie.notes.codes(), (Codes{ENV_NOTE_INSERT, ENV_NOTE_KEY}));
    EXPECT_EQ(EnvKeyValueInt(ikey), 3);
}

TEST_F(EnvKeys, DeletionNotesAndTheLifeOfADeletedKey) {
    fill();
    EnvKey *key = key_at(e.env, 1);
    const auto live = alloc_counts().live_blocks;
    ASSERT_EQ(EnvDelKey(e.env, key), 1);
    EXPECT_EQ(e.notes.take(),
              (std::vector<HeardNote>{{ENV_NOTE_REMOVE, key}, {ENV_NOTE_ENVELOPE, nullptr}}));
    EXPECT_EQ(alloc_counts().live_blocks, live + 2) << "the key lives on with its record";
    UndoSysUndo();
    EXPECT_EQ(e.notes.take(), (std::vector<HeardNote>{{ENV_NOTE_INSERT, key}}));
    EXPECT_EQ(key_at(e.env, 1), key);
    UndoSysClear();  // dropped undone: the key is back in the envelope, not freed
    EXPECT_EQ(alloc_counts().live_blocks, live);
    EXPECT_EQ(EnvKeyValue(key), 10.0);

    EnvDelKey(e.env, key);
    UndoSysClear();  // dropped in effect: the key goes with the record
    EXPECT_EQ(alloc_counts().live_blocks, live - 1);

    UndoSysEnable(0);  // not recording: freed at once
    EnvDelKey(e.env, key_at(e.env, 0));
    EXPECT_EQ(alloc_counts().live_blocks, live - 2);
    EXPECT_EQ(UndoSysUndoCount(), 0u);
}

TEST_F(EnvKeys, MovingKeysKeepsThemInOrder) {
    fill();
    EnvKey *key = key_at(e.env, 1);
    EXPECT_EQ(EnvKeySetTime(e.env, key, 1.0, 0), 1);
    EXPECT_EQ(UndoSysUndoCount(), 0u) << "the same time records nothing";

    EnvKeySetTime(e.env, key, 2.5, 0);  // past its neighbour at 2: stops a frame short
    EXPECT_DOUBLE_EQ(EnvKeyTime(key), 2.0 - 1.0 / 30.0);
    EXPECT_EQ(key_at(e.env, 1), key);
    EnvKeySetTime(e.env, key, -4.0, 0);
    EXPECT_DOUBLE_EQ(EnvKeyTime(key), 1.0 / 30.0);
    EXPECT_EQ(e.notes.codes(), (Codes{ENV_NOTE_TIME, ENV_NOTE_TIME}));

    EnvKeySetTime(e.env, key, 2.5, 1);  // reorder: it passes the key at 2
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 2.0, 2.5, 3.0}));
    EnvKeySetTime(e.env, key, 3.0, 1);  // onto a key: that key goes first
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 2.0, 3.0}));
    EXPECT_EQ(key_at(e.env, 2), key);
    undo();
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 2.0, 3.0}));
    EXPECT_EQ(key_at(e.env, 1), key);
}

TEST_F(EnvKeys, QuantisingRoundsToFramesAndNegativeTimesTowardZero) {
    UndoSysSuspend();
    EnvKey *negative = EnvAddKey(e.env, -1.7 / 30.0, 1.0);
    EnvKey *half = EnvAddKey(e.env, 1.5 / 30.0, 2.0);
    EnvKey *near = EnvAddKey(e.env, 10.2 / 30.0, 3.0);
    UndoSysResume();
    EnvKeyQuantise(e.env, negative);
    EnvKeyQuantise(e.env, half);
    EnvKeyQuantise(e.env, near);
    EXPECT_DOUBLE_EQ(EnvKeyTime(negative) * 30.0, -1.0);
    EXPECT_DOUBLE_EQ(EnvKeyTime(half) * 30.0, 2.0);
    EXPECT_DOUBLE_EQ(EnvKeyTime(near) * 30.0, 10.0);
    const auto code = UndoSysCode();
    UndoSysUndo();
    EXPECT_DOUBLE_EQ(EnvKeyTime(near) * 30.0, 10.2);
    EXPECT_GT(UndoSysCode(), code);
}

TEST_F(EnvKeys, BreakingAndUnifyingCopySide0AndUndoRestoresSide1) {
    fill();
    EnvKey *key = key_at(e.env, 1);
    EnvKeySetSlopeType(e.env, key, 0, ENV_SLOPE_MANUAL);
    EnvKeySetSlopeValue(e.env, key, 0, 2.5);
    key->side[1].slope = -7.0;  // what side 1 held before the break
    key->side[1].flags = (key->side[1].flags & ~0xFFu) | ENV_SLOPE_LINEAR_OUT;
    e.notes.take();

    ASSERT_EQ(EnvKeyBreak(e.env, key, ENV_BREAK_SLOPE), 1);
    EXPECT_EQ(EnvKeyIsBroken(key, ENV_BREAK_SLOPE), 1);
    EXPECT_EQ(EnvKeyGetSlopeType(key, 1), ENV_SLOPE_MANUAL);
    EXPECT_EQ(EnvKeyGetSlopeValue(key, 1), 2.5);
    EXPECT_EQ(EnvKeyBreak(e.env, key, ENV_BREAK_SLOPE), 0) << "already broken";
    EnvKeySetSlopeValue(e.env, key, 1, 9.0);  // now side 1 has a slope of its own
    EXPECT_EQ(EnvKeyGetSlopeValue(key, 0), 2.5);

    ASSERT_EQ(EnvKeyUnify(e.env, key, ENV_BREAK_SLOPE, 0), 1);
    EXPECT_EQ(EnvKeyIsBroken(key, ENV_BREAK_SLOPE), 0);
    EXPECT_EQ(key->side[1].slope, 2.5);
    EXPECT_EQ(EnvKeyUnify(e.env, key, ENV_BREAK_SLOPE, 0), 0) << "not broken";
    EXPECT_EQ(EnvKeyUnifyAll(e.env, key, 0), 0);

    UndoSysUndo();  // the unify
    EXPECT_EQ(key->side[1].slope, 9.0);
    UndoSysUndo();  // the side 1 slope
    UndoSysUndo();  // the break
    EXPECT_EQ(key->side[1].slope, -7.0);
    EXPECT_EQ(key->side[1].flags & 0xFFu, ENV_SLOPE_LINEAR_OUT);
    EXPECT_EQ(EnvKeyGetBreakTypes(key), 0u);
    EXPECT_EQ(EnvKeyBreak(e.env, key, 0x8), 0) << "only value, slope and weight break";
}

TEST_F(EnvKeys, ValueBreaksAndTheActiveSide) {
    fill();
    EnvKey *key = key_at(e.env, 2);
    EXPECT_EQ(EnvKeySetActiveValue(e.env, key, 1), 0) << "unbroken";
    EXPECT_EQ(key->flags, 0u);
    EXPECT_EQ(EnvKeyGetActiveValue(key), 0);
    EXPECT_EQ(EnvKeyTangentGetUserFlag(key, 1, 0x10000), 0xFFFFFFFFu);

    EnvKeyBreak(e.env, key, ENV_BREAK_VALUE);
    EnvKeySetTangentValue(e.env, key, 1, 25.0);
    e.notes.take();
    EXPECT_EQ(EnvKeyValue(key), 20.0);
    EXPECT_EQ(EnvKeySetActiveValue(e.env, key, 1), 1);
    EXPECT_EQ(EnvKeySetActiveValue(e.env, key, 1), 0) << "no change, no note";
    EXPECT_EQ(e.notes.codes(), (Codes{ENV_NOTE_KEY}));
    EXPECT_EQ(EnvKeyValue(key), 25.0);
    EnvKeySetValue(e.env, key, 26.0);  // the active side takes the value
    EXPECT_EQ(EnvKeyGetTangentValue(key, 0), 20.0);
    EXPECT_EQ(EnvKeyGetTangentValue(key, 1), 26.0);
    EXPECT_EQ(EnvKeyGetBreakTypes(key), ENV_BREAK_VALUE);
    EXPECT_EQ(EnvKeyTangentGetUserFlag(key, 1, 0x10000), 0u);
}

TEST_F(EnvKeys, SlopeTypesAndWeights) {
    fill();
    EnvKey *key = key_at(e.env, 1);
    EXPECT_EQ(EnvKeySetSlopeType(e.env, key, 0, ENV_SLOPE_AUTO), 1);
    EXPECT_EQ(UndoSysUndoCount(), 0u) << "the side already has the type";
    EXPECT_EQ(EnvKeySetSlopeType(e.env, key, 0, 256), 1);
    EXPECT_EQ(UndoSysUndoCount(), 0u) << "types above 255 are ignored";

    EnvKeySetSlopeValue(e.env, key, 0, 3.0);
    const double side1_weight = EnvKeyGetAutoWeightValue(key, 1);  // taken before the change
    EnvKeySetSlopeType(e.env, key, 1, ENV_SLOPE_LINEAR_IN);        // unbroken: both sides
    EXPECT_EQ(EnvKeyGetSlopeType(key, 0), ENV_SLOPE_LINEAR_IN);
    EXPECT_EQ(key->side[1].flags & 0xFFu, ENV_SLOPE_LINEAR_IN);
    EXPECT_EQ(key->side[1].slope, 3.0);
    EXPECT_DOUBLE_EQ(key->side[1].weight, side1_weight);
    const double third = 1.0 / 3.0;

    EXPECT_DOUBLE_EQ(EnvKeyGetAutoWeightValue(key, 0), std::sqrt(third * third * 10.0));
    EXPECT_DOUBLE_EQ(EnvKeyGetAutoWeightValue(key_at(e.env, 0), 0), 0.0);
    EXPECT_DOUBLE_EQ(EnvKeyGetSpan(key, 1), 1.0);
    EXPECT_DOUBLE_EQ(EnvKeyGetSpan(key_at(e.env, 3), 1), 0.0);

    EnvKeySetWeightValue(e.env, key, 0, 0.75);
    EXPECT_DOUBLE_EQ(EnvKeyGetWeightValue(key, 0), EnvKeyGetAutoWeightValue(key, 0))
        << "automatic until the weight type is manual";
    EnvKeySetWeightType(e.env, key, 0, 1);
    EXPECT_EQ(EnvKeyGetWeightType(key, 0), 1u);
    EXPECT_DOUBLE_EQ(EnvKeyGetWeightValue(key, 0), 0.75);

    EnvKeyTangentInvert(e.env, key, 0);
    EXPECT_EQ(EnvKeyGetSlopeValue(key, 0), -3.0);
    EXPECT_EQ(key->side[1].slope, -3.0) << "an unbroken key's sides share the slope";
    EXPECT_EQ(e.notes.take().back(), (HeardNote{ENV_NOTE_ENVELOPE, key}));
}

TEST_F(EnvKeys, RawWritesForLoaders) {
    fill();
    EnvKey *key = key_at(e.env, 0);
    EnvKeySetRawTangents(e.env, key, 0, 4.0, ENV_SLOPE_MANUAL, 1.5, 1, 0.25, 0x2);
    EXPECT_EQ(key->side[0].value.f, 4.0);
    EXPECT_EQ(key->side[0].flags & 0x1FFu, ENV_WEIGHT_MANUAL | ENV_SLOPE_MANUAL);
    EXPECT_EQ(key->side[1].flags & 0x1FFu, ENV_WEIGHT_MANUAL | ENV_SLOPE_MANUAL);
    EXPECT_EQ(key->side[1].slope, 1.5);
    EXPECT_EQ(key->side[1].weight, -1.0);
    EXPECT_EQ(key->side[1].value.f, 0.0) << "side 1's value is left alone";
    EXPECT_EQ(key->flags, 0x2u);
    EXPECT_EQ(e.notes.count(), 0u);
    EXPECT_EQ(UndoSysUndoCount(), 0u);

    EXPECT_EQ(EnvKeySetUserFlag(key, 0x100), 1);
    EXPECT_EQ(EnvKeySetUserFlag(key, 0x100), 0);
    EXPECT_EQ(EnvKeyGetUserFlag(key, 0x100), 1);
    EXPECT_EQ(EnvKeyClearUserFlag(key, 0x400), 0) << "none of the asked bits is set";
    EXPECT_EQ(EnvKeyClearUserFlag(key, 0x300), 1) << "toggles the asked bits";
    EXPECT_EQ(key->flags & 0x300u, 0x200u);
    EXPECT_EQ(EnvKeyTangentSetUserFlag(key, 0, 0x10000), 1);
    EXPECT_EQ(EnvKeyTangentClearUserFlag(key, 0, 0x30000), 1);
    EXPECT_EQ(key->side[0].flags & 0x30000u, 0x20000u);
    EXPECT_EQ(EnvKeyTangentSetUserFlag(key, 1, 0x10000), 1) << "broken by its slope bit";
    EXPECT_EQ(EnvKeyTangentGetUserFlag(key, 1, 0x10000), 1u);
}

TEST_F(EnvKeys, BehavioursAndInterpolationAreUndoableSettings) {
    fill();
    EXPECT_EQ(EnvPreBehavior(e.env), EnvGetDefaultBehavior());
    EnvSetPreBehavior(e.env, ENV_BEHAVIOR_REPEAT);
    EnvSetPostBehavior(e.env, ENV_BEHAVIOR_OSCILLATE);
    EnvSetInterpolation(e.env, ENV_INTERP_LINEAR);
    EnvSetInterpolation(e.env, ENV_INTERP_LINEAR);
    EXPECT_EQ(UndoSysUndoCount(), 3u);
    EXPECT_EQ(e.notes.take(), (std::vector<HeardNote>(3, {ENV_NOTE_ENVELOPE, key_at(e.env, 0)})));
    undo(2);
    EXPECT_EQ(EnvPostBehavior(e.env), EnvGetDefaultBehavior());
    EnvSetPostBehaviorDirect(e.env, ENV_BEHAVIOR_NONE);
    EXPECT_EQ(EnvTestValidTime(e.env, 3.00009), 1);
    EXPECT_EQ(EnvTestValidTime(e.env, 3.0002), 0);
    EXPECT_EQ(EnvTestValidTime(e.env, -5.0), 1);
}

TEST_F(EnvKeys, CopyClearAndDestroy) {
    fill();
    EnvSetPreBehaviorDirect(e.env, ENV_BEHAVIOR_OFFSET_REPEAT);
    ListenedEnvelope other;
    UndoSysSuspend();
    EnvAddKey(other.env, 7.0, 70.0);
    UndoSysResume();
    const std::string source = snapshot(e.env);
    const std::string before = snapshot(other.env);

    ASSERT_EQ(EnvCopy(other.env, e.env), 1);
    EXPECT_EQ(snapshot(other.env), source);
    EXPECT_NE(key_at(other.env, 0), key_at(e.env, 0)) << "copies, not the same keys";
    undo(2);
    EXPECT_EQ(snapshot(other.env), before);

    other.notes.take();
    EnvClearKeys(other.env);
    EXPECT_EQ(key_count(other.env), 0);
    EXPECT_EQ(other.notes.codes(), (Codes{ENV_NOTE_REMOVE, ENV_NOTE_ENVELOPE}));
    UndoSysUndo();
    EXPECT_EQ(snapshot(other.env), before);

    Envelope *doomed = EnvCreate(nullptr);
    EnvSetPort(doomed, e.port);
    EnvAddKey(doomed, 1.0, 1.0);
    e.notes.take();
    ASSERT_EQ(EnvDestroy(doomed), 1);
    EXPECT_EQ(e.notes.codes(), (Codes{ENV_NOTE_DESTROY, ENV_NOTE_REMOVE, ENV_NOTE_ENVELOPE}));
    undo(2);  // the destruction and the clearing: the envelope is whole again
    EXPECT_EQ(key_count(doomed), 1);
    redo(2);
    UndoSysClear();  // dropped in effect: the envelope's memory goes (checked by sanitizers)
}

TEST_F(EnvKeys, CutAndPaste) {
    fill();
    EnvKey *key = key_at(e.env, 1);
    EnvKeySetSlopeType(e.env, key, 0, ENV_SLOPE_STEPPED);
    e.notes.take();
    ASSERT_EQ(EnvKeyCut(e.env, key), 1);
    EXPECT_EQ(e.notes.take(),
              (std::vector<HeardNote>{{ENV_NOTE_REMOVE, key}, {ENV_NOTE_ENVELOPE, key}}));
    ASSERT_EQ(EnvKeyPaste(e.env, key, 3.0), 1);  // onto the key at 3: it is replaced
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 2.0, 3.0}));
    EXPECT_EQ(EnvKeyValue(key_at(e.env, 2)), 10.0);
    EXPECT_EQ(EnvKeyGetSlopeType(key_at(e.env, 2), 0), ENV_SLOPE_STEPPED);
    undo(3);
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 2.0, 3.0}));
    EXPECT_EQ(key_at(e.env, 1), key);

    EnvKey *loose = EnvKeyCopy(key);
    EXPECT_EQ(loose->time, 1.0);
    EnvKeyFree(loose);
}

TEST_F(EnvKeys, RangeEditsKeepKeysOrderedAndApart) {
    fill();
    EnvShiftAllKeys(e.env, 0.5);
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.5, 1.5, 2.5, 3.5}));
    EnvScaleAllKeys(e.env, 0.5, 2.0);
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.5, 2.5, 4.5, 6.5}));
    EXPECT_EQ(EnvScaleAllKeys(e.env, 0.0, 0.0), 0) << "a scale must be above zero";
    EnvScaleAllKeys(e.env, 0.5, 0.00001);  // crushed together: only the first survives
    EXPECT_EQ(key_count(e.env), 1);
    undo();
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 2.0, 3.0}));

    EnvRippleKeys(e.env, 1.0, 2.0);  // opens a gap after 1
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 4.0, 5.0}));
    EnvRippleKeys(e.env, 4.0, -3.5);  // closes 0.5 to 4: the key at 1 and the one at 4 go
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.5}));
    undo(2);

    EnvKey *moved[] = {key_at(e.env, 0), key_at(e.env, 1)};
    EnvMoveKeyArray(e.env, moved, 2, 2.0);  // 0 and 1 land on 2 and 3, which go
    EXPECT_EQ(key_times(e.env), (std::vector<double>{2.0, 3.0}));
    EXPECT_EQ(key_at(e.env, 0), moved[0]);
    UndoSysUndo();
    EnvKey *scaled[] = {key_at(e.env, 2), key_at(e.env, 3)};
    EnvScaleKeyArray(e.env, scaled, 2, 0.0, 0.25);  // 2 and 3 to 0.5 and 0.75
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 0.5, 0.75, 1.0}));
    EnvKey *stranger = EnvAddKey(e.env, 9.0, 0.0);
    EnvDelKey(e.env, stranger);
    EXPECT_EQ(EnvMoveKeyArray(e.env, &stranger, 1, 1.0), 0) << "not a key of the envelope";
    undo();

    EnvDelKeyRange(e.env, 2.00005, 0.99995);
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 3.0}));
    UndoSysUndo();
    EnvShiftValues(e.env, 1.0, 2.0, 0.5);
    EnvScaleValues(e.env, 0.0, 3.0, 10.0, 2.0);
    EXPECT_EQ(EnvKeyValue(key_at(e.env, 1)), 11.0);
    EXPECT_EQ(EnvKeyValue(key_at(e.env, 3)), 50.0);
    EXPECT_EQ(EnvShiftValuesInt(e.env, 0.0, 1.0, 1), 0) << "an integer shift of a float envelope";
    undo();
    EXPECT_EQ(EnvKeyValue(key_at(e.env, 1)), 10.0);
}

TEST_F(EnvKeys, DebugLinesOnTheEnvelopeChannel) {
    auto log = std::make_unique<LogCapture>("envelope");
    Envelope *env = EnvCreate(nullptr);
    Envelope *integer = EnvCreateInt(nullptr);
    EnvKey *key = EnvAddKey(env, 0.0, 1.0);
    EnvKeyUnify(env, key, ENV_BREAK_VALUE, 0);
    EnvKeyBreak(env, key, ENV_BREAK_VALUE);
    EnvKeyBreak(env, key, ENV_BREAK_VALUE);
    EnvSetPreBehavior(env, 0);
    EnvCopy(integer, env);
    EnvDestroyNoUndo(integer);
    const std::vector<std::string> l = log->lines;
    log.reset();
    UndoSysClear();
    EnvDestroyNoUndo(env);

    char created[64];
    std::snprintf(created, sizeof created, "envelope|EnvCreate: %x\n",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(env)));
    ASSERT_GE(l.size(), 6u);
    EXPECT_EQ(l[0], created);
    EXPECT_EQ(l[2], "envelope|Key is not broken\n");
    EXPECT_EQ(l[3], "envelope|Key is already broken\n");
    EXPECT_EQ(l[4].rfind("envelope|EnvBehavior_UndoAction: ", 0), 0u);
    EXPECT_EQ(l[5], "env|#[fail] <env>:2354 copying envelopes of different types! \n");
    EXPECT_EQ(l.back().rfind("envelope|EnvDestroyNoUndo: ", 0), 0u);
}

TEST_F(EnvKeys, DefaultsAndTheUndoableDefaultSlopeType) {
    const unsigned slope = EnvKeyDefaultSlopeType();
    EXPECT_EQ(EnvKeySetDefaultSlopeType(ENV_SLOPE_LINEAR_OUT), 1);
    EXPECT_EQ(EnvKeyDefaultSlopeType(), ENV_SLOPE_LINEAR_OUT);
    EnvKey *key = EnvAddKey(e.env, 0.0, 0.0);
    EXPECT_EQ(EnvKeyGetSlopeType(key, 0), ENV_SLOPE_LINEAR_OUT);
    undo();
    EXPECT_EQ(EnvKeyDefaultSlopeType(), slope);
    EXPECT_EQ(EnvKeySetDefaultSlopeType(300), 0);

    EnvSetDefaultBehavior(ENV_BEHAVIOR_REPEAT);
    EnvSetDefaultInterpolation(ENV_INTERP_STEPPED);
    Envelope *env = EnvCreate(nullptr);
    EXPECT_EQ(EnvPreBehavior(env), ENV_BEHAVIOR_REPEAT);
    EXPECT_EQ(EnvPostBehavior(env), ENV_BEHAVIOR_REPEAT);
    EXPECT_EQ(EnvInterpolation(env), ENV_INTERP_STEPPED);
    EnvSetDefaultBehavior(ENV_BEHAVIOR_CONSTANT);
    EnvSetDefaultInterpolation(ENV_INTERP_CURVE);
    EnvDestroyNoUndo(env);
}

TEST_F(EnvKeys, AFailedEditReturnsZeroAndChangesNothing) {
    fill();
    const std::string before = snapshot(e.env);
    int result = -1;
    {
        FailAllocation fail(1);
        result = EnvKeySetValue(e.env, key_at(e.env, 1), 5.0);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOMEMORY);
    EnvKey *added = key_at(e.env, 0);
    {
        FailAllocation fail(1);
        added = EnvAddKey(e.env, 7.0, 1.0);
    }
    EXPECT_EQ(added, nullptr);
    EXPECT_EQ(snapshot(e.env), before);
    EXPECT_EQ(e.notes.count(), 0u);
    EXPECT_EQ(EnvDelKey(e.env, nullptr), 0);
    EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
}

}  // namespace
}  // namespace vx::test
