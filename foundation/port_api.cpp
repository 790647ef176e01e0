#include <vexor/port.h>

#include "foundation/guard.h"
#include "foundation/port.h"

extern "C" VX_API Port *PortCreate(const char *name) {
    return vx::guard(static_cast<Port *>(nullptr), [&] { return vx::PortCreate(name); });
}

extern "C" VX_API Port *PortLookup(const char *name) {
    return vx::PortLookup(name);
}

extern "C" VX_API void PortDestroy(Port *port) {
    vx::PortDestroy(port);
}

extern "C" VX_API uint64_t PortAttach(Port *port, PortListenerFunc listener, void *client,
                                      PortFilterFunc filter) {
    return vx::guard(vx::PortAttachment{0},
                     [&] { return vx::PortAttach(port, listener, client, filter); });
}

extern "C" VX_API int PortDetach(Port *port, uint64_t attachment) {
    return vx::PortDetach(port, attachment) ? 1 : 0;
}

extern "C" VX_API unsigned int PortDetachListener(Port *port, PortListenerFunc listener,
                                                  void *client) {
    return vx::PortDetachListener(port, listener, client);
}

extern "C" VX_API void PortNotify(Port *port, void *sender, uint32_t code, void *data) {
    vx::PortNotify(port, sender, code, data);
}

extern "C" VX_API unsigned int PortListenerCount(const Port *port) {
    return vx::PortListenerCount(port);
}
