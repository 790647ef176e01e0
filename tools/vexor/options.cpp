#include "options.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Named {
    const char *name;
    unsigned code;
};

constexpr Named kBehaviors[] = {
    {"reset", ENV_BEHAVIOR_RESET},
    {"constant", ENV_BEHAVIOR_CONSTANT},
    {"repeat", ENV_BEHAVIOR_REPEAT},
    {"oscillate", ENV_BEHAVIOR_OSCILLATE},
    {"offset-repeat", ENV_BEHAVIOR_OFFSET_REPEAT},
    {"linear", ENV_BEHAVIOR_LINEAR},
    {"none", ENV_BEHAVIOR_NONE},
};
constexpr Named kSlopes[] = {
    {"manual", ENV_SLOPE_MANUAL},       {"auto", ENV_SLOPE_AUTO},
    {"linear-in", ENV_SLOPE_LINEAR_IN}, {"linear-out", ENV_SLOPE_LINEAR_OUT},
    {"auto-flat", ENV_SLOPE_AUTO_FLAT}, {"flat", ENV_SLOPE_AUTO_FLAT},
    {"stepped", ENV_SLOPE_STEPPED},
};
constexpr Named kInterpolations[] = {
    {"curve", ENV_INTERP_CURVE},
    {"linear", ENV_INTERP_LINEAR},
    {"stepped", ENV_INTERP_STEPPED},
};

template <std::size_t N>
bool known(const Named (&table)[N], unsigned code) {
    return std::any_of(std::begin(table), std::end(table),
                       [&](const Named &n) { return n.code == code; });
}

template <std::size_t N>
const char *name_in(const Named (&table)[N], unsigned code) {
    for (const Named &n : table) {
        if (n.code == code) return n.name;
    }
    return "other";
}

// A name from the table, or the code of one of its entries given as a number.
template <std::size_t N>
bool parse_named(std::string_view text, const Named (&table)[N], unsigned &out) {
    for (const Named &n : table) {
        if (text == n.name) {
            out = n.code;
            return true;
        }
    }
    double code = 0.0;
    if (!parse_number(text, code) || code < 0.0 || code != std::floor(code) || code > 255.0) {
        return false;
    }
    if (!known(table, static_cast<unsigned>(code))) return false;
    out = static_cast<unsigned>(code);
    return true;
}

int usage(const char *command, const char *message, std::string_view arg) {
    return usage_error(command, message, std::string(arg).c_str());
}

bool in_time_line(double t) {
    return std::fabs(t) <= kTimeLine;
}

// TIME:VALUE or TIME:VALUE:SLOPE-TYPE (or with blanks between, from a key file).
bool parse_key(std::string_view text, char separator, KeyArg &key) {
    const std::size_t first = text.find(separator);
    if (first == std::string_view::npos) return false;
    const std::size_t second = text.find(separator, first + 1);
    const std::string_view value = text.substr(
        first + 1, second == std::string_view::npos ? std::string_view::npos : second - first - 1);
    if (!parse_number(text.substr(0, first), key.time) || !parse_number(value, key.value) ||
        !in_time_line(key.time)) {
        return false;
    }
    key.has_type = second != std::string_view::npos;
    return !key.has_type || parse_named(text.substr(second + 1), kSlopes, key.slope_type);
}

bool parse_weight(std::string_view text, double &weight) {
    return parse_number(text, weight) && weight >= 0.0;
}

}  // namespace

const char *behavior_name(unsigned code) {
    return name_in(kBehaviors, code);
}
const char *interpolation_name(unsigned code) {
    return name_in(kInterpolations, code);
}
bool known_behavior(unsigned code) {
    return known(kBehaviors, code);
}
bool known_interpolation(unsigned code) {
    return known(kInterpolations, code);
}
bool known_slope_type(unsigned code) {
    return known(kSlopes, code);
}

int parse_key_text(std::string_view text, const char *source, PlotArgs &args) {
    int number = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        line = line.substr(0, line.find('#'));
        auto trim = [](std::string_view s) {
            while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) {
                s.remove_prefix(1);
            }
            while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) {
                s.remove_suffix(1);
            }
            return s;
        };
        line = trim(line);
        if (line.empty()) continue;
        std::size_t gap = 0;
        while (gap < line.size() && !std::isspace(static_cast<unsigned char>(line[gap]))) ++gap;
        const std::string_view word = line.substr(0, gap);
        const std::string_view rest = trim(line.substr(gap));
        double time = 0.0;
        bool ok = true;
        if (parse_number(word, time)) {
            std::string joined(line);
            std::replace_if(
                joined.begin(), joined.end(),
                [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }, ':');
            joined.erase(std::unique(joined.begin(), joined.end(),
                                     [](char a, char b) { return a == ':' && b == ':'; }),
                         joined.end());
            KeyArg key{};
            ok = parse_key(joined, ':', key);
            if (ok) args.keys.push_back(key);
        } else if (word == "int" && rest.empty()) {
            args.integer = true;
        } else if (word == "pre" || word == "post") {
            ok = parse_named(rest, kBehaviors, word == "pre" ? args.pre : args.post);
        } else if (word == "interp") {
            ok = parse_named(rest, kInterpolations, args.interpolation);
        } else if (word == "slope") {
            ok = parse_named(rest, kSlopes, args.slope_type);
        } else if (word == "weight") {
            ok = args.has_weight = parse_weight(rest, args.weight);
        } else if (word == "name") {
            args.name = std::string(rest.substr(0, 200));
        } else {
            ok = false;
        }
        if (!ok) {
            std::fprintf(stderr, "vexor env: %s:%d: cannot read '%s'\n", printable(source).c_str(),
                         number, printable(line).c_str());
            return kExitUsage;
        }
        if (args.keys.size() > 100000) {
            std::fprintf(stderr, "vexor env: %s: more than 100000 keys\n",
                         printable(source).c_str());
            return kExitUsage;
        }
    }
    return kExitOk;
}

