#include "xfrm_demo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include <vexor/action.h>
#include <vexor/env.h>
#include <vexor/scene.h>
#include <vexor/xfrm.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr const char *kColours[] = {"#c0392b", "#2471a3", "#229954"};

// A placed item with a standard scale, rotation and translation (and pivot, when asked),
// under a parent.
CineItem *place(Cinema *scene, const char *name, CineItem *parent, bool pivot) {
    CineItem *item = CineItemCreate(scene, XFRM_TYPE_LOCATOR);
    if (item == nullptr || CineItemSetName(item, name) == 0) return nullptr;
    if (parent != nullptr && CineItemSetParent(item, parent, -1) != 0) return nullptr;
    for (int kind : {XFRM_KIND_SCALE, XFRM_KIND_ROTATION, XFRM_KIND_TRANSLATION}) {
        if (XfrmGetStdTransform(item, kind, 1) == nullptr) return nullptr;
    }
    if (pivot && XfrmGetStdTransform(item, XFRM_KIND_PIVOT, 1) == nullptr) return nullptr;
    // Each member is named after its item and kind ("Moon pivot").
    CineItem *members[8];
    const unsigned n = XfrmGetTransformArray(item, members, 8);
    for (unsigned m = 0; m < n && m < 8; ++m) {
        const std::string member =
            std::string(name) + " " + CineItemGetTag(members[m], XFRM_STD_TAG);
        if (CineItemSetName(members[m], member.c_str()) == 0) return nullptr;
    }
    return item;
}

bool set_vector(CineItem *item, int kind, double x, double y, double z) {
    CineItem *member = XfrmGetStdTransform(item, kind, 0);
    CineAction *setup = CineActionGetDefault(CineItemContext(item), 0);
    const double v[3] = {x, y, z};
    for (unsigned c = 0; c < 3; ++c) {
        if (CineActionSetConstant(setup, member, 2 + c, v[c]) == 0) return false;
    }
    return true;
}

// A turn about Y, linear in time: `turns` whole turns every two seconds.
bool spin(CineItem *item, double turns) {
    CineItem *rotation = XfrmGetStdTransform(item, XFRM_KIND_ROTATION, 0);
    Envelope *env = EnvCreate(nullptr);
    if (env == nullptr) return false;
    EnvAddKey(env, 0.0, 0.0);
    // Scene files keep key values as 32-bit floats: a value they hold exactly reads back the same.
    EnvAddKey(env, 2.0, static_cast<double>(static_cast<float>(turns * kTurn)));
    EnvSetInterpolation(env, ENV_INTERP_LINEAR);
    EnvSetPostBehavior(env, ENV_BEHAVIOR_LINEAR);
    if (CineActionSetEnvelope(CineActionGetDefault(CineItemContext(item), 1), rotation, 3, env) ==
        0) {
        EnvDestroyNoUndo(env);
        return false;
    }
    return true;
}

double world(CineEval *eval, CineItem *item, double time, int axis) {
    CineEvalSetTime(eval, time);
    double p[3] = {0, 0, 0};
    XfrmWorldPosition(eval, item, p);
    return p[axis];
}

}  // namespace

bool build_xfrm_demo(Cinema *scene, XfrmDemo &demo) {
    demo.spinner = place(scene, "Spinner", nullptr, false);
    demo.orbiter = demo.spinner ? place(scene, "Orbiter", demo.spinner, false) : nullptr;
    demo.moon = demo.orbiter ? place(scene, "Moon", demo.orbiter, true) : nullptr;
    if (demo.moon == nullptr) return false;
    // The orbiter stands 3 from the spinner and turns twice as it goes round once; the moon
    // stands 1 further out and turns about a pivot half-way back to the orbiter.
    return spin(demo.spinner, 1.0) && set_vector(demo.orbiter, XFRM_KIND_TRANSLATION, 3, 0, 0) &&
           spin(demo.orbiter, 2.0) && set_vector(demo.moon, XFRM_KIND_TRANSLATION, 1, 0, 0) &&
           set_vector(demo.moon, XFRM_KIND_PIVOT, -0.5, 0, 0) && spin(demo.moon, -3.0) &&
           set_vector(demo.moon, XFRM_KIND_SCALE, 0.5, 0.5, 0.5);
}

