// Envelope evaluation: the gallery's worked-out values, agreement with the plain evaluator of
// env_reference.cpp on the gallery and on random curves, the lookup index, exact value bounds,
// tangent handles, and the weighted-segment bisection.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/undo.h>

#include "curves/env_evaluate.h"
#include "curves/env_gallery.h"
#include "curves/env_index.h"
#include "curves/env_reference.h"
#include "curves/envelope.h"
#include "support/alloc_injection.h"

namespace vx::test {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct Owned {
    explicit Owned(Envelope *e) : env(e) {}
    ~Owned() { EnvDestroyNoUndo(env); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    Envelope *env;
};

double value_at(Envelope *env, double t) {
    return EnvType(env) == 1 ? EnvEvaluateInt(env, t) : EnvEvaluate(env, t);
}

double reference_at(const RefCurve &ref, double t) {
    return ref.integer ? ref_value_int(ref, t) : ref_value(ref, t);
}

bool close(double a, double b, double tolerance = 1e-9) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::fabs(a - b) <= tolerance * std::max(1.0, std::fabs(b));
}

// Times that cover a curve and the cycles either side: a grid that avoids the dyadic times
// where a weighted segment's bisection could tie, and every key time mapped into each cycle.
std::vector<double> probe_times(const RefCurve &ref) {
    std::vector<double> times;
    const double first = ref.keys.front().time;
    const double last = ref.keys.back().time;
    const double span = std::max(last - first, 1.0);
    for (double t = first - 2.6 * span; t < last + 2.6 * span; t += 0.0137 * span) {
        times.push_back(t);
    }
    for (const RefKey &k : ref.keys) {
        for (int cycle = -2; cycle <= 2; ++cycle) {
            for (double nudge : {-0.00003, 0.0, 0.00003, 0.0003}) {
                times.push_back(k.time + cycle * (last - first) + nudge);
            }
        }
    }
    return times;
}

// Evaluates at every time forwards, backwards and shuffled (the lookup cache and index must
// not make the answer depend on what was asked before), against the reference.
void expect_agrees_with_reference(Envelope *env, const std::string &name) {
    const RefCurve ref = capture(env);
    std::vector<double> times = probe_times(ref);
    std::vector<double> expected;
    for (double t : times) expected.push_back(reference_at(ref, t));
    int failures = 0;
    const auto check = [&](std::size_t i) {
        const double got = value_at(env, times[i]);
        if (!close(got, expected[i]) && ++failures <= 5) {
            ADD_FAILURE() << name << " at t = " << times[i] << ": " << got << ", expected "
                          << expected[i];
        }
    };
    for (std::size_t i = 0; i < times.size(); ++i) check(i);
    for (std::size_t i = times.size(); i-- > 0;) check(i);
    std::vector<std::size_t> order(times.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (std::size_t i : order) check(i);
}

// ---- Random curves ------------------------------------------------------------------------

// A curve of `count` keys on a quarter-second grid with random values, slope types, breaks,
// weights, behaviours and interpolation. Stored weights stay under 0.45 of the shorter span
// around their key, so the handles of a segment never cross in time.
Envelope *random_curve(std::mt19937_64 &rng, int count) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const auto pick = [&](std::initializer_list<unsigned> options) {
        std::vector<unsigned> v(options);
        return v[static_cast<std::size_t>(unit(rng) * static_cast<double>(v.size())) % v.size()];
    };
    const auto value = [&] { return std::round((unit(rng) * 20.0 - 10.0) * 4.0) / 4.0; };
    Envelope *env = EnvCreate(nullptr);
    UndoSysSuspend();
    std::vector<double> times;
    double t = std::round(unit(rng) * 8.0) / 4.0 - 1.0;
    for (int i = 0; i < count; ++i) {
        times.push_back(t);
        t += 0.25 * (1 + static_cast<int>(unit(rng) * 4.0));
    }
    for (int i = 0; i < count; ++i) {
        EnvKey *key = EnvAddKey(env, times[static_cast<std::size_t>(i)], value());
        EnvKeySetSlopeType(env, key, 0, ENV_SLOPE_MANUAL);
        EnvKeySetSlopeType(env, key, 0, pick({0, 1, 1, 1, 2, 4, 16, 32, 8}));
        EnvKeySetSlopeValue(env, key, 0, unit(rng) * 40.0 - 20.0);
    }
    for (int i = 0; i < count; ++i) {
        EnvKey *key = nth_key(env, i);
        const std::size_t at = static_cast<std::size_t>(i);
        double shortest = 1e9;
        if (i > 0) shortest = std::min(shortest, times[at] - times[at - 1]);
        if (i + 1 < count) shortest = std::min(shortest, times[at + 1] - times[at]);
        if (shortest > 1e8) shortest = 1.0;
        const auto weight = [&] {
            return unit(rng) < 0.1 ? 0.0 : shortest * (0.1 + 0.35 * unit(rng));
        };
        if (unit(rng) < 0.25) {
            EnvKeyBreak(env, key, ENV_BREAK_VALUE);
            EnvKeySetTangentValue(env, key, 1, value());
            EnvKeySetActiveValue(env, key, unit(rng) < 0.5 ? 1 : 0);
        }
        if (unit(rng) < 0.25) {
            EnvKeyBreak(env, key, ENV_BREAK_SLOPE);
            EnvKeySetSlopeType(env, key, 1, ENV_SLOPE_MANUAL);
            EnvKeySetSlopeType(env, key, 1, pick({0, 1, 2, 4, 16}));
            EnvKeySetSlopeValue(env, key, 1, unit(rng) * 40.0 - 20.0);
        }
        if (unit(rng) < 0.3) {
            EnvKeySetWeightType(env, key, 0, 1);
            EnvKeySetWeightValue(env, key, 0, weight());
        }
        if (unit(rng) < 0.15) {
            EnvKeyBreak(env, key, ENV_BREAK_WEIGHT);
            EnvKeySetWeightType(env, key, 1, unit(rng) < 0.7 ? 1 : 0);
            EnvKeySetWeightValue(env, key, 1, weight());
        }
    }
    EnvSetPreBehavior(env, pick({0, 1, 2, 3, 4, 4, 5, 6, 9}));
    EnvSetPostBehavior(env, pick({0, 1, 2, 3, 4, 4, 5, 6, 9}));
    EnvSetInterpolation(env, pick({0, 0, 0, 0, 1, 2}));
    UndoSysResume();
    return env;
}

Envelope *random_int_curve(std::mt19937_64 &rng, int count) {
    std::uniform_int_distribution<int> value(-50, 50);
    std::uniform_int_distribution<int> step(1, 4);
    std::uniform_int_distribution<unsigned> behavior(0, 6);
    Envelope *env = EnvCreateInt(nullptr);
    UndoSysSuspend();
    double t = 0.0;
    for (int i = 0; i < count; ++i, t += 0.25 * step(rng)) EnvAddKeyInt(env, t, value(rng));
    EnvSetPreBehavior(env, behavior(rng));
    EnvSetPostBehavior(env, behavior(rng));
    UndoSysResume();
    return env;
}

// Lowest and highest value sampled every `step` from `start` through `end`.
std::pair<double, double> sample(Envelope *env, double start, double end, double step) {
    double lo = kInf, hi = -kInf;
    const auto n = static_cast<long>(std::ceil((end - start) / step));
    for (long i = 0; i <= n; ++i) {
        const double v = value_at(env, std::min(end, start + static_cast<double>(i) * step));
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
    return {lo, hi};
}

// The bounds hold every sampled value, and lie no further out than the curve can move between
// two samples. Samples fall on a 1/1024 s grid from `start`, which must be on the grid, so they
// meet every key time (and every key time repeated a whole number of spans away).
void expect_bounds_match_sampling(Envelope *env, double start, double end, const std::string &name,
                                  double slack) {
    double lo = 0.0, hi = 0.0;
    if (EnvType(env) == 1) {
        int ilo = 0, ihi = 0;
        EnvBoundsValueInt(env, start, end, &ilo, &ihi);
        lo = ilo;
        hi = ihi;
    } else {
        EnvBoundsValue(env, start, end, &lo, &hi);
    }
    const auto [sampled_lo, sampled_hi] = sample(env, start, end, 1.0 / 1024.0);
    EXPECT_LE(lo, sampled_lo + 1e-9) << name;
    EXPECT_GE(hi, sampled_hi - 1e-9) << name;
    EXPECT_GE(lo, sampled_lo - slack) << name;
    EXPECT_LE(hi, sampled_hi + slack) << name;
}

// ---- Evaluation ---------------------------------------------------------------------------

TEST(EnvEvaluate, GalleryCurvesGiveTheirWorkedOutValuesAgreeWithThePlainEvaluatorAndBounds) {
    for (const GalleryCurve &curve : env_gallery()) {
        Owned e(curve.build());
        for (const Sample &s : curve.samples) {
            EXPECT_NEAR(value_at(e.env, s.time), s.value, 1e-9)
                << curve.name << " at t = " << s.time;
        }
        expect_agrees_with_reference(e.env, curve.name);
        expect_bounds_match_sampling(e.env, -2.5, 3.75, curve.name, 0.05);
    }
}

TEST(EnvEvaluate, RandomCurvesAgreeWithThePlainEvaluatorAndTheirBoundsWithSampling) {
    std::mt19937_64 rng(2024);
    for (int round = 0; round < 120; ++round) {
        // Short curves are searched by walking the list, long ones through the index.
        const int count = round % 3 == 0 ? 40 : 1 + round % 9;
        Owned e(random_curve(rng, count));
        expect_agrees_with_reference(e.env, "random curve " + std::to_string(round));
        if (HasFailure()) return;
    }
    std::mt19937_64 bounds_rng(4242);
    for (int round = 0; round < 40; ++round) {
        Owned e(random_curve(bounds_rng, 2 + round % 7));
        // Sampling every 1/1024 s on slopes of up to some 100 per second.
        expect_bounds_match_sampling(e.env, -6.25, 9.125,
                                     "bounds of curve " + std::to_string(round), 0.25);
        if (HasFailure()) return;
    }
    for (int round = 0; round < 30; ++round) {
        Owned e(random_int_curve(rng, 1 + round));
        expect_agrees_with_reference(e.env, "random integer curve " + std::to_string(round));
    }
}

TEST(EnvEvaluate, WrongTypesEmptyAndNullEnvelopesGiveZero) {
    Owned f(make_curve({{0, 3}, {1, 5}}, 1, 1));
    Owned i(gallery_curve("integer").build());
    EXPECT_EQ(EnvEvaluateInt(f.env, 0.5), 0);
    EXPECT_EQ(EnvEvaluate(i.env, 0.0), 0.0);
    Owned empty(EnvCreate(nullptr));
    EXPECT_EQ(EnvEvaluate(empty.env, 1.0), 0.0);
    EXPECT_EQ(EnvEvaluate(nullptr, 1.0), 0.0);
    EXPECT_EQ(EnvEvaluateInt(nullptr, 1.0), 0);
}

TEST(EnvEvaluate, IntegerValuesTruncateTowardZeroAndClampToTheIntRange) {
    constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();
    const std::pair<double, int> cases[] = {{2.9, 2},         {-2.9, -2},   {-0.5, 0},
                                            {3e9, kMax},      {-3e9, kMin}, {-2147483648.7, kMin},
                                            {std::nan(""), 0}};
    for (auto [in, out] : cases) EXPECT_EQ(env::to_int(in), out) << in;
    // Offsets past the int range clamp instead of wrapping: a rise of 2e9 per cycle.
    Owned e(EnvCreateInt(nullptr));
    UndoSysSuspend();
    EnvAddKeyInt(e.env, 0.0, -1000000000);
    EnvAddKeyInt(e.env, 1.0, 1000000000);
    EnvSetPostBehavior(e.env, ENV_BEHAVIOR_OFFSET_REPEAT);
    EnvSetPreBehavior(e.env, ENV_BEHAVIOR_OFFSET_REPEAT);
    UndoSysResume();
    EXPECT_EQ(EnvEvaluateInt(e.env, 1.5), 1000000000);
    EXPECT_EQ(EnvEvaluateInt(e.env, 2.5), kMax);
    EXPECT_EQ(EnvEvaluateInt(e.env, -1.5), kMin);
}

TEST(EnvEvaluate, ComputedSlopesAreWrittenBackIntoTheKeys) {
    Owned e(gallery_curve("auto").build());
    EnvKey *k1 = nth_key(e.env, 1);
    k1->side[0].slope = k1->side[1].slope = 99.0;  // stale
    EnvEvaluate(e.env, 1.5);
    EXPECT_DOUBLE_EQ(EnvKeyGetSlopeValue(k1, 0), 2.5);
    EXPECT_DOUBLE_EQ(k1->side[1].slope, 2.5) << "an unbroken key carries its slope on both sides";
    EXPECT_DOUBLE_EQ(EnvKeyGetSlopeValue(nth_key(e.env, 2), 0), -2.5);

    // A slope-broken key: each side keeps its own; a manual side is never rewritten.
    Owned b(gallery_curve("broken slope").build());
    EnvKey *key = nth_key(b.env, 1);
    EnvEvaluate(b.env, 0.5);
    EnvEvaluate(b.env, 1.5);
    EXPECT_EQ(key->side[0].slope, 0.0);
    EXPECT_EQ(key->side[1].slope, 20.0);
}

TEST(EnvEvaluate, FarAndNonFiniteTimes) {
    Owned repeat(gallery_curve("repeat").build());
    EXPECT_NEAR(EnvEvaluate(repeat.env, 1000000.25), 2.5, 1e-6);
    EXPECT_NEAR(EnvEvaluate(repeat.env, -1000000.25), 7.5, 1e-6);
    Owned offset(gallery_curve("offset repeat").build());
    EXPECT_NEAR(EnvEvaluate(offset.env, 1000.5), 10005.0, 1e-6);
    EXPECT_NEAR(EnvEvaluate(offset.env, -1000.5), -10005.0, 1e-6);
    Owned osc(gallery_curve("oscillate").build());
    EXPECT_NEAR(EnvEvaluate(osc.env, 1001.25), 7.5, 1e-6) << "cycle 1001 is mirrored";
    // So far out that no fraction of a cycle is left: the cycle's start, without a crash.
    EXPECT_TRUE(std::isfinite(EnvEvaluate(repeat.env, 1e300)));
    EXPECT_TRUE(std::isfinite(EnvEvaluate(repeat.env, kInf)));
    EXPECT_TRUE(std::isfinite(EnvEvaluate(osc.env, -kInf)));
    EnvEvaluate(osc.env, std::nan(""));  // any value, but no crash or hang
    std::mt19937_64 rng(5);
    Owned big(random_curve(rng, 40));
    EnvEvaluate(big.env, std::nan(""));
}

// Playback and random reads allocate nothing once the index is built.
TEST(EnvEvaluate, EvaluationAllocatesNothing) {
    std::mt19937_64 rng(99);
    Owned e(random_curve(rng, 300));
    Owned i(random_int_curve(rng, 300));
    EnvEvaluate(e.env, 0.0);
    EnvEvaluateInt(i.env, 0.0);
    const std::uint64_t before = thread_allocations();
    std::uniform_real_distribution<double> anywhere(-200.0, 400.0);
    double sum = 0.0;
    for (int n = 0; n < 5000; ++n) {
        sum += EnvEvaluate(e.env, n / 24.0) + EnvEvaluate(e.env, anywhere(rng));
        sum += EnvEvaluateInt(i.env, anywhere(rng));
    }
    double lo = 0.0, hi = 0.0;
    EnvBoundsValue(e.env, -100.0, 300.0, &lo, &hi);
    double tx = 0.0, vx = 0.0;
    EnvKeyGetHandle(e.env, nth_key(e.env, 7), 0, 1, &tx, &vx);
    EXPECT_EQ(thread_allocations(), before);
    EXPECT_FALSE(std::isnan(sum + lo + hi + tx + vx));
}

// ---- The lookup index ---------------------------------------------------------------------

// The last key not later than the time by more than the tolerance.
EnvKey *expected_at_or_before(Envelope *env, double t) {
    EnvKey *found = nullptr;
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (k->time <= t + 0.0001) found = k;
    }
    return found;
}

void expect_lookups_right(Envelope *env, std::mt19937_64 &rng) {
    std::vector<double> times;
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        for (double d : {-0.0002, -0.00009, 0.0, 0.00009, 0.0002}) times.push_back(k->time + d);
    }
    std::uniform_real_distribution<double> anywhere(-10.0, 300.0);
    for (int n = 0; n < 300; ++n) times.push_back(anywhere(rng));
    std::shuffle(times.begin(), times.end(), rng);
    for (double t : times) {
        const env::Found found = env::find_indexed(*env, t);
        EnvKey *want = expected_at_or_before(env, t);
        ASSERT_EQ(found.at_or_before, want) << "t = " << t;
        ASSERT_EQ(found.after, want != nullptr ? env::next_key(want) : list->head) << "t = " << t;
    }
}

