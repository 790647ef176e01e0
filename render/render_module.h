// The render job module's parts that its start and stop bring up and take down.
#pragma once

#include <vexor/frame_buffer.h>

namespace vx::render {

bool module_started() noexcept;

// Frame buffers: the class "frameBuffer" with its interface, and its server.
void define_frame_buffers();
void *create_frame_buffer();

// Render buffers: forgets every definition and removes their servers.
void remove_float_buffers() noexcept;

}  // namespace vx::render
