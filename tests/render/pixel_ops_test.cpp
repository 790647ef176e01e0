// The render output pixel operations against the formulas they implement (written here again
// the plain way, in double), their edge cases, and the image form against the per-pixel form,
// bit for bit, with every kernel table the processor can run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <vexor/color.h>
#include <vexor/render_output.h>

#include "render/pixel_ops.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

// ---- The formulas, the plain way ----

struct Rgb {
    double r, g, b;
};

void ref_rgb_to_hsv(const Rgb &c, double &h, double &s, double &v) {
    const double mx = std::max({c.r, c.g, c.b});
    const double mn = std::min({c.r, c.g, c.b});
    const double d = mx - mn;
    double sixths = 0.0;
    if (d > 0.0) {
        if (mx == c.r) {
            sixths = std::fmod((c.g - c.b) / d + 6.0, 6.0);
        } else if (mx == c.g) {
            sixths = (c.b - c.r) / d + 2.0;
        } else {
            sixths = (c.r - c.g) / d + 4.0;
        }
    }
    h = sixths * kTwoPi / 6.0;
    s = mx > 0.0 ? d / mx : 0.0;
    v = mx;
}

Rgb ref_hsv_to_rgb(double h, double s, double v) {
    double sixths = std::fmod(h / (kTwoPi / 6.0), 6.0);
    if (sixths < 0.0) sixths += 6.0;
    const int sector = static_cast<int>(std::floor(sixths)) % 6;
    const double f = sixths - std::floor(sixths);
    const double p = v * (1.0 - s), q = v * (1.0 - s * f), t = v * (1.0 - s * (1.0 - f));
    switch (sector) {
        case 0:
            return {v, t, p};
        case 1:
            return {q, v, p};
        case 2:
            return {p, v, t};
        case 3:
            return {p, q, v};
        case 4:
            return {t, p, v};
        default:
            return {v, p, q};
    }
}

// The settings in double, for the formulas.
struct Ref {
    double hue, sat, amount, color[3], black, low, high, in_min[3], in_max[3], out_min[3],
        out_max[3];
    explicit Ref(const RenderOutputSettings &s)
        : hue(s.hueOffset),
          sat(s.saturation),
          amount(s.colorAmount),
          black(s.blackLevel),
          low(s.outputMin),
          high(s.outputMax) {
        for (int i = 0; i < 3; ++i) {
            color[i] = s.color[i];
            in_min[i] = s.inputMinRGB[i];
            in_max[i] = s.inputMaxRGB[i];
            out_min[i] = s.outputMinRGB[i];
            out_max[i] = s.outputMaxRGB[i];
        }
    }
};

Rgb ref_hue_sat(const Ref &st, bool hue, bool sat, bool col, Rgb c) {
    if (hue || sat) {
        double h, s, v;
        ref_rgb_to_hsv(c, h, s, v);
        if (hue) {
            h += st.hue;
            if (h < 0.0) h += kTwoPi;
            if (h > kTwoPi) h -= kTwoPi;
        }
        if (sat) {
            s *= st.sat;
            if (s > 1.0) {
                v *= s;
                s = 1.0;
            }
        }
        c = ref_hsv_to_rgb(h, s, v);
    }
    if (col) {
        c.r += st.amount * (st.color[0] - c.r);
        c.g += st.amount * (st.color[1] - c.g);
        c.b += st.amount * (st.color[2] - c.b);
    }
    return c;
}

double luma(const Rgb &c) {
    return 0.3 * c.r + 0.59 * c.g + 0.11 * c.b;
}

Rgb ref_levels(const Ref &st, bool bw, bool comp, Rgb c) {
    if (bw) {
        const double l = luma(c);
        if (l == 0.0) {
            c = {st.low, st.low, st.low};
        } else {
            const double k =
                (st.low + (l - st.black) / std::max(1.0 - st.black, 1e-5) * (st.high - st.low)) / l;
            c = {c.r * k, c.g * k, c.b * k};
        }
    }
    if (comp) {
        const double l = luma(c);
        double *v[3] = {&c.r, &c.g, &c.b};
        for (int i = 0; i < 3; ++i) {
            const double lo = st.out_min[i];
            *v[i] = (*v[i] == 0.0 || l == 0.0)
                        ? lo
                        : lo + (*v[i] - st.in_min[i]) /
                                   std::max(st.in_max[i] - st.in_min[i], 1e-4) *
                                   (st.out_max[i] - lo);
        }
    }
    return c;
}

