// The options of the commands that describe curves and spans in text: `vexor env plot` and
// `vexor env save` (options and key files) and `vexor scene plot`. Parsing reads text only (no
// files are opened), so the fuzz target drives it in process. Every parser returns kExitOk, or
// kExitUsage with a message on stderr; what it accepts is within the bounds of bounds.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <vexor/env.h>

#include "bounds.h"

struct KeyArg {
    double time;
    double value;
    bool has_type;
    unsigned slope_type;
};

struct PlotArgs {
    std::vector<KeyArg> keys;
    unsigned pre = ENV_BEHAVIOR_CONSTANT;
    unsigned post = ENV_BEHAVIOR_CONSTANT;
    unsigned interpolation = ENV_INTERP_CURVE;
    unsigned slope_type = ENV_SLOPE_AUTO;
    bool integer = false;
    bool has_weight = false;
    double weight = 0.0;
    bool has_from = false, has_to = false;
    double from = 0.0, to = 0.0;
    double fps = 24.0;
    std::int64_t every = 0;  // 0: about forty rows
    std::string svg = "vexor-env-plot.svg";
    std::string name;
    std::string file;  // --file: a saved curve or a key text file, read by the command
};

// Reads argv[first..argc) into args. Keys lie within the time line and no two within 0.0001 s
// of each other; codes are ones the library knows.
int parse_plot_args(int argc, char **argv, int first, PlotArgs &args);
// Reads a key text file's contents (`source` names it in messages): one key a line, "TIME VALUE
// [SLOPE]", and lines "pre B", "post B", "interp I", "slope S", "weight W", "int", "name TEXT";
// '#' starts a comment.
int parse_key_text(std::string_view text, const char *source, PlotArgs &args);
// After all keys are read: at least one, and no two at one time.
int check_keys(const PlotArgs &args);

// Names of behaviours, slope types and interpolations, as the options take them; "other" for a
// code without one.
const char *behavior_name(unsigned code);
const char *interpolation_name(unsigned code);
bool known_behavior(unsigned code);
bool known_interpolation(unsigned code);
bool known_slope_type(unsigned code);

struct ScenePlotArgs {
    const char *path = nullptr;
    const char *action = "edit";
    double from = 0.0, to = 2.0;
    double fps = 24.0;
    std::int64_t every = 6;
    const char *svg = "vexor-scene-plot.svg";
};

// Reads `vexor scene plot` arguments from argv[2..argc).
int parse_scene_plot_args(int argc, char **argv, ScenePlotArgs &args);
