// The atomicity helper over a table of named edits of one stage: each edit runs on a fresh
// stage, and, when asked, so do its undo and its redo, and the edit with recording off.
//
// A stage is a default-constructible set-up with `std::string snapshot()`, and optionally
// `std::size_t events()` (change events heard so far). The snapshot the helper compares adds
// the position in the undo history.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <vexor/undo.h>

#include "support/atomicity.h"

namespace vx::test {

template <class Stage>
struct NamedEdit {
    const char *name;
    std::function<bool(Stage &)> edit;  // true when the edit reports success
};

template <class Stage>
class StageTarget : public AtomicityTarget {
  public:
    explicit StageTarget(std::function<bool(Stage &)> edit) : edit_(std::move(edit)) {}
    std::string snapshot() override {
        return stage_.snapshot() + " steps " + std::to_string(UndoSysUndoCount()) + "/" +
               std::to_string(UndoSysRedoCount());
    }
    bool edit() override { return edit_(stage_); }
    std::size_t events() override {
        if constexpr (requires { stage_.events(); }) return stage_.events();
        return 0;
    }
    Stage &stage() { return stage_; }

  private:
    std::function<bool(Stage &)> edit_;
    Stage stage_;
};

enum EditChecks : unsigned { kEditOnly = 0, kUndoRedo = 1, kUnrecorded = 2 };

template <class Stage>
void check_edits_atomic(const std::vector<NamedEdit<Stage>> &edits, unsigned checks = kEditOnly) {
    for (const NamedEdit<Stage> &edit : edits) {
        const AtomicityReport report = check_atomicity(
            edit.name, [&] { return std::make_unique<StageTarget<Stage>>(edit.edit); });
        EXPECT_GT(report.tried, 0u) << edit.name;
        EXPECT_EQ(report.held + report.survived, report.tried) << edit.name;
        for (const bool redo : {false, true}) {
            if ((checks & kUndoRedo) == 0) break;
            check_atomicity((redo ? "redo " : "undo ") + std::string(edit.name),
                            [&]() -> std::unique_ptr<AtomicityTarget> {
                                auto target = std::make_unique<StageTarget<Stage>>([redo](Stage &) {
                                    return (redo ? UndoSysRedo() : UndoSysUndo()) != 0;
                                });
                                EXPECT_TRUE(edit.edit(target->stage())) << edit.name;
                                if (redo) UndoSysUndo();
                                return target;
                            });
        }
        if ((checks & kUnrecorded) != 0) {
            UndoSysEnable(0);
            const AtomicityReport unrecorded =
                check_atomicity("unrecorded " + std::string(edit.name),
                                [&] { return std::make_unique<StageTarget<Stage>>(edit.edit); });
            UndoSysEnable(1);
            EXPECT_EQ(unrecorded.held + unrecorded.survived, unrecorded.tried) << edit.name;
        }
    }
}

}  // namespace vx::test
