// The scene module as a whole: its reference-counted start and stop, and the services that
// every part of it shares.
#pragma once

struct Port;

namespace vx::cine {

// The first start brings the module's services up in order; a failure takes back what was
// started. The balancing stop takes them down in reverse order.
void start_module();
void stop_module() noexcept;

// The global port "cinema-db" while the module runs; null otherwise.
Port *database_port() noexcept;

}  // namespace vx::cine
