// `vexor adjust IN OUT [options]`: a picture through a render output's colour operations (hue,
// saturation, colorization, then output levels), written as PNG or EXR.
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/render_output.h>

#include "bounds.h"
#include "image_io.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Numbers separated by `separator` (',' or ':'), exactly `count` of them, all finite.
bool parse_numbers(const char *text, char separator, int count, float *out) {
    const char *p = text;
    for (int i = 0; i < count; ++i) {
        char *end = nullptr;
        errno = 0;
        const double v = std::strtod(p, &end);
        if (end == p || errno != 0 || !std::isfinite(v) || std::fabs(v) > 1e30) return false;
        out[i] = static_cast<float>(v);
        if (i + 1 < count) {
            if (*end != separator) return false;
            p = end + 1;
        } else if (*end != '\0') {
            return false;
        }
    }
    return true;
}

struct Named {
    RenderPixelFunc fn;
    const char *name;
};

const char *variant_name(RenderPixelFunc fn) {
    static const Named names[] = {
        {RenderHueSatPixelColor_NOP, "none"},
        {RenderHueSatPixelColor_HueOffset, "hue offset"},
        {RenderHueSatPixelColor_Saturation, "saturation"},
        {RenderHueSatPixelColor_Colorization, "colorization"},
        {RenderHueSatPixelColor_HueOffset_Saturation, "hue offset, saturation"},
        {RenderHueSatPixelColor_HueOffset_Colorization, "hue offset, colorization"},
        {RenderHueSatPixelColor_Saturation_Colorization, "saturation, colorization"},
        {RenderHueSatPixelColor_HueOffset_Saturation_Colorization,
         "hue offset, saturation, colorization"},
        {RenderOutputLevelPixelColor_NOP, "none"},
        {RenderOutputLevelPixelColor_BlackWhite, "black and white"},
        {RenderOutputLevelPixelColor_ComponentRGB, "per component"},
        {RenderOutputLevelPixelColor_BlackWhite_ComponentRGB, "black and white, per component"},
    };
    for (const Named &n : names) {
        if (n.fn == fn) return n.name;
    }
    return "?";
}

int parse(int argc, char **argv, RenderOutputSettings &s) {
    static const struct {
        const char *option;
        unsigned bit;
    } kComponents[] = {{"--levels-red", RENDER_LEVELS_RED},
                       {"--levels-green", RENDER_LEVELS_GREEN},
                       {"--levels-blue", RENDER_LEVELS_BLUE}};
    bool amount_given = false;
    for (int i = 3; i < argc; ++i) {
        const char *opt = argv[i];
        if (i + 1 >= argc) return usage_error("adjust", "unknown option or missing value for", opt);
        const char *value = argv[++i];
        float v[4] = {};
        bool ok = true;
        if (std::strcmp(opt, "--hue") == 0) {
            ok = parse_numbers(value, ',', 1, v);
            s.hueOffset = static_cast<float>(static_cast<double>(v[0]) * kPi / 180.0);
            s.flags |= RENDER_HUE_OFFSET;
        } else if (std::strcmp(opt, "--saturation") == 0) {
            ok = parse_numbers(value, ',', 1, &s.saturation);
            s.flags |= RENDER_SATURATION;
        } else if (std::strcmp(opt, "--colorize") == 0) {
            ok = parse_numbers(value, ',', 3, s.color);
            s.flags |= RENDER_COLORIZE;
        } else if (std::strcmp(opt, "--amount") == 0) {
            ok = parse_numbers(value, ',', 1, &s.colorAmount);
            amount_given = true;
        } else if (std::strcmp(opt, "--black") == 0) {
            ok = parse_numbers(value, ',', 1, &s.blackLevel);
        } else if (std::strcmp(opt, "--out-min") == 0) {
            ok = parse_numbers(value, ',', 1, &s.outputMin);
        } else if (std::strcmp(opt, "--out-max") == 0) {
            ok = parse_numbers(value, ',', 1, &s.outputMax);
        } else {
            bool known = false;
            for (int c = 0; c < 3; ++c) {
                if (std::strcmp(opt, kComponents[c].option) != 0) continue;
                known = true;
                ok = parse_numbers(value, ':', 4, v);
                s.inputMinRGB[c] = v[0];
                s.inputMaxRGB[c] = v[1];
                s.outputMinRGB[c] = v[2];
                s.outputMaxRGB[c] = v[3];
                s.flags |= kComponents[c].bit | RENDER_LEVELS_INPUT | RENDER_LEVELS_OUTPUT;
            }
            if (!known) return usage_error("adjust", "unknown option", opt);
        }
        if (!ok) return usage_error("adjust", "cannot read the value of", opt);
    }
    if (!amount_given) s.colorAmount = 1.0f;
    return 0;
}

}  // namespace

int vexor_adjust(int argc, char **argv) {
    if (argc < 3 || argv[1][0] == '-' || argv[2][0] == '-') {
        std::fputs("vexor adjust: give the picture to read and the one to write\n", stderr);
        return kExitUsage;
    }
    if (image_io::format_for_path(argv[2]) == image_io::Format::unknown) {
        return usage_error("adjust", "the picture to write must end in .png or .exr:", argv[2]);
    }
    RenderOutputSettings settings;
    RenderOutputSettingsInit(&settings);
    if (const int status = parse(argc, argv, settings); status != 0) return status;

    image_io::Image image;
    std::string error;
    if (!image_io::read_image(argv[1], image, error)) {
        std::fprintf(stderr, "vexor adjust: %s\n", error.c_str());
        return 1;
    }
    // The operations work on RGB: grey pictures become colour ones; alpha is kept as it was.
    const std::size_t count =
        static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height);
    const bool alpha = image.channels == 2 || image.channels == 4;
    const auto in_channels = static_cast<std::size_t>(image.channels);
    std::vector<float> rgb(count * 3);
    for (std::size_t i = 0; i < count; ++i) {
        const float *px = image.samples.data() + i * in_channels;
        for (std::size_t c = 0; c < 3; ++c) rgb[i * 3 + c] = in_channels >= 3 ? px[c] : px[0];
    }
    RenderOutputSettings prepared;
    RenderOutputPrepare(&settings, &prepared);
    const auto start = std::chrono::steady_clock::now();
    RenderOutputApplyImage(&settings, rgb.data(), rgb.data(), count);
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();

    image_io::Image result;
    result.resize(image.width, image.height, alpha ? 4 : 3);
    for (std::size_t i = 0; i < count; ++i) {
        float *px = result.samples.data() + i * static_cast<std::size_t>(result.channels);
        std::memcpy(px, &rgb[i * 3], 3 * sizeof(float));
        if (alpha) px[3] = image.samples[i * in_channels + in_channels - 1];
    }
    if (!image_io::write_image(argv[2], result, error)) {
        std::fprintf(stderr, "vexor adjust: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s: %d x %d\n", argv[1], image.width, image.height);
    std::printf("  hue and saturation: %s\n", variant_name(RenderHueSatPixelFunc(&prepared)));
    std::printf("  output levels:      %s\n", variant_name(RenderOutputLevelPixelFunc(&prepared)));
    std::printf("  %.1f ms for %zu pixels; written to %s\n", ms, count, argv[2]);
    return 0;
}
