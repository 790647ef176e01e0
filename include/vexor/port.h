/* Ports: where objects announce their changes to listeners.
 *
 * A port calls its listeners in the order they were attached, each one whose filter accepts
 * the event code. From inside a listener it is safe to attach (the new listener first hears
 * the next notification), to detach any listener including the running one (it is not called
 * again), to notify the same port (that notification is delivered in full first) and to
 * destroy the port (no further listener is called; the port is freed once delivery returns).
 *
 * Global ports are shared by name ("cinema-db") and reference counted. Creating, looking up
 * and destroying global ports may be done from any thread. Attaching, detaching and notifying
 * on one port must be done from one thread at a time. */
#ifndef VEXOR_PORT_H
#define VEXOR_PORT_H

#include <stdint.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct Port Port;

/* Hears one event: the client given to PortAttach, and the sender, code and data given to
 * PortNotify. A listener must not fail. */
typedef void (*PortListenerFunc)(void *client, void *sender, uint32_t code, void *data);
/* Returns non-zero when the listener wants events of this code. */
typedef int (*PortFilterFunc)(void *client, uint32_t code);

/* Creates a port. A null or empty name makes an anonymous port owned by the caller. A name
 * makes or finds the global port of that name and takes one reference to it. Release with
 * PortDestroy. Returns null when out of memory. */
VX_API Port *PortCreate(const char *name);

/* The global port of that name, or null. Takes no reference: the port lives as long as the
 * references taken by PortCreate. */
VX_API Port *PortLookup(const char *name);

/* Drops one reference (an anonymous port has only one); the last frees the port and its
 * attachments. Null is ignored. */
VX_API void PortDestroy(Port *port);

/* Attaches a listener at the end of the order, with its client data and an optional filter
 * (null hears every code). The same listener may be attached more than once. Returns the
 * attachment id (never 0), or 0 when the port or listener is null, the port has been
 * destroyed, or memory ran out. */
VX_API uint64_t PortAttach(Port *port, PortListenerFunc listener, void *client,
                           PortFilterFunc filter);

/* Removes one attachment. Returns 1, or 0 when the id is not attached to this port. */
VX_API int PortDetach(Port *port, uint64_t attachment);

/* Removes every attachment of this listener with this client; returns how many. */
VX_API unsigned int PortDetachListener(Port *port, PortListenerFunc listener, void *client);

/* Calls the listeners with the event. Never allocates and never fails; null is ignored. */
VX_API void PortNotify(Port *port, void *sender, uint32_t code, void *data);

/* The number of listeners attached; 0 for null. */
VX_API unsigned int PortListenerCount(const Port *port);

VX_EXTERN_C_END

#endif
