// Shared set-up for the evaluation tests: a started scene module with the built-in modifiers, a
// scene, a "probe" item type with float, integer and matrix channels, and modifiers that tests
// configure with plain rules.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/eval.h>
#include <vexor/host.h>
#include <vexor/scene.h>

#include "support/log_lines.h"

namespace vx::test {

// Channels of a probe item.
enum ProbeChannel : unsigned { kA = 0, kB = 1, kC = 2, kCount = 3, kMatrix = 4 };

// A modifier made by a test. For every item of `type`, each rule makes one node that reads the
// named channels of the item (and the time when `time` is set) and writes `output`.
struct Rule {
    std::vector<std::string> inputs;
    std::string output;
    std::function<double(const std::vector<double> &, double time)> fn;
    bool time = false;
    bool refuse = false;  // the factory fails to make the node
    bool matrix = false;  // the output is a matrix: a translation by fn's result along x, or
                          // nothing written when the result is NaN
};

struct TestModifier {
    std::string type = "probe";
    std::vector<Rule> rules;
    std::atomic<int> runs{0};  // node evaluations, on any thread
};

class EvalTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    CineItem *probe();
    CineAction *action(unsigned kind) { return CineActionGetDefault(scene, kind); }
    // A new evaluator at the default action of that kind and the time, not yet evaluated.
    CineEval *evaluator(unsigned kind, double time = 0.0);
    // An envelope through (0, v0) and (1, v1), linear, held by the action for the channel.
    Envelope *animate(CineAction *act, CineItem *item, unsigned channel, double v0, double v1);
    // Registers a test modifier under a name, with a type list.
    void add_modifier(const char *name, TestModifier &mod, const char *types = "probe");
    // The log lines that contain the text.
    std::vector<std::string> lines_with(const std::string &text) const;

    Cinema *scene = nullptr;
    std::uint32_t probe_type = 0;
    std::vector<std::string> lines;
};

}  // namespace vx::test
