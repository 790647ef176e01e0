// Type records: lazy resolution with fixed and automatic codes, the ordered type array, the
// package server objects, and the type lists that depend on them.
#include <vexor/sys/package.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "foundation/component.h"
#include "foundation/log.h"
#include "foundation/port.h"
#include "foundation/registry.h"
#include "scene/cinema_module.h"
#include "scene/package_registry.h"

namespace vx::cine {
namespace {

// A fixed code from "internal.typeCode": 0 when absent or unreadable.
std::uint32_t fixed_code(const HostServer *server) {
    const char *text = host::tag(server, "internal.typeCode");
    if (text == nullptr || *text == '\0') return 0;
    char *end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (*end != '\0' || v <= 0) return 0;
    if (v >= static_cast<long>(CINE_TYPE_AUTO_FIRST)) {
        fail(rc::refused, "a fixed type code must lie below 101");
    }
    return static_cast<std::uint32_t>(v);
}

// Clears a record's "being resolved" mark however resolution ends.
struct ResolvingMark {
    CinePackage &pkg;
    explicit ResolvingMark(CinePackage &p) noexcept : pkg(p) { pkg.resolving = true; }
    ~ResolvingMark() { pkg.resolving = false; }
    ResolvingMark(const ResolvingMark &) = delete;
    ResolvingMark &operator=(const ResolvingMark &) = delete;
};

bool by_code_less(const CinePackage *a, std::uint32_t code) noexcept {
    return a->type_code < code;
}

}  // namespace

CinePackage &register_server(HostServer *server) {
    if (server == nullptr) fail(rc::bad_argument, "no package server");
    Registry &r = registry();
    const char *name = host::name_of(server);
    if (CinePackage *known = find_package(name)) return *known;
    auto pkg = std::make_unique<CinePackage>();
    pkg->server = server;
    pkg->name = name;
    r.known.reserve(r.known.size() + 1);
    CinePackage &record = *pkg;
    r.packages.emplace(name, std::move(pkg));
    r.known.push_back(&record);
    return record;
}

CinePackage *find_package(const char *name) noexcept {
    if (name == nullptr || !started()) return nullptr;
    Registry &r = registry();
    auto it = r.packages.find(name);
    return it != r.packages.end() ? it->second.get() : nullptr;
}

CinePackage *package_named(const char *name) {
    if (CinePackage *pkg = find_package(name)) return pkg;
    HostServer *server = host::require(kPackageClass, name);
    return server != nullptr ? &register_server(server) : nullptr;
}

std::uint32_t resolve(CinePackage &pkg) {
    if (pkg.type_code != 0) return pkg.type_code;
    if (pkg.resolving) fail(rc::refused, "the package's chain of super-types loops");
    ResolvingMark mark(pkg);
    Registry &r = registry();

    pkg.is_wrapper = host::tag(pkg.server, "internal.wrapper") != nullptr;
    const char *super_name = host::tag(pkg.server, "super");
    if (super_name == nullptr) {
        pkg.type_code = CINE_TYPE_NONE;  // an add-on package
        return CINE_TYPE_NONE;
    }
    CinePackage *super = nullptr;
    if (std::strcmp(super_name, ".") != 0) {
        super = package_named(super_name);
        if (super == nullptr) fail(rc::not_found, "no package server for the super-type");
        if (resolve(*super) == CINE_TYPE_NONE) {
            fail(rc::not_found, "the super-type is an add-on package");
        }
    }
    std::uint32_t code = fixed_code(pkg.server);
    if (code != 0 && type_by_code(code) != nullptr) fail(rc::refused, "the type code is taken");

    // Room first, so that nothing below can fail once the code is given.
    r.types.reserve(r.types.size() + 1);
    if (super != nullptr) super->sub_types.reserve(super->sub_types.size() + 1);
    if (code == 0) code = r.next_code++;
    pkg.type_code = code;
    pkg.super = super;
    if (super != nullptr) super->sub_types.push_back(&pkg);
    auto at = std::lower_bound(r.types.begin(), r.types.end(), code, by_code_less);
    r.types.insert(at, &pkg);

    types_changed();
    vx::PortNotify(database_port(), nullptr, CINE_EVENT_TYPE_RESOLVED, &pkg);
    return code;
}

void resolve_all() noexcept {
    if (!started()) return;
    Registry &r = registry();
    if (r.all_resolved) return;
    r.all_resolved = true;
    try {
        // Every server the host knows, also one whose watcher call ran out of memory.
        for (std::size_t i = 0; i < host::count(kPackageClass); ++i) {
            register_server(host::by_index(kPackageClass, i));
        }
    } catch (const std::bad_alloc &) {
        VX_FAIL_LINE("out of memory registering package servers", nullptr);
    }
    // By index: resolving a super may register more servers.
    for (std::size_t i = 0; i < r.known.size(); ++i) {
        CinePackage &pkg = *r.known[i];
        try {
            resolve(pkg);
        } catch (const Failure &failure) {
            VX_FAIL_LINE("could not resolve package", pkg.name);
        } catch (const std::bad_alloc &) {
            VX_FAIL_LINE("out of memory resolving package", pkg.name);
        }
    }
}

CinePackage *type_by_code(std::uint32_t code) noexcept {
    if (code == 0 || code == CINE_TYPE_NONE || !started()) return nullptr;
    Registry &r = registry();
    auto at = std::lower_bound(r.types.begin(), r.types.end(), code, by_code_less);
    return at != r.types.end() && (*at)->type_code == code ? *at : nullptr;
}

void *instantiate(CinePackage &pkg) noexcept {
    if (pkg.instantiated) return pkg.object;
    try {
        resolve(pkg);
        if (pkg.super != nullptr && instantiate(*pkg.super) == nullptr) {
            fail(rc::failed, "the super-type's package could not be made");
        }
        pkg.instantiated = true;
        OnFailure reset([&] {
            pkg.instantiated = false;
            pkg.channels.clear();
            pkg.channel_count = 0;
        });
        com::Ref object(host::allocate(pkg.server));
        ChannelList channels;
        const auto *methods = static_cast<const CinePackageMethods *>(
            com::find_interface(object.get(), CINE_PACKAGE_GUID));
        if (methods != nullptr) {
            com::Ref add_chan(make_add_channel(channels));
            ResultCode code = methods->SetupChannels(object.get(), add_chan.get());
            if ((code & 0x80000000u) != 0) fail(code, "the package could not set up its channels");
        }
        pkg.channels = std::move(channels);
        pkg.channel_count = static_cast<std::uint32_t>(pkg.channels.size());
        pkg.object = object.take();
        return pkg.object;
    } catch (const Failure &) {
    } catch (const std::bad_alloc &) {
    }
    log::level(1, "failed to add package %s\n", pkg.name);
    return nullptr;
}

bool reports(CinePackage &pkg, const std::string &guid) {
    if (pkg.object != nullptr && com::find_interface(pkg.object, guid.c_str()) != nullptr) {
        return true;
    }
    if (const PackageDef *def = definition_of(pkg)) {
        for (const InterfaceEntry &entry : def->queries) {
            if (entry.guid == guid) return true;
        }
    }
    return false;
}

void *query(CinePackage &pkg, const char *guid) {
    std::string canonical = canonical_guid(guid);
    void *object = instantiate(pkg);
    if (object == nullptr) return nullptr;
    if (const void *table = com::find_interface(object, canonical.c_str())) {
        return const_cast<void *>(table);
    }
    if (const PackageDef *def = definition_of(pkg)) {
        for (const InterfaceEntry &entry : def->queries) {
            if (entry.guid == canonical && entry.func != nullptr) {
                return entry.func(entry.client, canonical.c_str());
            }
        }
    }
    return nullptr;
}

void build_list(CineTypeList &list) {
    list.built = false;
    list.codes.clear();
    list.array.clear();
    for (std::size_t i = 0; i < registry().types.size(); ++i) {
        std::uint32_t code = registry().types[i]->type_code;
        if (list.filter(list.client, code, &list) != 0) list.codes.insert(code);
    }
    list.array.reserve(list.codes.size() + 1);
    list.array.assign(list.codes.begin(), list.codes.end());
    list.array.push_back(0);
    list.built = true;
}

void types_changed() noexcept {
    Registry &r = registry();
    for (CineTypeList *list : r.lists) {
        list->built = false;
        list->array.clear();
        list->array.shrink_to_fit();
        if (!list->lazy) {
            try {
                build_list(*list);
            } catch (...) {
                // Left unbuilt: the next request builds it again.
                list->built = false;
            }
        }
    }
}

void destroy_list(CineTypeList *list) noexcept {
    if (list == nullptr || !started()) return;
    // Only a live list is freed: those still held at shutdown went with the registry.
    if (std::erase(registry().lists, list) != 0) delete list;
}

}  // namespace vx::cine
