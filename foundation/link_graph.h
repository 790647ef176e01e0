// Link graphs: named sets of ordered links between nodes.
//
// A node is an object (an item of a scene), or one channel of an object: (object, channel)
// with channel -1 standing for the object itself. A link goes from one node to another; each
// node keeps its forward links (to others) and its reverse links (from others) in two ordered
// lists, so a graph can express both "the members of a group, in order" and "the children of
// an item, in order" through the one link.
//
// Reading never allocates. Links are changed either directly (link_now, unlink_now) or as
// undoable edits (link, unlink), which prepare their room first so that a failed edit changes
// nothing. A graph is used from one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace vx {

struct GraphNode {
    void *object = nullptr;
    std::int32_t channel = -1;  // -1: the object itself

    friend bool operator==(const GraphNode &, const GraphNode &) = default;
};

struct GraphNodeHash {
    std::size_t operator()(const GraphNode &node) const noexcept {
        return std::hash<void *>()(node.object) ^
               (static_cast<std::size_t>(static_cast<std::uint32_t>(node.channel)) * 0x9E3779B1u);
    }
};

inline constexpr std::size_t kNoLink = static_cast<std::size_t>(-1);

}  // namespace vx

// One graph. The kind is the caller's number (1 for graphs of objects, 2 for graphs of
// channels, by convention of the scene).
struct LinkGraph {
    struct Links {
        std::vector<vx::GraphNode> forward;
        std::vector<vx::GraphNode> reverse;
    };

    std::string name;
    std::uint32_t kind = 0;
    std::unordered_map<vx::GraphNode, Links, vx::GraphNodeHash> nodes;
};

namespace vx {

// ---- Reading (never fails, never allocates) ----
std::size_t fwd_count(const LinkGraph &graph, GraphNode node) noexcept;
std::size_t rev_count(const LinkGraph &graph, GraphNode node) noexcept;
// The index-th forward or reverse link of the node; a null node when out of range.
GraphNode fwd_by_index(const LinkGraph &graph, GraphNode node, std::size_t index) noexcept;
GraphNode rev_by_index(const LinkGraph &graph, GraphNode node, std::size_t index) noexcept;
// The position of `to` among the forward links of `from`, or kNoLink.
std::size_t fwd_position(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept;
// The position of `from` among the reverse links of `to`, or kNoLink.
std::size_t rev_position(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept;
bool fwd_test(const LinkGraph &graph, GraphNode from, GraphNode to) noexcept;
// Every node that has at least one link.
std::size_t linked_node_count(const LinkGraph &graph) noexcept;

// ---- Direct changes ----
// Adds the link from -> to at the given positions in the forward list of `from` and the
// reverse list of `to` (kNoLink, or any position past the end: last). Returns false, changing
// nothing, when the link exists. Raises std::bad_alloc.
bool link_now(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t fwd_at = kNoLink,
              std::size_t rev_at = kNoLink);
// Removes the link; false when there is none.
bool unlink_now(LinkGraph &graph, GraphNode from, GraphNode to) noexcept;
// Removes every link to and from the node.
void clear_node_now(LinkGraph &graph, GraphNode node) noexcept;

// For edit records that link inside an apply step: reserve first (may raise std::bad_alloc,
// changes nothing a reader sees), then insert without allocating. Positions past the end
// mean last; the positions taken are written back.
void reserve_link(LinkGraph &graph, GraphNode from, GraphNode to);
void insert_reserved(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t &fwd_at,
                     std::size_t &rev_at) noexcept;
// Spare room in the graph's table of nodes, for a graph just made; allocation failures are
// ignored.
void keep_room(LinkGraph &graph) noexcept;

// ---- Undoable edits ----
// As link_now and unlink_now, each one undoable edit. A failure changes nothing.
bool link(LinkGraph &graph, GraphNode from, GraphNode to, std::size_t fwd_at = kNoLink,
          std::size_t rev_at = kNoLink);
bool unlink(LinkGraph &graph, GraphNode from, GraphNode to);

// A node for an object, or for one of its channels.
inline GraphNode node_of(void *object, std::int32_t channel = -1) noexcept {
    return GraphNode{object, channel};
}

}  // namespace vx
