/* Actions: named layers of channel values.
 *
 * Every scene owns a list of actions (in creation order) and an evaluation order: the chain
 * through which a channel's value is looked up. An action holds at most one entry per (item,
 * channel): a constant value, an envelope, or a removed marker (a tombstone that masks
 * nothing). The value of a channel as seen from an action is the first live entry found in
 * that action and the actions after it in the evaluation order; failing that, the same search
 * for the item's source item with the matching channel; failing that, the channel's package
 * default.
 *
 * Three default actions exist in every scene: "setup" (type 0), "scene" (type 1, parent
 * "setup") and "edit" (type 9, parent "scene"). The evaluation order starts with "edit" and
 * follows parents breadth-first, first parent first; while the first parent of "edit" is
 * "setup" (the setup state), parents of type 1 are left out.
 *
 * Ownership: an action owns its entries, and an entry owns its value. An envelope handed to
 * CineActionSetEnvelope (or CineActionSetState with state 3) is taken over when the call
 * succeeds: the caller may keep editing it with the Env functions (those edits are announced
 * as changes of the action) but must never destroy it, nor hand it to another entry. On
 * failure it stays the caller's.
 *
 * Edits (setters, clearing, copying, merging, purging, creating and destroying actions,
 * parents, type and enable) are undoable and atomic: a failed edit changes nothing, sends no
 * event and returns 0 or null. Every change of what an action holds is announced with code
 * CINE_EVENT_ACTION_CHANGED on the action's port (unless the scene is quiet) and through the
 * scene's events on "cinema-db", with a CineActionChange as data.
 *
 * Everything here is valid between CinemaStartup and CinemaShutdown. Actions are not locked:
 * edit them from the main thread; look-ups may run on several threads while nothing edits.
 * Item channels are counted from 0 across the item's packages; actions keep 24 bits of the
 * index. */
#ifndef VEXOR_ACTION_H
#define VEXOR_ACTION_H

#include <stddef.h>
#include <stdint.h>

#include "vexor/cinema.h"
#include "vexor/env.h"
#include "vexor/export.h"
#include "vexor/port.h"

VX_EXTERN_C_BEGIN

typedef struct CineActionData CineActionData;

/* Types of the default actions; other types are the caller's. */
#define CINE_ACTION_SETUP 0u
#define CINE_ACTION_SCENE 1u
#define CINE_ACTION_EDIT 9u

/* Entry states (CineActionState, CineActionValueState, CineActionSetState). */
#define CINE_STATE_NONE 0
#define CINE_STATE_REMOVED 1
#define CINE_STATE_CONSTANT 2
#define CINE_STATE_ENVELOPE 3

/* Events of actions, sent through the scene's events (and the change event also on the
 * action's own port). The data is the action, except for 0x8002 and 0x8003 where it is a
 * CineActionChange. */
#define CINE_EVENT_ACTION_ADDED 0x8000u   /* an action joined the scene's list */
#define CINE_EVENT_ACTION_REMOVED 0x8001u /* an action left the scene's list */
#define CINE_EVENT_ACTION_PARENTS 0x8002u /* an action's parents changed */
#define CINE_EVENT_ACTION_CHANGED 0x8003u /* what an action holds changed */
#define CINE_EVENT_ACTION_ORDER 0x8004u   /* the evaluation order was rebuilt; data: "edit" */
#define CINE_EVENT_ACTION_DEFINED 0x8005u /* an action was made or its type changed */

/* Flags of a CineActionChange. */
#define CINE_CHANGE_ENTRY 0x001u    /* an entry was made or taken out */
#define CINE_CHANGE_VALUE 0x002u    /* values of the action changed */
#define CINE_CHANGE_KEYS 0x004u     /* an envelope held by an entry was edited */
#define CINE_CHANGE_TYPE 0x008u     /* the action's type changed, or the action is new */
#define CINE_CHANGE_SETTINGS 0x100u /* the action as a whole (type, enable, parents) */

/* The data of CINE_EVENT_ACTION_CHANGED. A change of one entry names its item and channel
 * and the time span it affects; a change of the whole action has a null item and the span
 * -33600000 to 33600000. */
typedef struct CineActionChange {
    CineAction *action;
    CineItem *item;
    uint32_t channel;
    uint32_t flags;
    double start;
    double end;
} CineActionChange;

/* Flag of CineActionCopyChannel and CineActionApplyItem: leave a live destination entry as
 * it is. */
#define CINE_COPY_KEEP_EXISTING 0x1u

/* ---- Module and scene data ---- */

/* Called by CinemaStartup and CinemaShutdown; hosts need not call them. Reference counted
 * with each other. Startup returns 1, or 0 when out of memory. */
VX_API int CineActionStartup(void);
VX_API void CineActionShutdown(void);

/* The scene's action data, made (without default actions) when it has none; null on failure.
 * Scenes made by CinemaCreate already have theirs. */
VX_API CineActionData *CineActionDataCreate(Cinema *scene);
/* Frees the action data with every action in it; the scene is left with no actions. Not
 * undoable: for scene tear-down only. Null is ignored. */
