/* The key access object: a cursor over one envelope's keys, as a component object.
 *
 * Objects of the class "key.access" have one interface, ENV_KEY_ACCESS_GUID, whose table is
 * EnvKeyAccessMethods. Make one for an envelope with EnvKeyAccessCreate, get its table with
 * XObjectQueryInterface and release both references with XObjectRelease:
 *
 *     void *cursor = NULL;
 *     const EnvKeyAccessMethods *keys = NULL;
 *     if (EnvKeyAccessCreate(env, &cursor) == VX_OK &&
 *         XObjectQueryInterface(cursor, ENV_KEY_ACCESS_GUID, (void **)&keys) == VX_OK) {
 *         for (unsigned int rc = keys->First(cursor); rc == VX_OK; rc = keys->Next(cursor)) ...
 *         keys->object.Release(cursor);
 *     }
 *     XObjectRelease(cursor);
 *
 * Every method returns a result code: VX_OK; VX_E_NOTFOUND when there is no current key, or a
 * move would leave the list (the cursor then stays where it was); VX_E_TYPEMISMATCH when the
 * value type asked for is not the envelope's (a float value of an integer envelope, or the
 * reverse); VX_E_REFUSED when a method that changes the envelope as a whole (its behaviours,
 * clearing its keys) is called with no current key; VX_E_BADARG for a null object or output
 * pointer, a time that is not finite or a break bit other than 0x1, 0x2 or 0x4; and the code
 * of a failure inside an edit (VX_E_NOMEMORY), which then leaves the envelope as it was.
 * Out-parameters are written only on success.
 *
 * Sides: ENV_KEY_ACCESS_INCOMING (1), ENV_KEY_ACCESS_OUTGOING (2); any other number names the
 * side the key's value is shown from (outgoing when the key has a value break and its
 * outgoing side is active, else incoming). As with the Env functions, the outgoing side of a
 * key that is not broken reads and writes the incoming side.
 *
 * Edits are undoable, as the Env edits they make; each editing method is one undo step. Edits
 * send the envelope's change notes.
 *
 * The current key is dropped whenever any key of the envelope is about to be removed (by any
 * edit, its undo or redo; change note ENV_NOTE_REMOVE): the object listens on the envelope's
 * port. It follows the port the envelope has: one set or replaced after the object was made
 * is listened on from the object's next method call. Removals that no note announces (an
 * envelope without a port) are noticed at the next method call: a current key no longer in
 * the envelope is dropped then.
 *
 * An object made by name with XObjectAllocate has no envelope: it finds no keys, adds none
 * (VX_E_NOTFOUND) and refuses envelope edits.
 *
 * Lifetime and threads: the object does not own the envelope. Release it before the envelope
 * is freed, and before destroying a port the envelope had while the object lived. Use an
 * object from the thread that edits its envelope. */
#ifndef VEXOR_SYS_KEY_ACCESS_H
#define VEXOR_SYS_KEY_ACCESS_H

#include "vexor/env.h"
#include "vexor/export.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

#define ENV_KEY_ACCESS_CLASS "key.access"
#define ENV_KEY_ACCESS_GUID "{D1D0261F-22CF-4E5D-822E-76B5DEC98AE4}"

#define ENV_KEY_ACCESS_CURRENT 0
#define ENV_KEY_ACCESS_INCOMING 1
#define ENV_KEY_ACCESS_OUTGOING 2

typedef struct EnvKeyAccessMethods {
    XObjectMethods object;

    /* ---- Moving the cursor ---- */

    /* To the first or last key; VX_E_NOTFOUND without keys. */
    unsigned int (*First)(void *obj);
    unsigned int (*Last)(void *obj);
    /* To the next or previous key; VX_E_NOTFOUND at the end or without a current key. */
    unsigned int (*Next)(void *obj);
    unsigned int (*Previous)(void *obj);
    /* To the key within 0.0001 of the time. */
    unsigned int (*Find)(void *obj, double time);
    /* To the first key later (last key earlier) than the time by more than 0.0001. */
    unsigned int (*FindAfter)(void *obj, double time);
    unsigned int (*FindBefore)(void *obj, double time);
    /* The number of keys (the cursor is not needed). */
    unsigned int (*Count)(void *obj, unsigned int *count);

    /* ---- Reading the current key ---- */

    unsigned int (*Time)(void *obj, double *time);
    /* Value of a float envelope (VX_E_TYPEMISMATCH for an integer one), and the reverse. */
    unsigned int (*Value)(void *obj, int side, double *value);
    unsigned int (*ValueInt)(void *obj, int side, int *value);
    /* Slope in value per second; slope type (ENV_SLOPE_*). */
    unsigned int (*Slope)(void *obj, int side, double *slope);
    unsigned int (*SlopeType)(void *obj, int side, unsigned int *type);
    /* The weight in effect (the stored one when given by hand, else the automatic one), and
     * whether it is given by hand (1) or automatic (0). */
    unsigned int (*Weight)(void *obj, int side, double *weight);
    unsigned int (*WeightType)(void *obj, int side, unsigned int *manual);
    /* The key's break bits (ENV_BREAK_VALUE, ENV_BREAK_SLOPE, ENV_BREAK_WEIGHT). */
    unsigned int (*Breaks)(void *obj, unsigned int *bits);
    /* The side the key's value is shown from: ENV_KEY_ACCESS_INCOMING or _OUTGOING. */
    unsigned int (*ActiveSide)(void *obj, int *side);

    /* ---- Editing the current key (VX_E_NOTFOUND without one) ---- */

    /* Moves the key to the time, past its neighbours if need be; a key already standing at
     * that time is deleted first. The moved key stays current. */
    unsigned int (*SetTime)(void *obj, double time);
    unsigned int (*SetValue)(void *obj, int side, double value);
    unsigned int (*SetValueInt)(void *obj, int side, int value);
    unsigned int (*SetSlope)(void *obj, int side, double slope);
    /* A type above 255, or one the side already has a bit of, changes nothing. */
    unsigned int (*SetSlopeType)(void *obj, int side, unsigned int type);
    unsigned int (*SetWeight)(void *obj, int side, double weight);
    unsigned int (*SetWeightType)(void *obj, int side, unsigned int manual);
    /* Breaks or unifies one aspect (bit 0x1, 0x2 or 0x4). Breaking what is broken, or
     * unifying what is not, changes nothing and succeeds. */
    unsigned int (*Break)(void *obj, unsigned int bit);
    unsigned int (*Unify)(void *obj, unsigned int bit);
    /* Deletes the current key; the cursor has no current key afterwards. */
    unsigned int (*DeleteKey)(void *obj);

    /* ---- Adding keys (no current key needed) ---- */

    /* Adds a key (or sets the value of the key already at the time) and makes it current. */
    unsigned int (*AddKey)(void *obj, double time, double value);
    unsigned int (*AddKeyInt)(void *obj, double time, int value);

    /* ---- Editing the envelope (VX_E_REFUSED without a current key) ---- */

    unsigned int (*SetPreBehavior)(void *obj, unsigned int behavior);
    unsigned int (*SetPostBehavior)(void *obj, unsigned int behavior);
    /* Removes every key; the cursor has no current key afterwards. */
    unsigned int (*ClearKeys)(void *obj);
} EnvKeyAccessMethods;

/* A new key access object on the envelope, with no current key and one reference, into *out
 * (null on failure). The class is registered on first use. Returns VX_OK; VX_E_BADARG for a
 * null envelope or out; VX_E_NOMEMORY. */
VX_API unsigned int EnvKeyAccessCreate(Envelope *env, void **out);

VX_EXTERN_C_END

#endif
