#include "support/undo_property.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <new>
#include <vector>

#include "foundation/undo.h"
#include "support/alloc_injection.h"
#include "support/property_volume.h"

namespace vx::test {

namespace {

struct Waypoint {
    std::size_t steps;  // undo steps in effect after the edit
    std::string state;
    std::string edit;
};

// The state recorded for a number of steps in effect: the last waypoint that left that many.
const Waypoint *waypoint_at(const std::vector<Waypoint> &path, std::size_t steps) {
    for (auto it = path.rbegin(); it != path.rend(); ++it) {
        if (it->steps == steps) return &*it;
    }
    return nullptr;
}

// Undoes back to `position` steps in effect; false when the history cannot get there.
bool undo_to(std::size_t position) {
    while (UndoSysUndoCount() > position) {
        if (!UndoSysUndo()) return false;
    }
    return UndoSysUndoCount() == position;
}

// Makes the next random edit first cleanly, then with its allocations failing one point after
// another, transient and persistent, undoing after each try. A faulted try may be refused,
// absorbed, or (when the failure hits the test's own code after the library's calls) made;
// whatever it did, undoing back to where it started must give back the state before it
// exactly: an edit that failed must not leave unrecorded changes behind. Ends with the edit
// made cleanly. Returns the first problem; counts the points tried.
std::string faulted_edit(UndoTarget &target, std::mt19937 &rng, std::string &description,
                         std::size_t &points) {
    const std::string before = target.snapshot();
    const std::size_t position = UndoSysUndoCount();
    const std::mt19937 start = rng;
    for (const FailMode mode : {FailMode::once, FailMode::from_then_on}) {
        for (std::uint64_t n = 1;; ++n) {
            std::mt19937 draw = start;
            fail_allocation(n, mode);
            try {
                description = target.random_edit(draw);
            } catch (const std::bad_alloc &) {
                // the failure reached the test's own code, outside the library's guard
            }
            const bool raised = injected_failure_raised();
            stop_failing();
            if (!raised) break;  // past the edit's last allocation
            ++points;
            if (!undo_to(position) || target.snapshot() != before) {
                return "a faulted \"" + description + "\" (allocation " + std::to_string(n) +
                       (mode == FailMode::once ? ", transient" : ", persistent") +
                       ") left changes that undo does not take back";
            }
        }
        if (mode == FailMode::once && !undo_to(position)) return "could not undo a clean edit";
    }
    rng = start;
    description = target.random_edit(rng);
    return {};
}

// Moves to `steps` steps in effect, comparing each waypoint passed; returns the first problem.
std::string move_to(UndoTarget &target, const std::vector<Waypoint> &path, std::size_t steps) {
    while (UndoSysUndoCount() != steps) {
        const bool back = UndoSysUndoCount() > steps;
        if (!(back ? UndoSysUndo() : UndoSysRedo())) {
            return back ? "undo refused with steps left" : "redo refused with steps left";
        }
        const Waypoint *w = waypoint_at(path, UndoSysUndoCount());
        if (w != nullptr && target.snapshot() != w->state) {
            return std::string(back ? "undo" : "redo") + " back to after \"" + w->edit +
                   "\" differs: expected \"" + w->state + "\", found \"" + target.snapshot() + "\"";
        }
    }
    return {};
}

}  // namespace

UndoPropertyReport check_undo_property(const std::string &name, const UndoTargetFactory &make,
                                       std::uint32_t sequences, std::size_t edits_per_sequence) {
    UndoPropertyReport report;
    UndoSysStartup();
    const std::uint32_t old_limit = UndoSysLimit();
    UndoSysSetLimit(0);
    std::string problem;

    // The volume multiplies the sequences; some also make each of their edits with failing
    // allocations first.
    const PropertyVolume &volume = property_volume();
    const std::uint64_t count = volume.replay ? 1 : std::uint64_t{sequences} * volume.volume;
    std::uint64_t failed_seed = 0;
    for (std::uint64_t i = 0; i < count && problem.empty(); ++i) {
        const std::uint64_t seed = volume.first_seed + i;
        UndoSysClear();
        std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));
        std::unique_ptr<UndoTarget> target = make();
        UndoSysClear();  // whatever building the target recorded is not part of the sequence
        std::vector<Waypoint> path{{0, target->snapshot(), "start"}};
        const bool faulted = seed % volume.faulted_every == 0 || volume.replay;
        for (std::size_t e = 0; e < edits_per_sequence && problem.empty(); ++e) {
            std::string edit;
            if (faulted) {
                problem = faulted_edit(*target, rng, edit, report.fault_points);
            } else {
                edit = target->random_edit(rng);
            }
            path.push_back({UndoSysUndoCount(), target->snapshot(), std::move(edit)});
        }
        ++report.sequences;
        report.edits += edits_per_sequence;
        const std::size_t total = UndoSysUndoCount();

        if (problem.empty()) problem = move_to(*target, path, 0);
        if (problem.empty() && UndoSysCanUndo()) problem = "undo left steps behind";
        if (problem.empty()) problem = move_to(*target, path, total);
        if (problem.empty() && target->snapshot() != path.back().state) {
            problem = "redo all differs from the final state";
        }
        if (problem.empty()) {
            report.steps += total;
            // A new edit after a partial undo drops what could have been redone.
            problem = move_to(*target, path, total / 2);
            const std::size_t before = UndoSysUndoCount();
            target->random_edit(rng);
            if (problem.empty() && UndoSysUndoCount() != before && UndoSysCanRedo()) {
                problem = "a new edit kept the redo steps";
            }
        }
        if (!problem.empty()) failed_seed = seed;
        target.reset();
        UndoSysClear();
    }

    UndoSysSetLimit(old_limit);
    UndoSysShutdown();
    property_totals().undo_sequences += report.sequences;
    property_totals().fault_points += report.fault_points;
    std::printf(
        "[undo] %s: %zu sequences, %zu edits, %zu steps undone and redone, %zu "
        "allocation-failure points in edits, %s\n",
        name.c_str(), report.sequences, report.edits, report.steps, report.fault_points,
        problem.empty() ? "all states held" : "a state differs");
    if (!problem.empty()) {
        std::printf("[undo] %s: failing seed %llu; replay with VEXOR_PROPERTY_REPLAY=%llu\n",
                    name.c_str(), static_cast<unsigned long long>(failed_seed),
                    static_cast<unsigned long long>(failed_seed));
        ADD_FAILURE() << name << ": seed " << failed_seed << ": " << problem;
    }
    return report;
}

}  // namespace vx::test
