#include "foundation/port.h"

#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/failure.h"
#include "foundation/log.h"

// Attachments form a doubly linked list in attach order. Delivery walks it without copying
// (so notification never allocates) and relies on two rules while any delivery is running:
// nodes are never unlinked, only marked dead (and swept when the outermost delivery ends),
// and new nodes only go at the tail with a larger id, so a delivery stops at the last id that
// existed when it began.
//
// Each port has a recursive lock held by attach, detach and the whole of a delivery, so meshes
// on several threads may notify one global port: deliveries on one port are serialised, and a
// listener may still attach, detach or notify on the port it is hearing. Lock order: a port's
// lock may be taken before the registry's mutex (a listener creating a port), never after it.
struct Port {
    struct Node {
        vx::PortAttachment id;
        vx::PortListener listener;
        void *client;
        vx::PortFilter filter;
        Node *prev;
        Node *next;
        bool live;
    };

    Node *head = nullptr;
    Node *tail = nullptr;
    vx::PortAttachment next_id = 1;
    unsigned live_count = 0;
    int delivering = 0;     // deliveries in progress, nested ones included
    bool has_dead = false;  // dead nodes wait for the outermost delivery to end
    bool doomed = false;    // destroyed during delivery; freed when it ends
    mutable std::recursive_mutex lock;

    // Global ports only; guarded by the registry's mutex.
    bool global = false;
    unsigned refs = 1;
    std::string name;
    Port *next_global = nullptr;
};

namespace vx {

namespace {

using Node = Port::Node;

struct Registry {
    std::mutex mutex;
    Port *first = nullptr;
};

Registry &registry() noexcept {
    static Registry instance;
    return instance;
}

Port *find_global(Registry &r, const char *name) noexcept {
    for (Port *p = r.first; p != nullptr; p = p->next_global) {
        if (p->name == name) return p;
    }
    return nullptr;
}

void unlink_global(Registry &r, Port *port) noexcept {
    for (Port **link = &r.first; *link != nullptr; link = &(*link)->next_global) {
        if (*link == port) {
            *link = port->next_global;
            return;
        }
    }
}

void unlink(Port *port, Node *node) noexcept {
    (node->prev != nullptr ? node->prev->next : port->head) = node->next;
    (node->next != nullptr ? node->next->prev : port->tail) = node->prev;
    delete node;
}

void free_port(Port *port) noexcept {
    for (Node *node = port->head; node != nullptr;) {
        Node *next = node->next;
        delete node;
        node = next;
    }
    delete port;
}

void sweep(Port *port) noexcept {
    for (Node *node = port->head; node != nullptr;) {
        Node *next = node->next;
        if (!node->live) unlink(port, node);
        node = next;
    }
    port->has_dead = false;
}

// Detaches one node: at once when nothing is delivering, otherwise by marking it dead.
void detach(Port *port, Node *node) noexcept {
    node->live = false;
    --port->live_count;
    if (port->delivering > 0) {
        port->has_dead = true;
    } else {
        unlink(port, node);
    }
}

void call_listener(const Node *node, void *sender, std::uint32_t code, void *data) noexcept {
    try {
        if (node->filter != nullptr && node->filter(node->client, code) == 0) return;
        node->listener(node->client, sender, code, data);
    } catch (const std::exception &e) {
        VX_FAIL_LINE("port: a listener failed:", e.what());
    } catch (...) {
        VX_FAIL_LINE("port: a listener failed", nullptr);
    }
}

}  // namespace

Port *PortCreate(const char *name) {
    if (name == nullptr || *name == '\0') return new Port;
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (Port *existing = find_global(r, name)) {
        ++existing->refs;
        return existing;
    }
    auto port = std::make_unique<Port>();
    port->global = true;
    port->name = name;
    port->next_global = r.first;
    r.first = port.get();
    return port.release();
}

Port *PortLookup(const char *name) noexcept {
    if (name == nullptr || *name == '\0') return nullptr;
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return find_global(r, name);
}

void PortDestroy(Port *port) noexcept {
    if (port == nullptr) return;
    if (port->global) {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        if (port->refs == 0 || --port->refs > 0) return;
        unlink_global(r, port);
    }
    std::unique_lock hold(port->lock);
    if (!port->global) {
        if (port->refs == 0) return;  // already destroyed, waiting for its delivery to end
        port->refs = 0;
    }
    if (port->delivering > 0) {
        port->doomed = true;
        return;
    }
    hold.unlock();
    free_port(port);
}

PortAttachment PortAttach(Port *port, PortListener listener, void *client, PortFilter filter) {
    if (port == nullptr || listener == nullptr)
        fail(rc::bad_argument, "PortAttach: null port or listener");
    std::lock_guard hold(port->lock);
    if (port->doomed) fail(rc::refused, "PortAttach: the port has been destroyed");
    Node *node = new Node{port->next_id, listener, client, filter, port->tail, nullptr, true};
    ++port->next_id;
    (port->tail != nullptr ? port->tail->next : port->head) = node;
    port->tail = node;
    ++port->live_count;
    return node->id;
}

bool PortDetach(Port *port, PortAttachment attachment) noexcept {
    if (port == nullptr || attachment == 0) return false;
    std::lock_guard hold(port->lock);
    for (Node *node = port->head; node != nullptr; node = node->next) {
        if (node->id == attachment) {
            if (!node->live) return false;
            detach(port, node);
            return true;
        }
    }
    return false;
}

unsigned PortDetachListener(Port *port, PortListener listener, void *client) noexcept {
    if (port == nullptr) return 0;
    std::lock_guard hold(port->lock);
    unsigned removed = 0;
    for (Node *node = port->head; node != nullptr;) {
        Node *next = node->next;
        if (node->live && node->listener == listener && node->client == client) {
            detach(port, node);
            ++removed;
        }
        node = next;
    }
    return removed;
}

void PortNotify(Port *port, void *sender, std::uint32_t code, void *data) noexcept {
    if (port == nullptr) return;
    std::unique_lock hold(port->lock);
    if (port->doomed) return;
    const PortAttachment last = port->next_id - 1;
    ++port->delivering;
    for (Node *node = port->head; node != nullptr && node->id <= last; node = node->next) {
        if (port->doomed) break;
        if (node->live) call_listener(node, sender, code, data);
    }
    if (--port->delivering > 0) return;
    if (port->doomed) {
        hold.unlock();
        free_port(port);
    } else if (port->has_dead) {
        sweep(port);
    }
}

unsigned PortListenerCount(const Port *port) noexcept {
    if (port == nullptr) return 0;
    std::lock_guard hold(port->lock);
    return port->live_count;
}

}  // namespace vx
