/* Plane fitting: the least-squares plane through a set of positions.
 *
 * The caller owns the PlaneFit record (no allocation, nothing to free): PlaneFitStart clears
 * it, PlaneFitAddPos and PlaneFitAddPosF add positions, and PlaneFitDone computes the plane,
 * the one that minimises the sum of squared distances to the positions. Its point is the
 * positions' mean; its normal is the direction in which they spread least.
 *
 * These functions keep no state of their own and may be called from any thread, one record per
 * thread. */
#ifndef VEXOR_PLANE_FIT_H
#define VEXOR_PLANE_FIT_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct PlaneFit {
    unsigned int count; /* positions added (those with a component that is not finite are
                           skipped) */
    double origin[3];   /* the first position: the sums are taken relative to it, for precision */
    double sum[3];      /* of the positions minus origin */
    double sum2[6];     /* xx, xy, xz, yy, yz, zz of the positions minus origin */
    double centre[3];   /* set by PlaneFitDone: the mean position (zero without positions) */
    double normal[3];   /* set by PlaneFitDone: the unit normal, or zero when the fit failed */
} PlaneFit;

/* Clears the record. `expected` (how many positions will come) is a hint and may be 0. */
VX_API void PlaneFitStart(PlaneFit *fit, unsigned int expected);
VX_API void PlaneFitAddPos(PlaneFit *fit, const double position[3]);
VX_API void PlaneFitAddPosF(PlaneFit *fit, const float position[3]);
/* Fits the plane. Returns 1, or 0 when the positions do not fix a plane: fewer than 3, all
 * the same, or all on one line (the middle spread below 1e-12 of the largest). The normal's
 * sign makes its largest component (in magnitude) positive. */
VX_API int PlaneFitDone(PlaneFit *fit);

VX_EXTERN_C_END

#endif