// ---- Settings and pixels ----

RenderOutputSettings neutral() {
    RenderOutputSettings s;
    RenderOutputSettingsInit(&s);
    return s;
}

RenderOutputSettings busy(std::mt19937 &rng) {
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    RenderOutputSettings s = neutral();
    s.hueOffset = (unit(rng) - 0.5f) * 12.0f;
    s.saturation = unit(rng) * 2.5f;
    s.colorAmount = unit(rng);
    for (int i = 0; i < 3; ++i) {
        s.color[i] = unit(rng) * 1.5f;
        s.inputMinRGB[i] = unit(rng) * 0.3f;
        s.inputMaxRGB[i] = 0.6f + unit(rng);
        s.outputMinRGB[i] = unit(rng) * 0.2f;
        s.outputMaxRGB[i] = 0.7f + unit(rng) * 0.5f;
    }
    s.blackLevel = unit(rng) * 0.4f;
    s.outputMin = unit(rng) * 0.2f;
    s.outputMax = 0.6f + unit(rng) * 0.6f;
    return s;
}

// In-gamut and HDR colours, greys, black, primaries, and a few that are not finite.
std::vector<float> pixels(std::size_t random_count, bool with_non_finite) {
    std::vector<float> p = {0, 0, 0, 1,    1,    1,    0.5f, 0.5f, 0.5f,  1,    0,
                            0, 0, 1, 0,    0,    0,    1,    1,    1,     0,    0,
                            1, 1, 3, 1.5f, 0.2f, 0.8f, 0.2f, 0.2f, -0.2f, 0.5f, 0.1f};
    if (with_non_finite) {
        const float nan = std::nanf(""), inf = INFINITY;
        p.insert(p.end(), {nan, 0.5f, 0.2f, inf, 0.1f, 0.1f, 0.2f, -inf, 0.0f});
    }
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (std::size_t i = 0; i < random_count * 3; ++i)
        p.push_back(unit(rng) * (i % 7 == 0 ? 4.0f : 1.0f));
    return p;
}

bool same_bits(const float *a, const float *b, std::size_t n) {
    return std::memcmp(a, b, n * sizeof(float)) == 0;
}

void expect_near_rgb(const float *got, const Rgb &want, const char *what) {
    const double w[3] = {want.r, want.g, want.b};
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(got[i], w[i], 2e-5 * std::max(1.0, std::fabs(w[i])))
            << what << " component " << i;
    }
}

// ---- The variants ----

struct HueSatCase {
    const char *name;
    RenderPixelFunc fn;
    bool hue, sat, col;
};

const HueSatCase kHueSat[] = {
    {"NOP", RenderHueSatPixelColor_NOP, false, false, false},
    {"HueOffset", RenderHueSatPixelColor_HueOffset, true, false, false},
    {"Saturation", RenderHueSatPixelColor_Saturation, false, true, false},
    {"Colorization", RenderHueSatPixelColor_Colorization, false, false, true},
    {"HueOffset_Saturation", RenderHueSatPixelColor_HueOffset_Saturation, true, true, false},
    {"HueOffset_Colorization", RenderHueSatPixelColor_HueOffset_Colorization, true, false, true},
    {"Saturation_Colorization", RenderHueSatPixelColor_Saturation_Colorization, false, true, true},
    {"HueOffset_Saturation_Colorization", RenderHueSatPixelColor_HueOffset_Saturation_Colorization,
     true, true, true},
};

struct LevelCase {
    const char *name;
    RenderPixelFunc fn;
    bool bw, comp;
};

const LevelCase kLevels[] = {
    {"NOP", RenderOutputLevelPixelColor_NOP, false, false},
    {"BlackWhite", RenderOutputLevelPixelColor_BlackWhite, true, false},
    {"ComponentRGB", RenderOutputLevelPixelColor_ComponentRGB, false, true},
    {"BlackWhite_ComponentRGB", RenderOutputLevelPixelColor_BlackWhite_ComponentRGB, true, true},
};

