// The registry of servers: named servers grouped by class, each with a factory that makes its
// server objects and a set of text tags.
//
// Modules register their built-in servers here, and hosts and plug-ins register theirs through
// the same calls, so a reader of the registry cannot tell them apart. A class may be watched:
// its watchers hear every server the class gains, after the server is registered.
//
// The registry is reference counted by start() and stop(); the balancing stop() forgets every
// server, watcher and provider. Registering, tagging, looking up and enumerating are guarded by one
// mutex, so they may be called from any thread; watchers and providers are called without
// the lock held.
// Servers and the texts of their tags stay valid until the server is removed or the registry
// stops (a replaced tag value keeps its old text alive until then).
#pragma once

#include <cstddef>

struct HostServer;  // opaque in the C interface

namespace vx::host {

// Makes one server object (a component object with one reference, or a host's own kind of
// object), given the data registered with the server. Returns null or raises a failure when
// it cannot.
using Factory = void *(*)(void *data);
// Hears a server that its class has just gained.
using Watcher = void (*)(void *client, HostServer *server);
// Asked for a server of its class that is not registered: registers it if it can.
using Provider = void (*)(void *client, const char *cls, const char *name);

void start();
void stop() noexcept;
bool started() noexcept;

// Registers a server of a class under a name, both non-empty. Registering the same class and
// name again replaces the factory and data and keeps the tags. Raises rc::bad_argument for a
// null or empty class or name, rc::refused when the registry is not started, std::bad_alloc.
HostServer *add_built_in(const char *cls, const char *name, Factory factory, void *data);
// Removes a server; its tags go with it. Returns false when it is not registered.
bool remove(HostServer *server) noexcept;

// Sets a tag on a server, replacing any value it had. Raises rc::bad_argument for a null
// server or an empty tag name, std::bad_alloc.
void add_tag(HostServer *server, const char *tag, const char *value);
// The value of a tag, or null when the server does not carry it.
const char *tag(const HostServer *server, const char *tag) noexcept;

HostServer *lookup(const char *cls, const char *name) noexcept;
// The server of that class and name; when there is none, the class's provider (if any) is
// asked to register it, and the look-up is made again. Null when there is still none.
HostServer *require(const char *cls, const char *name);
// Sets the provider of a class, replacing any other; a null provider removes it. Raises
// rc::bad_argument for an empty class, rc::refused when the registry is not started,
// std::bad_alloc.
void set_provider(const char *cls, Provider provider, void *client);
const char *name_of(const HostServer *server) noexcept;
const char *class_of(const HostServer *server) noexcept;

// The servers of a class in order of registration.
std::size_t count(const char *cls) noexcept;
HostServer *by_index(const char *cls, std::size_t index) noexcept;

// Makes a server object through the server's factory. Raises rc::not_found when the server
// has no factory, rc::failed when the factory gives nothing, or the factory's own failure.
void *allocate(HostServer *server);

// Adds a watcher of a class (the class need not have servers yet). Raises rc::bad_argument
// for an empty class or null watcher, rc::refused when the registry is not started,
// std::bad_alloc.
void watch(const char *cls, Watcher watcher, void *client);
// Removes the watchers of a class with this function and client; returns how many.
std::size_t unwatch(const char *cls, Watcher watcher, void *client) noexcept;

}  // namespace vx::host
