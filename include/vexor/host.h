/* The registry of servers.
 *
 * A server is a named provider of one class ("package", "saver", "loader", ...) with a factory
 * that makes its server objects and a set of text tags that describe it without making an
 * object. The library registers its built-in servers here; hosts and plug-ins register theirs
 * through the same calls. A category tag is a list of words separated by blanks.
 *
 * The registry is started by the modules that use it (CinemaStartup among them) and may also
 * be started by the host; it is reference counted, and the balancing HostShutdown forgets every
 * server. Server handles and tag texts stay valid until the server is removed or the registry
 * stops. All calls may be made from any thread; watchers run on the registering thread. */
#ifndef VEXOR_HOST_H
#define VEXOR_HOST_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct HostServer HostServer;

/* Makes one server object from the data given to HostAddBuiltIn; returns null when it cannot.
 * For servers of class "package" the object is a component object (vexor/sys/component.h)
 * returned with one reference, which passes to the caller. */
typedef void *(*HostFactoryFunc)(void *data);

/* Hears that a watched class has gained a server, after it is registered and before
 * HostAddBuiltIn returns. It may look servers up and tag them. */
typedef void (*HostWatchFunc)(void *client, HostServer *server);

/* Asked for a server of its class that is not registered (HostRequireServer): registers it
 * with HostAddBuiltIn if it can. */
typedef void (*HostProvideFunc)(void *client, const char *className, const char *serverName);

/* Reference-counted start and stop of the registry. */
VX_API void HostStartup(void);
VX_API void HostShutdown(void);

/* Registers a server of a class under a name. Registering the same class and name again
 * replaces its factory and data and keeps its tags. Watchers of the class hear a new server.
 * Returns the server, or null for a null or empty class or name, a registry that is not
 * started, or no memory. */
VX_API HostServer *HostAddBuiltIn(const char *className, const char *serverName,
                                  HostFactoryFunc factory, void *data);

/* Removes a server with its tags. Returns 1, or 0 when it is not registered. */
VX_API int HostRemoveServer(HostServer *server);

/* Sets a tag of the server of that class and name, replacing its value. A null value is
 * stored as empty text. Returns 1, or 0 when there is no such server or no memory. */
VX_API int HostAddTag(const char *className, const char *serverName, const char *tag,
                      const char *value);
/* The same on a server handle. */
VX_API int ServerAddTag(HostServer *server, const char *tag, const char *value);

/* The server of that class and name, or null. */
VX_API HostServer *HostLookupServer(const char *className, const char *serverName);

/* The server of that class and name, asking the class's provider to register it when there
 * is none; null when there is still none. */
VX_API HostServer *HostRequireServer(const char *className, const char *serverName);

/* Sets the provider of a class, replacing any other; null removes it. Returns 1, or 0 for a
 * null or empty class, a registry that is not started, or no memory. */
VX_API int HostSetProvider(const char *className, HostProvideFunc provider, void *client);

/* The value of a tag of the server, or null when it does not carry the tag. */
VX_API const char *ServerGetInfoTag(const HostServer *server, const char *tag);

/* The name and class of a server; null for null. */
VX_API const char *ServerName(const HostServer *server);
VX_API const char *ServerClass(const HostServer *server);

/* Makes a server object through the server's factory into *out (null on failure). Returns
 * VX_OK, VX_E_BADARG for a null server or out, VX_E_NOTFOUND when the server has no factory
 * or is not registered, VX_E_FAILED when the factory gave nothing. */
VX_API unsigned int ServerAllocate(HostServer *server, void **out);

/* The servers of a class in order of registration: their number, and the index-th of them
 * (null when the index is out of range). */
VX_API unsigned int HostServerCount(const char *className);
VX_API HostServer *HostServerByIndex(const char *className, unsigned int index);

/* Calls the watcher for every server the class gains from now on. Returns 1, or 0 for a null
 * or empty class or watcher, a registry that is not started, or no memory. */
VX_API int HostWatchClass(const char *className, HostWatchFunc watcher, void *client);
/* Removes the watchers of the class with this function and client; returns how many. */
VX_API unsigned int HostUnwatchClass(const char *className, HostWatchFunc watcher, void *client);

VX_EXTERN_C_END

#endif
