// Keeping memberships consistent with the items they name.
//
// Deleting an item (CineItemDelete) takes its links out of every graph as part of the same
// edit, so undo and redo keep memberships right by themselves. An item can also leave its
// scene with links still on it: when its creation is undone while links made without undo
// (or while undo was suspended) remain. Such links would name an item that is not in the
// scene, so they are taken away when the item leaves and kept aside; if the item comes back
// (redo), they are put back at their places, as long as the other end is still there.
#include <new>
#include <string>
#include <vector>

#include "groups/group.h"
#include "scene/scene.h"

namespace vx::group {
namespace {

struct StashedLink {
    std::uint64_t scene_id;
    bool channels;  // in "chanGroups", else "itemGroups"
    std::string from_ident, to_ident;
    GraphNode from, to;
    std::size_t fwd_at, rev_at;
};

std::vector<StashedLink> &stash() noexcept {
    static std::vector<StashedLink> links;
    return links;
}

bool present(Cinema &scene, const std::string &ident, const void *item) noexcept {
    auto it = scene.by_ident.find(ident);
    return it != scene.by_ident.end() && it->second == item;
}

void take_away(Cinema &scene, CineItem &item, LinkGraph &graph, bool channels) {
    std::vector<std::pair<GraphNode, GraphNode>> links;
    for (const auto &[node, lists] : graph.nodes) {
        for (GraphNode to : lists.forward) {
            if (node.object == &item || to.object == &item) links.emplace_back(node, to);
        }
    }
    for (const auto &[from, to] : links) {
        StashedLink link{scene.id,
                         channels,
                         static_cast<CineItem *>(from.object)->ident,
                         static_cast<CineItem *>(to.object)->ident,
                         from,
                         to,
                         fwd_position(graph, from, to),
                         rev_position(graph, from, to)};
        stash().push_back(std::move(link));
        unlink_now(graph, from, to);
    }
}

void bring_back(Cinema &scene, CineItem &item) {
    std::vector<StashedLink> &links = stash();
    // Taken away in order, so put back in reverse: every link finds its old neighbours.
    for (std::size_t i = links.size(); i > 0; --i) {
        StashedLink &link = links[i - 1];
        if (link.scene_id != scene.id || (link.from.object != &item && link.to.object != &item)) {
            continue;
        }
        LinkGraph *graph = link.channels ? chan_graph(scene) : item_graph(scene);
        if (graph != nullptr && present(scene, link.from_ident, link.from.object) &&
            present(scene, link.to_ident, link.to.object) &&
            !fwd_test(*graph, link.from, link.to)) {
            reserve_link(*graph, link.from, link.to);
            insert_reserved(*graph, link.from, link.to, link.fwd_at, link.rev_at);
        }
        links.erase(links.begin() + static_cast<std::ptrdiff_t>(i - 1));
    }
}

}  // namespace

int item_event_filter(void *, std::uint32_t code) {
    return code == CINE_EVENT_ITEM_ADDED || code == CINE_EVENT_ITEM_REMOVED ? 1 : 0;
}

void hear_items(void *, void *sender, std::uint32_t code, void *data) {
    auto *scene = static_cast<Cinema *>(sender);
    auto *item = static_cast<CineItem *>(data);
    if (scene == nullptr || item == nullptr) return;
    // A listener cannot fail: without memory the links stay as they were (a removal) or are
    // not restored (a return), and the scene stays usable either way.
    try {
        if (code == CINE_EVENT_ITEM_REMOVED) {
            if (LinkGraph *graph = item_graph(*scene)) take_away(*scene, *item, *graph, false);
            if (LinkGraph *graph = chan_graph(*scene)) take_away(*scene, *item, *graph, true);
        } else {
            bring_back(*scene, *item);
        }
    } catch (const std::bad_alloc &) {
    }
}

void forget_stashes() noexcept {
    std::vector<StashedLink>().swap(stash());
}

}  // namespace vx::group
