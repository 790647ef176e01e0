#include "curves/env_reference.h"

#include <cmath>

#include <vexor/env.h>

namespace vx::test {

namespace {

constexpr double kTol = 0.0001;

double in_value(const RefKey &k) {
    return k.side[0].value;
}
double out_value(const RefKey &k) {
    return (k.flags & 0x1) != 0 ? k.side[1].value : k.side[0].value;
}
double active_value(const RefKey &k) {
    return (k.flags & 0x1) != 0 && (k.flags & 0x8) != 0 ? k.side[1].value : k.side[0].value;
}
const RefSide &slope_side(const RefKey &k, bool outgoing) {
    return k.side[outgoing && (k.flags & 0x2) != 0 ? 1 : 0];
}
const RefSide &weight_side(const RefKey &k, bool outgoing) {
    return k.side[outgoing && (k.flags & 0x4) != 0 ? 1 : 0];
}

double line(const RefKey &from, const RefKey &to) {
    return (in_value(to) - out_value(from)) / (to.time - from.time);
}

}  // namespace

RefCurve capture(Envelope *env) {
    RefCurve curve;
    curve.integer = EnvType(env) == 1;
    curve.pre = EnvPreBehavior(env);
    curve.post = EnvPostBehavior(env);
    curve.interpolation = EnvInterpolation(env);
    const EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        RefKey key{k->time, k->flags, {}};
        for (int s = 0; s < 2; ++s) {
            const EnvKeySide &side = k->side[s];
            key.side[s] = RefSide{side.flags, curve.integer ? side.value.i : side.value.f,
                                  side.slope, side.weight};
        }
        curve.keys.push_back(key);
    }
    return curve;
}

double ref_slope(const RefCurve &curve, std::size_t i, bool outgoing) {
    const std::vector<RefKey> &keys = curve.keys;
    const std::size_t n = keys.size();
    const RefKey &k = keys[i];
    const RefSide &side = slope_side(k, outgoing);
    const unsigned type = side.flags & 0xFF;
    const bool has_prev = i > 0;
    const bool has_next = i + 1 < n;
    switch (type) {
        case 0:
            return side.slope;
        case 2:
            return has_prev ? line(keys[i - 1], k) : 0.0;
        case 4:
            return has_next ? line(k, keys[i + 1]) : 0.0;
        case 1:
        case 16:
            if (has_prev && has_next) {
                const RefKey &p = keys[i - 1];
                const RefKey &nx = keys[i + 1];
                if (type == 16 && (std::fabs(in_value(k) - out_value(p)) < kTol ||
                                   std::fabs(out_value(k) - in_value(nx)) < kTol)) {
                    return 0.0;
                }
                return ((in_value(k) - out_value(p)) + (in_value(nx) - out_value(k))) /
                       (nx.time - p.time);
            }
            if (has_prev != has_next) {
                // An end key: its one segment a-b, and under offset repeat at both ends the
                // segment c-d across the wrap as well.
                const unsigned behavior = has_next ? curve.pre : curve.post;
                const RefKey &a = has_next ? k : keys[i - 1], &b = has_next ? keys[i + 1] : k;
                if (behavior == 1 || behavior == 3) return 0.0;
                if (behavior == 4) {
                    if ((has_next ? curve.post : curve.pre) != 4) {
                        return ref_slope(curve, has_next ? n - 1 : 0, false);
                    }
                    const RefKey &c = keys[has_next ? n - 2 : 0], &d = keys[has_next ? n - 1 : 1];
                    return ((in_value(b) - out_value(a)) + (in_value(d) - out_value(c))) /
                           ((b.time - a.time) + (d.time - c.time));
                }
                return line(a, b);
            }
            return 0.0;
        default:
            return 0.0;
    }
}

double ref_weight(const RefCurve &curve, std::size_t i, bool outgoing) {
    const RefKey &k = curve.keys[i];
    const RefSide &side = weight_side(k, outgoing);
    if ((side.flags & 0x100) != 0 && side.weight != 0.0) return side.weight;
    double span = 0.0;
    if (outgoing && i + 1 < curve.keys.size()) span = curve.keys[i + 1].time - k.time;
    if (!outgoing && i > 0) span = k.time - curve.keys[i - 1].time;
    const double w = span / 3.0;
    const double s = ref_slope(curve, i, outgoing);
    return s == 0.0 ? w : std::sqrt(w * w + (s * w) * (s * w));
}

RefPoint ref_handle(const RefCurve &curve, std::size_t i, int side) {
    const RefKey &k = curve.keys[i];
    const bool outgoing = side == 1;
    const double theta = std::atan(ref_slope(curve, i, outgoing));
    const double w = ref_weight(curve, i, outgoing);
    const double v = outgoing ? out_value(k) : in_value(k);
    if (outgoing) return RefPoint{k.time + w * std::cos(theta), v + w * std::sin(theta)};
    return RefPoint{k.time - w * std::cos(theta), v - w * std::sin(theta)};
}

