// `vexor env plot`: an envelope described on the command line, or read from a curve file,
// printed frame by frame and drawn to an SVG picture with its keys and tangent handles.
// `vexor env save`: the same description written to a curve file.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <vexor/block.h>
#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/env_io.h>

#include "curve_plot.h"

namespace {

constexpr int kUsageError = 2;

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
    int every = 0;
    std::string svg = "vexor-env-plot.svg";
    std::string name;
    std::string file;  // plot: read the curve from this saved curve file
};

// A curve file is a block stream holding one "curve" block: a "type" block (the envelope type,
// 0 float or 1 integer, and the post behaviour, which the envelope's own blocks do not keep)
// followed by the envelope's own blocks.
constexpr unsigned kCurveBlock = 100;
constexpr unsigned kCurveTypeBlock = 101;

int usage_error(const char *message, const char *arg) {
    std::fprintf(stderr, "vexor env: %s '%s'\nRun 'vexor env --help' for usage.\n", message, arg);
    return kUsageError;
}

bool parse_number(const std::string &text, double &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    return errno == 0 && end != nullptr && *end == '\0' && std::isfinite(out);
}

// A name from the table, or a code given as a number.
template <std::size_t N>
bool parse_named(const char *text, const Named (&table)[N], unsigned &out) {
    for (const Named &n : table) {
        if (std::strcmp(text, n.name) == 0) {
            out = n.code;
            return true;
        }
    }
    char *end = nullptr;
    errno = 0;
    const unsigned long code = std::strtoul(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || code > 0xFFFFFFFFul) return false;
    out = static_cast<unsigned>(code);
    return true;
}

// TIME:VALUE or TIME:VALUE:SLOPE-TYPE.
bool parse_key(const char *text, KeyArg &key) {
    const std::string s(text);
    const std::size_t first = s.find(':');
    if (first == std::string::npos) return false;
    const std::size_t second = s.find(':', first + 1);
    const std::string value =
        s.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
    if (!parse_number(s.substr(0, first), key.time) || !parse_number(value, key.value)) {
        return false;
    }
    key.has_type = second != std::string::npos;
    return !key.has_type || parse_named(s.c_str() + second + 1, kSlopes, key.slope_type);
}

// A saved curve file starts with the block stream's header; anything else is read as text.
bool is_saved_curve(const char *path) {
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) return false;
    char magic[4] = {};
    const bool saved = std::fread(magic, 1, 4, file) == 4 && std::memcmp(magic, "VXBK", 4) == 0;
    std::fclose(file);
    return saved;
}

// A text file of keys, one per line as "TIME VALUE [SLOPE]", with optional lines "pre B",
// "post B", "interp I", "slope S", "weight W", "int" and "name TEXT"; '#' starts a comment.
int read_key_text(const char *path, PlotArgs &args) {
    std::FILE *file = std::fopen(path, "r");
    if (file == nullptr) {
        std::fprintf(stderr, "vexor env: cannot read %s\n", path);
        return 1;
    }
    char line[512];
    int number = 0;
    int status = 0;
    while (status == 0 && std::fgets(line, sizeof line, file) != nullptr) {
        ++number;
        if (char *hash = std::strchr(line, '#')) *hash = '\0';
        char word[128] = {};
        char rest[384] = {};
        const int fields = std::sscanf(line, " %127s %383[^\n]", word, rest);
        if (fields < 1) continue;
        std::string value(rest);
        while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) {
            value.pop_back();
        }
        const std::string key_text = std::string(word) + ":" + value;
        double time = 0.0;
        bool ok = true;
        if (parse_number(word, time)) {
            KeyArg key{};
            std::string joined = key_text;
            std::replace(joined.begin(), joined.end(), ' ', ':');
            ok = parse_key(joined.c_str(), key);
            if (ok) args.keys.push_back(key);
        } else if (std::strcmp(word, "int") == 0) {
            args.integer = true;
        } else if (std::strcmp(word, "pre") == 0 || std::strcmp(word, "post") == 0) {
            ok = parse_named(value.c_str(), kBehaviors, word[1] == 'r' ? args.pre : args.post);
        } else if (std::strcmp(word, "interp") == 0) {
            ok = parse_named(value.c_str(), kInterpolations, args.interpolation);
        } else if (std::strcmp(word, "slope") == 0) {
            ok = parse_named(value.c_str(), kSlopes, args.slope_type);
        } else if (std::strcmp(word, "weight") == 0) {
            ok = parse_number(value, args.weight) && args.weight >= 0.0;
            args.has_weight = ok;
        } else if (std::strcmp(word, "name") == 0) {
            args.name = value;
        } else {
            ok = false;
        }
        if (!ok) {
            std::fprintf(stderr, "vexor env: %s:%d: cannot read '%s'\n", path, number, word);
            status = kUsageError;
        }
    }
    std::fclose(file);
    return status;
}

