// The registry of packages and item types.
//
// Package definitions made with CinePackageDefine live in a list in definition order; every
// package server of class "package" (ours and everyone else's) has a type record in a hash
// keyed by name; records resolved as types are also kept in an array ordered by type code.
// Resolution is lazy and one-way. The registry is made by CinemaStartup and torn down by the
// balancing CinemaShutdown; it is used from the main thread only.
#pragma once

#include <vexor/host.h>
#include <vexor/package.h>

#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "scene/channel_desc.h"

namespace vx::cine {

inline constexpr const char *kPackageClass = "package";
inline constexpr std::int32_t kNoTypeYet = -1;

// A callback with its interface, in the canonical braced upper-case GUID form.
struct InterfaceEntry {
    CineInterfaceFunc func;
    std::string guid;
    void *client;
};

// What CinePackageDefine and the setters record about a package.
struct PackageDef {
    std::string name;
    ChannelList channels;
    const CineItemFuncs *funcs = nullptr;
    CineSynthNameFunc synth_name = nullptr;
    CinePostLoadFunc post_load = nullptr;
    CineAttachFunc attach = nullptr;
    CineAttachFunc2 attach2 = nullptr;
    void *attach_data = nullptr;
    void *attach2_extra = nullptr;
    CineChanFunc chan_func = nullptr;
    void *chan_data = nullptr;
    std::vector<InterfaceEntry> queries;
    std::vector<InterfaceEntry> sub_objects;
    void *local_first = nullptr;
    CineLocalFunc local_setup = nullptr;
    void *local_third = nullptr;
    std::int32_t type_code = kNoTypeYet;
    HostServer *server = nullptr;
};

}  // namespace vx::cine

// The type record of one package server.
struct CinePackage {
    HostServer *server = nullptr;
    const char *name = nullptr;  // owned by the server
    void *object = nullptr;      // the server object, made on first need
    CinePackage *super = nullptr;
    std::vector<CinePackage *> sub_types;  // in order of resolution
    std::uint32_t type_code = 0;           // 0 unresolved, CINE_TYPE_NONE an add-on package
    bool is_wrapper = false;
    bool instantiated = false;
    bool resolving = false;  // catches a super chain that loops
    std::uint32_t channel_count = 0;
    vx::cine::ChannelList channels;
};

struct CineTypeList {
    CineTypeFilterFunc filter = nullptr;
    void *client = nullptr;
    bool lazy = true;
    bool built = false;
    std::set<std::uint32_t> codes;
    std::vector<std::uint32_t> array;  // the codes and a 0
    std::string guid;                  // for lists made by CineTypeListIfcCreate
};

namespace vx::cine {

struct Registry {
    std::list<PackageDef> defs;
    PackageDef *current = nullptr;
    CineSynthNameFunc default_synth = nullptr;
    std::unordered_map<std::string, std::unique_ptr<CinePackage>> packages;
    std::vector<CinePackage *> known;  // the records in order of registration
    std::vector<CinePackage *> types;  // resolved types by ascending code
    std::deque<CineTypeList *> lists;  // newest first
    std::uint32_t next_code = CINE_TYPE_AUTO_FIRST;
    bool all_resolved = false;
    bool masks_built = false;
    std::vector<std::uint32_t> masks;  // the mask types and a 0
};

// ---- State (package_startup.cpp) ----
// Makes the registry; needs the server registry started. Does nothing when it exists.
void start_packages();
// Tears the registry down: type lists still alive, package objects, the servers of the
// packages defined here. Does nothing when there is none.
void stop_packages() noexcept;
// The registry; raises rc::refused before CinemaStartup.
Registry &registry();
bool started() noexcept;
// The factory of the servers of defined packages: a "pwrap.package" object for the
// definition given as data.
void *make_wrapper(void *def);
// An "addChan" object (one reference) that appends to the list while it lives.
void *make_add_channel(ChannelList &target);

// ---- Definitions (package_define.cpp) ----
// The definition of that name, made current; the current one for a null name. Raises
// rc::not_found when there is none.
PackageDef &definition(const char *name);
// The definition of a wrapper record, without touching the current package; null if none.
PackageDef *definition_of(const CinePackage &pkg) noexcept;
void define(const char *name);
std::uint32_t define_type(std::uint32_t code, std::int32_t super_code, const char *name);
// Appends typed channel lines to a defined package. All or nothing.
void add_channels(const char *name, std::span<const ChannelLine> lines);
std::uint32_t set_default(const char *name, const char *channel, const double *values);
// The canonical braced upper-case form of a GUID given with or without braces, or named by
// one of the module's aliases ("package", "scene", "packageInstance"). Raises
// rc::bad_argument for a malformed one.
std::string canonical_guid(const char *guid);

// ---- Types (package_types.cpp) ----
// The record of a package server, made when first seen.
CinePackage &register_server(HostServer *server);
CinePackage *find_package(const char *name) noexcept;
// The record of that name, asking the host for the server when the hash has none (which the
// host may then make); null when the host has none either.
CinePackage *package_named(const char *name);
std::uint32_t resolve(CinePackage &pkg);
// Resolves every known package server, once; packages that fail stay unresolved.
void resolve_all() noexcept;
CinePackage *type_by_code(std::uint32_t code) noexcept;
// The package's server object, made on first need (the super's first); null when it cannot
// be made.
void *instantiate(CinePackage &pkg) noexcept;
// The interface of the package's object or its query list; null if neither has it.
void *query(CinePackage &pkg, const char *guid);
bool reports(CinePackage &pkg, const std::string &guid);
void types_changed() noexcept;
void build_list(CineTypeList &list);
void destroy_list(CineTypeList *list) noexcept;

}  // namespace vx::cine