double ref_value(const RefCurve &curve, double t) {
    const std::vector<RefKey> &keys = curve.keys;
    const std::size_t n = keys.size();
    if (n == 0) return 0.0;
    const RefKey &first = keys[0];
    const RefKey &last = keys[n - 1];
    double tt = t;
    double offset = 0.0;
    const bool before = first.time - t > kTol;
    if (before || t - last.time > kTol) {
        const unsigned behavior = before ? curve.pre : curve.post;
        const RefKey &end = before ? first : last;
        const double end_value = before ? in_value(first) : out_value(last);
        switch (behavior) {
            case 0:
                return 0.0;
            case 1:
            case 6:
                return end_value;
            case 2:
            case 3:
            case 4: {
                const double span = last.time - first.time;
                if (span == 0.0) return out_value(last);
                double whole;
                const double f = std::modf(std::fabs(t - end.time) / span, &whole);
                const double cycles = whole + 1.0;
                // Odd cycles of an oscillation run backwards: read from the near end inward.
                const bool mirrored = behavior == 3 && static_cast<long long>(cycles) % 2 == 1;
                tt = before == mirrored ? first.time + span * f : last.time - span * f;
                if (behavior == 4) {
                    offset = (before ? -cycles : cycles) * (out_value(last) - in_value(first));
                }
                break;
            }
            case 5:
                if (curve.integer) return end_value;
                return end_value + ref_slope(curve, before ? 0 : n - 1, false) * (t - end.time);
            default:
                break;
        }
    }

    // The last key not later than the time by more than the tolerance.
    std::size_t count = 0;
    while (count < n && keys[count].time - tt <= kTol) ++count;
    if (count == 0) return active_value(first) + offset;
    const std::size_t ki = count - 1;
    const RefKey &k = keys[ki];
    if (curve.integer || std::fabs(tt - k.time) < kTol || count == n) {
        return active_value(k) + offset;
    }
    const RefKey &nk = keys[count];
    if (curve.interpolation == 2) return active_value(k) + offset;
    const unsigned k_type = slope_side(k, true).flags & 0xFF;
    const unsigned n_type = nk.side[0].flags & 0xFF;
    const double y0 = out_value(k);
    const double y1 = in_value(nk);
    if (curve.interpolation == 1 || (k_type == 4 && n_type == 2)) {
        return y0 + (tt - k.time) * (y1 - y0) / (nk.time - k.time) + offset;
    }
    if (n_type == 32) return y0 + offset;
    const double s0 = ref_slope(curve, ki, true);
    const double s1 = ref_slope(curve, count, false);
    const double d = nk.time - k.time;
    if (((weight_side(k, true).flags | nk.side[0].flags) & 0x100) == 0) {
        const double u = (tt - k.time) / d;
        const double h0 = 2 * u * u * u - 3 * u * u + 1;
        const double h1 = -2 * u * u * u + 3 * u * u;
        const double h2 = u * u * u - 2 * u * u + u;
        const double h3 = u * u * u - u * u;
        return h0 * y0 + h1 * y1 + (h2 * s0 + h3 * s1) * d + offset;
    }
    // The weighted segment: a Bezier in (time, value), solved for the time by bisection.
    const double w0 = ref_weight(curve, ki, true);
    const double w1 = ref_weight(curve, count, false);
    const double a0 = std::atan(s0);
    const double a1 = std::atan(s1);
    const double p0x = k.time, p0y = y0;
    const double p1x = p0x + w0 * std::cos(a0), p1y = p0y + w0 * std::sin(a0);
    const double p3x = nk.time, p3y = y1;
    const double p2x = p3x - w1 * std::cos(a1), p2y = p3y - w1 * std::sin(a1);
    const double cx = 3 * (p1x - p0x), bx = 3 * (p2x - p1x) - cx, ax = p3x - p0x - cx - bx;
    const double cy = 3 * (p1y - p0y), by = 3 * (p2y - p1y) - cy, ay = p3y - p0y - cy - by;
    double low = 0.0, high = 1.0, mid = 0.5;
    do {
        mid = low + (high - low) * 0.5;
        if (tt < ((ax * mid + bx) * mid + cx) * mid + p0x) {
            high = mid;
        } else {
            low = mid;
        }
    } while (std::fabs(high - low) > 0.0001);
    return ((ay * mid + by) * mid + cy) * mid + p0y + offset;
}

int ref_value_int(const RefCurve &curve, double time) {
    return static_cast<int>(std::trunc(ref_value(curve, time)));
}

}  // namespace vx::test
