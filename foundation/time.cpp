#include "foundation/time.h"

#include <atomic>
#include <cmath>

#include "foundation/failure.h"

namespace vx {

namespace {
std::atomic<double> global_fps{24.0};
}  // namespace

double TimeGlobalFPS() noexcept {
    return global_fps.load(std::memory_order_relaxed);
}

void TimeSetGlobalFPS(double fps) {
    if (!std::isfinite(fps) || fps <= 0.0) {
        fail(rc::bad_argument, "TimeSetGlobalFPS: the rate must be finite and positive");
    }
    global_fps.store(fps, std::memory_order_relaxed);
}

}  // namespace vx
