// The scene file's chunk of group memberships. Byte layout in docs/formats.md, "The group
// chunk". Kinds need nothing here: they are item tags, which the scene chunk keeps.
#include "groups/group_io.h"

#include "foundation/failure.h"
#include "groups/group.h"
#include "scene/scene.h"
#include "scene/scene_io.h"

namespace vx::group {
namespace {

using cine::io::Fields;
using cine::io::LeaveBlock;
using cine::io::LoadContext;
using cine::io::SaveContext;

constexpr const char *kClientName = "group";
constexpr std::uint32_t kItemMember = 420;
constexpr std::uint32_t kChannelMember = 421;
constexpr BlkBlockId kChunkBlocks[] = {
    {kItemMember, "member"}, {kChannelMember, "channel member"}, {0, nullptr}};

// Group by group in the order of the file's items, each group's members in their order.
void save(const SaveContext &context, BlkWriter &writer) {
    for (CineItem *group : context.items()) {
        if (!is_group(*group)) continue;
        const std::uint32_t at = context.item_index(group);
        for (std::size_t i = 0, n = member_count(*group, false); i < n; ++i) {
            const std::uint32_t member = context.item_index(member_item(*group, i));
            if (member == cine::io::kNone) continue;
            writer.begin(kItemMember);
            cine::io::put_u32(writer, at);
            cine::io::put_u32(writer, member);
            writer.end();
        }
        CineItem *item = nullptr;
        std::uint32_t channel = 0;
        for (std::size_t i = 0; member_channel(*group, i, item, channel); ++i) {
            if (context.item_index(item) == cine::io::kNone) continue;
            writer.begin(kChannelMember);
            cine::io::put_u32(writer, at);
            context.put_channel(writer, *item, channel);
            writer.end();
        }
    }
}

CineItem *group_at(LoadContext &context, Fields &fields) {
    CineItem *group = context.item(fields.u32());
    if (group != nullptr && !is_group(*group))
        cine::io::corrupt("members of an item that is no group");
    return group;
}

// Members are appended as read, which keeps their order. The load is no undo step, so the
// links are made directly.
void load(LoadContext &context, BlkReader &reader) {
    LinkGraph *items = item_graph(context.scene());
    LinkGraph *channels = chan_graph(context.scene());
    if (items == nullptr || channels == nullptr) fail(rc::refused, "the scene has no group graphs");
    for (;;) {
        const std::uint32_t id = reader.find(kChunkBlocks);
        if (id == 0) break;
        LeaveBlock leave{reader};
        Fields fields(reader);
        CineItem *group = group_at(context, fields);
        GraphNode to{};
        LinkGraph *graph = items;
        if (id == kItemMember) {
            CineItem *member = context.item(fields.u32());
            if (member == group && group != nullptr) cine::io::corrupt("a group among its members");
            to = node_of(member);
        } else {
            CineItem *item = nullptr;
            std::uint32_t channel = 0;
            if (!context.get_channel(fields, item, channel)) continue;
            to = channel_node(*item, channel);
            graph = channels;
        }
        // Members of dropped items (or dropped members) were reported with the items.
        if (group == nullptr || to.object == nullptr) continue;
        if (!link_now(*graph, node_of(group), to)) cine::io::corrupt("a member listed twice");
    }
    if (reader.bad()) cine::io::corrupt("a malformed block stream");
}

}  // namespace

void register_io() {
    cine::io::add_client({kClientName, save, load});
}

void unregister_io() noexcept {
    cine::io::remove_client(kClientName);
}

}  // namespace vx::group
