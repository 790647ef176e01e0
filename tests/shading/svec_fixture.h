// Shared set-up for the shading-vector tests: the module started for each test and a capture
// of the "sampleVector" log.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <vexor/host.h>
#include <vexor/svec.h>
#include <vexor/sys/component.h>

#include "foundation/log.h"

namespace vx::test {

class SVecTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(SVecStartup(), 1);
        log::set_sink(capture, &lines);
    }
    void TearDown() override {
        log::set_sink(nullptr, nullptr);
        SVecShutdown();
    }
    // Lines of the module's log written so far, and forgets them.
    std::vector<std::string> take_lines() { return std::exchange(lines, {}); }
    // The category index of a packet of "sample".
    static unsigned idx(const char *name) { return VPacketOffset("sample", name); }

    std::vector<std::string> lines;

  private:
    static void capture(void *client, int kind, const char *source, const char *text) {
        if (kind == static_cast<int>(log::Kind::named) &&
            std::strcmp(source, "sampleVector") == 0) {
            static_cast<std::vector<std::string> *>(client)->push_back(text);
        }
    }
};

// The packets of a type of "sample" as "name@offset", by offset, and its size.
inline std::string layout(const VType *t) {
    std::vector<std::pair<unsigned, std::string>> packets;
    for (unsigned n = 0; n < VTypeCount(t); ++n) {
        const unsigned i = VTypePacketIndex(t, n);
        const char *name = VPacketName("sample", i);
        packets.emplace_back(VTypePacketOffset(t, i), name != nullptr ? name : "?");
    }
    std::sort(packets.begin(), packets.end());
    std::string out;
    for (const auto &[offset, name] : packets) out += name + "@" + std::to_string(offset) + " ";
    return out + "= " + std::to_string(VTypeSize(t));
}

// A component object class for object packets and effects; objects start with one reference.
inline void *make_probe_object() {
    static const XObjectMethods methods = XOBJECT_METHODS_INIT;
    XObjectDefineClass("svecProbe", 4, nullptr);
    XObjectAddInterface("svecProbe", "{3B4C5D6E-7F80-4912-A3B4-C5D6E7F80912}", &methods);
    void *object = nullptr;
    XObjectAllocate("svecProbe", &object);
    return object;
}

}  // namespace vx::test
