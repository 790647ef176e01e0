// The demo's small hierarchy of placed items: a locator spinning in place, a child orbiting it
// while turning on its own, and a grandchild turning about a pivot. Their world positions are
// read through the evaluator like any channel, printed beside the demo's other channels, and
// drawn as paths seen from above under the demo's plot.
#pragma once

#include <vector>

#include <vexor/cinema.h>
#include <vexor/eval.h>

#include "curve_plot.h"

struct XfrmDemo {
    CineItem *spinner = nullptr;
    CineItem *orbiter = nullptr;
    CineItem *moon = nullptr;
};

// Builds the hierarchy in the scene; false on a failure.
bool build_xfrm_demo(Cinema *scene, XfrmDemo &demo);
// The world X and Z of each item as curves sampled through the evaluator.
std::vector<PlottedCurve> xfrm_demo_curves(CineEval *eval, const XfrmDemo &demo);
// The paths of the items' world positions over the span, seen from above.
SvgPanel xfrm_demo_paths(CineEval *eval, const XfrmDemo &demo, PlotSpan span, double fps);
// Prints each placed item's transform chain, first applied first.
void print_xfrm_chains(Cinema *scene);
