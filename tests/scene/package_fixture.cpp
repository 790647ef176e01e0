#include "package_fixture.h"

#include <vexor/sys/component.h>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "scene/cinema_module.h"

namespace vx::test {
namespace {

struct HostObject {
    HostPackage *data;
};

unsigned int setup_channels(void *obj, void *add_chan) {
    const HostPackage &pkg = *static_cast<HostObject *>(obj)->data;
    void *table = nullptr;
    if (XObjectQueryInterface(add_chan, CINE_ADD_CHANNEL_GUID, &table) != VX_OK) {
        return VX_E_FAILED;
    }
    const auto *add = static_cast<const CineAddChannelMethods *>(table);
    unsigned int code = VX_OK;
    for (int i = 0; i < pkg.channels && code == VX_OK; ++i) {
        std::string name = pkg.prefix + std::to_string(i);
        code = add->AddChannel(add_chan, CINE_CH_NAME, name.c_str(), VX_STORE_FLOAT,
                               static_cast<const char *>(nullptr), CINE_CH_DEFAULT, pkg.base + i,
                               CINE_CH_NAME, static_cast<const char *>(nullptr));
    }
    XObjectRelease(add_chan);
    return code;
}

struct ProbeMethods {
    XObjectMethods object;
};

const CinePackageMethods kPackageMethods = {XOBJECT_METHODS_INIT, setup_channels};
const ProbeMethods kProbeMethods = {XOBJECT_METHODS_INIT};

void *make_host_object(void *data) {
    auto *pkg = static_cast<HostPackage *>(data);
    if (pkg->refuse) return nullptr;
    void *obj = nullptr;
    if (XObjectAllocate("test.hostPackage", &obj) != VX_OK) return nullptr;
    static_cast<HostObject *>(obj)->data = pkg;
    ++pkg->made;
    return obj;
}

void hear_resolved(void *client, void *, std::uint32_t code, void *data) {
    if (code != CINE_EVENT_TYPE_RESOLVED) return;
    static_cast<std::vector<std::string> *>(client)->push_back(
        CinePackageName(static_cast<CinePackage *>(data)));
}

void capture(void *client, int, const char *, const char *text) {
    static_cast<std::vector<std::string> *>(client)->push_back(text);
}

}  // namespace

HostServer *add_host_package(const char *name, const char *super, HostPackage *data) {
    XObjectDefineClass("test.hostPackage", sizeof(HostObject), nullptr);
    XObjectAddInterface("test.hostPackage", CINE_PACKAGE_GUID, &kPackageMethods);
    XObjectAddInterface("test.hostPackage", kProbeGuid, &kProbeMethods);
    HostServer *server = HostAddBuiltIn("package", name, make_host_object, data);
    if (server != nullptr && super != nullptr) ServerAddTag(server, "super", super);
    return server;
}

// The package registry on its own: the scene module without the modules above it, so that no
// type the library ships (such as its modifiers' item types) is there before the test's own.
void PackageTest::SetUp() {
    ASSERT_EQ(vx::guard(0,
                        [] {
                            vx::cine::start_module();
                            return 1;
                        }),
              1);
    attachment_ = ::PortAttach(::PortLookup("cinema-db"), hear_resolved, &resolved, nullptr);
    ASSERT_NE(attachment_, 0u);
    vx::log::set_sink(capture, &lines);
}

void PackageTest::TearDown() {
    vx::log::set_sink(nullptr, nullptr);
    ::PortDetach(::PortLookup("cinema-db"), attachment_);
    vx::cine::stop_module();
}

}  // namespace vx::test
