// The key access object: a cursor over one envelope's keys, as a component object of the class
// "key.access" (see include/vexor/sys/key_access.h for the C view and the method rules).
#pragma once

#include <cstdint>

#include <vexor/sys/key_access.h>

#include "curves/envelope.h"
#include "foundation/component.h"
#include "foundation/port.h"

namespace vx::env {

// The instance data of a key access object. Zero-filled it is a cursor with no envelope.
struct KeyAccess {
    Envelope *env;
    EnvKey *key;                // the current key, or null
    std::uint32_t type;         // the envelope's type when the object was made
    Port *port;                 // the port listened on, or null
    PortAttachment attachment;  // 0 when not listening
    std::uint64_t stamp;        // env->edits when the current key was last known to be in the list
};

// The class, defined with its interface on first use (thread-safe); raises on failure, and a
// later call tries again.
com::Class &key_access_class();

// A new object on the envelope with one reference, listening on the envelope's port if it has
// one. Raises std::bad_alloc (nothing is left behind).
void *create_key_access(Envelope &env);

}  // namespace vx::env
