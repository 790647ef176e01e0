/* Axis-aligned bounding boxes of 3D positions, and a tolerance scaled to a box's size.
 *
 * These functions keep no state and may be called from any thread. */
#ifndef VEXOR_BBOX_H
#define VEXOR_BBOX_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct BBox {
    double min[3];
    double max[3];
    double extent[3]; /* max - min, as of the last BBoxSetExtent */
} BBox;

/* A box around one position (its extent zero). */
VX_API void BBoxInit(BBox *box, const double position[3]);
VX_API void BBoxInitF(BBox *box, const float position[3]);
/* Grows the box to hold a position (NaN components leave it as it was). Does not update the
 * extent. */
VX_API void BBoxExpand(BBox *box, const double position[3]);
VX_API void BBoxExpandF(BBox *box, const float position[3]);
/* extent = max - min. */
VX_API void BBoxSetExtent(BBox *box);
/* A distance below which two positions in the box count as the same: 1e-5 of the box's
 * largest extent plus 2^-20 of its largest absolute coordinate (a few float steps, since
 * vertex positions are stored as floats), and never below 1e-9. Reads the extent, so call
 * BBoxSetExtent first. */
VX_API double BBoxTolerance(const BBox *box);

VX_EXTERN_C_END

#endif
