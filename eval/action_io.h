// The I/O client "action": the scene file's chunk of actions, with their settings, parents and
// entries (constants of every kind that can be written down, envelopes, removed markers).
// Registered with the scene files while the action module runs.
#pragma once

namespace vx::act {

// Raises std::bad_alloc.
void register_io();
void unregister_io() noexcept;

}  // namespace vx::act
