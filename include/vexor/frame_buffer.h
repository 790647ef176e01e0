/* Frame buffers: where a render puts its pixels while it runs, and what it leaves behind.
 *
 * A frame buffer is a component object of the class "frameBuffer" (interface
 * RENDER_FRAME_BUFFER_GUID, vexor/sys/render_job.h) made by XFrameBufferCreate or by the server
 * "frameBuffer" of the registry. A render brackets its work with XFrameBufferRenderBegin, which
 * stores the render settings, and XFrameBufferRenderEnd, which stores the render's final state
 * and the identifying string of each render output. In between, the render asks for rows of
 * RGBA floats: one per image line (the final colour) and one per line of each render output;
 * they are made on first request, zero-filled, and all freed by XFrameBufferRenderEnd: a host
 * that keeps pixels copies or saves the lines before the render ends.
 *
 * Valid between RenderJobStartup and RenderJobShutdown. Rows may be asked for from several
 * threads at once (each row is made once, under the frame buffer's lock); begin, end and the
 * readers are called by the thread that drives the render. */
#ifndef VEXOR_FRAME_BUFFER_H
#define VEXOR_FRAME_BUFFER_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The longest identifying string kept for a render output, in bytes without the null. */
#define XFRAMEBUFFER_IDENT_MAX 255

typedef struct XFrameBufferSettings {
    unsigned int width;       /* pixels, 1 to 65536 */
    unsigned int height;      /* lines, 1 to 65536 */
    unsigned int outputCount; /* render outputs with rows of their own, 0 to 1024 */
    int frame;
    double time; /* seconds */
} XFrameBufferSettings;

typedef struct XFrameBufferState {
    unsigned int status; /* the job's final status word */
    double seconds;      /* how long the render took */
    unsigned int outputCount;
    /* outputCount identifying strings (null entries are empty); each is kept cut to
     * XFRAMEBUFFER_IDENT_MAX bytes. The frame buffer copies them. */
    const char *const *outputIdents;
} XFrameBufferState;

/* A new frame buffer with one reference into *out (null on failure). Returns VX_OK,
 * VX_E_BADARG for a null out, VX_E_REFUSED when the module is not started, VX_E_NOMEMORY. */
VX_API unsigned int XFrameBufferCreate(void **out);

/* Starts a render: sets the in-progress flag and stores the settings. VX_E_REFUSED while a
 * render is in progress, VX_E_BADARG for a null argument, an object that is not a frame buffer
 * or sizes out of range. */
VX_API unsigned int XFrameBufferRenderBegin(void *fb, const XFrameBufferSettings *settings);

/* Ends the render: clears the in-progress flag, frees every row, copies the state and the
 * outputs' identifying strings. VX_E_REFUSED when no render is in progress, VX_E_BADARG for a
 * null or foreign object or a state whose strings are missing, VX_E_NOMEMORY (the render then
 * stays in progress, rows and all). */
VX_API unsigned int XFrameBufferRenderEnd(void *fb, const XFrameBufferState *state);

/* 1 while a render is in progress. */
VX_API int XFrameBufferIsRendering(void *fb);

/* The settings of the last render begun, or null when none was. */
VX_API const XFrameBufferSettings *XFrameBufferRenderSettings(void *fb);

/* The state stored by the last render ended (its strings owned by the frame buffer), or null. */
VX_API const XFrameBufferState *XFrameBufferRenderState(void *fb);
/* The identifying string of a render output of the last render ended; null out of range. */
VX_API const char *XFrameBufferOutputIdent(void *fb, unsigned int index);

/* The row of `width` RGBA pixels (4 floats each) of a line of the image, or of a render
 * output; null when no render is in progress, the line or output is out of range, or memory
 * runs out. */
VX_API float *XFrameBufferLine(void *fb, unsigned int line);
VX_API float *XFrameBufferOutputLine(void *fb, unsigned int output, unsigned int line);

VX_EXTERN_C_END

#endif
