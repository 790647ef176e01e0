// The irradiance cache: the gather's tests one by one, passes, blocks and memory, estimates,
// the file in both versions and every way it can be damaged, and radiance maps.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/irr_cache.h>

namespace {

constexpr float kUp[3] = {0, 0, 1};
constexpr float kZero[3] = {0, 0, 0};
constexpr float kGrey[3] = {0.5f, 0.5f, 0.5f};

struct CacheTest : ::testing::Test {
    void SetUp() override {
        cache = IrrCacheCreate();
        IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
        IrrCacheSetLock(0);
    }
    void TearDown() override {
        IrrCacheDestroy(cache);
        IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
        IrrCacheSetLock(0);
    }
    // Values of the second list, and queries of it, unless a test says otherwise: the first
    // list hides the values of the current pass.
    int store(const float p[3], float radius, int kind = 1, const float *n = kUp,
              const float *irr = kGrey, const float *grad = kZero) {
        return IrrCacheStoreValue(cache, p, n, irr, irr, grad, grad, radius, kind);
    }
    IrrCacheQuery query(float x, float y, float z, unsigned flags = IRR_QUERY_SECOND_LIST,
                        const float *n = kUp) {
        IrrCacheQuery q{};
        q.position[0] = x, q.position[1] = y, q.position[2] = z;
        std::memcpy(q.normal, n, sizeof q.normal);
        q.footprint = 1.0f;
        q.flags = flags;
        q.wanted = 1;
        IrrCacheGather(cache, &q);
        return q;
    }
    IrrCache *cache = nullptr;
};

std::vector<unsigned char> saved(const IrrCache *cache) {
    const std::string path = ::testing::TempDir() + "irr-cache-test.vxi";
    EXPECT_EQ(IrrCacheSave(cache, path.c_str()), 1);
    std::FILE *f = std::fopen(path.c_str(), "rb");
    std::vector<unsigned char> bytes;
    for (int c; (c = std::fgetc(f)) != EOF;) bytes.push_back(static_cast<unsigned char>(c));
    std::fclose(f);
    return bytes;
}

void put(std::vector<unsigned char> &b, std::uint32_t w) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(w >> (8 * i)));
}
void put(std::vector<unsigned char> &b, float f) {
    std::uint32_t w;
    std::memcpy(&w, &f, 4);
    put(b, w);
}

// ---- The gather ----

TEST_F(CacheTest, TheRadiusIsStrictAndTheAcceptanceRadiusIsClamped) {
    const float origin[3] = {0, 0, 0};
    ASSERT_EQ(store(origin, 2.0f), 1);  // accepted within R x 0.5 = 1
    EXPECT_EQ(query(1.0f, 0, 0).count, 0u);
    EXPECT_EQ(query(0.999f, 0, 0).count, 1u);
    // The maximum distance (x footprint) shrinks it; the minimum grows it.
    IrrCacheSetPass(nullptr, 0, 0.0f, 0.25f, 2.0f);  // maximum 0.5
    EXPECT_EQ(query(0.6f, 0, 0).count, 0u);
    EXPECT_EQ(query(0.4f, 0, 0).count, 1u);
    IrrCacheSetPass(nullptr, 0, 1.5f, 10.0f, 1.0f);  // minimum 1.5
    EXPECT_EQ(query(1.4f, 0, 0).count, 1u);
}

TEST_F(CacheTest, NormalsMustLieInThePassesCone) {
    const float origin[3] = {0, 0, 0};
    const double a = 15.0 * 3.14159265358979 / 180.0;
    const float tilted[3] = {static_cast<float>(std::sin(a)), 0, static_cast<float>(std::cos(a))};
    ASSERT_EQ(store(origin, 2.0f, 1, tilted), 1);
    EXPECT_EQ(query(0, 0, 0).count, 16u);  // pass 0: a 20 degree cone
    IrrCacheSetPass(nullptr, 1, 0.0f, 1000.0f, 1.0f);
    EXPECT_EQ(query(0, 0, 0).count, 0u);  // later passes: 10 degrees
    const float down[3] = {0, 0, -1};
    IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
    EXPECT_EQ(query(0, 0, 0, IRR_QUERY_SECOND_LIST, down).count, 0u);
}

