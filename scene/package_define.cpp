// Package definitions: CinePackageDefine, the current package, channel descriptions and
// CineDefineType.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/registry.h"
#include "scene/cinema_module.h"
#include "scene/package_registry.h"

namespace vx::cine {
namespace {

PackageDef *find_definition(Registry &r, const char *name) noexcept {
    for (PackageDef &def : r.defs) {
        if (def.name == name) return &def;
    }
    return nullptr;
}

// The fixed code a package server's "internal.typeCode" tag gives, or 0.
std::int64_t fixed_code_of(const HostServer *server) noexcept {
    const char *text = host::tag(server, "internal.typeCode");
    if (text == nullptr || *text == '\0') return 0;
    char *end = nullptr;
    long long v = std::strtoll(text, &end, 10);
    return *end == '\0' ? v : 0;
}

}  // namespace

PackageDef &definition(const char *name) {
    Registry &r = registry();
    if (name == nullptr) {
        if (r.current == nullptr) fail(rc::not_found, "there is no current package");
        return *r.current;
    }
    PackageDef *def = find_definition(r, name);
    if (def == nullptr) fail(rc::not_found, "no package of that name is defined");
    r.current = def;
    return *def;
}

PackageDef *definition_of(const CinePackage &pkg) noexcept {
    if (!pkg.is_wrapper || !started()) return nullptr;
    return find_definition(registry(), pkg.name);
}

void define(const char *name) {
    if (name == nullptr || *name == '\0') fail(rc::bad_argument, "a package needs a name");
    Registry &r = registry();
    if (PackageDef *def = find_definition(r, name)) {
        r.current = def;
        return;
    }
    if (host::lookup(kPackageClass, name) != nullptr) {
        fail(rc::refused, "another package server has that name");
    }
    r.defs.emplace_back();
    OnFailure drop([&] { r.defs.pop_back(); });
    PackageDef &def = r.defs.back();
    def.name = name;
    def.server = host::add_built_in(kPackageClass, name, make_wrapper, &def);
    OnFailure unregister([&] {
        auto it = r.packages.find(def.name);
        if (it != r.packages.end()) {
            std::erase(r.known, it->second.get());
            r.packages.erase(it);
        }
        host::remove(def.server);
    });
    // The watcher has made the record unless it ran out of memory; make sure of it here.
    register_server(def.server);
    host::add_tag(def.server, "internal.wrapper", name);
    r.current = &def;
}

std::uint32_t define_type(std::uint32_t code, std::int32_t super_code, const char *name) {
    Registry &r = registry();
    PackageDef &def = definition(name);
    // The super's name: a resolved type with that code, else a package server whose fixed
    // code it is, else a root.
    std::string super_name = ".";
    if (super_code != 0) {
        auto wanted = static_cast<std::uint32_t>(super_code);
        bool found = false;
        for (CinePackage *pkg : r.types) {
            if (pkg->type_code == wanted) {
                super_name = pkg->name;
                found = true;
                break;
            }
        }
        for (std::size_t i = 0; !found && i < host::count(kPackageClass); ++i) {
            HostServer *server = host::by_index(kPackageClass, i);
            if (fixed_code_of(server) == super_code) {
                super_name = host::name_of(server);
                found = true;
            }
        }
    }
    host::add_tag(def.server, "super", super_name.c_str());
    if (code != 0) {
        char text[16];
        std::snprintf(text, sizeof text, "%d", static_cast<int>(code));
        host::add_tag(def.server, "internal.typeCode", text);
    }
    CinePackage *pkg = find_package(def.name.c_str());
    if (pkg == nullptr) {
        def.type_code = kNoTypeYet;
        return CINE_TYPE_NONE;
    }
    std::uint32_t resolved = resolve(*pkg);
    def.type_code = static_cast<std::int32_t>(resolved);
    return resolved;
}

void add_channels(const char *name, std::span<const ChannelLine> lines) {
    append_lines(definition(name).channels, lines);
}

std::uint32_t set_default(const char *name, const char *channel, const double *values) {
    PackageDef &def = definition(name);
    if (channel == nullptr || values == nullptr) fail(rc::bad_argument, "no channel or values");
    const std::size_t length = std::strlen(channel);
    std::size_t first = 0;
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < def.channels.size() && count == 0; ++i) {
        const std::string &n = def.channels[i].name;
        if (n == channel) {
            count = 1;
        } else if (n.size() > length && n.compare(0, length, channel) == 0 && n[length] == '.') {
            count = vector_size(def.channels[i].vector_mode);
        }
        first = i;
    }
    if (count == 0) return 0;
    if (first + count > def.channels.size()) fail(rc::bad_argument, "the vector is cut short");
    // A package already instantiated has its own copy of the descriptions (the definition's come
    // first in it), which items and every read that falls back to the default use: it changes
    // too. Converted first and stored after, so a value the type refuses changes nothing.
    CinePackage *pkg = find_package(def.name.c_str());
    ChannelList *made = pkg != nullptr && pkg->instantiated && pkg->channels.size() >= first + count
                            ? &pkg->channels
                            : nullptr;
    std::vector<value::Value> converted;
    converted.reserve(made != nullptr ? 2 * count : count);
    for (std::uint32_t i = 0; i < count; ++i) {
        converted.push_back(def.channels[first + i].default_value);
        converted.back().set_float(values[i]);
    }
    if (made != nullptr) {
        for (std::uint32_t i = 0; i < count; ++i) converted.push_back(converted[i]);
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        def.channels[first + i].default_value = std::move(converted[i]);
        if (made != nullptr) (*made)[first + i].default_value = std::move(converted[count + i]);
    }
    return count;
}

std::string canonical_guid(const char *guid) {
    if (guid == nullptr) fail(rc::bad_argument, "no interface GUID");
    // An interface may also be named by an alias ("package", "scene", ...).
    guid = com::resolve_guid(guid);
    std::string text = guid;
    if (text.empty() || text.front() != '{') text = "{" + text + "}";
    for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (!com::valid_guid(text.c_str())) fail(rc::bad_argument, "malformed interface GUID");
    return text;
}

}  // namespace vx::cine