int parse_plot_args(int argc, char **argv, int first, PlotArgs &args) {
    for (int i = first; i < argc; ++i) {
        const char *opt = argv[i];
        const bool has_value = i + 1 < argc;
        const auto take = [&] { return argv[++i]; };
        double number = 0.0;
        if (std::strcmp(opt, "--int") == 0) {
            args.integer = true;
        } else if (!has_value) {
            return usage_error("unknown option or missing value for", opt);
        } else if (std::strcmp(opt, "--key") == 0) {
            KeyArg key{};
            const char *text = take();
            if (!parse_key(text, key)) return usage_error("a key is TIME:VALUE[:SLOPE], not", text);
            args.keys.push_back(key);
        } else if (std::strcmp(opt, "--pre") == 0 || std::strcmp(opt, "--post") == 0) {
            const char *text = take();
            unsigned &end = opt[3] == 'r' ? args.pre : args.post;
            if (!parse_named(text, kBehaviors, end)) return usage_error("unknown behaviour", text);
        } else if (std::strcmp(opt, "--slope") == 0) {
            const char *text = take();
            if (!parse_named(text, kSlopes, args.slope_type)) {
                return usage_error("unknown slope type", text);
            }
        } else if (std::strcmp(opt, "--interp") == 0) {
            const char *text = take();
            if (!parse_named(text, kInterpolations, args.interpolation)) {
                return usage_error("unknown interpolation", text);
            }
        } else if (std::strcmp(opt, "--weight") == 0) {
            const char *text = take();
            if (!parse_number(text, args.weight) || args.weight < 0.0) {
                return usage_error("a weight is a number of 0 or more, not", text);
            }
            args.has_weight = true;
        } else if (std::strcmp(opt, "--from") == 0 || std::strcmp(opt, "--to") == 0) {
            const char *text = take();
            if (!parse_number(text, number)) return usage_error("not a time:", text);
            (opt[2] == 'f' ? args.from : args.to) = number;
            (opt[2] == 'f' ? args.has_from : args.has_to) = true;
        } else if (std::strcmp(opt, "--fps") == 0) {
            const char *text = take();
            if (!parse_number(text, args.fps) || args.fps <= 0.0) {
                return usage_error("frames per second must be above 0, not", text);
            }
        } else if (std::strcmp(opt, "--every") == 0) {
            const char *text = take();
            if (!parse_number(text, number) || number < 1.0 || number > 1e6 ||
                number != std::floor(number)) {
                return usage_error("--every takes a whole number of frames, not", text);
            }
            args.every = static_cast<int>(number);
        } else if (std::strcmp(opt, "--svg") == 0) {
            args.svg = take();
        } else if (std::strcmp(opt, "--name") == 0) {
            args.name = take();
        } else if (std::strcmp(opt, "--file") == 0) {
            const char *path = take();
            if (is_saved_curve(path)) {
                args.file = path;
            } else if (const int status = read_key_text(path, args); status != 0) {
                return status;
            }
        } else {
            return usage_error("unknown option", opt);
        }
    }
    if (args.keys.empty() && args.file.empty()) {
        std::fputs("vexor env: give at least one --key TIME:VALUE\n", stderr);
        return kUsageError;
    }
    if (!args.keys.empty() && !args.file.empty()) {
        std::fputs("vexor env: give either --key options or --file, not both\n", stderr);
        return kUsageError;
    }
    return 0;
}

// Reads a curve file; null (with a message) when it cannot be read.
Envelope *load_curve(const std::string &path) {
    BlkReader *reader = BlkReaderOpenFile(path.c_str());
    if (reader == nullptr) {
        std::fprintf(stderr, "vexor env: %s is not a curve file\n", path.c_str());
        return nullptr;
    }
    const BlkBlockId curve_table[] = {{kCurveBlock, "curve"}, {0, nullptr}};
    const BlkBlockId type_table[] = {{kCurveTypeBlock, "type"}, {0, nullptr}};
    Envelope *env = nullptr;
    unsigned header[2] = {0, 0};  // type, post behaviour
    if (BlkFindBlock(reader, curve_table) == kCurveBlock &&
        BlkFindBlock(reader, type_table) == kCurveTypeBlock && BlkReadU4(reader, header, 2) == 2 &&
        BlkReadEnd(reader) != 0 && header[0] <= 1) {
        env = header[0] == 1 ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
        if (env != nullptr && (EnvLoad(env, reader) == 0 || BlkReaderFailed(reader) != 0)) {
            EnvDestroyNoUndo(env);
            env = nullptr;
        }
        if (env != nullptr) EnvSetPostBehaviorDirect(env, header[1]);
    }
    BlkReaderClose(reader);
    if (env == nullptr) std::fprintf(stderr, "vexor env: %s is damaged\n", path.c_str());
    return env;
}

bool save_curve(Envelope *env, const std::string &path) {
    BlkWriter *writer = BlkWriterOpenFile(path.c_str());
    if (writer == nullptr) return false;
    const unsigned header[2] = {EnvType(env), EnvPostBehavior(env)};
    const bool written = BlkWriteBlock(writer, kCurveBlock) != 0 &&
                         BlkWriteBlock(writer, kCurveTypeBlock) != 0 &&
                         BlkWriteU4(writer, header, 2) != 0 && BlkWriteEnd(writer) != 0 &&
                         EnvSave(env, writer) != 0 && BlkWriteEnd(writer) != 0;
    return BlkWriterClose(writer) != 0 && written;
}