int check_keys(const PlotArgs &args) {
    if (args.keys.empty()) {
        std::fputs("vexor env: give at least one --key TIME:VALUE\n", stderr);
        return kExitUsage;
    }
    std::vector<double> times;
    times.reserve(args.keys.size());
    for (const KeyArg &k : args.keys) times.push_back(k.time);
    std::sort(times.begin(), times.end());
    for (std::size_t i = 1; i < times.size(); ++i) {
        if (times[i] - times[i - 1] < kMinSpan) {
            std::fprintf(stderr,
                         "vexor env: two keys at %g s: keys must be at least 0.0001 s apart\n",
                         times[i]);
            return kExitUsage;
        }
    }
    return kExitOk;
}

int parse_plot_args(int argc, char **argv, int first, PlotArgs &args) {
    for (int i = first; i < argc; ++i) {
        const std::string_view opt = argv[i];
        const bool has_value = i + 1 < argc;
        double number = 0.0;
        if (opt == "--int") {
            args.integer = true;
            continue;
        }
        if (!has_value) return usage("env", "unknown option or missing value for", opt);
        const std::string_view text = argv[++i];
        if (opt == "--key") {
            KeyArg key{};
            if (!parse_key(text, ':', key)) {
                return usage("env", "a key is TIME:VALUE[:SLOPE] within the time line, not", text);
            }
            args.keys.push_back(key);
        } else if (opt == "--pre" || opt == "--post") {
            if (!parse_named(text, kBehaviors, opt == "--pre" ? args.pre : args.post)) {
                return usage("env", "unknown behaviour", text);
            }
        } else if (opt == "--slope") {
            if (!parse_named(text, kSlopes, args.slope_type)) {
                return usage("env", "unknown slope type", text);
            }
        } else if (opt == "--interp") {
            if (!parse_named(text, kInterpolations, args.interpolation)) {
                return usage("env", "unknown interpolation", text);
            }
        } else if (opt == "--weight") {
            if (!parse_weight(text, args.weight)) {
                return usage("env", "a weight is a number of 0 or more, not", text);
            }
            args.has_weight = true;
        } else if (opt == "--from" || opt == "--to") {
            if (!parse_number(text, number) || !in_time_line(number)) {
                return usage("env", "not a time within the time line:", text);
            }
            (opt == "--from" ? args.from : args.to) = number;
            (opt == "--from" ? args.has_from : args.has_to) = true;
        } else if (opt == "--fps") {
            if (!parse_number(text, args.fps)) return usage("env", "not a frame rate:", text);
            if (!check_fps("env", args.fps)) return kExitUsage;
        } else if (opt == "--every") {
            if (!parse_number(text, number) || number < 1.0 ||
                number > static_cast<double>(kMaxEvery) || number != std::floor(number)) {
                return usage("env", "--every takes a whole number of frames up to 1000000, not",
                             text);
            }
            args.every = static_cast<std::int64_t>(number);
        } else if (opt == "--svg") {
            args.svg = std::string(text);
        } else if (opt == "--name") {
            args.name = std::string(text.substr(0, 200));
        } else if (opt == "--file") {
            args.file = std::string(text);
        } else {
            return usage("env", "unknown option", opt);
        }
    }
    if (args.has_from && args.has_to && !check_span("env", args.from, args.to)) return kExitUsage;
    if (!args.keys.empty() && !args.file.empty()) {
        std::fputs("vexor env: give either --key options or --file, not both\n", stderr);
        return kExitUsage;
    }
    return kExitOk;
}

int parse_scene_plot_args(int argc, char **argv, ScenePlotArgs &args) {
    for (int i = 2; i < argc; ++i) {
        const std::string_view arg = argv[i];
        double number = 0.0;
        if (arg.empty() || arg[0] != '-') {
            if (args.path != nullptr) return usage("scene", "plot takes one scene file, not", arg);
            args.path = argv[i];
            continue;
        }
        if (i + 1 >= argc) return usage("scene", "missing value after", arg);
        const char *value = argv[++i];
        if (arg == "--action") {
            args.action = value;
        } else if (arg == "--svg") {
            args.svg = value;
        } else if (!parse_number(value, number)) {
            return usage("scene", "not a number:", value);
        } else if (arg == "--from") {
            args.from = number;
        } else if (arg == "--to") {
            args.to = number;
        } else if (arg == "--fps") {
            if (!check_fps("scene", number)) return kExitUsage;
            args.fps = number;
        } else if (arg == "--every") {
            if (number < 1.0 || number > static_cast<double>(kMaxEvery) ||
                number != std::floor(number)) {
                return usage("scene", "--every takes a whole number of frames up to 1000000, not",
                             value);
            }
            args.every = static_cast<std::int64_t>(number);
        } else {
            return usage("scene", "unknown option", arg);
        }
    }
    if (args.path == nullptr) return usage("scene", "plot needs a scene file", "");
    if (!check_span("scene", args.from, args.to)) return kExitUsage;
    FrameRange frames;
    if (!check_frames("scene", args.from, args.to, args.fps, args.every, frames)) return kExitUsage;
    return kExitOk;
}
