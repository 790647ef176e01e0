// Shared set-up for the group tests: the group module started on a small family of item types,
// a scene, and a text form of every membership for exact comparisons.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vexor/group.h>
#include <vexor/scene.h>

namespace vx::test {

class GroupTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // tstThing is a root type with channels "a", "b"; tstLamp and tstBox descend from it.
    std::uint32_t thing = 0, lamp = 0, box = 0;
    Cinema *scene = nullptr;
    std::vector<std::string> lines;  // log lines
};

// An item of the type with a name (none when null); made with undo as it stands.
CineItem *make_item(Cinema *scene, std::uint32_t type, const char *name);
CineItem *make_group(Cinema *scene, const char *name);
// "G: a b | c.1; H: ..." for every group of the scene: item members, then channel members,
// then the kind; items by unique name, or by identity (names depend on the order in which
// they were first asked for).
std::string memberships(Cinema *scene, bool idents = false);

}  // namespace vx::test