TEST_F(CacheTest, ThePlaneTestAndTheCountOfCoincidentValues) {
    const float origin[3] = {0, 0, 0}, near[3] = {0.5f, 0, 0};
    ASSERT_EQ(store(origin, 4.0f), 1);
    ASSERT_EQ(store(near, 4.0f), 1);
    // Above the values' plane by more than min(footprint 1, 0.75 R 3): rejected.
    EXPECT_EQ(query(0.25f, 0, 1.01f).count, 0u);
    EXPECT_EQ(query(0.25f, 0, 0.99f).count, 2u);
    // A value closer than 0.0001 counts 16.
    EXPECT_EQ(query(0.00005f, 0, 0).count, 17u);
}

TEST_F(CacheTest, WeightsFollowDistanceAndGradients) {
    const float origin[3] = {0, 0, 0}, grad[3] = {1, 0, 0};
    ASSERT_EQ(store(origin, 2.0f, 1, kUp, kGrey, grad), 1);
    IrrCacheQuery q = query(0.5f, 0, 0);  // e = 0.5 / 1
    EXPECT_FLOAT_EQ(q.weight, 0.5f);
    EXPECT_FLOAT_EQ(q.irradiance[0], 0.25f);
    const unsigned with_gradients = IRR_QUERY_SECOND_LIST | IRR_QUERY_GRADIENTS;
    q = query(0.5f, 0, 0, with_gradients);  // g = 0.5 (not beyond R/2 = 1)
    EXPECT_FLOAT_EQ(q.weight, 0.25f);
    q = query(-0.9f, 0, 0, with_gradients);  // g = -0.9, |g| = 0.9
    EXPECT_NEAR(q.weight, 0.1f * 0.1f, 1e-6);
}

TEST_F(CacheTest, ValuesOfTheCurrentPassAreSkippedInTheFirstListOnly) {
    const float origin[3] = {0, 0, 0};
    IrrCacheSetPass(nullptr, 3, 0.0f, 1000.0f, 1.0f);
    ASSERT_EQ(store(origin, 2.0f, 0), 1);
    ASSERT_EQ(store(origin, 2.0f, 1), 1);
    EXPECT_EQ(query(0.1f, 0, 0, 0).count, 0u);
    EXPECT_EQ(query(0.1f, 0, 0).count, 1u);
    IrrCacheSetPass(nullptr, 4, 0.0f, 1000.0f, 1.0f);
    EXPECT_EQ(query(0.1f, 0, 0, 0).count, 1u);
    IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
    EXPECT_EQ(query(0.1f, 0, 0, 0).count, 1u);
    IrrCacheResetPasses(cache);  // everything counts as pass 0 now
    EXPECT_EQ(query(0.1f, 0, 0, 0).count, 0u);
    EXPECT_EQ(IrrCachePass(), 0);
}

TEST_F(CacheTest, EveryValueIsFoundWhereverTheOctreePutIt) {
    // Values of many sizes far apart grow and deepen the octree; each is found from its own
    // point and from the edge of its reach, and only there.
    std::vector<std::array<float, 4>> values;
    for (int i = 0; i < 300; ++i) {
        const float r = 0.01f * static_cast<float>(1 + i % 50);
        const float p = static_cast<float>(i) * 1.37f - 150.0f;
        values.push_back({p, std::fmod(p * 7.0f, 13.0f), 0.0f, r});
        ASSERT_EQ(store(values.back().data(), r), 1);
    }
    for (const auto &v : values) {
        EXPECT_GE(query(v[0], v[1], 0).count, 16u);
        EXPECT_GE(query(v[0] + 0.49f * v[3], v[1], 0).count, 1u);
    }
    EXPECT_EQ(IrrCacheNumValues(cache), 300u);
}

// The gather's answer from every stored value, one at a time: the octree's margins cover every
// value's acceptance radius, so its descent and pruning must find exactly these.
IrrCacheQuery every_value(const std::vector<IrrCacheValue> &all, IrrCacheQuery q, int pass,
                          float cosine, float low, float high, float scale) {
    const int kind = (q.flags & IRR_QUERY_SECOND_LIST) != 0 ? 1 : 0;
    for (const IrrCacheValue &v : all) {
        float d[3], d2 = 0, dot = 0, plane = 0;
        for (int c = 0; c < 3; ++c) {
            d[c] = q.position[c] - v.position[c];
            d2 += d[c] * d[c], dot += q.normal[c] * v.normal[c], plane += d[c] * v.normal[c];
        }
        const float accept = std::min(std::max(v.radius * 0.5f * scale, low), high);
        if (v.kind != kind || !(d2 < accept * accept) ||
            (kind == 0 && static_cast<int>(v.pass) == pass) || !(dot > cosine) ||
            !(std::fabs(plane) <= std::min(q.footprint, 0.75f * v.radius))) {
            continue;
        }
        const float dist = std::sqrt(d2);
        const float e = std::max(dist / accept,
                                 std::sqrt(std::max(0.0f, 1.0f - dot)) / std::sqrt(1.0f - cosine));
        if (1.0f - e <= 0.0f) continue;
        q.weight += 1.0f - e;
        q.count += dist < 0.0001f ? 16 : 1;
    }
    return q;
}

