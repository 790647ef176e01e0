// The blend modes against their formulas, and the image forms against the per-pixel ones.
#include <gtest/gtest.h>

#include <vexor/blend.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

// The formulas as the mode table states them, branch by branch. `guard` is the "divide" zero
// guard of the colour and scalar functions.
template <class T>
T expected_b(int mode, T x, T y, bool guard) {
    switch (mode) {
        case 0:
            return y;
        case 1:
            return x + y;
        case 2:
            return x - y;
        case 3:
            return std::abs(x - y);
        case 4:
            return std::sqrt(std::abs(x * y));
        case 5:
            if (guard && x == 0 && y == 0) return 0;
            return ((y + 1) / (x + 1) - T(0.5)) / T(1.5);
        case 6:
            return x * y;
        case 7:
            return 1 - (1 - x) * (1 - y);
        case 8:
            return x < T(0.5) ? x * y : 1 - 2 * (1 - x) * (1 - y);
        case 9:
            if (y < T(0.5)) return 2 * x * y + x * x * (1 - 2 * y);
            if (x >= 0) return std::sqrt(x) * (2 * y - 1) + 2 * x * (1 - y);
            return 0;
        case 10:
            return y < T(0.5) ? x * y : 1 - 2 * (1 - x) * (1 - y);
        case 11:
            return std::min(x, y);
        case 12:
            return std::max(x, y);
        case 13:
            if (x >= 1) return 1;
            if (x == 0) return 0;
            if (y >= 1) return 1;
            return std::min(T(1), x / (1 - y));
        case 14:
            if (x >= 1) return 1;
            if (y == 0) return 0;
            return std::max(T(0), 1 - (1 - x) / y);
        default:
            return 0;
    }
}

// Equal to rounding, or both NaN (divide at x = -1 and softlight's roots may give NaN).
::testing::AssertionResult same_value(const char *, const char *, double got, double want) {
    if (std::isnan(want)
            ? std::isnan(got)
            : got == want || std::abs(got - want) <= 1e-6 * std::max(1.0, std::abs(want))) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << got << " where " << want << " was expected";
}
#define EXPECT_SAME(got, want) EXPECT_PRED_FORMAT2(same_value, got, want)

constexpr float kValues[] = {-1.0f, -0.25f, 0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 1.5f};
constexpr float kOpacities[] = {0.0f, 0.5f, 1.0f, -0.5f};

TEST(Blend, NamesAndCount) {
    const char *names[] = {"normal",    "add",      "subtract", "difference", "normal multiply",
                           "divide",    "multiply", "screen",   "overlay",    "softlight",
                           "hardlight", "darken",   "lighten",  "colordodge", "colorburn"};
    ASSERT_EQ(TextureLayerBlendCount(), 15);
    for (int m = 0; m < 15; ++m) {
        EXPECT_STREQ(TextureLayerBlendName(m), names[m]);
        EXPECT_EQ(TextureLayerBlendLookup(names[m]), m);
    }
    EXPECT_EQ(TextureLayerBlendName(15), nullptr);
    EXPECT_EQ(TextureLayerBlendName(-1), nullptr);
    EXPECT_EQ(TextureLayerBlendLookup("burn"), -1);
}

TEST(Blend, ColorAndScalarFollowTheFormulas) {
    for (int mode = 0; mode < 16; ++mode) {  // 15 blends towards 0
        for (float x : kValues) {
            for (float y : kValues) {
                for (float o : kOpacities) {
                    const float b = expected_b(mode, x, y, true);
                    const float want = mode == 0 ? x + (y - x) * o : x * (1 - o) + o * b;
                    const float base[3] = {x, y, x}, layer[3] = {y, x, y};
                    float out[3];
                    ColorBlendValue(out, base, layer, o, mode);
                    const float swapped = mode == 0
                                              ? y + (x - y) * o
                                              : y * (1 - o) + o * expected_b(mode, y, x, true);
                    SCOPED_TRACE(::testing::Message()
                                 << "mode " << mode << " x " << x << " y " << y << " o " << o);
                    EXPECT_SAME(ScalarBlendValue(x, y, o, mode), want);
                    EXPECT_SAME(out[0], want);
                    EXPECT_SAME(out[1], swapped);
                    EXPECT_SAME(out[2], want);
                }
            }
        }
    }
}

