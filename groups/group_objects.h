// The component classes of groups: "group.item", whose interface answers for any group, and
// "group.enum", a walk over one group's members.
#pragma once

#include <vexor/sys/group.h>

namespace vx::group {

// Defines both classes (again with the same tables: nothing). Raises failures.
void define_classes();
const GroupItemMethods &item_methods() noexcept;
// A new "group.enum" object with one reference; raises failures.
void *make_enum(CineItem &group, unsigned int what);

}  // namespace vx::group
