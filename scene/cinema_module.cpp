// The scene module's start and stop.
//
// Start, in order: the registry of servers, the global port "cinema-db", the package and type
// registry. Value types are a fixed table and need no start. Stop runs the steps in reverse.
// Each later service of the module (scenes, graphs, actions) is one more step here.
#include "scene/cinema_module.h"

#include "foundation/failure.h"
#include "foundation/port.h"
#include "foundation/registry.h"
#include "scene/package_registry.h"

namespace vx::cine {
namespace {

struct Module {
    unsigned starts = 0;
    Port *port = nullptr;
};

Module &module() noexcept {
    static Module m;
    return m;
}

}  // namespace

void start_module() {
    Module &m = module();
    if (m.starts > 0) {
        ++m.starts;
        return;
    }
    host::start();
    OnFailure stop_host([] { host::stop(); });
    m.port = vx::PortCreate("cinema-db");
    OnFailure drop_port([&] {
        vx::PortDestroy(m.port);
        m.port = nullptr;
    });
    start_packages();
    m.starts = 1;
}

void stop_module() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    stop_packages();
    vx::PortDestroy(m.port);
    m.port = nullptr;
    host::stop();
}

Port *database_port() noexcept {
    return module().port;
}

}  // namespace vx::cine