TEST(Blend, TextureLayerValuesFollowTheFormulas) {
    for (int mode = 0; mode < 15; ++mode) {
        for (double x : kValues) {
            for (double y : kValues) {
                for (double a : {0.0, 0.5, 1.0}) {
                    for (double f : {0.5, 1.0}) {
                        const TextureLayerValue v = {y, a, {y, x, y}};
                        double color[4] = {x, y, x, 0.25};
                        double scalar = x;
                        TextureLayerBlendValue(&v, color, 1, mode, f);
                        TextureLayerBlendValue(&v, &scalar, 0, mode, f);
                        SCOPED_TRACE(::testing::Message() << "mode " << mode << " x " << x << " y "
                                                          << y << " a " << a << " f " << f);
                        if (mode == 0 && a == 1 && f == 1) {
                            EXPECT_EQ(color[0], y);
                            EXPECT_EQ(color[3], 1.0);
                            EXPECT_EQ(scalar, y);
                            continue;
                        }
                        const double w = a * f;
                        EXPECT_SAME(scalar, x * (1 - w) + w * expected_b(mode, x, y, false));
                        EXPECT_SAME(color[1], y * (1 - w) + w * expected_b(mode, y, x, false));
                        EXPECT_SAME(color[3], 1 - 0.75 * (1 - w));
                    }
                }
            }
        }
    }
}

// The zero guards, the roots and the bounds of the modes are on the grids above; a NaN is not
// zero, and a mode far out of range blends towards 0 like the first one past the end.
TEST(Blend, NaNAndUnknownModes) {
    EXPECT_TRUE(std::isnan(ScalarBlendValue(0, NAN, 1, 5)));
    EXPECT_EQ(ScalarBlendValue(0.8f, 0.3f, 0.5f, 99), 0.4f);
}

// Pixels that reach every branch: the grid values, both zeros, NaN and infinities.
std::vector<float> test_pixels(std::size_t count, unsigned seed) {
    const float specials[] = {0.0f, -0.0f, 1.0f, 0.5f, NAN, INFINITY, -INFINITY, 2.0f, -3.0f};
    std::vector<float> v(count);
    for (std::size_t i = 0; i < count; ++i) {
        seed = seed * 1664525u + 1013904223u;
        v[i] = (seed >> 28) < 4 ? specials[(seed >> 8) % std::size(specials)]
                                : static_cast<float>(seed >> 8) / 8388608.0f - 0.25f;
    }
    return v;
}

bool same_bits(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

TEST(Blend, ImageFormsAgreeWithThePerPixelFunctionsBitForBit) {
    const std::size_t width = 37, height = 3;  // rows whose float count leaves a tail
    for (int channels : {3, 4}) {
        const std::size_t n = width * height * static_cast<std::size_t>(channels);
        const std::vector<float> base = test_pixels(n, 1), layer = test_pixels(n, 2);
        for (int mode = 0; mode < 15; ++mode) {
            std::vector<float> out(n), in_place = base;
            ASSERT_EQ(ColorBlendImage(out.data(), 0, base.data(), 0, layer.data(), 0, width, height,
                                      channels, 0.625f, mode),
                      1);
            ASSERT_EQ(ColorBlendRow(in_place.data(), in_place.data(), layer.data(), width * height,
                                    channels, 0.625f, mode),
                      1);
            int wrong = 0;
            for (std::size_t p = 0; p < width * height; ++p) {
                const std::size_t at = p * static_cast<std::size_t>(channels);
                const float o = channels == 4 ? 0.625f * layer[at + 3] : 0.625f;
                float expect[4];
                ColorBlendValue(expect, &base[at], &layer[at], o, mode);
                if (channels == 4) expect[3] = base[at + 3] + (1.0f - base[at + 3]) * o;
                for (std::size_t c = 0; c < static_cast<std::size_t>(channels); ++c) {
                    wrong += !same_bits(out[at + c], expect[c]) ? 1 : 0;
                    wrong += !same_bits(in_place[at + c], expect[c]) ? 1 : 0;
                }
            }
            EXPECT_EQ(wrong, 0) << "mode " << mode << ", " << channels << " channels";
        }
    }
    float pixel[3] = {};
    EXPECT_EQ(ColorBlendRow(pixel, pixel, pixel, 1, 2, 1, 0), 0);
    EXPECT_EQ(ColorBlendRow(pixel, pixel, pixel, 1, 3, 1, 15), 0);
}

}  // namespace