TEST_F(CacheTest, TheDescentFindsWhatEveryValueTestedAloneWouldGive) {
    struct Setting {
        int pass;
        float min_distance, max_distance, scale;
        unsigned flags;
    };
    const Setting settings[] = {{1, 0.0f, 10.0f, 1.0f, IRR_QUERY_SECOND_LIST},
                                {0, 0.0f, 10.0f, 1.0f, 0},
                                {1, 0.3f, 10.0f, 1.5f, IRR_QUERY_SECOND_LIST},
                                {2, 0.0f, 0.4f, 0.5f, 0}};
    std::uint64_t seed = 11;
    const auto next = [&seed](float lo, float hi) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        return lo + (hi - lo) * static_cast<float>(seed >> 40) / 16777216.0f;
    };
    for (int i = 0; i < 3000; ++i) {
        const float p[3] = {next(-8, 8), next(-8, 8), next(-0.3f, 0.3f)};
        const float n[3] = {next(-0.1f, 0.1f), 0, 1};
        if (i == 1000) IrrCacheSetPass(nullptr, 1, 0.0f, 1000.0f, 1.0f);
        ASSERT_EQ(store(p, next(0.05f, i % 97 == 0 ? 6.0f : 1.0f), i % 3 == 0 ? 1 : 0, n), 1);
    }
    std::vector<IrrCacheValue> all;
    IrrCacheForEachValue(
        cache,
        [](void *to, const IrrCacheValue *v) {
            static_cast<std::vector<IrrCacheValue> *>(to)->push_back(*v);
        },
        &all);
    for (const Setting &s : settings) {
        unsigned found = 0;
        IrrCacheSetPass(nullptr, s.pass, s.min_distance, s.max_distance, s.scale);
        const float cosine = s.pass != 0 ? 0.984807753012208f : 0.9396926207859083f;
        for (int i = 0; i < 300; ++i) {
            const float n[3] = {next(-0.1f, 0.1f), 0, 1};
            IrrCacheQuery q = query(next(-9, 9), next(-9, 9), next(-0.3f, 0.3f), s.flags, n);
            IrrCacheQuery alone = q;
            alone.count = 0, alone.weight = 0;
            alone = every_value(all, alone, s.pass, cosine, s.min_distance * s.scale,
                                s.max_distance * s.scale, s.scale);
            ASSERT_EQ(q.count, alone.count) << "query " << i;
            ASSERT_NEAR(q.weight, alone.weight, 1e-4f * (1.0f + alone.weight)) << "query " << i;
            found += q.count;
        }
        EXPECT_GT(found, 50u);  // the queries meet values, not only empty space
    }
}

// ---- Blocks, nodes and memory ----

TEST_F(CacheTest, BlocksFillBeforeNewOnesAreCarvedAndMemoryIsCounted) {
    EXPECT_EQ(IrrCacheMemoryUsage(cache), 0u);
    const float origin[3] = {0.1f, 0.1f, 0.1f};
    ASSERT_EQ(store(origin, 0.5f, 0), 1);  // stays in a top node
    EXPECT_EQ(IrrCacheNumNodes(cache), 1u);
    EXPECT_EQ(IrrCacheNumMults(cache), 1u);
    EXPECT_EQ(IrrCacheMemoryUsage(cache), 440u);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(store(origin, 0.5f, 0), 1);
    EXPECT_EQ(IrrCacheNumMults(cache), 2u);  // four in the first block, the fifth in a second
    ASSERT_EQ(store(origin, 0.5f, 1), 1);    // the second list has blocks of its own
    EXPECT_EQ(IrrCacheNumMults(cache), 3u);
    EXPECT_EQ(IrrCacheNumValues(cache), 6u);
    EXPECT_EQ(IrrCacheMemoryUsage(cache), 320u * 3 + 120u);
    const float bad_radius[3] = {0, 0, 0}, far[3] = {2e12f, 0, 0};
    EXPECT_EQ(store(bad_radius, 0.0f), 0);
    EXPECT_EQ(store(bad_radius, 1.0f, 2), 0);
    EXPECT_EQ(store(far, 1.0f), 0);
    EXPECT_EQ(IrrCacheNumValues(nullptr), 0u);
    EXPECT_EQ(IrrCacheMemoryUsage(nullptr), 0u);
}

