// The committed seed corpus of a fuzz target, read for tests that replay it.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vx::test {

struct Seed {
    std::string name;  // the file name, which says what the seed is meant to show
    std::vector<unsigned char> bytes;
};

// Every file of fuzz/corpus/<target> in the source tree (test executables define
// VEXOR_SOURCE_DIR).
inline std::vector<Seed> fuzz_corpus(const char *target) {
    namespace fs = std::filesystem;
    std::vector<Seed> seeds;
    const fs::path dir = fs::path(VEXOR_SOURCE_DIR) / "fuzz" / "corpus" / target;
    for (const fs::directory_entry &entry : fs::directory_iterator(dir)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        seeds.push_back({entry.path().filename().string(),
                         std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {})});
    }
    return seeds;
}

// Every seed keeps the properties the fuzz target checks: `check` returns null, or what broke.
template <class Check>
void expect_seeds_keep_properties(const char *target, std::size_t at_least, Check check) {
    const std::vector<Seed> seeds = fuzz_corpus(target);
    EXPECT_GE(seeds.size(), at_least) << "the corpus went missing";
    for (const Seed &seed : seeds) {
        const char *broken = check(seed.bytes.data(), seed.bytes.size());
        EXPECT_EQ(broken, nullptr) << seed.name << ": " << broken;
    }
}

// Seeds named "valid_..." load and seeds named "corrupt_..." are refused: `load` returns
// whether a seed loaded (and cleans up after itself).
template <class Load>
void expect_seeds_load_as_named(const char *target, int valid_at_least, int corrupt_at_least,
                                Load load) {
    int valid = 0;
    int corrupt = 0;
    for (const Seed &seed : fuzz_corpus(target)) {
        const bool expect_valid = seed.name.rfind("valid_", 0) == 0;
        if (!expect_valid && seed.name.rfind("corrupt_", 0) != 0) continue;
        (expect_valid ? valid : corrupt)++;
        EXPECT_EQ(load(seed.bytes), expect_valid) << seed.name;
    }
    EXPECT_GE(valid, valid_at_least);
    EXPECT_GE(corrupt, corrupt_at_least);
}

}  // namespace vx::test
