/* Envelopes: animation curves of one value over time.
 *
 * An envelope is an ordered list of keys, each a time and a value with an incoming (side 0)
 * and an outgoing (side 1) tangent, plus how the curve is interpolated between keys and
 * extended before the first and after the last key. Times are seconds; two times closer than
 * 0.0001 are the same time. Float envelopes hold 64-bit values; integer envelopes hold 32-bit
 * signed values in the first half of the same slot.
 *
 * Edits are undoable (they hand a record to the undo system when it records) and atomic: an
 * edit that fails leaves the envelope exactly as it was, sends no change note, and returns 0
 * or null. Observers attached to the envelope's port hear change notes (EnvNote) from every
 * edit, and again from its undo and redo.
 *
 * Threads: an envelope is edited and evaluated from one thread at a time; evaluation and key
 * lookup update the envelope's lookup cache. */
#ifndef VEXOR_ENV_H
#define VEXOR_ENV_H

#include "vexor/export.h"
#include "vexor/port.h"

VX_EXTERN_C_BEGIN

typedef struct Envelope Envelope;
typedef struct EnvKey EnvKey;

/* A side's value: `f` in a float envelope, `i` in an integer envelope. */
typedef union EnvValue {
    double f;
    int i;
} EnvValue;

/* One side of a key. Flags: low 8 bits the slope type, bit 0x100 the weight type (set: the
 * stored weight is used), higher bits the side's user flags. */
typedef struct EnvKeySide {
    unsigned int flags;
    EnvValue value;
    double slope;  /* value per second */
    double weight; /* the tangent handle's length */
} EnvKeySide;

/* Key flags (shared with user flags in the same word). */
#define ENV_BREAK_VALUE 0x1u
#define ENV_BREAK_SLOPE 0x2u
#define ENV_BREAK_WEIGHT 0x4u
#define ENV_ACTIVE_SIDE1 0x8u
#define ENV_WEIGHT_MANUAL 0x100u

/* A key. Walk an envelope's keys from EnvGetKeyList:
 *     for (EnvKey *k = list->head; k->succ != NULL; k = k->succ) ...
 * The list header's own words end the walk, so do not read past a node whose succ is null. */
struct EnvKey {
    EnvKey *succ;
    EnvKey *pred;
    double time;
    unsigned int flags;
    EnvKeySide side[2]; /* 0 incoming, 1 outgoing */
};

/* The key list header: `head` is the first key; `tail` is always null; `tailPred` is the last
 * key. An empty list's head is the address of its `tail` word and its tailPred the address of
 * its `head` word. */
typedef struct EnvKeyList {
    EnvKey *head;
    EnvKey *tail;
    EnvKey *tailPred;
} EnvKeyList;

/* The note sent with every change: the key concerned (null for the whole envelope) and the
 * affected time range. */
typedef struct EnvNote {
    Envelope *envelope;
    EnvKey *key;
    double start;
    double end;
} EnvNote;

/* Change note codes. */
#define ENV_NOTE_DESTROY 1u  /* about to be destroyed; key null */
#define ENV_NOTE_INSERT 2u   /* a key was inserted */
#define ENV_NOTE_KEY 3u      /* a key's value, tangent, slope, weight, break or side changed */
#define ENV_NOTE_TIME 4u     /* a key's time changed */
#define ENV_NOTE_REMOVE 5u   /* a key is about to be removed */
#define ENV_NOTE_ENVELOPE 6u /* the envelope changed as a whole */

/* Behaviours before the first and after the last key. */
#define ENV_BEHAVIOR_RESET 0u
#define ENV_BEHAVIOR_CONSTANT 1u
#define ENV_BEHAVIOR_REPEAT 2u
#define ENV_BEHAVIOR_OSCILLATE 3u
#define ENV_BEHAVIOR_OFFSET_REPEAT 4u
#define ENV_BEHAVIOR_LINEAR 5u
#define ENV_BEHAVIOR_NONE 6u