VX_API void CineActionDataDestroy(CineActionData *data);
/* Makes the default actions the scene lacks, not recorded for undo, and rebuilds the
 * evaluation order. */
VX_API void CineActionCreateDefaults(Cinema *scene);
/* kind 0 "setup", 1 "scene", 9 "edit"; any other kind gives null. */
VX_API CineAction *CineActionGetDefault(Cinema *scene, unsigned int kind);
/* 1 while the first parent of "edit" is "setup". */
VX_API int CinemaSetupState(Cinema *scene);
/* The evaluation order: its length, and its actions from 0 ("edit") on; null past the end. */
VX_API unsigned int CineActionOrderCount(Cinema *scene);
VX_API CineAction *CineActionOrderByIndex(Cinema *scene, unsigned int index);

/* ---- Actions ---- */

/* Undoable: a new empty action of that name and type, with `parent` (may be null) as its only
 * parent, added at the end of the scene's list. Null when the name is null or empty, the
 * scene already has an action of that name (compared without regard to case), or the parent
 * belongs to another scene. */
VX_API CineAction *CineActionCreate(Cinema *scene, const char *name, unsigned int type,
                                    CineAction *parent);
/* Undoable: a new action named `name` with the type, parents and copies of every entry of
 * `action`, at the end of the list. Null on the same conditions as CineActionCreate. */
VX_API CineAction *CineActionCopy(CineAction *action, const char *name);
/* Undoable: takes the action out of its scene with its entries (undo brings them back).
 * Returns 0 for a default action, an action that is another action's parent, or null. */
VX_API int CineActionDestroy(CineAction *action);

/* Creation order. */
VX_API CineAction *CineActionFirst(Cinema *scene);
VX_API CineAction *CineActionLast(Cinema *scene);
VX_API CineAction *CineActionNext(CineAction *action);
VX_API CineAction *CineActionPrev(CineAction *action);
/* The first action of that name, compared without regard to case; null for a null name. */
VX_API CineAction *CineActionLookup(Cinema *scene, const char *name);

/* The action's name; owned by the action. */
VX_API const char *CineActionName(CineAction *action);
/* The scene the action belongs to. */
VX_API Cinema *CineActionContext(CineAction *action);
/* The action's type: CINE_ACTION_SETUP (0), CINE_ACTION_SCENE (1), CINE_ACTION_EDIT (9) or the
 * caller's own. */
VX_API unsigned int CineActionType(CineAction *action);
/* 1 when the action is enabled, else 0. */
VX_API int CineActionIsEnabled(CineAction *action);
/* The action's own port: CINE_EVENT_ACTION_CHANGED with a CineActionChange. */
VX_API Port *CineActionPort(CineAction *action);
/* Undoable; rebuild the evaluation order. 1, or 0 on failure. */
VX_API int CineActionSetType(CineAction *action, unsigned int type);
VX_API int CineActionSetEnable(CineAction *action, int enabled);

/* Parents, undoable. A parent must belong to the same scene and not be the action itself.
 * AddParent inserts at `index` (past the end or negative: last); an action that is already a
 * parent is moved there. Each returns 1, or 0 when nothing was done. */
VX_API int CineActionAddParent(CineAction *action, CineAction *parent, int index);
VX_API int CineActionRemoveParent(CineAction *action, CineAction *parent);
VX_API int CineActionIsParent(CineAction *action, CineAction *parent);
VX_API CineAction *CineActionFirstParent(CineAction *action);
VX_API unsigned int CineActionParentCount(CineAction *action);
VX_API CineAction *CineActionParentByIndex(CineAction *action, unsigned int index);

/* ---- Reading entries ---- */

/* The state of the entry in this action only (CINE_STATE_...). */
VX_API int CineActionState(CineAction *action, CineItem *item, unsigned int channel);
/* The state of the entry in the first action of the primary-parent chain that has one. */
VX_API int CineActionValueState(CineAction *action, CineItem *item, unsigned int channel);
/* The envelope of this action's live entry, or null. */
VX_API Envelope *CineActionEnv(CineAction *action, CineItem *item, unsigned int channel);
/* The envelope that governs the channel as seen from the action (through later actions and
 * the source item), or null when the value is constant. */
VX_API Envelope *CineActionValueEnv(CineAction *action, CineItem *item, unsigned int channel);
/* 1 when the value the action sees comes from an envelope. */
VX_API int CineActionIsAnimated(CineAction *action, CineItem *item, unsigned int channel);
/* The constant value the action sees, or the channel's default when no entry supplies one or
 * the entry is an envelope, read as a number or as a value object; null action: the default.
 * The value object answers for every kind of channel: a pointer to the value as a double for
 * floating and integer channels, the terminated text of a text channel, the 16 doubles of a
 * matrix channel, the object of an object channel. It is owned by the action or the package and
 * is read-only; it stays valid until the entry or the default changes. Null only for a channel
 * the item does not have. */