TEST(EnvLookupIndex, FindsTheKeyAtOrBeforeAnyTimeAndFollowsEdits) {
    UndoSysStartup();
    UndoSysClear();
    std::mt19937_64 rng(31);
    Owned e(random_curve(rng, 120));
    expect_lookups_right(e.env, rng);
    EXPECT_TRUE(env::index_current(*e.env));

    // Keys added, deleted and moved, and those edits undone and redone: the index follows.
    EnvAddKey(e.env, 3.1, 1.0);
    EnvAddKey(e.env, -50.0, 1.0);
    EnvAddKey(e.env, 500.0, 1.0);
    expect_lookups_right(e.env, rng);
    EnvDelKey(e.env, nth_key(e.env, 10));
    expect_lookups_right(e.env, rng);
    EnvKeySetTime(e.env, nth_key(e.env, 20), 250.125, 1);
    expect_lookups_right(e.env, rng);
    while (UndoSysUndo()) expect_lookups_right(e.env, rng);
    while (UndoSysRedo()) expect_lookups_right(e.env, rng);
    UndoSysClear();
    UndoSysShutdown();

    // A loader's raw write, behind the edit count: the key keeps its place but not its time.
    EnvKey *k = nth_key(e.env, 30);
    k->time = (k->time + env::prev_key(k)->time) / 2.0 + 0.0002;
    expect_lookups_right(e.env, rng);
}

