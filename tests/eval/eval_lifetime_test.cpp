// Evaluators against what hosts do around them: scenes destroyed under them, times that differ
// by less than the tolerance, raw reads of every kind of channel, and defaults changed late.
#include <gtest/gtest.h>

#include <limits>

#include <vexor/failure.h>
#include <vexor/package.h>

#include "eval_fixture.h"

namespace vx::test {
namespace {

using Lifetime = EvalTest;

// Under AddressSanitizer: no call on an evaluator touches the destroyed scene, and each is
// freed once, by CineEvalDestroy or, for the one no host destroys, by CinemaShutdown.
TEST_F(Lifetime, EvaluatorsOutliveTheirSceneInert) {
    Cinema *doomed = CinemaCreate(0);
    CineItem *item = CineItemCreate(doomed, probe_type);
    CineEval *shared = CineEvalCreate(doomed);
    CineEval *own = CineEvalCreateSpecial(doomed, 2);
    CineEval *forgotten = CineEvalCreate(doomed);
    for (CineEval *ev : {shared, own, forgotten}) {
        CineEvalSetAction(ev, CineActionGetDefault(doomed, 9));
        EXPECT_EQ(CineEvalChannel(ev, item, kA), 1.0);
    }
    CinemaDestroy(doomed);

    for (CineEval *ev : {shared, own}) {
        VxClearFailure();
        EXPECT_EQ(CinemaEvaluate(ev), 0);
        EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
        EXPECT_EQ(CineEvalContext(ev), nullptr);
        EXPECT_EQ(CineEvalAction(ev), nullptr);
        CineEvalSetTime(ev, 2.0);
        CineEvalSetAction(ev, action(9));  // an action of a live scene changes nothing
        EXPECT_EQ(CineEvalAction(ev), nullptr);
        EXPECT_EQ(CineEvalGetDriver(ev), nullptr);
        CineEvalBeginBake(ev, 1.0);
        EXPECT_EQ(CineEvalEndBake(ev), 0);
        CineEvalDestroy(ev);
    }
}

TEST_F(Lifetime, TimesWithinTheToleranceAreOneTime) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 1000.0);  // 1000 per second: 0.05 per 0.00005 s
    for (unsigned mode : {0u, 2u}) {
        CineEval *ev = CineEvalCreateSpecial(scene, mode);
        CineEvalSetAction(ev, action(9));
        CineEvalSetTime(ev, 0.5);
        EXPECT_EQ(CineEvalChannel(ev, item, kA), 500.0);
        CineEvalSetTime(ev, 0.50009);
        EXPECT_EQ(CineEvalTime(ev), 0.5) << mode;
        EXPECT_EQ(CineEvalChannel(ev, item, kA), 500.0) << mode;
        CineEvalSetTime(ev, 0.5002);
        EXPECT_NEAR(CineEvalChannel(ev, item, kA), 500.2, 1e-9) << mode;
        CineEvalSetTime(ev, std::numeric_limits<double>::quiet_NaN());
        EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
        EXPECT_EQ(CineEvalTime(ev), 0.5002);
        CineEvalDestroy(ev);
    }
    // A shared evaluator within the tolerance of another's cache joins it, values and all.
    CineEval *first = evaluator(9, 0.25);
    EXPECT_EQ(CineEvalChannel(first, item, kA), 250.0);
    CineEval *near = evaluator(9, 0.25005);
    EXPECT_EQ(CineEvalChannel(near, item, kA), 250.0);
}

TEST_F(Lifetime, RawReadsAnswerEveryKindWithItsFallBacks) {
    CineItem *item = probe();
    CineItem *copy = probe();
    CineEval *ev = evaluator(9);
    auto number = [&](CineItem *i, unsigned channel) {
        const void *value = CineEvalRawChannelVal(ev, i, channel);
        return value != nullptr ? *static_cast<const double *>(value) : -1.0;
    };
    EXPECT_EQ(number(item, kB), 2.0) << "the package default";
    EXPECT_EQ(number(item, kCount), 7.0);
    ASSERT_EQ(CineActionSetConstant(action(1), item, kB, 4.5), 1);
    ASSERT_EQ(CineItemSetSource(copy, item), 1);
    EXPECT_EQ(number(copy, kB), 4.5) << "the source item's value";
    EXPECT_EQ(*static_cast<const double *>(CineActionValueCust(action(9), copy, kB)), 4.5);
    EXPECT_EQ(CineEvalRawChannelVal(ev, item, 99), nullptr) << "no such channel";

    // A default set after items exist reaches them, items made later, and raw reads.
    const double late = 8.25;
    ASSERT_EQ(CinePackageSetDefault("probe", "c", &late), 1u);
    EXPECT_EQ(number(item, kC), late);
    EXPECT_EQ(CineActionValueFloat(action(9), probe(), kC), late);
    EXPECT_EQ(CineEvalChannel(evaluator(9, 3.0), probe(), kC), late);
}

}  // namespace
}  // namespace vx::test
