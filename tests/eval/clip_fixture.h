// Shared set-up for the action clip tests: groups and clips started on a small item type, a
// scene, and a text form of every clip for exact comparisons.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/actionclip.h>
#include <vexor/group.h>
#include <vexor/scene.h>

#include "support/log_lines.h"

namespace vx::test {

class ClipTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // tstBody: float "x" (default 0), float "y" (default 0), matrix "tm".
    std::uint32_t body = 0;
    Cinema *scene = nullptr;
    std::vector<std::string> lines;  // log lines
};

CineItem *make_named(Cinema *scene, std::uint32_t type, const char *name);
// Per clip: name, kind, enabled, active, and the claimed channels "item.channel:state".
std::string clips(Cinema *scene);
// The value an evaluator on "edit" reads at a time.
double evaluated(Cinema *scene, CineItem *item, unsigned channel, double time = 0.0);

}  // namespace vx::test
