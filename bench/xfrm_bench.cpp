// World matrices of placed items: 1,000 locators in hierarchies three deep, each placed by a
// scale, a rotation (animated about Y and Z) and a translation, read through one shared
// evaluator frame by frame over 100 frames; the same composition done directly with Eigen
// from the same envelopes as the floor; and a re-read at the same time, which must cost what
// any cache hit costs (compared with re-reading a constant number channel).
//
// Run with --benchmark_enable_random_interleaving=true --benchmark_repetitions=N and compare
// medians: the counter "per_item_frame" is the time of one world matrix at one frame.
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <cmath>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/eval.h>
#include <vexor/scene.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

namespace {

constexpr int kItems = 1000;
constexpr int kFrames = 100;
constexpr double kFrame = 1.0 / 24.0;

struct Placed {
    CineItem *item;
    int parent;  // index of the parent, or -1
    Envelope *yaw;
    Envelope *roll;
    double scale[3];
    double move[3];
};

Envelope *curve(int seed) {
    Envelope *env = EnvCreate(nullptr);
    for (int k = 0; k < 4; ++k)
        EnvAddKey(env, k * kFrames * kFrame / 3.0, ((seed + k * 5) % 7) * 0.3);
    return env;
}

struct Scene {
    Scene() {
        CinemaStartup();
        UndoSysSuspend();
        scene = CinemaCreate(0);
        CineAction *setup = CineActionGetDefault(scene, 0);
        CineAction *animation = CineActionGetDefault(scene, 1);
        for (int i = 0; i < kItems; ++i) {
            Placed p{CineItemCreate(scene, XFRM_TYPE_LOCATOR),
                     i % 3 == 0 ? -1 : i - 1,
                     curve(i),
                     curve(i * 3 + 1),
                     {1.0 + (i % 5) * 0.1, 1.0, 0.5 + (i % 3) * 0.25},
                     {double(i % 7), 1.0, -double(i % 4)}};
            if (p.parent >= 0) CineItemSetParent(p.item, placed[unsigned(p.parent)].item, -1);
            CineItem *s = XfrmGetStdTransform(p.item, XFRM_KIND_SCALE, 1);
            CineItem *r = XfrmGetStdTransform(p.item, XFRM_KIND_ROTATION, 1);
            CineItem *t = XfrmGetStdTransform(p.item, XFRM_KIND_TRANSLATION, 1);
            for (unsigned c = 0; c < 3; ++c) {
                CineActionSetConstant(setup, s, 2 + c, p.scale[c]);
                CineActionSetConstant(setup, t, 2 + c, p.move[c]);
            }
            CineActionSetConstant(setup, r, 2, 0.2);
            CineActionSetEnvelope(animation, r, 3, p.yaw);
            CineActionSetEnvelope(animation, r, 4, p.roll);
            placed.push_back(p);
        }
        UndoSysResume();
        eval = CineEvalCreate(scene);
        CineEvalSetAction(eval, CineActionGetDefault(scene, 9));
        double m[16];
        XfrmWorldTransform4(eval, placed.back().item, m);  // validates the modifiers
    }
    ~Scene() {
        CineEvalDestroy(eval);
        CinemaDestroy(scene);
        CinemaShutdown();
    }

    Cinema *scene = nullptr;
    CineEval *eval = nullptr;
    std::vector<Placed> placed;
};

Scene &shared_scene() {
    static Scene scene;
    return scene;
}

void per_item_frame(benchmark::State &state, double count) {
    state.counters["per_item_frame"] =
        benchmark::Counter(count * double(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_WorldMatricesThroughEvaluator(benchmark::State &state) {
    Scene &s = shared_scene();
    double m[16];
    int start = 0;
    for (auto _ : state) {
        // Frames run on from one iteration to the next, so no frame is already cached.
        for (int f = 0; f < kFrames; ++f) {
            CineEvalSetTime(s.eval, (start + f) * kFrame);
            for (const Placed &p : s.placed) {
                XfrmWorldTransform4(s.eval, p.item, m);
                benchmark::DoNotOptimize(m);
            }
        }
        start += kFrames;
    }
    per_item_frame(state, kItems * kFrames);
}

// The floor: the same envelopes evaluated and the same matrices composed with Eigen, parents
// first, in the library's convention (row vectors: scale, then rotation ZXY, then translation,
// then the parent's world matrix).
void BM_WorldMatricesEigen(benchmark::State &state) {
    Scene &s = shared_scene();
    using Row4 = Eigen::Matrix<double, 4, 4, Eigen::RowMajor>;
    std::vector<Row4> world(kItems);
    int start = 0;
    for (auto _ : state) {
        for (int f = 0; f < kFrames; ++f) {
            const double time = (start + f) * kFrame;
            for (std::size_t i = 0; i < s.placed.size(); ++i) {
                const Placed &p = s.placed[i];
                const double yaw = EnvEvaluate(p.yaw, time), roll = EnvEvaluate(p.roll, time);
                // Column-vector rotation for Z, then X, then Y applied: Ry * Rx * Rz; its
                // transpose is the row-vector form.
                const Eigen::Matrix3d r = (Eigen::AngleAxisd(yaw, Eigen::Vector3d::UnitY()) *
                                           Eigen::AngleAxisd(0.2, Eigen::Vector3d::UnitX()) *
                                           Eigen::AngleAxisd(roll, Eigen::Vector3d::UnitZ()))
                                              .toRotationMatrix();
                Row4 local = Row4::Identity();
                local.topLeftCorner<3, 3>() =
                    Eigen::Vector3d(p.scale[0], p.scale[1], p.scale[2]).asDiagonal() *
                    r.transpose();
                local.block<1, 3>(3, 0) = Eigen::RowVector3d(p.move[0], p.move[1], p.move[2]);
                world[i] = p.parent < 0 ? local : Row4(local * world[unsigned(p.parent)]);
            }
            benchmark::DoNotOptimize(world.data());
        }
        start += kFrames;
    }
    per_item_frame(state, kItems * kFrames);
}

void BM_WorldMatrixReread(benchmark::State &state) {
    Scene &s = shared_scene();
    CineEvalSetTime(s.eval, 0.5);
    double m[16];
    for (const Placed &p : s.placed) XfrmWorldTransform4(s.eval, p.item, m);
    for (auto _ : state) {
        for (const Placed &p : s.placed) {
            XfrmWorldTransform4(s.eval, p.item, m);
            benchmark::DoNotOptimize(m);
        }
    }
    per_item_frame(state, kItems);
}

// Any cache hit: a constant number channel of the same items, read again at the same time.
void BM_NumberChannelReread(benchmark::State &state) {
    Scene &s = shared_scene();
    CineEvalSetTime(s.eval, 0.5);
    for (const Placed &p : s.placed) CineEvalChannel(s.eval, p.item, 9);
    for (auto _ : state) {
        for (const Placed &p : s.placed)
            benchmark::DoNotOptimize(CineEvalChannel(s.eval, p.item, 9));
    }
    per_item_frame(state, kItems);
}

BENCHMARK(BM_WorldMatricesThroughEvaluator)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WorldMatricesEigen)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WorldMatrixReread)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NumberChannelReread)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
