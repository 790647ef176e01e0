// Envelope evaluation.
//
// A time outside the keyed range is first mapped by the envelope's pre or post behaviour: to a
// final value, or to a time inside the keys plus a value offset (the cycles of offset repeat).
// Inside the keys, the key at or before the time and the key after it (found through the
// lookup cache, else the lookup index) bound a segment whose shape comes from the interpolation
// mode and the slope and weight types of the two keys facing each other: held, straight,
// Hermite, or a cubic Bezier in time and value when either side carries a stored weight.
//
// Which side of a key serves a direction: a key's outgoing value is side 1's only with a value
// break, its outgoing slope type and slope side 1's only with a slope break, its outgoing weight
// type and weight side 1's only with a weight break; everything incoming is side 0's.
#include "curves/env_evaluate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "curves/env_index.h"
#include "foundation/maths.h"
#include "foundation/time.h"

namespace vx::env {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// ---- Sides and values ---------------------------------------------------------------------

inline int outgoing_value_side(const EnvKey &key) noexcept {
    return (key.flags & ENV_BREAK_VALUE) != 0 ? 1 : 0;
}
inline int active_side(const EnvKey &key) noexcept {
    constexpr std::uint32_t both = ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1;
    return (key.flags & both) == both ? 1 : 0;
}
inline int slope_side(const EnvKey &key, bool outgoing) noexcept {
    return outgoing && (key.flags & ENV_BREAK_SLOPE) != 0 ? 1 : 0;
}
inline int weight_side(const EnvKey &key, bool outgoing) noexcept {
    return outgoing && (key.flags & ENV_BREAK_WEIGHT) != 0 ? 1 : 0;
}

template <bool Int>
inline double side_value(const EnvKey &key, int side) noexcept {
    if constexpr (Int) {
        return static_cast<double>(key.side[side].value.i);
    } else {
        return key.side[side].value.f;
    }
}
template <bool Int>
inline double incoming(const EnvKey &key) noexcept {
    return side_value<Int>(key, 0);
}
template <bool Int>
inline double outgoing(const EnvKey &key) noexcept {
    return side_value<Int>(key, outgoing_value_side(key));
}
template <bool Int>
inline double active(const EnvKey &key) noexcept {
    return side_value<Int>(key, active_side(key));
}

inline std::uint32_t slope_type(const EnvKey &key, bool outgoing_side) noexcept {
    return key.side[slope_side(key, outgoing_side)].flags & kSlopeTypeMask;
}

// Keys stand at least the tolerance apart, so a zero denominator only comes from keys forced
// onto one time; their slope is taken as flat rather than infinite.
inline double ratio(double num, double den) noexcept {
    return den != 0.0 ? num / den : 0.0;
}

// ---- Slopes -------------------------------------------------------------------------------

template <bool Int>
double slope_of(Envelope &env, EnvKey &key, bool outgoing_side) noexcept;

template <bool Int>
double line_slope(const EnvKey &from, const EnvKey &to) noexcept {
    return ratio(incoming<Int>(to) - outgoing<Int>(from), to.time - from.time);
}

// Auto and auto flat at the first or last key (or a single one): the end key follows the
// behaviour at its end, flat where the curve holds or mirrors, continuing across the wrap where
// both ends offset-repeat. Out of line: playback is almost always between keys.
template <bool Int>
[[gnu::noinline]] double end_slope(Envelope &env, const EnvKey &key, const EnvKey *prev,
                                   const EnvKey *next) noexcept {
    if (next != nullptr) {  // the first key
        const std::uint32_t pre = env.pre_behavior;
        if (pre == ENV_BEHAVIOR_CONSTANT || pre == ENV_BEHAVIOR_OSCILLATE) return 0.0;
        if (pre != ENV_BEHAVIOR_OFFSET_REPEAT) return line_slope<Int>(key, *next);
        EnvKey *last = last_key(env);
        if (last == nullptr) return 0.0;
        if (env.post_behavior != ENV_BEHAVIOR_OFFSET_REPEAT)
            return slope_of<Int>(env, *last, false);
        const EnvKey *before_last = prev_key(last);
        if (before_last == nullptr) return 0.0;
        return ratio((incoming<Int>(*last) - outgoing<Int>(*before_last)) +
                         (incoming<Int>(*next) - outgoing<Int>(key)),
                     (next->time - key.time) + (last->time - before_last->time));
    }
    if (prev != nullptr) {  // the last key
        const std::uint32_t post = env.post_behavior;
        if (post == ENV_BEHAVIOR_CONSTANT || post == ENV_BEHAVIOR_OSCILLATE) return 0.0;
        if (post != ENV_BEHAVIOR_OFFSET_REPEAT) return line_slope<Int>(*prev, key);
        EnvKey *first = first_key(env);
        if (first == nullptr) return 0.0;
        if (env.pre_behavior != ENV_BEHAVIOR_OFFSET_REPEAT)
            return slope_of<Int>(env, *first, false);
        const EnvKey *after_first = next_key(first);
        if (after_first == nullptr) return 0.0;
        return ratio((incoming<Int>(key) - outgoing<Int>(*prev)) +
                         (incoming<Int>(*after_first) - outgoing<Int>(*first)),
                     (key.time - prev->time) + (after_first->time - first->time));
    }
    return 0.0;  // a single key
}

// Auto and auto flat: the mean rise over the two spans around the key.
template <bool Int>
inline double auto_slope(Envelope &env, const EnvKey &key, bool flat) noexcept {
    const EnvKey *prev = prev_key(&key);
    const EnvKey *next = next_key(&key);
    if (prev == nullptr || next == nullptr) return end_slope<Int>(env, key, prev, next);
    const double rise_in = incoming<Int>(key) - outgoing<Int>(*prev);
    const double rise_out = incoming<Int>(*next) - outgoing<Int>(key);
    if (flat && (std::fabs(rise_in) < kTolerance || std::fabs(rise_out) < kTolerance)) {
        return 0.0;
    }
    return ratio(rise_in + rise_out, next->time - prev->time);
}

// The slope of a key in a direction. Every type but manual is computed from the neighbours and
// written back into the slope field, so the stored slopes stay current for readers. A key
// without a slope break gets the slope on both sides: per-side readers of a key broken in value
// or weight only still see the slope the curve uses.
template <bool Int>
inline double slope_of(Envelope &env, EnvKey &key, bool outgoing_side) noexcept {
    const int side = slope_side(key, outgoing_side);
    EnvKeySide &record = key.side[side];
    double slope = 0.0;
    switch (record.flags & kSlopeTypeMask) {
        case ENV_SLOPE_MANUAL:
            return record.slope;
        case ENV_SLOPE_AUTO:
            slope = auto_slope<Int>(env, key, false);
            break;
        case ENV_SLOPE_AUTO_FLAT:
            slope = auto_slope<Int>(env, key, true);
            break;
        case ENV_SLOPE_LINEAR_IN:
            if (const EnvKey *prev = prev_key(&key)) slope = line_slope<Int>(*prev, key);
            break;
        case ENV_SLOPE_LINEAR_OUT:
            if (const EnvKey *next = next_key(&key)) slope = line_slope<Int>(key, *next);
            break;
        default:  // stepped and unknown types have no slope
            break;
    }
    record.slope = slope;
    if (side == 0 && (key.flags & ENV_BREAK_SLOPE) == 0) key.side[1].slope = slope;
    return slope;
}

// ---- Handles and the weighted segment -----------------------------------------------------

struct Vec2 {
    double x;
    double y;
};

// The offset from a key to the end of its tangent handle in one direction: the weight w along
// the direction θ = arctan(slope), w·(cos θ, sin θ). cos θ = 1/√(1+s²) and sin θ = s/√(1+s²)
// are used in that closed form. An automatic weight is √(u² + (s·u)²) with u a third of the
// span to the neighbour, so its handle is exactly (u, s·u).
Vec2 handle_offset(const EnvKeySide &side, double slope, double span) noexcept {
    if ((side.flags & ENV_WEIGHT_MANUAL) != 0 && side.weight != 0.0) {
        const double w = side.weight;
        const double a = std::fabs(slope);
        if (a > 1e150) return Vec2{w / a, std::copysign(w, slope)};  // s² would overflow
        const double r = std::sqrt(1.0 + slope * slope);
        return Vec2{w / r, w * slope / r};
    }
    const double u = span / 3.0;
    return Vec2{u, slope * u};
}

// A cubic Bezier from (K.time, yK) to (N.time, yN), written as two cubics in u.
struct Bezier {
    double ax, bx, cx, x0;
    double ay, by, cy, y0;