/* Interpolation modes. */
#define ENV_INTERP_CURVE 0u
#define ENV_INTERP_LINEAR 1u
#define ENV_INTERP_STEPPED 2u

/* Slope types. */
#define ENV_SLOPE_MANUAL 0u
#define ENV_SLOPE_AUTO 1u
#define ENV_SLOPE_LINEAR_IN 2u
#define ENV_SLOPE_LINEAR_OUT 4u
#define ENV_SLOPE_AUTO_FLAT 16u
#define ENV_SLOPE_STEPPED 32u

/* ---- Lifetime and settings ---- */

/* A new float (or integer) envelope with the default behaviours and interpolation, no keys
 * and no port. Not recorded for undo. Null when out of memory. The caller owns it and ends it
 * with EnvDestroy (undoable) or EnvDestroyNoUndo. */
VX_API Envelope *EnvCreate(void *data);
VX_API Envelope *EnvCreateInt(void *data);
/* Undoable: notifies ENV_NOTE_DESTROY, clears the keys and records the destruction; the
 * memory is released when the undo system drops the record (at once when not recording).
 * Returns 1, or 0 on failure (the envelope is then untouched). */
VX_API int EnvDestroy(Envelope *env);
/* Frees the envelope and its keys at once: no record, no note. For envelopes never handed to
 * the undo system, or torn down with their owner. */
VX_API void EnvDestroyNoUndo(Envelope *env);
/* Undoable: replaces the destination's keys and settings with copies of the source's. Types
 * that differ are reported on the debug log and copied anyway. Returns 1, or 0 on failure. */
VX_API int EnvCopy(Envelope *dst, const Envelope *src);
/* Undoable: removes every key as one edit, then notifies ENV_NOTE_ENVELOPE. 1 or 0. */
VX_API int EnvClearKeys(Envelope *env);

/* The envelope's type: 0 float, 1 integer. */
VX_API unsigned int EnvType(const Envelope *env);
/* The client pointer given to EnvCreate or EnvSetData. */
VX_API void *EnvData(const Envelope *env);
/* Replaces the client pointer; no undo, no note. */
VX_API void EnvSetData(Envelope *env, void *data);
/* The port change notes go to; null sends none. The envelope does not own the port. */
VX_API void EnvSetPort(Envelope *env, Port *port);
VX_API Port *EnvGetPort(const Envelope *env);
/* The key list header, to walk the keys in time order (see EnvKey). */
VX_API EnvKeyList *EnvGetKeyList(Envelope *env);

/* How the curve continues before its first key (ENV_BEHAVIOR_*). */
VX_API unsigned int EnvPreBehavior(const Envelope *env);
/* How the curve continues after its last key (ENV_BEHAVIOR_*). */
VX_API unsigned int EnvPostBehavior(const Envelope *env);
/* How the curve runs between keys (ENV_INTERP_*). */
VX_API unsigned int EnvInterpolation(const Envelope *env);
/* Undoable when the value differs from the current one; notify ENV_NOTE_ENVELOPE. 1 or 0. */
VX_API int EnvSetPreBehavior(Envelope *env, unsigned int behavior);
VX_API int EnvSetPostBehavior(Envelope *env, unsigned int behavior);
VX_API int EnvSetInterpolation(Envelope *env, unsigned int interpolation);
/* Write the field: no undo, no note. */
VX_API void EnvSetPreBehaviorDirect(Envelope *env, unsigned int behavior);
VX_API void EnvSetPostBehaviorDirect(Envelope *env, unsigned int behavior);
VX_API void EnvSetInterpolationDirect(Envelope *env, unsigned int interpolation);

/* 1 when the envelope has at least two keys. */
VX_API int EnvIsAnimated(const Envelope *env);
/* Times of the first and last key; -33600000 and 33600000 without keys. Either may be null. */
VX_API void EnvBoundsTime(const Envelope *env, double *first, double *last);
/* Whether the envelope has a value at the time under the "none" behaviour. */
VX_API int EnvTestValidTime(const Envelope *env, double time);
/* Kept as an entry point; does nothing. */
VX_API void EnvClampAll(void);