// ---- Estimates ----

TEST_F(CacheTest, EstimatesStoreNewValuesUnlessLocked) {
    IrrCacheSkyScene sky = {{0.2f, 0.3f, 0.8f}, {1, 1, 0.9f}, {0, 0, 1}, 0.3f, 0.5f, 4.0f};
    IrrCacheQuery q{};
    q.position[2] = 0.0f;
    std::memcpy(q.normal, kUp, sizeof kUp);
    q.footprint = 1.0f;
    q.flags = IRR_QUERY_SECOND_LIST;
    q.wanted = 1;
    float e[3], e2[3];
    ASSERT_EQ(IrrCacheEstimateIrradiance(cache, &q, IrrCacheSkySampler, &sky, e, e2), 1);
    EXPECT_EQ(IrrCacheNumValues(cache), 1u);
    EXPECT_FLOAT_EQ(e[2], 0.8f);   // the whole sky, no ground
    EXPECT_FLOAT_EQ(e2[0], 1.0f);  // the sun overhead
    // Close by, the stored value answers.
    q.position[0] = 0.1f;
    ASSERT_EQ(IrrCacheEstimateIrradiance(cache, &q, IrrCacheSkySampler, &sky, e, e2), 1);
    EXPECT_EQ(IrrCacheNumValues(cache), 1u);
    EXPECT_FLOAT_EQ(e[2], 0.8f);
    // Far away and locked: no estimate, nothing stored.
    IrrCacheSetLock(1);
    q.position[0] = 50.0f;
    EXPECT_EQ(IrrCacheEstimateIrradiance(cache, &q, IrrCacheSkySampler, &sky, e, e2), 0);
    EXPECT_EQ(IrrCacheNumValues(cache), 1u);
    IrrCacheSetLock(0);
    // The new value's radius is limited to the maximum distance.
    IrrCacheSetPass(nullptr, 0, 0.0f, 0.25f, 1.0f);
    q.position[2] = 3.0f;
    ASSERT_EQ(IrrCacheEstimateIrradiance(cache, &q, IrrCacheSkySampler, &sky, e, e2), 1);
    IrrCacheQuery beside = query(50.2f, 0, 3.0f);  // within 0.25 but beyond R/2 = 0.125
    EXPECT_EQ(beside.count, 0u);
}

// ---- The file ----

TEST_F(CacheTest, SavedCachesLoadBackValueForValue) {
    const float a[3] = {1, 2, 3}, b[3] = {-4, 0.5f, 7}, n[3] = {0, 1, 0}, irr[3] = {1, 2, 3};
    ASSERT_EQ(store(a, 0.25f, 0, n, irr), 1);
    ASSERT_EQ(store(b, 1.5f), 1);
    const std::vector<unsigned char> bytes = saved(cache);
    ASSERT_EQ(bytes.size(), 16u + 2 * 80);
    EXPECT_EQ(std::memcmp(bytes.data(), "RIVK\1\0\0\0\0\0\0\0\2\0\0\0", 16), 0);
    IrrCache *copy = IrrCacheCreate();
    ASSERT_EQ(IrrCacheLoadMemory(copy, bytes.data(), bytes.size()), 1);
    EXPECT_EQ(saved(copy), bytes);
    // Loading adds to what a cache holds.
    ASSERT_EQ(IrrCacheLoadMemory(copy, bytes.data(), bytes.size()), 1);
    EXPECT_EQ(IrrCacheNumValues(copy), 4u);
    IrrCacheDestroy(copy);
    EXPECT_EQ(IrrCacheLoad(cache, "/nonexistent/cache.vxi"), 0);
    EXPECT_EQ(IrrCacheSave(nullptr, "x"), 0);
}