unsigned hue_flags(const HueSatCase &c) {
    return (c.hue ? RENDER_HUE_OFFSET : 0u) | (c.sat ? RENDER_SATURATION : 0u) |
           (c.col ? RENDER_COLORIZE : 0u);
}

// ---- HSV ----

TEST(ColorHsv, KnownColoursAndExactRoundTrips) {
    struct Known {
        float rgb[3];
        double h, s, v;
    };
    const Known known[] = {
        {{1, 0, 0}, 0.0, 1.0, 1.0},
        {{0, 1, 0}, kTwoPi / 3, 1.0, 1.0},
        {{0, 0, 1}, 2 * kTwoPi / 3, 1.0, 1.0},
        {{1, 0, 1}, 5 * kTwoPi / 6, 1.0, 1.0},
        {{2, 1, 1}, 0.0, 0.5, 2.0},
        {{0.5f, 0.5f, 0.5f}, 0.0, 0.0, 0.5},
        {{0, 0, 0}, 0.0, 0.0, 0.0},
        {{-1, -2, -3}, kTwoPi / 12, 0.0, -1.0},
    };
    for (const Known &k : known) {
        double hsv[3];
        FColorRGBtoHSVHDR(k.rgb, hsv);
        EXPECT_NEAR(hsv[0], k.h, 1e-12);
        EXPECT_DOUBLE_EQ(hsv[1], k.s);
        EXPECT_DOUBLE_EQ(hsv[2], k.v);
        float back[3];
        FColorHSVtoRGBHDR(hsv, back);
        if (k.rgb[0] >= 0) {
            EXPECT_TRUE(same_bits(back, k.rgb, 3)) << k.rgb[0] << k.rgb[1] << k.rgb[2];
        }
    }
    // Every in-gamut colour comes back with the bits it had.
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int i = 0; i < 200000; ++i) {
        const float rgb[3] = {unit(rng), unit(rng), i % 5 == 0 ? 0.0f : unit(rng)};
        double hsv[3];
        float back[3];
        FColorRGBtoHSVHDR(rgb, hsv);
        FColorHSVtoRGBHDR(hsv, back);
        ASSERT_TRUE(same_bits(back, rgb, 3)) << rgb[0] << " " << rgb[1] << " " << rgb[2];
    }
}

TEST(ColorHsv, AnyHueIsTakenModuloATurn) {
    for (double h : {0.3, 2.0, 4.0, 6.0}) {
        float a[3], b[3], c[3];
        const double hsv[3] = {h, 0.7, 0.9}, turned[3] = {h + kTwoPi, 0.7, 0.9},
                     back[3] = {h - 3 * kTwoPi, 0.7, 0.9};
        FColorHSVtoRGBHDR(hsv, a);
        FColorHSVtoRGBHDR(turned, b);
        FColorHSVtoRGBHDR(back, c);
        const Rgb want = ref_hsv_to_rgb(h, 0.7, 0.9);
        expect_near_rgb(a, want, "hue");
        expect_near_rgb(b, want, "hue + 2pi");
        expect_near_rgb(c, want, "hue - 6pi");
    }
}

// ---- Every variant against its formula ----

// Each variant of a table over random settings and the test pixels, against the formula for
// the switches it stands for; float arithmetic against double, relative to the size of the
// terms.
template <class Variant, std::size_t N, class Formula>
void expect_variants_follow(const Variant (&variants)[N], unsigned seed, double tolerance,
                            Formula formula) {
    std::mt19937 rng(seed);
    const std::vector<float> px = pixels(300, false);
    for (int round = 0; round < 20; ++round) {
        const RenderOutputSettings s = busy(rng);
        for (const Variant &v : variants) {
            for (std::size_t i = 0; i < px.size(); i += 3) {
                float out[3];
                v.fn(&s, &px[i], out);
                const Rgb want = formula(Ref(s), v, Rgb{px[i], px[i + 1], px[i + 2]});
                const double w[3] = {want.r, want.g, want.b};
                for (int c = 0; c < 3; ++c) {
                    EXPECT_NEAR(out[c], w[c], tolerance * std::max(1.0, std::fabs(w[c])))
                        << v.name << " component " << c;
                }
            }
        }
    }
}