/* ---- Process-wide defaults (no undo except the default slope type) ---- */

/* The behaviour new envelopes get at both ends (process-wide, initially ENV_BEHAVIOR_CONSTANT). */
VX_API unsigned int EnvGetDefaultBehavior(void);
/* Sets it; an unknown code is refused (VxLastFailure VX_E_BADARG). Not undoable. */
VX_API void EnvSetDefaultBehavior(unsigned int behavior);
/* The interpolation new envelopes get (process-wide, initially ENV_INTERP_CURVE). */
VX_API unsigned int EnvGetDefaultInterpolation(void);
/* Sets it; an unknown code is refused (VxLastFailure VX_E_BADARG). Not undoable. */
VX_API void EnvSetDefaultInterpolation(unsigned int interpolation);
/* The slope type new keys get (process-wide, initially ENV_SLOPE_AUTO). */
VX_API unsigned int EnvKeyDefaultSlopeType(void);
/* Undoable. 1, or 0 on failure. */
VX_API int EnvKeySetDefaultSlopeType(unsigned int type);

/* ---- Key lookup (not edits; they update the lookup cache) ---- */

/* The first key in time, or null for an empty envelope. */
VX_API EnvKey *EnvFirstKey(Envelope *env);
/* The last key in time, or null for an empty envelope. */
VX_API EnvKey *EnvLastKey(Envelope *env);
/* The key within 0.0001 of the time, or null. */
VX_API EnvKey *EnvGetKey(Envelope *env, double time);
/* The first key later than the time by more than 0.0001, or null. */
VX_API EnvKey *EnvNextKey(Envelope *env, double time);
/* The last key earlier than the time by more than 0.0001, or null. */
VX_API EnvKey *EnvPrevKey(Envelope *env, double time);
VX_API double EnvKeyTime(const EnvKey *key);
/* Side 1: the next key's time minus this key's; side 0: this key's minus the previous key's;
 * 0 without that neighbour. */
VX_API double EnvKeyGetSpan(const EnvKey *key, int side);

/* ---- Key edits (undoable; 0 or null on failure with the envelope untouched) ---- */

/* Float envelopes only (null for an integer one). A key already at the time gets the value
 * and is returned; otherwise a new key with the default slope type. */
VX_API EnvKey *EnvAddKey(Envelope *env, double time, double value);
/* Integer envelopes only (null for a float one). */
VX_API EnvKey *EnvAddKeyInt(Envelope *env, double time, int value);
VX_API int EnvDelKey(Envelope *env, EnvKey *key);
/* Moves a key. Reorder 0 keeps the key's place (it stops one frame short of a neighbour);
 * non-zero lets it pass its neighbours. A key already at the new time is deleted first. */
VX_API int EnvKeySetTime(Envelope *env, EnvKey *key, double time, unsigned int reorder);
VX_API int EnvKeySetValue(Envelope *env, EnvKey *key, double value);
VX_API int EnvKeySetValueInt(Envelope *env, EnvKey *key, int value);
VX_API int EnvKeySetTangentValue(Envelope *env, EnvKey *key, int side, double value);
VX_API int EnvKeySetTangentValueInt(Envelope *env, EnvKey *key, int side, int value);
VX_API int EnvKeySetSlopeValue(Envelope *env, EnvKey *key, int side, double slope);
/* Ignored (returns 1, records nothing) when the type exceeds 255 or the side already has a
 * bit of it. */
VX_API int EnvKeySetSlopeType(Envelope *env, EnvKey *key, int side, unsigned int type);
VX_API int EnvKeySetWeightType(Envelope *env, EnvKey *key, int side, unsigned int manual);
VX_API int EnvKeySetWeightValue(Envelope *env, EnvKey *key, int side, double weight);
/* Breaks (or unifies) the value, slope or weight of a key (bit ENV_BREAK_*). 1 when done; 0
 * when the bit already was set (or clear), or on failure. */
