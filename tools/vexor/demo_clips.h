// The demo's character with two action clips in a group, and what the program prints of
// groups and clips in a scene.
#pragma once

#include <cstdio>
#include <vector>

#include <vexor/cinema.h>
#include <vexor/eval.h>

#include "curve_plot.h"

struct DemoClips {
    CineItem *actor = nullptr;   // the group
    CineItem *hopper = nullptr;  // the character, a ball
    CineItem *walk = nullptr;
    CineItem *jump = nullptr;
};

// The time at which the demo switches from "walk" to "jump".
inline constexpr double kJumpAt = 1.0;

// Starts the group and clip modules along with the scene module (false when they cannot).
bool start_group_modules();
void stop_group_modules();
// Puts the character, its group and its two clips into the scene.
bool build_demo_clips(Cinema *scene, DemoClips &clips);
// The character's channels read through the evaluator with "walk" active before kJumpAt and
// "jump" from then on: the clips are switched as the curves are sampled.
std::vector<PlottedCurve> clip_curves(CineEval *eval, const DemoClips &clips);
// Lists the scene's groups with their members and its clips with their state.
void print_groups_and_clips(std::FILE *out, Cinema *scene);
