// `vexor blend`: a picture of the fifteen blend modes. Each cell blends the same two ramps (a
// horizontal gradient of colours as the base, a vertical one as the layer) by one mode, with
// the mode's name written under it, so every mode can be seen at once.
#include <vexor/blend.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bounds.h"
#include "image_io.h"

namespace {

constexpr int kColumns = 5;
constexpr int kLabelHeight = 16;
constexpr int kGap = 4;

// A 5 x 7 pixel font for the letters of the mode names; each row's low five bits, left to
// right from bit 4.
struct Glyph {
    char c;
    unsigned char rows[7];
};
constexpr Glyph kGlyphs[] = {
    {'a', {0x00, 0x00, 0x0E, 0x01, 0x0F, 0x11, 0x0F}},
    {'b', {0x10, 0x10, 0x1E, 0x11, 0x11, 0x11, 0x1E}},
    {'c', {0x00, 0x00, 0x0F, 0x10, 0x10, 0x10, 0x0F}},
    {'d', {0x01, 0x01, 0x0F, 0x11, 0x11, 0x11, 0x0F}},
    {'e', {0x00, 0x00, 0x0E, 0x11, 0x1F, 0x10, 0x0E}},
    {'f', {0x06, 0x08, 0x1E, 0x08, 0x08, 0x08, 0x08}},
    {'g', {0x00, 0x0F, 0x11, 0x11, 0x0F, 0x01, 0x0E}},
    {'h', {0x10, 0x10, 0x1E, 0x11, 0x11, 0x11, 0x11}},
    {'i', {0x04, 0x00, 0x0C, 0x04, 0x04, 0x04, 0x0E}},
    {'k', {0x10, 0x10, 0x12, 0x14, 0x18, 0x14, 0x12}},
    {'l', {0x0C, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'m', {0x00, 0x00, 0x1A, 0x15, 0x15, 0x15, 0x15}},
    {'n', {0x00, 0x00, 0x1E, 0x11, 0x11, 0x11, 0x11}},
    {'o', {0x00, 0x00, 0x0E, 0x11, 0x11, 0x11, 0x0E}},
    {'p', {0x00, 0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10}},
    {'r', {0x00, 0x00, 0x16, 0x19, 0x10, 0x10, 0x10}},
    {'s', {0x00, 0x00, 0x0F, 0x10, 0x0E, 0x01, 0x1E}},
    {'t', {0x08, 0x08, 0x1E, 0x08, 0x08, 0x09, 0x06}},
    {'u', {0x00, 0x00, 0x11, 0x11, 0x11, 0x13, 0x0D}},
    {'v', {0x00, 0x00, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'y', {0x00, 0x11, 0x11, 0x11, 0x0F, 0x01, 0x0E}},
};

const Glyph *glyph(char c) {
    for (const Glyph &g : kGlyphs) {
        if (g.c == c) return &g;
    }
    return nullptr;  // blanks and anything else leave a gap
}

// Writes text in white, centred on (cx, top), one glyph cell 6 pixels wide.
void draw_text(image_io::Image &image, const char *text, int cx, int top) {
    const int width = static_cast<int>(std::strlen(text)) * 6 - 1;
    int x = cx - width / 2;
    for (const char *c = text; *c != '\0'; ++c, x += 6) {
        const Glyph *g = glyph(*c);
        for (int row = 0; g != nullptr && row < 7; ++row) {
            for (int col = 0; col < 5; ++col) {
                if ((g->rows[row] >> (4 - col) & 1) == 0) continue;
                const int px = x + col, py = top + row;
                if (px < 0 || py < 0 || px >= image.width || py >= image.height) continue;
                float *p = image.pixel(px, py);
                p[0] = p[1] = p[2] = 1.0f;
            }
        }
    }
}

// The base: a horizontal ramp from deep blue through magenta to warm yellow. The layer: a
// vertical ramp from bright cyan to dark red. Both stay within 0 to 1 and cross 0.5, so the
// halves of "overlay", "hardlight" and "softlight" all show.
void ramps(int size, std::vector<float> &base, std::vector<float> &layer) {
    const auto n = static_cast<std::size_t>(size);
    base = std::vector<float>(n * n * 3);
    layer = std::vector<float>(n * n * 3);
    for (int y = 0; y < size; ++y) {
        const float v = static_cast<float>(y) / static_cast<float>(size - 1);
        for (int x = 0; x < size; ++x) {
            const float u = static_cast<float>(x) / static_cast<float>(size - 1);
            const std::size_t at =
                (static_cast<std::size_t>(y) * n + static_cast<std::size_t>(x)) * 3;
            base[at] = u;
            base[at + 1] = u * u;
            base[at + 2] = 1.0f - u * 0.8f;
            layer[at] = 0.1f + 0.8f * v;
            layer[at + 1] = 1.0f - v;
            layer[at + 2] = 0.9f * (1.0f - v) * (1.0f - v);
        }
    }
}

bool parse_number(const char *text, double low, double high, double &out) {
    char *end = nullptr;
    const double v = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(v >= low && v <= high)) return false;
    out = v;
    return true;
}

}  // namespace

int vexor_blend(int argc, char **argv) {
    std::string path = "vexor-blend.png";
    double opacity = 1.0, cell = 160;
    for (int i = 1; i < argc; ++i) {
        const bool has_value = i + 1 < argc;
        if (std::strcmp(argv[i], "--png") == 0 && has_value) {
            path = argv[++i];
        } else if (std::strcmp(argv[i], "--opacity") == 0 && has_value) {
            if (!parse_number(argv[++i], -4.0, 4.0, opacity)) {
                std::fprintf(stderr, "vexor blend: --opacity takes a number from -4 to 4\n");
                return kExitUsage;
            }
        } else if (std::strcmp(argv[i], "--cell") == 0 && has_value) {
            if (!parse_number(argv[++i], 32, 1024, cell)) {
                std::fprintf(stderr, "vexor blend: --cell takes a size from 32 to 1024 pixels\n");
                return kExitUsage;
            }
        } else {
            std::fprintf(stderr, "vexor blend: unknown argument '%s' (see vexor blend --help)\n",
                         argv[i]);
            return kExitUsage;
        }
    }
    if (image_io::format_for_path(path) != image_io::Format::png) {
        std::fprintf(stderr, "vexor blend: '%s' must end in .png\n", path.c_str());
        return kExitUsage;
    }

    const int size = static_cast<int>(cell);
    const int modes = TextureLayerBlendCount();
    const int rows = (modes + kColumns - 1) / kColumns;
    image_io::Image picture;
    if (!picture.resize(kColumns * (size + kGap) + kGap, rows * (size + kLabelHeight + kGap) + kGap,
                        3, 0.08f)) {
        std::fprintf(stderr, "vexor blend: the picture would be too large\n");
        return 1;
    }
    std::vector<float> base, layer,
        cell_pixels(static_cast<std::size_t>(size) * static_cast<std::size_t>(size) * 3);
    ramps(size, base, layer);
    const auto stride = static_cast<std::size_t>(picture.width) * 3;
    for (int mode = 0; mode < modes; ++mode) {
        const int left = kGap + (mode % kColumns) * (size + kGap);
        const int top = kGap + (mode / kColumns) * (size + kLabelHeight + kGap);
        // Straight into the picture: the cell's rows lie `stride` floats apart in it.
        ColorBlendImage(picture.pixel(left, top), stride, base.data(), 0, layer.data(), 0,
                        static_cast<std::size_t>(size), static_cast<std::size_t>(size), 3,
                        static_cast<float>(opacity), mode);
        draw_text(picture, TextureLayerBlendName(mode), left + size / 2, top + size + 5);
        const float *centre = picture.pixel(left + size / 2, top + size / 2);
        std::printf("%-16s centre %.3f %.3f %.3f\n", TextureLayerBlendName(mode),
                    static_cast<double>(centre[0]), static_cast<double>(centre[1]),
                    static_cast<double>(centre[2]));
    }
    std::string error;
    if (!image_io::write_png(path, picture, error)) {
        std::fprintf(stderr, "vexor blend: %s\n", error.c_str());
        return 1;
    }
    std::printf("wrote %s: %d modes, %d x %d pixels, opacity %g\n", path.c_str(), modes,
                picture.width, picture.height, opacity);
    return 0;
}
