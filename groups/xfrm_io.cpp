// The scene file's chunk of transform links. Byte layout in docs/formats.md, "The transform
// chunk". The transforms' channels travel in the action chunk like any others; this chunk
// keeps the links of the graphs "xfrmCore" (chains) and "xfrmLocal" (partners and
// pre-transforms), which the scene chunk does not know.
#include <string>

#include "foundation/failure.h"
#include "foundation/link_graph.h"
#include "groups/xfrm.h"
#include "scene/scene.h"
#include "scene/scene_io.h"

namespace vx::xfrm {
namespace {

using cine::io::Fields;
using cine::io::LeaveBlock;
using cine::io::LoadContext;
using cine::io::SaveContext;

constexpr const char *kClientName = "xfrm";

constexpr std::uint32_t kChain = 400;
constexpr std::uint32_t kLocal = 401;

constexpr BlkBlockId kChunkBlocks[] = {{kChain, "chain"}, {kLocal, "local"}, {0, nullptr}};

void put_link(BlkWriter &writer, std::uint32_t id, std::uint32_t from, std::uint32_t to) {
    writer.begin(id);
    cine::io::put_u32(writer, from);
    cine::io::put_u32(writer, to);
    writer.end();
}

void save(const SaveContext &context, BlkWriter &writer) {
    const LinkGraph *local = local_graph(context.scene());
    for (const CineItem *item : context.items()) {
        // Chains member by member, first to last, so that appending on load keeps the order.
        for (const CineItem *member : chain_of(*item)) {
            const std::uint32_t from = context.item_index(member);
            if (from != cine::io::kNone) put_link(writer, kChain, from, context.item_index(item));
        }
    }
    if (local == nullptr) return;
    for (const CineItem *item : context.items()) {
        const GraphNode node = node_of(const_cast<CineItem *>(item));
        for (std::size_t i = 0, n = rev_count(*local, node); i < n; ++i) {
            const auto *from = static_cast<const CineItem *>(rev_by_index(*local, node, i).object);
            const std::uint32_t index = context.item_index(from);
            if (index != cine::io::kNone) put_link(writer, kLocal, index, context.item_index(item));
        }
    }
}

void read_link(LoadContext &context, BlkReader &reader, std::uint32_t id) {
    Fields fields(reader);
    CineItem *from = context.item(fields.u32());
    CineItem *to = context.item(fields.u32());
    if (from == nullptr || to == nullptr) return;  // dropped with its item
    if (!is_transform(from)) cine::io::corrupt("a transform link from an item that is not one");
    if (id == kChain) {
        if (!is_placed(to)) cine::io::corrupt("a chain of an item that is not placed");
        if (root_of(*from) != nullptr) cine::io::corrupt("a transform in two chains");
        link_chain_now(*from, *to);
    } else if (from == to || !link_local_now(*from, *to)) {
        cine::io::corrupt("a repeated transform link");
    }
}

void load(LoadContext &context, BlkReader &reader) {
    for (;;) {
        const std::uint32_t id = reader.find(kChunkBlocks);
        if (id == 0) break;
        LeaveBlock leave{reader};
        read_link(context, reader, id);
    }
}

}  // namespace

void register_io() {
    cine::io::add_client({kClientName, save, load});
}

void unregister_io() noexcept {
    cine::io::remove_client(kClientName);
}

}  // namespace vx::xfrm
