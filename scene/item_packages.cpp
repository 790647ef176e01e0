// Add-on packages on items: adding and removing them as undoable edits, and the channel
// purge that goes with a removal.
#include <vexor/scene.h>
#include <vexor/sys/item.h>

#include "foundation/component.h"
#include "foundation/edit_frame.h"
#include "scene/package_registry.h"
#include "scene/scene.h"
#include "scene/scene_client.h"
#include "scene/scene_objects.h"

namespace vx::cine {
namespace {

void renumber(CineItem &item) noexcept {
    std::uint32_t first = 0;
    for (PackageEntry &entry : item.chain) {
        entry.first = first;
        first += entry.package->channel_count;
    }
    item.channel_count = first;
}

// An add-on package put on the item at chain position `at` or taken off it. While the
// package is off, the record holds its entry (with the per-item object) for undo.
struct PackageEdit {
    Cinema *scene;
    std::uint64_t id;
    CineItem *item;
    PackageEntry entry;
    bool held;  // the entry is in this record, not on the item
    std::size_t at;

    void prepare(int) {
        if (held && scene_alive(scene, id)) item->chain.reserve(item->chain.size() + 1);
    }
    void apply(int) {
        if (!scene_alive(scene, id)) return;
        CinePackageEvent note{item, entry.package, 0, 0, 0, held ? 1 : 0};
        bool moved = false;
        if (held) {
            at = std::min(at, item->chain.size());
            item->chain.insert(item->chain.begin() + static_cast<std::ptrdiff_t>(at), entry);
        } else {
            at = chain_position(*item, entry.package);
            entry = item->chain[at];
            note.package = entry.package;
            item->chain.erase(item->chain.begin() + static_cast<std::ptrdiff_t>(at));
            moved = at < item->chain.size();
        }
        held = !held;
        renumber(*item);
        note.first = held ? entry.first : item->chain[at].first;
        note.count = entry.package->channel_count;
        note.itemChannels = item->channel_count;
        send_event(*scene, CINE_EVENT_PACKAGE, &note);
        if (moved) send_event(*scene, CINE_EVENT_CHANNELS_MOVED, &note);
    }
    void release(int) noexcept {
        if (held && entry.object != nullptr) com::release(entry.object);
    }
};

}  // namespace

void make_package_entry(CineItem &item, CinePackage &pkg, PackageEntry &entry) {
    void *pkg_object = instantiate(pkg);
    if (pkg_object == nullptr) fail(rc::failed, "the package could not be made");
    entry.package = &pkg;
    const auto *methods = static_cast<const CineItemPackageMethods *>(
        com::find_interface(pkg_object, CINE_ITEM_PACKAGE_GUID));
    const PackageDef *def = definition_of(pkg);
    if (methods != nullptr && methods->Instance != nullptr) {
        ResultCode code = methods->Instance(pkg_object, &item, &entry.object);
        if ((code & 0x80000000u) != 0) fail(code, "the package refused the item");
    } else if (def != nullptr) {
        entry.object = make_instance_object(item, pkg);
    }
    if (def == nullptr) return;
    if (def->local_setup != nullptr) entry.local = def->local_setup(&item, def->local_first);
    if (def->attach2 != nullptr) {
        def->attach2(&item, def->attach_data, def->attach2_extra);
        entry.attached = def->attach_data;
    } else if (def->attach != nullptr) {
        def->attach(&item, def->attach_data);
        entry.attached = def->attach_data;
    }
}

bool add_package(CineItem &item, CinePackage &pkg) {
    if (resolve(pkg) != CINE_TYPE_NONE) return false;  // a type: items are made with it
    if (chain_position(item, &pkg) != kNoIndex) return true;
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    Edit<PackageEdit> edit(&scene, scene.id, &item, PackageEntry{}, true, item.chain.size());
    make_package_entry(item, pkg, edit->entry);
    edit.hand_over(1);
    return true;
}

bool remove_package(CineItem &item, CinePackage &pkg) {
    const std::uint32_t at = chain_position(item, &pkg);
    const std::uint32_t type_at = chain_position(item, item.type);
    if (at == kNoIndex || at <= type_at) return false;
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    Edit<PackageEdit> edit(&scene, scene.id, &item, PackageEntry{&pkg}, false, at);
    // The values of the package's channels go first, in the same edit, so undo brings them
    // back with the package.
    const SceneClient *client = scene_client();
    if (client != nullptr && client->purge_channels != nullptr) {
        client->purge_channels(item, item.chain[at].first, pkg.channel_count);
    }
    edit.hand_over(1);
    return true;
}

}  // namespace vx::cine
