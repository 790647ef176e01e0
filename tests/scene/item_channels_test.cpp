// Channel numbering over the package chain, vector channel ranges, matching channels across
// items, and add-on packages with the channel purge that their removal brings.
#include <vexor/sys/item.h>
#include <vexor/undo.h>

#include "scene/scene.h"
#include "scene/scene_client.h"
#include "scene_fixture.h"
#include "support/alloc_injection.h"

namespace vx::test {
namespace {

TEST_F(SceneTest, ChannelsAreNumberedAcrossTheTypeChain) {
    CineItem *item = CineItemCreate(scene, light);
    ASSERT_EQ(CineChannelCount(item), 7u);  // weight, visible, pos (3); intensity, shadows
    EXPECT_EQ(CineItemTestType(item, object), 1);
    EXPECT_EQ(CineItemTestType(item, mesh), 0);
    EXPECT_EQ(CineItemLookupChannel(item, "weight"), 0);
    EXPECT_EQ(CineItemLookupChannel(item, "shadows"), 6);
    EXPECT_EQ(CineItemLookupChannel(item, CineChannelName(item, 3)), 3);
    EXPECT_EQ(CineItemLookupChannel(item, "pos"), -1) << "a vector is only its components";
    EXPECT_EQ(CineChannelName(item, 7), nullptr);
    EXPECT_EQ(CineItemPackageCount(item), 2u);
    EXPECT_EQ(CineItemPackageByIndex(item, 0), CinePackageFind("tstObject"));
    EXPECT_EQ(CineItemPackageStartIndex(item, CinePackageFind("tstLight")), 5u);
    EXPECT_EQ(CineItemCreate(scene, 0x7777), nullptr) << "no such type";
    CinePackage *pkg = CinePackageFind("tstObject");
    EXPECT_EQ(CineItemPackageChannelHints(pkg, "visible"), nullptr);
    ASSERT_EQ(CinePackageAddChannel("tstMore", CINE_CH_NAME, "flag", VX_STORE_INT,
                                    static_cast<const char *>(nullptr), CINE_CH_HINTS,
                                    static_cast<const TextHint *>(nullptr), 1u, CINE_CH_NAME,
                                    static_cast<const char *>(nullptr)),
              1);
    EXPECT_EQ(CineItemPackageChannelHints(more, "flag"), TextHintBoolean());
}

TEST_F(SceneTest, VectorChannelsGiveTheirModeComponentAndRange) {
    CineItem *item = CineItemCreate(scene, light);
    unsigned component = 99;
    EXPECT_EQ(CineChannelVectorMode(item, 3, &component), CINE_VECTOR_XYZ);
    EXPECT_EQ(component, 1u);
    EXPECT_EQ(CineChannelVectorMode(item, 5, &component), CINE_VECTOR_SCALAR);
    EXPECT_EQ(component, 0u);

    unsigned count = 0;
    EXPECT_EQ(Item_ChanRange(item, 4, 0, &count), 2u);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(Item_ChanRange(item, 4, 1, &count), 4u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Item_ChanRange(item, 5, 0, &count), 5u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Item_ChanRange(item, 5, 2, &count), 0u);
    EXPECT_EQ(count, 7u);

    EXPECT_EQ(Item_ChanOffset(item, CineItemChannelDesc(item, 6)), 1u);
    EXPECT_EQ(Item_ChanOffset(item, CineItemChannelDesc(item, 4)), 4u);
    CineItem *other = CineItemCreate(scene, mesh);
    EXPECT_EQ(Item_ChanOffset(item, CineItemChannelDesc(other, 6)), 0xFFFFFFFFu);
}

TEST_F(SceneTest, ChannelsMatchAcrossItemsByPackageThenName) {
    CineItem *a = CineItemCreate(scene, light);
    CineItem *b = CineItemCreate(scene, light);
    CineItem *m = CineItemCreate(scene, mesh);
    EXPECT_EQ(CineItemCommonChannels(a, b), 7u);
    EXPECT_EQ(CineItemCommonChannels(a, m), 5u);
    EXPECT_EQ(CineItemMatchChannelIndex(a, 6, b), 6);
    EXPECT_EQ(CineItemMatchChannelIndex(a, 2, m), 2);
    EXPECT_EQ(CineItemMatchChannelIndex(a, 5, m), -1);
    // An add-on package sits at different places on different items.
    ASSERT_EQ(CineItemAddPackage(a, extra), 1);
    ASSERT_EQ(CineItemAddPackage(m, more), 1);
    ASSERT_EQ(CineItemAddPackage(m, extra), 1);
    EXPECT_EQ(CineItemMatchChannelIndex(a, 8, m), 9);
    EXPECT_EQ(CineItemMatchChannelIndex(m, 9, a), 8);
    EXPECT_EQ(cine::match_channel(*m, 7, *a), -1);
}

TEST_F(SceneTest, ChannelLookupsAndEventsAllocateNothing) {
    CineItem *a = CineItemCreate(scene, light);
    CineItem *b = CineItemCreate(scene, mesh);
    ASSERT_EQ(CineItemAddPackage(b, extra), 1);
    own.events.reserve(16);
    db.events.reserve(16);
    const std::uint64_t before = thread_allocations();
    const cine::ChannelDesc *desc = cine::item_channel(*b, 8);
    const std::int64_t found = cine::lookup_channel(*b, "e0");
    const std::int64_t matched = cine::match_channel(*a, 2, *b);
    cine::send_event(*scene, CINE_EVENT_ITEM_NAME, a);
    cine::send_event(*scene, 0x4001, nullptr);
    EXPECT_EQ(thread_allocations(), before);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(desc->name, "e1");
    EXPECT_EQ(found, 7);
    EXPECT_EQ(matched, 2);
}

using Ranges = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
Ranges g_purges;
const cine::SceneClient *g_previous = nullptr;

void record_purge(CineItem &item, std::uint32_t first, std::uint32_t count) {
    g_purges.emplace_back(first, count);
    if (g_previous != nullptr && g_previous->purge_channels != nullptr) {
        g_previous->purge_channels(item, first, count);
    }
}

TEST_F(SceneTest, AddOnPackagesComeAndGoWithTheirChannels) {
    CineItem *item = CineItemCreate(scene, light);
    EXPECT_EQ(CineItemAddPackage(item, CinePackageFind("tstMesh")), 0) << "a type";
    EXPECT_EQ(CineItemRemPackage(item, extra), 0) << "not on the item";
    EXPECT_EQ(CineItemRemPackage(item, CinePackageFind("tstLight")), 0) << "the type chain";
    EXPECT_EQ(CineChannelCount(item), 7u);

    own.events.clear();
    std::vector<CinePackageEvent> notes;
    const auto keep = [](void *client, void *, std::uint32_t code, void *data) {
        if (code == CINE_EVENT_PACKAGE || code == CINE_EVENT_CHANNELS_MOVED) {
            static_cast<std::vector<CinePackageEvent> *>(client)->push_back(
                *static_cast<CinePackageEvent *>(data));
        }
    };
    const std::uint64_t keeping = PortAttach(CinemaPort(scene), keep, &notes, nullptr);
    ASSERT_EQ(CineItemAddPackage(item, extra), 1);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].item, item);
    EXPECT_EQ(notes[0].package, extra);
    EXPECT_EQ(notes[0].first, 7u);
    EXPECT_EQ(notes[0].count, 2u);
    EXPECT_EQ(notes[0].itemChannels, 9u);
    EXPECT_EQ(notes[0].added, 1);
    ASSERT_EQ(CineItemAddPackage(item, extra), 1);
    EXPECT_EQ(own.count(CINE_EVENT_PACKAGE), 1u) << "already there: no edit";
    ASSERT_EQ(CineItemAddPackage(item, more), 1);
    EXPECT_EQ(CineChannelCount(item), 10u);
    EXPECT_EQ(CineItemLookupChannel(item, "e1"), 8);
    EXPECT_EQ(CineItemLookupChannel(item, "m0"), 9);
    EXPECT_EQ(CineItemTestPackage(item, extra), 1);

