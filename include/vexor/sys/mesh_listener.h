/* The mesh listener: a component object that hears a mesh's change events.
 *
 * An object whose class has the interface MESH_LISTENER_GUID, with a MeshListenerMethods
 * table, can be attached to a mesh's port, or to the process-wide mesh port, with
 * MeshAttachListener. Each event then calls its Changed method with the mesh and the change
 * mask (MESH_CHANGE_ bits). Changed runs on the thread that changed the mesh, must not fail,
 * and may read the mesh but not change it.
 *
 * The port keeps no reference to the object: detach it (MeshDetachListener) before releasing
 * it, and before the mesh is destroyed if it listens on the mesh's own port. */
#ifndef VEXOR_SYS_MESH_LISTENER_H
#define VEXOR_SYS_MESH_LISTENER_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

typedef struct MeshListenerMethods {
    XObjectMethods object;
    void (*Changed)(void *obj, Mesh *mesh, uint32_t mask);
} MeshListenerMethods;

VX_EXTERN_C_END

#endif
