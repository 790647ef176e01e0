// Logging where it can go wrong: channels switched by name, by "all" and by the VEXOR_DEBUG
// list, the level log, the exact failure line, long lines, allocation, and the sink under
// re-entry and threads.
#include "foundation/foundation_fixture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <ostream>

#include <vexor/log.h>

#include "foundation/log.h"

namespace vx::log {
namespace {

struct Line {
    int kind;
    std::string source;
    std::string text;
    bool operator==(const Line &) const = default;
};
using Lines = std::vector<Line>;

void PrintTo(const Line &line, std::ostream *out) {
    *out << "{" << line.kind << ", \"" << line.source << "\", \"" << line.text << "\"}";
}

struct Capture {
    std::mutex mutex;
    Lines lines;
};

void capture_sink(void *client, int kind, const char *source, const char *text) {
    auto *capture = static_cast<Capture *>(client);
    std::lock_guard lock(capture->mutex);
    capture->lines.push_back(Line{kind, source, text});
}

constexpr int kChannel = static_cast<int>(Kind::channel);
constexpr int kLevel = static_cast<int>(Kind::level);
constexpr int kNamed = static_cast<int>(Kind::named);
constexpr int kFailure = static_cast<int>(Kind::failure);

// Every test starts with every channel off, the default level, and the sink captured.
class Log : public ::testing::Test {
  protected:
    void SetUp() override {
        enable_channel("all", false);
        set_level(1);
        set_sink(capture_sink, &capture_);
    }
    void TearDown() override {
        set_sink(nullptr, nullptr);
        enable_channel("all", false);
        set_level(1);
    }
    Lines &lines() { return capture_.lines; }
    Capture capture_;
};

TEST_F(Log, ChannelsAreOffUntilSwitchedOnByNameByAllOrByTheDebugList) {
    debug("envelope", "silent\n");
    EXPECT_TRUE(enable_channel("envelope", true));
    EXPECT_FALSE(channel_enabled("envelopes")) << "names match whole";
    EXPECT_FALSE(channel_enabled("envelop"));
    debug("envelope", "key %d at %.1f\n", 3, 2.5);
    debug("mesh", "silent\n");
    enable_channel("envelope", false);
    debug("envelope", "silent\n");
    EXPECT_EQ(lines(), (Lines{{kChannel, "envelope", "key 3 at 2.5\n"}}));

    enable_channel("undo", true);
    enable_channel("all", true);
    enable_channel("mesh", false);
    EXPECT_TRUE(channel_enabled("anything"));
    EXPECT_FALSE(channel_enabled("mesh")) << "switched off while all are on";
    enable_channel("all", false);
    EXPECT_FALSE(channel_enabled("anything"));
    EXPECT_FALSE(channel_enabled("undo")) << "all off switches off named channels too";
    enable_channel("mesh", true);
    EXPECT_TRUE(channel_enabled("mesh")) << "an exception to all does not outlive it";

    // The debug list names channels separated by commas, with blanks ignored.
    enable_channel("all", false);
    enable_channels(" envelope ,cinemachanged,,\tundo\t, ");
    for (const char *on : {"envelope", "cinemachanged", "undo"}) EXPECT_TRUE(channel_enabled(on));
    for (const char *off : {"", " envelope ", "mesh"}) EXPECT_FALSE(channel_enabled(off));
    enable_channel("all", false);
    enable_channels("mesh,all");
    EXPECT_TRUE(channel_enabled("whatever"));
}

TEST_F(Log, ChannelNamesAreBoundedAndAFullTableRefusesNewNames) {
    const std::string longest(kChannelNameMax, 'n');
    EXPECT_TRUE(enable_channel(longest.c_str(), true));
    EXPECT_FALSE(enable_channel((longest + "n").c_str(), true));
    EXPECT_FALSE(channel_enabled((longest + "n").c_str()));
    EXPECT_FALSE(enable_channel("", true));
    EXPECT_FALSE(enable_channel(nullptr, true));
    for (std::size_t i = 1; i < kMaxChannels; ++i) {
        EXPECT_TRUE(enable_channel(("c" + std::to_string(i)).c_str(), true));
    }
    EXPECT_FALSE(enable_channel("one-too-many", true));
    EXPECT_TRUE(enable_channel("c7", true)) << "a name already there needs no room";
    EXPECT_TRUE(enable_channel("c7", false));
    EXPECT_TRUE(enable_channel("one-too-many", true)) << "switching off frees the room";
    EXPECT_TRUE(channel_enabled("c63"));
    EXPECT_FALSE(channel_enabled("c7"));
}

TEST_F(Log, LevelLinesAtOrBelowTheLevelNamedLinesAlwaysAndFailureLinesWithStemAndLine) {
    level(1, "error %s\n", "one");
    level(2, "warning\n");
    set_level(3);
    level(3, "detail\n");
    level(4, "too fine\n");
    set_level(-1);
    named("sampleVector", "%d samples\n", 12);
    fail_line("curves/env.cpp", 42, "bad key", "7");
    fail_line("env.cpp", 9, nullptr, nullptr);
    const int line = __LINE__ + 1;
    VX_FAIL_LINE("here", "now");
    EXPECT_EQ(lines(), (Lines{{kLevel, "1", "error one\n"},
                              {kLevel, "3", "detail\n"},
                              {kNamed, "sampleVector", "12 samples\n"},
                              {kFailure, "env", "#[fail] <env>:42 bad key 7\n"},
                              {kFailure, "env", "#[fail] <env>:9  \n"},
                              {kFailure, "log_test",
                               "#[fail] <log_test>:" + std::to_string(line) + " here now\n"}}));
}

TEST(LogStem, DropsDirectoriesOfEitherSeparatorAndTheLastExtensionOnly) {
    char buffer[64];
    auto stem = [&](const char *path) { return std::string(file_stem(path, buffer, 64)); };
    EXPECT_EQ(stem("/a/b.c/archive.tar.gz"), "archive.tar");
    EXPECT_EQ(stem("C:\\src\\mesh\\poly.cpp"), "poly");
    EXPECT_EQ(stem("dir.d/noext"), "noext");
    EXPECT_EQ(stem("tools/.hidden"), ".hidden");
    EXPECT_EQ(stem(nullptr), "");
    char small[4];
    EXPECT_STREQ(file_stem("x/abcdef.cpp", small, sizeof small), "abc");
}

// True when no multi-byte sequence is cut short.
bool whole_utf8(const std::string &text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if (i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0u) != 0x80u) return false;
        }
        i += length;
    }
    return true;
}

