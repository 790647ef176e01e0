// Ports: where objects announce their changes.
//
// A port holds an ordered list of listeners. Notification calls each listener whose filter
// accepts the code, in attach order. Attaching or detaching from inside a listener is safe:
// a listener detached during delivery is not called afterwards, one attached during delivery
// first hears the next notification. A port destroyed during its own delivery calls no more
// listeners and is freed once delivery returns. A listener may notify the port it is hearing;
// the nested notification is delivered in full before the outer one goes on. Notification
// never allocates, so it may be called from apply steps.
//
// Ports are anonymous (owned by their creator) or global by name ("cinema-db"): creating a
// global name that exists returns the same port with one more reference.
//
// Threads: every call is thread-safe. Deliveries on one port are serialised (a listener hears
// one notification at a time, from whichever thread sent it); a listener may attach, detach and
// notify on the port it is hearing. A listener must not wait for another thread that notifies
// the same port. Destroying a port while another thread still uses it is the caller's error.
#pragma once

#include <cstdint>

struct Port;  // opaque in the C interface

namespace vx {

using PortListener = void (*)(void *client, void *sender, std::uint32_t code, void *data);
// Returns non-zero when the listener wants events of this code. A null filter accepts all.
using PortFilter = int (*)(void *client, std::uint32_t code);
// Identifies one attachment for PortDetach; never 0.
using PortAttachment = std::uint64_t;

// Creates an anonymous port (name null or empty) or a global one; raises std::bad_alloc when
// out of memory.
Port *PortCreate(const char *name);
// The global port of that name, or null. No reference is added: the port lives as long as
// the references taken by PortCreate.
Port *PortLookup(const char *name) noexcept;
// Drops one reference; the last one frees the port with its attachments (deferred while it is
// delivering). Null is ignored.
void PortDestroy(Port *port) noexcept;
// Adds a listener at the end of the order. Raises rc::bad_argument for a null port or
// listener, rc::refused for a port already destroyed (during its delivery), std::bad_alloc.
PortAttachment PortAttach(Port *port, PortListener listener, void *client, PortFilter filter);
// Returns true when the attachment was found and removed.
bool PortDetach(Port *port, PortAttachment attachment) noexcept;
// Removes every attachment of this listener and client; returns how many.
unsigned PortDetachListener(Port *port, PortListener listener, void *client) noexcept;
// Calls the listeners. A listener that raises a failure is reported on the failure log and
// delivery goes on with the next one. Null is ignored.
void PortNotify(Port *port, void *sender, std::uint32_t code, void *data) noexcept;
// Attached listeners, not counting those detached during a delivery still in progress.
unsigned PortListenerCount(const Port *port) noexcept;

}  // namespace vx
