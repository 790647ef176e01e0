// How hard the property helpers work, read once from the environment so that one build serves
// the quick run, the volume run of CI and the soak:
//   VEXOR_PROPERTY_VOLUME=n  runs n times the random undo sequences each test asks for
//                           (default 1);
//   VEXOR_PROPERTY_SEED=s    starts the sequences' seeds after s instead of after 0, so a soak
//                           tries fresh ones;
//   VEXOR_PROPERTY_REPLAY=s  runs the one sequence of seed s (as printed by a failure);
//   VEXOR_PROPERTY_FAULTED_EVERY=k  makes one sequence in k (default 8) sweep its edits with
//                           failing allocations.
#pragma once

#include <cstdint>

namespace vx::test {

struct PropertyVolume {
    std::uint32_t volume = 1;
    std::uint64_t first_seed = 1;
    bool replay = false;  // only first_seed
    std::uint64_t faulted_every = 8;
};

const PropertyVolume &property_volume();

// Totals of every helper run in this process, printed at exit when the volume is not 1.
struct PropertyTotals {
    std::uint64_t fault_points = 0;
    std::uint64_t undo_sequences = 0;
};
PropertyTotals &property_totals();

}  // namespace vx::test
