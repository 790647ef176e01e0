// Scenes and items: the records the scene module keeps, and what the modules above it (actions,
// evaluation, groups) may ask of them.
//
// A scene owns its items. Items are made by type and carry the channels of their package chain;
// an item that is taken out of its scene by undo is kept alive by the undo record until that
// record is dropped, so a pointer to an item stays valid while anything can still bring it back.
#pragma once

#include <vexor/cinema.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/undo.h"
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

// Room, reserved ahead, for one undoable change of a scene's change counter, so that marking
// a scene changed from inside another edit cannot fail.
struct ChangeMark;

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
    // A small number unique among the live items of the scene, for per-item slots in caches;
    // reused only after the item has left the scene for good. Beside the type, which is read
    // with it on every evaluated read.
    std::uint32_t serial = 0;
    std::string ident;  // identity string, unique in the scene
    std::string name;   // empty: no name of its own
    bool has_name = false;
    std::string unique;  // cached unique name; valid when has_unique
    bool has_unique = false;
    std::uint32_t name_index = vx::cine::kNoIndex;
    bool in_scene = false;  // false while undo has taken the item out
    std::vector<vx::cine::ItemTag> tags;
    void *object = nullptr;  // the item's component object of class "item"
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
    // Set when items or packages change while a change batch is open (the scene is half-way
    // through a larger change); cleared by evaluation on the main thread.
    bool in_flux = false;

    // Graphs made from the registered definitions, in order of definition.
    std::vector<LinkGraph *> graphs;
    std::uint64_t id = 0;          // unique for the life of the process
    void *object = nullptr;        // the scene's component object of class "scene"
    bool listed = false;           // in the scene list (creation can be undone)
    bool making = false;           // being made: events do not mark it changed
    Cinema *super = nullptr;       // the scene this one is a sub-scene of
    std::uint32_t next_ident = 1;  // for identity strings, never reused
    std::uint32_t serial_top = 0;
    std::vector<std::uint32_t> free_serials;
    // One map from source item to copy per copy in progress; the last is the current depth.
    std::vector<std::unordered_map<CineItem *, CineItem *>> redirects;
    vx::cine::ChangeMark *spare_mark = nullptr;  // reserved room for one change-counter edit
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
// sub-scenes, change marking). Never fails. Allocates nothing when the edit that sends it
// reserved the room for marking the scene changed (SceneEdit, reserve_change_mark), or when
// the event does not mark; otherwise marking makes its room then, and is skipped if it can't.
void send_event(Cinema &scene, std::uint32_t code, void *data) noexcept;

// The root scene (the first scene made), or null.
Cinema *root_scene() noexcept;

// ---- Scenes (scene_list.cpp) ----------------------------------------------------------------

// Makes a scene and lists it (undoable). Raises failures; nothing is left behind. A quiet
// scene sends no event from the start, not even those of its default actions.
Cinema *create_scene(std::uint32_t flags, bool quiet = false);
// Destroys a scene with its items; null is ignored.
void destroy_scene(Cinema *scene) noexcept;
// Whether the scene is still there (not destroyed). Undo records of a destroyed scene use
// this to do nothing: they keep the scene's id, since its address may be reused.
bool scene_alive(const Cinema *scene, std::uint64_t id) noexcept;
std::uint64_t scene_id(const Cinema &scene) noexcept;
std::uint32_t scene_index(const Cinema *scene) noexcept;
LinkGraph *graph_named(const Cinema &scene, const char *name) noexcept;
// Registers a graph for every scene made from now on.
void define_graph(const char *name, std::uint32_t kind);

// ---- Change counters (scene_changes.cpp) ----------------------------------------------------

// Makes sure that marking the scene changed from inside the next edit cannot fail: call it
// before an edit that sends item or action events changes anything.
void reserve_change_mark(Cinema &scene);
// Brackets one scene edit: one undo step together with the change mark it causes, the room
// for that mark reserved up front, and the rollback of a compound edit that fails half-way.
// A failed edit gives back the room it reserved, so that it leaves no trace at all.
class SceneEdit {
  public:
    explicit SceneEdit(Cinema &scene);
    ~SceneEdit();
    SceneEdit(const SceneEdit &) = delete;
    SceneEdit &operator=(const SceneEdit &) = delete;

