// `vexor demo`: a small animated scene, through the public C interface only.
//
// A package defines a ball type with a position vector and a squash channel. Two balls and a
// "linearBlend" item (the modifier this library ships) go into a scene. The "scene" action
// keys the first ball's height as a bounce and slides the second ball; the "edit" action,
// which is looked through first, overrides a constant of the second ball; the blend item's
// inputs are keyed and weighted, and its modifier drives its output from them and the time.
// One key is set, undone and redone. Then one shared evaluator reads the channels frame by
// frame for a table and samples them for an SVG picture with their keys. Last, the scene is
// saved to a scene file, loaded back as a second scene, and both are read side by side.
// A third ball, "Hopper", is animated only by two action clips, "walk" and "jump", kept in a
// group; the clips are switched over the frame range, so its channels walk, then jump.
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/eval.h>
#include <vexor/failure.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/scene_io.h>
#include <vexor/undo.h>
#include <vexor/version.h>

#include "curve_plot.h"
#include "demo_clips.h"
#include "demo_types.h"
#include "xfrm_demo.h"

namespace {

constexpr double kFps = 24.0;

struct Key {
    double time;
    double value;
};

CineItem *make_item(Cinema *scene, const char *type, const char *name) {
    CineItem *item = CineItemCreate(scene, CineLookupType(type));
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

unsigned channel(CineItem *item, const char *name) {
    const int index = CineItemLookupChannel(item, name);
    return index < 0 ? 0xFFFFFFFFu : static_cast<unsigned>(index);
}

// Keys a channel in an action with an envelope of its own, slopes automatic.
bool key_channel(CineAction *action, CineItem *item, const char *name,
                 std::initializer_list<Key> keys, unsigned post) {
    Envelope *env = EnvCreate(nullptr);
    if (env == nullptr) return false;
    for (const Key &k : keys) EnvAddKey(env, k.time, k.value);
    EnvSetPostBehavior(env, post);
    if (CineActionSetEnvelope(action, item, channel(item, name), env) == 0) {
        EnvDestroyNoUndo(env);
        return false;
    }
    return true;
}

// Gives the key at `time` manual slopes: `in` arriving and `out` leaving, broken when they
// differ (a bounce arrives falling and leaves rising).
void shape_key(Envelope *env, double time, double in, double out) {
    if (env == nullptr) return;
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (EnvKeyTime(k) < time - 1e-6 || EnvKeyTime(k) > time + 1e-6) continue;
        EnvKeySetSlopeType(env, k, 0, ENV_SLOPE_MANUAL);
        if (in != out) EnvKeyBreak(env, k, ENV_BREAK_SLOPE);
        EnvKeySetSlopeValue(env, k, 0, in);
        EnvKeySetSlopeValue(env, k, 1, out);
    }
}

struct Scene {
    Cinema *cinema = nullptr;
    CineItem *bounce = nullptr;
    CineItem *slide = nullptr;
    CineItem *blend = nullptr;
    XfrmDemo xfrm;
    DemoClips clips;
};

bool build(Scene &s) {
    if (!define_demo_types()) return false;
    s.cinema = CinemaCreate(0);
    if (s.cinema == nullptr) return false;
    s.bounce = make_item(s.cinema, kDemoBall, "Ball");
    s.slide = make_item(s.cinema, kDemoBall, "Ball");  // named "Ball (2)" by the unique-name rule
    s.blend = make_item(s.cinema, "linearBlend", "Follow");
    if (s.bounce == nullptr || s.slide == nullptr || s.blend == nullptr) return false;

    CineAction *scene = CineActionGetDefault(s.cinema, 1);
    CineAction *edit = CineActionGetDefault(s.cinema, 9);
    bool ok =
        key_channel(scene, s.bounce, "pos.Y", {{0.0, 2.0}, {0.5, 0.0}, {1.0, 2.0}},
                    ENV_BEHAVIOR_REPEAT) &&
        key_channel(scene, s.bounce, "squash", {{0.4, 1.0}, {0.5, 0.6}, {0.6, 1.0}},
                    ENV_BEHAVIOR_CONSTANT) &&
        key_channel(scene, s.slide, "pos.X", {{0.0, -1.0}, {2.0, 1.5}}, ENV_BEHAVIOR_LINEAR) &&
        key_channel(scene, s.blend, "inputA", {{0.0, 0.0}, {1.0, 1.0}, {2.0, 0.0}},
                    ENV_BEHAVIOR_CONSTANT);
    if (ok) {
        const unsigned y = channel(s.bounce, "pos.Y");
        Envelope *bounce = CineActionEnv(scene, s.bounce, y);
        shape_key(bounce, 0.0, 0.0, 0.0);  // the tops are flat
        shape_key(bounce, 0.5, -8.0, 8.0);
        shape_key(bounce, 1.0, 0.0, 0.0);
    }
    // The scene action places the sliding ball at height 1; the edit action, seen first,
    // lifts it to 1.25 without touching the scene action's value.
    ok = ok && CineActionSetConstant(scene, s.slide, channel(s.slide, "pos.Y"), 1.0) != 0 &&
         CineActionSetConstant(edit, s.slide, channel(s.slide, "pos.Y"), 1.25) != 0 &&
         CineActionSetConstant(scene, s.blend, channel(s.blend, "inputB"), 0.5) != 0 &&
         CineActionSetConstant(scene, s.blend, channel(s.blend, "weightA"), 0.8) != 0 &&
         CineActionSetConstant(scene, s.blend, channel(s.blend, "timeWeight"), -0.25) != 0;
    return ok && build_demo_clips(s.cinema, s.clips) && build_xfrm_demo(s.cinema, s.xfrm);
}

// One key set on the bounce through the action, undone and redone through the undo system.
void show_undo(Scene &s, CineEval *eval) {
    CineAction *scene = CineActionGetDefault(s.cinema, 1);
    const unsigned y = channel(s.bounce, "pos.Y");
    const double t = 0.25;
    auto height = [&] {
        CineEvalSetTime(eval, t);
        return CineEvalChannel(eval, s.bounce, y);
    };
    std::printf("Undo at work on %s pos.Y at %g s:\n", CineItemUniqueName(s.bounce), t);
    std::printf("  value:             %8.4f\n", height());
    CineActionSetValue(scene, s.bounce, y, 1.8, t);
    std::printf("  keyed to 1.8:      %8.4f   (undo steps %u)\n", height(), UndoSysUndoCount());
    UndoSysUndo();
    std::printf("  undone:            %8.4f   (redo steps %u)\n", height(), UndoSysRedoCount());
    UndoSysRedo();
    std::printf("  redone:            %8.4f\n", height());
    UndoSysUndo();
    std::printf("  undone again for the table and the picture: %.4f\n\n", height());
}

// The groups and clips of the scene, and the clip character's channels for the table and the
// picture.
void show_clips(Scene &s, CineEval *eval, std::vector<PlottedCurve> &curves) {
    std::printf("Groups and action clips (%s switches from \"walk\" to \"jump\" at %g s):\n",
                CineItemUniqueName(s.clips.hopper), kJumpAt);
    print_groups_and_clips(stdout, s.cinema);
    std::printf("\n");
    for (PlottedCurve &curve : clip_curves(eval, s.clips)) curves.push_back(std::move(curve));
}

// A channel read through the evaluator, drawn with the keys of the envelope that governs it.
PlottedCurve channel_curve(CineEval *eval, CineItem *item, const char *name) {
    const unsigned index = channel(item, name);
    return {std::string(CineItemUniqueName(item)) + " " + name,
            CineEvalRawChannelEnv(eval, item, index), [eval, item, index](double t) {
                CineEvalSetTime(eval, t);
                return CineEvalChannel(eval, item, index);
            }};
}

// Saves the scene, loads the file as a new scene and compares every channel of every item in
// both, through an evaluator on each, at a few times.
bool show_round_trip(Scene &s, const char *scene_path) {
    if (CinemaSave(s.cinema, scene_path) == 0) {
        std::fprintf(stderr, "vexor demo: saving %s failed: %s\n", scene_path,
                     VxLastFailure().text);
        return false;
    }
    Cinema *copy = CinemaLoadCustom(scene_path, CINEMA_LOAD_STRICT);
    if (copy == nullptr) {
        std::fprintf(stderr, "vexor demo: loading %s failed: %s\n", scene_path,
                     VxLastFailure().text);
        return false;
    }
    CineEval *a = CineEvalCreate(s.cinema);
    CineEval *b = CineEvalCreate(copy);
    CineEvalSetAction(a, CineActionGetDefault(s.cinema, 9));
    CineEvalSetAction(b, CineActionGetDefault(copy, 9));
    unsigned compared = 0, differing = 0;
    for (double t : {0.0, 0.3, 1.1, 1.75}) {
        CineEvalSetTime(a, t);
        CineEvalSetTime(b, t);
        for (unsigned i = 0; i < CinemaItemCount(s.cinema); ++i) {
            CineItem *item = CinemaItemByIndex(s.cinema, i);
            CineItem *twin = CineLookupItem(copy, CineItemUniqueName(item));
            for (unsigned c = 0; c < CineChannelCount(item); ++c) {
                ++compared;
                if (twin == nullptr || CineEvalChannel(a, item, c) != CineEvalChannel(b, twin, c))
                    ++differing;
            }
        }
    }
    CineEvalDestroy(a);
    CineEvalDestroy(b);
    std::printf(
        "\nScene saved to %s and loaded back as a second scene of %u items: %u channel "
        "reads compared, %u differ\n",
        scene_path, CinemaItemCount(copy), compared, differing);
    CinemaDestroy(copy);
    return differing == 0;
}

int run(Scene &s, const char *svg_path) {
    CineEval *eval = CineEvalCreate(s.cinema);
    if (eval == nullptr) return 1;
    CineEvalSetAction(eval, CineActionGetDefault(s.cinema, 9));
    if (CinemaEvaluate(eval) == 0) {
        std::fprintf(stderr, "vexor demo: evaluation failed: %s\n", VxLastFailure().text);
        return 1;
    }
    std::printf("vexor %s: a scene of %u items, evaluated through the action \"%s\"\n", VxVersion(),
                CinemaItemCount(s.cinema), CineActionName(CineEvalAction(eval)));
    std::printf("Action order:");
    for (unsigned i = 0; i < CineActionOrderCount(s.cinema); ++i) {
        std::printf("%s %s", i == 0 ? "" : " ->",
                    CineActionName(CineActionOrderByIndex(s.cinema, i)));
    }
    std::printf("\nModifier nodes: %u\n\n", CinemaModNodeCount(s.cinema));
    show_undo(s, eval);

    std::vector<PlottedCurve> curves = {
        channel_curve(eval, s.bounce, "pos.Y"), channel_curve(eval, s.bounce, "squash"),
        channel_curve(eval, s.slide, "pos.X"),  channel_curve(eval, s.slide, "pos.Y"),
        channel_curve(eval, s.blend, "inputA"), channel_curve(eval, s.blend, "output"),
    };
    show_clips(s, eval, curves);
    for (PlottedCurve &curve : xfrm_demo_curves(eval, s.xfrm)) curves.push_back(std::move(curve));
    const PlotSpan span{0.0, 2.0};
    print_xfrm_chains(s.cinema);
    std::printf("\nChannels every sixth frame (%g frames per second):\n", kFps);
    print_value_table(stdout, curves, span, kFps, 6);
    const bool written =
        write_curve_plot(svg_path, curves, span, "vexor demo: channels of a scene over time",
                         {xfrm_demo_paths(eval, s.xfrm, span, kFps)});
    CineEvalDestroy(eval);
    if (!written) {
        std::perror(("vexor demo: writing " + std::string(svg_path)).c_str());
        return 1;
    }
    std::printf("\nPlot of the channels and their keys written to %s\n", svg_path);
    return show_round_trip(s, "vexor-demo.vxr") ? 0 : 1;
}

}  // namespace

int vexor_demo(int argc, char **argv) {
    const char *svg_path = "vexor-demo.svg";
    if (!read_svg_option("demo", argc, argv, &svg_path)) return 2;
    UndoSysStartup();
    CinemaStartup();
    const bool groups = start_group_modules();
    Scene scene;
    int code = 1;
    // The scene is built outside the undo history, so the one step shown is the key below.
    UndoSysSuspend();
    const bool built = groups && build(scene);
    UndoSysResume();
    if (built) {
        code = run(scene, svg_path);
    } else {
        std::fprintf(stderr, "vexor demo: building the scene failed: %s\n", VxLastFailure().text);
    }
    UndoSysClear();
    if (scene.cinema != nullptr) CinemaDestroy(scene.cinema);
    if (groups) stop_group_modules();
    CinemaShutdown();
    UndoSysShutdown();
    return code;
}