TEST(EnvLookupIndex, WithoutMemoryForTheIndexLookupsWalkTheList) {
    std::mt19937_64 rng(33);
    Owned e(random_curve(rng, 80));
    const RefCurve ref = capture(e.env);
    std::vector<double> times;
    std::uniform_real_distribution<double> anywhere(-10.0, 120.0);
    for (int n = 0; n < 500; ++n) times.push_back(anywhere(rng));
    std::vector<env::Found> found(times.size());
    double value = 0.0;
    env::drop_index(*e.env);  // the room the edits kept for it goes too
    {
        FailAllocation fail(1, FailMode::from_then_on);
        value = EnvEvaluate(e.env, 7.3);
        for (std::size_t i = 0; i < times.size(); ++i)
            found[i] = env::find_indexed(*e.env, times[i]);
    }
    EXPECT_FALSE(env::index_current(*e.env));
    EXPECT_TRUE(close(value, ref_value(ref, 7.3)));
    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(found[i].at_or_before, expected_at_or_before(e.env, times[i])) << times[i];
    }
    // An edit keeps room for the index, which the next evaluation fills without allocating.
    EnvAddKey(e.env, 1000.0, 0.0);
    {
        FailAllocation fail(1, FailMode::from_then_on);
        EnvEvaluate(e.env, 7.3);
    }
    EXPECT_TRUE(env::index_current(*e.env));
    env::drop_index(*e.env);
    EXPECT_EQ(e.env->index, nullptr);
    expect_lookups_right(e.env, rng);
}