    double x(double u) const noexcept { return ((ax * u + bx) * u + cx) * u + x0; }
    double y(double u) const noexcept { return ((ay * u + by) * u + cy) * u + y0; }
};

Bezier make_bezier(Vec2 p0, Vec2 p1, Vec2 p2, Vec2 p3) noexcept {
    Bezier b{};
    b.cx = 3.0 * (p1.x - p0.x);
    b.bx = 3.0 * (p2.x - p1.x) - b.cx;
    b.ax = p3.x - p0.x - b.cx - b.bx;
    b.x0 = p0.x;
    b.cy = 3.0 * (p1.y - p0.y);
    b.by = 3.0 * (p2.y - p1.y) - b.cy;
    b.ay = p3.y - p0.y - b.cy - b.by;
    b.y0 = p0.y;
    return b;
}

inline double solve_time(const Bezier &b, double time) noexcept {
    return bisect_cubic(b.ax, b.bx, b.cx, b.x0, time);
}

// ---- Segments between two keys ------------------------------------------------------------

enum class Shape { held_active, held_outgoing, line, hermite, bezier };

// The shape of the segment from key K to key N of a float envelope.
inline Shape shape_of(const Envelope &env, const EnvKey &k, const EnvKey &n) noexcept {
    const std::uint32_t interpolation = env.interpolation;
    if (interpolation == ENV_INTERP_STEPPED) return Shape::held_active;
    const std::uint32_t n_type = slope_type(n, false);
    if (interpolation == ENV_INTERP_LINEAR ||
        (slope_type(k, true) == ENV_SLOPE_LINEAR_OUT && n_type == ENV_SLOPE_LINEAR_IN)) {
        return Shape::line;
    }
    if (n_type == ENV_SLOPE_STEPPED) return Shape::held_outgoing;
    const std::uint32_t weights = k.side[weight_side(k, true)].flags | n.side[0].flags;
    return (weights & ENV_WEIGHT_MANUAL) == 0 ? Shape::hermite : Shape::bezier;
}

inline double line_value(double time, double k_time, double d, double y0, double y1) noexcept {
    return y0 + (time - k_time) * (y1 - y0) / d;
}

inline double hermite_value(double u, double y0, double y1, double s0, double s1,
                            double d) noexcept {
    double h[4];
    Hermite(u, h);
    return h[0] * y0 + h[1] * y1 + (h[2] * s0 + h[3] * s1) * d;
}

// The Bezier of a weighted segment: from the key's outgoing value along its handle, to the next
// key's incoming value along its handle.
Bezier bezier_of(const EnvKey &k, const EnvKey &n, double s0, double s1) noexcept {
    const double d = n.time - k.time;
    const double y0 = outgoing<false>(k);
    const double y1 = incoming<false>(n);
    const Vec2 out = handle_offset(k.side[weight_side(k, true)], s0, d);
    const Vec2 in = handle_offset(n.side[0], s1, d);
    return make_bezier(Vec2{k.time, y0}, Vec2{k.time + out.x, y0 + out.y},
                       Vec2{n.time - in.x, y1 - in.y}, Vec2{n.time, y1});
}

// Where the search for u starts: during playback, one step on from where the same segment was
// solved last, along the time cubic's slope there (one Newton step finishes it); otherwise the
// time's place along the chord of the segment (two Newton steps). Neither waits for the handles.
[[gnu::noinline]] double bezier_value(Envelope &env, EnvKey &k, EnvKey &n, double time) noexcept {
    double guess;
    int steps;
    if (env.solved_key == &k && env.solved_edits == env.edits && env.solved_slope > 0.0) {
        guess = env.solved_u + (time - env.solved_time) / env.solved_slope;
        steps = 1;
    } else {
        guess = (time - k.time) / (n.time - k.time);
        steps = 2;
    }
    const Bezier b = bezier_of(k, n, slope_of<false>(env, k, true), slope_of<false>(env, n, false));
    const Solved solved = bisect_cubic(b.ax, b.bx, b.cx, b.x0, time, guess, steps);
    env.solved_key = &k;
    env.solved_edits = env.edits;
    env.solved_time = time;
    env.solved_u = solved.u;
    env.solved_slope = solved.slope;
    return b.y(solved.u);
}

// The segment most curves are made of, taken without the general dispatch: curve interpolation,
// two keys broken in nothing, automatic slopes without stored weights facing each other, and a
// key beyond each end. Everything is read from side 0 then, and the arithmetic is the general
// path's, operation for operation, so the value and the slopes written back are the same.
// False when the segment is not of that kind.
inline bool plain_auto_value(const Envelope &env, EnvKey &k, EnvKey &n, double time,
                             double &value) noexcept {
    constexpr std::uint32_t kBreaks = ENV_BREAK_VALUE | ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT;
    constexpr std::uint32_t kTypeAndWeight = kSlopeTypeMask | ENV_WEIGHT_MANUAL;
    if (env.interpolation == ENV_INTERP_LINEAR || env.interpolation == ENV_INTERP_STEPPED ||
        ((k.flags | n.flags) & kBreaks) != 0 ||
        (k.side[0].flags & kTypeAndWeight) != ENV_SLOPE_AUTO ||
        (n.side[0].flags & kTypeAndWeight) != ENV_SLOPE_AUTO) {
        return false;
    }
    const EnvKey *p = prev_key(&k);
    const EnvKey *after = next_key(&n);
    if (p == nullptr || after == nullptr || next_key(&k) != &n) return false;
    const double yk = k.side[0].value.f;
    const double yn = n.side[0].value.f;
    const double s0 = ratio((yk - outgoing<false>(*p)) + (yn - yk), n.time - p->time);
    const double s1 = ratio((yn - yk) + (after->side[0].value.f - yn), after->time - k.time);
    k.side[0].slope = k.side[1].slope = s0;
    n.side[0].slope = n.side[1].slope = s1;
    const double d = n.time - k.time;
    value = hermite_value((time - k.time) / d, yk, yn, s0, s1, d);
    return true;
}

// The value of the segment from K to N at a time strictly between them.
inline double segment_value(Envelope &env, EnvKey &k, EnvKey &n, double time) noexcept {
    if (double value; plain_auto_value(env, k, n, time, value)) return value;
    switch (shape_of(env, k, n)) {
        case Shape::held_active:
            return active<false>(k);
        case Shape::held_outgoing:
            return outgoing<false>(k);
        case Shape::line:
            return line_value(time, k.time, n.time - k.time, outgoing<false>(k),
                              incoming<false>(n));
        case Shape::hermite: {
            const double s0 = slope_of<false>(env, k, true);
            const double s1 = slope_of<false>(env, n, false);
            const double d = n.time - k.time;
            return hermite_value((time - k.time) / d, outgoing<false>(k), incoming<false>(n), s0,
                                 s1, d);
        }
        case Shape::bezier:
            return bezier_value(env, k, n, time);
    }
    return 0.0;
}

// A segment taken apart for the bounds: its shape and what that shape is made of.
struct Segment {
    Shape shape;
    double k_time;
    double d;
    double y0;
    double y1;
    double s0;
    double s1;
    Bezier bezier;

