// A second, deliberately plain evaluator of envelopes for the tests: a copy of the keys in a
// vector, a linear search for the keys around a time, arctangent, cosine and sine for the
// handles, and the bisection written out step by step. It shares no code with the library, so
// the library's evaluation (with its caches, index and shortcuts) is checked against it.
#pragma once

#include <cstddef>
#include <vector>

#include <vexor/env.h>

namespace vx::test {

struct RefSide {
    unsigned flags;
    double value;
    double slope;
    double weight;
};

struct RefKey {
    double time;
    unsigned flags;
    RefSide side[2];
};

struct RefCurve {
    bool integer = false;
    unsigned pre = 1;
    unsigned post = 1;
    unsigned interpolation = 0;
    std::vector<RefKey> keys;
};

// A copy of an envelope's settings and keys (integer values widened to doubles).
RefCurve capture(Envelope *env);

// The value at a time: a float envelope's value, or an integer envelope's before truncation.
double ref_value(const RefCurve &curve, double time);
// An integer envelope's value.
int ref_value_int(const RefCurve &curve, double time);

// The slope of key i going out (outgoing) or coming in, its weight in that direction, and the
// end point of its handle on a side (1 outgoing, 0 incoming).
double ref_slope(const RefCurve &curve, std::size_t i, bool outgoing);
double ref_weight(const RefCurve &curve, std::size_t i, bool outgoing);
struct RefPoint {
    double time;
    double value;
};
RefPoint ref_handle(const RefCurve &curve, std::size_t i, int side);

}  // namespace vx::test
