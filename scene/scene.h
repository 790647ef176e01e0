// Scenes and items: the records the scene module keeps, and what the modules above it (actions,
// evaluation, groups) may ask of them.
//
// A scene owns its items. Items are made by type and carry the channels of their package chain;
// an item that is taken out of its scene by undo is kept alive by the undo record until that
// record is dropped, so a pointer to an item stays valid while anything can still bring it back.
#pragma once

#include <vexor/cinema.h>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "scene/channel_desc.h"
#include "scene/package_registry.h"

struct Port;
struct LinkGraph;

namespace vx::cine {

inline constexpr std::uint32_t kNoIndex = 0xFFFFFFFFu;

// One package on an item's chain.
struct PackageEntry {
    CinePackage *package = nullptr;
    void *object = nullptr;    // the per-item package object, when the package makes one
    void *attached = nullptr;  // what the attach callback left on the item
    void *local = nullptr;     // the package's local data on this item
    std::uint32_t first = 0;   // index of the package's first channel on the item
};

// An item tag: a four-character code with a text value.
struct ItemTag {
    std::uint32_t code = 0;
    std::string value;
};

// The items of one type that occur in a scene, in creation order.
struct TypeItems {
    CinePackage *type = nullptr;
    std::vector<CineItem *> items;
};

}  // namespace vx::cine

struct CineItem {
    Cinema *scene = nullptr;
    CinePackage *type = nullptr;
    // Root-most type package first, the item's own type package, then add-on packages in the
    // order they were added.
    std::vector<vx::cine::PackageEntry> chain;
    std::uint32_t channel_count = 0;
    std::string ident;  // identity string, unique in the scene
    std::string name;   // empty: no name of its own
    bool has_name = false;
    std::string unique;  // cached unique name; valid when has_unique
    bool has_unique = false;
    std::uint32_t name_index = vx::cine::kNoIndex;
    // A small number unique among the live items of the scene, for per-item slots in caches;
    // reused only after the item has left the scene for good.
    std::uint32_t serial = 0;
    bool in_scene = false;  // false while undo has taken the item out
    std::vector<vx::cine::ItemTag> tags;
};

struct Cinema {
    std::uint32_t flags = 0;
    void *actions = nullptr;  // the action data, owned by the action module
    void *eval = nullptr;     // the evaluation data, owned by the evaluation module
    std::unordered_map<std::string, CineItem *> by_ident;
    std::unordered_map<std::string, CineItem *> by_unique;
    std::vector<vx::cine::TypeItems> item_lists;  // in order of the types' first items
    LinkGraph *parent = nullptr;                  // the "parent" graph
    LinkGraph *source = nullptr;                  // the "source" graph
    Port *port = nullptr;
    std::vector<Cinema *> subs;
    std::string file;
    std::uint32_t untitled = 0;
    std::uint32_t changed = 0;
    std::int32_t changed_last = 0;
    std::uint32_t absolute_changes = 0;
    bool absolute_read = false;
    bool quiet = false;
    std::int32_t batch_depth = 0;
    bool names_built = false;
    bool in_flux = false;  // set by edits, cleared by evaluation on the main thread
};

namespace vx::cine {

// ---- What other modules ask of scenes and items -------------------------------------------
//
// These never fail and never allocate unless they say so.

// The channel description of an item's channel; null when the index is out of range.
const ChannelDesc *item_channel(const CineItem &item, std::uint32_t channel) noexcept;
// The item's source item (its link in the scene's "source" graph), or null.
CineItem *item_source(const CineItem &item) noexcept;
// The index on `to` of the channel that `channel` of `from` corresponds to (same package and
// position, or failing that the same name); -1 when there is none.
std::int64_t match_channel(const CineItem &from, std::uint32_t channel,
                           const CineItem &to) noexcept;
// The index of the channel of that name on the item; -1 when there is none.
std::int64_t lookup_channel(const CineItem &item, const char *name) noexcept;
// Whether the scene has an item of the type or of one of its descendants.
bool any_item_of_type(const Cinema &scene, std::uint32_t type) noexcept;
// Calls the visitor for every item in the scene, type list by type list.
void for_each_item(const Cinema &scene, const std::function<void(CineItem &)> &visit);
// One more than the largest serial in use: the size a per-item slot table needs.
std::uint32_t serial_capacity(const Cinema &scene) noexcept;

// Sends a scene event through the scene's one event routine (batching, quiet scenes,
// sub-scenes, change marking). Never allocates.
void send_event(Cinema &scene, std::uint32_t code, void *data) noexcept;

// The root scene (the first scene made), or null.
Cinema *root_scene() noexcept;

}  // namespace vx::cine