  private:
    UndoBlock block_;
    EditTransaction transaction_;
    Cinema &scene_;
    bool reserved_;
    int exceptions_;
};

// CinemaChanged: flag 0 marks clean, any other changed.
void set_changed(Cinema &scene, int flag);
// Frees the reserved room; for scene destruction.
void drop_change_mark(Cinema &scene) noexcept;
// CinemaHasChanged and CinemaAbsoluteChanges.
std::uint32_t has_changed(Cinema &scene) noexcept;
std::uint32_t absolute_changes(Cinema &scene) noexcept;
// The scene whose event "cinema-db" is delivering, or null.
Cinema *current_scene() noexcept;
// Action events mark a scene changed only for its own actions: the action module tells the
// scene of an action through this (with none installed, every action event counts).
using ActionSceneFn = Cinema *(*)(const CineAction *action);
void set_action_scene_query(ActionSceneFn fn) noexcept;

// ---- Items (item_create.cpp, item_names.cpp, item_links.cpp) --------------------------------

// Makes an item of a type (undoable). Raises rc::not_found for an unknown type.
CineItem &create_item(Cinema &scene, std::uint32_t type);
// Takes the item out of its scene (undoable) with its links in every graph. Raises rc::refused
// for an item that is not in its scene.
void delete_item(CineItem &item);
// Frees an item record that is not in its scene, or whose scene is being destroyed (then
// scene_alive is false). The scene client hears of it when tell_client is set.
void free_item(CineItem *item, bool scene_alive, bool tell_client) noexcept;
bool test_type(const CineItem &item, std::uint32_t type) noexcept;

void set_name(CineItem &item, const char *name);
// The unique name, made and cached on first need (allocates).
const std::string &unique_name(CineItem &item);
void invalidate_name(CineItem &item) noexcept;
CineItem *lookup_item(Cinema &scene, const char *text);
void set_index_style(int style);
std::string format_index(const char *base, std::uint32_t index);

CineItem *item_parent(const CineItem &item) noexcept;
std::size_t child_count(const CineItem &item) noexcept;
CineItem *child_at(const CineItem &item, std::size_t index) noexcept;
// Returns 0 or the package's refusal code (or rc::refused).
std::uint32_t set_parent(CineItem &item, CineItem *parent, int position);
void set_source(CineItem &item, CineItem *source);
void set_hidden(CineItem &item, bool hidden);
bool is_hidden(const CineItem &item) noexcept;
const std::string *item_tag(const CineItem &item, std::uint32_t code) noexcept;
void set_item_tag(CineItem &item, std::uint32_t code, const char *value);

// Scene copies: while one is in progress, the copy made of each item.
void begin_copy(Cinema &scene);
void note_copy(Cinema &scene, CineItem &from, CineItem &to);
void end_copy(Cinema &scene) noexcept;
CineItem *redirect_copy(CineItem &item) noexcept;

// ---- Packages on items (item_packages.cpp) --------------------------------------------------

// The chain position of the package on the item, or kNoIndex.
std::uint32_t chain_position(const CineItem &item, const CinePackage *pkg) noexcept;
// Makes the per-item parts of a package on an item: its object, local data and the run of its
// attach callback.
void make_package_entry(CineItem &item, CinePackage &pkg, PackageEntry &entry);
bool add_package(CineItem &item, CinePackage &pkg);
bool remove_package(CineItem &item, CinePackage &pkg);
// Number of leading channels the two items share.
std::uint32_t common_channels(const CineItem &a, const CineItem &b) noexcept;

// The chain entry holding a channel, or null.
const PackageEntry *entry_of(const CineItem &item, std::uint32_t channel) noexcept;

}  // namespace vx::cine