// Evaluation reads each segment from the index once it is filled; every way of changing what
// the curve is made of, with or without a note, undone and redone, must be seen at once.
TEST(EnvLookupIndex, EvaluationFollowsEveryChangeOfTheKeysAndSettings) {
    UndoSysStartup();
    UndoSysClear();
    std::mt19937_64 rng(57);
    Owned e(random_curve(rng, 40));
    EnvSetPreBehavior(e.env, ENV_BEHAVIOR_REPEAT);
    EnvSetPostBehavior(e.env, ENV_BEHAVIOR_LINEAR);
    EnvSetInterpolation(e.env, ENV_INTERP_CURVE);
    EnvKey *k = nth_key(e.env, 12);
    EnvKey *end = nth_key(e.env, 39);
    const std::pair<const char *, std::function<void()>> changes[] = {
        {"value", [&] { EnvKeySetValue(e.env, k, 7.5); }},
        {"manual slope", [&] { EnvKeySetSlopeType(e.env, k, 0, ENV_SLOPE_MANUAL); }},
        {"slope", [&] { EnvKeySetSlopeValue(e.env, k, 0, 3.0); }},
        {"stored weight", [&] { EnvKeySetWeightType(e.env, k, 0, 1); }},
        {"weight", [&] { EnvKeySetWeightValue(e.env, k, 0, 0.1); }},
        {"raw weight of the key alone", [&] { EnvKeySetRawWeight(k, 0, 0.05); }},
        {"value break as a user flag", [&] { EnvKeySetUserFlag(k, ENV_BREAK_VALUE); }},
        {"active side", [&] { EnvKeySetActiveValue(e.env, k, 1); }},
        {"slope break", [&] { EnvKeyBreak(e.env, k, ENV_BREAK_SLOPE); }},
        {"inverted tangent", [&] { EnvKeyTangentInvert(e.env, k, 1); }},
        {"stepped into the next key",
         [&] { EnvKeySetSlopeType(e.env, EnvNextKey(e.env, k->time), 0, ENV_SLOPE_STEPPED); }},
        {"raw tangents",
         [&] { EnvKeySetRawTangents(e.env, k, 0, 2.0, ENV_SLOPE_AUTO, 0.0, 0, 0.0, 0); }},
        {"raw tangents without the envelope",
         [&] { EnvKeySetRawTangents(nullptr, end, 0, -2.0, ENV_SLOPE_MANUAL, 4.0, 1, 0.2, 0); }},
        {"linear, directly", [&] { EnvSetInterpolationDirect(e.env, ENV_INTERP_LINEAR); }},
        {"curve, directly", [&] { EnvSetInterpolationDirect(e.env, ENV_INTERP_CURVE); }},
        {"offset repeat at both ends, directly",
         [&] {
             EnvSetPreBehaviorDirect(e.env, ENV_BEHAVIOR_OFFSET_REPEAT);
             EnvSetPostBehaviorDirect(e.env, ENV_BEHAVIOR_OFFSET_REPEAT);
         }},
        {"key moved", [&] { EnvKeySetTime(e.env, end, end->time + 0.5, 0); }},
        {"all undone",
         [&] {
             while (UndoSysUndo()) continue;
         }},
        {"all redone",
         [&] {
             while (UndoSysRedo()) continue;
         }},
    };
    expect_agrees_with_reference(e.env, "before");
    for (const auto &[name, change] : changes) {
        change();
        expect_agrees_with_reference(e.env, name);
    }
    UndoSysClear();
    UndoSysShutdown();
}

