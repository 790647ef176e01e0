// Items: creation by type with the package chain and channels, the undoable presence of an
// item in its scene, and the release of item records.
#include <vexor/scene.h>

#include <algorithm>
#include <cstdio>

#include "foundation/component.h"
#include "foundation/edit_frame.h"
#include "foundation/link_graph.h"
#include "scene/cinema_module.h"
#include "scene/package_registry.h"
#include "scene/scene.h"
#include "scene/scene_client.h"
#include "scene/scene_objects.h"

namespace vx::cine {
namespace {

using IdentNode = decltype(Cinema::by_ident)::node_type;

// The type's packages from the root-most ancestor down to the type itself.
std::vector<CinePackage *> type_chain(CinePackage &type) {
    std::vector<CinePackage *> chain;
    for (CinePackage *pkg = &type; pkg != nullptr; pkg = pkg->super) chain.push_back(pkg);
    std::reverse(chain.begin(), chain.end());
    return chain;
}

std::uint32_t take_serial(Cinema &scene) {
    if (!scene.free_serials.empty()) {
        std::uint32_t serial = scene.free_serials.back();
        scene.free_serials.pop_back();
        return serial;
    }
    return scene.serial_top++;
}

// The newest serial lowers the count again; others wait in the free list (where a serial
// taken from it finds its room again). Should there be no room, the serial is not reused.
void give_back_serial(Cinema &scene, std::uint32_t serial) noexcept {
    if (serial + 1 == scene.serial_top) {
        --scene.serial_top;
        return;
    }
    try {
        scene.free_serials.push_back(serial);
    } catch (const std::bad_alloc &) {
    }
}

// Room for one more identity. Only ever grown: reserving less than the table holds room for
// would rehash it smaller, and a failed edit would then leave the table of another size.
void grow_idents(Cinema &scene) {
    const auto room = static_cast<double>(scene.by_ident.bucket_count()) *
                      static_cast<double>(scene.by_ident.max_load_factor());
    if (room < static_cast<double>(scene.by_ident.size() + 1))
        scene.by_ident.reserve(scene.by_ident.size() + 1);
}

TypeItems *list_of(Cinema &scene, const CinePackage *type) noexcept {
    for (TypeItems &list : scene.item_lists) {
        if (list.type == type) return &list;
    }
    return nullptr;
}

// An item entering its scene (made or redone) or leaving it (undone). While the item is out,
// the record owns it and keeps what the scene's tables need to take it back without
// allocating.
struct PresenceEdit {
    CineItem *item;
    Cinema *scene;
    std::uint64_t id;
    IdentNode ident;
    TypeItems spare;  // the type's list while the item was its last one
    std::size_t list_at;
    std::size_t item_at;
    // The record owns the item while it is out of its scene: before it first enters, and
    // after undo takes it out. A scene destroyed with the item in it has freed it already.
    bool owned = true;
    bool entered = false;  // the rest of the library has heard of the item

    bool alive() const noexcept { return scene_alive(scene, id); }

    // The scene's tables keep room for one more item (keep_room), so the reserves here
    // normally allocate nothing that would outlast a failure.
    void prepare(int direction) {
        if (direction == 0 || !alive()) return;
        if (ident.empty()) {
            decltype(Cinema::by_ident) one;
            one.emplace(item->ident, item);
            ident = one.extract(one.begin());
        }
        TypeItems *list = list_of(*scene, item->type);
        if (list == nullptr) {
            spare.type = item->type;
            spare.items.reserve(1);
            scene->item_lists.reserve(scene->item_lists.size() + 1);
        } else {
            list->items.reserve(list->items.size() + 1);
        }
        grow_idents(*scene);
    }

    void apply(int direction) {
        if (!alive()) return;
        if (direction != 0) {
            enter();
            send_event(*scene, CINE_EVENT_ITEM_ADDED, item);
        } else {
            leave();
            send_event(*scene, CINE_EVENT_ITEM_REMOVED, item);
        }
    }

    void enter() noexcept {
        scene->by_ident.insert(std::move(ident));
        if (TypeItems *list = list_of(*scene, item->type)) {
            item_at = std::min(item_at, list->items.size());
            list->items.insert(list->items.begin() + static_cast<std::ptrdiff_t>(item_at), item);
        } else {
            spare.items.push_back(item);
            list_at = std::min(list_at, scene->item_lists.size());
            scene->item_lists.insert(
                scene->item_lists.begin() + static_cast<std::ptrdiff_t>(list_at), std::move(spare));
        }
        item->in_scene = true;
        owned = false;
        entered = true;
        scene->names_built = false;
    }

    void leave() noexcept {
        ident = scene->by_ident.extract(item->ident);
        if (item->has_unique) {
            auto it = scene->by_unique.find(item->unique);
            if (it != scene->by_unique.end() && it->second == item) scene->by_unique.erase(it);
            item->has_unique = false;
        }
        for (std::size_t l = 0; l < scene->item_lists.size(); ++l) {
            TypeItems &list = scene->item_lists[l];
            auto it = std::find(list.items.begin(), list.items.end(), item);
            if (it == list.items.end()) continue;
            item_at = static_cast<std::size_t>(it - list.items.begin());
            list.items.erase(it);
            if (list.items.empty()) {
                list_at = l;
                spare = std::move(list);
                scene->item_lists.erase(scene->item_lists.begin() + static_cast<std::ptrdiff_t>(l));
            }
            break;
        }
        item->in_scene = false;
        owned = true;
    }

