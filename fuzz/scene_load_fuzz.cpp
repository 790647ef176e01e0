// libFuzzer target: any bytes as a scene file. Crashes, sanitizer reports and broken
// properties (scene_load_check.h) are findings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <vexor/log.h>
#include <vexor/undo.h>

#include "fuzz/scene_load_check.h"

namespace {

// Damaged inputs log a failure line each; keep them off stderr, where they would slow the
// fuzzer down and bury its own report.
void quiet_sink(void *, int, const char *, const char *) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool started = [] {
        VxLogSetSink(quiet_sink, nullptr);
        UndoSysStartup();
        vx::fuzz::start_session();
        // Stopped before the module's own statics are destroyed at exit, so that the leak
        // check at exit sees every object released.
        std::atexit([] {
            vx::fuzz::stop_session();
            UndoSysShutdown();
        });
        return true;
    }();
    (void)started;
    if (const char *broken = vx::fuzz::check_scene_load(data, size)) {
        std::fprintf(stderr, "scene_load_fuzz: %s\n", broken);
        std::abort();
    }
    return 0;
}
