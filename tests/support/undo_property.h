// The undo property helper: random sequences of edits, undone and redone as a whole.
//
// For each seed a fresh target takes a random sequence of edits. Undoing every step must give
// back the initial snapshot exactly, and each state in between at the step boundary where it
// was left; redoing every step must give back each later state and the final one. A new edit
// after a partial undo must drop the redo steps. Every eighth sequence also makes each of its
// edits with allocations failing first, transient and persistent: undoing whatever a faulted
// edit did must give back the state before it (see faulted_edit).
// The number of sequences is scaled, and their seeds chosen, by support/property_volume.h; a
// failure names its seed. The helper prints one line of figures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>

namespace vx::test {

class UndoTarget {
  public:
    virtual ~UndoTarget() = default;
    virtual std::string snapshot() = 0;
    // Makes one random edit through the interface under test; returns a short description
    // used in failure messages.
    virtual std::string random_edit(std::mt19937 &rng) = 0;
};

struct UndoPropertyReport {
    std::size_t sequences = 0;
    std::size_t edits = 0;
    std::size_t steps = 0;         // undo steps undone and redone
    std::size_t fault_points = 0;  // allocation failures injected into edits
};

using UndoTargetFactory = std::function<std::unique_ptr<UndoTarget>()>;

// Starts the undo system for its run (balanced with a shutdown), with no step limit.
UndoPropertyReport check_undo_property(const std::string &name, const UndoTargetFactory &make,
                                       std::uint32_t sequences = 20,
                                       std::size_t edits_per_sequence = 40);

}  // namespace vx::test
