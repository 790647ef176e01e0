// libFuzzer target: any bytes as the options or key text of the `vexor` program's curve and
// scene commands. Crashes, sanitizer reports and broken properties (cli_options_check.h) are
// findings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/cli_options_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Refusals explain themselves on stderr; keep them out of the fuzzer's report.
    static std::FILE *const quiet = std::freopen("/dev/null", "w", stderr);
    (void)quiet;
    if (const char *broken = vx::fuzz::check_cli_options(data, size)) {
        std::fprintf(stdout, "cli_options_fuzz: %s\n", broken);
        std::abort();
    }
    return 0;
}
