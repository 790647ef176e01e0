// Shading vectors: a level cycle (push, write three 12-byte packets, pop) on a vector of the
// whole "sample" category, and GVCopy of such a vector against a memcpy of the same bytes.
#include <benchmark/benchmark.h>

#include <vexor/svec.h>

#include <cstring>
#include <vector>

namespace {

struct Fixture {
    Fixture() {
        SVecStartup();
        type = VTypeAllocate("sample");
        VTypeAddCategoryPackets(type);
        a = GVCreate(type, nullptr, 1);
        b = GVCreate(type, nullptr, 1);
    }
    ~Fixture() {
        GVDestroy(a);
        GVDestroy(b);
        VTypeFree(type);
        SVecShutdown();
    }
    VType *type;
    GVector *a;
    GVector *b;
};

void BM_PushWriteThreePop(benchmark::State &state) {
    Fixture f;
    const unsigned packets[3] = {VPacketOffset("sample", "shade.diffuse"),
                                 VPacketOffset("sample", "shade.specular"),
                                 VPacketOffset("sample", "shade.mirror")};
    float value = 0.0f;
    for (auto _ : state) {
        GVPush(f.a);
        for (unsigned index : packets) {
            auto *c = static_cast<VPColor *>(GVPacket(f.a, index, GV_WRITE));
            c->rgb[0] = c->rgb[1] = c->rgb[2] = value;
        }
        benchmark::DoNotOptimize(GVPacket(f.a, packets[0], GV_READ));
        GVPop(f.a);
        value += 1.0f;
    }
}
BENCHMARK(BM_PushWriteThreePop);

void BM_GVCopy(benchmark::State &state) {
    Fixture f;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GVCopy(f.b, f.a));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * VTypeSize(f.type));
}
BENCHMARK(BM_GVCopy);

void BM_MemcpySameBytes(benchmark::State &state) {
    Fixture f;
    const std::size_t bytes = VTypeSize(f.type);
    std::vector<unsigned char> from(bytes, 1), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}
BENCHMARK(BM_MemcpySameBytes);

}  // namespace

BENCHMARK_MAIN();
