// libFuzzer target: any bytes as the options or key text of the `vexor` program's curve and
// scene commands. Crashes, sanitizer reports and broken properties (cli_options_check.h) are
// findings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/cli_options_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Refusals explain themselves on stderr, as the program does; libFuzzer's own report and
    // the sanitizers' go there too, so stderr stays open.
    if (const char *broken = vx::fuzz::check_cli_options(data, size)) {
        std::fprintf(stdout, "cli_options_fuzz: %s\n", broken);
        std::abort();
    }
    return 0;
}
