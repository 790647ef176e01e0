// Envelope evaluation on the hot path: a 1,000-key curve played back at 24 frames per second,
// read at random times, with weighted tangents, looping past its ends, stepped, and as an
// integer envelope. Everything goes through the public C functions, as a host calls them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vexor/env.h>
#include <vexor/env_eval.h>

namespace {

constexpr int kKeys = 1000;
constexpr double kFrame = 1.0 / 24.0;  // seconds per frame at 24 fps

// A small deterministic generator, so every run measures the same curve.
class Lcg {
  public:
    explicit Lcg(std::uint64_t seed) : state_(seed) {}
    double next(double lo, double hi) {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        const double unit = static_cast<double>(state_ >> 11) * 0x1p-53;
        return lo + (hi - lo) * unit;
    }

  private:
    std::uint64_t state_;
};

enum class Kind { automatic, weighted, stepped, integer };

// Keys one second apart with values in [-10, 10]; automatic slopes (the default type).
Envelope *make_curve(Kind kind, unsigned pre = ENV_BEHAVIOR_CONSTANT,
                     unsigned post = ENV_BEHAVIOR_CONSTANT) {
    Envelope *env = kind == Kind::integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
    Lcg lcg(12345);
    for (int i = 0; i < kKeys; ++i) {
        const double t = static_cast<double>(i);
        if (kind == Kind::integer) {
            EnvAddKeyInt(env, t, static_cast<int>(lcg.next(-100.0, 100.0)));
            continue;
        }
        EnvKey *key = EnvAddKey(env, t, lcg.next(-10.0, 10.0));
        if (kind == Kind::weighted) {
            EnvKeySetWeightType(env, key, 0, 1);
            EnvKeySetWeightValue(env, key, 0, lcg.next(0.2, 0.45));
        }
    }
    if (kind == Kind::stepped) EnvSetInterpolation(env, ENV_INTERP_STEPPED);
    EnvSetPreBehavior(env, pre);
    EnvSetPostBehavior(env, post);
    return env;
}

std::vector<double> random_times(double from, double to) {
    Lcg lcg(777);
    std::vector<double> times(4096);
    for (double &t : times) t = lcg.next(from, to);
    return times;
}

// Playback: frame after frame from `start` over `frames` frames, then around again.
template <class Evaluate>
void play(benchmark::State &state, Envelope *env, double start, int frames, Evaluate evaluate) {
    int frame = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(evaluate(env, start + frame * kFrame));
        if (++frame == frames) frame = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

template <class Evaluate>
void read_at(benchmark::State &state, Envelope *env, const std::vector<double> &times,
             Evaluate evaluate) {
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(evaluate(env, times[i]));
        i = (i + 1) & (times.size() - 1);
    }
    state.SetItemsProcessed(state.iterations());
}

constexpr int kKeyedFrames = (kKeys - 1) * 24;

void Playback(benchmark::State &state) {
    Envelope *env = make_curve(Kind::automatic);
    play(state, env, 0.0, kKeyedFrames, EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(Playback);

void RandomAccess(benchmark::State &state) {
    Envelope *env = make_curve(Kind::automatic);
    read_at(state, env, random_times(0.0, kKeys - 1.0), EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(RandomAccess);

void WeightedPlayback(benchmark::State &state) {
    Envelope *env = make_curve(Kind::weighted);
    play(state, env, 0.0, kKeyedFrames, EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(WeightedPlayback);

void WeightedRandomAccess(benchmark::State &state) {
    Envelope *env = make_curve(Kind::weighted);
    read_at(state, env, random_times(0.0, kKeys - 1.0), EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(WeightedRandomAccess);

// Playback through the cycles after the last key (and before the first), mapped back into
// the keys every frame. Compare with Playback.
void LoopingPlayback(benchmark::State &state) {
    const auto behavior = static_cast<unsigned>(state.range(0));
    const bool before = state.range(1) != 0;
    Envelope *env = make_curve(Kind::automatic, behavior, behavior);
    const double start = before ? -3.0 * (kKeys - 1) : kKeys + 0.5;
    play(state, env, start, kKeyedFrames, EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(LoopingPlayback)
    ->ArgNames({"behavior", "before"})
    ->Args({ENV_BEHAVIOR_REPEAT, 0})
    ->Args({ENV_BEHAVIOR_OSCILLATE, 0})
    ->Args({ENV_BEHAVIOR_OFFSET_REPEAT, 0})
    ->Args({ENV_BEHAVIOR_OFFSET_REPEAT, 1})
    ->Args({ENV_BEHAVIOR_OSCILLATE, 1});

void SteppedPlayback(benchmark::State &state) {
    Envelope *env = make_curve(Kind::stepped);
    play(state, env, 0.0, kKeyedFrames, EnvEvaluate);
    EnvDestroyNoUndo(env);
}
BENCHMARK(SteppedPlayback);

void IntegerPlayback(benchmark::State &state) {
    Envelope *env = make_curve(Kind::integer);
    play(state, env, 0.0, kKeyedFrames, EnvEvaluateInt);
    EnvDestroyNoUndo(env);
}
BENCHMARK(IntegerPlayback);

void IntegerRandomAccess(benchmark::State &state) {
    Envelope *env = make_curve(Kind::integer);
    read_at(state, env, random_times(0.0, kKeys - 1.0), EnvEvaluateInt);
    EnvDestroyNoUndo(env);
}
BENCHMARK(IntegerRandomAccess);

// The floors a random read stands on, for scale: finding the segment of a time among the
// 1,000 key times by binary search, and the Hermite basis with its weighted sum.
void BinarySearchFloor(benchmark::State &state) {
    std::vector<double> keys(kKeys);
    for (int i = 0; i < kKeys; ++i) keys[static_cast<std::size_t>(i)] = i;
    const std::vector<double> times = random_times(0.0, kKeys - 1.0);
    std::size_t i = 0;
    for (auto _ : state) {
        // Branch-free: the step is masked by the comparison (a select written as `?:` may
        // compile to a branch, which random times mispredict half of the time).
        const double *base = keys.data();
        const double t = times[i];
        for (std::size_t len = keys.size(); len > 1;) {
            const std::size_t half = len / 2;
            base += half & (std::size_t{0} - static_cast<std::size_t>(base[half - 1] <= t));
            len -= half;
        }
        benchmark::DoNotOptimize(base);
        i = (i + 1) & (times.size() - 1);
    }
}
BENCHMARK(BinarySearchFloor);

void HermiteFloor(benchmark::State &state) {
    const std::vector<double> times = random_times(0.0, 1.0);
    std::size_t i = 0;
    double y0 = 1.0, y1 = -2.0, s0 = 0.5, s1 = 3.0, d = 1.0;
    for (double *unknown : {&y0, &y1, &s0, &s1, &d}) benchmark::DoNotOptimize(*unknown);
    for (auto _ : state) {
        const double u = times[i] / d;
        const double u2 = u * u;
        const double u3 = u2 * u;
        const double value = (2.0 * u3 - 3.0 * u2 + 1.0) * y0 + (-2.0 * u3 + 3.0 * u2) * y1 +
                             ((u3 - 2.0 * u2 + u) * s0 + (u3 - u2) * s1) * d;
        benchmark::DoNotOptimize(value);
        i = (i + 1) & (times.size() - 1);
    }
}
BENCHMARK(HermiteFloor);

// Not on the hot path, for scale: the exact range of a span of ten keys, and of the whole
// curve and three cycles either side of it.
void BoundsValue(benchmark::State &state) {
    Envelope *env =
        make_curve(Kind::automatic, ENV_BEHAVIOR_OFFSET_REPEAT, ENV_BEHAVIOR_OFFSET_REPEAT);
    const double span = static_cast<double>(state.range(0));
    double lo = 0.0, hi = 0.0;
    for (auto _ : state) {
        EnvBoundsValue(env, 500.0 - span / 2.0, 500.0 + span / 2.0, &lo, &hi);
        benchmark::DoNotOptimize(lo);
        benchmark::DoNotOptimize(hi);
    }
    EnvDestroyNoUndo(env);
}
BENCHMARK(BoundsValue)->Arg(10)->Arg(7 * kKeys);

}  // namespace

BENCHMARK_MAIN();
