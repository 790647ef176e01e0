// What the modules above the scene (actions and evaluation) do when scenes and items come and
// go. The scene module cannot include them, so the action module installs this table when it
// starts and takes it away when it stops; with no table installed the scene simply has no
// actions.
#pragma once

#include <vexor/cinema.h>

#include <cstdint>

namespace vx::cine {

struct SceneClient {
    // Makes the scene's action data and default actions. Runs inside the scene's creation; may
    // fail, and then the creation takes back what it made.
    void (*scene_made)(Cinema &scene);
    // Drops the scene's action and evaluation data; runs first when a scene is destroyed.
    void (*scene_unmade)(Cinema &scene) noexcept;
    // Takes the entries of channels [first, first + count) of the item out of every action of
    // its scene, as part of the edit in progress (undo puts them back).
    void (*purge_channels)(CineItem &item, std::uint32_t first, std::uint32_t count);
    // The item is leaving its scene for good (its record is about to be freed): forget
    // everything kept about it.
    void (*item_unmade)(CineItem &item) noexcept;
    // The item has just been made, inside the edit that makes it (not while a scene loads):
    // make, as part of that edit, what the modules above keep for it. May fail; the creation
    // then fails and takes back everything.
    void (*item_made)(CineItem &item);
    // The item is being deleted, inside the delete edit: take away, as part of that edit, what
    // the modules above keep for it (a clip's own action). May fail; the delete then fails.
    void (*item_deleting)(CineItem &item);
};

void set_scene_client(const SceneClient *client) noexcept;
const SceneClient *scene_client() noexcept;

}  // namespace vx::cine
