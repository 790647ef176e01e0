// Modifiers: the shipped linear blend, validation (absent types, failed nodes, cycles), the
// order in which nodes run, matrix outputs, and validation again after the scene changes.
#include <algorithm>
#include <cmath>

#include "eval/eval_data.h"
#include "eval/modifier_builtin.h"
#include "eval_fixture.h"
#include "scene/scene.h"
#include "support/alloc_injection.h"

namespace vx::test {
namespace {

class Modifiers : public EvalTest {
  protected:
    // An evaluator of "edit" evaluated once, so that the modifiers are validated.
    CineEval *evaluated(double time) {
        CineEval *ev = evaluator(9, time);
        EXPECT_EQ(CinemaEvaluate(ev), 1);
        return ev;
    }
};

double sum(const std::vector<double> &in, double) {
    double total = 0.0;
    for (double v : in) total += v;
    return total;
}

TEST_F(Modifiers, LinearBlendDrivesItsOutputFromItsInputsAndTheTime) {
    const std::uint32_t type = CineLookupType(eval::kLinearBlend);
    CineItem *blend = CineItemCreate(scene, type);
    ASSERT_NE(blend, nullptr);
    auto channel = [&](const char *name) {
        return static_cast<unsigned>(CineItemLookupChannel(blend, name));
    };
    CineAction *edit = action(9);
    ASSERT_EQ(CineActionSetConstant(edit, blend, channel("inputA"), 2.0), 1);
    ASSERT_EQ(CineActionSetConstant(edit, blend, channel("weightB"), 3.0), 1);
    ASSERT_EQ(CineActionSetConstant(edit, blend, channel("timeWeight"), 10.0), 1);
    ASSERT_EQ(CineActionSetConstant(edit, blend, channel("offset"), 0.5), 1);
    animate(edit, blend, channel("inputB"), 0.0, 1.0);

    CineEval *ev = evaluated(0.5);
    ASSERT_EQ(CinemaModNodeCount(scene), 1u);
    EXPECT_EQ(std::string(CineModNodeName(CinemaModNodeByIndex(scene, 0))),
              std::string("linearBlend:") + CineItemUniqueName(blend) + ":0");
    EXPECT_EQ(CineModIsEnabled(CinemaModNodeByIndex(scene, 0)), 1);
    // 0.5 + 1 * 2 + 3 * 0.5 + 10 * 0.5
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, blend, channel("output")), 9.0);
    // The output depends on the time, so a new time recomputes it; an input edit does too.
    CineEvalSetTime(ev, 1.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, blend, channel("output")), 15.5);
    ASSERT_EQ(CineActionSetConstant(edit, blend, channel("inputA"), 4.0), 1);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, blend, channel("output")), 17.5);
}

TEST_F(Modifiers, NodesRunAfterTheNodesThatWriteTheirInputsAndOnlyTimedOnesRunAgain) {
    TestModifier chain;
    // Registered first, but reads what the second rule writes.
    chain.rules.push_back(
        {{"b"}, "c", [](const std::vector<double> &in, double) { return in[0] + 1; }});
    chain.rules.push_back(
        {{"a"}, "b", [](const std::vector<double> &in, double) { return in[0] * 10; }});
    add_modifier("chain", chain);
    // A matrix output read as sixteen numbers: a translation along x by a + t.
    TestModifier mover;
    Rule move{{"a"}, "m", [](const std::vector<double> &in, double t) { return in[0] + t; }};
    move.time = move.matrix = true;
    mover.rules.push_back(move);
    add_modifier("mover", mover);
    CineItem *item = probe();
    ASSERT_EQ(CineActionSetConstant(action(9), item, kA, 2.0), 1);
    CineEval *ev = evaluated(0.5);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), 21.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kB), 20.0);
    const int runs = chain.runs;
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), 21.0);
    EXPECT_EQ(chain.runs, runs);  // a cache hit runs nothing
    const auto *m = static_cast<const double *>(CineEvalChannelVal(ev, item, kMatrix));
    ASSERT_NE(m, nullptr);
    EXPECT_DOUBLE_EQ(m[3], 2.5);
    EXPECT_DOUBLE_EQ(m[0], 1.0);
    // The chain does not depend on the time: a new time keeps it, and runs only the mover.
    CineEvalSetTime(ev, 3.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), 21.0);
    EXPECT_EQ(chain.runs, runs);
    m = static_cast<const double *>(CineEvalChannelVal(ev, item, kMatrix));
    EXPECT_DOUBLE_EQ(m[3], 5.0);
}

