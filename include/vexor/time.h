/* The scene's frame rate, process-wide. */
#ifndef VEXOR_TIME_H
#define VEXOR_TIME_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Frames per second; 24 until set. Any thread. */
VX_API double TimeGlobalFPS(void);

/* Sets the frame rate. Returns 1, or 0 (leaving the rate as it was) unless `fps` is finite and
 * greater than 0. Any thread; not undoable. */
VX_API int TimeSetGlobalFPS(double fps);

VX_EXTERN_C_END

#endif
