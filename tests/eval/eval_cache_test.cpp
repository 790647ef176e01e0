// Evaluators and their caches: sharing, reuse by nearest time and least wanted action,
// re-timing, invalidation by action edits, private caches, and the failures; and evaluators
// against what hosts do around them: scenes destroyed under them, times that differ by less
// than the tolerance, raw reads of every kind of channel, and defaults changed late.
#include <cstring>
#include <limits>

#include <vexor/failure.h>
#include <vexor/package.h>

#include "eval/eval_data.h"
#include "eval_fixture.h"

namespace vx::test {
namespace {

using Caches = EvalTest;

const eval::ValueRecord *record_of(CineEval *ev, CineItem *item, unsigned channel) {
    return ev->cache != nullptr ? ev->cache->find({item, channel}) : nullptr;
}

TEST_F(Caches, SharedEvaluatorsAtOneActionAndTimeShareACacheAndItsValues) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    CineEval *one = CineEvalCreate(scene);
    CineEval *two = CineEvalCreateSpecial(scene, 1);  // mode 1 is shared, as mode 0
    for (CineEval *ev : {one, two}) {
        CineEvalSetAction(ev, action(9));
        CineEvalSetTime(ev, 0.5);
        ASSERT_EQ(CinemaEvaluate(ev), 1);
    }
    ASSERT_NE(one->cache, nullptr);
    EXPECT_EQ(one->cache, two->cache);
    EXPECT_EQ(one->cache->refs, 2);
    EXPECT_DOUBLE_EQ(CineEvalChannel(one, item, kA), 5.0);
    // The second evaluator reads the record the first one filled.
    EXPECT_EQ(CineEvalChannelVal(two, item, kA), CineEvalChannelVal(one, item, kA));
    EXPECT_EQ(eval::find_eval_data(*scene)->caches.size(), 1u);

    // The same time again keeps the cache and its values.
    const eval::ValueRecord *before = record_of(one, item, kA);
    CineEvalSetTime(one, 0.5);
    EXPECT_EQ(record_of(one, item, kA), before);
    EXPECT_TRUE(one->cache->current(*record_of(one, item, kA)));

    // Another time detaches; the next read gets another cache while the first is held.
    CineEvalSetTime(two, 0.25);
    EXPECT_EQ(two->cache, nullptr);
    EXPECT_EQ(one->cache->refs, 1);
    EXPECT_DOUBLE_EQ(CineEvalChannel(two, item, kA), 2.5);
    EXPECT_NE(two->cache, one->cache);
}

TEST_F(Caches, AFreeCacheIsReusedByNearestTimeAndDropsOnlyAnimatedValues) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    ASSERT_EQ(CineActionSetConstant(action(9), item, kB, 4.0), 1);
    CineEval *early = evaluator(9);
    CineEval *late = evaluator(9, 10.0);
    ASSERT_EQ(CinemaEvaluate(early), 1);
    ASSERT_EQ(CinemaEvaluate(late), 1);
    eval::Cache *at0 = early->cache;
    eval::Cache *at10 = late->cache;
    ASSERT_NE(at0, at10);
    EXPECT_DOUBLE_EQ(CineEvalChannel(early, item, kA), 0.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(early, item, kB), 4.0);
    const eval::ValueRecord *constant = record_of(early, item, kB);

    // Both let go; time 3 is nearer to 0 than to 10.
    CineEvalSetTime(early, 3.0);
    CineEvalSetTime(late, 11.0);
    ASSERT_EQ(CinemaEvaluate(early), 1);
    EXPECT_EQ(early->cache, at0);
    EXPECT_DOUBLE_EQ(at0->time(), 3.0);
    // The constant survived the re-timing untouched; the animated value was dropped.
    EXPECT_TRUE(at0->current(*constant));
    EXPECT_FALSE(at0->current(*record_of(early, item, kA)));
    EXPECT_DOUBLE_EQ(CineEvalChannel(early, item, kA), 10.0);  // linear, held after the last key
    EXPECT_EQ(record_of(early, item, kB), constant);
    ASSERT_EQ(CinemaEvaluate(late), 1);
    EXPECT_EQ(late->cache, at10);
    EXPECT_EQ(eval::find_eval_data(*scene)->caches.size(), 2u);
}

