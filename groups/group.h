// Groups inside the library: the group type, its graphs, membership edits and queries, and the
// scan over a hierarchy of groups. The C boundary (group_api.cpp) checks its arguments and
// calls these; action clips reach groups only through the C functions.
#pragma once

#include <vexor/group.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "foundation/link_graph.h"

struct Cinema;
struct CineItem;

namespace vx::group {

inline constexpr const char *kPackage = "group";
inline constexpr const char *kGroupsGraph = "groups";
inline constexpr const char *kItemGraph = "itemGroups";
inline constexpr const char *kChanGraph = "chanGroups";

// ---- Module (group_module.cpp) ----
void start();
void stop() noexcept;
bool started() noexcept;

// ---- Members (group_members.cpp) ----
LinkGraph *item_graph(const Cinema &scene) noexcept;
LinkGraph *chan_graph(const Cinema &scene) noexcept;
bool is_group(const CineItem &item) noexcept;

// The graph node of a member channel, and of a group in "chanGroups".
inline GraphNode channel_node(CineItem &item, std::uint32_t channel) noexcept {
    return node_of(&item, static_cast<std::int32_t>(channel));
}

// Each edit is undoable, one undo step with the scene's change mark; false changes nothing.
bool add_item(CineItem &group, CineItem &item, std::size_t at);
bool remove_item(CineItem &group, CineItem &item);
void remove_from_every_group(CineItem &item);
bool add_channel(CineItem &group, CineItem &item, std::uint32_t channel, std::size_t at);
bool remove_channel(CineItem &group, CineItem &item, std::uint32_t channel);
bool move_item(CineItem &group, CineItem &item, std::size_t at);
bool move_channel(CineItem &group, CineItem &item, std::uint32_t channel, std::size_t at);
std::uint32_t copy_members(CineItem &group, CineItem &source);

std::size_t member_count(const CineItem &group, bool channels) noexcept;
CineItem *member_item(const CineItem &group, std::size_t index) noexcept;
// The channel member at a position; false past the end.
bool member_channel(const CineItem &group, std::size_t index, CineItem *&item,
                    std::uint32_t &channel) noexcept;
std::uint32_t item_position(const CineItem &group, const CineItem &item) noexcept;
std::uint32_t channel_position(const CineItem &group, const CineItem &item,
                               std::uint32_t channel) noexcept;
CineItem *first_group_of(const CineItem &item) noexcept;
CineItem *first_group_of(const CineItem &item, std::uint32_t channel) noexcept;

struct Filter {
    std::uint32_t type;
    bool include_subtypes;
    std::uint32_t excluded;
    bool exclude_subtypes;
    bool passes(const CineItem &member) const noexcept;
};
// The index-th member that passes (null past the end); with index kNoLink, counts them.
CineItem *filtered_member(const CineItem &group, const Filter &filter, std::size_t index,
                          std::size_t *count) noexcept;

// ---- Kinds (group_members.cpp) ----
std::uint32_t kind_of(const CineItem &group) noexcept;
void set_kind(CineItem &group, std::uint32_t kind);

// ---- Scans (group_scan.cpp) ----
// The groups a scan of that scope visits, in order.
std::vector<CineItem *> scan_groups(CineItem &group, std::uint32_t scope);
int scan(CineItem &group, std::uint32_t what, GroupScanFunc func, std::uint32_t scope, void *client,
         bool reverse);

// ---- Keeping memberships consistent (group_consistency.cpp) ----
// Hears item events on "cinema-db".
void hear_items(void *client, void *sender, std::uint32_t code, void *data);
int item_event_filter(void *client, std::uint32_t code);
void forget_stashes() noexcept;

}  // namespace vx::group