TEST_F(Modifiers, AMatrixNoNodeWritesKeepsWhatCameBeforeAtEveryTime) {
    // Two nodes write "m" in turn: before t = 1 neither writes, so the action's matrix stands;
    // from 1 the first does (a + t); from 2 the second does too (10 t) and its matrix wins.
    TestModifier mod;
    Rule first{{"a"}, "m", [](const std::vector<double> &in, double t) {
                   return t < 1.0 ? std::nan("") : in[0] + t;
               }};
    Rule second{{}, "m", [](const std::vector<double> &, double t) {
                    return t < 2.0 ? std::nan("") : 10.0 * t;
                }};
    first.time = first.matrix = second.time = second.matrix = true;
    mod.rules = {first, second};
    add_modifier("movers", mod);
    CineItem *item = probe();
    const double held[16] = {2, 0, 0, 7, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1};
    ASSERT_EQ(CineActionSetConstantMatrix(action(9), item, kMatrix, held), 1);
    CineEval *ev = evaluated(0.5);
    const struct {
        double time, x, scale;
    } rows[] = {{0.5, 7.0, 2.0}, {1.5, 2.5, 1.0}, {2.5, 25.0, 1.0}, {0.25, 7.0, 2.0}};
    for (const auto &row : rows) {
        CineEvalSetTime(ev, row.time);
        for (int pass = 0; pass < 2; ++pass) {  // computed, then a cache hit
            const auto *m = static_cast<const double *>(CineEvalChannelVal(ev, item, kMatrix));
            ASSERT_NE(m, nullptr);
            EXPECT_DOUBLE_EQ(m[3], row.x) << row.time;
            EXPECT_DOUBLE_EQ(m[0], row.scale) << row.time;
        }
    }
}

TEST_F(Modifiers, ACycleIsReportedAndLeftOutWhileOtherNodesRun) {
    TestModifier mod;
    mod.rules.push_back({{"a"}, "b", sum});
    mod.rules.push_back({{"b"}, "a", sum});
    mod.rules.push_back({{"a", "b"}, "c", sum, true});
    add_modifier("loop", mod);
    CineItem *item = probe();
    CineEval *ev = evaluated(0.25);
    ASSERT_EQ(lines_with("found cycle:").size(), 1u);
    const auto steps = lines_with(std::string("loop:") + CineItemUniqueName(item));
    EXPECT_EQ(steps.size(), 2u);
    EXPECT_EQ(CinemaModNodeCount(scene), 1u);
    // The cycle's channels keep their action values; the third node still sums them.
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 1.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kB), 2.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), 3.0);
}

TEST_F(Modifiers, AbsentTypesAndFailedNodesMakeNoNodesAndEvaluationGoesOn) {
    CinePackageDefine("lonely");
    ASSERT_NE(CineDefineType(0, 0, "lonely"), CINE_TYPE_NONE);
    TestModifier unused;
    unused.type = "lonely";
    unused.rules.push_back({{"a"}, "b", sum});
    add_modifier("unused", unused, "lonely");
    TestModifier refused;
    refused.rules.push_back({{"a"}, "b", sum, false, true});
    refused.rules.push_back(
        {{"a"}, "c", [](const std::vector<double> &in, double) { return -in[0]; }});
    add_modifier("picky", refused);
    // A server that promises an interface its nodes do not have.
    TestModifier promising;
    promising.rules.push_back({{"b"}, "a", sum});
    add_modifier("promising", promising);
    HostAddTag(CINE_MODIFIER_CLASS, "promising", "modifier.guidList",
               "{0A1B2C3D-4E5F-4071-8293-A4B5C6D7E8F9}");
    CineItem *item = probe();
    CineEval *ev = evaluated(0.0);
    for (const char *name : {"picky", "promising"}) {
        EXPECT_EQ(lines_with(std::string("failed to create modifier: ") + name + " for " +
                             CineItemUniqueName(item) + "\n")
                      .size(),
                  1u);
    }
    EXPECT_EQ(CinemaModNodeCount(scene), 1u);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kA), 1.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kB), 2.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), -1.0);
    EXPECT_EQ(unused.runs, 0);
}

