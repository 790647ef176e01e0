// The property the fuzz target of the `vexor` program's option and key-text parsing checks, and
// the seed replay runs: whatever the input, parsing ends, and what it accepts is within the
// program's bounds (tools/vexor/bounds.h): keys inside the time line and apart, known codes, a
// frame rate the picture can draw, spans and tables that stay small.
//
// An input is one selector byte, then text: 0 the options of `vexor env plot`, NUL-separated;
// 1 the contents of a key text file; 2 the options of `vexor scene plot`, NUL-separated.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/vexor/options.h"

namespace vx::fuzz {

// argv of a command: its words, then a null.
struct Words {
    std::vector<std::string> words;
    std::vector<char *> argv;
    Words(const char *first, const char *second, const std::uint8_t *data, std::size_t size) {
        words = {first, second};
        std::string word;
        for (std::size_t i = 0; i < size && words.size() < 64; ++i) {
            if (data[i] == 0) {
                words.push_back(word);
                word.clear();
            } else {
                word += static_cast<char>(data[i]);
            }
        }
        words.push_back(word);
        for (std::string &w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(words.size()); }
};

inline const char *check_plot_args(const PlotArgs &args) {
    std::vector<double> times;
    for (const KeyArg &k : args.keys) {
        if (!(std::fabs(k.time) <= kTimeLine) || !std::isfinite(k.value)) {
            return "a key outside the time line, or not a number";
        }
        if (k.has_type && !known_slope_type(k.slope_type)) return "an unknown slope type";
        times.push_back(k.time);
    }
    std::sort(times.begin(), times.end());
    const bool apart = std::adjacent_find(times.begin(), times.end(), [](double a, double b) {
                           return b - a < kMinSpan;
                       }) == times.end();
    if (check_keys(args) == kExitOk && !apart) return "accepted keys closer than 0.0001 s";
    if (!known_behavior(args.pre) || !known_behavior(args.post) ||
        !known_interpolation(args.interpolation) || !known_slope_type(args.slope_type)) {
        return "accepted an unknown code";
    }
    if (!(args.fps > 0.0 && args.fps <= kMaxFps)) return "accepted a frame rate out of bounds";
    if (args.every < 0 || args.every > kMaxEvery) return "accepted a step out of bounds";
    if (args.has_weight && !(args.weight >= 0.0 && std::isfinite(args.weight))) {
        return "accepted a bad weight";
    }
    if (args.has_from && args.has_to && !(args.to - args.from >= kMinSpan)) {
        return "accepted an empty or inverted span";
    }
    return nullptr;
}

// Null when the property holds for the input; otherwise what broke.
inline const char *check_cli_options(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return nullptr;
    const std::uint8_t mode = data[0] % 3;
    ++data;
    --size;
    if (mode == 0) {
        Words w("env", "plot", data, size);
        PlotArgs args;
        if (parse_plot_args(w.argc(), w.argv.data(), 2, args) != kExitOk) return nullptr;
        return check_plot_args(args);
    }
    if (mode == 1) {
        PlotArgs args;
        const std::string text(reinterpret_cast<const char *>(data), size);
        if (parse_key_text(text, "fuzz", args) != kExitOk) return nullptr;
        return check_plot_args(args);
    }
    Words w("scene", "plot", data, size);
    ScenePlotArgs args;
    if (parse_scene_plot_args(w.argc(), w.argv.data(), args) != kExitOk) return nullptr;
    FrameRange frames;
    if (!frame_range(args.from, args.to, args.fps, args.every, frames) || frames.rows > kMaxRows) {
        return "accepted a table out of bounds";
    }
    return nullptr;
}

}  // namespace vx::fuzz
