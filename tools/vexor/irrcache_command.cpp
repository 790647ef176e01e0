// `vexor irrcache show FILE`: an irradiance cache file's header, its values and their bounds, and
// an SVG of the values seen from above, each a disc of its radius coloured by its irradiance.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/irr_cache.h>

#include "bounds.h"

namespace {

constexpr std::size_t kMostDrawn = 200000;  // bounded picture size for any file

struct Seen {
    std::vector<IrrCacheValue> values;
    unsigned kinds[2] = {0, 0};
};

void collect(void *client, const IrrCacheValue *value) {
    auto &seen = *static_cast<Seen *>(client);
    ++seen.kinds[value->kind != 0 ? 1 : 0];
    if (seen.values.size() < kMostDrawn) seen.values.push_back(*value);
}

int to_byte(float v) {
    // Irradiance is HDR: compressed so that 1 is nearly white.
    const float mapped = v > 0.0f ? v / (1.0f + v) * 1.6f : 0.0f;
    return static_cast<int>(std::lround(std::clamp(mapped, 0.0f, 1.0f) * 255.0f));
}

bool write_svg(const std::string &path, const Seen &seen, const float low[3], const float high[3]) {
    std::FILE *out = std::fopen(path.c_str(), "w");
    if (out == nullptr) return false;
    const float width = std::max(high[0] - low[0], 1e-6f),
                depth = std::max(high[1] - low[1], 1e-6f);
    const float side = 800.0f, scale = side / std::max(width, depth);
    std::fprintf(out,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                 "viewBox=\"-10 -10 %.0f %.0f\">\n<rect x=\"-10\" y=\"-10\" width=\"100%%\" "
                 "height=\"100%%\" fill=\"#202020\"/>\n",
                 static_cast<double>(width * scale + 20), static_cast<double>(depth * scale + 20),
                 static_cast<double>(width * scale + 20), static_cast<double>(depth * scale + 20));
    for (const IrrCacheValue &v : seen.values) {
        // Seen from above: x to the right, y up the page.
        std::fprintf(out,
                     "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"%.2f\" fill=\"rgb(%d,%d,%d)\" "
                     "fill-opacity=\"0.6\"%s/>\n",
                     static_cast<double>((v.position[0] - low[0]) * scale),
                     static_cast<double>((high[1] - v.position[1]) * scale),
                     static_cast<double>(std::max(v.radius * 0.5f * scale, 0.5f)),
                     to_byte(v.irradiance[0]), to_byte(v.irradiance[1]), to_byte(v.irradiance[2]),
                     v.kind != 0 ? " stroke=\"white\" stroke-width=\"0.5\"" : "");
    }
    std::fputs("</svg>\n", out);
    return std::fclose(out) == 0;
}

int show(int argc, char **argv) {
    std::string svg = "vexor-irrcache.svg";
    const char *file = nullptr;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--svg") == 0 && i + 1 < argc) {
            svg = argv[++i];
        } else if (argv[i][0] != '-' && file == nullptr) {
            file = argv[i];
        } else {
            std::fprintf(stderr, "vexor irrcache: unknown option or missing value for '%s'\n",
                         argv[i]);
            return kExitUsage;
        }
    }
    if (file == nullptr) {
        std::fputs("vexor irrcache show: give a cache file\n", stderr);
        return kExitUsage;
    }
    unsigned version = 0;  // the file's second little-endian word
    if (std::FILE *in = std::fopen(file, "rb")) {
        unsigned char head[8] = {};
        if (std::fread(head, 1, sizeof head, in) == sizeof head) {
            for (int i = 7; i >= 4; --i) version = version << 8u | head[i];
        }
        std::fclose(in);
    }
    IrrCache *cache = IrrCacheCreate();
    if (cache == nullptr || IrrCacheLoad(cache, file) == 0) {
        std::fprintf(stderr, "vexor irrcache: %s is not a readable irradiance cache file\n", file);
        IrrCacheDestroy(cache);
        return 1;
    }
    Seen seen;
    IrrCacheForEachValue(cache, collect, &seen);
    float low[3] = {0, 0, 0}, high[3] = {0, 0, 0}, rmin = 0, rmax = 0;
    for (std::size_t i = 0; i < seen.values.size(); ++i) {
        const IrrCacheValue &v = seen.values[i];
        for (int a = 0; a < 3; ++a) {
            low[a] = i == 0 ? v.position[a] : std::min(low[a], v.position[a]);
            high[a] = i == 0 ? v.position[a] : std::max(high[a], v.position[a]);
        }
        rmin = i == 0 ? v.radius : std::min(rmin, v.radius);
        rmax = i == 0 ? v.radius : std::max(rmax, v.radius);
    }
    std::printf("%s: irradiance cache, version %u\n", file, version);
    std::printf("  %u values: %u in the first list, %u in the second\n", IrrCacheNumValues(cache),
                seen.kinds[0], seen.kinds[1]);
    std::printf("  %u blocks, %u nodes, %zu bytes\n", IrrCacheNumMults(cache),
                IrrCacheNumNodes(cache), IrrCacheMemoryUsage(cache));
    if (!seen.values.empty()) {
        std::printf("  bounds (%g, %g, %g) to (%g, %g, %g), radii %g to %g\n",
                    static_cast<double>(low[0]), static_cast<double>(low[1]),
                    static_cast<double>(low[2]), static_cast<double>(high[0]),
                    static_cast<double>(high[1]), static_cast<double>(high[2]),
                    static_cast<double>(rmin), static_cast<double>(rmax));
    }
    IrrCacheDestroy(cache);
    if (!write_svg(svg, seen, low, high)) {
        std::fprintf(stderr, "vexor irrcache: cannot write %s\n", svg.c_str());
        return 1;
    }
    std::printf("  drawn from above to %s\n", svg.c_str());
    return 0;
}

}  // namespace

int vexor_irrcache(int argc, char **argv) {
    if (argc >= 2 && std::strcmp(argv[1], "show") == 0) return show(argc, argv);
    std::fputs("vexor irrcache: say 'show FILE'\n", stderr);
    return kExitUsage;
}
