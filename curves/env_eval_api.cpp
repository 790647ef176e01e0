// The C functions of envelope evaluation (include/vexor/env_eval.h). Evaluation cannot fail,
// so the bodies only take care of null handles.
#include <vexor/env_eval.h>

#include "curves/env_evaluate.h"

extern "C" {

VX_API double EnvEvaluate(Envelope *env, double time) {
    return env != nullptr ? vx::env::evaluate(*env, time) : 0.0;
}

VX_API int EnvEvaluateInt(Envelope *env, double time) {
    return env != nullptr ? vx::env::evaluate_int(*env, time) : 0;
}

VX_API void EnvBoundsValue(Envelope *env, double start, double end, double *min, double *max) {
    if (env == nullptr) {
        if (min != nullptr) *min = 0.0;
        if (max != nullptr) *max = 0.0;
        return;
    }
    vx::env::bounds_value(*env, start, end, min, max);
}

VX_API void EnvBoundsValueInt(Envelope *env, double start, double end, int *min, int *max) {
    if (env == nullptr) {
        if (min != nullptr) *min = 0;
        if (max != nullptr) *max = 0;
        return;
    }
    vx::env::bounds_value_int(*env, start, end, min, max);
}

VX_API void EnvKeyGetHandle(Envelope *env, EnvKey *key, int, int side, double *time,
                            double *value) {
    if (env == nullptr || key == nullptr) return;
    const vx::env::HandlePoint point = vx::env::handle_point(*env, *key, side);
    if (time != nullptr) *time = point.time;
    if (value != nullptr) *value = point.value;
}

}  // extern "C"
