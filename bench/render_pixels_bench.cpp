// Render output colour operations over a 4096 x 2160 float RGB image, every specialisation
// chosen once for the image, against memcpy of the same bytes as the floor. Throughput is in
// bytes per second of the image (read once, written once, as memcpy does), per second of the
// processor's time: the machines this runs on are shared, and wall time there measures the
// neighbours.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <vexor/render_output.h>

namespace {

constexpr std::size_t kWidth = 4096;
constexpr std::size_t kHeight = 2160;
constexpr std::size_t kPixels = kWidth * kHeight;
constexpr std::size_t kBytes = kPixels * 3 * sizeof(float);

// A frame of varied colours, some above 1, some black, the same on every run.
const std::vector<float> &source() {
    static const std::vector<float> image = [] {
        std::vector<float> pixels(kPixels * 3);
        std::uint32_t state = 12345;
        for (float &v : pixels) {
            state = state * 1664525u + 1013904223u;
            v = static_cast<float>(state >> 8) * (1.5f / 16777216.0f);
        }
        for (std::size_t i = 0; i < kPixels; i += 97)
            pixels[3 * i] = pixels[3 * i + 1] = pixels[3 * i + 2] = 0.0f;
        return pixels;
    }();
    return image;
}

struct Variant {
    const char *name;
    unsigned flags;
    bool black_white;
};

constexpr Variant kVariants[] = {
    {"HueOffset", RENDER_HUE_OFFSET, false},
    {"Saturation", RENDER_SATURATION, false},
    {"Colorization", RENDER_COLORIZE, false},
    {"HueOffset_Saturation", RENDER_HUE_OFFSET | RENDER_SATURATION, false},
    {"HueOffset_Colorization", RENDER_HUE_OFFSET | RENDER_COLORIZE, false},
    {"Saturation_Colorization", RENDER_SATURATION | RENDER_COLORIZE, false},
    {"HueOffset_Saturation_Colorization", RENDER_HUE_OFFSET | RENDER_SATURATION | RENDER_COLORIZE,
     false},
    {"Level_BlackWhite", 0, true},
    {"Level_ComponentRGB", RENDER_LEVELS_RED | RENDER_LEVELS_BLUE | RENDER_LEVELS_INPUT, false},
    {"Level_BlackWhite_ComponentRGB",
     RENDER_LEVELS_RED | RENDER_LEVELS_GREEN | RENDER_LEVELS_OUTPUT, true},
};

RenderOutputSettings settings_for(const Variant &variant) {
    RenderOutputSettings s;
    RenderOutputSettingsInit(&s);
    s.flags = variant.flags;
    s.hueOffset = 1.25f;
    s.saturation = 1.4f;
    s.colorAmount = 0.3f;
    s.color[0] = 0.9f;
    s.color[1] = 0.6f;
    s.color[2] = 0.2f;
    if (variant.black_white) {
        s.blackLevel = 0.05f;
        s.outputMin = 0.1f;
        s.outputMax = 0.9f;
    }
    for (int i = 0; i < 3; ++i) {
        s.inputMinRGB[i] = 0.1f * static_cast<float>(i);
        s.inputMaxRGB[i] = 1.2f;
        s.outputMinRGB[i] = 0.05f;
        s.outputMaxRGB[i] = 0.95f;
    }
    return s;
}

void BM_Memcpy(benchmark::State &state) {
    const std::vector<float> &in = source();
    std::vector<float> out(in.size());
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), kBytes);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kBytes));
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

void BM_Apply(benchmark::State &state, const Variant &variant) {
    const std::vector<float> &in = source();
    std::vector<float> out(in.size());
    const RenderOutputSettings s = settings_for(variant);
    for (auto _ : state) {
        RenderOutputApplyImage(&s, in.data(), out.data(), kPixels);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kBytes));
}

const bool kRegistered = [] {
    for (const Variant &variant : kVariants) {
        benchmark::RegisterBenchmark((std::string("BM_Apply/") + variant.name).c_str(), BM_Apply,
                                     variant)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
