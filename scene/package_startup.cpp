// State of the package registry: start and stop, and the component classes through which
// packages describe their channels.
#include <vexor/sys/package.h>

#include <cstdarg>

#include "foundation/component.h"
#include "foundation/guard.h"
#include "foundation/registry.h"
#include "scene/package_registry.h"

namespace vx::cine {
namespace {

constexpr const char *kWrapperClass = "pwrap.package";
constexpr const char *kAddChannelClass = "addChan";

struct WrapperObject {
    PackageDef *def;
};

struct AddChannelObject {
    ChannelList *target;
};

struct State {
    std::unique_ptr<Registry> registry;
};

State &state() noexcept {
    static State s;
    return s;
}

ChannelList &target_of(void *add_chan) {
    if (add_chan == nullptr || com::find_interface(add_chan, CINE_ADD_CHANNEL_GUID) == nullptr) {
        fail(rc::bad_argument, "not an add-channel object");
    }
    return *static_cast<AddChannelObject *>(add_chan)->target;
}

unsigned int add_channel_v(void *obj, va_list tags) {
    return latch([&] {
        va_list copy;
        va_copy(copy, tags);
        try {
            append_tags(target_of(obj), copy);
        } catch (...) {
            va_end(copy);
            throw;
        }
        va_end(copy);
    });
}

unsigned int add_channel(void *obj, ...) {
    va_list tags;
    va_start(tags, obj);
    unsigned int code = add_channel_v(obj, tags);
    va_end(tags);
    return code;
}

// The channels of a defined package: those described with CinePackageAddChannel, then those
// its channel callback adds.
unsigned int wrapper_setup_channels(void *obj, void *add_chan) {
    return latch([&] {
        const PackageDef &def = *static_cast<WrapperObject *>(obj)->def;
        ChannelList &target = target_of(add_chan);
        target.insert(target.end(), def.channels.begin(), def.channels.end());
        if (def.chan_func != nullptr) {
            unsigned int code = def.chan_func(def.chan_data, add_chan);
            if ((code & 0x80000000u) != 0) fail(code, "the package's channel callback failed");
        }
    });
}

const CinePackageMethods kWrapperMethods = {XOBJECT_METHODS_INIT, wrapper_setup_channels};
const CineAddChannelMethods kAddChannelMethods = {XOBJECT_METHODS_INIT, add_channel, add_channel_v};

void define_classes() {
    com::Class &wrapper = com::define_class(kWrapperClass, sizeof(WrapperObject), nullptr);
    com::add_interface(wrapper, CINE_PACKAGE_GUID, &kWrapperMethods);
    com::Class &add = com::define_class(kAddChannelClass, sizeof(AddChannelObject), nullptr);
    com::add_interface(add, CINE_ADD_CHANNEL_GUID, &kAddChannelMethods);
}

// Every package server the host gains gets its record at once.
void on_package_server(void *, HostServer *server) {
    guard([&] { register_server(server); });
}

// Tears the registry down: lists, objects, the servers of our own definitions, the watcher.
// Runs on stop and when a start fails half-way.
void tear_down(Registry &r) noexcept {
    for (CineTypeList *list : r.lists) delete list;
    r.lists.clear();
    for (CinePackage *pkg : r.known) {
        if (pkg->object != nullptr) com::release(pkg->object);
        pkg->object = nullptr;
    }
    for (PackageDef &def : r.defs) {
        if (def.server != nullptr) host::remove(def.server);
    }
    host::unwatch(kPackageClass, on_package_server, nullptr);
}

}  // namespace

void *make_wrapper(void *def) {
    com::Class *cls = com::find_class(kWrapperClass);
    if (cls == nullptr) fail(rc::not_found, "the package wrapper class is not defined");
    void *obj = com::allocate(*cls);
    static_cast<WrapperObject *>(obj)->def = static_cast<PackageDef *>(def);
    return obj;
}

void *make_add_channel(ChannelList &target) {
    com::Class *cls = com::find_class(kAddChannelClass);
    if (cls == nullptr) fail(rc::not_found, "the add-channel class is not defined");
    void *obj = com::allocate(*cls);
    static_cast<AddChannelObject *>(obj)->target = &target;
    return obj;
}

void start_packages() {
    State &s = state();
    if (s.registry) return;
    OnFailure undo([&] {
        if (s.registry) tear_down(*s.registry);
        s.registry.reset();
    });
    define_classes();
    s.registry = std::make_unique<Registry>();
    // Servers registered before the module started, then every one that comes later.
    for (std::size_t i = 0; i < host::count(kPackageClass); ++i) {
        register_server(host::by_index(kPackageClass, i));
    }
    host::watch(kPackageClass, on_package_server, nullptr);
}

void stop_packages() noexcept {
    State &s = state();
    if (!s.registry) return;
    tear_down(*s.registry);
    s.registry.reset();
}

Registry &registry() {
    State &s = state();
    if (!s.registry) fail(rc::refused, "the scene module is not started");
    return *s.registry;
}

bool started() noexcept {
    return state().registry != nullptr;
}

}  // namespace vx::cine