// An indexed curve computes its slopes when the index is filled after an edit: one evaluation
// anywhere leaves every key's stored slopes current, as evaluating each segment would.
TEST(EnvLookupIndex, FillingAfterAnEditWritesEveryComputedSlopeBack) {
    Envelope *env = EnvCreate(nullptr);
    Owned e(env);
    UndoSysSuspend();
    for (int i = 0; i < 20; ++i) EnvAddKey(env, i * 0.5, (i * 7 % 5) - 2.0);
    EnvEvaluate(env, 0.25);
    for (int i = 0; i < 20; ++i) nth_key(env, i)->side[0].slope = 99.0;  // stale
    EnvKeySetValue(env, nth_key(env, 3), 1.0);
    UndoSysResume();
    EnvEvaluate(env, 0.25);
    const RefCurve ref = capture(env);
    for (int i = 0; i < 20; ++i) {
        const auto at = static_cast<std::size_t>(i);
        EXPECT_DOUBLE_EQ(EnvKeyGetSlopeValue(nth_key(env, i), 0), ref_slope(ref, at, false)) << i;
        EXPECT_DOUBLE_EQ(nth_key(env, i)->side[1].slope, ref_slope(ref, at, true)) << i;
    }
}

// ---- Bounds -------------------------------------------------------------------------------

