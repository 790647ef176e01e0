// `vexor env plot`: an envelope described on the command line, or read from a curve file or a
// key text file, printed frame by frame and drawn to an SVG picture with its keys and tangent
// handles. `vexor env save`: the same description written to a curve file.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/block.h>
#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/env_io.h>

#include "bounds.h"
#include "curve_plot.h"
#include "options.h"

namespace {

// A curve file is a block stream holding one "curve" block: a "type" block (the envelope type,
// the post behaviour, which the envelope's own blocks do not keep, and the interpolation), an
// optional "name" block, then the envelope's own blocks. Files written before the interpolation
// and the name were kept have a "type" block of two values and no "name" block.
constexpr unsigned kCurveBlock = 100;
constexpr unsigned kCurveTypeBlock = 101;
constexpr unsigned kCurveNameBlock = 102;
constexpr unsigned kMaxNameBytes = 200;

// A saved curve file starts with the block stream's header; anything else is read as text.
bool is_saved_curve(const std::string &contents) {
    return contents.size() >= 4 && std::memcmp(contents.data(), "VXBK", 4) == 0;
}

// A name as u32 length and its bytes packed into u32 words, little-endian.
bool write_name(BlkWriter *writer, const std::string &name) {
    const auto length = static_cast<unsigned>(std::min<std::size_t>(name.size(), kMaxNameBytes));
    std::vector<unsigned> words((length + 3) / 4, 0u);
    for (unsigned i = 0; i < length; ++i) {
        words[i / 4] |= static_cast<unsigned>(static_cast<unsigned char>(name[i])) << (8 * (i % 4));
    }
    return BlkWriteBlock(writer, kCurveNameBlock) != 0 && BlkWriteU4(writer, &length, 1) != 0 &&
           (words.empty() ||
            BlkWriteU4(writer, words.data(), static_cast<unsigned>(words.size()))) &&
           BlkWriteEnd(writer) != 0;
}

bool read_name(BlkReader *reader, std::string &name) {
    unsigned length = 0;
    if (BlkReadU4(reader, &length, 1) != 1 || length > kMaxNameBytes) return false;
    std::vector<unsigned> words((length + 3) / 4, 0u);
    if (!words.empty() &&
        BlkReadU4(reader, words.data(), static_cast<unsigned>(words.size())) != words.size()) {
        return false;
    }
    name.clear();
    for (unsigned i = 0; i < length; ++i) {
        name += static_cast<char>((words[i / 4] >> (8 * (i % 4))) & 0xFFu);
    }
    return true;
}

// What is wrong with an envelope read from a file, or null: every key within the time line, in
// order and at least 0.0001 s from the next, finite values, known settings.
const char *damage_in(Envelope *env) {
    if (!known_behavior(EnvPreBehavior(env)) || !known_behavior(EnvPostBehavior(env)) ||
        !known_interpolation(EnvInterpolation(env))) {
        return "an unknown behaviour or interpolation";
    }
    const EnvKeyList *list = EnvGetKeyList(env);
    const EnvKey *prev = nullptr;
    for (const EnvKey *k = list->head; k->succ != nullptr; prev = k, k = k->succ) {
        if (!(std::fabs(k->time) <= kTimeLine)) return "a key time beyond the time line";
        if (prev != nullptr && !(k->time - prev->time >= kMinSpan)) {
            return "keys out of order or closer than 0.0001 s";
        }
        for (int side : {0, 1}) {
            const EnvKeySide &s = k->side[side];
            if (!known_slope_type(s.flags & 0xFFu)) return "an unknown slope type";
            if (!std::isfinite(s.slope) || !std::isfinite(s.weight) ||
                (EnvType(env) == 0 && !std::isfinite(s.value.f))) {
                return "a value, slope or weight that is not a number";
            }
        }
    }
    return nullptr;
}

// Reads a curve file already read into memory; null (with a message) when it is damaged.
Envelope *load_curve(const std::string &path, const std::string &contents, std::string &name) {
    BlkReader *reader = BlkReaderOpenMemory(contents.data(), contents.size());
    if (reader == nullptr) {
        std::fputs("vexor env: out of memory\n", stderr);
        return nullptr;
    }
    const BlkBlockId curve_table[] = {{kCurveBlock, "curve"}, {0, nullptr}};
    const BlkBlockId type_table[] = {{kCurveTypeBlock, "type"}, {0, nullptr}};
    const BlkBlockId name_table[] = {{kCurveNameBlock, "name"}, {0, nullptr}};
    Envelope *env = nullptr;
    unsigned header[3] = {0, ENV_BEHAVIOR_CONSTANT, ENV_INTERP_CURVE};  // type, post, interp
    const char *damage = "it is not a curve file";
    if (BlkFindBlock(reader, curve_table) == kCurveBlock &&
        BlkFindBlock(reader, type_table) == kCurveTypeBlock && BlkReadU4(reader, header, 3) >= 2 &&
        BlkReadEnd(reader) != 0) {
        damage = nullptr;
        if (header[0] > 1 || !known_behavior(header[1]) || !known_interpolation(header[2])) {
            damage = "an unknown envelope type, behaviour or interpolation";
        }
    }
    if (damage == nullptr) {
        // The name block, when there is one, comes before the envelope's blocks.
        BlkReader *peek = BlkReaderOpenMemory(contents.data(), contents.size());
        if (peek != nullptr && BlkFindBlock(peek, curve_table) == kCurveBlock &&
            BlkFindBlock(peek, name_table) == kCurveNameBlock && !read_name(peek, name)) {
            damage = "a damaged name";
        }
        BlkReaderClose(peek);
    }
    if (damage == nullptr) {
        env = header[0] == 1 ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
        if (env == nullptr || EnvLoad(env, reader) == 0 || BlkReaderFailed(reader) != 0) {
            damage = "damaged envelope blocks";
        } else {
            EnvSetPostBehaviorDirect(env, header[1]);
            EnvSetInterpolationDirect(env, header[2]);
            damage = damage_in(env);
        }
    }
    BlkReaderClose(reader);
    if (damage != nullptr) {
        if (env != nullptr) EnvDestroyNoUndo(env);
        std::fprintf(stderr, "vexor env: %s is damaged: %s\n", printable(path).c_str(), damage);
        return nullptr;
    }
    return env;
}

bool save_curve(Envelope *env, const std::string &name, const std::string &path) {
    BlkWriter *writer = BlkWriterOpenFile(path.c_str());
    if (writer == nullptr) return false;
    const unsigned header[3] = {EnvType(env), EnvPostBehavior(env), EnvInterpolation(env)};
    const bool written = BlkWriteBlock(writer, kCurveBlock) != 0 &&
                         BlkWriteBlock(writer, kCurveTypeBlock) != 0 &&
                         BlkWriteU4(writer, header, 3) != 0 && BlkWriteEnd(writer) != 0 &&
                         (name.empty() || write_name(writer, name)) && EnvSave(env, writer) != 0 &&
                         BlkWriteEnd(writer) != 0;
    return BlkWriterClose(writer) != 0 && written;
}

Envelope *build(const PlotArgs &args) {
    Envelope *env = args.integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
    if (env == nullptr) return nullptr;
    for (const KeyArg &k : args.keys) {
        if (args.integer) {
            const double v = std::trunc(k.value);
            EnvAddKeyInt(env, k.time, static_cast<int>(std::clamp(v, -2147483648.0, 2147483647.0)));
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

// Reads --file: a saved curve, or keys in text. Null (with a message) when it cannot be used.
Envelope *read_file(PlotArgs &args, std::string &status_name, int &status) {
    std::string contents;
    status = kExitFailure;
    if (!read_input_file("env", args.file.c_str(), kMaxDataFileBytes, contents)) return nullptr;
    if (is_saved_curve(contents)) {
        Envelope *env = load_curve(args.file, contents, status_name);
        if (env != nullptr) status = kExitOk;
        return env;
    }
    if (contents.size() > kMaxTextFileBytes) {
        std::fprintf(stderr, "vexor env: cannot read %s: a key file of more than 1 MiB\n",
                     printable(args.file).c_str());
        return nullptr;
    }
    if ((status = parse_key_text(contents, args.file.c_str(), args)) != kExitOk) return nullptr;
    if ((status = check_keys(args)) != kExitOk) return nullptr;
    status_name = args.name;
    Envelope *env = build(args);
    status = env != nullptr ? kExitOk : kExitFailure;
    return env;
}

int save(int argc, char **argv) {
    if (argc < 3 || argv[2][0] == '-') {
        std::fputs("vexor env save: say which file to write: 'vexor env save FILE --key ...'\n",
                   stderr);
        return kExitUsage;
    }
    PlotArgs args;
    if (const int status = parse_plot_args(argc, argv, 3, args); status != kExitOk) return status;
    if (!args.file.empty()) {
        std::fputs("vexor env save: save takes --key options, not --file\n", stderr);
        return kExitUsage;
    }
    if (const int status = check_keys(args); status != kExitOk) return status;
    Envelope *env = build(args);
    if (env == nullptr) {
        std::fputs("vexor env save: out of memory\n", stderr);
        return kExitFailure;
    }
    const bool saved = save_curve(env, args.name, argv[2]);
    EnvDestroyNoUndo(env);
    if (!saved) {
        std::fprintf(stderr, "vexor env save: could not write %s\n", printable(argv[2]).c_str());
        return kExitFailure;
    }
    std::printf("Curve of %zu keys written to %s\n", args.keys.size(), printable(argv[2]).c_str());
    return kExitOk;
}

int plot(int argc, char **argv) {
    PlotArgs args;
    if (const int status = parse_plot_args(argc, argv, 2, args); status != kExitOk) return status;
    std::string name = args.name;
    Envelope *env = nullptr;
    if (args.file.empty()) {
        if (const int status = check_keys(args); status != kExitOk) return status;
        env = build(args);
        if (env == nullptr) {
            std::fputs("vexor env plot: out of memory\n", stderr);
            return kExitFailure;
        }
    } else {
        int status = kExitOk;
        env = read_file(args, name, status);
        if (env == nullptr) return status;
        if (!args.name.empty()) name = args.name;
    }
    args.integer = EnvType(env) == 1;
    double first = 0.0, last = 0.0;
    EnvBoundsTime(env, &first, &last);
    // By default the keys and one span of them either side, within the time line.
    const double span = last - first >= kMinSpan ? last - first : 1.0;
    const double from = args.has_from ? args.from : std::max(first - span, -kTimeLine);
    const double to = args.has_to ? args.to : std::min(last + span, kTimeLine);
    std::int64_t every = args.every;
    if (every == 0) every = every_for_rows(from, to, args.fps, 40);
    FrameRange frames;
    if (!check_span("env plot", from, to) ||
        !check_frames("env plot", from, to, args.fps, every, frames)) {
        EnvDestroyNoUndo(env);
        return kExitUsage;
    }
    if (name.empty()) {
        name = std::string(args.integer ? "integer, " : "") + behavior_name(EnvPreBehavior(env)) +
               " / " + behavior_name(EnvPostBehavior(env)) + ", " +
               interpolation_name(EnvInterpolation(env));
    }
    const PlotSpan range{from, to};
    const std::vector<PlottedCurve> curves{{name, env}};
    double lo = 0.0, hi = 0.0;
    if (args.integer) {
        int ilo = 0, ihi = 0;
        EnvBoundsValueInt(env, from, to, &ilo, &ihi);
        lo = ilo;
        hi = ihi;
    } else {
        EnvBoundsValue(env, from, to, &lo, &hi);
    }
    int key_count = 0;
    for (EnvKey *k = EnvFirstKey(env); k != nullptr; k = EnvNextKey(env, EnvKeyTime(k))) {
        ++key_count;
    }
    std::printf("%d keys; %g s to %g s; values from %g to %g\n", key_count, from, to, lo, hi);
    print_value_table(stdout, curves, args.fps, frames);
    const bool written = write_curve_plot(args.svg.c_str(), curves, range, "vexor env plot");
    EnvDestroyNoUndo(env);
    if (!written) {
        std::perror(("vexor env plot: writing " + printable(args.svg)).c_str());
        return kExitFailure;
    }
    std::printf("Plot written to %s\n", printable(args.svg).c_str());
    return kExitOk;
}

}  // namespace

int vexor_env(int argc, char **argv) {
    if (argc < 2) {
        std::fputs(
            "vexor env: say what to do: 'vexor env plot ...' or 'vexor env save FILE ...'\n"
            "Run 'vexor env --help' for usage.\n",
            stderr);
        return kExitUsage;
    }
    if (std::strcmp(argv[1], "plot") == 0) return plot(argc, argv);
    if (std::strcmp(argv[1], "save") == 0) return save(argc, argv);
    std::fprintf(stderr, "vexor env: unknown env command '%s'\nRun 'vexor env --help' for usage.\n",
                 printable(argv[1]).c_str());
    return kExitUsage;
}