TEST(RenderPixelOps, EveryVariantFollowsTheFormulas) {
    expect_variants_follow(kHueSat, 11, 2e-5, [](const Ref &st, const HueSatCase &v, Rgb c) {
        return ref_hue_sat(st, v.hue, v.sat, v.col, c);
    });
    expect_variants_follow(kLevels, 13, 1e-4, [](const Ref &st, const LevelCase &v, Rgb c) {
        return ref_levels(st, v.bw, v.comp, c);
    });
}

// ---- Hue and saturation ----

TEST(RenderHueSat, TheGeneralFunctionAppliesTheVariantTheSwitchesCallFor) {
    std::mt19937 rng(5);
    const std::vector<float> px = pixels(50, true);
    RenderOutputSettings s = busy(rng);
    for (const HueSatCase &v : kHueSat) {
        s.flags = hue_flags(v);
        for (std::size_t i = 0; i < px.size(); i += 3) {
            float general[3], special[3];
            RenderHueSatPixelColor(&s, &px[i], general);
            v.fn(&s, &px[i], special);
            ASSERT_TRUE(same_bits(general, special, 3)) << v.name;
        }
        EXPECT_EQ(RenderHueSatPixelFunc(&s), v.fn);
    }
    // Off, or settings that would change nothing: the pixel is copied, whatever it holds.
    RenderOutputSettings off = s, idle = neutral();
    off.enable = 0;
    idle.flags = RENDER_HUE_OFFSET | RENDER_SATURATION | RENDER_COLORIZE;
    for (const RenderOutputSettings *copying : {&off, &idle}) {
        EXPECT_EQ(RenderHueSatPixelFunc(copying), &RenderHueSatPixelColor_NOP);
        for (std::size_t i = 0; i < px.size(); i += 3) {
            float out[3];
            RenderHueSatPixelColor(copying, &px[i], out);
            ASSERT_TRUE(same_bits(out, &px[i], 3));
        }
    }
}

TEST(RenderHueSat, EdgeCases) {
    RenderOutputSettings s = neutral();
    float out[3];
    // A full turn leaves the colour as it was (the hue wraps once).
    s.hueOffset = static_cast<float>(kTwoPi);
    const float orange[3] = {0.9f, 0.5f, 0.1f};
    RenderHueSatPixelColor_HueOffset(&s, orange, out);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(out[i], orange[i], 1e-6);
    // Red has hue 0: turned by (the float nearest) 2pi it wraps back to red.
    const float red[3] = {1, 0, 0};
    RenderHueSatPixelColor_HueOffset(&s, red, out);
    expect_near_rgb(out, {1, 0, 0}, "red turned a full turn");
    // A third of a turn back takes red to blue: the hue goes below 0 and wraps.
    s.hueOffset = static_cast<float>(-kTwoPi / 3);
    RenderHueSatPixelColor_HueOffset(&s, red, out);
    expect_near_rgb(out, {0, 0, 1}, "red turned back");
    // Saturation 0.75 doubled is 1.5: saturation 1 and the value times 1.5.
    s = neutral();
    s.saturation = 2.0f;
    const float pink[3] = {0.8f, 0.2f, 0.2f};
    RenderHueSatPixelColor_Saturation(&s, pink, out);
    double hsv[3];
    FColorRGBtoHSVHDR(out, hsv);
    EXPECT_NEAR(hsv[1], 1.0, 1e-7);
    EXPECT_NEAR(hsv[2], 0.8 * 1.5, 1e-6);
    expect_near_rgb(out, {1.2, 0, 0}, "saturated pink");
    // Full colorization gives the colour, half of it the mid point.
    s = neutral();
    s.colorAmount = 1.0f;
    s.color[0] = 0.25f, s.color[1] = 0.5f, s.color[2] = 2.0f;
    RenderHueSatPixelColor_Colorization(&s, pink, out);
    EXPECT_TRUE(same_bits(out, s.color, 3));
}

