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

#include "curve_plot.h"
#include "demo_clips.h"
#include "demo_types.h"
#include "xfrm_demo.h"

namespace {

constexpr int kUsageError = 2;
constexpr std::size_t kMostCurves = 12;

int usage_error(const char *what, const char *arg) {
    std::fprintf(stderr, "vexor scene: %s '%s'\nRun 'vexor scene --help' for usage.\n", what, arg);
    return kUsageError;
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
        scene_ = CinemaLoadCustom(path, 0);
        if (scene_ == nullptr) {
            std::fprintf(stderr, "vexor scene: cannot load %s: %s\n", path, VxLastFailure().text);
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
    if (argc != 3) return usage_error("show takes one scene file, not", argc > 3 ? argv[3] : "");
    Session session;
    Cinema *scene = session.load(argv[2]);
    if (scene == nullptr) return 1;
    const unsigned items = CinemaItemCount(scene);
    std::printf("%s: %u items\n", argv[2], items);
    for (unsigned i = 0; i < items; ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        CineItem *parent = CineItemParent(item);
        std::printf("  %-16s %-12s %3u channels%s%s%s\n", CineItemUniqueName(item),
                    CineTypeName(CineItemType(item)), CineChannelCount(item),
                    parent != nullptr ? ", child of " : "",
                    parent != nullptr ? CineItemUniqueName(parent) : "",
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
        std::printf("  \"%s\" (type %u%s)", CineActionName(action), CineActionType(action),
                    CineActionIsEnabled(action) != 0 ? "" : ", disabled");
        if (keyed) std::printf(", keys from %g s to %g s", first, last);
        std::printf("\n");
        for (unsigned i = 0; i < items; ++i) {
            CineItem *item = CinemaItemByIndex(scene, i);
            for (unsigned c = 0; c < CineChannelCount(item); ++c) {
                const char *state = state_name(CineActionState(action, item, c));
                if (state == nullptr) continue;
                std::printf("    %s %s: %s", CineItemUniqueName(item), CineChannelName(item, c),
                            state);
                if (std::strcmp(state, "constant") == 0) {
                    std::printf(" %g", CineActionValueFloat(action, item, c));
                }
                std::printf("\n");
            }
        }
    }
    return 0;
}

struct PlotOptions {
    const char *path = nullptr;
    const char *action = "edit";
    PlotSpan span{0.0, 2.0};
    double fps = 24.0;
    int every = 6;
    const char *svg = "vexor-scene-plot.svg";
};

bool read_number(const char *text, double &out) {
    char *end = nullptr;
    out = std::strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(out);
}

int parse_plot(int argc, char **argv, PlotOptions &o) {
    for (int i = 2; i < argc; ++i) {
        const char *arg = argv[i];
        const bool has_value = i + 1 < argc;
        double number = 0.0;
        if (arg[0] != '-') {
            if (o.path != nullptr) return usage_error("plot takes one scene file, not", arg);
            o.path = arg;
        } else if (!has_value) {
            return usage_error("missing value after", arg);
        } else if (std::strcmp(arg, "--action") == 0) {
            o.action = argv[++i];
        } else if (std::strcmp(arg, "--svg") == 0) {
            o.svg = argv[++i];
        } else if (!read_number(argv[i + 1], number)) {
            return usage_error("not a number:", argv[i + 1]);
        } else if (std::strcmp(arg, "--from") == 0) {
            o.span.from = number;
            ++i;
        } else if (std::strcmp(arg, "--to") == 0) {
            o.span.to = number;
            ++i;
        } else if (std::strcmp(arg, "--fps") == 0 && number > 0.0) {
            o.fps = number;
            ++i;
        } else if (std::strcmp(arg, "--every") == 0 && number >= 1.0) {
            o.every = static_cast<int>(number);
            ++i;
        } else {
            return usage_error("unknown option or bad value:", arg);
        }
    }
    if (o.path == nullptr) return usage_error("plot needs a scene file", "");
    if (!(o.span.to > o.span.from))
        return usage_error("the span is empty: --to must pass", "--from");
    return 0;
}

int plot(int argc, char **argv) {
    PlotOptions o;
    if (const int bad = parse_plot(argc, argv, o)) return bad;
    Session session;
    Cinema *scene = session.load(o.path);
    if (scene == nullptr) return 1;
    CineAction *action = CineActionLookup(scene, o.action);
    if (action == nullptr) return usage_error("the scene has no action", o.action);
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
            const double at_start = sample(o.span.from);
            bool changes = false;
            for (int k = 1; k <= 48 && !changes; ++k) {
                changes = sample(o.span.from + (o.span.to - o.span.from) * k / 48.0) != at_start;
            }
            if (!changes) continue;
            curves.push_back(
                {std::string(CineItemUniqueName(item)) + " " + CineChannelName(item, c),
                 CineEvalRawChannelEnv(eval, item, c), sample});
        }
    }
    std::printf("%s through \"%s\": %zu channels change from %g s to %g s\n", o.path, o.action,
                curves.size(), o.span.from, o.span.to);
    int code = 0;
    if (!curves.empty()) {
        print_value_table(stdout, curves, o.span, o.fps, o.every);
        if (write_curve_plot(o.svg, curves, o.span, std::string("vexor scene plot: ") + o.path)) {
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
        return kUsageError;
    }
    if (std::strcmp(argv[1], "show") == 0) return show(argc, argv);
    if (std::strcmp(argv[1], "plot") == 0) return plot(argc, argv);
    return usage_error("unknown scene command", argv[1]);
}
