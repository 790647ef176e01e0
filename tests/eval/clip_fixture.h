// Shared set-up for the action clip tests: groups and clips started on a small item type, a
// scene, and a text form of every clip for exact comparisons.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/actionclip.h>
#include <vexor/eval.h>
#include <vexor/group.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/undo.h>

#include "scene/cinema_module.h"
#include "support/log_lines.h"

namespace vx::test {

class ClipTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        ASSERT_EQ(GroupStartup(), 1);
        ASSERT_EQ(ActionClipStartup(), 1);
        CinemaSetIndexStyle(0);
        const char *const none = nullptr;
        CinePackageDefine("tstBody");
        ASSERT_EQ(CinePackageAddChannel("tstBody", CINE_CH_NAME, "x", VX_STORE_FLOAT, none,
                                        CINE_CH_NAME, "y", VX_STORE_FLOAT, none, CINE_CH_NAME, "tm",
                                        VX_STORE_MATRIX, none, CINE_CH_NAME, none),
                  1);
        body = CineDefineType(0, 0, "tstBody");
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        UndoSysClear();
        capture_log(lines);
    }
    void TearDown() override {
        release_log();
        UndoSysClear();
        vx::cine::destroy_scenes_before_stop();
        ActionClipShutdown();
        GroupShutdown();
        UndoSysShutdown();
    }

    // tstBody: float "x" (default 0), float "y" (default 0), matrix "tm".
    std::uint32_t body = 0;
    Cinema *scene = nullptr;
    std::vector<std::string> lines;  // log lines
};

inline CineItem *make_named(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

// Per clip: name, kind, enabled, active, and the claimed channels "item.channel:state".
inline std::string clips(Cinema *scene) {
    std::string text;
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *clip = CinemaItemByIndex(scene, i);
        if (CineItemTestType(clip, ACTIONCLIP_TYPE_CODE) == 0) continue;
        text += std::string(CineItemUniqueName(clip)) + " kind " +
                std::to_string(static_cast<int>(ActionClipType(clip))) + " on " +
                std::to_string(ActionClipIsEnabled(clip)) + " active " +
                std::to_string(ActionClipIsActive(clip)) + ":";
        CineAction *action = ActionClipAction(clip);
        for (unsigned j = 0; action != nullptr && j < CinemaItemCount(scene); ++j) {
            CineItem *item = CinemaItemByIndex(scene, j);
            for (unsigned c = 0; c < CineChannelCount(item); ++c) {
                if (const int state = CineActionState(action, item, c)) {
                    text += std::string(" ") + CineItemUniqueName(item) + "." +
                            CineChannelName(item, c) + ":" + std::to_string(state);
                }
            }
        }
        text += "; ";
    }
    return text;
}

// The value an evaluator on "edit" reads at a time.
inline double evaluated(Cinema *scene, CineItem *item, unsigned channel, double time = 0.0) {
    CineEval *eval = CineEvalCreate(scene);
    CineEvalSetAction(eval, CineActionGetDefault(scene, CINE_ACTION_EDIT));
    CineEvalSetTime(eval, time);
    const double value = CineEvalChannel(eval, item, channel);
    CineEvalDestroy(eval);
    return value;
}

}  // namespace vx::test