// ---- Levels ----

TEST(RenderLevels, BlackPixelsAndTheTwoFloors) {
    std::mt19937 rng(17);
    RenderOutputSettings s = busy(rng);
    const float black[3] = {0, 0, 0};
    float out[3];
    // Black becomes the output minimum: grey, per component, and the component mapping of the
    // grey minimum when both run.
    RenderOutputLevelPixelColor_BlackWhite(&s, black, out);
    for (float v : out) EXPECT_EQ(v, s.outputMin);
    RenderOutputLevelPixelColor_ComponentRGB(&s, black, out);
    EXPECT_TRUE(same_bits(out, s.outputMinRGB, 3));
    s.outputMin = 0.0f;
    RenderOutputLevelPixelColor_BlackWhite_ComponentRGB(&s, black, out);
    EXPECT_TRUE(same_bits(out, s.outputMinRGB, 3));
    RenderOutputLevelPixelColor_NOP(&s, black, out);
    EXPECT_TRUE(same_bits(out, black, 3));
    // A zero component alone takes its minimum; so does every component of a pixel of luma 0.
    const float no_green[3] = {0.5f, 0.0f, 0.5f};
    RenderOutputLevelPixelColor_ComponentRGB(&s, no_green, out);
    EXPECT_EQ(out[1], s.outputMinRGB[1]);
    EXPECT_NE(out[0], s.outputMinRGB[0]);
    const float zero_luma[3] = {0.59f, -0.3f, 0.0f};  // 0.3 * 0.59 - 0.59 * 0.3 is exactly 0
    RenderOutputLevelPixelColor_ComponentRGB(&s, zero_luma, out);
    EXPECT_TRUE(same_bits(out, s.outputMinRGB, 3));

    // Black level 1: the denominator is 1e-5, not 0.
    s = neutral();
    s.blackLevel = 1.0f;
    const float grey[3] = {0.5f, 0.5f, 0.5f};
    RenderOutputLevelPixelColor_BlackWhite(&s, grey, out);
    EXPECT_NEAR(static_cast<double>(out[0]), (0.5 - 1.0) / 1e-5, 0.5);
    // An empty input range: the denominator is 0.0001.
    s = neutral();
    s.inputMinRGB[0] = s.inputMaxRGB[0] = 0.25f;
    const float pixel[3] = {0.5f, 0.5f, 0.5f};
    RenderOutputLevelPixelColor_ComponentRGB(&s, pixel, out);
    EXPECT_NEAR(static_cast<double>(out[0]), 0.25 / 0.0001, 0.5);
}