    void release(int) noexcept {
        if (owned && item != nullptr) free_item(item, alive(), entered);
    }
};

// Puts one package on the item being built, its channels after those already there.
void add_entry(CineItem &item, CinePackage &pkg) {
    item.chain.push_back(PackageEntry{&pkg, nullptr, nullptr, nullptr, item.channel_count});
    make_package_entry(item, pkg, item.chain.back());
    item.channel_count += pkg.channel_count;
}

void build(CineItem &item, Cinema &scene, CinePackage &type) {
    item.scene = &scene;
    item.type = &type;
    item.serial = kNoIndex;
    item.serial = take_serial(scene);
    char number[16];
    std::snprintf(number, sizeof number, "$%u", scene.next_ident);
    item.ident = std::string(type.name) + number;
    item.object = make_item_object(item);
    std::vector<CinePackage *> chain = type_chain(type);
    item.chain.reserve(chain.size());
    for (CinePackage *pkg : chain) add_entry(item, *pkg);
}

// Room for the next item in the scene's tables, made after an edit has succeeded so that
// the next one need not grow them part-way. Without the room, edits still work: they grow
// the tables when they prepare.
void keep_room(Cinema &scene, const CineItem &item) noexcept {
    try {
        grow_idents(scene);
        scene.item_lists.reserve(scene.item_lists.size() + 1);
        if (TypeItems *list = list_of(scene, item.type))
            list->items.reserve(list->items.size() + 1);
    } catch (const std::bad_alloc &) {
    }
}

}  // namespace

CineItem &create_item(Cinema &scene, std::uint32_t type) {
    resolve_all();
    CinePackage *pkg = type_by_code(type);
    if (pkg == nullptr) fail(rc::not_found, "no item type of that code");
    SceneEdit frame(scene);
    Edit<PresenceEdit> edit(nullptr, &scene, scene.id);
    edit->item = new CineItem;
    CineItem &item = *edit->item;
    build(item, scene, *pkg);
    edit->list_at = scene.item_lists.size();
    edit->item_at = kNoIndex;
    edit.hand_over(1);
    const SceneClient *client = scene_client();
    if (client != nullptr && client->item_made != nullptr && !scene.making) client->item_made(item);
    // Counted only once the item exists, so a failed creation leaves the next number alone.
    ++scene.next_ident;
    keep_room(scene, item);
    return item;
}

void delete_item(CineItem &item) {
    if (!item.in_scene) fail(rc::refused, "the item is not in its scene");
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    // Every link to or from the item (or one of its channels) goes first, each remembering its
    // places, so that undo restores parents, sources and memberships exactly.
    for (LinkGraph *graph : scene.graphs) {
        std::vector<std::pair<GraphNode, GraphNode>> links;
        for (const auto &[node, lists] : graph->nodes) {
            for (GraphNode to : lists.forward) {
                if (node.object == &item || to.object == &item) links.emplace_back(node, to);
            }
        }
        for (const auto &[from, to] : links) unlink(*graph, from, to);
    }
    const SceneClient *client = scene_client();
    if (client != nullptr && client->item_deleting != nullptr) client->item_deleting(item);
    // The item's entries in actions stay, as they do when its creation is undone: nothing reads
    // them while the item is out, and they go with the item once it leaves for good.
    Edit<PresenceEdit> edit(&item, &scene, scene.id);
    edit->owned = false;
    edit->entered = true;
    edit.hand_over(0);
}

void free_item(CineItem *item, bool scene_alive, bool tell_client) noexcept {
    if (item == nullptr) return;
    if (scene_alive && item->scene != nullptr) {
        const SceneClient *client = scene_client();
        if (tell_client && client != nullptr && client->item_unmade != nullptr) {
            client->item_unmade(*item);
        }
        if (item->serial != kNoIndex) give_back_serial(*item->scene, item->serial);
        // The room its links had in the scene's graphs goes with the item: an item made and
        // taken back by a failed edit leaves nothing behind.
        for (LinkGraph *graph : item->scene->graphs) {
            std::erase_if(graph->nodes, [&](const auto &entry) {
                return entry.first.object == item && entry.second.forward.empty() &&
                       entry.second.reverse.empty();
            });
        }
    }
    for (PackageEntry &entry : item->chain) {
        if (entry.object != nullptr) com::release(entry.object);
    }
    if (item->object != nullptr) com::release(item->object);
    if (module_started()) scenes().hidden.erase(item);
    delete item;
}

bool test_type(const CineItem &item, std::uint32_t type) noexcept {
    for (const CinePackage *pkg = item.type; pkg != nullptr; pkg = pkg->super) {
        if (pkg->type_code == type) return true;
    }
    return false;
}

bool any_item_of_type(const Cinema &scene, std::uint32_t type) noexcept {
    for (const TypeItems &list : scene.item_lists) {
        if (!list.items.empty() && test_type(*list.items.front(), type)) return true;
    }
    return false;
}

void for_each_item(const Cinema &scene, const std::function<void(CineItem &)> &visit) {
    for (const TypeItems &list : scene.item_lists) {
        for (CineItem *item : list.items) visit(*item);
    }
}

std::uint32_t serial_capacity(const Cinema &scene) noexcept {
    return scene.serial_top;
}

}  // namespace vx::cine
