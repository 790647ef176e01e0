// Memory where it can go wrong: zero fill of reused memory, alignment, blocks that overlap or
// are handed out twice, growth that fails, leaks, and the shared pool under threads.
#include "foundation/foundation_fixture.h"

#include <vexor/memory.h>

#include "foundation/memory.h"

namespace vx {
namespace {

using test::live_blocks;

constexpr std::size_t kAlign = alignof(std::max_align_t);

bool all_zero(const void *block, std::size_t size) {
    const auto *bytes = static_cast<const unsigned char *>(block);
    return std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; });
}

bool aligned(const void *block) {
    return reinterpret_cast<std::uintptr_t>(block) % kAlign == 0;
}

TEST(StdAlloc, GivesZeroFilledBlocksEvenFromDirtyMemoryAndNullInCWhenOutOfMemory) {
    const std::int64_t baseline = live_blocks();
    for (std::size_t size : {std::size_t{1}, std::size_t{24}, std::size_t{4096}}) {
        for (int round = 0; round < 3; ++round) {  // the heap tends to hand back the same block
            void *block = StdAlloc(size);
            EXPECT_TRUE(all_zero(block, size)) << size;
            std::memset(block, 0xAB, size);
            FreeHeap(block, size);
        }
    }
    FreeHeap(nullptr, 8);
    {
        test::FailAllocation next(1);
        EXPECT_THROW(StdAlloc(16), std::bad_alloc);
    }
    {
        test::FailAllocation next(1);
        EXPECT_EQ(::StdAlloc(16), nullptr);
    }
    EXPECT_EQ(VxLastFailure().code, VX_E_NOMEMORY);
    EXPECT_EQ(live_blocks(), baseline);
}

TEST(BlockPool, RoundsTheBlockSizeUpToTheAlignmentAndRefusesUnusableSizes) {
    EXPECT_EQ(BlockPool(1).block_size(), kAlign);
    EXPECT_EQ(BlockPool(kAlign).block_size(), kAlign);
    EXPECT_EQ(BlockPool(kAlign + 1).block_size(), 2 * kAlign);
    EXPECT_THROW(BlockPool(0), Failure);
    EXPECT_THROW(BlockPool(SIZE_MAX), Failure);
    EXPECT_THROW(BlockPool(SIZE_MAX / 4, 16), Failure);  // the chunk size would overflow
    EXPECT_EQ(::BZCreate(0), nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
}

TEST(BlockPool, ManyBlocksAreAlignedZeroedDistinctAndReusedWithoutGrowth) {
    const std::int64_t baseline = live_blocks();
    {
        BlockPool pool(24);
        const std::size_t size = pool.block_size();
        std::vector<unsigned char *> blocks;
        for (int i = 0; i < 5000; ++i) {
            auto *block = static_cast<unsigned char *>(pool.alloc());
            ASSERT_TRUE(aligned(block));
            ASSERT_TRUE(all_zero(block, size));
            std::memset(block, i & 0xFF, size);  // an overlap would show as a changed byte
            blocks.push_back(block);
        }
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            const auto mark = static_cast<unsigned char>(i & 0xFF);
            ASSERT_EQ(blocks[i][0], mark);
            ASSERT_EQ(blocks[i][size - 1], mark);
        }
        EXPECT_EQ(pool.live(), 5000u);
        const std::size_t chunks = pool.chunks();
        EXPECT_LT(chunks, 5000u / 8) << "blocks should share chunks";

        pool.free(blocks[10]);
        pool.free(nullptr);
        EXPECT_EQ(pool.alloc(), blocks[10]) << "the last freed block is reused first";
        EXPECT_TRUE(all_zero(blocks[10], size)) << "a reused block is zeroed again";
        for (std::size_t i = 0; i < blocks.size(); i += 2) pool.free(blocks[i]);
        for (std::size_t i = 0; i < blocks.size(); i += 2) pool.alloc();
        EXPECT_EQ(pool.chunks(), chunks);
        EXPECT_EQ(pool.live(), 5000u);
    }  // blocks still handed out go with the pool
    EXPECT_EQ(live_blocks(), baseline);
}

TEST(BlockPool, GrowthThatRunsOutOfMemoryLeavesThePoolUsable) {
    BlockPool pool(32, 2);
    void *a = pool.alloc();
    pool.alloc();
    {
        test::FailAllocation next(1);
        EXPECT_THROW(pool.alloc(), std::bad_alloc);
    }
    EXPECT_EQ(pool.live(), 2u);
    EXPECT_EQ(pool.chunks(), 1u);
    EXPECT_NE(pool.alloc(), nullptr);
    EXPECT_EQ(pool.chunks(), 2u);
    const std::uint64_t before = test::thread_allocations();
    pool.free(a);
    EXPECT_EQ(pool.alloc(), a);
    EXPECT_EQ(test::thread_allocations(), before) << "a block from a chunk needs no memory";
}

TEST(BlockPool, TheSharedPoolHandsNoBlockToTwoThreadsAtOnce) {
    BlockPoolMT pool(48, 16);
    std::atomic<int> damaged{0};
    std::atomic<int> ready{0};
    auto work = [&](unsigned char mark) {
        ++ready;
        while (ready < 2) std::this_thread::yield();  // start together, to contend
        unsigned char *mine[8];
        for (int round = 0; round < 20000; ++round) {
            for (auto &block : mine) {
                block = static_cast<unsigned char *>(pool.alloc());
                if (!all_zero(block, pool.block_size())) ++damaged;
                std::memset(block, mark, pool.block_size());
            }
            for (unsigned char *block : mine) {
                if (block[0] != mark || block[pool.block_size() - 1] != mark) ++damaged;
                pool.free(block);
            }
        }
    };
    std::thread one(work, 0x11), two(work, 0x22);
    one.join();
    two.join();
    EXPECT_EQ(damaged, 0);
    EXPECT_EQ(pool.live(), 0u);
    EXPECT_LE(pool.chunks(), 2u) << "freed blocks were not reused";
}

TEST(BlockZone, EitherKindCountsItsBlocksAndFreesThemAllWithTheZone) {
    const std::int64_t baseline = live_blocks();
    for (BlockZone *zone : {::BZCreate(20), ::BZCreateMT(20)}) {
        void *a = BZAlloc(zone);
        void *b = BZAlloc(zone);
        EXPECT_TRUE(aligned(b));
        EXPECT_TRUE(all_zero(a, 20));
        BZFree(zone, a);
        EXPECT_EQ(BZLive(zone), 1u);
        {
            test::FailAllocation all(1, test::FailMode::from_then_on);
            std::size_t handed = BZLive(zone);
            while (BZAlloc(zone) != nullptr) ASSERT_LT(++handed, 10000u);  // the chunk runs out
            EXPECT_EQ(BZLive(zone), handed);
        }
        BZDestroy(zone);  // with the blocks still handed out
    }
    EXPECT_EQ(BZLive(nullptr), 0u);
    EXPECT_EQ(BZAlloc(nullptr), nullptr);
    for (std::uint64_t nth = 1; nth <= 3; ++nth) {
        test::FailAllocation fail_nth(nth);
        BZDestroy(::BZCreateMT(64));  // null when a step of making it failed
    }
    EXPECT_EQ(live_blocks(), baseline);
}

}  // namespace
}  // namespace vx
