// The atomicity helper: an edit either happens completely or leaves no trace.
//
// A target is made fresh for every attempt. The edit first runs once with no failure, to learn
// the final state. Then, for n = 1, 2, ..., a fresh target runs the edit with its nth
// allocation failing. After each failure the state must equal the state before, no change
// event may have been sent, and no memory may be left behind; a retry on the same target must
// then succeed and give the same final state as the clean run. The walk ends at the first n
// past the edit's last allocation. It is made twice: with the nth allocation alone failing
// (transient), and with every allocation from the nth on failing (persistent). The helper
// prints one line of figures.
//
// The same helper checks undo and redo steps: a target whose edit() is UndoSysUndo() (with
// the history in its snapshot) proves that a failed undo leaves data and position as they were.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace vx::test {

class AtomicityTarget {
  public:
    virtual ~AtomicityTarget() = default;
    // The full observable state, in a form that compares exactly.
    virtual std::string snapshot() = 0;
    // Runs the edit under test; true when the edit reports success.
    virtual bool edit() = 0;
    // Change events observed so far.
    virtual std::size_t events() { return 0; }
};

struct AtomicityReport {
    std::size_t tried = 0;     // failure points injected
    std::size_t survived = 0;  // points where the edit absorbed the failure and completed
    std::size_t held = 0;      // points where the failed edit left the state as it was
};

using AtomicityFactory = std::function<std::unique_ptr<AtomicityTarget>()>;

// Records gtest failures for every violation; returns the figures.
AtomicityReport check_atomicity(const std::string &name, const AtomicityFactory &make);

}  // namespace vx::test
