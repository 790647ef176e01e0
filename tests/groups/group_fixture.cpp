#include "group_fixture.h"

#include <vexor/package.h>
#include <vexor/undo.h>

#include "foundation/log.h"
#include "scene/cinema_module.h"

namespace vx::test {
namespace {

void capture(void *client, int, const char *, const char *text) {
    static_cast<std::vector<std::string> *>(client)->push_back(text);
}

std::uint32_t define(const char *name, std::int32_t super) {
    const char *const none = nullptr;
    CinePackageDefine(name);
    if (super == 0) {
        EXPECT_EQ(CinePackageAddChannel(name, CINE_CH_NAME, "a", VX_STORE_FLOAT, none, CINE_CH_NAME,
                                        "b", VX_STORE_FLOAT, none, CINE_CH_NAME, none),
                  1);
    }
    return CineDefineType(0, super, name);
}

}  // namespace

void GroupTest::SetUp() {
    UndoSysStartup();
    UndoSysClear();
    ASSERT_EQ(GroupStartup(), 1);
    CinemaSetIndexStyle(0);
    thing = define("tstThing", 0);
    lamp = define("tstLamp", static_cast<std::int32_t>(thing));
    box = define("tstBox", static_cast<std::int32_t>(thing));
    ASSERT_NE(box, CINE_TYPE_NONE);
    scene = CinemaCreate(0);
    ASSERT_NE(scene, nullptr);
    UndoSysClear();
    vx::log::set_sink(capture, &lines);
}

void GroupTest::TearDown() {
    vx::log::set_sink(nullptr, nullptr);
    UndoSysClear();
    vx::cine::destroy_scenes_before_stop();
    GroupShutdown();
    UndoSysShutdown();
}

CineItem *make_item(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

CineItem *make_group(Cinema *scene, const char *name) {
    return make_item(scene, GROUP_TYPE_CODE, name);
}

std::string memberships(Cinema *scene, bool idents) {
    auto name = [idents](CineItem *item) {
        return std::string(idents ? CineItemIdent(item) : CineItemUniqueName(item));
    };
    std::string text;
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *group = CinemaItemByIndex(scene, i);
        if (CineItemType(group) != GROUP_TYPE_CODE) continue;
        text += name(group) + ":";
        for (unsigned m = 0; m < GroupMemberCount(group, 0); ++m) {
            text += " " + name(GroupMemberItemTypeByIndex(group, CINE_TYPE_NONE, 0, CINE_TYPE_NONE,
                                                          0, m));
        }
        text += " |";
        CineItem *item = nullptr;
        unsigned channel = 0;
        for (unsigned m = 0; GroupMemberChannelByIndex(group, m, &item, &channel) != 0; ++m) {
            text += " " + name(item) + "." + std::to_string(channel);
        }
        text += " kind " + std::to_string(GroupType(group)) + "; ";
    }
    return text;
}

}  // namespace vx::test