    double at(double time) const noexcept {
        switch (shape) {
            case Shape::held_active:
            case Shape::held_outgoing:
                return y0;
            case Shape::line:
                return line_value(time, k_time, d, y0, y1);
            case Shape::hermite:
                return hermite_value((time - k_time) / d, y0, y1, s0, s1, d);
            case Shape::bezier:
                return bezier.y(solve_time(bezier, time));
        }
        return y0;
    }
};

Segment make_segment(Envelope &env, EnvKey &k, EnvKey &n) noexcept {
    Segment seg{};
    seg.shape = shape_of(env, k, n);
    seg.k_time = k.time;
    seg.d = n.time - k.time;
    seg.y0 = seg.shape == Shape::held_active ? active<false>(k) : outgoing<false>(k);
    seg.y1 = incoming<false>(n);
    if (seg.shape == Shape::hermite || seg.shape == Shape::bezier) {
        seg.s0 = slope_of<false>(env, k, true);
        seg.s1 = slope_of<false>(env, n, false);
    }
    if (seg.shape == Shape::bezier) seg.bezier = bezier_of(k, n, seg.s0, seg.s1);
    return seg;
}

// ---- Lookup -------------------------------------------------------------------------------

// The key at or before the time and the key after it. Playback asks for nearby times in order
// (backwards too, when scrubbing or in the mirrored cycles of oscillate), so the cached pair or
// the pair one key either side answers almost every call; anything else goes to the index.
inline Found locate(Envelope &env, double time) noexcept {
    const double limit = time + kTolerance;
    EnvKey *key = env.lookup_key;
    if (key != nullptr) {
        if (key->time <= limit) {
            EnvKey *next = env.lookup_next;
            if (next == nullptr || next->time > limit) return Found{key, next};
            EnvKey *after = next_key(next);
            if (after == nullptr || after->time > limit) {
                env.lookup_key = next;
                env.lookup_next = after;
                return Found{next, after};
            }
        } else if (EnvKey *before = prev_key(key); before != nullptr && before->time <= limit) {
            env.lookup_key = before;
            env.lookup_next = key;
            return Found{before, key};
        }
    }
    return find_indexed(env, time);
}

// ---- Extension beyond the keys ------------------------------------------------------------

// A distance beyond the keys in spans, split into whole cycles and the fraction of the last.
struct Cycle {
    double fraction;
    double cycles;  // whole spans passed, plus one
    bool odd;       // whether `cycles` is odd
};

Cycle split_cycles(double spans) noexcept {
    if (spans >= 0.0 && spans < 0x1p52) {
        const auto whole = static_cast<std::int64_t>(spans);
        return Cycle{spans - static_cast<double>(whole), static_cast<double>(whole + 1),
                     (whole & 1) == 0};
    }
    // So far out that no fraction is left (or not a number at all).
    const double cycles = spans + 1.0;
    return Cycle{0.0, cycles, std::fmod(cycles, 2.0) == 1.0};
}

// Where a time outside the keys is read: a final value, or a time inside the keys and an
// offset to add.
struct Mapped {
    bool final;
    double value;
    double time;
    double offset;
};

template <bool Int>
Mapped extend(Envelope &env, EnvKey &first, EnvKey &last, double time) noexcept {
    if (first.time - time > kTolerance) {
        const std::uint32_t pre = env.pre_behavior;
        switch (pre) {
            case ENV_BEHAVIOR_RESET:
                return Mapped{true, 0.0, time, 0.0};
            case ENV_BEHAVIOR_CONSTANT:
            case ENV_BEHAVIOR_NONE:
                return Mapped{true, incoming<Int>(first), time, 0.0};
            case ENV_BEHAVIOR_REPEAT:
            case ENV_BEHAVIOR_OSCILLATE:
            case ENV_BEHAVIOR_OFFSET_REPEAT: {
                const double span = last.time - first.time;
                if (span == 0.0) return Mapped{true, outgoing<Int>(last), time, 0.0};
                const Cycle c = split_cycles((first.time - time) / span);
                if (pre == ENV_BEHAVIOR_OFFSET_REPEAT) {
                    return Mapped{false, 0.0, last.time - span * c.fraction,
                                  -(outgoing<Int>(last) - incoming<Int>(first)) * c.cycles};
                }
                if (pre == ENV_BEHAVIOR_OSCILLATE && c.odd) {
                    return Mapped{false, 0.0, first.time + span * c.fraction, 0.0};
                }
                return Mapped{false, 0.0, last.time - span * c.fraction, 0.0};
            }
            case ENV_BEHAVIOR_LINEAR: {
                if constexpr (Int) {
                    return Mapped{true, incoming<Int>(first), time, 0.0};
                } else {
                    const double slope = slope_of<Int>(env, first, false);
                    return Mapped{true, incoming<Int>(first) - slope * (first.time - time), time,
                                  0.0};
                }
            }
            default:
                break;
        }
    } else if (time - last.time > kTolerance) {
        const std::uint32_t post = env.post_behavior;
        switch (post) {
            case ENV_BEHAVIOR_RESET:
                return Mapped{true, 0.0, time, 0.0};
            case ENV_BEHAVIOR_CONSTANT:
            case ENV_BEHAVIOR_NONE:
                return Mapped{true, outgoing<Int>(last), time, 0.0};
            case ENV_BEHAVIOR_REPEAT:
            case ENV_BEHAVIOR_OSCILLATE:
            case ENV_BEHAVIOR_OFFSET_REPEAT: {
                const double span = last.time - first.time;
                if (span == 0.0) return Mapped{true, outgoing<Int>(last), time, 0.0};
                const Cycle c = split_cycles((time - last.time) / span);
                const double into = c.fraction * span;
                if (post == ENV_BEHAVIOR_OFFSET_REPEAT) {
                    return Mapped{false, 0.0, first.time + into,
                                  (outgoing<Int>(last) - incoming<Int>(first)) * c.cycles};
                }
                if (post == ENV_BEHAVIOR_OSCILLATE && c.odd) {
                    return Mapped{false, 0.0, last.time - into, 0.0};
                }
                return Mapped{false, 0.0, first.time + into, 0.0};
            }
            case ENV_BEHAVIOR_LINEAR: {
                if constexpr (Int) {
                    return Mapped{true, outgoing<Int>(last), time, 0.0};
                } else {
                    const double slope = slope_of<Int>(env, last, false);
                    return Mapped{true, outgoing<Int>(last) + slope * (time - last.time), time,
                                  0.0};
                }
            }
            default:
                break;
        }
    }
    return Mapped{false, 0.0, time, 0.0};
}

// ---- Evaluation from the index --------------------------------------------------------------

// A weighted segment's cubics, and the guess of its parameter at a time: interpolated through
// the parameters that the search finds at a third and two thirds of the span.
BezierData bezier_data(const Bezier &b, double span) noexcept {
    BezierData data{{b.ax, b.bx, b.cx}, {b.ay, b.by, b.cy}, {1.0, 0.0, 0.0}, 1.0 / span};
    const auto at = [&](double fraction) {
        return bisect_cubic(b.ax, b.bx, b.cx, b.x0, b.x0 + fraction * span, fraction, 2).u;
    };
    const double u1 = at(1.0 / 3.0);
    const double u2 = at(2.0 / 3.0);
    data.guess[0] = 3.0 * u1;
    data.guess[1] = 4.5 * (u2 - 2.0 * u1);
    data.guess[2] = 4.5 * (1.0 - 3.0 * (u2 - u1));
    return data;
}

// Fills the index's segments from the keys: the values, shapes and slopes (written back into
// the keys, as evaluating each segment would) or Bezier cubics that the segment's value is
// computed from, with the same arithmetic as from the keys.
template <bool Int>
void fill_segments(Envelope &env, LookupIndex &index) noexcept {
    const std::size_t count = index.count;
    for (std::size_t i = 0; i < count; ++i) {
        EnvKey &k = *index.keys[i];
        SegmentData &seg = index.segments[i];
        seg.k_time = index.times[i];
        seg.n_time = i + 1 < count ? index.times[i + 1] : kInf;
        seg.active = active<Int>(k);
        seg.start = seg.active;
        seg.shape = SegmentShape::held;
        if (Int || i + 1 == count) continue;
        EnvKey &n = *index.keys[i + 1];
        const Shape shape = shape_of(env, k, n);
        if (shape != Shape::held_active) seg.start = outgoing<Int>(k);
        switch (shape) {
            case Shape::held_active:
            case Shape::held_outgoing:
                break;
            case Shape::line:
                seg.shape = SegmentShape::line;
                seg.coef[0] = incoming<Int>(n);
                break;
            case Shape::hermite:
                seg.shape = SegmentShape::hermite;
                seg.coef[0] = incoming<Int>(n);
                seg.coef[1] = slope_of<Int>(env, k, true);
                seg.coef[2] = slope_of<Int>(env, n, false);
                break;
            case Shape::bezier: {
                seg.shape = SegmentShape::bezier;
                const Bezier b =
                    bezier_of(k, n, slope_of<Int>(env, k, true), slope_of<Int>(env, n, false));
                index.beziers[i] = bezier_data(b, seg.n_time - seg.k_time);
                break;
            }
        }
    }
}

// Whether the envelope's segments are current: filled from the keys as they are.
[[gnu::always_inline]] inline bool segments_current(const Envelope &env) noexcept {
    return env.eval_stamp == revision(env) + 1 && env.eval_loose == loose_key_writes();
}

// Brings the envelope's segments up to date (building the index first when it is not current);
// false when the envelope has no index (too few keys, or no memory for one), and evaluation
// reads the keys.
[[gnu::noinline]] bool fill_index(Envelope &env) noexcept {
    if (!index_current(env)) {
        if (env.index_skipped == revision(env) + 1 || !build_index(env)) return false;
    }
    LookupIndex &index = *env.index;
    if (env.type == kTypeInt) {
        fill_segments<true>(env, index);
    } else {
        fill_segments<false>(env, index);
    }
    env.eval_segments = index.segments;
    env.eval_count = index.count;
    env.eval_cursor = 0;
    env.eval_loose = loose_key_writes();
    env.eval_stamp = revision(env) + 1;
    return true;
}

[[gnu::always_inline]] inline bool segments_ready(Envelope &env) noexcept {
    return segments_current(env) || fill_index(env);
}

// The weighted segment from key i of the index at a time inside it. The search for u starts
// where bezier_value's does during playback (one Newton step from there), else from the
// segment's guess.
[[gnu::noinline]] double indexed_bezier(Envelope &env, std::size_t i, double time) noexcept {
    const LookupIndex &index = *env.index;
    const SegmentData &seg = index.segments[i];
    const BezierData &b = index.beziers[i];
    const EnvKey *k = index.keys[i];
    const std::uint64_t stamp = revision(env);
    Solved solved;
    if (env.solved_key == k && env.solved_edits == stamp && env.solved_slope > 0.0) {
        const double guess = env.solved_u + (time - env.solved_time) / env.solved_slope;
        solved = bisect_cubic(b.x[0], b.x[1], b.x[2], seg.k_time, time, guess, 1);
    } else {
        // One Halley step from the segment's guess: its error cubed, where a Newton step
        // would leave it squared.
        const double f = (time - seg.k_time) * b.inverse_span;
        double u = f * (b.guess[0] + (f - 1.0 / 3.0) * (b.guess[1] + (f - 2.0 / 3.0) * b.guess[2]));
        u = u > 0.0 ? (u < 1.0 ? u : 1.0) : 0.0;  // also turns NaN into 0
        const double miss = ((b.x[0] * u + b.x[1]) * u + b.x[2]) * u + seg.k_time - time;
        const double slope = (3.0 * b.x[0] * u + 2.0 * b.x[1]) * u + b.x[2];
        const double bend = 6.0 * b.x[0] * u + 2.0 * b.x[1];
        const double denominator = 2.0 * slope * slope - miss * bend;
        if (slope > 0.0 && denominator > 0.0) u -= 2.0 * miss * slope / denominator;
        solved = bisect_cubic(b.x[0], b.x[1], b.x[2], seg.k_time, time, u, 0);
        solved.slope = slope;
    }
    env.solved_key = k;
    env.solved_edits = stamp;
    env.solved_time = time;
    env.solved_u = solved.u;
    env.solved_slope = solved.slope;
    const double u = solved.u;
    return ((b.y[0] * u + b.y[1]) * u + b.y[2]) * u + seg.start;
}

// The curve from the segments at a time whose place among the keys is known: `at` keys are not
// later than it by more than the tolerance. Answers as keyed_value does from the keys.
template <bool Int>
[[gnu::always_inline]] inline double value_at(Envelope &env, std::size_t at, double time) noexcept {
    const SegmentData *segments = env.eval_segments;
    if (at == 0) return segments[0].active;  // before the first key
    const SegmentData &seg = segments[at - 1];
    if constexpr (Int) {
        return seg.active;
    } else {
        // After the last key, n_time is infinite and the segment holds the key's value.
        const double k_time = seg.k_time;
        if (time - k_time < kTolerance) return seg.active;
        const double d = seg.n_time - k_time;
        switch (seg.shape) {
            case SegmentShape::held:
                return seg.start;
            case SegmentShape::line:
                return line_value(time, k_time, d, seg.start, seg.coef[0]);
            case SegmentShape::hermite:
                return hermite_value((time - k_time) / d, seg.start, seg.coef[0], seg.coef[1],
                                     seg.coef[2], d);
            case SegmentShape::bezier:
                return indexed_bezier(env, at - 1, time);
        }
        return seg.start;
    }
}

// Whether the segment of key at - 1 holds the time (the limit is the time plus the tolerance):
// the time's place among the keys is `at`. Playback asks for the same segment again, or the
// next, almost every time.
[[gnu::always_inline]] inline bool place_holds(const Envelope &env, std::size_t at,
                                               double limit) noexcept {
    if (at == 0) return env.eval_count == 0 || env.eval_segments[0].k_time > limit;
    const SegmentData &seg = env.eval_segments[at - 1];
    return seg.k_time <= limit && seg.n_time > limit;
}

// The curve at a time inside the keys (or mapped into them), from the segments: the segment of
// the last call or the next, else the one the index finds.
template <bool Int>
inline double indexed_value(Envelope &env, double time) noexcept {
    const double limit = time + kTolerance;
    std::size_t at = env.eval_cursor;
    if (!place_holds(env, at, limit)) {
        at = at < env.eval_count && place_holds(env, at + 1, limit)
                 ? at + 1
                 : keys_not_later(*env.index, limit);
        env.eval_cursor = at;
        // The lookup cache follows the cursor: it holds the keys around the last time
        // evaluated whenever the cursor does.
        if (at > 0) {
            const LookupIndex &index = *env.index;
            env.lookup_key = index.keys[at - 1];
            env.lookup_next = at < index.count ? index.keys[at] : nullptr;
        }
    }
    return value_at<Int>(env, at, time);
}

// ---- Evaluation ---------------------------------------------------------------------------

// The curve at a time inside the keys (or a time no behaviour maps), without any offset.
// Integer envelopes hold each key's value up to the next key.
//
// The key found lies no more than the tolerance after the time, so "within the tolerance of the
// key" only needs checking on the later side. That also gives the key's value at exactly the
// tolerance before it, where a strict two-sided test would read the segment after the key
// backwards, outside its span, for that one instant.
template <bool Int>
inline double keyed_value(Envelope &env, double time) noexcept {
    if (segments_ready(env)) return indexed_value<Int>(env, time);
    const Found found = locate(env, time);
    EnvKey *k = found.at_or_before;
    EnvKey *n = found.after;
    if (k == nullptr) return n != nullptr ? active<Int>(*n) : 0.0;  // before the first key
    if constexpr (Int) {
        return active<Int>(*k);
    } else {
        if (n == nullptr || time - k->time < kTolerance) return active<Int>(*k);
        return segment_value(env, *k, *n, time);
    }
}

// The value before the integer conversion. Callers have checked the type and that there are
// keys.
template <bool Int>
inline double value_of_curve(Envelope &env, double time) noexcept {
    EnvKey *first = first_key(env);
    EnvKey *last = last_key(env);
    if (first == nullptr || last == nullptr) return 0.0;
    const Mapped m = extend<Int>(env, *first, *last, time);
    if (m.final) return m.value;
    return keyed_value<Int>(env, m.time) + m.offset;
}

template <bool Int>
bool evaluable(const Envelope &env) noexcept {
    return env.type == (Int ? kTypeInt : kTypeFloat) && !is_empty(env);
}

// ---- Bounds -------------------------------------------------------------------------------

struct Range {
    double lo = kInf;
    double hi = -kInf;

