// Shared set-up for the group and transform tests: undo and the module under test started for
// each test, a scene, and text forms of memberships and chains for exact comparisons.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/eval.h>
#include <vexor/group.h>
#include <vexor/matrix4.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

#include "scene/cinema_module.h"
#include "support/log_lines.h"

namespace vx::test {

using Mat = std::array<double, 16>;

// An item of the type with a name (none when null); made with undo as it stands.
inline CineItem *make_item(Cinema *scene, std::uint32_t type, const char *name = nullptr) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}
inline CineItem *make_group(Cinema *scene, const char *name) {
    return make_item(scene, GROUP_TYPE_CODE, name);
}

// "G: a b | c.1 kind 0; H: ..." for every group of the scene: item members, then channel
// members, then the kind; items by unique name, or by identity (names depend on the order in
// which they were first asked for).
inline std::string memberships(Cinema *scene, bool idents = false) {
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

// The members of a placed item's chain: each by identity (or type code), standard kind and the
// number of members linked before it.
inline std::string chain_text(CineItem *item, bool idents) {
    std::string text;
    CineItem *members[32];
    const unsigned n = XfrmGetTransformArray(item, members, 32);
    for (unsigned i = 0; i < n && i < 32; ++i) {
        const char *tag = CineItemGetTag(members[i], XFRM_STD_TAG);
        CineItem *pre[4];
        text += " " +
                (idents ? std::string(CineItemIdent(members[i]))
                        : std::to_string(CineItemType(members[i]))) +
                (tag != nullptr ? tag : "-") + "<" +
                std::to_string(XfrmGetPreTransformArray(members[i], pre, 4));
    }
    return text;
}

// The group module on tstThing, a root type with channels "a", "b", and tstLamp and tstBox
// that descend from it.
class GroupTest : public ::testing::Test {
  protected:
    void SetUp() override {
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
        quiet_log();
    }
    void TearDown() override {
        release_log();
        UndoSysClear();
        vx::cine::destroy_scenes_before_stop();
        GroupShutdown();
        UndoSysShutdown();
    }

    std::uint32_t thing = 0, lamp = 0, box = 0;
    Cinema *scene = nullptr;

  private:
    static std::uint32_t define(const char *name, std::int32_t super) {
        const char *const none = nullptr;
        CinePackageDefine(name);
        if (super == 0) {
            EXPECT_EQ(
                CinePackageAddChannel(name, CINE_CH_NAME, "a", VX_STORE_FLOAT, none, CINE_CH_NAME,
                                      "b", VX_STORE_FLOAT, none, CINE_CH_NAME, none),
                1);
        }
        return CineDefineType(0, super, name);
    }
};

// The scene module with its transform types, with helpers that make placed items, read their
// chains and set channels in "setup".
class XfrmTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        CinemaStartup();
        capture_log(lines);
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        UndoSysClear();
    }
    void TearDown() override {
        release_log();
        UndoSysClear();
        CinemaDestroy(scene);
        CinemaShutdown();
        UndoSysShutdown();
    }

    CineItem *locator(const char *name = nullptr) {
        return make_item(scene, XFRM_TYPE_LOCATOR, name);
    }
    std::vector<CineItem *> chain(CineItem *item) {
        std::vector<CineItem *> out(XfrmGetTransformArray(item, nullptr, 0));
        XfrmGetTransformArray(item, out.data(), static_cast<unsigned>(out.size()));
        return out;
    }
    // The standard kind names of the chain ("-" for other members).
    std::string kinds(CineItem *item) {
        std::string out;
        for (CineItem *member : chain(item)) {
            const char *tag = CineItemGetTag(member, XFRM_STD_TAG);
            out += std::string(out.empty() ? "" : " ") + (tag != nullptr ? tag : "-");
        }
        return out;
    }
    bool logged(const std::string &text) const {
        for (const std::string &line : lines) {
            if (line.find(text) != std::string::npos) return true;
        }
        return false;
    }
    CineAction *setup() { return CineActionGetDefault(scene, 0); }
    void set(CineItem *item, unsigned channel, double value) {
        ASSERT_EQ(CineActionSetConstant(setup(), item, channel, value), 1);
    }
    void set3(CineItem *item, std::array<double, 3> v) {
        for (unsigned i = 0; i < 3; ++i) set(item, 2 + i, v[i]);
    }

    Cinema *scene = nullptr;
    std::vector<std::string> lines;
};

inline void expect_near(const Mat &a, const Mat &b, double tolerance = 1e-9) {
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
}

}  // namespace vx::test