VX_API int EnvKeyBreak(Envelope *env, EnvKey *key, unsigned int bit);
VX_API int EnvKeyUnify(Envelope *env, EnvKey *key, unsigned int bit, int unused);
VX_API int EnvKeyUnifyAll(Envelope *env, EnvKey *key, int unused);
/* Not undoable: chooses which side's value a value-broken key shows. 1 when it changed. */
VX_API int EnvKeySetActiveValue(Envelope *env, EnvKey *key, int side);
/* Negates the side's slope (both sides of an unbroken key); notifies ENV_NOTE_ENVELOPE. */
VX_API int EnvKeyTangentInvert(Envelope *env, EnvKey *key, int side);
/* Rounds the key's time to the nearest frame of TimeGlobalFPS(). */
VX_API int EnvKeyQuantise(Envelope *env, EnvKey *key);
/* Cut unlinks a key; the cut's undo record keeps it alive (and frees it when the undo system
 * drops the cut in effect). Paste first deletes a key standing at the time, then inserts the
 * key it is given at that time, and the envelope owns it from then on: a key from EnvKeyCopy
 * (or any key no envelope or edit holds) is the very key found in the list, named in the notes
 * and freed with the envelope; the caller must not free it after a successful paste. Two keys
 * are pasted as a copy instead, so that no key is ever owned twice: a key that a cut still
 * keeps for undo (pasting what was cut), and a key of this same envelope. A key held by another
 * envelope must not be pasted; copy it first. On failure (0) nothing changes and the key stays
 * the caller's. Both are undoable. */
VX_API int EnvKeyCut(Envelope *env, EnvKey *key);
VX_API int EnvKeyPaste(Envelope *env, EnvKey *key, double time);
/* A free-standing copy of a key (not an edit); release it with EnvKeyFree. */
VX_API EnvKey *EnvKeyCopy(const EnvKey *key);
VX_API void EnvKeyFree(EnvKey *key);

/* ---- Key reads ---- */

/* The key's value: side 1's when it has a value break with side 1 active, else side 0's; 0.0 for a
 * null key. */
VX_API double EnvKeyValue(const EnvKey *key);
/* The same for an integer envelope's key; 0 for a null key. */
VX_API int EnvKeyValueInt(const EnvKey *key);
/* The value of one side (0 incoming, 1 outgoing) of a float key. */
VX_API double EnvKeyGetTangentValue(const EnvKey *key, int side);
/* The value of one side of an integer key. */
VX_API int EnvKeyGetTangentValueInt(const EnvKey *key, int side);
/* The slope of one side, in value per second. */
VX_API double EnvKeyGetSlopeValue(const EnvKey *key, int side);
/* The slope type of one side (ENV_SLOPE_*). */
VX_API unsigned int EnvKeyGetSlopeType(const EnvKey *key, int side);
/* The weight-type bit of one side: ENV_WEIGHT_MANUAL when the weight is given by hand, 0 when
 * automatic. */
VX_API unsigned int EnvKeyGetWeightType(const EnvKey *key, int side);
/* The weight of one side: the stored weight when given by hand and not 0, else the automatic one.
 * */
VX_API double EnvKeyGetWeightValue(const EnvKey *key, int side);
/* The automatic weight of one side: the length of a handle reaching a third of the way to the
 * neighbour along the tangent. */
VX_API double EnvKeyGetAutoWeightValue(const EnvKey *key, int side);
/* Which side's value a value-broken key shows (0 or 1); 0 for an unbroken key. */
VX_API int EnvKeyGetActiveValue(const EnvKey *key);
/* 1 when any of the asked break bits (ENV_BREAK_*) is set. */
VX_API int EnvKeyIsBroken(const EnvKey *key, unsigned int bits);
/* The key's break bits: ENV_BREAK_VALUE, ENV_BREAK_SLOPE and ENV_BREAK_WEIGHT as set. */
VX_API unsigned int EnvKeyGetBreakTypes(const EnvKey *key);
/* 1 when any of the asked bits of the key's flag word is set. */
VX_API int EnvKeyGetUserFlag(const EnvKey *key, unsigned int bits);