    void add(double v) noexcept {  // a NaN is not a value the curve takes
        if (v < lo) lo = v;
        if (v > hi) hi = v;
    }
    void add(const Range &r, double offset) noexcept {
        if (r.lo <= r.hi) {
            add(r.lo + offset);
            add(r.hi + offset);
        }
    }
};

// The real roots of a·u² + b·u + c, in any order; returns how many.
int quadratic_roots(double a, double b, double c, double roots[2]) noexcept {
    if (a == 0.0) {
        if (b == 0.0) return 0;
        roots[0] = -c / b;
        return 1;
    }
    const double disc = b * b - 4.0 * a * c;
    if (disc < 0.0) return 0;
    const double q = -0.5 * (b + std::copysign(std::sqrt(disc), b));
    roots[0] = q / a;
    if (q == 0.0) return 1;  // b and c both zero: a double root at 0
    roots[1] = c / q;
    return 2;
}

// The range of one segment over [ta, tb], a part of its open interval (K.time, N.time).
// Hermite segments are cubics in time, so their extremes are the ends and the roots of the
// derivative. A Bezier segment is read through the bisection in time; its extremes are taken
// as the ends and the points where the value cubic turns, at their parameter u, kept when the
// time cubic puts them inside [ta, tb]. Where the time cubic rises throughout (every handle
// that does not reach past the other key), that is exact; where handles cross and the time
// cubic folds back, the turning points are kept by their time alone.
void segment_range(const Segment &seg, double ta, double tb, Range &r) noexcept {
    r.add(seg.at(ta));
    r.add(seg.at(tb));
    double roots[2];
    if (seg.shape == Shape::hermite) {
        const double a = 2.0 * seg.y0 - 2.0 * seg.y1 + (seg.s0 + seg.s1) * seg.d;
        const double b = -3.0 * seg.y0 + 3.0 * seg.y1 - (2.0 * seg.s0 + seg.s1) * seg.d;
        const double c = seg.s0 * seg.d;
        const double ua = (ta - seg.k_time) / seg.d;
        const double ub = (tb - seg.k_time) / seg.d;
        const int count = quadratic_roots(3.0 * a, 2.0 * b, c, roots);
        for (int i = 0; i < count; ++i) {
            if (roots[i] > ua && roots[i] < ub)
                r.add(hermite_value(roots[i], seg.y0, seg.y1, seg.s0, seg.s1, seg.d));
        }
    } else if (seg.shape == Shape::bezier) {
        const Bezier &bz = seg.bezier;
        const int count = quadratic_roots(3.0 * bz.ay, 2.0 * bz.by, bz.cy, roots);
        for (int i = 0; i < count; ++i) {
            const double u = roots[i];
            if (!(u > 0.0 && u < 1.0)) continue;
            const double t = bz.x(u);
            if (t >= ta && t <= tb) r.add(bz.y(u));
        }
    }
}

// The range of the curve over [ta, tb] read without any behaviour (the times as they stand):
// each key's value where the time is within the tolerance of it, each segment between, the
// first key's value before the keys and the last key's after them.
template <bool Int>
Range keyed_range(Envelope &env, double ta, double tb) noexcept {
    Range r;
    r.add(keyed_value<Int>(env, ta));
    r.add(keyed_value<Int>(env, tb));
    EnvKey *k = locate(env, ta).at_or_before;
    if (k == nullptr) k = first_key(env);
    for (; k != nullptr; k = next_key(k)) {
        if (k->time - kTolerance <= tb && k->time + kTolerance > ta) r.add(active<Int>(*k));
        EnvKey *n = next_key(k);
        if (n == nullptr) break;
        if constexpr (Int) {
            // Held: the key's value until the next key.
            if (n->time - kTolerance > ta && k->time + kTolerance < tb) r.add(active<Int>(*k));
        } else {
            const double sa = std::max(ta, k->time + kTolerance);
            const double sb = std::min(tb, n->time - kTolerance);
            if (sa <= sb) segment_range(make_segment(env, *k, *n), sa, sb, r);
        }
        if (n->time - kTolerance >= tb) break;
    }
    return r;
}

// The range over the part [ta, tb] of the time line before the first key (before) or after the
// last key (after), under that end's behaviour.
template <bool Int>
void extension_range(Envelope &env, bool before, double ta, double tb, Range &r) noexcept {
    EnvKey *first_ptr = first_key(env);
    EnvKey *last_ptr = last_key(env);
    if (first_ptr == nullptr || last_ptr == nullptr) return;
    EnvKey &first = *first_ptr;
    EnvKey &last = *last_ptr;
    const std::uint32_t behavior = before ? env.pre_behavior : env.post_behavior;
    switch (behavior) {
        case ENV_BEHAVIOR_RESET:
            r.add(0.0);
            return;
        case ENV_BEHAVIOR_CONSTANT:
        case ENV_BEHAVIOR_NONE:
            r.add(before ? incoming<Int>(first) : outgoing<Int>(last));
            return;
        case ENV_BEHAVIOR_LINEAR:
            // A straight line: its ends. Integer envelopes hold the end key's value.
            r.add(value_of_curve<Int>(env, ta));
            r.add(value_of_curve<Int>(env, tb));
            return;
        case ENV_BEHAVIOR_REPEAT:
        case ENV_BEHAVIOR_OSCILLATE:
        case ENV_BEHAVIOR_OFFSET_REPEAT:
            break;
        default:
            r.add(keyed_range<Int>(env, ta, tb), 0.0);
            return;
    }
    const double span = last.time - first.time;
    if (span == 0.0) {
        r.add(outgoing<Int>(last));
        return;
    }
    // Cycle i covers distances [i·span, (i+1)·span] from the keys; within it, the distance
    // past the cycle's start maps into the keys (backwards from the far end when repeating,
    // forwards from the near end in a mirrored cycle of oscillate) and the value is offset by
    // i + 1 times the rise of the keys in offset repeat.
    const double rise = outgoing<Int>(last) - incoming<Int>(first);
    const auto distance = [&](double t) { return before ? first.time - t : t - last.time; };
    const auto offset = [&](double i) {
        if (behavior != ENV_BEHAVIOR_OFFSET_REPEAT) return 0.0;
        return (before ? -rise : rise) * (i + 1.0);
    };
    const auto mirrored = [&](double i) {
        return behavior == ENV_BEHAVIOR_OSCILLATE && std::fmod(i, 2.0) == 0.0;
    };
    const auto map = [&](double into, double i) {
        into = std::clamp(into, 0.0, span);
        if (before != mirrored(i)) return last.time - into;
        return first.time + into;
    };
    const double d_near = distance(before ? tb : ta);
    const double d_far = distance(before ? ta : tb);
    const double i_near = std::floor(d_near / span);
    const double i_far = std::floor(d_far / span);
    const auto partial = [&](double i, double d0, double d1) {
        d0 = std::max(d0, i * span);
        d1 = std::min(d1, (i + 1.0) * span);
        if (d0 > d1) return;
        const double t0 = map(d0 - i * span, i);
        const double t1 = map(d1 - i * span, i);
        r.add(keyed_range<Int>(env, std::min(t0, t1), std::max(t0, t1)), offset(i));
    };
    partial(i_near, d_near, d_far);
    if (i_far != i_near) partial(i_far, d_near, d_far);
    if (i_far - i_near >= 2.0) {
        // Whole cycles between: all of the keys, at the least and greatest offset.
        const Range whole = keyed_range<Int>(env, first.time, last.time);
        r.add(whole, offset(i_near + 1.0));
        r.add(whole, offset(i_far - 1.0));
    }
}

template <bool Int>
Range curve_range(Envelope &env, double start, double end) noexcept {
    Range r;
    if (!evaluable<Int>(env)) {
        r.add(0.0);
        return r;
    }
    if (std::isnan(start) || std::isnan(end) || start == end) {
        r.add(value_of_curve<Int>(env, start));
        return r;
    }
    if (end < start) std::swap(start, end);
    // An unbounded span means the whole time line.
    if (start == -kInf) start = std::min(kTimeLineStart, end);
    if (end == kInf) end = std::max(kTimeLineEnd, start);
    r.add(value_of_curve<Int>(env, start));
    r.add(value_of_curve<Int>(env, end));

    const EnvKey *front = first_key(env);
    const EnvKey *back = last_key(env);
    if (front == nullptr || back == nullptr) return r;
    const double first = front->time;
    const double last = back->time;
    // Times earlier than the first key by more than the tolerance are the pre behaviour's,
    // times later than the last by more than it the post behaviour's; the rest read the keys.
    if (start < first - kTolerance) {
        // Only times earlier than the first key by more than the tolerance belong to the pre
        // behaviour, so its part of the span ends just short of that distance (and the post
        // behaviour's part starts just past it).
        const double pre_end = std::nextafter(first - kTolerance, -kInf);
        extension_range<Int>(env, true, start, std::min(end, pre_end), r);
    }
    const double ka = std::max(start, first - kTolerance);
    const double kb = std::min(end, last + kTolerance);
    if (ka <= kb) r.add(keyed_range<Int>(env, ka, kb), 0.0);
    if (end > last + kTolerance) {
        const double post_start = std::nextafter(last + kTolerance, kInf);
        extension_range<Int>(env, false, std::max(start, post_start), end, r);
    }
    if (!(r.lo <= r.hi)) r.lo = r.hi = value_of_curve<Int>(env, start);  // values not numbers
    return r;
}

template <bool Int>
HandlePoint handle_of(Envelope &env, EnvKey &key, int side) noexcept {
    const bool out = side == 1;
    const double slope = slope_of<Int>(env, key, out);
    double span = 0.0;
    if (out) {
        if (const EnvKey *next = next_key(&key)) span = next->time - key.time;
    } else if (const EnvKey *prev = prev_key(&key)) {
        span = key.time - prev->time;
    }
    const Vec2 h = handle_offset(key.side[weight_side(key, out)], slope, span);
    if (out) return HandlePoint{key.time + h.x, outgoing<Int>(key) + h.y};
    return HandlePoint{key.time - h.x, incoming<Int>(key) - h.y};
}

}  // namespace

