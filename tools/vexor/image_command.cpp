// `vexor image info FILE...`: a picture's format, size, channels and the range of each channel.
// `vexor image convert IN OUT`: a PNG or EXR picture written again as PNG or EXR.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "bounds.h"
#include "image_io.h"

namespace {

const char *channel_name(int channels, int c) {
    static const char *const names[4][4] = {
        {"Y"}, {"Y", "A"}, {"R", "G", "B"}, {"R", "G", "B", "A"}};
    return names[channels - 1][c];
}

int info(int argc, char **argv) {
    if (argc < 3) {
        std::fputs("vexor image info: give one or more picture files\n", stderr);
        return kExitUsage;
    }
    int status = 0;
    for (int i = 2; i < argc; ++i) {
        image_io::Image image;
        std::string error;
        if (!image_io::read_image(argv[i], image, error)) {
            std::fprintf(stderr, "vexor image info: %s\n", error.c_str());
            status = 1;
            continue;
        }
        std::printf("%s: %s, %d x %d, %d channel%s\n", argv[i],
                    image_io::format_name(image_io::format_of_file(argv[i])), image.width,
                    image.height, image.channels, image.channels == 1 ? "" : "s");
        for (int c = 0; c < image.channels; ++c) {
            float low = INFINITY, high = -INFINITY;
            double sum = 0.0;
            std::size_t non_finite = 0;
            for (std::size_t s = static_cast<std::size_t>(c); s < image.samples.size();
                 s += static_cast<std::size_t>(image.channels)) {
                const float v = image.samples[s];
                if (!std::isfinite(v)) {
                    ++non_finite;
                    continue;
                }
                low = std::min(low, v);
                high = std::max(high, v);
                sum += static_cast<double>(v);
            }
            const std::size_t count =
                image.samples.size() / static_cast<std::size_t>(image.channels);
            const std::size_t finite = count - non_finite;
            std::printf("  %-2s min %.6g  max %.6g  mean %.6g", channel_name(image.channels, c),
                        finite != 0 ? static_cast<double>(low) : 0.0,
                        finite != 0 ? static_cast<double>(high) : 0.0,
                        finite != 0 ? sum / static_cast<double>(finite) : 0.0);
            if (non_finite != 0) std::printf("  (%zu not finite)", non_finite);
            std::putchar('\n');
        }
    }
    return status;
}

int convert(int argc, char **argv) {
    if (argc != 4) {
        std::fputs("vexor image convert: give the picture to read and the one to write\n", stderr);
        return kExitUsage;
    }
    if (image_io::format_for_path(argv[3]) == image_io::Format::unknown) {
        std::fprintf(stderr, "vexor image convert: '%s' must end in .png or .exr\n", argv[3]);
        return kExitUsage;
    }
    image_io::Image image;
    std::string error;
    if (!image_io::read_image(argv[2], image, error) ||
        !image_io::write_image(argv[3], image, error)) {
        std::fprintf(stderr, "vexor image convert: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s (%d x %d, %d channels) written to %s\n", argv[2], image.width, image.height,
                image.channels, argv[3]);
    return 0;
}

}  // namespace

int vexor_image(int argc, char **argv) {
    if (argc >= 2 && std::strcmp(argv[1], "info") == 0) return info(argc, argv);
    if (argc >= 2 && std::strcmp(argv[1], "convert") == 0) return convert(argc, argv);
    std::fprintf(stderr, "vexor image: say 'info' or 'convert'%s%s\n", argc >= 2 ? ", not " : "",
                 argc >= 2 ? argv[1] : "");
    return kExitUsage;
}
