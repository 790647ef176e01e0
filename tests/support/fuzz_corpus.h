// The committed seed corpus of a fuzz target, read for tests that replay it.
#pragma once

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

}  // namespace vx::test
