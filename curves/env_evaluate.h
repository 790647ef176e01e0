// Envelope evaluation: the value of an envelope at a time, the range of values over a span, and
// the end points of tangent handles. The C functions in env_eval_api.cpp are thin wrappers.
//
// Evaluation reads the keys, writes automatic slopes back into them and updates the lookup
// cache (and, after an edit, may rebuild the lookup index); it allocates nothing else and
// cannot fail.
#pragma once

#include "curves/envelope.h"

namespace vx::env {

// The value of a float envelope at a time; 0.0 for an integer envelope or one without keys.
double evaluate(Envelope &env, double time) noexcept;
// The value of an integer envelope at a time; 0 for a float envelope or one without keys.
int evaluate_int(Envelope &env, double time) noexcept;

// The least and greatest value the curve takes over [start, end] (the times may come in either
// order). Analytic, not sampled: overshoot between keys and every repeated cycle are included.
// Equal times evaluate once. Outputs may be null.
void bounds_value(Envelope &env, double start, double end, double *min, double *max) noexcept;
void bounds_value_int(Envelope &env, double start, double end, int *min, int *max) noexcept;

// The end point of a key's tangent handle on a side (1 outgoing, anything else incoming).
struct HandlePoint {
    double time;
    double value;
};
HandlePoint handle_point(Envelope &env, EnvKey &key, int side) noexcept;

// The slope the evaluator uses for a key in one direction (outgoing or incoming), computed from
// its slope type and neighbours and written back into the key, as evaluation does.
double slope_for(Envelope &env, EnvKey &key, bool outgoing) noexcept;

// The parameter u at which the time cubic ((a·u + b)·u + c)·u + d of a weighted segment reaches
// `time`: [0, 1] halved fourteen times, keeping the lower half while the time is earlier than
// the cubic at the midpoint, and the last midpoint tried is the answer.
double bisect_cubic(double a, double b, double c, double d, double time) noexcept;
// The same, searching from a guess of u with a number of Newton steps before the halvings are
// checked (the answer does not depend on either, only the time taken). Also gives the time
// cubic's slope at the last Newton step (0 when there was none), for guessing the next search.
struct Solved {
    double u;
    double slope;
};
Solved bisect_cubic(double a, double b, double c, double d, double time, double guess,
                    int newton_steps) noexcept;

// A float converted to an integer value: truncated toward zero, clamped to the int range, NaN
// gives 0.
int to_int(double value) noexcept;

}  // namespace vx::env
