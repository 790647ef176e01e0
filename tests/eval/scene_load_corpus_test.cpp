// Replays the scene-load fuzz corpus as ordinary tests: every seed keeps the properties the
// fuzz target checks, and the named seeds load or are refused as their names say.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vexor/failure.h>
#include <vexor/log.h>
#include <vexor/scene_io.h>
#include <vexor/undo.h>

#include "fuzz/scene_load_check.h"
#include "support/fuzz_corpus.h"
#include "support/log_lines.h"

namespace vx::test {
namespace {

// The session the fuzz target loads in.
class SceneLoadCorpus : public ::testing::Test {
  protected:
    void SetUp() override {
        quiet_log();
        UndoSysStartup();
        fuzz::start_session();
    }
    void TearDown() override {
        fuzz::stop_session();
        UndoSysShutdown();
        release_log();
    }
};

TEST_F(SceneLoadCorpus, EverySeedKeepsTheFuzzTargetsProperties) {
    expect_seeds_keep_properties("scene_load", 12, fuzz::check_scene_load);
}

TEST_F(SceneLoadCorpus, ValidSeedsLoadAndCorruptSeedsAreRefused) {
    expect_seeds_load_as_named("scene_load", 4, 8, [](const std::vector<unsigned char> &bytes) {
        Cinema *scene = fuzz::load_from_memory(bytes.data(), bytes.size(), 0);
        CinemaDestroy(scene);
        return scene != nullptr;
    });
}

// Seeds named "repaired_..." hold fields out of range: the rest of the scene loads, with the
// fields mended and reported; a strict load refuses them as damaged.
TEST_F(SceneLoadCorpus, RepairedSeedsLoadUnlessStrict) {
    int seen = 0;
    for (const Seed &seed : fuzz_corpus("scene_load")) {
        if (seed.name.rfind("repaired_", 0) != 0) continue;
        ++seen;
        Cinema *scene = fuzz::load_from_memory(seed.bytes.data(), seed.bytes.size(), 0);
        EXPECT_NE(scene, nullptr) << seed.name;
        CinemaDestroy(scene);
        EXPECT_EQ(fuzz::load_from_memory(seed.bytes.data(), seed.bytes.size(), CINEMA_LOAD_STRICT),
                  nullptr)
            << seed.name;
        EXPECT_EQ(VxLastFailure().code, VX_E_FAILED) << seed.name;
    }
    EXPECT_GE(seen, 2);
}

}  // namespace
}  // namespace vx::test