TEST(RenderLevels, TheFlagBitsChooseWhichComponentsUseTheirOwnRanges) {
    std::mt19937 rng(19);
    const RenderOutputSettings base = busy(rng);
    const std::vector<float> px = pixels(40, true);
    struct Pairing {
        unsigned flags;
        bool own_input[3], own_output[3];
    };
    const Pairing pairings[] = {
        {0, {}, {}},
        {RENDER_LEVELS_RED, {}, {}},  // a component without its own ranges changes nothing
        {RENDER_LEVELS_RED | RENDER_LEVELS_INPUT, {true, false, false}, {}},
        {RENDER_LEVELS_GREEN | RENDER_LEVELS_OUTPUT, {}, {false, true, false}},
        {RENDER_LEVELS_RED | RENDER_LEVELS_GREEN | RENDER_LEVELS_BLUE | RENDER_LEVELS_INPUT |
             RENDER_LEVELS_OUTPUT,
         {true, true, true},
         {true, true, true}},
    };
    for (const Pairing &p : pairings) {
        for (bool bw : {false, true}) {
            RenderOutputSettings s = base;
            s.flags = p.flags;
            if (!bw) s.blackLevel = 0.0f, s.outputMin = 0.0f, s.outputMax = 1.0f;
            RenderOutputSettings prepared;
            RenderOutputPrepare(&s, &prepared);
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(prepared.inputMinRGB[i], p.own_input[i] ? s.inputMinRGB[i] : 0.0f);
                EXPECT_EQ(prepared.inputMaxRGB[i], p.own_input[i] ? s.inputMaxRGB[i] : 1.0f);
                EXPECT_EQ(prepared.outputMinRGB[i], p.own_output[i] ? s.outputMinRGB[i] : 0.0f);
                EXPECT_EQ(prepared.outputMaxRGB[i], p.own_output[i] ? s.outputMaxRGB[i] : 1.0f);
            }
            const bool comp = (p.flags & (RENDER_LEVELS_INPUT | RENDER_LEVELS_OUTPUT)) != 0;
            const RenderPixelFunc chosen = RenderOutputLevelPixelFunc(&prepared);
            EXPECT_EQ(chosen, kLevels[(bw ? 1 : 0) + (comp ? 2 : 0)].fn);
            for (std::size_t i = 0; i < px.size(); i += 3) {
                float general[3], special[3];
                RenderOutputLevelPixelColor(&s, &px[i], general);
                chosen(&prepared, &px[i], special);
                ASSERT_TRUE(same_bits(general, special, 3));
            }
        }
    }
    // The combined variant is the black-and-white mapping followed by the component mapping.
    for (std::size_t i = 0; i < px.size(); i += 3) {
        float both[3], first[3], second[3];
        RenderOutputLevelPixelColor_BlackWhite_ComponentRGB(&base, &px[i], both);
        RenderOutputLevelPixelColor_BlackWhite(&base, &px[i], first);
        RenderOutputLevelPixelColor_ComponentRGB(&base, first, second);
        ASSERT_TRUE(same_bits(both, second, 3));
    }
    RenderOutputSettings off = base;
    off.enable = 0;
    off.flags = ~0u;
    EXPECT_EQ(RenderOutputLevelPixelFunc(&off), &RenderOutputLevelPixelColor_NOP);
}

// ---- Whole images ----

TEST(RenderOutputImage, EveryKernelAgreesWithThePixelFunctionsBitForBit) {
    std::mt19937 rng(23);
    const std::vector<float> px = pixels(61, true);  // not a whole number of blocks
    const std::size_t count = px.size() / 3;
    for (const HueSatCase &h : kHueSat) {
        for (int levels = 0; levels < 4; ++levels) {
            RenderOutputSettings s = busy(rng);
            s.flags =
                hue_flags(h) | ((levels & 2) != 0 ? RENDER_LEVELS_RED | RENDER_LEVELS_BLUE |
                                                        RENDER_LEVELS_INPUT | RENDER_LEVELS_OUTPUT
                                                  : 0u);
            if ((levels & 1) == 0) s.blackLevel = 0.0f, s.outputMin = 0.0f, s.outputMax = 1.0f;
            std::vector<float> want(px.size());
            for (std::size_t i = 0; i < px.size(); i += 3) {
                RenderHueSatPixelColor(&s, &px[i], &want[i]);
                RenderOutputLevelPixelColor(&s, &want[i], &want[i]);
            }
            std::vector<float> got(px.size());
            RenderOutputApplyImage(&s, px.data(), got.data(), count);
            ASSERT_TRUE(same_bits(got.data(), want.data(), px.size())) << h.name << " " << levels;
            std::vector<float> in_place = px;
            RenderOutputApplyImage(&s, in_place.data(), in_place.data(), count);
            ASSERT_TRUE(same_bits(in_place.data(), want.data(), px.size()));
            const RenderOutputSettings prepared = vx::render::prepare(s);
            for (auto isa :
                 {vx::render::Isa::portable, vx::render::Isa::avx2, vx::render::Isa::avx512}) {
                std::vector<float> each(px.size(), -1.0f);
                if (!vx::render::apply_image_with(isa, prepared, px.data(), each.data(), count))
                    continue;
                ASSERT_TRUE(same_bits(each.data(), want.data(), px.size()))
                    << h.name << " " << levels << " kernels " << static_cast<int>(isa);
            }
        }
    }
    // No pixels: nothing is touched.
    float untouched[3] = {7, 7, 7};
    RenderOutputSettings s = busy(rng);
    s.flags = RENDER_SATURATION;
    RenderOutputApplyImage(&s, px.data(), untouched, 0);
    EXPECT_EQ(untouched[0], 7.0f);
}

}  // namespace
