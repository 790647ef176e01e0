#include "svec_fixture.h"

#include <vexor/sys/component.h>

#include <cstring>

#include "foundation/log.h"

namespace vx::test {
namespace {

void capture(void *client, int kind, const char *source, const char *text) {
    if (kind == static_cast<int>(log::Kind::named) && std::strcmp(source, "sampleVector") == 0) {
        static_cast<std::vector<std::string> *>(client)->push_back(text);
    }
}

}  // namespace

void SVecTest::SetUp() {
    ASSERT_EQ(SVecStartup(), 1);
    log::set_sink(capture, &lines);
}

void SVecTest::TearDown() {
    log::set_sink(nullptr, nullptr);
    SVecShutdown();
}

std::vector<std::string> SVecTest::take_lines() {
    return std::exchange(lines, {});
}

void *make_probe_object() {
    static const XObjectMethods methods = XOBJECT_METHODS_INIT;
    XObjectDefineClass("svecProbe", 4, nullptr);
    XObjectAddInterface("svecProbe", "{3B4C5D6E-7F80-4912-A3B4-C5D6E7F80912}", &methods);
    void *object = nullptr;
    XObjectAllocate("svecProbe", &object);
    return object;
}

}  // namespace vx::test