Envelope *build(const PlotArgs &args) {
    Envelope *env = args.integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
    if (env == nullptr) return nullptr;
    for (const KeyArg &k : args.keys) {
        if (args.integer) {
            EnvAddKeyInt(env, k.time, static_cast<int>(std::trunc(k.value)));
            continue;
        }
        EnvKey *key = EnvAddKey(env, k.time, k.value);
        if (key == nullptr) continue;
        EnvKeySetSlopeType(env, key, 0, ENV_SLOPE_MANUAL);
        EnvKeySetSlopeType(env, key, 0, k.has_type ? k.slope_type : args.slope_type);
        if (args.has_weight) {
            EnvKeySetWeightType(env, key, 0, 1);
            EnvKeySetWeightValue(env, key, 0, args.weight);
        }
    }
    EnvSetPreBehavior(env, args.pre);
    EnvSetPostBehavior(env, args.post);
    EnvSetInterpolation(env, args.interpolation);
    return env;
}

const char *name_of(unsigned code, const Named *table, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (table[i].code == code) return table[i].name;
    }
    return "other";
}

int save(int argc, char **argv) {
    if (argc < 3 || argv[2][0] == '-') {
        std::fputs("vexor env save: say which file to write: 'vexor env save FILE --key ...'\n",
                   stderr);
        return kUsageError;
    }
    PlotArgs args;
    if (const int status = parse_plot_args(argc, argv, 3, args); status != 0) return status;
    if (!args.file.empty()) return usage_error("save takes --key options, not", "--file");
    Envelope *env = build(args);
    if (env == nullptr) {
        std::fputs("vexor env save: out of memory\n", stderr);
        return 1;
    }
    const bool saved = save_curve(env, argv[2]);
    EnvDestroyNoUndo(env);
    if (!saved) {
        std::fprintf(stderr, "vexor env save: could not write %s\n", argv[2]);
        return 1;
    }
    std::printf("Curve of %zu keys written to %s\n", args.keys.size(), argv[2]);
    return 0;
}

int plot(int argc, char **argv) {
    PlotArgs args;
    if (const int status = parse_plot_args(argc, argv, 2, args); status != 0) return status;
    Envelope *env = args.file.empty() ? build(args) : load_curve(args.file);
    if (env == nullptr) {
        if (args.file.empty()) std::fputs("vexor env plot: out of memory\n", stderr);
        return 1;
    }
    if (!args.file.empty()) {
        args.integer = EnvType(env) == 1;
        args.pre = EnvPreBehavior(env);
        args.post = EnvPostBehavior(env);
    }
    double first = 0.0, last = 0.0;
    EnvBoundsTime(env, &first, &last);
    const double span = last - first > 0.0 ? last - first : 1.0;
    PlotSpan range{args.has_from ? args.from : first - span, args.has_to ? args.to : last + span};
    if (range.to < range.from) std::swap(range.from, range.to);
    if (range.to == range.from) range.to = range.from + 1.0;

    std::string label = args.name;
    if (label.empty()) {
        label = std::string(args.integer ? "integer, " : "") +
                name_of(args.pre, kBehaviors, std::size(kBehaviors)) + " / " +
                name_of(args.post, kBehaviors, std::size(kBehaviors));
    }
    const std::vector<PlottedCurve> curves{{label, env}};

    double lo = 0.0, hi = 0.0;
    if (args.integer) {
        int ilo = 0, ihi = 0;
        EnvBoundsValueInt(env, range.from, range.to, &ilo, &ihi);
        lo = ilo;
        hi = ihi;
    } else {
        EnvBoundsValue(env, range.from, range.to, &lo, &hi);
    }
    int key_count = 0;
    for (EnvKey *k = EnvFirstKey(env); k != nullptr; k = EnvNextKey(env, EnvKeyTime(k))) {
        ++key_count;
    }
    std::printf("%d keys; %g s to %g s; values from %g to %g\n", key_count, range.from, range.to,
                lo, hi);
    int every = args.every;
    if (every == 0) {  // about forty rows
        every = static_cast<int>(std::ceil((range.to - range.from) * args.fps / 40.0));
        if (every < 1) every = 1;
    }
    print_value_table(stdout, curves, range, args.fps, every);
    const bool written = write_curve_plot(args.svg.c_str(), curves, range, "vexor env plot");
    EnvDestroyNoUndo(env);
    if (!written) {
        std::perror(("vexor env plot: writing " + args.svg).c_str());
        return 1;
    }
    std::printf("Plot written to %s\n", args.svg.c_str());
    return 0;
}

}  // namespace

int vexor_env(int argc, char **argv) {
    if (argc < 2) {
        std::fputs(
            "vexor env: say what to do: 'vexor env plot ...' or 'vexor env save FILE ...'\n"
            "Run 'vexor env --help' for usage.\n",
            stderr);
        return kUsageError;
    }
    if (std::strcmp(argv[1], "plot") == 0) return plot(argc, argv);
    if (std::strcmp(argv[1], "save") == 0) return save(argc, argv);
    return usage_error("unknown env command", argv[1]);
}
