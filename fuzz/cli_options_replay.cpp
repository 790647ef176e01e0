// Replays the seed corpus of the cli_options fuzz target as an ordinary test: every seed in the
// folders given keeps the property of cli_options_check.h. Exit code 0 when all do.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/cli_options_check.h"

int main(int argc, char **argv) {
    int seeds = 0;
    int broken = 0;
    std::FILE *const quiet = std::freopen("/dev/null", "w", stderr);
    (void)quiet;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), {});
            ++seeds;
            if (const char *what = vx::fuzz::check_cli_options(bytes.data(), bytes.size())) {
                std::printf("%s: %s\n", entry.path().c_str(), what);
                ++broken;
            }
        }
    }
    std::printf("%d seeds replayed, %d broke the property\n", seeds, broken);
    return seeds > 0 && broken == 0 ? 0 : 1;
}