/* ---- Raw and flag writes: no undo, no note ---- */

/* Sets the asked bits of the key's flag word: 0 (and nothing changes) when any of them is set
 * already, else 1. No undo, no note. */
VX_API int EnvKeySetUserFlag(EnvKey *key, unsigned int bits);
/* 0 when none of the asked bits is set; otherwise toggles the asked bits (clearing 0x300 with only
 * 0x100 set leaves 0x200) and returns 1. No undo, no note. */
VX_API int EnvKeyClearUserFlag(EnvKey *key, unsigned int bits);
/* EnvKeySetUserFlag on one side's flag word; side 1 of an unbroken key is left alone (0). */
VX_API int EnvKeyTangentSetUserFlag(EnvKey *key, int side, unsigned int bits);
/* EnvKeyClearUserFlag on one side's flag word; side 1 of an unbroken key is left alone (0). */
VX_API int EnvKeyTangentClearUserFlag(EnvKey *key, int side, unsigned int bits);
/* EnvKeyGetUserFlag on one side's flag word; 0xFFFFFFFF for side 1 of an unbroken key. */
VX_API unsigned int EnvKeyTangentGetUserFlag(const EnvKey *key, int side, unsigned int bits);
/* Writes one side's stored weight; a weight that is not finite is refused (VxLastFailure
 * VX_E_BADARG). No undo, no note. */
VX_API void EnvKeySetWeightValueD(EnvKey *key, int side, double weight);
/* The same as EnvKeySetWeightValueD. */
VX_API void EnvKeySetRawWeight(EnvKey *key, int side, double weight);
/* For loaders: writes a side's value, slope type, slope, weight type and weight and the key's flags
 * at once (side 0 also gives side 1 its slope type, slope and weight type, and a weight of -1.0 by
 * hand or 0.0). Unknown slope types and numbers that are not finite are refused (VxLastFailure
 * VX_E_BADARG) and nothing is written. No undo, no note. */
VX_API void EnvKeySetRawTangents(Envelope *env, EnvKey *key, int side, double value,
                                 unsigned int slope_type, double slope, unsigned int weight_type,
                                 double weight, unsigned int key_flags);

/* ---- Key ranges (undoable; 1, or 0 on failure with the envelope untouched) ---- */

/* Moves every key by the offset. */
VX_API int EnvShiftAllKeys(Envelope *env, double offset);
VX_API int EnvShiftKeys(Envelope *env, double offset);
/* Scales every key's time about the pivot time; a scale of 0 or less is refused. */
VX_API int EnvScaleAllKeys(Envelope *env, double pivot, double scale);
VX_API int EnvScaleKeys(Envelope *env, double pivot, double scale);
/* Moves every key later than the time by the offset (negative closes the gap). */
VX_API int EnvRippleKeys(Envelope *env, double time, double offset);
/* Moves (or scales about the pivot) the given keys of this envelope; the others stay. */
VX_API int EnvMoveKeyArray(Envelope *env, EnvKey *const *keys, int count, double offset);
VX_API int EnvScaleKeyArray(Envelope *env, EnvKey *const *keys, int count, double pivot,
                            double scale);
/* Deletes every key whose time lies in [start, end] (within 0.0001). */
VX_API int EnvDelKeyRange(Envelope *env, double start, double end);
/* Adds the offset to (or scales about the pivot) the values of the keys in [start, end]. */
VX_API int EnvShiftValues(Envelope *env, double start, double end, double offset);
VX_API int EnvShiftValuesInt(Envelope *env, double start, double end, int offset);
VX_API int EnvScaleValues(Envelope *env, double start, double end, double pivot, double scale);

VX_EXTERN_C_END

#endif