TEST_F(Caches, WithoutAFreeCacheOfItsActionAnEvaluatorTakesTheLeastWantedOne) {
    CineItem *item = probe();
    ASSERT_EQ(CineActionSetConstant(action(0), item, kA, 3.0), 1);
    CineEval *edit = evaluator(9);
    CineEval *anim = evaluator(1);
    ASSERT_EQ(CinemaEvaluate(edit), 1);
    ASSERT_EQ(CinemaEvaluate(anim), 1);
    eval::Cache *edit_cache = edit->cache;
    eval::Cache *anim_cache = anim->cache;
    CineEvalDestroy(edit);       // its cache is free and nobody wants "edit"
    CineEvalSetTime(anim, 2.0);  // free too, but "anim" still wants "scene"
    CineEval *setup = evaluator(0);
    ASSERT_EQ(CinemaEvaluate(setup), 1);
    EXPECT_EQ(setup->cache, edit_cache);
    EXPECT_EQ(edit_cache->action(), action(0));
    EXPECT_DOUBLE_EQ(CineEvalChannel(setup, item, kA), 3.0);
    ASSERT_EQ(CinemaEvaluate(anim), 1);
    EXPECT_EQ(anim->cache, anim_cache);
}

TEST_F(Caches, EditsOfActionsAndTheirEnvelopesDropTheValuesTheyTouch) {
    CineItem *item = probe();
    Envelope *env = animate(action(1), item, kA, 0.0, 10.0);
    CineEval *ev = evaluator(9, 1.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 10.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kB), 2.0);  // the package default
    // An entry in a later action of the order, and a key of an envelope held by an action.
    ASSERT_EQ(CineActionSetConstant(action(0), item, kB, 8.0), 1);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kB), 8.0);
    ASSERT_NE(EnvAddKey(env, 1.0, 20.0), nullptr);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 20.0);
    // An entry in "edit" masks the one in "scene".
    ASSERT_EQ(CineActionSetConstant(action(9), item, kA, -1.0), 1);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), -1.0);
}

TEST_F(Caches, PrivateEvaluatorsKeepTheirOwnCacheAndReTimeAtOnce) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    CineEval *shared = CineEvalCreate(scene);
    CineEval *map = CineEvalCreateSpecial(scene, 2);
    CineEval *slots = CineEvalCreateSpecial(scene, 3);
    for (CineEval *ev : {shared, map, slots}) {
        CineEvalSetAction(ev, action(9));
        CineEvalSetTime(ev, 0.2);
        EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 2.0);
    }
    EXPECT_NE(map->cache, shared->cache);
    EXPECT_NE(slots->cache, shared->cache);
    EXPECT_NE(map->cache, slots->cache);
    EXPECT_TRUE(map->cache->is_private());
    CineEvalSetTime(map, 0.7);
    EXPECT_DOUBLE_EQ(map->cache->time(), 0.7);  // at once, not at the next read
    EXPECT_DOUBLE_EQ(CineEvalChannel(map, item, kA), 7.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(slots, item, kA), 2.0);
    // A private evaluator that changes action drops the values of the old one.
    ASSERT_EQ(CineActionSetConstant(action(1), item, kA, 5.0), 1);
    CineEvalSetAction(slots, action(1));
    EXPECT_DOUBLE_EQ(CineEvalChannel(slots, item, kA), 5.0);
    CineEvalDestroy(map);
    CineEvalDestroy(slots);
    EXPECT_EQ(eval::find_eval_data(*scene)->caches.size(), 1u);
}

TEST_F(Caches, NoActionAndForeignActionsFailAndChangeNothing) {
    CineItem *item = probe();
    CineEval *ev = CineEvalCreate(scene);
    VxClearFailure();
    EXPECT_EQ(CinemaEvaluate(ev), 0);
    EXPECT_EQ(VxLastFailure().code, 0x80000003u);
    EXPECT_EQ(CineEvalChannel(ev, item, kA), 0.0);
    EXPECT_FALSE(lines_with("#[fail] <eval_evaluator>").empty());

    Cinema *other = CinemaCreate(0);
    ASSERT_NE(other, nullptr);
    CineEvalSetAction(ev, action(9));
    VxClearFailure();
    CineEvalSetAction(ev, CineActionGetDefault(other, 9));
    EXPECT_EQ(VxLastFailure().code, 0x80000003u);
    EXPECT_EQ(CineEvalAction(ev), action(9));
    // An item of the other scene is refused too.
    CineItem *stranger = CineItemCreate(other, probe_type);
    EXPECT_EQ(CineEvalChannel(ev, stranger, kA), 0.0);
    EXPECT_EQ(CineEvalChannel(ev, item, 99), 0.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 1.0);
    CinemaDestroy(other);
}

