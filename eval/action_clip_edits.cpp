// What clips do: claims and releases of channels in the clip's action, kinds, activation and
// parenting through the scene's actions, and enabling through the "ACEB" tag.
#include <vexor/actionclip.h>

#include <algorithm>
#include <vector>

#include "eval/action_clip.h"
#include "eval/action_records.h"
#include "foundation/link_graph.h"
#include "foundation/log.h"
#include "scene/scene.h"

namespace vx::clip {
namespace {

constexpr std::size_t kMaxTransforms = 64;

// The item members of a group, read from the graph the group module keeps.
std::vector<CineItem *> group_items(const CineItem *group) {
    std::vector<CineItem *> items;
    if (group == nullptr) return items;
    const LinkGraph *graph = cine::graph_named(*group->scene, "itemGroups");
    if (graph == nullptr) return items;
    const GraphNode node = node_of(const_cast<CineItem *>(group));
    for (std::size_t i = 0, n = fwd_count(*graph, node); i < n; ++i) {
        items.push_back(static_cast<CineItem *>(fwd_by_index(*graph, node, i).object));
    }
    return items;
}

bool group_holds(const CineItem *group, CineItem &item, std::uint32_t channel) noexcept {
    if (group == nullptr) return false;
    const LinkGraph *graph = cine::graph_named(*group->scene, "chanGroups");
    return graph != nullptr && fwd_test(*graph, node_of(const_cast<CineItem *>(group)),
                                        node_of(&item, static_cast<std::int32_t>(channel)));
}

// Matrix and object channels hold no values a clip could blend or switch.
bool claimable(const CineItem &item, std::uint32_t channel) noexcept {
    const cine::ChannelDesc *desc = cine::item_channel(item, channel);
    return desc != nullptr && desc->storage != VX_STORE_MATRIX && desc->storage != VX_STORE_OBJECT;
}

// The item and, for items with a transform stack, its transform items.
std::vector<CineItem *> claim_targets(CineItem &item) {
    std::vector<CineItem *> targets{&item};
    CineItem *found[kMaxTransforms];
    const std::size_t n = std::min(transform_items(item, found, kMaxTransforms), kMaxTransforms);
    targets.insert(targets.end(), found, found + n);
    return targets;
}

bool has_parent(const CineAction &action, const CineAction &parent) noexcept {
    return std::find(action.parents.begin(), action.parents.end(), &parent) != action.parents.end();
}

// Whether `target` is `from` or lies among the parents of `from`, however far up.
bool reaches(const CineAction &from, const CineAction &target) {
    std::vector<const CineAction *> todo{&from}, seen;
    while (!todo.empty()) {
        const CineAction *at = todo.back();
        todo.pop_back();
        if (at == &target) return true;
        if (std::find(seen.begin(), seen.end(), at) != seen.end()) continue;
        seen.push_back(at);
        todo.insert(todo.end(), at->parents.begin(), at->parents.end());
    }
    return false;
}

// Takes the action out of evaluation: no action of the scene keeps it as a parent.
void take_out(CineAction &action) {
    for (CineAction *other = action.data->first; other != nullptr; other = other->next) {
        act::remove_parent(*other, action);
    }
}

std::int32_t mode_of(CineItem &clip, CineAction &edit) noexcept {
    const std::int64_t channel = cine::lookup_channel(clip, "mode");
    if (channel < 0) return ACTIONCLIP_MODE_UNDER;
    const act::ValueSource source =
        act::find_value(&edit, clip, static_cast<std::uint32_t>(channel));
    if (source.constant == nullptr) return ACTIONCLIP_MODE_UNDER;
    return source.constant->get_int();
}

bool wanted(std::uint32_t flag, bool now) noexcept {
    return flag == ACTIONCLIP_TOGGLE ? !now : flag != 0;
}

}  // namespace

bool is_clip(const CineItem &item) noexcept {
    return cine::test_type(item, ACTIONCLIP_TYPE_CODE);
}

CineAction *action_of(const CineItem &clip) noexcept {
    if (!is_clip(clip)) return nullptr;
    const std::string *name = cine::item_tag(clip, kActionTag);
    if (name == nullptr) return nullptr;
    CineAction *action = act::lookup(*clip.scene, name->c_str());
    if (action == nullptr || !action->linked) return nullptr;
    // The default actions belong to the scene, never to a clip (a damaged file could say so).
    const act::ActionData &data = *action->data;
    if (action == data.edit || action == data.scene_action || action == data.setup) return nullptr;
    return action;
}

std::uint32_t kind_of(const CineItem &clip) noexcept {
    const CineAction *action = action_of(clip);
    if (action == nullptr) return ACTIONCLIP_KIND_NONE;
    if (action->type == CINE_ACTION_SCENE) return ACTIONCLIP_KIND_ANIMATION;
    if (action->type == CINE_ACTION_SETUP) return ACTIONCLIP_KIND_POSE;
    return ACTIONCLIP_KIND_NONE;
}

bool set_kind(CineItem &clip, std::uint32_t kind) {
    CineAction *action = action_of(clip);
    if (action == nullptr) return false;
    if (kind == ACTIONCLIP_KIND_ANIMATION) act::set_type(*action, CINE_ACTION_SCENE);
    if (kind == ACTIONCLIP_KIND_POSE) act::set_type(*action, CINE_ACTION_SETUP);
    return true;
}

bool add_item(CineItem &clip, CineItem *, CineItem &item) {
    CineAction *action = action_of(clip);
    if (action == nullptr || is_clip(item) || item.scene != clip.scene) return false;
    log::level(1, "Adding Item to Action Clip: %s to %s\n", cine::unique_name(item).c_str(),
               cine::unique_name(clip).c_str());
    for (CineItem *target : claim_targets(item)) {
        for (std::uint32_t channel = 0; channel < target->channel_count; ++channel) {
            if (claimable(*target, channel) &&
                act::find_entry(*action, *target, channel) == nullptr) {
                act::set_state(*action, *target, channel, CINE_STATE_REMOVED, nullptr);
            }
        }
    }
    return true;
}

bool remove_item(CineItem &clip, CineItem *group, CineItem &item) {
    CineAction *action = action_of(clip);
    if (action == nullptr || is_clip(item) || item.scene != clip.scene) return false;
    log::level(1, "Removing Item from Action Clip: %s from %s\n", cine::unique_name(item).c_str(),
               cine::unique_name(clip).c_str());
    for (CineItem *target : claim_targets(item)) {
        for (std::uint32_t channel = 0; channel < target->channel_count; ++channel) {
            if (claimable(*target, channel) && !group_holds(group, *target, channel) &&
                act::find_entry(*action, *target, channel) != nullptr) {
                act::set_state(*action, *target, channel, CINE_STATE_NONE, nullptr);
            }
        }
    }
    return true;
}

bool add_channel(CineItem &clip, CineItem &item, std::uint32_t channel) {
    CineAction *action = action_of(clip);
    if (action == nullptr || is_clip(item) || item.scene != clip.scene ||
        !claimable(item, channel) || act::find_entry(*action, item, channel) != nullptr) {
        return false;
    }
    act::set_state(*action, item, channel, CINE_STATE_REMOVED, nullptr);
    return true;
}

bool remove_channel(CineItem &clip, CineItem &item, std::uint32_t channel) {
    CineAction *action = action_of(clip);
    if (action == nullptr || act::find_entry(*action, item, channel) == nullptr) return false;
    act::set_state(*action, item, channel, CINE_STATE_NONE, nullptr);
    return true;
}

bool is_active(const CineItem &clip) noexcept {
    const CineAction *action = action_of(clip);
    if (action == nullptr) return false;
    for (const CineAction *other = action->data->first; other != nullptr; other = other->next) {
        if (has_parent(*other, *action)) return true;
    }
    return false;
}

bool set_active(CineItem &clip, CineItem *group, std::uint32_t flag) {
    CineAction *action = action_of(clip);
    if (action == nullptr) return false;
    const bool now = is_active(clip);
    const bool want = wanted(flag, now);
    if (want == now) return true;
    CineAction *edit = act::default_action(*clip.scene, CINE_ACTION_EDIT);
    if (want && edit != nullptr && reaches(*action, *edit)) return false;
    // One clip of a group at a time: the others leave evaluation first, also when the clip
    // then cannot be activated. The clip itself goes too when deactivating, also when it is
    // not a member of the group.
    for (CineItem *member : group_items(group)) {
        if (CineAction *other = is_clip(*member) ? action_of(*member) : nullptr) take_out(*other);
    }
    if (!want) {
        take_out(*action);
        return true;
    }
    if (edit == nullptr) {
        VX_FAIL_LINE("ActionClipSetActive: ", "Unable to find Edit action");
        return false;
    }
    act::add_parent(*edit, *action, mode_of(clip, *edit) == ACTIONCLIP_MODE_OVERRIDE ? 0 : 1);
    return true;
}

CineItem *active_in(const CineItem &group) noexcept {
    try {
        for (CineItem *member : group_items(&group)) {
            if (is_clip(*member) && is_active(*member)) return member;
        }
    } catch (const std::bad_alloc &) {
    }
    return nullptr;
}

bool parent_action(CineItem &clip, CineAction *parent, CineAction *child) {
    CineAction *action = action_of(clip);
    if (action == nullptr || (parent == nullptr && child == nullptr)) return false;
    for (CineAction *other : {parent, child}) {
        if (other != nullptr && (other->data != action->data || !other->linked)) return false;
    }
    // A loop of parents would leave lookups that climb them no end.
    if ((child != nullptr && reaches(*action, *child)) ||
        (parent != nullptr && reaches(*parent, *action))) {
        return false;
    }
    if (child != nullptr) act::add_parent(*child, *action, -1);
    if (parent != nullptr) act::add_parent(*action, *parent, -1);
    return true;
}

bool set_parenting(CineItem &clip, bool on) {
    CineAction *action = action_of(clip);
    if (action == nullptr) return false;
    CineAction *scene_action = act::default_action(*clip.scene, CINE_ACTION_SCENE);
    if (scene_action == nullptr) {
        if (!on) return true;  // nothing to take away: only a request to parent fails
        VX_FAIL_LINE("ActionClipSetParenting: ", "Unable to find Anim action");
        return false;
    }
    if (!on) {
        act::remove_parent(*action, *scene_action);
        return true;
    }
    if (reaches(*scene_action, *action)) return false;
    act::add_parent(*action, *scene_action, -1);
    return true;
}

bool is_enabled(const CineItem &clip) noexcept {
    return is_clip(clip) && cine::item_tag(clip, kDisabledTag) == nullptr;
}

bool set_enabled(CineItem &clip, std::uint32_t flag) {
    if (!is_clip(clip)) return false;
    const bool now = is_enabled(clip);
    const bool want = wanted(flag, now);
    if (want != now) cine::set_item_tag(clip, kDisabledTag, want ? nullptr : "disabled");
    return true;
}

CineItem *clip_of(const CineAction &action) noexcept {
    const Cinema &scene = *action.data->scene;
    for (const cine::TypeItems &list : scene.item_lists) {
        if (list.items.empty() || !is_clip(*list.items.front())) continue;
        for (CineItem *clip : list.items) {
            if (action_of(*clip) == &action) return clip;
        }
    }
    return nullptr;
}

}  // namespace vx::clip
