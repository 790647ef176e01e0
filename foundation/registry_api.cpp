// The C interface of the registry of servers.
#include <vexor/host.h>

#include "foundation/guard.h"
#include "foundation/registry.h"

extern "C" {

VX_API void HostStartup(void) {
    vx::guard([] { vx::host::start(); });
}

VX_API void HostShutdown(void) {
    vx::host::stop();
}

VX_API HostServer *HostAddBuiltIn(const char *className, const char *serverName,
                                  HostFactoryFunc factory, void *data) {
    return vx::guard<HostServer *>(
        nullptr, [&] { return vx::host::add_built_in(className, serverName, factory, data); });
}

VX_API int HostRemoveServer(HostServer *server) {
    return vx::host::remove(server) ? 1 : 0;
}

VX_API int HostAddTag(const char *className, const char *serverName, const char *tag,
                      const char *value) {
    return vx::guard(0, [&] {
        HostServer *server = vx::host::lookup(className, serverName);
        if (server == nullptr) vx::fail(vx::rc::not_found, "no server of that class and name");
        vx::host::add_tag(server, tag, value);
        return 1;
    });
}

VX_API int ServerAddTag(HostServer *server, const char *tag, const char *value) {
    return vx::guard(0, [&] {
        vx::host::add_tag(server, tag, value);
        return 1;
    });
}

VX_API HostServer *HostLookupServer(const char *className, const char *serverName) {
    return vx::host::lookup(className, serverName);
}

VX_API HostServer *HostRequireServer(const char *className, const char *serverName) {
    return vx::guard<HostServer *>(nullptr,
                                   [&] { return vx::host::require(className, serverName); });
}

VX_API int HostSetProvider(const char *className, HostProvideFunc provider, void *client) {
    return vx::guard(0, [&] {
        vx::host::set_provider(className, provider, client);
        return 1;
    });
}

VX_API const char *ServerGetInfoTag(const HostServer *server, const char *tag) {
    return vx::host::tag(server, tag);
}

VX_API const char *ServerName(const HostServer *server) {
    return vx::host::name_of(server);
}

VX_API const char *ServerClass(const HostServer *server) {
    return vx::host::class_of(server);
}

VX_API unsigned int ServerAllocate(HostServer *server, void **out) {
    if (server == nullptr || out == nullptr) return vx::rc::bad_argument;
    *out = nullptr;
    return vx::latch([&] { *out = vx::host::allocate(server); });
}

VX_API unsigned int HostServerCount(const char *className) {
    return static_cast<unsigned int>(vx::host::count(className));
}

VX_API HostServer *HostServerByIndex(const char *className, unsigned int index) {
    return vx::host::by_index(className, index);
}

VX_API int HostWatchClass(const char *className, HostWatchFunc watcher, void *client) {
    return vx::guard(0, [&] {
        vx::host::watch(className, watcher, client);
        return 1;
    });
}

VX_API unsigned int HostUnwatchClass(const char *className, HostWatchFunc watcher, void *client) {
    return static_cast<unsigned int>(vx::host::unwatch(className, watcher, client));
}
}