TEST_F(Caches, MatrixIntegerAndRawReads) {
    CineItem *item = probe();
    const double *identity =
        static_cast<const double *>(CineEvalRawChannelVal(nullptr, item, kMatrix));
    EXPECT_EQ(identity, nullptr);  // no evaluator
    CineEval *ev = evaluator(9);
    const auto *m = static_cast<const double *>(CineEvalChannelVal(ev, item, kMatrix));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m[0], 1.0);
    EXPECT_EQ(m[3], 0.0);
    double moved[16] = {1, 0, 0, 4, 0, 1, 0, 5, 0, 0, 1, 6, 0, 0, 0, 1};
    ASSERT_EQ(CineActionSetConstantMatrix(action(1), item, kMatrix, moved), 1);
    m = static_cast<const double *>(CineEvalChannelVal(ev, item, kMatrix));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(std::memcmp(m, moved, sizeof moved), 0);
    const auto *raw = static_cast<const double *>(CineEvalRawChannelVal(ev, item, kMatrix));
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(std::memcmp(raw, moved, sizeof moved), 0);

    EXPECT_EQ(CineEvalChannelInt(ev, item, kCount), 7);
    Envelope *env = animate(action(9), item, kA, 0.0, 10.0);
    EXPECT_EQ(CineEvalRawChannelEnv(ev, item, kA), env);
    EXPECT_EQ(CineEvalRawChannelEnv(ev, item, kB), nullptr);
    CineEvalSetTime(ev, 0.26);
    EXPECT_EQ(CineEvalChannelInt(ev, item, kA), 3);  // 2.6 rounds to 3
}

TEST_F(Caches, BakingReadsAtTheBakeTimeAndDropsWhatItReadWhenClosed) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    CineEval *ev = evaluator(9, 0.1);
    CineEval *watcher = evaluator(9, 0.5);
    EXPECT_DOUBLE_EQ(CineEvalChannel(watcher, item, kA), 5.0);

    CineEvalBeginBake(ev, 0.5);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 5.0);
    EXPECT_EQ(ev->cache, watcher->cache);
    EXPECT_EQ(CineChannelIsBaked(item, kA), 1);
    EXPECT_EQ(CineChannelIsBaked(item, kB), 0);
    EXPECT_EQ(CineEvalEndBake(ev), 1);
    EXPECT_EQ(CineChannelIsBaked(item, kA), 0);
    EXPECT_FALSE(watcher->cache->current(*record_of(watcher, item, kA)));
    EXPECT_DOUBLE_EQ(CineEvalTime(ev), 0.1);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 1.0);
    EXPECT_EQ(CineEvalEndBake(ev), 0);  // no bracket open

    // A failed read inside the bracket makes its result 0.
    CineEvalBeginBake(ev, 0.5);
    EXPECT_EQ(CineEvalChannel(ev, item, 99), 0.0);
    EXPECT_EQ(CineEvalEndBake(ev), 0);
}

TEST_F(Caches, ADriverReadsInTheCacheItHolds) {
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    CineEval *ev = evaluator(9, 0.3);
    void *driver = CineEvalGetDriver(ev);
    ASSERT_NE(driver, nullptr);
    EXPECT_STREQ(XObjectClassName(driver), "eval.cache");
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(driver, CINE_EVAL_DRIVER_GUID, &table), VX_OK);
    const auto *methods = static_cast<const CineEvalDriverMethods *>(table);
    EXPECT_DOUBLE_EQ(methods->Time(driver), 0.3);
    EXPECT_EQ(methods->Action(driver), action(9));
    EXPECT_DOUBLE_EQ(methods->Channel(driver, item, kA), 3.0);
    EXPECT_EQ(ev->cache->refs, 2);
    // The evaluator moves on; the driver's cache is not free for it to take.
    eval::Cache *held = ev->cache;
    CineEvalSetTime(ev, 0.9);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 9.0);
    EXPECT_NE(ev->cache, held);
    EXPECT_DOUBLE_EQ(methods->Channel(driver, item, kA), 3.0);
    XObjectRelease(driver);  // the query's reference
    XObjectRelease(driver);
    EXPECT_EQ(held->refs, 0);
}

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
