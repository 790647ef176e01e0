// What ties items together or marks them: parents and sources (links in the scene's graphs),
// the hidden set, item tags and the redirection of items to their copies.
#include <vexor/scene.h>
#include <vexor/sys/item.h>

#include <algorithm>

#include "foundation/component.h"
#include "foundation/edit_frame.h"
#include "foundation/link_graph.h"
#include "scene/cinema_module.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::cine {
namespace {

CineItem *item_at(GraphNode node) noexcept {
    return static_cast<CineItem *>(node.object);
}

CineItem *first_link(const LinkGraph *graph, const CineItem &item) noexcept {
    if (graph == nullptr) return nullptr;
    return item_at(fwd_by_index(*graph, node_of(const_cast<CineItem *>(&item)), 0));
}

// Replaces the item's one forward link in a graph (its parent, its source) by a link to
// `target` (none when null) at `rev_at` among the target's reverse links. Applying again puts
// the previous link back where it was.
struct LinkSwap {
    Cinema *scene;
    std::uint64_t id;
    LinkGraph *graph;
    CineItem *item;
    CineItem *target;
    std::size_t rev_at;

    void prepare(int) {
        if (target != nullptr && scene_alive(scene, id)) {
            reserve_link(*graph, node_of(item), node_of(target));
        }
    }
    void apply(int) {
        if (!scene_alive(scene, id)) return;
        const GraphNode from = node_of(item);
        CineItem *previous = first_link(graph, *item);
        std::size_t previous_at = kNoLink;
        if (previous != nullptr) {
            previous_at = rev_position(*graph, from, node_of(previous));
            unlink_now(*graph, from, node_of(previous));
        }
        if (target != nullptr) {
            std::size_t fwd_at = 0;
            insert_reserved(*graph, from, node_of(target), fwd_at, rev_at);
        }
        target = previous;
        rev_at = previous_at;
        send_event(*scene, CINE_EVENT_ITEM_CHANGED, item);
    }
};

// Sets (present) or removes an item tag; applying again restores what was there.
struct TagEdit {
    Cinema *scene;
    std::uint64_t id;
    CineItem *item;
    std::uint32_t code;
    std::string value;
    bool present;
    std::size_t position;

    void prepare(int) {
        if (present && scene_alive(scene, id)) item->tags.reserve(item->tags.size() + 1);
    }
    void apply(int) {
        if (!scene_alive(scene, id)) return;
        std::vector<ItemTag> &tags = item->tags;
        auto it = std::find_if(tags.begin(), tags.end(),
                               [&](const ItemTag &tag) { return tag.code == code; });
        const bool had = it != tags.end();
        const std::size_t at = static_cast<std::size_t>(it - tags.begin());
        std::string old;
        if (had) old = std::move(it->value);
        if (present && had) {
            it->value = std::move(value);
        } else if (present) {
            position = std::min(position, tags.size());
            tags.insert(tags.begin() + static_cast<std::ptrdiff_t>(position),
                        ItemTag{code, std::move(value)});
        } else if (had) {
            tags.erase(it);
        }
        present = had;
        value = std::move(old);
        position = at;
        send_event(*scene, CINE_EVENT_ITEM_CHANGED, item);
    }
};

// Whether `start` or one of the items its graph links lead to is `item`.
bool reaches(const LinkGraph *graph, CineItem *start, const CineItem *item) noexcept {
    for (CineItem *at = start; at != nullptr; at = first_link(graph, *at)) {
        if (at == item) return true;
    }
    return false;
}

void swap_link(CineItem &item, LinkGraph *graph, CineItem *target, std::size_t rev_at) {
    if (graph == nullptr) fail(rc::not_found, "the scene has no such graph");
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    edit_pending<LinkSwap>(1, &scene, scene.id, graph, &item, target, rev_at);
}

// What the package of the item's type says about the new parent: 0 or rc::failed accept.
std::uint32_t parent_veto(CineItem &item, CineItem &parent, int position) {
    void *object = instantiate(*item.type);
    if (object == nullptr) return rc::ok;
    const auto *methods = static_cast<const CineItemPackageMethods *>(
        com::find_interface(object, CINE_ITEM_PACKAGE_GUID));
    if (methods == nullptr || methods->TestParent == nullptr) return rc::ok;
    return methods->TestParent(object, &item, &parent, position);
}

}  // namespace