TEST(EnvBoundsValue, OvershootIsFoundExactly) {
    // Auto slopes 2.5 and -2.5 between two keys of value 5: 5 + 2.5·(u - u²), peak at u = 1/2.
    Owned a(gallery_curve("auto").build());
    double lo = 0.0, hi = 0.0;
    EnvBoundsValue(a.env, 0.0, 3.0, &lo, &hi);
    EXPECT_DOUBLE_EQ(lo, 0.0);
    EXPECT_DOUBLE_EQ(hi, 5.625);
    EnvBoundsValue(a.env, 1.6, 1.2, &lo, &hi);  // either order, a part of the segment
    EXPECT_DOUBLE_EQ(hi, 5.625);
    EXPECT_DOUBLE_EQ(lo, EnvEvaluate(a.env, 1.2));

    // Leaving a key at slope 20 toward a key of the same value: 10 + 20·(u³ - 2u² + u), whose
    // peak at u = 1/3 is 10 + 80/27. Sampling at 1/1000 steps misses part of it.
    Owned b(gallery_curve("broken slope").build());
    EnvBoundsValue(b.env, 1.0, 2.0, &lo, &hi);
    EXPECT_DOUBLE_EQ(lo, 10.0);
    EXPECT_NEAR(hi, 10.0 + 80.0 / 27.0, 1e-12);
    EXPECT_GT(hi, sample(b.env, 1.0, 2.0, 1e-3).second);
}

TEST(EnvBoundsValue, RepeatingBehavioursCoverEveryCycleInTheSpan) {
    // 10·u offset by 10 per cycle: from -3.5 (reads 0.5, four cycles down) to 5.25 (reads 0.25,
    // five cycles up).
    Owned o(gallery_curve("offset repeat").build());
    double lo = 0.0, hi = 0.0;
    EnvBoundsValue(o.env, -3.5, 5.25, &lo, &hi);
    EXPECT_NEAR(lo, -35.0, 1e-9);
    EXPECT_NEAR(hi, 52.5, 1e-9);
    // Thousands of cycles cost no more than a few.
    EnvBoundsValue(o.env, -20000.25, 30000.5, &lo, &hi);
    EXPECT_NEAR(lo, -200002.5, 1e-6);
    EXPECT_NEAR(hi, 300005.0, 1e-6);

    Owned a(make_curve({{0, 0}, {1, 5}, {2, 5}, {3, 0}}, 2, 3));
    EnvBoundsValue(a.env, -100.0, 100.0, &lo, &hi);
    EXPECT_DOUBLE_EQ(lo, 0.0);
    EXPECT_DOUBLE_EQ(hi, 5.625);

    // Integer keys 2, 7, -3 offset-repeating: the cycle before adds 5, the three after take
    // 5, 10 and 15 away.
    Owned i(gallery_curve("integer").build());
    int ilo = 0, ihi = 0;
    EnvBoundsValueInt(i.env, -0.5, 6.5, &ilo, &ihi);
    EXPECT_EQ(ilo, -13);
    EXPECT_EQ(ihi, 12);
    EnvBoundsValueInt(i.env, 0.0, 2.0, &ilo, &ihi);
    EXPECT_EQ(ilo, -3);
    EXPECT_EQ(ihi, 7);
}

