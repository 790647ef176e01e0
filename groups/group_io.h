// The I/O client "group" of scene files: the members of every group, in order.
#pragma once

namespace vx::group {

// Registered while the module runs. register_io raises std::bad_alloc.
void register_io();
void unregister_io() noexcept;

}  // namespace vx::group