TEST_F(Log, LongLinesAreCutToTheLimitAndMarkedWithoutSplittingCharacters) {
    const std::string word(3 * kLineMax, 'x');
    std::string accents;  // two-byte characters; the cut falls inside one at either parity
    while (accents.size() < 2 * kLineMax) accents += "\xC3\xA9";
    named("big", "%s", word.c_str());
    named("big", "%s\n", word.c_str());
    fail_line("big.cpp", 1, word.c_str(), "arg");
    named("big", "%s\n", accents.c_str());
    named("big", "a%s\n", accents.c_str());
    ASSERT_EQ(lines().size(), 5u);
    for (std::size_t i = 0; i < lines().size(); ++i) {
        const std::string &text = lines()[i].text;
        const std::string marker = i == 0 ? "..." : "...\n";
        EXPECT_GE(text.size(), kLineMax - 2) << i;
        EXPECT_LE(text.size(), kLineMax - 1) << i;
        EXPECT_TRUE(text.ends_with(marker)) << i;
        EXPECT_TRUE(whole_utf8(text)) << i;
    }
}

TEST_F(Log, OrdinaryLinesAllocateNothing) {
    struct Last {
        int count = 0;
        char text[kLineMax];
    } last;
    set_sink(
        [](void *client, int, const char *, const char *text) {
            auto *l = static_cast<Last *>(client);
            ++l->count;
            std::snprintf(l->text, sizeof l->text, "%s", text);
        },
        &last);
    enable_channel("envelope", true);
    const std::uint64_t before = test::thread_allocations();
    debug("envelope", "key %d value %g\n", 4, 0.25);
    debug("mesh", "off %d\n", 1);
    level(1, "error %s\n", "text");
    named("sampleVector", "%u\n", 7u);
    fail_line("a/b.cpp", 3, "m", "a");
    EXPECT_EQ(test::thread_allocations(), before);
    EXPECT_EQ(last.count, 4);
    EXPECT_STREQ(last.text, "#[fail] <b>:3 m a\n");
}