TEST(EnvBoundsValue, EqualTimesEvaluateOnceAndDegenerateEnvelopesGiveZero) {
    Owned a(gallery_curve("broken value, side 1 active").build());
    double lo = -1.0, hi = -1.0;
    EnvBoundsValue(a.env, 1.0, 1.0, &lo, &hi);
    EXPECT_EQ(lo, 8.0);
    EXPECT_EQ(hi, 8.0);
    EnvBoundsValue(a.env, 0.5, 0.5, &lo, nullptr);
    EXPECT_EQ(lo, 2.5);

    Owned empty(EnvCreate(nullptr));
    EnvBoundsValue(empty.env, -1.0, 1.0, &lo, &hi);
    EXPECT_EQ(lo, 0.0);
    EXPECT_EQ(hi, 0.0);
    Owned i(gallery_curve("integer").build());
    EnvBoundsValue(i.env, -1.0, 1.0, &lo, &hi);
    EXPECT_EQ(hi, 0.0) << "the float form of an integer envelope";
    int ilo = 1, ihi = 1;
    EnvBoundsValueInt(a.env, -1.0, 1.0, &ilo, &ihi);
    EXPECT_EQ(ilo, 0);
    EXPECT_EQ(ihi, 0);
    EnvBoundsValueInt(nullptr, 0.0, 1.0, &ilo, &ihi);
    EXPECT_EQ(ihi, 0);

    // Unbounded: the whole time line. The lines leave at slopes 2 (before) and -4 (after);
    // the highest point is inside the keys.
    Owned r(gallery_curve("linear").build());
    EnvBoundsValue(r.env, -kInf, kInf, &lo, &hi);
    EXPECT_DOUBLE_EQ(lo, 10.0 - 4.0 * (33600000.0 - 1.0));
    double keyed_lo = 0.0, keyed_hi = 0.0;
    EnvBoundsValue(r.env, 0.0, 1.0, &keyed_lo, &keyed_hi);
    EXPECT_DOUBLE_EQ(hi, keyed_hi);
    EXPECT_GT(hi, 10.0);
}

// ---- Handles ------------------------------------------------------------------------------

TEST(EnvKeyGetHandle, WorkedOutHandlesBadArgumentsAndAgreementWithThePlainEvaluator) {
    // Automatic weights reach a third of the way along the slope.
    Owned a(gallery_curve("auto").build());
    EnvKey *k1 = nth_key(a.env, 1);
    double t = 0.0, v = 0.0;
    EnvKeyGetHandle(a.env, k1, 0, 1, &t, &v);
    EXPECT_NEAR(t, 1.0 + 1.0 / 3.0, 1e-12);
    EXPECT_NEAR(v, 5.0 + 2.5 / 3.0, 1e-12);
    EXPECT_EQ(EnvKeyGetSlopeValue(k1, 0), 2.5) << "the slope is computed and kept";

    // Weight 2 along slope 1: (cos 45°, sin 45°) · 2.
    Owned e(make_curve({{0, 0, 0}, {4, 4, 0}}, 1, 1));
    EnvKey *k = nth_key(e.env, 0);
    UndoSysSuspend();
    EnvKeySetSlopeValue(e.env, k, 0, 1.0);
    EnvKeySetWeightType(e.env, k, 0, 1);
    EnvKeySetWeightValue(e.env, k, 0, 2.0);
    UndoSysResume();
    EnvKeyGetHandle(e.env, k, 0, 1, &t, &v);
    EXPECT_NEAR(t, std::sqrt(2.0), 1e-12);
    EXPECT_NEAR(v, std::sqrt(2.0), 1e-12);

    t = v = 123.0;
    EnvKeyGetHandle(nullptr, k, 0, 1, &t, &v);
    EnvKeyGetHandle(e.env, nullptr, 0, 1, &t, &v);
    EXPECT_EQ(t, 123.0);
    EXPECT_EQ(v, 123.0);
    EnvKeyGetHandle(e.env, k, 0, 1, nullptr, nullptr);

    // Random curves cover broken sides and the ends, where an automatic first incoming or last
    // outgoing handle has no length.
    std::mt19937_64 rng(55);
    for (int round = 0; round < 60; ++round) {
        Owned r(random_curve(rng, 1 + round % 6));
        const RefCurve ref = capture(r.env);
        for (std::size_t i = 0; i < ref.keys.size(); ++i) {
            for (int side : {0, 1}) {
                const RefPoint want = ref_handle(ref, i, side);
                EnvKeyGetHandle(r.env, nth_key(r.env, static_cast<int>(i)), 0, side, &t, &v);
                EXPECT_TRUE(close(t, want.time) && close(v, want.value))
                    << "round " << round << " key " << i << " side " << side << ": (" << t << ", "
                    << v << ") expected (" << want.time << ", " << want.value << ")";
            }
        }
    }
}