TEST_F(Modifiers, ItemsMadeAfterValidationGetNodesAtTheNextEvaluation) {
    TestModifier mod;
    mod.rules.push_back({{"a", "b"}, "c", sum});
    add_modifier("adder", mod);
    CineItem *first = probe();
    CineEval *ev = evaluated(0.0);
    EXPECT_EQ(CinemaModNodeCount(scene), 1u);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, first, kC), 3.0);
    // An item made inside an open change batch leaves the scene in flux: validation says so,
    // and evaluation ends it.
    CinemaBatchBegin(scene);
    CineItem *second = probe();
    CinemaBatchEnd(scene);
    ASSERT_EQ(CineActionSetConstant(action(9), second, kA, 5.0), 1);
    lines.clear();
    ASSERT_EQ(CinemaEvaluate(ev), 1);
    EXPECT_EQ(CinemaModNodeCount(scene), 2u);
    EXPECT_EQ(lines_with("Validating modifiers while cinema is in flux !").size(), 1u);
    EXPECT_FALSE(scene->in_flux);
    probe();  // outside a batch: no longer in flux
    ASSERT_EQ(CinemaEvaluate(ev), 1);
    EXPECT_EQ(lines_with("Validating modifiers while cinema is in flux !").size(), 1u);
    EXPECT_EQ(CinemaModNodeCount(scene), 3u);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, second, kC), 7.0);
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, first, kC), 3.0);
    // A server registered later is taken in too.
    TestModifier later;
    later.rules.push_back(
        {{"c"}, "count", [](const std::vector<double> &in, double) { return in[0] * 2; }});
    add_modifier("later", later);
    ASSERT_EQ(CinemaEvaluate(ev), 1);
    EXPECT_EQ(CinemaModNodeCount(scene), 6u);  // one more node on each of the three items
    EXPECT_EQ(CineEvalChannelInt(ev, second, kCount), 14);
}

// A read remembers which nodes write its channel: a node that a new validation adds is seen by
// the next read of a channel read before it, at the same time.
TEST_F(Modifiers, AChannelReadBeforeItsWritersChangeIsComputedByTheNewOnes) {
    TestModifier adder;
    adder.rules.push_back({{"a", "b"}, "c", sum});
    add_modifier("adder", adder);
    CineItem *item = probe();
    CineEval *ev = evaluated(0.0);
    EXPECT_NE(CineEvalChannelInt(ev, item, kCount), 6);  // no node writes it yet
    EXPECT_DOUBLE_EQ(CineEvalChannel(ev, item, kC), 3.0);
    TestModifier doubler;
    doubler.rules.push_back(
        {{"c"}, "count", [](const std::vector<double> &in, double) { return in[0] * 2; }});
    add_modifier("doubler", doubler);
    ASSERT_EQ(CinemaEvaluate(ev), 1);
    EXPECT_EQ(CineEvalChannelInt(ev, item, kCount), 6);
}

TEST_F(Modifiers, AFailedAllocationWhileReadingLeavesNothingBehindAndNoWrongValue) {
    TestModifier mod;
    mod.rules.push_back({{"a", "b"}, "c", sum, true});
    add_modifier("adder", mod);
    CineItem *item = probe();
    animate(action(9), item, kA, 0.0, 10.0);
    CineEval *first = evaluated(0.0);  // validated: the node exists
    for (unsigned mode : {2u, 3u}) {
        bool raised = true;
        for (std::uint64_t n = 1; raised; ++n) {
            const AllocCounts before = alloc_counts();
            double value = -1.0;
            {
                FailAllocation fail(n);
                CineEval *ev = CineEvalCreateSpecial(scene, mode);
                if (ev != nullptr) {
                    CineEvalSetAction(ev, action(9));
                    CineEvalSetTime(ev, 0.5);
                    value = CineEvalChannel(ev, item, kC);
                    CineEvalDestroy(ev);
                }
                raised = injected_failure_raised();
            }
            // A read either fails (0) or is right; without a failure every step worked.
            if (!raised || (value != 0.0 && value != -1.0)) {
                EXPECT_DOUBLE_EQ(value, 7.0) << "mode " << mode << " n " << n;
            }
            EXPECT_EQ(alloc_counts().live_blocks, before.live_blocks)
                << "mode " << mode << " n " << n;
        }
    }
    EXPECT_DOUBLE_EQ(CineEvalChannel(first, item, kC), 2.0);
}

}  // namespace
}  // namespace vx::test
