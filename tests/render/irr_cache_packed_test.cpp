// A cache that is only read for a while is packed for reading: the packed walk must answer as
// the descent through the pointers does, drop the packing on every change, and be made once
// when several threads read at the same time.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include <vexor/irr_cache.h>

#include "render/irr_cache.h"

namespace {

struct PackedTest : ::testing::Test {
    void SetUp() override {
        fill(6.0f);
        IrrCacheSetPass(nullptr, 1, 0.1f, 10.0f, 1.5f);
    }
    // Values of both lists with radii from small to `largest` (a few), over several top cells;
    // queries of both lists near them.
    void fill(float largest) {
        IrrCacheDestroy(cache);
        IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
        cache = IrrCacheCreate();
        const float zero[3] = {0, 0, 0};
        for (int i = 0; i < 3000; ++i) {
            const float p[3] = {next(-8, 8), next(-8, 8), next(-0.3f, 0.3f)};
            const float n[3] = {next(-0.1f, 0.1f), 0, 1};
            const float irr[3] = {next(0, 1), 0.5f, 0.5f};
            const float r = next(0.05f, i % 97 == 0 ? largest : 1.0f);
            ASSERT_EQ(IrrCacheStoreValue(cache, p, n, irr, irr, zero, zero, r, i % 3 == 0), 1);
        }
        queries.clear();
        for (int i = 0; i < 500; ++i) {
            IrrCacheQuery q{};
            q.position[0] = next(-9, 9), q.position[1] = next(-9, 9);
            q.position[2] = next(-0.3f, 0.3f);
            q.normal[0] = next(-0.1f, 0.1f), q.normal[2] = 1.0f;
            q.footprint = next(0.5f, 2.0f);
            q.flags = i % 2 == 0 ? IRR_QUERY_SECOND_LIST : 0u;
            queries.push_back(q);
        }
    }
    void TearDown() override {
        IrrCacheDestroy(cache);
        IrrCacheSetPass(nullptr, 0, 0.0f, 1000.0f, 1.0f);
    }
    float next(float lo, float hi) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        return lo + (hi - lo) * static_cast<float>(seed >> 40) / 16777216.0f;
    }
    std::vector<IrrCacheQuery> gathered() const {
        std::vector<IrrCacheQuery> out = queries;
        for (IrrCacheQuery &q : out) IrrCacheGather(cache, &q);
        return out;
    }
    // Until it is packed, and at least once more.
    void read_until_packed() const {
        while (!cache->packed) gathered();
        gathered();
    }
    static void expect_same(const std::vector<IrrCacheQuery> &a,
                            const std::vector<IrrCacheQuery> &b) {
        ASSERT_EQ(a.size(), b.size());
        unsigned found = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            // The same values, added up in another order.
            ASSERT_EQ(a[i].count, b[i].count) << "query " << i;
            ASSERT_NEAR(a[i].weight, b[i].weight, 1e-5f * (1.0f + a[i].weight)) << "query " << i;
            ASSERT_NEAR(a[i].irradiance[0], b[i].irradiance[0], 1e-5f * (1.0f + a[i].weight));
            ASSERT_NEAR(a[i].weight2, b[i].weight2, 1e-5f * (1.0f + a[i].weight2));
            found += a[i].count;
        }
        EXPECT_GT(found, 200u);  // the queries meet values
    }

    IrrCache *cache = nullptr;
    std::uint64_t seed = 5;
    std::vector<IrrCacheQuery> queries;
};

TEST_F(PackedTest, PackedAnswersAreThoseOfThePointers) {
    // Small radii only (the walk starts at the first level holding values), a few large ones
    // (some top cells hold values themselves), and a minimum distance of several cells (too
    // many cells to look up: the walk starts from the top).
    for (const float largest : {1.0f, 6.0f}) {
        for (const float min_distance : {0.1f, 3.0f}) {
            fill(largest);
            IrrCacheSetPass(nullptr, 1, min_distance, 10.0f, 1.5f);
            const std::vector<IrrCacheQuery> before = gathered();
            ASSERT_FALSE(cache->packed) << "the first reads go through the pointers";
            read_until_packed();
            expect_same(before, gathered());
        }
    }
}

TEST_F(PackedTest, EveryChangeDropsThePacking) {
    const std::vector<IrrCacheQuery> before = gathered();
    read_until_packed();
    // A new value at a queried point: found at once, then again once packed anew.
    const float zero[3] = {0, 0, 0}, one[3] = {1, 1, 1};
    const IrrCacheQuery &at = queries[1];
    ASSERT_EQ(IrrCacheStoreValue(cache, at.position, at.normal, one, one, zero, zero, 0.5f, 0), 1);
    EXPECT_FALSE(cache->packed);
    IrrCacheSetPass(nullptr, 2, 0.1f, 10.0f, 1.5f);  // the new value (pass 1) is usable
    const std::vector<IrrCacheQuery> stored = gathered();
    EXPECT_GE(stored[1].count, before[1].count + 16);
    read_until_packed();
    expect_same(stored, gathered());

    // Resetting the passes makes values of the current pass usable to packed reads too.
    IrrCacheSetPass(nullptr, 1, 0.1f, 10.0f, 1.5f);
    const std::vector<IrrCacheQuery> hidden = gathered();
    IrrCacheResetPasses(cache);
    EXPECT_FALSE(cache->packed);
    const std::vector<IrrCacheQuery> reset = gathered();
    EXPECT_GE(reset[1].count, hidden[1].count + 16);
    read_until_packed();
    expect_same(reset, gathered());
}

TEST_F(PackedTest, ThreadsReadingAtOnceShareOnePacking) {
    const std::vector<IrrCacheQuery> expected = gathered();
    std::vector<std::vector<IrrCacheQuery>> answers(4);
    std::vector<std::thread> threads;
    for (auto &answer : answers) {
        threads.emplace_back([&] {
            for (int round = 0; round < 4; ++round) answer = gathered();
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_TRUE(cache->packed);
    for (const auto &answer : answers) expect_same(expected, answer);
}

}  // namespace