    // A defined package gets a per-item object that knows its item and package.
    void *inst = CineItemPackageObject(item, extra);
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(inst, CINE_PACKAGE_INSTANCE_GUID, &table), VX_OK);
    const auto *instance = static_cast<const CinePackageInstanceMethods *>(table);
    EXPECT_EQ(instance->Item(inst), item);
    EXPECT_EQ(instance->Package(inst), extra);
    XObjectRelease(inst);

    g_purges.clear();
    g_previous = cine::scene_client();
    cine::SceneClient spy = g_previous != nullptr ? *g_previous : cine::SceneClient{};
    spy.purge_channels = record_purge;
    cine::set_scene_client(&spy);
    own.events.clear();
    const bool removed = CineItemRemPackage(item, extra) == 1;
    cine::set_scene_client(g_previous);
    ASSERT_TRUE(removed);
    EXPECT_EQ(g_purges, (Ranges{{7, 2}}));
    EXPECT_EQ(CineChannelCount(item), 8u);
    EXPECT_EQ(CineItemLookupChannel(item, "m0"), 7) << "later channels move down";
    EXPECT_EQ(own.count(CINE_EVENT_PACKAGE), 1u);
    EXPECT_EQ(own.count(CINE_EVENT_CHANNELS_MOVED), 1u);
    ASSERT_EQ(notes.size(), 4u);
    EXPECT_EQ(notes[2].added, 0);
    EXPECT_EQ(notes[2].first, 7u);
    EXPECT_EQ(notes[2].itemChannels, 8u);
    PortDetach(CinemaPort(scene), keeping);

    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CineItemLookupChannel(item, "e1"), 8);
    EXPECT_EQ(CineItemLookupChannel(item, "m0"), 9);
    EXPECT_EQ(CineItemPackageStartIndex(item, extra), 7u);
}

}  // namespace
}  // namespace vx::test
