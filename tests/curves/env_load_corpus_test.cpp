// Replays the envelope-load fuzz corpus as ordinary tests: every input the fuzzer was seeded
// with keeps the properties the fuzz target checks, and the named seeds load or are refused
// as their names say.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vexor/block.h>
#include <vexor/env.h>
#include <vexor/env_io.h>
#include <vexor/log.h>

#include "fuzz/env_load_check.h"
#include "support/fuzz_corpus.h"

namespace vx::test {
namespace {

std::vector<Seed> corpus() {
    return fuzz_corpus("env_load");
}

// Malformed seeds log failure lines; keep them out of the test output.
void quiet_sink(void *, int, const char *, const char *) {}

class EnvLoadCorpus : public ::testing::Test {
  protected:
    void SetUp() override { VxLogSetSink(quiet_sink, nullptr); }
    void TearDown() override { VxLogSetSink(nullptr, nullptr); }
};

TEST_F(EnvLoadCorpus, EverySeedKeepsTheFuzzTargetsProperties) {
    const std::vector<Seed> seeds = corpus();
    EXPECT_GE(seeds.size(), 10u) << "the corpus went missing";
    for (const Seed &seed : seeds) {
        const char *broken = fuzz::check_env_load(seed.bytes.data(), seed.bytes.size());
        EXPECT_EQ(broken, nullptr) << seed.name << ": " << broken;
    }
}

TEST_F(EnvLoadCorpus, ValidSeedsLoadAndCorruptSeedsAreRefused) {
    int valid = 0;
    int corrupt = 0;
    for (const Seed &seed : corpus()) {
        const bool expect_valid = seed.name.rfind("valid_", 0) == 0;
        if (!expect_valid && seed.name.rfind("corrupt_", 0) != 0) continue;
        (expect_valid ? valid : corrupt)++;
        Envelope *env = EnvCreate(nullptr);
        BlkReader *r = BlkReaderOpenMemory(seed.bytes.data(), seed.bytes.size());
        const int loaded = r != nullptr ? EnvLoad(env, r) : 0;
        EXPECT_EQ(loaded, expect_valid ? 1 : 0) << seed.name;
        BlkReaderClose(r);
        EnvDestroyNoUndo(env);
    }
    EXPECT_GE(valid, 5);
    EXPECT_GE(corrupt, 5);
}

}  // namespace
}  // namespace vx::test