// The bisection of a weighted segment. Halving [0, 1] until it is no wider than 0.0001 takes
// fourteen steps: step k tries the midpoint (2J + 1)/2^k of the bracket [J/2^k, (J + 1)/2^k]
// left by the steps before, keeps the lower half when the time is earlier than the cubic there
// (J becomes 2J) and the upper half otherwise (2J + 1), and the answer is the midpoint tried
// by the fourteenth step, (2·J13 + 1)/2^14.
//
// Done one step after another, each step waits for the cubic at the step before it. Instead, a
// root of x(u) = time found by Newton's method names the bracket the steps should arrive at
// after thirteen steps, J13 = floor(u·2^13); that names every midpoint on the way, and the
// thirteen comparisons at those midpoints are made together. Where each comparison agrees with
// the way the path turns, that is the path the steps take, comparison for comparison. At the
// first step where one disagrees, the steps turn the other way, and from there they are taken
// one at a time. Either way every step turns exactly as it does when halving one step after
// another, so the answer is the same whatever the cubic (it need not rise everywhere); the
// guess only decides how many comparisons are made in parallel.
constexpr int kHalvings = 14;
static_assert(1.0 / 8192.0 > 0.0001 && 1.0 / 16384.0 <= 0.0001);

namespace {
// 2^-k for the steps k = 0 ... 14.
constexpr auto kStepWidth = [] {
    std::array<double, kHalvings + 1> width{};
    double w = 1.0;
    for (double &entry : width) {
        entry = w;
        w *= 0.5;
    }
    return width;
}();
}  // namespace

