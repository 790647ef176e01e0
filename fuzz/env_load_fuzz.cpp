// libFuzzer target: any bytes as an envelope's block stream. Crashes, sanitizer reports and
// broken properties (env_load_check.h) are findings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <vexor/log.h>

#include "fuzz/env_load_check.h"

namespace {

// Malformed inputs log a failure line each; keep them off stderr, where they would slow the
// fuzzer down and bury its own report.
void quiet_sink(void *, int, const char *, const char *) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool quiet = [] {
        VxLogSetSink(quiet_sink, nullptr);
        return true;
    }();
    (void)quiet;
    if (const char *broken = vx::fuzz::check_env_load(data, size)) {
        std::fprintf(stderr, "env_load_fuzz: %s\n", broken);
        std::abort();
    }
    return 0;
}
