// Replays the irradiance-cache-load fuzz corpus as ordinary tests.
#include <gtest/gtest.h>

#include <vector>

#include <vexor/irr_cache.h>

#include "fuzz/irr_cache_load_check.h"
#include "support/fuzz_corpus.h"

namespace vx::test {
namespace {

TEST(IrrCacheLoadCorpus, EverySeedKeepsTheFuzzTargetsProperties) {
    expect_seeds_keep_properties("irr_cache_load", 12, fuzz::check_irr_cache_load);
}

TEST(IrrCacheLoadCorpus, ValidSeedsLoadAndCorruptSeedsAreRefused) {
    expect_seeds_load_as_named("irr_cache_load", 4, 8, [](const std::vector<unsigned char> &bytes) {
        IrrCache *cache = IrrCacheCreate();
        const bool loaded = IrrCacheLoadMemory(cache, bytes.data(), bytes.size()) == 1;
        IrrCacheDestroy(cache);
        return loaded;
    });
}

}  // namespace
}  // namespace vx::test