double bisect_cubic(double a, double b, double c, double d, double time) noexcept {
    return bisect_cubic(a, b, c, d, time, (time - d) / (a + b + c), 2).u;
}

Solved bisect_cubic(double a, double b, double c, double d, double time, double guess,
                    int newton_steps) noexcept {
    const auto x = [&](double u) { return ((a * u + b) * u + c) * u + d; };
    constexpr int kPathSteps = kHalvings - 1;
    constexpr double kPathCells = 8192.0;  // 2^13

    // A root to aim at: Newton steps from the guess, kept inside [0, 1].
    double u = guess;
    double slope = 0.0;
    for (int i = 0; i < newton_steps; ++i) {
        u = u > 0.0 ? (u < 1.0 ? u : 1.0) : 0.0;  // also turns NaN into 0
        slope = (3.0 * a * u + 2.0 * b) * u + c;
        if (slope > 0.0) u -= (x(u) - time) / slope;
    }
    u = u > 0.0 ? u : 0.0;
    const double cell = u * kPathCells;
    const std::uint32_t target =
        cell < kPathCells - 1.0 ? static_cast<std::uint32_t>(cell) : std::uint32_t{8191};

    // Compare at every midpoint of the path to `target`. Bit 12 of `target` is the turn of the
    // first step (0: lower half), bit 0 that of the thirteenth; `turned` collects the actual
    // turns in the same places.
    std::uint32_t turned = 0;
    for (int k = 1; k <= kPathSteps; ++k) {
        const std::uint32_t before = target >> (kPathSteps + 1 - k);  // J after step k - 1
        const double mid =
            static_cast<double>(2 * before + 1) * kStepWidth[static_cast<std::size_t>(k)];
        turned |= (time < x(mid) ? 0u : 1u) << (kPathSteps - k);
    }
    const std::uint32_t disagree = turned ^ target;
    std::uint32_t j = target;
    if (disagree != 0) {
        // The first disagreeing step (the highest bit) turned the other way; go on from there.
        const int first = kPathSteps - (static_cast<int>(std::bit_width(disagree)) - 1);
        j = (target >> (kPathSteps - first)) ^ 1u;
        for (int k = first + 1; k <= kPathSteps; ++k) {
            const double mid =
                static_cast<double>(2 * j + 1) * kStepWidth[static_cast<std::size_t>(k)];
            j = 2 * j + (time < x(mid) ? 0u : 1u);
        }
    }
    return Solved{static_cast<double>(2 * j + 1) * kStepWidth[kHalvings], slope};
}