std::vector<PlottedCurve> xfrm_demo_curves(CineEval *eval, const XfrmDemo &demo) {
    std::vector<PlottedCurve> curves;
    for (CineItem *item : {demo.spinner, demo.orbiter, demo.moon}) {
        for (int axis : {0, 2}) {
            curves.push_back(
                {std::string(CineItemUniqueName(item)) + " world " + (axis == 0 ? "X" : "Z"),
                 nullptr, [eval, item, axis](double t) { return world(eval, item, t, axis); }});
        }
    }
    return curves;
}

SvgPanel xfrm_demo_paths(CineEval *eval, const XfrmDemo &demo, PlotSpan span, double fps) {
    constexpr double kHeight = 420.0, kMargin = 40.0, kReach = 5.0;  // world units each way
    return {kHeight, [=](std::FILE *f, double top, double width) {
                const double size = kHeight - 2 * kMargin;
                const double cx = width / 2, cy = top + kHeight / 2;
                const double scale = size / (2 * kReach);
                std::fprintf(f,
                             "<text x='%.1f' y='%.1f' font-size='14' font-weight='bold'>World "
                             "positions seen from above (X right, Z down)</text>\n",
                             kMargin, top + 20);
                std::fprintf(f,
                             "<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' fill='none' "
                             "stroke='#bbb'/>\n",
                             cx - size / 2, cy - size / 2, size, size);
                std::fprintf(f, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#ddd'/>\n",
                             cx - size / 2, cy, cx + size / 2, cy);
                std::fprintf(f, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#ddd'/>\n",
                             cx, cy - size / 2, cx, cy + size / 2);
                const auto frames = static_cast<long>(std::floor((span.to - span.from) * fps));
                std::size_t colour = 0;
                for (CineItem *item : {demo.spinner, demo.orbiter, demo.moon}) {
                    const char *c = kColours[colour++];
                    std::fprintf(f, "<polyline fill='none' stroke='%s' stroke-width='1.5' points='",
                                 c);
                    for (long i = 0; i <= frames; ++i) {
                        const double t = span.from + static_cast<double>(i) / fps;
                        const double x = std::clamp(world(eval, item, t, 0), -kReach, kReach);
                        const double z = std::clamp(world(eval, item, t, 2), -kReach, kReach);
                        std::fprintf(f, "%.1f,%.1f ", cx + x * scale, cy + z * scale);
                    }
                    const double x0 = world(eval, item, span.from, 0);
                    const double z0 = world(eval, item, span.from, 2);
                    std::fprintf(f,
                                 "'/>\n<circle cx='%.1f' cy='%.1f' r='4' fill='%s'/>\n"
                                 "<text x='%.1f' y='%.1f' fill='%s'>%s</text>\n",
                                 cx + x0 * scale, cy + z0 * scale, c, cx + x0 * scale + 6,
                                 cy + z0 * scale - 6, c, CineItemUniqueName(item));
                }
            }};
}

void print_xfrm_chains(Cinema *scene) {
    bool any = false;
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        CineItem *members[64];
        const unsigned n = XfrmGetTransformArray(item, members, 64);
        if (n == 0) continue;
        if (!any) std::printf("Transform chains, first applied first:\n");
        any = true;
        std::printf("  %s:", CineItemUniqueName(item));
        for (unsigned m = 0; m < n && m < 64; ++m) {
            const char *kind = CineItemGetTag(members[m], XFRM_STD_TAG);
            std::printf("%s %s (%s)", m == 0 ? "" : " ->", CineItemUniqueName(members[m]),
                        kind != nullptr ? kind : CineTypeName(CineItemType(members[m])));
        }
        if (n > 64) std::printf(" -> ... %u in all", n);
        std::printf("\n");
    }
}
