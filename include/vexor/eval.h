/* Evaluation: the value of an item's channel at a time, as an action sees it.
 *
 * An evaluator belongs to a scene. Give it an action of that scene and a time, then read
 * channels: a channel's value is the action's constant or envelope at the time (or what the
 * item's source item or the channel default give), passed through the modifiers that write the
 * channel (vexor/sys/modifier.h). Values are kept in caches, one per (action, time) in use.
 *
 * Shared evaluators (mode 0) share caches: an evaluator that asks for an action and time that
 * another one already has reuses that cache, and a free cache of the same action is re-timed
 * rather than rebuilt, which drops only the values that depend on the time. A private
 * evaluator (any other mode) has a cache of its own; mode 2 keeps its values in a map that
 * may be read by several threads while it is filled.
 *
 * Changing an action (its entries or the envelopes it holds) drops the values it affects from
 * every cache; items and packages that come and go make the modifiers be validated again at
 * the next evaluation.
 *
 * Threads: shared evaluators are used from the main thread. Each private evaluator may be used
 * from any one thread at a time, several of them at once, while the main thread evaluates.
 * Nobody may evaluate a scene while one of its actions or envelopes is edited. Destroying a
 * scene destroys its evaluators. */
#ifndef VEXOR_EVAL_H
#define VEXOR_EVAL_H

#include "vexor/cinema.h"
#include "vexor/env.h"
#include "vexor/export.h"
#include "vexor/sys/modifier.h"

VX_EXTERN_C_BEGIN

/* A modifier node made for a scene by its modifiers' factories. */
typedef struct CineModNode CineModNode;

/* Makes a shared evaluator (mode 0) on the scene; CineEvalCreateSpecial makes one of the
 * given mode, mode 1 being the same as 0. No action is set, the time is 0. Null for a null
 * scene or no memory. The caller destroys it with CineEvalDestroy, also after the scene is gone:
 * destroying a scene leaves its evaluators inert (their caches go with the scene), and every
 * call on an inert evaluator fails (its failure result, VxLastFailure VX_E_REFUSED) without
 * touching the scene; CineEvalAction answers null. Evaluators no host destroyed are freed by
 * CinemaShutdown, which makes every evaluator handle void. Drivers (CineEvalGetDriver) are not kept
 * alive this way: release them before destroying the scene. */
VX_API CineEval *CineEvalCreate(Cinema *scene);
VX_API CineEval *CineEvalCreateSpecial(Cinema *scene, unsigned int mode);
/* Destroys an evaluator, live or inert; a private one takes its cache with it. Null is
 * ignored. */
VX_API void CineEvalDestroy(CineEval *eval);
VX_API Cinema *CineEvalContext(CineEval *eval);

/* Sets the action to read through. An action of another scene (or null) is refused: nothing
 * changes and VxLastFailure reports VX_E_BADARG. */
VX_API void CineEvalSetAction(CineEval *eval, CineAction *action);
VX_API CineAction *CineEvalAction(CineEval *eval);
/* Sets the time (seconds). A time within 0.0001 of the current one is the same time: nothing
 * changes and the cached values stay. A time that is not finite is refused (VX_E_BADARG). */
VX_API void CineEvalSetTime(CineEval *eval, double time);
VX_API double CineEvalTime(CineEval *eval);
/* Kept for hosts that call it; it has no effect. */
VX_API void CineEvalSetIncremental(CineEval *eval, int flag);

/* The value of a channel. Reading without an action, an item of another scene or a channel out
 * of range gives 0 (VxLastFailure tells why). Integer reads round a floating value to the
 * nearest integer. */
VX_API double CineEvalChannel(CineEval *eval, CineItem *item, unsigned int channel);
VX_API int CineEvalChannelInt(CineEval *eval, CineItem *item, unsigned int channel);
/* The value of a channel whose value is an object: for a matrix channel 16 doubles row by row,
 * for other object channels the object; for floating and integer channels a pointer to the
 * value as a double; null for text channels. The pointer is owned by the evaluator's cache:
 * copy what it points to before the next call on any evaluator of the scene. Null on the
 * failures of CineEvalChannel. */
VX_API const void *CineEvalChannelVal(CineEval *eval, CineItem *item, unsigned int channel);

/* What the evaluator's action holds for a channel, ignoring modifiers and caches: the envelope
 * that governs it (or null), and its constant value as a value object (the source item's, or
 * the package default, when no action holds it) in the form of CineActionValueCust, for every
 * kind of channel. Both are owned by the action or the package and are read-only. */
VX_API Envelope *CineEvalRawChannelEnv(CineEval *eval, CineItem *item, unsigned int channel);
VX_API const void *CineEvalRawChannelVal(CineEval *eval, CineItem *item, unsigned int channel);

/* Gets the evaluator ready: validates the scene's modifiers, finds or makes its cache and, on
 * the main thread (the one whose CinemaStartup started the scene module), clears the scene's
 * in-flux state. Returns 1, or 0 on a failure (no action, no memory). */
VX_API int CinemaEvaluate(CineEval *eval);

/* Opens a baking bracket: until CineEvalEndBake the evaluator reads at the bake time and the
 * channels it reads count as baked (CineChannelIsBaked). Closing the bracket drops those values
 * from every cache of the scene, puts the evaluator back at its earlier time, and returns 1, or
 * 0 when a read inside the bracket failed or no bracket was open. */
VX_API void CineEvalBeginBake(CineEval *eval, double time);
VX_API int CineEvalEndBake(CineEval *eval);
/* 1 while a baking bracket of the item's scene holds the channel. */
VX_API int CineChannelIsBaked(CineItem *item, unsigned int channel);

/* A driver object on the cache the evaluator gets (as CinemaEvaluate does), for code that reads
 * many channels at one time: a component object of class "eval.cache" with the interface
 * CINE_EVAL_DRIVER_GUID, returned with one reference. It keeps its cache from being re-used
 * for another time while it lives, and must be released before the scene is destroyed. Null on
 * the failures of CinemaEvaluate. */
VX_API void *CineEvalGetDriver(CineEval *eval);

#define CINE_EVAL_DRIVER_GUID "{3D8E61A7-2B94-4F05-A6C3-9E17B04D58F2}"

typedef struct CineEvalDriverMethods {
    XObjectMethods base;
    /* The value of a channel in the driver's cache; 0 for an item of another scene or a
     * channel out of range. */
    double (*Channel)(void *obj, CineItem *item, unsigned int channel);
    double (*Time)(void *obj);
    CineAction *(*Action)(void *obj);
} CineEvalDriverMethods;

/* The scene's modifier nodes, in the order they run (valid after the last validation). */
VX_API unsigned int CinemaModNodeCount(Cinema *scene);
VX_API CineModNode *CinemaModNodeByIndex(Cinema *scene, unsigned int index);
/* "<server>:<item>:<index>". */
VX_API const char *CineModNodeName(CineModNode *node);
/* 1 when the node has no enable control, else bit 0 of its control's flags. */
VX_API int CineModIsEnabled(CineModNode *node);

VX_EXTERN_C_END

#endif
