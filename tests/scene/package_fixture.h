// Shared set-up for the package and type tests: the scene module started for each test, a
// host's own package servers, and a capture of log lines.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vexor/cinema.h>
#include <vexor/host.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/sys/component.h>
#include <vexor/sys/package.h>

#include "foundation/guard.h"
#include "scene/cinema_module.h"
#include "support/log_lines.h"

namespace vx::test {

// A package a host supplies as a server: its factory makes a component object that describes
// `channels` float channels named "<prefix>0", "<prefix>1", ... with default `base` + index.
struct HostPackage {
    const char *prefix = "c";
    int channels = 0;
    double base = 0.0;
    bool refuse = false;  // the factory makes nothing
    int made = 0;         // objects the factory has made
};

// An interface the host packages of the tests report.
inline constexpr const char *kProbeGuid = "{5E1F0A2B-9C3D-4E5F-8A6B-7C8D9E0F1A2B}";

inline unsigned int host_package_channels(void *obj, void *add_chan) {
    const HostPackage &pkg = **static_cast<HostPackage **>(obj);
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

inline HostServer *add_host_package(const char *name, const char *super, HostPackage *data) {
    static const CinePackageMethods package = {XOBJECT_METHODS_INIT, host_package_channels};
    static const XObjectMethods probe = XOBJECT_METHODS_INIT;
    XObjectDefineClass("test.hostPackage", sizeof(HostPackage *), nullptr);
    XObjectAddInterface("test.hostPackage", CINE_PACKAGE_GUID, &package);
    XObjectAddInterface("test.hostPackage", kProbeGuid, &probe);
    HostServer *server = HostAddBuiltIn(
        "package", name,
        [](void *client) -> void * {
            auto *pkg = static_cast<HostPackage *>(client);
            void *obj = nullptr;
            if (pkg->refuse || XObjectAllocate("test.hostPackage", &obj) != VX_OK) return nullptr;
            *static_cast<HostPackage **>(obj) = pkg;
            ++pkg->made;
            return obj;
        },
        data);
    if (server != nullptr && super != nullptr) ServerAddTag(server, "super", super);
    return server;
}

// The package registry on its own: the scene module without the modules above it, so that no
// type the library ships (such as its modifiers' item types) is there before the test's own.
class PackageTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(vx::guard(0,
                            [] {
                                vx::cine::start_module();
                                return 1;
                            }),
                  1);
        attachment_ = ::PortAttach(
            ::PortLookup("cinema-db"),
            [](void *client, void *, std::uint32_t code, void *data) {
                if (code != CINE_EVENT_TYPE_RESOLVED) return;
                static_cast<std::vector<std::string> *>(client)->push_back(
                    CinePackageName(static_cast<CinePackage *>(data)));
            },
            &resolved, nullptr);
        ASSERT_NE(attachment_, 0u);
        capture_log(lines);
    }
    void TearDown() override {
        release_log();
        ::PortDetach(::PortLookup("cinema-db"), attachment_);
        vx::cine::stop_module();
    }

    // Type-resolution events heard on "cinema-db": the names of the records, in order.
    std::vector<std::string> resolved;
    // Lines written to the log while the test runs.
    std::vector<std::string> lines;

  private:
    std::uint64_t attachment_ = 0;
};

}  // namespace vx::test
