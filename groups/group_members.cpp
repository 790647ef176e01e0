// Membership of groups: links in the scene's "itemGroups" and "chanGroups" graphs, edited as
// undoable scene edits, and the queries over them; the group kind kept in an item tag.
#include <cstring>

#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "groups/group.h"
#include "scene/scene.h"

namespace vx::group {
namespace {

// One membership link made (add) or taken away (!add), at the positions it had, so that undo
// puts a removed member back exactly where it was. The group hears of every application.
struct MemberEdit {
    Cinema *scene;
    std::uint64_t id;
    LinkGraph *graph;
    CineItem *group;
    GraphNode from;
    GraphNode to;
    std::size_t fwd_at;
    std::size_t rev_at;
    bool add;

    bool alive() const noexcept { return cine::scene_alive(scene, id); }
    void prepare(int direction) {
        if (alive() && (direction != 0) == add) reserve_link(*graph, from, to);
    }
    void apply(int direction) {
        if (!alive()) return;
        if ((direction != 0) == add) {
            insert_reserved(*graph, from, to, fwd_at, rev_at);
        } else {
            fwd_at = fwd_position(*graph, from, to);
            rev_at = rev_position(*graph, from, to);
            unlink_now(*graph, from, to);
        }
        cine::send_event(*scene, CINE_EVENT_ITEM_CHANGED, group);
    }
};

void edit_link(CineItem &group, LinkGraph &graph, GraphNode from, GraphNode to, std::size_t at,
               bool add) {
    Cinema &scene = *group.scene;
    edit_pending<MemberEdit>(1, &scene, scene.id, &graph, &group, from, to, at, kNoLink, add);
}

LinkGraph &needed(LinkGraph *graph) {
    if (graph == nullptr) fail(rc::not_found, "the scene has no group graphs");
    return *graph;
}

constexpr const char *kKindNames[] = {nullptr, "assembly", "actor", "render"};

}  // namespace

LinkGraph *item_graph(const Cinema &scene) noexcept {
    return cine::graph_named(scene, kItemGraph);
}

LinkGraph *chan_graph(const Cinema &scene) noexcept {
    return cine::graph_named(scene, kChanGraph);
}

bool is_group(const CineItem &item) noexcept {
    return cine::test_type(item, GROUP_TYPE_CODE);
}

bool add_item(CineItem &group, CineItem &item, std::size_t at) {
    LinkGraph &graph = needed(item_graph(*group.scene));
    if (fwd_test(graph, node_of(&group), node_of(&item))) return false;
    cine::SceneEdit frame(*group.scene);
    edit_link(group, graph, node_of(&group), node_of(&item), at, true);
    return true;
}

bool remove_item(CineItem &group, CineItem &item) {
    LinkGraph &graph = needed(item_graph(*group.scene));
    if (!fwd_test(graph, node_of(&group), node_of(&item))) return false;
    cine::SceneEdit frame(*group.scene);
    edit_link(group, graph, node_of(&group), node_of(&item), kNoLink, false);
    return true;
}

void remove_from_every_group(CineItem &item) {
    LinkGraph &graph = needed(item_graph(*item.scene));
    const GraphNode node = node_of(&item);
    if (rev_count(graph, node) == 0) return;
    cine::SceneEdit frame(*item.scene);
    for (std::size_t n = rev_count(graph, node); n > 0; --n) {
        const GraphNode from = rev_by_index(graph, node, n - 1);
        edit_link(*static_cast<CineItem *>(from.object), graph, from, node, kNoLink, false);
    }
}

bool add_channel(CineItem &group, CineItem &item, std::uint32_t channel, std::size_t at) {
    LinkGraph &graph = needed(chan_graph(*group.scene));
    const GraphNode to = channel_node(item, channel);
    if (fwd_test(graph, node_of(&group), to)) return false;
    cine::SceneEdit frame(*group.scene);
    edit_link(group, graph, node_of(&group), to, at, true);
    return true;
}

bool remove_channel(CineItem &group, CineItem &item, std::uint32_t channel) {
    LinkGraph &graph = needed(chan_graph(*group.scene));
    const GraphNode to = channel_node(item, channel);
    if (!fwd_test(graph, node_of(&group), to)) return false;
    cine::SceneEdit frame(*group.scene);
    edit_link(group, graph, node_of(&group), to, kNoLink, false);
    return true;
}

namespace {

bool move(CineItem &group, LinkGraph &graph, GraphNode to, std::size_t at) {
    const GraphNode from = node_of(&group);
    if (!fwd_test(graph, from, to)) return false;
    cine::SceneEdit frame(*group.scene);
    const std::size_t rev_at = rev_position(graph, from, to);
    edit_link(group, graph, from, to, kNoLink, false);
    edit_pending<MemberEdit>(1, group.scene, group.scene->id, &graph, &group, from, to, at, rev_at,
                             true);
    return true;
}

}  // namespace

bool move_item(CineItem &group, CineItem &item, std::size_t at) {
    return move(group, needed(item_graph(*group.scene)), node_of(&item), at);
}

bool move_channel(CineItem &group, CineItem &item, std::uint32_t channel, std::size_t at) {
    return move(group, needed(chan_graph(*group.scene)), channel_node(item, channel), at);
}

std::uint32_t copy_members(CineItem &group, CineItem &source) {
    LinkGraph &items = needed(item_graph(*group.scene));
    LinkGraph &channels = needed(chan_graph(*group.scene));
    // Read first: adding to the group may be adding to the source's lists too (a group copied
    // into itself).
    std::vector<GraphNode> item_members, channel_members;
    const GraphNode from = node_of(&source);
    for (std::size_t i = 0; i < fwd_count(items, from); ++i) {
        item_members.push_back(fwd_by_index(items, from, i));
    }
    for (std::size_t i = 0; i < fwd_count(channels, from); ++i) {
        channel_members.push_back(fwd_by_index(channels, from, i));
    }
    std::uint32_t added = 0;
    cine::SceneEdit frame(*group.scene);
    for (GraphNode member : item_members) {
        CineItem &item = *cine::redirect_copy(*static_cast<CineItem *>(member.object));
        if (&item != &group && item.scene == group.scene && add_item(group, item, kNoLink)) {
            ++added;
        }
    }
    for (GraphNode member : channel_members) {
        CineItem &item = *cine::redirect_copy(*static_cast<CineItem *>(member.object));
        if (item.scene == group.scene &&
            add_channel(group, item, static_cast<std::uint32_t>(member.channel), kNoLink)) {
            ++added;
        }
    }
    return added;
}

std::size_t member_count(const CineItem &group, bool channels) noexcept {
    const LinkGraph *graph = channels ? chan_graph(*group.scene) : item_graph(*group.scene);
    return graph != nullptr ? fwd_count(*graph, node_of(const_cast<CineItem *>(&group))) : 0;
}

CineItem *member_item(const CineItem &group, std::size_t index) noexcept {
    const LinkGraph *graph = item_graph(*group.scene);
    if (graph == nullptr) return nullptr;
    return static_cast<CineItem *>(
        fwd_by_index(*graph, node_of(const_cast<CineItem *>(&group)), index).object);
}

bool member_channel(const CineItem &group, std::size_t index, CineItem *&item,
                    std::uint32_t &channel) noexcept {
    const LinkGraph *graph = chan_graph(*group.scene);
    if (graph == nullptr) return false;
    const GraphNode node = fwd_by_index(*graph, node_of(const_cast<CineItem *>(&group)), index);
    if (node.object == nullptr) return false;
    item = static_cast<CineItem *>(node.object);
    channel = static_cast<std::uint32_t>(node.channel);
    return true;
}

namespace {

std::uint32_t position(const LinkGraph *graph, const CineItem &group, GraphNode to) noexcept {
    if (graph == nullptr) return GROUP_NOT_MEMBER;
    const std::size_t at = fwd_position(*graph, node_of(const_cast<CineItem *>(&group)), to);
    return at == kNoLink ? GROUP_NOT_MEMBER : static_cast<std::uint32_t>(at);
}

CineItem *first_from(const LinkGraph *graph, GraphNode node) noexcept {
    if (graph == nullptr) return nullptr;
    return static_cast<CineItem *>(rev_by_index(*graph, node, 0).object);
}

}  // namespace

std::uint32_t item_position(const CineItem &group, const CineItem &item) noexcept {
    return position(item_graph(*group.scene), group, node_of(const_cast<CineItem *>(&item)));
}

std::uint32_t channel_position(const CineItem &group, const CineItem &item,
                               std::uint32_t channel) noexcept {
    return position(chan_graph(*group.scene), group,
                    channel_node(const_cast<CineItem &>(item), channel));
}

CineItem *first_group_of(const CineItem &item) noexcept {
    return first_from(item_graph(*item.scene), node_of(const_cast<CineItem *>(&item)));
}

CineItem *first_group_of(const CineItem &item, std::uint32_t channel) noexcept {
    return first_from(chan_graph(*item.scene), channel_node(const_cast<CineItem &>(item), channel));
}

bool Filter::passes(const CineItem &member) const noexcept {
    const std::uint32_t code = member.type->type_code;
    const bool wanted =
        type == CINE_TYPE_NONE || (include_subtypes ? cine::test_type(member, type) : code == type);
    const bool kept = excluded == CINE_TYPE_NONE ||
                      (exclude_subtypes ? !cine::test_type(member, excluded) : code != excluded);
    return wanted && kept;
}

CineItem *filtered_member(const CineItem &group, const Filter &filter, std::size_t index,
                          std::size_t *count) noexcept {
    std::size_t passed = 0;
    for (std::size_t i = 0, n = member_count(group, false); i < n; ++i) {
        CineItem *member = member_item(group, i);
        if (member == nullptr || !filter.passes(*member)) continue;
        if (passed++ == index) return member;
    }
    if (count != nullptr) *count = passed;
    return nullptr;
}

std::uint32_t kind_of(const CineItem &group) noexcept {
    const std::string *tag = cine::item_tag(group, GROUP_KIND_TAG);
    if (tag == nullptr) return GROUP_KIND_NONE;
    for (std::uint32_t kind = GROUP_KIND_ASSEMBLY; kind <= GROUP_KIND_RENDER; ++kind) {
        if (*tag == kKindNames[kind]) return kind;
    }
    return GROUP_KIND_NONE;
}

void set_kind(CineItem &group, std::uint32_t kind) {
    const char *text =
        kind >= GROUP_KIND_ASSEMBLY && kind <= GROUP_KIND_RENDER ? kKindNames[kind] : nullptr;
    cine::set_item_tag(group, GROUP_KIND_TAG, text);
    // Hosts may show the kind in the name; the next request makes it again.
    cine::invalidate_name(group);
}

}  // namespace vx::group
