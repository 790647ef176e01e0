// Reading channels through a shared evaluator: 1,000 animated channels per frame over 1,000
// frames, the same envelopes evaluated directly (the cost the evaluator adds is the
// difference), and constant channels re-read at a new time, which must be cache hits.
// Everything goes through the public C functions, as a host calls them, except the one step
// that empties the cache to measure a full computation.
#include <benchmark/benchmark.h>

#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/eval.h>
#include <vexor/package.h>
#include <vexor/scene.h>

#include "eval/eval_data.h"

namespace {

constexpr int kChannels = 1000;
constexpr int kFrames = 1000;
constexpr double kFrame = 1.0 / 24.0;

// A scene of kChannels items, each with one animated channel "a" (its own eight-key curve) and
// one constant channel "b".
struct Scene {
    Scene() {
        CinemaStartup();
        const char *const none = nullptr;
        CinePackageDefine("benchItem");
        CinePackageAddChannel("benchItem", CINE_CH_NAME, "a", VX_STORE_FLOAT, none, CINE_CH_NAME,
                              "b", VX_STORE_FLOAT, none, CINE_CH_NAME, none);
        const std::uint32_t type = CineDefineType(0, 0, "benchItem");
        scene = CinemaCreate(0);
        CineAction *edit = CineActionGetDefault(scene, 9);
        for (int i = 0; i < kChannels; ++i) {
            CineItem *item = CineItemCreate(scene, type);
            Envelope *env = EnvCreate(nullptr);
            for (int k = 0; k < 8; ++k) {
                EnvAddKey(env, k * kFrames * kFrame / 7.0, (i * 31 + k * 17) % 13 - 6.0);
            }
            CineActionSetEnvelope(edit, item, 0, env);
            CineActionSetConstant(edit, item, 1, i * 0.5);
            items.push_back(item);
            envelopes.push_back(env);
        }
        eval = CineEvalCreate(scene);
        CineEvalSetAction(eval, edit);
    }
    ~Scene() {
        CineEvalDestroy(eval);
        CinemaDestroy(scene);
        CinemaShutdown();
    }

    Cinema *scene = nullptr;
    CineEval *eval = nullptr;
    std::vector<CineItem *> items;
    std::vector<Envelope *> envelopes;
};

Scene &bench_scene() {
    static Scene s;
    return s;
}

// One iteration is one frame: the evaluator moves to the frame's time, `before` runs, and every
// item's channel `channel` is read.
template <class Before>
void read_frames(benchmark::State &state, unsigned channel, Before before) {
    Scene &s = bench_scene();
    int frame = 0;
    for (auto _ : state) {
        CineEvalSetTime(s.eval, (frame++ % kFrames) * kFrame);
        CinemaEvaluate(s.eval);
        before(s);
        double total = 0.0;
        for (CineItem *item : s.items) total += CineEvalChannel(s.eval, item, channel);
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * kChannels);
}

// Animated channels, which the re-timed cache has dropped.
void BM_AnimatedChannelsPerFrame(benchmark::State &state) {
    read_frames(state, 0, [](Scene &) {});
}
BENCHMARK(BM_AnimatedChannelsPerFrame);

// The same, with every value dropped before each frame (as after an edit of the action), so
// that each read goes the whole way: the action's entry, the envelope, the store.
void BM_AnimatedChannelsRecomputed(benchmark::State &state) {
    read_frames(state, 0, [](Scene &s) { s.eval->cache->invalidate_all(); });
}
BENCHMARK(BM_AnimatedChannelsRecomputed);

// The same curves at the same times, evaluated directly.
void BM_EnvelopesPerFrame(benchmark::State &state) {
    Scene &s = bench_scene();
    int frame = 0;
    for (auto _ : state) {
        const double time = (frame++ % kFrames) * kFrame;
        double total = 0.0;
        for (Envelope *env : s.envelopes) total += EnvEvaluate(env, time);
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * kChannels);
}
BENCHMARK(BM_EnvelopesPerFrame);

// Constant channels after a move to a new time: the cache is re-timed (nothing constant is
// dropped) and every read is a hit.
void BM_ConstantChannelsAtNewTime(benchmark::State &state) {
    read_frames(state, 1, [](Scene &) {});
}
BENCHMARK(BM_ConstantChannelsAtNewTime);

// One cache hit, alone.
void BM_CacheHit(benchmark::State &state) {
    Scene &s = bench_scene();
    CineItem *item = s.items[kChannels / 2];
    CineEvalChannel(s.eval, item, 1);
    for (auto _ : state) benchmark::DoNotOptimize(CineEvalChannel(s.eval, item, 1));
}
BENCHMARK(BM_CacheHit);

}  // namespace

BENCHMARK_MAIN();
