#include "clip_fixture.h"

#include <vexor/eval.h>
#include <vexor/package.h>
#include <vexor/undo.h>

#include "scene/cinema_module.h"

namespace vx::test {
void ClipTest::SetUp() {
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

void ClipTest::TearDown() {
    release_log();
    UndoSysClear();
    vx::cine::destroy_scenes_before_stop();
    ActionClipShutdown();
    GroupShutdown();
    UndoSysShutdown();
}

CineItem *make_named(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

std::string clips(Cinema *scene) {
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

double evaluated(Cinema *scene, CineItem *item, unsigned channel, double time) {
    CineEval *eval = CineEvalCreate(scene);
    CineEvalSetAction(eval, CineActionGetDefault(scene, CINE_ACTION_EDIT));
    CineEvalSetTime(eval, time);
    const double value = CineEvalChannel(eval, item, channel);
    CineEvalDestroy(eval);
    return value;
}

}  // namespace vx::test
