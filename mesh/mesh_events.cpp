// Change events of meshes: batching, the announcement of a change mask to the mesh's port and
// the process-wide mesh port, its relay to instances and meta data, and listener objects.
#include <vexor/sys/mesh_listener.h>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "mesh/mesh.h"

namespace vx::mesh {

namespace {

bool builds(const Mesh *mesh) noexcept {
    return mesh->batch_depth == kBuilding;
}

// Steps 3 to 6 of the announcement: quiet while recovering, the hold-back rule, instances and
// meta data for deferred events, then the mesh's port and the process-wide port.
void deliver(Mesh *mesh, std::uint32_t mask) noexcept {
    if (vx::recovering()) return;
    if ((mesh->flags & MESH_HOLD_EVENTS) != 0) {
        constexpr std::uint32_t kBoth = MESH_CHANGE_VERTICES | MESH_CHANGE_POLYGONS;
        if ((mask & kBoth) != kBoth) return;
        mesh->flags &= ~MESH_HOLD_EVENTS;
    }
    if ((mask & MESH_CHANGE_IMMEDIATE) == 0) {
        // Instances may be destroyed by a listener; walk by index against the live size.
        for (std::size_t i = 1; i < mesh->related.size(); ++i) {
            Mesh *instance = mesh->related[i];
            if ((instance->flags & MESH_NO_SOURCE_EVENTS) == 0) change_event(instance, mask);
        }
        meta_process_changes(mesh, mask);
    }
    vx::PortNotify(mesh->port, mesh->port, mask, mesh);
    Port *global = global_port();
    vx::PortNotify(global, global, mask, mesh);
}

// Adds bits to the accumulated mask; an instance that owns none of its lists keeps only the
// bits that concern it beyond the shared elements.
void accumulate(Mesh *mesh, std::uint32_t mask) noexcept {
    constexpr std::uint32_t kOwned = MESH_OWNS_VERTICES | MESH_OWNS_POLYGONS | MESH_OWNS_THIRD;
    if ((mesh->flags & kOwned) == 0 && mesh->source != nullptr) {
        mesh->changes |= mask & MESH_CHANGE_INSTANCE_BITS;
    } else {
        mesh->changes |= mask;
    }
}

constexpr std::size_t kKeptChangedRoom = 1024;

template <class Element>
void clear_marks(DenseArray<Element *> &changed) noexcept {
    for (std::size_t i = 0; i < changed.size(); ++i) {
        Element *element = changed[i];
        element->flags = static_cast<std::uint16_t>(element->flags & ~kChanged);
    }
    // A batch that built or touched many elements gives its list back rather than holding it
    // for the mesh's lifetime; small lists stay for the next edit.
    if (changed.capacity() > kKeptChangedRoom) {
        changed.release();
    } else {
        changed.clear();
    }
}

}  // namespace

std::uint32_t batch_begin(Mesh *mesh) noexcept {
    if (builds(mesh)) return mesh->batch_depth;
    if (mesh->batch_depth++ == 0) mesh->batch_mask = 0;
    return mesh->batch_depth;
}

void batch_end(Mesh *mesh) noexcept {
    if (builds(mesh) || mesh->batch_depth == 0) return;
    if (--mesh->batch_depth != 0) return;
    if (mesh->changed_vertices.size() != 0) mesh->batch_mask |= MESH_CHANGE_VERTICES;
    if (mesh->changed_polygons.size() != 0) mesh->batch_mask |= MESH_CHANGE_POLYGONS;
    clear_marks(mesh->changed_vertices);
    clear_marks(mesh->changed_polygons);
    const std::uint32_t mask = mesh->batch_mask;
    if (mask == 0) return;
    accumulate(mesh, mask);
    deliver(mesh, mask);
}

void change_event(Mesh *mesh, std::uint32_t mask) noexcept {
    if (mask == 0 || builds(mesh)) return;
    if ((mask & MESH_CHANGE_IMMEDIATE) == 0) {
        if (mesh->batch_depth != 0) {
            mesh->batch_mask |= mask;
            return;
        }
        accumulate(mesh, mask);
    }
    deliver(mesh, mask);
}

void mark_changed(Mesh *mesh, MeshVertex *vertex) noexcept {
    if ((vertex->flags & kChanged) != 0) return;
    vertex->flags = static_cast<std::uint16_t>(vertex->flags | kChanged);
    mesh->changed_vertices.push_back(vertex);
}

void mark_changed(Mesh *mesh, MeshPolygon *polygon) noexcept {
    if ((polygon->flags & kChanged) != 0) return;
    polygon->flags = static_cast<std::uint16_t>(polygon->flags | kChanged);
    mesh->changed_polygons.push_back(polygon);
}

}  // namespace vx::mesh

// ---- Listener objects --------------------------------------------------------------------

namespace {

// Turns a port event into a call of the listener object's Changed method.
void translate(void *client, void *, std::uint32_t code, void *data) {
    const auto *table = static_cast<const MeshListenerMethods *>(
        vx::com::find_interface(client, MESH_LISTENER_GUID));
    if (table != nullptr && table->Changed != nullptr) {
        table->Changed(client, static_cast<Mesh *>(data), code);
    }
}

Port *listener_port(const Mesh *mesh) {
    Port *port = mesh != nullptr ? mesh->port : vx::mesh::global_port();
    if (port == nullptr) vx::fail(vx::rc::refused, "no mesh port");
    return port;
}

}  // namespace

namespace vx::mesh {

std::uint64_t attach_listener(Mesh *mesh, void *listener) {
    if (listener == nullptr || vx::com::find_interface(listener, MESH_LISTENER_GUID) == nullptr) {
        fail(rc::bad_argument, "not a mesh listener");
    }
    return vx::PortAttach(listener_port(mesh), &translate, listener, nullptr);
}

unsigned detach_listener(Mesh *mesh, void *listener) {
    return vx::PortDetachListener(listener_port(mesh), &translate, listener);
}

}  // namespace vx::mesh