VX_API double CineActionValueFloat(CineAction *action, CineItem *item, unsigned int channel);
VX_API int CineActionValueInt(CineAction *action, CineItem *item, unsigned int channel);
VX_API void *CineActionValueCust(CineAction *action, CineItem *item, unsigned int channel);
/* Writes the value the action sees (an entry's constant, or else the default) as text, cut to
 * fit and terminated. Returns the length of the whole text, or 0 (and an empty buffer) when
 * no entry supplies a constant. */
VX_API size_t CineActionValueExport(CineAction *action, CineItem *item, unsigned int channel,
                                    char *buf, size_t size);
/* The action after this one in the evaluation order whose entry for the channel counts: mode
 * 0 live entries, mode 1 any entry but stopping at another scene's action; other modes find
 * nothing. type 0xFFFFFFFF accepts any type. */
VX_API CineAction *CineActionForChannel(CineAction *action, CineItem *item, unsigned int channel,
                                        unsigned int type, int mode);
/* 1 when the action has an entry (live or removed) for the channel, or for any channel of the
 * item. */
VX_API int CineActionTestChannel(CineAction *action, CineItem *item, unsigned int channel);
VX_API int CineActionTestItem(CineAction *action, CineItem *item);
/* The time span of the keys of the action's envelopes: 1 and the outputs that are not null,
 * or 0 when the action holds no keys. */
VX_API int CineActionExtents(CineAction *action, double *first, double *last);

/* ---- Editing entries (all undoable) ---- */

/* Sets the channel's value: when this action's live entry holds an envelope, the envelope is
 * keyed at `time`; otherwise the entry becomes a constant. The value is converted to the
 * channel's kind (numbers to text are written out). 1, or 0 on failure. */
VX_API int CineActionSetValue(CineAction *action, CineItem *item, unsigned int channel,
                              double value, double time);
VX_API int CineActionSetValueInt(CineAction *action, CineItem *item, unsigned int channel,
                                 int value, double time);
/* Makes the entry a constant, dropping any envelope it held. Text goes to any channel that can
 * read it; the object form only to object channels and the matrix form (16 numbers, row by
 * row) only to matrix channels. 1, or 0 on failure (such as a kind mismatch). */
VX_API int CineActionSetConstant(CineAction *action, CineItem *item, unsigned int channel,
                                 double value);
VX_API int CineActionSetConstantInt(CineAction *action, CineItem *item, unsigned int channel,
                                    int value);
VX_API int CineActionSetConstantText(CineAction *action, CineItem *item, unsigned int channel,
                                     const char *value);
VX_API int CineActionSetConstantMatrix(CineAction *action, CineItem *item, unsigned int channel,
                                       const double *matrix);
VX_API int CineActionSetConstantObject(CineAction *action, CineItem *item, unsigned int channel,
                                       void *object);
/* Makes the entry hold the envelope, which the action takes over on success. A float envelope
 * goes to a float channel, an integer one to an integer channel. 1, or 0 on failure. */
VX_API int CineActionSetEnvelope(CineAction *action, CineItem *item, unsigned int channel,
                                 Envelope *env);
/* Sets the entry's state: 0 takes the entry out, 1 marks it removed, 2 makes it a constant of
 * the double at `extra` (null: the channel's default), 3 makes it hold the envelope `extra`
 * (taken over; null: a new envelope without keys). 1, or 0 on failure. */
VX_API int CineActionSetState(CineAction *action, CineItem *item, unsigned int channel, int state,
                              void *extra);
/* Copies the entry of (src, srcChannel) in `from` to (dst, dstChannel) in `to`: a constant is
 * converted to the destination channel's kind, an envelope is duplicated, a removed marker is
 * copied as such. Returns 1 when copied, 0 when `from` has no entry or on failure. */
VX_API int CineActionCopyChannel(CineAction *to, CineItem *dst, unsigned int dstChannel,
                                 CineAction *from, CineItem *src, unsigned int srcChannel,
                                 unsigned int flags);
/* Moves the live entry into `target` and takes it out of the action. With a null target, an
 * envelope goes to the next action of type 1 in the order (else "scene") and a constant to the
 * next action holding the channel (else "setup"). An envelope replaces whatever the target
 * held. Returns 1, or 0 when the action has no live entry or on failure. */
VX_API int CineActionMergeChannel(CineAction *action, CineAction *target, CineItem *item,
                                  unsigned int channel);
/* Takes the entries of the channel (or of every channel of the item) out of every action of
 * the item's scene, as one undoable edit. 1, or 0 on failure. */
VX_API int CineActionPurgeChannel(CineItem *item, unsigned int channel);
VX_API int CineActionPurgeItem(CineItem *item);
/* Copies every entry that `action` holds for `src` to the channel of the same name on `dst`,
 * into `target` (null: `action`). Returns 0 when the two items share no leading channel (or on
 * failure), else 1. */
VX_API int CineActionApplyItem(CineAction *target, CineAction *action, CineItem *dst, CineItem *src,
                               unsigned int flags);

VX_EXTERN_C_END

#endif
