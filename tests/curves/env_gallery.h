// A gallery of named envelopes for the evaluation tests: every behaviour, every slope type,
// weighted tangents, broken keys, an integer envelope, a single key and keys sharing one time.
// Each comes with values at chosen times worked out by hand (the working is beside each curve
// in env_gallery.cpp), so any change in how envelopes evaluate shows up as a changed number.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <vexor/env.h>

namespace vx::test {

struct Sample {
    double time;
    double value;
};

struct GalleryCurve {
    std::string name;
    std::function<Envelope *()> build;  // a new envelope; free it with EnvDestroyNoUndo
    std::vector<Sample> samples;
};

const std::vector<GalleryCurve> &env_gallery();
const GalleryCurve &gallery_curve(const std::string &name);

// A key of a curve built through the public functions: its time, value and the slope type of
// both its sides.
struct KeyDef {
    double time;
    double value;
    unsigned slope_type = ENV_SLOPE_AUTO;
};

// A float envelope with the keys, behaviours and interpolation, built without undo records.
Envelope *make_curve(const std::vector<KeyDef> &keys, unsigned pre, unsigned post,
                     unsigned interpolation = ENV_INTERP_CURVE);
// The i-th key of an envelope.
EnvKey *nth_key(Envelope *env, int i);

}  // namespace vx::test
