#include "support/atomicity.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "support/alloc_injection.h"
#include "support/property_volume.h"

namespace vx::test {

namespace {

// A walk longer than this means the edit never stops allocating; the test is wrong then.
constexpr std::size_t kMaxPoints = 100000;

}  // namespace

AtomicityReport check_atomicity(const std::string &name, const AtomicityFactory &make) {
    AtomicityReport report;
    std::ostringstream problems;  // the first point that went wrong, in full
    bool wrong = false;
    const char *phase = "transient";
    auto problem = [&](std::size_t n, const std::string &what) {
        if (!wrong) problems << "at allocation " << n << " (" << phase << "): ";
        problems << what << "; ";
        wrong = true;
    };

    std::string final_state;
    {
        std::unique_ptr<AtomicityTarget> target = make();
        if (!target->edit()) {
            ADD_FAILURE() << name << ": the edit fails even without an injected failure";
            return report;
        }
        final_state = target->snapshot();
    }

    // Transient failures (the nth allocation alone fails) and persistent ones (every allocation
    // from the nth on fails, as when memory has run out).
    for (const FailMode mode : {FailMode::once, FailMode::from_then_on}) {
        phase = mode == FailMode::once ? "transient" : "persistent";
        for (std::size_t n = 1; n <= kMaxPoints && !wrong; ++n) {
            std::unique_ptr<AtomicityTarget> target = make();
            const std::string before = target->snapshot();
            const std::size_t events_before = target->events();
            const AllocCounts live_before = alloc_counts();

            fail_allocation(n, mode);
            const bool ok = target->edit();
            const bool raised = injected_failure_raised();
            stop_failing();

            if (!raised) {
                if (!ok) problem(n, "failed with no injected failure");
                if (target->snapshot() != final_state) problem(n, "a clean run differs");
                break;
            }
            ++report.tried;
            if (ok) {
                ++report.survived;
                if (target->snapshot() != final_state) {
                    problem(n, "completed despite the failure, with another result");
                }
                continue;
            }

            const AllocCounts live_after = alloc_counts();
            const std::string after = target->snapshot();
            bool held = true;
            if (after != before) {
                problem(n, "state changed by the failed edit: \"" + before + "\" became \"" +
                               after + "\"");
                held = false;
            }
            if (target->events() != events_before) {
                problem(n, "change events sent by the failed edit");
                held = false;
            }
            if (live_after.live_blocks != live_before.live_blocks ||
                live_after.live_bytes != live_before.live_bytes) {
                problem(n, "leaked " +
                               std::to_string(live_after.live_blocks - live_before.live_blocks) +
                               " blocks, " +
                               std::to_string(live_after.live_bytes - live_before.live_bytes) +
                               " bytes");
                held = false;
            }
            if (held) ++report.held;
            if (!target->edit()) {
                problem(n, "a retry failed");
            } else if (target->snapshot() != final_state) {
                problem(n, "a retry gave another result");
            }
        }
    }
    property_totals().fault_points += report.tried;

    std::printf("[atomicity] %s: %zu points tried, %zu survived, %zu state held\n", name.c_str(),
                report.tried, report.survived, report.held);
    if (wrong) ADD_FAILURE() << name << ": " << problems.str();
    return report;
}

}  // namespace vx::test
