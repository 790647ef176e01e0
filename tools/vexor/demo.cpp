// `vexor demo`: envelopes at work, through the public C interface only. A few keyed curves show
// the ways a curve continues past its keys (offset repeat, oscillate, repeat, linear) and the
// slope types that shape it between keys (auto, linear in and out, auto flat, stepped, manual
// with stored weights and a broken tangent). One edit is undone and redone through the undo
// system; then the curves are printed frame by frame and drawn to an SVG picture.
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/undo.h>
#include <vexor/version.h>

#include "curve_plot.h"

namespace {

constexpr double kFps = 24.0;

struct KeySpec {
    double time;
    double value;
    unsigned slope_type;
};

Envelope *keyed(std::initializer_list<KeySpec> keys, unsigned pre, unsigned post,
                unsigned interpolation) {
    Envelope *env = EnvCreate(nullptr);
    if (env == nullptr) return nullptr;
    for (const KeySpec &k : keys) {
        EnvKey *key = EnvAddKey(env, k.time, k.value);
        if (key == nullptr) continue;
        // Through manual first, so the type replaces whatever new keys get by default.
        EnvKeySetSlopeType(env, key, 0, ENV_SLOPE_MANUAL);
        EnvKeySetSlopeType(env, key, 0, k.slope_type);
    }
    EnvSetPreBehavior(env, pre);
    EnvSetPostBehavior(env, post);
    EnvSetInterpolation(env, interpolation);
    return env;
}

EnvKey *key_number(Envelope *env, int i) {
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (i-- == 0) return k;
    }
    return nullptr;
}

// The curves of the demo, each named for what it shows.
std::vector<PlottedCurve> build_curves() {
    std::vector<PlottedCurve> curves;
    curves.push_back(
        {"auto slopes, offset repeat",
         keyed({{0.0, 0.0, ENV_SLOPE_AUTO}, {0.5, 2.0, ENV_SLOPE_AUTO}, {1.0, 1.0, ENV_SLOPE_AUTO}},
               ENV_BEHAVIOR_OFFSET_REPEAT, ENV_BEHAVIOR_OFFSET_REPEAT, ENV_INTERP_CURVE)});
    curves.push_back({"linear in/out + auto flat, oscillate",
                      keyed({{0.0, -1.5, ENV_SLOPE_LINEAR_OUT},
                             {0.6, 1.0, ENV_SLOPE_LINEAR_IN},
                             {1.2, 1.0, ENV_SLOPE_AUTO_FLAT},
                             {1.5, -0.5, ENV_SLOPE_AUTO_FLAT}},
                            ENV_BEHAVIOR_OSCILLATE, ENV_BEHAVIOR_OSCILLATE, ENV_INTERP_CURVE)});
    curves.push_back(
        {"stepped, repeat", keyed({{0.0, -3.0, ENV_SLOPE_AUTO},
                                   {0.25, -2.25, ENV_SLOPE_AUTO},
                                   {0.5, -2.75, ENV_SLOPE_AUTO},
                                   {1.0, -3.5, ENV_SLOPE_AUTO}},
                                  ENV_BEHAVIOR_REPEAT, ENV_BEHAVIOR_REPEAT, ENV_INTERP_STEPPED)});

    // Manual slopes with stored weights, and a key whose tangent breaks: it comes in flat and
    // leaves falling. Linear at both ends.
    Envelope *weighted = keyed(
        {{0.0, 3.0, ENV_SLOPE_MANUAL}, {1.0, 4.5, ENV_SLOPE_MANUAL}, {2.0, 3.25, ENV_SLOPE_MANUAL}},
        ENV_BEHAVIOR_LINEAR, ENV_BEHAVIOR_LINEAR, ENV_INTERP_CURVE);
    if (weighted != nullptr) {
        EnvKey *k0 = key_number(weighted, 0);
        EnvKey *k1 = key_number(weighted, 1);
        EnvKey *k2 = key_number(weighted, 2);
        EnvKeySetSlopeValue(weighted, k0, 0, 0.5);
        EnvKeySetWeightType(weighted, k0, 0, 1);
        EnvKeySetWeightValue(weighted, k0, 0, 0.8);
        EnvKeyBreak(weighted, k1, ENV_BREAK_SLOPE);
        EnvKeySetSlopeValue(weighted, k1, 0, 0.0);
        EnvKeySetSlopeValue(weighted, k1, 1, -3.0);
        EnvKeySetSlopeValue(weighted, k2, 0, 0.25);
        EnvKeySetWeightType(weighted, k2, 0, 1);
        EnvKeySetWeightValue(weighted, k2, 0, 0.6);
    }
    curves.push_back({"weighted, broken tangent, linear", weighted});
    return curves;
}

void show_undo(Envelope *env) {
    EnvKey *key = key_number(env, 1);
    const double t = EnvKeyTime(key);
    std::printf("Undo at work on '%s', its key at %g s:\n", "auto slopes, offset repeat", t);
    std::printf("  value at %.3f s: %8.4f\n", t, EnvEvaluate(env, t));
    EnvKeySetValue(env, key, 2.75);
    std::printf("  key set to 2.75:  %8.4f   (undo steps %u)\n", EnvEvaluate(env, t),
                UndoSysUndoCount());
    UndoSysUndo();
    std::printf("  undone:           %8.4f   (redo steps %u)\n", EnvEvaluate(env, t),
                UndoSysRedoCount());
    UndoSysRedo();
    std::printf("  redone:           %8.4f\n", EnvEvaluate(env, t));
    UndoSysUndo();
    std::printf("  undone again for the table and the picture: %.4f\n\n", EnvEvaluate(env, t));
}

}  // namespace

int vexor_demo(int argc, char **argv) {
    const char *svg_path = "vexor-demo.svg";
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--svg") == 0 && i + 1 < argc) {
            svg_path = argv[++i];
        } else {
            std::fprintf(stderr, "vexor demo: unknown argument '%s'\n", argv[i]);
            return 2;
        }
    }

    std::vector<PlottedCurve> curves = build_curves();  // built before undo records anything
    for (const PlottedCurve &c : curves) {
        if (c.env == nullptr) {
            std::fputs("vexor demo: out of memory building the curves\n", stderr);
            return 1;
        }
    }
    std::printf("vexor %s: envelopes, %zu curves keyed and evaluated\n\n", VxVersion(),
                curves.size());

    UndoSysStartup();
    show_undo(curves[0].env);

    const PlotSpan span{-1.0, 3.0};
    std::printf("Values every quarter second (%g frames per second):\n", kFps);
    print_value_table(stdout, curves, span, kFps, 6);

    const bool written = write_curve_plot(svg_path, curves, span, "vexor demo: envelopes");
    UndoSysShutdown();
    for (const PlottedCurve &c : curves) EnvDestroyNoUndo(c.env);
    if (!written) {
        std::perror(("vexor demo: writing " + std::string(svg_path)).c_str());
        return 1;
    }
    std::printf("\nPlot of the curves, keys and tangent handles written to %s\n", svg_path);
    return 0;
}
