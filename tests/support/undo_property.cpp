#include "support/undo_property.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "foundation/undo.h"

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

    for (std::uint32_t seed = 1; seed <= sequences && problem.empty(); ++seed) {
        UndoSysClear();
        std::mt19937 rng(seed);
        std::unique_ptr<UndoTarget> target = make();
        UndoSysClear();  // whatever building the target recorded is not part of the sequence
        std::vector<Waypoint> path{{0, target->snapshot(), "start"}};
        for (std::size_t i = 0; i < edits_per_sequence; ++i) {
            std::string edit = target->random_edit(rng);
            path.push_back({UndoSysUndoCount(), target->snapshot(), std::move(edit)});
        }
        ++report.sequences;
        report.edits += edits_per_sequence;
        const std::size_t total = UndoSysUndoCount();
        const std::string label = "seed " + std::to_string(seed) + ": ";

        problem = move_to(*target, path, 0);
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
        if (!problem.empty()) problem = label + problem;
        target.reset();
        UndoSysClear();
    }

    UndoSysSetLimit(old_limit);
    UndoSysShutdown();
    std::printf("[undo] %s: %zu sequences, %zu edits, %zu steps undone and redone, %s\n",
                name.c_str(), report.sequences, report.edits, report.steps,
                problem.empty() ? "all states held" : "a state differs");
    if (!problem.empty()) ADD_FAILURE() << name << ": " << problem;
    return report;
}

}  // namespace vx::test
