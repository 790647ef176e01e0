// Shared set-up for the scene and item tests: the scene module started with a small family of
// item types, a package that vets parents, and listeners on the scene ports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vexor/cinema.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/scene.h>

namespace vx::test {

// Events heard on one port.
struct Heard {
    std::uint32_t code;
    void *sender;
    void *data;
};

class PortLog {
  public:
    PortLog() = default;
    ~PortLog() { detach(); }
    PortLog(const PortLog &) = delete;
    PortLog &operator=(const PortLog &) = delete;

    void attach(Port *port);
    void detach();
    // Events of that code heard so far.
    std::size_t count(std::uint32_t code) const;
    std::vector<void *> data_of(std::uint32_t code) const;
    std::vector<Heard> events;

  private:
    Port *port_ = nullptr;
    std::uint64_t attachment_ = 0;
};

// What the package "tstPicky" answers when asked about a new parent of one of its items.
extern unsigned int g_parent_answer;

class SceneTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Type codes of the test types: object (root), light and mesh (both under object), picky
    // (a root type supplied by a host package server).
    std::uint32_t object = 0, light = 0, mesh = 0, picky = 0;
    CinePackage *extra = nullptr;    // add-on package with channels "e0", "e1"
    CinePackage *more = nullptr;     // add-on package with channel "m0"
    Cinema *scene = nullptr;         // made for each test
    PortLog db;                      // "cinema-db"
    PortLog own;                     // the scene's port
    std::vector<std::string> lines;  // log lines
};

CineItem *named_item(Cinema *scene, std::uint32_t type, const char *name);

}  // namespace vx::test
