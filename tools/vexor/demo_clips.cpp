#include "demo_clips.h"

#include <initializer_list>
#include <string>

#include <vexor/action.h>
#include <vexor/actionclip.h>
#include <vexor/env.h>
#include <vexor/group.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/undo.h>

#include "demo_types.h"

namespace {

struct ClipKey {
    double time;
    double value;
};

// Keys one channel of the character in a clip's own action.
bool key_in_clip(CineItem *clip, CineItem *item, const char *name,
                 std::initializer_list<ClipKey> keys, unsigned post) {
    const int channel = CineItemLookupChannel(item, name);
    Envelope *env = EnvCreate(nullptr);
    if (env == nullptr || channel < 0) return false;
    for (const ClipKey &k : keys) EnvAddKey(env, k.time, k.value);
    EnvSetPostBehavior(env, post);
    if (CineActionSetEnvelope(ActionClipAction(clip), item, static_cast<unsigned>(channel), env) ==
        0) {
        EnvDestroyNoUndo(env);
        return false;
    }
    return true;
}

CineItem *named(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr) CineItemSetName(item, name);
    return item;
}

// Makes the clip active, with undo suspended: switching clips for a read is no user edit.
void switch_to(const DemoClips &c, double time) {
    UndoSysSuspend();
    ActionClipSetActive(time < kJumpAt ? c.walk : c.jump, c.actor, 1);
    UndoSysResume();
}

}  // namespace

bool start_group_modules() {
    if (GroupStartup() == 0) return false;
    if (ActionClipStartup() == 0) {
        GroupShutdown();
        return false;
    }
    return true;
}

void stop_group_modules() {
    ActionClipShutdown();
    GroupShutdown();
}

bool build_demo_clips(Cinema *scene, DemoClips &c) {
    c.actor = named(scene, GROUP_TYPE_CODE, "Hopper actor");
    c.hopper = named(scene, CineLookupType(kDemoBall), "Hopper");
    c.walk = named(scene, ACTIONCLIP_TYPE_CODE, "walk");
    c.jump = named(scene, ACTIONCLIP_TYPE_CODE, "jump");
    if (c.actor == nullptr || c.hopper == nullptr || c.walk == nullptr || c.jump == nullptr) {
        return false;
    }
    bool ok = GroupSetType(c.actor, GROUP_KIND_ACTOR) != 0;
    for (CineItem *member : {c.hopper, c.walk, c.jump}) ok = ok && GroupAddItem(c.actor, member);
    for (CineItem *clip : {c.walk, c.jump}) ok = ok && ActionClipAddItem(clip, c.actor, c.hopper);
    // Walking: steady steps forward with a small bob; jumping: a hop up and a leap forward.
    // The values are exact in the 32-bit floats that scene files keep keys in.
    return ok &&
           key_in_clip(c.walk, c.hopper, "pos.X", {{0.0, -1.5}, {1.0, -0.5}},
                       ENV_BEHAVIOR_LINEAR) &&
           key_in_clip(c.walk, c.hopper, "pos.Y", {{0.0, 0.25}, {0.25, 0.5}, {0.5, 0.25}},
                       ENV_BEHAVIOR_REPEAT) &&
           key_in_clip(c.jump, c.hopper, "pos.X", {{1.0, -0.5}, {2.0, 1.0}},
                       ENV_BEHAVIOR_CONSTANT) &&
           key_in_clip(c.jump, c.hopper, "pos.Y", {{1.0, 0.25}, {1.5, 2.25}, {2.0, 0.25}},
                       ENV_BEHAVIOR_CONSTANT) &&
           ActionClipSetActive(c.walk, c.actor, 1) != 0;
}

std::vector<PlottedCurve> clip_curves(CineEval *eval, const DemoClips &c) {
    std::vector<PlottedCurve> curves;
    for (const char *name : {"pos.X", "pos.Y"}) {
        const unsigned channel = static_cast<unsigned>(CineItemLookupChannel(c.hopper, name));
        curves.push_back({std::string(CineItemUniqueName(c.hopper)) + " " + name, nullptr,
                          [eval, c, channel](double t) {
                              switch_to(c, t);
                              CineEvalSetTime(eval, t);
                              return CineEvalChannel(eval, c.hopper, channel);
                          }});
    }
    return curves;
}

void print_groups_and_clips(std::FILE *out, Cinema *scene) {
    static const char *const kKinds[] = {"", ", assembly", ", actor", ", render"};
    const unsigned items = CinemaItemCount(scene);
    for (unsigned i = 0; i < items; ++i) {
        CineItem *group = CinemaItemByIndex(scene, i);
        if (CineItemTestType(group, GROUP_TYPE_CODE) == 0) continue;
        std::fprintf(out, "  group %s%s:", CineItemUniqueName(group), kKinds[GroupType(group)]);
        for (unsigned m = 0; m < GroupMemberCount(group, 0); ++m) {
            std::fprintf(out, " %s",
                         CineItemUniqueName(GroupMemberItemTypeByIndex(group, CINE_TYPE_NONE, 0,
                                                                       CINE_TYPE_NONE, 0, m)));
        }
        CineItem *item = nullptr;
        unsigned channel = 0;
        for (unsigned m = 0; GroupMemberChannelByIndex(group, m, &item, &channel) != 0; ++m) {
            std::fprintf(out, " %s.%s", CineItemUniqueName(item), CineChannelName(item, channel));
        }
        std::fprintf(out, "\n");
    }
    for (unsigned i = 0; i < items; ++i) {
        CineItem *clip = CinemaItemByIndex(scene, i);
        if (CineItemTestType(clip, ACTIONCLIP_TYPE_CODE) == 0) continue;
        CineAction *action = ActionClipAction(clip);
        std::fprintf(
            out, "  clip %s: %s, %s, %s, action %s%s%s\n", CineItemUniqueName(clip),
            ActionClipType(clip) == ACTIONCLIP_KIND_POSE ? "pose" : "animation",
            ActionClipIsEnabled(clip) != 0 ? "enabled" : "disabled",
            ActionClipIsActive(clip) != 0 ? "active" : "inactive", action != nullptr ? "\"" : "",
            action != nullptr ? CineActionName(action) : "missing", action != nullptr ? "\"" : "");
    }
}
