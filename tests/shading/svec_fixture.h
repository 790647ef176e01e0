// Shared set-up for the shading-vector tests: the module started for each test and a capture
// of the "sampleVector" log.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vexor/host.h>
#include <vexor/svec.h>

namespace vx::test {

class SVecTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Lines of the module's log written so far, and forgets them.
    std::vector<std::string> take_lines();
    // The category index of a packet of "sample".
    static unsigned idx(const char *name) { return VPacketOffset("sample", name); }

    std::vector<std::string> lines;
};

// A component object class for object packets and effects; objects start with one reference.
void *make_probe_object();

}  // namespace vx::test