int to_int(double value) noexcept {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<int>::max();
    if (value <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// Times inside the keys go straight to the segments when the envelope has them (it then has
// keys); the rest are mapped by the behaviours first. A time inside the segment of the last
// time evaluated is inside the keys: playback needs no other test.
template <bool Int>
inline double evaluate_curve(Envelope &env, double time) noexcept {
    if (env.type != (Int ? kTypeInt : kTypeFloat)) return 0.0;
    if (segments_ready(env)) {
        const double limit = time + kTolerance;
        const std::size_t at = env.eval_cursor;
        const SegmentData *segments = env.eval_segments;
        if (at - 1 < env.eval_count - 1 && segments[at - 1].k_time <= limit &&
            segments[at - 1].n_time > limit) {
            return value_at<Int>(env, at, time);
        }
        const double first = segments[0].k_time;
        const double last = segments[env.eval_count - 1].k_time;
        if (!(first - time > kTolerance) && !(time - last > kTolerance)) {
            return indexed_value<Int>(env, time);
        }
    } else if (is_empty(env)) {
        return 0.0;
    }
    return value_of_curve<Int>(env, time);
}

double evaluate(Envelope &env, double time) noexcept {
    return evaluate_curve<false>(env, time);
}

int evaluate_int(Envelope &env, double time) noexcept {
    if (env.type != kTypeInt) return 0;
    return to_int(evaluate_curve<true>(env, time));
}

void bounds_value(Envelope &env, double start, double end, double *min, double *max) noexcept {
    const Range r = curve_range<false>(env, start, end);
    if (min != nullptr) *min = r.lo;
    if (max != nullptr) *max = r.hi;
}

void bounds_value_int(Envelope &env, double start, double end, int *min, int *max) noexcept {
    const Range r = curve_range<true>(env, start, end);
    // Truncation keeps order, so the bounds of the truncated values are the truncated bounds.
    if (min != nullptr) *min = to_int(r.lo);
    if (max != nullptr) *max = to_int(r.hi);
}

HandlePoint handle_point(Envelope &env, EnvKey &key, int side) noexcept {
    if (env.type == kTypeInt) return handle_of<true>(env, key, side);
    return handle_of<false>(env, key, side);
}

double slope_for(Envelope &env, EnvKey &key, bool outgoing_side) noexcept {
    if (env.type == kTypeInt) return slope_of<true>(env, key, outgoing_side);
    return slope_of<false>(env, key, outgoing_side);
}

}  // namespace vx::env
