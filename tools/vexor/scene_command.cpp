// `vexor scene show FILE`: what a scene file holds: its items with their types, parents and
// channels, its groups with their members and its clips with their state, and its actions with
// what they hold for each item.
// `vexor scene plot FILE`: the scene evaluated through an action over a span of time; every
// channel whose value changes is printed frame by frame and drawn to an SVG picture.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/eval.h>
#include <vexor/failure.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/scene_io.h>
#include <vexor/undo.h>

#include "bounds.h"
#include "curve_plot.h"
#include "demo_clips.h"
#include "demo_types.h"
#include "options.h"
#include "xfrm_demo.h"

namespace {

constexpr std::size_t kMostCurves = 12;

// Names read from a file, safe to print.
std::string shown_text(const char *text) {
    return printable(text != nullptr ? text : "", 60);
}

// The scene module for one command, with the demo's types defined, and the loaded scene.
class Session {
  public:
    Session() {
        UndoSysStartup();
        CinemaStartup();
        groups_ = start_group_modules();
        define_demo_types();
    }
    ~Session() {
        if (scene_ != nullptr) CinemaDestroy(scene_);
        if (groups_) stop_group_modules();
        CinemaShutdown();
        UndoSysShutdown();
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    Cinema *load(const char *path) {
        if (!check_input_file("scene", path, kMaxDataFileBytes)) return nullptr;
        scene_ = CinemaLoadCustom(path, 0);
        if (scene_ == nullptr) {
            std::fprintf(stderr, "vexor scene: cannot load %s: %s\n", printable(path).c_str(),
                         printable(VxLastFailure().text, 200).c_str());
        }
        return scene_;
    }

  private:
    Cinema *scene_ = nullptr;
    bool groups_ = false;
};

const char *state_name(int state) {
    switch (state) {
        case CINE_STATE_REMOVED:
            return "removed";
        case CINE_STATE_CONSTANT:
            return "constant";
        case CINE_STATE_ENVELOPE:
            return "keyed";
        default:
            return nullptr;
    }
}

int show(int argc, char **argv) {
    if (argc != 3)
        return usage_error("scene", "show takes one scene file, not", argc > 3 ? argv[3] : "");
    Session session;
    Cinema *scene = session.load(argv[2]);
    if (scene == nullptr) return 1;
    const unsigned items = CinemaItemCount(scene);
    std::printf("%s: %u items\n", printable(argv[2]).c_str(), items);
    for (unsigned i = 0; i < items; ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        CineItem *parent = CineItemParent(item);
        std::printf("  %-16s %-12s %3u channels%s%s%s\n",
                    shown_text(CineItemUniqueName(item)).c_str(),
                    shown_text(CineTypeName(CineItemType(item))).c_str(), CineChannelCount(item),
                    parent != nullptr ? ", child of " : "",
                    parent != nullptr ? shown_text(CineItemUniqueName(parent)).c_str() : "",
                    CineItemHidden(item) != 0 ? ", hidden" : "");
    }
    print_xfrm_chains(scene);
    print_groups_and_clips(stdout, scene);
    std::printf("Actions, in evaluation order first:\n");
    std::vector<CineAction *> actions;
    for (unsigned i = 0; i < CineActionOrderCount(scene); ++i) {
        actions.push_back(CineActionOrderByIndex(scene, i));
    }
    for (CineAction *a = CineActionFirst(scene); a != nullptr; a = CineActionNext(a)) {
        bool listed = false;
        for (CineAction *b : actions) listed = listed || a == b;
        if (!listed) actions.push_back(a);
    }
    for (CineAction *action : actions) {
        double first = 0.0, last = 0.0;
        const bool keyed = CineActionExtents(action, &first, &last) != 0;
        std::printf("  \"%s\" (type %u%s)", shown_text(CineActionName(action)).c_str(),
                    CineActionType(action), CineActionIsEnabled(action) != 0 ? "" : ", disabled");
        if (keyed) std::printf(", keys from %g s to %g s", first, last);
        std::printf("\n");
        for (unsigned i = 0; i < items; ++i) {
            CineItem *item = CinemaItemByIndex(scene, i);
            for (unsigned c = 0; c < CineChannelCount(item); ++c) {
                const char *state = state_name(CineActionState(action, item, c));
                if (state == nullptr) continue;
                std::printf("    %s %s: %s", shown_text(CineItemUniqueName(item)).c_str(),
                            shown_text(CineChannelName(item, c)).c_str(), state);
                if (std::strcmp(state, "constant") == 0) {
                    std::printf(" %g", CineActionValueFloat(action, item, c));
                }
                std::printf("\n");
            }
        }
    }
    return 0;
}

int plot(int argc, char **argv) {
    ScenePlotArgs o;
    if (const int bad = parse_scene_plot_args(argc, argv, o)) return bad;
    const PlotSpan span{o.from, o.to};
    FrameRange frames;
    if (!check_frames("scene", o.from, o.to, o.fps, o.every, frames)) return kExitUsage;
    Session session;
    Cinema *scene = session.load(o.path);
    if (scene == nullptr) return 1;
    CineAction *action = CineActionLookup(scene, o.action);
    if (action == nullptr) return usage_error("scene", "the scene has no action", o.action);
    CineEval *eval = CineEvalCreate(scene);
    if (eval == nullptr) return 1;
    CineEvalSetAction(eval, action);

    // The channels whose value changes over the span, sampled a few dozen times.
    std::vector<PlottedCurve> curves;
    for (unsigned i = 0; i < CinemaItemCount(scene) && curves.size() < kMostCurves; ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        for (unsigned c = 0; c < CineChannelCount(item) && curves.size() < kMostCurves; ++c) {
            auto sample = [eval, item, c](double t) {
                CineEvalSetTime(eval, t);
                return CineEvalChannel(eval, item, c);
            };
            const double at_start = sample(o.from);
            bool changes = false;
            for (int k = 1; k <= 48 && !changes; ++k) {
                changes = sample(o.from + (o.to - o.from) * k / 48.0) != at_start;
            }
            if (!changes) continue;
            curves.push_back(
                {shown_text(CineItemUniqueName(item)) + " " + shown_text(CineChannelName(item, c)),
                 CineEvalRawChannelEnv(eval, item, c), sample});
        }
    }
    std::printf("%s through \"%s\": %zu channels change from %g s to %g s\n",
                printable(o.path).c_str(), printable(o.action).c_str(), curves.size(), o.from,
                o.to);
    int code = 0;
    if (!curves.empty()) {
        print_value_table(stdout, curves, o.fps, frames);
        if (write_curve_plot(o.svg, curves, span, std::string("vexor scene plot: ") + o.path)) {
            std::printf("Plot written to %s\n", o.svg);
        } else {
            std::perror(("vexor scene: writing " + std::string(o.svg)).c_str());
            code = 1;
        }
    }
    CineEvalDestroy(eval);
    return code;
}

}  // namespace

int vexor_scene(int argc, char **argv) {
    if (argc < 2) {
        std::fputs(
            "vexor scene: say what to do: 'vexor scene show FILE' or 'vexor scene plot FILE'\n"
            "Run 'vexor scene --help' for usage.\n",
            stderr);
        return kExitUsage;
    }
    if (std::strcmp(argv[1], "show") == 0) return show(argc, argv);
    if (std::strcmp(argv[1], "plot") == 0) return plot(argc, argv);
    return usage_error("scene", "unknown scene command", argv[1]);
}
