// Action clips: items that own an action of their own, claim channels in it, and take part in
// evaluation while their action is a parent of the scene's "edit" action.
//
// A clip finds its action by name: the item tag kActionTag holds the name of the action made
// for it, so the link survives saving and loading like every other tag. The clip's own action
// is made and destroyed as part of the edits that make and delete the clip, so undo keeps the
// two together.
//
// Clips read what they need of groups (the members of a group, the channels it holds) from
// the scene's "itemGroups" and "chanGroups" graphs, which the group module keeps; without it
// running, groups simply have no members.
#pragma once

#include <vexor/actionclip.h>

#include <cstddef>
#include <cstdint>

struct Cinema;
struct CineItem;
struct CineAction;

namespace vx::clip {

inline constexpr std::uint32_t kActionTag = 0x4143544Eu;    // "ACTN"
inline constexpr std::uint32_t kDisabledTag = 0x41434542u;  // "ACEB"
inline constexpr std::uint32_t kTransformType = 24;

// ---- Module (action_clip_package.cpp) ----
void start();
void stop() noexcept;
bool started() noexcept;
// The item has just been made (inside the edit that makes it): a clip gets its action.
void item_made(CineItem &item);
// The item is being deleted (inside the delete edit): its action goes with it.
void item_deleting(CineItem &item);

// Transform items of an item that has a transform stack (type 24): the module that keeps
// transforms registers where to find them. Fills up to `capacity` items into `out`, returns
// how many there are.
using TransformItemsFn = std::size_t (*)(CineItem &item, CineItem **out, std::size_t capacity);
void set_transform_items(TransformItemsFn fn) noexcept;
std::size_t transform_items(CineItem &item, CineItem **out, std::size_t capacity);

// ---- Clips (action_clip_edits.cpp) ----
bool is_clip(const CineItem &item) noexcept;
// The clip's action while it is in the clip's scene, else null.
CineAction *action_of(const CineItem &clip) noexcept;
std::uint32_t kind_of(const CineItem &clip) noexcept;
bool set_kind(CineItem &clip, std::uint32_t kind);

// Claims and releases; each is one undoable step. False when nothing could be done (no
// action, or the item is a clip).
bool add_item(CineItem &clip, CineItem *group, CineItem &item);
bool remove_item(CineItem &clip, CineItem *group, CineItem &item);
bool add_channel(CineItem &clip, CineItem &item, std::uint32_t channel);
bool remove_channel(CineItem &clip, CineItem &item, std::uint32_t channel);

bool is_active(const CineItem &clip) noexcept;
bool set_active(CineItem &clip, CineItem *group, std::uint32_t flag);
CineItem *active_in(const CineItem &group) noexcept;
bool parent_action(CineItem &clip, CineAction *parent, CineAction *child);
bool set_parenting(CineItem &clip, bool on);
bool is_enabled(const CineItem &clip) noexcept;
bool set_enabled(CineItem &clip, std::uint32_t flag);
CineItem *clip_of(const CineAction &action) noexcept;

}  // namespace vx::clip
