// The C interface of groups: argument checks, then the module's own functions under guard.
#include <vexor/group.h>

#include <cstring>

#include "foundation/guard.h"
#include "groups/group.h"
#include "groups/group_objects.h"
#include "scene/scene.h"

using vx::group::is_group;

namespace {

bool usable_group(const CineItem *group) noexcept {
    return group != nullptr && group->in_scene && is_group(*group);
}

// A member must be a live item of the group's scene, other than the group.
bool usable_pair(const CineItem *group, const CineItem *item) noexcept {
    return usable_group(group) && item != nullptr && item != group && item->in_scene &&
           item->scene == group->scene;
}

bool usable_channel(const CineItem *group, const CineItem *item, unsigned int channel) noexcept {
    return usable_group(group) && item != nullptr && item->in_scene &&
           item->scene == group->scene && channel < item->channel_count;
}

LinkGraph *graph(Cinema *scene, const char *name) noexcept {
    return scene != nullptr ? vx::cine::graph_named(*scene, name) : nullptr;
}

bool named(const LinkGraph *graph, const char *name) noexcept {
    return graph != nullptr && graph->name == name;
}

}  // namespace

extern "C" {

VX_API int GroupStartup(void) {
    return vx::guard(0, [] {
        vx::group::start();
        return 1;
    });
}

VX_API void GroupShutdown(void) {
    vx::group::stop();
}

VX_API LinkGraph *GroupGraph(Cinema *scene) {
    return graph(scene, vx::group::kGroupsGraph);
}

VX_API LinkGraph *GroupItemGraph(Cinema *scene) {
    return graph(scene, vx::group::kItemGraph);
}

VX_API LinkGraph *GroupChanGraph(Cinema *scene) {
    return graph(scene, vx::group::kChanGraph);
}

VX_API int GraphIsGroupItemGraph(const LinkGraph *graph) {
    return named(graph, vx::group::kItemGraph) ? 1 : 0;
}

VX_API int GraphIsGroupChanGraph(const LinkGraph *graph) {
    return named(graph, vx::group::kChanGraph) ? 1 : 0;
}

VX_API int GroupAddItem(CineItem *group, CineItem *item) {
    return GroupSetItem(group, item, GROUP_NOT_MEMBER);
}

VX_API int GroupSetItem(CineItem *group, CineItem *item, unsigned int position) {
    if (!usable_pair(group, item)) return 0;
    return vx::guard(0, [&] { return vx::group::add_item(*group, *item, position); });
}

VX_API int GroupRemItem(CineItem *group, CineItem *item) {
    if (group == nullptr) {
        if (item == nullptr || !item->in_scene) return 0;
        return vx::guard(0, [&] {
            vx::group::remove_from_every_group(*item);
            return 1;
        });
    }
    if (!usable_pair(group, item)) return 0;
    return vx::guard(0, [&] { return vx::group::remove_item(*group, *item); });
}

VX_API int GroupAddChannel(CineItem *group, CineItem *item, unsigned int channel) {
    if (!usable_channel(group, item, channel)) return 0;
    return vx::guard(0,
                     [&] { return vx::group::add_channel(*group, *item, channel, vx::kNoLink); });
}

VX_API int GroupRemChannel(CineItem *group, CineItem *item, unsigned int channel) {
    if (!usable_channel(group, item, channel)) return 0;
    return vx::guard(0, [&] { return vx::group::remove_channel(*group, *item, channel); });
}

VX_API int GroupSetItemPosition(CineItem *group, CineItem *item, unsigned int position) {
    if (!usable_pair(group, item)) return 0;
    return vx::guard(0, [&] { return vx::group::move_item(*group, *item, position); });
}

VX_API int GroupSetChannelPosition(CineItem *group, CineItem *item, unsigned int channel,
                                   unsigned int position) {
    if (!usable_channel(group, item, channel)) return 0;
    return vx::guard(0, [&] { return vx::group::move_channel(*group, *item, channel, position); });
}

VX_API unsigned int GroupCopyMembers(CineItem *group, CineItem *source) {
    if (!usable_group(group) || !usable_group(source) || group->scene != source->scene) return 0;
    return vx::guard(0u, [&] { return vx::group::copy_members(*group, *source); });
}

VX_API unsigned int GroupType(CineItem *group) {
    return group != nullptr && is_group(*group) ? vx::group::kind_of(*group) : GROUP_KIND_NONE;
}

VX_API int GroupSetType(CineItem *group, unsigned int kind) {
    if (!usable_group(group)) return 0;
    return vx::guard(0, [&] {
        vx::group::set_kind(*group, kind);
        return 1;
    });
}

VX_API int GroupIsAssembly(CineItem *item) {
    return item != nullptr && item->type->type_code == GROUP_TYPE_CODE &&
                   vx::group::kind_of(*item) == GROUP_KIND_ASSEMBLY
               ? 1
               : 0;
}

VX_API CineItem *GroupGet(CineItem *item, unsigned int channel, unsigned int what) {
    if (item == nullptr) return nullptr;
    if (what == 0) return vx::group::first_group_of(*item);
    if (what == 1) return vx::group::first_group_of(*item, channel);
    return nullptr;
}

VX_API unsigned int GroupMemberCount(CineItem *group, unsigned int what) {
    if (group == nullptr || !is_group(*group)) return 0;
    return static_cast<unsigned int>(vx::group::member_count(*group, what != 0));
}

VX_API unsigned int GroupMemberItem(CineItem *group, CineItem *item) {
    if (group == nullptr || item == nullptr) return GROUP_NOT_MEMBER;
    return vx::group::item_position(*group, *item);
}

VX_API unsigned int GroupMemberChannel(CineItem *group, CineItem *item, unsigned int channel) {
    if (group == nullptr || item == nullptr) return GROUP_NOT_MEMBER;
    return vx::group::channel_position(*group, *item, channel);
}

VX_API int GroupMemberChannelByIndex(CineItem *group, unsigned int index, CineItem **item,
                                     unsigned int *channel) {
    if (group == nullptr || item == nullptr || channel == nullptr) return 0;
    std::uint32_t at = 0;
    if (!vx::group::member_channel(*group, index, *item, at)) return 0;
    *channel = at;
    return 1;
}

VX_API unsigned int GroupMemberItemTypeCount(CineItem *group, uint32_t type, int includeSubtypes,
                                             uint32_t excluded, int excludeSubtypes) {
    if (group == nullptr) return 0;
    const vx::group::Filter filter{type, includeSubtypes != 0, excluded, excludeSubtypes != 0};
    std::size_t count = 0;
    vx::group::filtered_member(*group, filter, vx::kNoLink, &count);
    return static_cast<unsigned int>(count);
}

VX_API CineItem *GroupMemberItemTypeByIndex(CineItem *group, uint32_t type, int includeSubtypes,
                                            uint32_t excluded, int excludeSubtypes,
                                            unsigned int index) {
    if (group == nullptr) return nullptr;
    const vx::group::Filter filter{type, includeSubtypes != 0, excluded, excludeSubtypes != 0};
    return vx::group::filtered_member(*group, filter, index, nullptr);
}

VX_API int GroupScan(CineItem *group, unsigned int what, GroupScanFunc func, unsigned int scope,
                     void *client) {
    if (group == nullptr || func == nullptr) return 0;
    return vx::guard(0, [&] { return vx::group::scan(*group, what, func, scope, client, false); });
}

VX_API int GroupScanRev(CineItem *group, unsigned int what, GroupScanFunc func, unsigned int scope,
                        void *client) {
    if (group == nullptr || func == nullptr) return 0;
    return vx::guard(0, [&] { return vx::group::scan(*group, what, func, scope, client, true); });
}

VX_API void *GroupEnumCreate(CineItem *group, unsigned int what) {
    if (!usable_group(group)) return nullptr;
    return vx::guard<void *>(nullptr, [&] { return vx::group::make_enum(*group, what); });
}

}  // extern "C"
