/* Maths the curves use, for plug-ins that evaluate curves of their own. */
#ifndef VEXOR_MATHS_H
#define VEXOR_MATHS_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The cubic Hermite basis at parameter u (0 at the start of a span, 1 at its end): the weights
 * of the start value, end value, start tangent and end tangent, written to basis[0..3]. */
VX_API void Hermite(double u, double basis[4]);

VX_EXTERN_C_END

#endif