CineItem *item_parent(const CineItem &item) noexcept {
    return first_link(item.scene->parent, item);
}

std::size_t child_count(const CineItem &item) noexcept {
    const LinkGraph *graph = item.scene->parent;
    return graph != nullptr ? rev_count(*graph, node_of(const_cast<CineItem *>(&item))) : 0;
}

CineItem *child_at(const CineItem &item, std::size_t index) noexcept {
    const LinkGraph *graph = item.scene->parent;
    if (graph == nullptr) return nullptr;
    return item_at(rev_by_index(*graph, node_of(const_cast<CineItem *>(&item)), index));
}

std::uint32_t set_parent(CineItem &item, CineItem *parent, int position) {
    if (parent == nullptr) {
        if (item_parent(item) != nullptr) swap_link(item, item.scene->parent, nullptr, kNoLink);
        return rc::ok;
    }
    if (parent->scene != item.scene || reaches(item.scene->parent, parent, &item)) {
        return rc::refused;
    }
    const std::uint32_t veto = parent_veto(item, *parent, position);
    if (veto != rc::ok && veto != rc::failed) return veto;
    swap_link(item, item.scene->parent, parent,
              position < 0 ? kNoLink : static_cast<std::size_t>(position));
    return rc::ok;
}

CineItem *item_source(const CineItem &item) noexcept {
    return first_link(item.scene->source, item);
}

void set_source(CineItem &item, CineItem *source) {
    if (source == item_source(item)) return;
    if (source != nullptr &&
        (source->scene != item.scene || reaches(item.scene->source, source, &item))) {
        fail(rc::refused, "the source is in another scene or leads back to the item");
    }
    swap_link(item, item.scene->source, source, kNoLink);
}

void set_hidden(CineItem &item, bool hidden) {
    SceneModule &s = scenes();
    const bool changed = hidden ? s.hidden.insert(&item).second : s.hidden.erase(&item) != 0;
    if (changed) send_event(*item.scene, CINE_EVENT_HIDDEN, &item);
}

bool is_hidden(const CineItem &item) noexcept {
    return module_started() && scenes().hidden.contains(&item);
}

const std::string *item_tag(const CineItem &item, std::uint32_t code) noexcept {
    for (const ItemTag &tag : item.tags) {
        if (tag.code == code) return &tag.value;
    }
    return nullptr;
}

void set_item_tag(CineItem &item, std::uint32_t code, const char *value) {
    const std::string *now = item_tag(item, code);
    if (value == nullptr ? now == nullptr : now != nullptr && *now == value) return;
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    edit_pending<TagEdit>(1, &scene, scene.id, &item, code,
                          std::string(value != nullptr ? value : ""), value != nullptr,
                          item.tags.size());
}

void begin_copy(Cinema &scene) {
    scene.redirects.emplace_back();
}

void note_copy(Cinema &scene, CineItem &from, CineItem &to) {
    if (scene.redirects.empty()) fail(rc::refused, "no copy is in progress");
    scene.redirects.back()[&from] = &to;
}

void end_copy(Cinema &scene) noexcept {
    if (!scene.redirects.empty()) scene.redirects.pop_back();
}

CineItem *redirect_copy(CineItem &item) noexcept {
    const auto &redirects = item.scene->redirects;
    if (redirects.empty()) return &item;
    auto it = redirects.back().find(&item);
    return it != redirects.back().end() ? it->second : &item;
}

}  // namespace vx::cine