TEST_F(Log, ASinkMayLogAndMayInstallAnotherSink) {
    set_sink(
        [](void *client, int kind, const char *source, const char *text) {
            capture_sink(client, kind, source, text);
            if (std::strcmp(source, "first") == 0) {
                named("relay", "echo of %s", source);
                set_sink(capture_sink, client);  // from inside a sink: must not wait
            }
        },
        &capture_);
    named("first", "one\n");
    named("second", "two\n");
    EXPECT_EQ(lines(), (Lines{{kNamed, "first", "one\n"},
                              {kNamed, "relay", "echo of first"},
                              {kNamed, "second", "two\n"}}));
}

TEST_F(Log, InstallingASinkWaitsForOtherThreadsStillInThePreviousOne) {
    struct Gate {
        std::atomic<bool> entered{false};
        std::atomic<bool> release{false};
    } gate;
    set_sink(
        [](void *client, int, const char *, const char *) {
            auto *g = static_cast<Gate *>(client);
            g->entered = true;
            while (!g->release) std::this_thread::yield();
        },
        &gate);
    std::thread logger([] { named("slow", "line\n"); });
    while (!gate.entered) std::this_thread::yield();
    std::atomic<bool> installed{false};
    std::thread installer([&] {
        set_sink(capture_sink, &capture_);
        installed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(installed) << "set_sink returned while the old sink was still running";
    named("fresh", "meanwhile\n");  // goes to the new sink without waiting
    gate.release = true;
    installer.join();
    logger.join();
    EXPECT_EQ(lines(), (Lines{{kNamed, "fresh", "meanwhile\n"}}));
}

TEST_F(Log, TheCInterfaceReachesTheSameChannelsLevelsAndSink) {
    Capture mine;
    VxLogSetSink(capture_sink, &mine);
    EXPECT_EQ(VxLogEnableChannel("cinemachanged", 1), 1);
    EXPECT_EQ(VxLogEnableChannel("", 1), 0);
    EXPECT_EQ(VxLogChannelEnabled("envelope"), 0);
    DBSprintf("cinemachanged", "item %d\n", 5);
    DBSprintf("envelope", "silent\n");
    VxLogSetLevel(2);
    DBLprintf(2, "warn %s\n", "w");
    DBLprintf(3, "silent\n");
    LogMessage("sampleVector", "v=%.2f\n", 1.5);
    EXPECT_EQ(mine.lines, (Lines{{VX_LOG_CHANNEL, "cinemachanged", "item 5\n"},
                                 {VX_LOG_LEVEL, "2", "warn w\n"},
                                 {VX_LOG_NAMED, "sampleVector", "v=1.50\n"}}));
    EXPECT_TRUE(lines().empty());
}

// VEXOR_DEBUG is read once per process, so each case runs in a fresh one.
TEST(LogEnvironment, VexorDebugIsReadOnceBeforeTheFirstUseOfAChannel) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("VEXOR_DEBUG", " envelope,undo ", 1);
            bool right =
                channel_enabled("envelope") && channel_enabled("undo") && !channel_enabled("mesh");
            setenv("VEXOR_DEBUG", "mesh", 1);
            std::exit(right && !channel_enabled("mesh") ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            setenv("VEXOR_DEBUG", "all", 1);
            enable_channel("mesh", false);  // the host's own switch comes after, and wins
            std::exit(channel_enabled("envelope") && !channel_enabled("mesh") ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vx::log
