#include "foundation/link_graph.h"

#include <algorithm>
#include <new>

#include "foundation/edit_frame.h"

namespace vx {
namespace {

const LinkGraph::Links *links_of(const LinkGraph &graph, GraphNode node) noexcept {
    auto it = graph.nodes.find(node);
    return it != graph.nodes.end() ? &it->second : nullptr;
}

std::size_t position_in(const std::vector<GraphNode> &list, GraphNode node) noexcept {
    auto it = std::find(list.begin(), list.end(), node);
    return it != list.end() ? static_cast<std::size_t>(it - list.begin()) : kNoLink;
}

void insert_at(std::vector<GraphNode> &list, GraphNode node, std::size_t at) noexcept {
    at = std::min(at, list.size());
    // Room was reserved beforehand, so this does not allocate.
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), node);
}

// Removes a link; returns the positions it had.
bool remove_link(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t &fwd_at,
                 std::size_t &rev_at) noexcept {
    auto a = graph.nodes.find(from);
    auto b = graph.nodes.find(to);
    if (a == graph.nodes.end() || b == graph.nodes.end()) return false;
    fwd_at = position_in(a->second.forward, to);
    rev_at = position_in(b->second.reverse, from);
    if (fwd_at == kNoLink || rev_at == kNoLink) return false;
    a->second.forward.erase(a->second.forward.begin() + static_cast<std::ptrdiff_t>(fwd_at));
    b->second.reverse.erase(b->second.reverse.begin() + static_cast<std::ptrdiff_t>(rev_at));
    return true;
}

// One link made (add) or removed (!add). Undo puts it back at the positions it had.
struct LinkEdit {
    LinkGraph *graph;
    GraphNode from;
    GraphNode to;
    std::size_t fwd_at;
    std::size_t rev_at;
    bool add;

    void prepare(int direction) {
        if ((direction != 0) == add) reserve_link(*graph, from, to);
    }
    void apply(int direction) {
        if ((direction != 0) == add) {
            insert_reserved(*graph, from, to, fwd_at, rev_at);
        } else {
            remove_link(*graph, from, to, fwd_at, rev_at);
        }
    }
};

// Room for `extra` more nodes. Only ever grown: reserving less than the table holds room for
// would rehash it smaller, and a failed edit would then leave the table of another size.
void grow_nodes(LinkGraph &graph, std::size_t extra) {
    const auto room = static_cast<double>(graph.nodes.bucket_count()) *
                      static_cast<double>(graph.nodes.max_load_factor());
    if (room < static_cast<double>(graph.nodes.size() + extra))
        graph.nodes.reserve(graph.nodes.size() + extra);
}

}  // namespace

// Makes both nodes known and gives their lists room for one more link, so that inserting
// cannot fail afterwards. Empty entries are invisible to readers. A failure part-way takes
// back the entries made here; the graph keeps spare room (keep_room) so that the reserves of
// existing entries normally allocate nothing.
void reserve_link(LinkGraph &graph, GraphNode from, GraphNode to) {
    grow_nodes(graph, 2);
    auto [a, made_a] = graph.nodes.try_emplace(from);
    try {
        a->second.forward.reserve(a->second.forward.size() + 1);
        auto [b, made_b] = graph.nodes.try_emplace(to);
        try {
            b->second.reverse.reserve(b->second.reverse.size() + 1);
        } catch (...) {
            if (made_b) graph.nodes.erase(b);
            throw;
        }
    } catch (...) {
        if (made_a) graph.nodes.erase(a);
        throw;
    }
}

void keep_room(LinkGraph &graph) noexcept {
    try {
        grow_nodes(graph, 2);
    } catch (const std::bad_alloc &) {
    }
}

void insert_reserved(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t &fwd_at,
                     std::size_t &rev_at) noexcept {
    std::vector<GraphNode> &forward = graph.nodes.find(from)->second.forward;
    std::vector<GraphNode> &reverse = graph.nodes.find(to)->second.reverse;
    fwd_at = std::min(fwd_at, forward.size());
    rev_at = std::min(rev_at, reverse.size());
    insert_at(forward, to, fwd_at);
    insert_at(reverse, from, rev_at);
    // Room for the next link, so that its reserve need not grow these part-way; without it
    // the next link simply grows them when it is prepared.
    try {
        forward.reserve(forward.size() + 1);
        reverse.reserve(reverse.size() + 1);
    } catch (const std::bad_alloc &) {
    }
    keep_room(graph);
}

std::size_t fwd_count(const LinkGraph &graph, GraphNode node) noexcept {
    const LinkGraph::Links *links = links_of(graph, node);
    return links != nullptr ? links->forward.size() : 0;
}

std::size_t rev_count(const LinkGraph &graph, GraphNode node) noexcept {
    const LinkGraph::Links *links = links_of(graph, node);
    return links != nullptr ? links->reverse.size() : 0;
}

GraphNode fwd_by_index(const LinkGraph &graph, GraphNode node, std::size_t index) noexcept {
    const LinkGraph::Links *links = links_of(graph, node);
    if (links == nullptr || index >= links->forward.size()) return GraphNode{};
    return links->forward[index];
}

GraphNode rev_by_index(const LinkGraph &graph, GraphNode node, std::size_t index) noexcept {
    const LinkGraph::Links *links = links_of(graph, node);
    if (links == nullptr || index >= links->reverse.size()) return GraphNode{};
    return links->reverse[index];
}

std::size_t fwd_position(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept {
    const LinkGraph::Links *links = links_of(graph, from);
    return links != nullptr ? position_in(links->forward, to) : kNoLink;
}

std::size_t rev_position(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept {
    const LinkGraph::Links *links = links_of(graph, to);
    return links != nullptr ? position_in(links->reverse, from) : kNoLink;
}

bool fwd_test(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept {
    return fwd_position(graph, from, to) != kNoLink;
}

std::size_t linked_node_count(const LinkGraph &graph) noexcept {
    return static_cast<std::size_t>(
        std::count_if(graph.nodes.begin(), graph.nodes.end(), [](const auto &entry) {
            return !entry.second.forward.empty() || !entry.second.reverse.empty();
        }));
}

bool link_now(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t fwd_at,
              std::size_t rev_at) {
    if (fwd_test(graph, from, to)) return false;
    reserve_link(graph, from, to);
    insert_reserved(graph, from, to, fwd_at, rev_at);
    return true;
}

bool unlink_now(LinkGraph &graph, GraphNode from, GraphNode to) noexcept {
    std::size_t fwd_at = 0, rev_at = 0;
    return remove_link(graph, from, to, fwd_at, rev_at);
}

void clear_node_now(LinkGraph &graph, GraphNode node) noexcept {
    auto it = graph.nodes.find(node);
    if (it == graph.nodes.end()) return;
    // Copies are not needed: the other ends are different entries (a self link is removed
    // from both lists by the first pass).
    while (!it->second.forward.empty()) unlink_now(graph, node, it->second.forward.back());
    while (!it->second.reverse.empty()) unlink_now(graph, it->second.reverse.back(), node);
}

bool link(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t fwd_at, std::size_t rev_at) {
    if (fwd_test(graph, from, to)) return false;
    edit_pending<LinkEdit>(1, &graph, from, to, fwd_at, rev_at, true);
    return true;
}

bool unlink(LinkGraph &graph, GraphNode from, GraphNode to) {
    if (!fwd_test(graph, from, to)) return false;
    edit_pending<LinkEdit>(1, &graph, from, to, kNoLink, kNoLink, false);
    return true;
}

}  // namespace vx
