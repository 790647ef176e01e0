// libFuzzer target: any bytes as an irradiance cache file. Crashes, sanitizer reports and broken
// properties (irr_cache_load_check.h) are findings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/irr_cache_load_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (const char *broken = vx::fuzz::check_irr_cache_load(data, size)) {
        std::fprintf(stderr, "irr_cache_load_fuzz: %s\n", broken);
        std::abort();
    }
    return 0;
}
