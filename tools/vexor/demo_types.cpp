#include "demo_types.h"

#include <vexor/package.h>
#include <vexor/value.h>

bool define_demo_types() {
    if (CineLookupType(kDemoBall) != CINE_TYPE_NONE) return true;
    // A ball: a position vector and a squash factor that rests at 1.
    CinePackageDefine(kDemoBall);
    const char *const none = nullptr;
    const int added = CinePackageAddChannel(
        kDemoBall, CINE_CH_NAME, "pos", VX_STORE_FLOAT, none, CINE_CH_VECTOR, CINE_VECTOR_XYZ, none,
        CINE_CH_USAGE, CINE_USAGE_DISTANCE, CINE_CH_NAME, "squash", VX_STORE_FLOAT, none,
        CINE_CH_DEFAULT, 1.0, CINE_CH_NAME, none);
    return added != 0 && CineDefineType(0, 0, kDemoBall) != CINE_TYPE_NONE;
}
