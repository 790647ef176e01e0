/* Envelope evaluation: the value of an envelope at a time, the range of its values over a
 * span of time, and the end points of key tangent handles.
 *
 * Before the first key and after the last, the envelope's pre and post behaviours extend the
 * curve (reset, constant, repeat, oscillate, offset repeat, linear, none); between keys its
 * interpolation mode and the keys' slope and weight types shape it. Automatic slopes are
 * computed from the neighbouring keys and written back into the keys' slope fields.
 *
 * Threads: evaluation updates the envelope's lookup cache (and, after an edit, its lookup
 * index) and the keys' computed slopes, so an envelope must not be evaluated from two threads
 * at once, nor while it is edited. Evaluation never fails and allocates nothing, except that the
 * first lookup after an edit of a long envelope may build its lookup index (when that memory
 * cannot be had, lookups walk the keys instead). */
#ifndef VEXOR_ENV_EVAL_H
#define VEXOR_ENV_EVAL_H

#include "vexor/env.h"
#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The value of a float envelope at a time (seconds). 0.0 for an integer envelope, an envelope
 * without keys, or a null envelope. */
VX_API double EnvEvaluate(Envelope *env, double time);

/* The value of an integer envelope at a time: the value of the key at or before the time
 * (integer envelopes are stepped whatever their interpolation), extended by the behaviours,
 * truncated toward zero and clamped to the int range. 0 for a float envelope, an envelope
 * without keys, or a null envelope. */
VX_API int EnvEvaluateInt(Envelope *env, double time);

/* The least and greatest value the float envelope takes over the times from start to end (in
 * either order; an infinite end means that end of the time line, -33600000 or 33600000). The
 * true extremes, overshoot between keys and repeated cycles included; equal times evaluate
 * once. An integer, empty or null envelope gives 0.0 and 0.0. Either output may be null. */
VX_API void EnvBoundsValue(Envelope *env, double start, double end, double *min, double *max);

/* The integer form of EnvBoundsValue, for integer envelopes (a float one gives 0 and 0). */
VX_API void EnvBoundsValueInt(Envelope *env, double start, double end, int *min, int *max);

/* The end point of a key's tangent handle, for drawing and dragging it. Side 1 is the outgoing
 * handle, any other side the incoming one. The handle leaves the key's value on that side (its
 * own value on a key with a value break, else side 0's) along the side's slope, as long as the
 * side's weight; an automatic weight reaches a third of the way to the neighbouring key in
 * time. The key must belong to the envelope. The third argument is ignored. Either output may
 * be null; nothing is written when the envelope or the key is null. */
VX_API void EnvKeyGetHandle(Envelope *env, EnvKey *key, int unused, int side, double *time,
                            double *value);

VX_EXTERN_C_END

#endif