// ---- The bisection ------------------------------------------------------------------------

// Fourteen halvings written out one by one, as the weighted segment is defined.
double halvings(double a, double b, double c, double d, double t) {
    double low = 0.0, high = 1.0, mid = 0.5;
    int steps = 0;
    do {
        mid = low + (high - low) * 0.5;
        (t < ((a * mid + b) * mid + c) * mid + d ? high : low) = mid;
        ++steps;
    } while (high - low > 0.0001);
    EXPECT_EQ(steps, 14);
    return mid;
}

TEST(EnvBisection, GivesExactlyTheLastMidpointOfFourteenHalvings) {
    std::mt19937_64 rng(77);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int n = 0; n < 200000; ++n) {
        // Time cubics of Bezier segments: rising, folding back where handles cross, flat.
        const double x0 = unit(rng) * 10.0;
        const double x3 = x0 + unit(rng) * 4.0 + 0.001;
        const double span = x3 - x0, r1 = unit(rng), r2 = unit(rng);
        const double x1 = n % 4 == 0   ? x0 + span * r1
                          : n % 4 == 1 ? x0 + span * 3.0 * r1
                          : n % 4 == 2 ? x0 + (r1 - 0.5) * 20.0
                                       : x0;
        const double x2 = n % 4 == 0   ? x0 + span * r2
                          : n % 4 == 1 ? x3 - span * 3.0 * r2
                          : n % 4 == 2 ? x3 + (r2 - 0.5) * 20.0
                                       : x3;
        const double c = 3.0 * (x1 - x0), b = 3.0 * (x2 - x1) - c, a = x3 - x0 - c - b;
        double t = x0 + span * (unit(rng) * 1.4 - 0.2);
        if (n % 5 == 0) {  // exactly on a midpoint of the path
            const double u = std::ldexp(std::floor(unit(rng) * 8192.0) + 0.5, -13);
            t = ((a * u + b) * u + c) * u + x0;
        }
        const double want = halvings(a, b, c, x0, t);
        ASSERT_EQ(env::bisect_cubic(a, b, c, x0, t), want)
            << "cubic " << a << " " << b << " " << c << " " << x0 << " at " << t;
        // Any starting guess and any number of Newton steps: the same answer.
        const double guess = unit(rng) * 1.6 - 0.3;
        ASSERT_EQ(env::bisect_cubic(a, b, c, x0, t, guess, n % 4).u, want)
            << "cubic " << a << " " << b << " " << c << " " << x0 << " at " << t << " from "
            << guess << " with " << n % 4 << " steps";
    }
    // Degenerate cubics still end on a midpoint inside (0, 1).
    for (double t : {0.0, 1.0, kInf, -kInf, std::nan("")}) {
        const double u = env::bisect_cubic(0.0, 0.0, 0.0, 0.0, t);
        EXPECT_TRUE(u > 0.0 && u < 1.0) << t;
    }
}

// Right past the tolerance before the first key, a repeating curve maps the time to the
// tolerance edge of the last key, where rounding makes it read that key. Dense sampling never
// lands on those instants; the bounds must still hold what the curve takes there.
TEST(EnvBoundsValue, IncludeWhatTheCurveTakesAtTheToleranceEdge) {
    Owned e(make_curve({{0.0, 1.0}, {0.4, 5.0}, {1.0, 2.0}}, ENV_BEHAVIOR_REPEAT,
                       ENV_BEHAVIOR_CONSTANT, ENV_INTERP_STEPPED));
    EnvKey *last = nth_key(e.env, 2);
    UndoSysSuspend();
    EnvKeyBreak(e.env, last, ENV_BREAK_VALUE);
    EnvKeySetTangentValue(e.env, last, 1, -3.0);
    EnvKeySetActiveValue(e.env, last, 1);
    UndoSysResume();
    const double edge = std::nextafter(-0.0001, -1.0);
    double lo = 0.0;
    double hi = 0.0;
    EnvBoundsValue(e.env, -0.5, 0.0, &lo, &hi);
    EXPECT_EQ(lo, EnvEvaluate(e.env, edge));
    EXPECT_EQ(lo, -3.0);
    EnvBoundsValue(e.env, -0.5, -0.001, &lo, &hi);
    EXPECT_EQ(lo, 5.0) << "away from the edge the last key is not read";
}

}  // namespace
}  // namespace vx::test
