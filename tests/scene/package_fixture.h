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
#include <vexor/sys/package.h>

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

HostServer *add_host_package(const char *name, const char *super, HostPackage *data);

class PackageTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Type-resolution events heard on "cinema-db": the names of the records, in order.
    std::vector<std::string> resolved;
    // Lines written to the log while the test runs.
    std::vector<std::string> lines;

  private:
    std::uint64_t attachment_ = 0;
};

}  // namespace vx::test