TEST_F(CacheTest, VersionZeroFilesHaveNoSecondIrradiance) {
    std::vector<unsigned char> file;
    for (std::uint32_t w : {0x4B564952u, 0u, 0u, 1u}) put(file, w);
    for (float f :
         {1.f, 2.f, 3.f, 0.f, 0.f, 1.f, 0.5f, 0.25f, 0.125f, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f, 2.f}) {
        put(file, f);
    }
    put(file, 1u);  // kind: 17 words in all
    ASSERT_EQ(IrrCacheLoadMemory(cache, file.data(), file.size()), 1);
    IrrCacheQuery q = query(1, 2, 3);
    EXPECT_FLOAT_EQ(q.irradiance2[1] / q.weight2, 0.25f);
    EXPECT_FLOAT_EQ(q.irradiance[2] / q.weight, 0.125f);
}

TEST_F(CacheTest, DamagedFilesAreRefusedWithTheCacheUnchanged) {
    const float a[3] = {1, 2, 3};
    ASSERT_EQ(store(a, 0.25f, 0), 1);
    ASSERT_EQ(store(a, 0.5f), 1);
    const std::vector<unsigned char> good = saved(cache);
    std::vector<std::vector<unsigned char>> damaged;
    for (std::size_t n = 0; n < good.size(); ++n)
        damaged.emplace_back(good.data(), good.data() + n);
    const auto patched = [&](std::size_t at, std::uint32_t word) {
        std::vector<unsigned char> b = good;
        for (int i = 0; i < 4; ++i)
            b[at + static_cast<std::size_t>(i)] = static_cast<unsigned char>(word >> (8 * i));
        damaged.push_back(b);
    };
    patched(0, 0x4B564953);  // magic
    patched(4, 2);           // version 2
    patched(12, 3);          // more values than bytes
    patched(12, 0xFFFFFFFF);
    patched(16, 0x7FC00000);           // a NaN position
    patched(16 + 4 * 6, 0x7F800000);   // an infinite irradiance
    patched(16 + 4 * 18, 0xBF800000);  // radius -1
    patched(16 + 4 * 19, 2);           // kind 2
    damaged.push_back(good);
    damaged.back().push_back(0);  // a byte left over
    for (const auto &bytes : damaged) {
        ASSERT_EQ(IrrCacheLoadMemory(cache, bytes.data(), bytes.size()), 0) << bytes.size();
        ASSERT_EQ(saved(cache), good);
    }
    EXPECT_EQ(IrrCacheNumValues(cache), 2u);
}

// ---- Radiance maps ----

TEST(RadMaps, DirectionsFindTheirCellsAndCellsAverageWhatWasAdded) {
    IrrCache *cache = IrrCacheCreate();
    RadMap *map = RadMapAddMap(cache, 16);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(RadMapAddMap(cache, 0), nullptr);
    for (unsigned u = 0; u < 16; ++u) {
        for (unsigned v = 0; v < 16; ++v) {
            float d[3];
            unsigned uu = 99, vv = 99;
            ASSERT_EQ(RadMapIndicesToDirection(map, u, v, d), 1);
            EXPECT_NEAR(d[0] * d[0] + d[1] * d[1] + d[2] * d[2], 1.0f, 1e-5);
            ASSERT_EQ(RadMapDirectionToIndices(map, d, &uu, &vv), 1);
            EXPECT_EQ(uu * 100 + vv, u * 100 + v);
        }
    }
    const float down[3] = {0.1f, -0.2f, -1.0f}, red[3] = {1, 0, 0}, blue[3] = {0, 0, 3};
    float out[3];
    ASSERT_EQ(RadMapGetRadiance(map, down, out), 1);
    EXPECT_EQ(out[0], 0.0f);
    RadMapAddRadiance(map, down, red);
    RadMapAddRadiance(map, down, blue);
    RadMapGetRadiance(map, down, out);
    EXPECT_FLOAT_EQ(out[0], 0.5f);
    EXPECT_FLOAT_EQ(out[2], 1.5f);
    const float none[3] = {0, 0, 0};
    EXPECT_EQ(RadMapAddRadiance(map, none, red), 0);
    RadMapClear(map);
    RadMapGetRadiance(map, down, out);
    EXPECT_EQ(out[2], 0.0f);
    RadMap *own = RadMapAddMap(nullptr, 4);
    RadMapFree(own);
    RadMapFree(map);  // kept by the cache: ignored
    IrrCacheDestroy(cache);
}

}  // namespace
