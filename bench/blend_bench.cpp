// Blend modes over a pair of 4096 x 2160 RGBA float images, one benchmark per mode, and a
// memcpy of the same bytes as the floor. Bytes counted: one image per iteration.
#include <benchmark/benchmark.h>

#include <vexor/blend.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kWidth = 4096, kHeight = 2160, kChannels = 4;
constexpr std::size_t kFloats = kWidth * kHeight * kChannels;

struct Images {
    Images() : base(kFloats), layer(kFloats), out(kFloats) {
        for (std::size_t i = 0; i < kFloats; ++i) {
            base[i] = static_cast<float>(i % 1021) / 1020.0f;
            layer[i] = static_cast<float>((i * 7) % 1019) / 1018.0f;
        }
    }
    std::vector<float> base, layer, out;
};

Images &images() {
    static Images shared;
    return shared;
}

void BM_Blend(benchmark::State &state, int mode) {
    Images &im = images();
    for (auto _ : state) {
        ColorBlendImage(im.out.data(), 0, im.base.data(), 0, im.layer.data(), 0, kWidth, kHeight,
                        kChannels, 0.75f, mode);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFloats * sizeof(float)));
}

void BM_MemcpyFloor(benchmark::State &state) {
    Images &im = images();
    for (auto _ : state) {
        std::memcpy(im.out.data(), im.base.data(), kFloats * sizeof(float));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFloats * sizeof(float)));
}

const bool registered = [] {
    benchmark::RegisterBenchmark("BM_MemcpyFloor", BM_MemcpyFloor)->Unit(benchmark::kMillisecond);
    for (int mode = 0; mode < TextureLayerBlendCount(); ++mode) {
        std::string name = std::string("BM_Blend/") + TextureLayerBlendName(mode);
        for (char &c : name) c = c == ' ' ? '_' : c;
        benchmark::RegisterBenchmark(name.c_str(), BM_Blend, mode)->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
