// Private evaluators read channels on several threads while the main thread evaluates with
// shared ones. Each thread reads animated channels whose envelopes only it evaluates (an
// envelope may not be evaluated by two threads at once), constants and defaults that every
// thread reads, the output of one modifier node that every thread runs, and a matrix written by
// a node that reads what another node writes.
#include <atomic>
#include <cmath>
#include <thread>

#include <vexor/log.h>

#include "eval/modifier_builtin.h"
#include "eval_fixture.h"
#include "scene/scene.h"

namespace vx::test {
namespace {

using Threads = EvalTest;

constexpr std::size_t kWorkers = 4;
constexpr int kItems = 6;
constexpr int kFrames = 120;

TEST_F(Threads, PrivateEvaluatorsReadOnWorkersWhileTheMainThreadEvaluates) {
    CineAction *edit = action(9);
    CineItem *blend = CineItemCreate(scene, CineLookupType(eval::kLinearBlend));
    ASSERT_NE(blend, nullptr);
    const auto output = static_cast<unsigned>(CineItemLookupChannel(blend, "output"));
    ASSERT_EQ(
        CineActionSetConstant(edit, blend, unsigned(CineItemLookupChannel(blend, "inputA")), 1.0),
        1);
    ASSERT_EQ(CineActionSetConstant(edit, blend,
                                    unsigned(CineItemLookupChannel(blend, "timeWeight")), 1.0),
              1);
    // Every probe gets the two nodes; only one probe's matrix is read: 2 (1 + t).
    TestModifier chained;
    Rule first{{"a"}, "c", [](const std::vector<double> &in, double t) { return in[0] + t; }};
    Rule second{{"c"}, "m", [](const std::vector<double> &in, double) { return 2.0 * in[0]; }};
    first.time = second.matrix = true;
    chained.rules = {second, first};
    add_modifier("chained", chained);
    CineItem *moved = probe();
    CineItem *common = probe();
    ASSERT_EQ(CineActionSetConstant(edit, common, kB, 42.0), 1);
    // Items of worker w start at w and rise by 10 over one second; the main thread's are last.
    std::vector<std::vector<CineItem *>> own(kWorkers + 1);
    for (std::size_t w = 0; w <= kWorkers; ++w) {
        for (int i = 0; i < kItems; ++i) {
            own[w].push_back(probe());
            animate(edit, own[w].back(), kA, double(w), double(w) + 10.0);
        }
    }

    std::atomic<int> wrong{0};
    auto check = [&](CineEval *ev, std::size_t w, double time) {
        for (CineItem *item : own[w]) {
            if (std::fabs(CineEvalChannel(ev, item, kA) - (double(w) + 10.0 * time)) > 1e-9)
                ++wrong;
        }
        if (CineEvalChannel(ev, common, kB) != 42.0) ++wrong;
        if (CineEvalChannel(ev, common, kA) != 1.0) ++wrong;
        if (std::fabs(CineEvalChannel(ev, blend, output) - (1.0 + time)) > 1e-9) ++wrong;
        const auto *m = static_cast<const double *>(CineEvalChannelVal(ev, moved, kMatrix));
        if (m == nullptr || std::fabs(m[3] - 2.0 * (1.0 + time)) > 1e-9) ++wrong;
    };
    std::vector<std::thread> workers;
    for (std::size_t w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&, w] {
            CineEval *ev = nullptr;
            for (int f = 0; f < kFrames; ++f) {
                if (f % 40 == 0) {
                    // Making and dropping evaluators changes the scene's lists meanwhile.
                    CineEvalDestroy(ev);
                    ev = CineEvalCreateSpecial(scene, w % 2 == 0 ? 2u : 3u);
                    CineEvalSetAction(ev, edit);
                }
                const double time = f / double(kFrames);
                CineEvalSetTime(ev, time);
                check(ev, w, time);
            }
            CineEvalDestroy(ev);
        });
    }
    CineEval *main_eval = CineEvalCreate(scene);
    CineEvalSetAction(main_eval, edit);
    for (int f = 0; f < kFrames; ++f) {
        const double time = f / double(kFrames);
        CineEvalSetTime(main_eval, time);
        if (CinemaEvaluate(main_eval) != 1) ++wrong;
        check(main_eval, kWorkers, time);
        CineEval *passer = CineEvalCreate(scene);
        CineEvalSetAction(passer, edit);
        CineEvalSetTime(passer, 1.0 - time);
        if (CinemaEvaluate(passer) != 1) ++wrong;
        CineEvalDestroy(passer);
    }
    for (std::thread &worker : workers) worker.join();
    CineEvalDestroy(main_eval);
    EXPECT_EQ(wrong.load(), 0);
}

// The main thread is the one that started the scene module, whichever thread made the first
// evaluator: a worker's evaluation leaves a scene in flux, the starting thread's ends it. The
// host thread is a fresh one so that no earlier test has shown the library its thread.
TEST(MainThread, IsTheThreadThatStartedTheSceneModuleNotTheFirstToEvaluate) {
    std::thread host([] {
        CinemaStartup();
        quiet_log();
        Cinema *scene = CinemaCreate(0);
        CinemaBatchBegin(scene);
        EXPECT_NE(CineItemCreate(scene, CineLookupType(eval::kLinearBlend)), nullptr);
        CinemaBatchEnd(scene);
        CineAction *edit = CineActionGetDefault(scene, 9);
        auto evaluate = [&] {
            CineEval *ev = CineEvalCreateSpecial(scene, 2);
            CineEvalSetAction(ev, edit);
            EXPECT_EQ(CinemaEvaluate(ev), 1);
            CineEvalDestroy(ev);
        };
        std::thread worker(evaluate);
        worker.join();
        EXPECT_TRUE(scene->in_flux);
        evaluate();
        EXPECT_FALSE(scene->in_flux);
        release_log();
        CinemaDestroy(scene);
        CinemaShutdown();
    });
    host.join();
}

}  // namespace
}  // namespace vx::test
