#include <vexor/maths.h>

#include "foundation/maths.h"

extern "C" VX_API void Hermite(double u, double basis[4]) {
    vx::Hermite(u, basis);
}
