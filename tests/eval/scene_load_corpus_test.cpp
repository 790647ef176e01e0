// Replays the scene-load fuzz corpus as ordinary tests: every seed keeps the properties the
// fuzz target checks, and the named seeds load or are refused as their names say.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vexor/log.h>
#include <vexor/undo.h>

#include "fuzz/scene_load_check.h"
#include "support/fuzz_corpus.h"

namespace vx::test {
namespace {

std::vector<Seed> corpus() {
    return fuzz_corpus("scene_load");
}

void quiet_sink(void *, int, const char *, const char *) {}

// The session the fuzz target loads in.
class SceneLoadCorpus : public ::testing::Test {
  protected:
    void SetUp() override {
        VxLogSetSink(quiet_sink, nullptr);
        UndoSysStartup();
        CinemaStartup();
        fuzz::define_scene_packages();
    }
    void TearDown() override {
        CinemaShutdown();
        UndoSysShutdown();
        VxLogSetSink(nullptr, nullptr);
    }
};

TEST_F(SceneLoadCorpus, EverySeedKeepsTheFuzzTargetsProperties) {
    const std::vector<Seed> seeds = corpus();
    EXPECT_GE(seeds.size(), 12u) << "the corpus went missing";
    for (const Seed &seed : seeds) {
        const char *broken = fuzz::check_scene_load(seed.bytes.data(), seed.bytes.size());
        EXPECT_EQ(broken, nullptr) << seed.name << ": " << broken;
    }
}

TEST_F(SceneLoadCorpus, ValidSeedsLoadAndCorruptSeedsAreRefused) {
    int valid = 0;
    int corrupt = 0;
    for (const Seed &seed : corpus()) {
        const bool expect_valid = seed.name.rfind("valid_", 0) == 0;
        if (!expect_valid && seed.name.rfind("corrupt_", 0) != 0) continue;
        (expect_valid ? valid : corrupt)++;
        Cinema *scene = fuzz::load_from_memory(seed.bytes.data(), seed.bytes.size(), 0);
        EXPECT_EQ(scene != nullptr, expect_valid) << seed.name << ": " << VxLastFailure().text;
        CinemaDestroy(scene);
    }
    EXPECT_GE(valid, 4);
    EXPECT_GE(corrupt, 8);
}

}  // namespace
}  // namespace vx::test
