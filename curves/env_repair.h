// Mending an envelope read from a damaged or hand-edited stream, so that a loader can keep the
// rest of what it reads instead of refusing it all for one bad field.
#pragma once

#include "curves/envelope.h"

namespace vx::env {

// What repair() mended, as bits.
enum Repaired : unsigned {
    kRepairedSettings = 0x1,    // a behaviour or the interpolation was unknown: now the default
    kRepairedKeyTimes = 0x2,    // keys without a finite time, or on another key's time: dropped
    kRepairedOrder = 0x4,       // keys out of time order: sorted
    kRepairedNumbers = 0x8,     // values, slopes or weights that were not finite: now 0
    kRepairedSlopeTypes = 0x10  // unknown slope types: now automatic
};

// Brings the envelope within what its setters accept: known settings (behaviours to constant,
// interpolation to curve), finite numbers, known slope types, keys in time order and never
// within the time tolerance of each other (the later one goes). Sends no notes and records
// nothing: it is for envelopes a loader has just filled. Returns the Repaired bits, 0 when the
// envelope was sound.
unsigned repair(Envelope &env) noexcept;

}  // namespace vx::env
