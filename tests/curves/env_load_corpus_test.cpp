// Replays the envelope-load fuzz corpus as ordinary tests: every input the fuzzer was seeded
// with keeps the properties the fuzz target checks, and the named seeds load or are refused
// as their names say.

#include <vexor/block.h>
#include <vexor/env_io.h>

#include "env_fixture.h"
#include "fuzz/env_load_check.h"
#include "support/fuzz_corpus.h"

namespace vx::test {
namespace {

// Malformed seeds log failure lines; the capture keeps them out of the test output.
TEST(EnvLoadCorpus, EverySeedKeepsTheFuzzTargetsProperties) {
    LogCapture quiet;
    expect_seeds_keep_properties("env_load", 10, fuzz::check_env_load);
}

TEST(EnvLoadCorpus, ValidSeedsLoadAndCorruptSeedsAreRefused) {
    LogCapture quiet;
    expect_seeds_load_as_named("env_load", 5, 5, [](const std::vector<unsigned char> &bytes) {
        Envelope *env = EnvCreate(nullptr);
        BlkReader *r = BlkReaderOpenMemory(bytes.data(), bytes.size());
        const int loaded = r != nullptr ? EnvLoad(env, r) : 0;
        BlkReaderClose(r);
        EnvDestroyNoUndo(env);
        return loaded == 1;
    });
}

}  // namespace
}  // namespace vx::test
