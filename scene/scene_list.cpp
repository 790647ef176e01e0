// Scenes: creation with their graphs, ports and objects, the scene list with its root scene
// and untitled numbering, and destruction.
#include <algorithm>
#include <cstring>

#include "foundation/component.h"
#include "foundation/edit_frame.h"
#include "foundation/link_graph.h"
#include "foundation/port.h"
#include "scene/cinema_module.h"
#include "scene/scene.h"
#include "scene/scene_client.h"
#include "scene/scene_objects.h"

namespace vx::cine {
namespace {

// Takes a scene into the scene list (and under the root scene) or out of it.
struct ListEdit {
    Cinema *scene;
    std::uint64_t id;
    Cinema *root;  // the root scene when the scene was made, or null
    std::uint64_t root_id;
    std::size_t at;
    std::size_t sub_at;

    bool root_alive() const noexcept { return root != nullptr && scene_alive(root, root_id); }
    void prepare(int direction) {
        if (direction == 0 || !scene_alive(scene, id)) return;
        SceneModule &s = scenes();
        s.scenes.reserve(s.scenes.size() + 1);
        if (root_alive()) root->subs.reserve(root->subs.size() + 1);
    }
    void apply(int direction) {
        if (!scene_alive(scene, id)) return;
        SceneModule &s = scenes();
        if (direction != 0) {
            at = std::min(at, s.scenes.size());
            s.scenes.insert(s.scenes.begin() + static_cast<std::ptrdiff_t>(at), scene);
            if (root_alive()) {
                sub_at = std::min(sub_at, root->subs.size());
                root->subs.insert(root->subs.begin() + static_cast<std::ptrdiff_t>(sub_at), scene);
                scene->super = root;
            }
            scene->listed = true;
        } else {
            auto it = std::find(s.scenes.begin(), s.scenes.end(), scene);
            if (it != s.scenes.end()) {
                at = static_cast<std::size_t>(it - s.scenes.begin());
                s.scenes.erase(it);
            }
            if (root_alive()) {
                auto sub = std::find(root->subs.begin(), root->subs.end(), scene);
                if (sub != root->subs.end()) {
                    sub_at = static_cast<std::size_t>(sub - root->subs.begin());
                    root->subs.erase(sub);
                }
            }
            scene->super = nullptr;
            scene->listed = false;
        }
    }
};

// 1 + the largest untitled number among listed scenes without a file name.
std::uint32_t next_untitled(const SceneModule &s) noexcept {
    std::uint32_t largest = 0;
    for (const Cinema *scene : s.scenes) {
        if (scene->file.empty()) largest = std::max(largest, scene->untitled);
    }
    return largest + 1;
}

// Everything a scene owns apart from its items; safe on a half-made scene.
void free_parts(Cinema *scene) noexcept {
    for (LinkGraph *graph : scene->graphs) delete graph;
    scene->graphs.clear();
    if (scene->object != nullptr) com::release(scene->object);
    vx::PortDestroy(scene->port);
    drop_change_mark(*scene);
    delete scene;
}

}  // namespace

Cinema *create_scene(std::uint32_t flags, bool quiet) {
    SceneModule &s = scenes();
    auto *scene = new Cinema;
    OnFailure free_scene([&] { free_parts(scene); });
    scene->flags = flags;
    scene->quiet = quiet;
    scene->port = vx::PortCreate(nullptr);
    scene->object = make_scene_object(*scene);
    scene->graphs.reserve(s.graphs.size());
    for (const GraphDefinition &def : s.graphs) {
        auto *graph = new LinkGraph;
        scene->graphs.push_back(graph);
        graph->name = def.name;
        graph->kind = def.kind;
        keep_room(*graph);
    }
    scene->parent = graph_named(*scene, "parent");
    scene->source = graph_named(*scene, "source");
    scene->untitled = next_untitled(s);
    scene->by_ident.reserve(1);
    scene->item_lists.reserve(1);
    s.alive.reserve(s.alive.size() + 1);
    scene->id = s.next_scene_id++;
    s.alive.push_back(scene);
    OnFailure unalive([&] { std::erase(s.alive, scene); });

    // What the new scene is made with (its default actions) does not count as a change.
    const SceneClient *client = scene_client();
    scene->making = true;
    if (client != nullptr && client->scene_made != nullptr) client->scene_made(*scene);
    scene->making = false;
    OnFailure unmake([&] {
        if (client != nullptr && client->scene_unmade != nullptr) client->scene_unmade(*scene);
    });
    Cinema *root = root_scene();
    edit_pending<ListEdit>(1, scene, scene->id, root, root != nullptr ? root->id : 0,
                           s.scenes.size(), root != nullptr ? root->subs.size() : 0);
    return scene;
}

void destroy_scene(Cinema *scene) noexcept {
    if (scene == nullptr || !module_started()) return;
    SceneModule &s = scenes();
    if (std::find(s.alive.begin(), s.alive.end(), scene) == s.alive.end()) return;
    const SceneClient *client = scene_client();
    if (client != nullptr && client->scene_unmade != nullptr) client->scene_unmade(*scene);
    std::erase(s.scenes, scene);
    std::erase(s.alive, scene);
    if (scene->super != nullptr) std::erase(scene->super->subs, scene);
    for (Cinema *sub : scene->subs) sub->super = nullptr;
    // Items still in the scene go with it; those taken out by undo belong to their records.
    for (const TypeItems &list : scene->item_lists) {
        for (CineItem *item : list.items) free_item(item, false, false);
    }
    scene->item_lists.clear();
    free_parts(scene);
}

bool scene_alive(const Cinema *scene, std::uint64_t id) noexcept {
    if (!module_started()) return false;
    const std::vector<Cinema *> &alive = scenes().alive;
    return std::find(alive.begin(), alive.end(), scene) != alive.end() && scene->id == id;
}

std::uint64_t scene_id(const Cinema &scene) noexcept {
    return scene.id;
}

std::uint32_t scene_index(const Cinema *scene) noexcept {
    if (scene == nullptr || !module_started()) return kNoIndex;
    const std::vector<Cinema *> &list = scenes().scenes;
    auto it = std::find(list.begin(), list.end(), scene);
    return it != list.end() ? static_cast<std::uint32_t>(it - list.begin()) : kNoIndex;
}

Cinema *root_scene() noexcept {
    if (!module_started()) return nullptr;
    const std::vector<Cinema *> &list = scenes().scenes;
    for (Cinema *scene : list) {
        if (scene->super == nullptr) return scene;
    }
    return nullptr;
}

LinkGraph *graph_named(const Cinema &scene, const char *name) noexcept {
    if (name == nullptr) return nullptr;
    for (LinkGraph *graph : scene.graphs) {
        if (graph->name == name) return graph;
    }
    return nullptr;
}

void define_graph(const char *name, std::uint32_t kind) {
    if (name == nullptr || *name == '\0') fail(rc::bad_argument, "a graph needs a name");
    SceneModule &s = scenes();
    for (const GraphDefinition &def : s.graphs) {
        if (def.name == name) return;
    }
    s.graphs.push_back({name, kind});
}

}  // namespace vx::cine
