/* Render jobs: the one current job of the process and its state, the render buffers registered
 * by name, and the file names of render outputs.
 *
 * A render is driven through the current job: a host's component object with the render-job
 * interface (vexor/sys/render_job.h), made current by RSrvJobSetCurrent. The host installs a
 * table of job functions (RenderJobSetFuncs); the RSrvJob functions check the state of the
 * current job and forward to that table. States:
 *
 *     no job --set current--> pending --start--> rendering (status from the host)
 *     --clean-up--> pending, with no job
 *
 * The pending flag is set from the moment a job is made current until it is started, and again
 * after a clean-up; while it is set, RSrvJobStatus answers RENDER_JOB_PENDING whatever the host
 * would say. A job counts as rendering when it is current, not pending, and the host's status
 * slot answers RENDER_JOB_RENDERING. While one renders, making another current is refused and a
 * clean-up does nothing.
 *
 * Everything here is valid between RenderJobStartup and RenderJobShutdown. The state is
 * process-wide and guarded by a lock, and every function may be called from any thread, but
 * the state is meant to be driven by one thread at a time: a job made current on one thread
 * while another thread starts one may see either order. The host's slots run without the lock
 * held. */
#ifndef VEXOR_RENDER_JOB_H
#define VEXOR_RENDER_JOB_H

#include <stddef.h>

#include "vexor/export.h"
#include "vexor/port.h"
#include "vexor/scene.h"
#include "vexor/sys/render_job.h"

VX_EXTERN_C_BEGIN

/* Events on the module's port (RenderJobPort), with the new current job (or null) as data. */
#define RENDER_JOB_EVENT_CURRENT 1u /* a job was made current, or the current one dropped */
#define RENDER_JOB_EVENT_STARTED 2u /* the current job was started */
#define RENDER_JOB_EVENT_CLEANUP 3u /* the current job was cleaned up */

/* Reference-counted start and stop of the module. The first start starts the registry of
 * servers, defines the interfaces of vexor/sys/render_job.h with their names as GUID aliases,
 * the component classes and servers "frameBuffer" and "renderservice", and the module's port;
 * it returns 1, or 0 (with nothing started) when out of memory. The last stop releases the
 * current job (without calling the host's clean-up), forgets the job function table, removes
 * the render buffers and the module's servers, and destroys the port. */
VX_API int RenderJobStartup(void);
VX_API void RenderJobShutdown(void);

/* The module's port; null when the module is not started. */
VX_API Port *RenderJobPort(void);

/* Installs the host's job function table, copied; null removes it. */
VX_API void RenderJobSetFuncs(const RenderJobFuncs *funcs);

/* Makes `job` (null: none) the current job. Refused with RENDER_JOB_BUSY, changing nothing,
 * when the current job is rendering; RENDER_JOB_NOT_A_JOB when `job` lacks the render-job
 * interface; VX_E_REFUSED when the module is not started. Otherwise the previous job is
 * released, the library holds a reference to the new one, the pending flag is set, and the
 * result is 0. */
VX_API unsigned int RSrvJobSetCurrent(void *job);

/* The current job with a new reference, which the caller releases; null when there is none. */
VX_API void *RSrvJobCurrent(void);

/* Starts the current job: clears the pending flag and returns the host's start result.
 * RENDER_JOB_NO_JOB without a current job; VX_E_NOTFOUND when the host has no start slot
 * (the job is not started then). */
VX_API unsigned int RSrvJobStart(void);

/* The host's abort result; RENDER_JOB_NO_JOB without a current job, VX_E_NOTFOUND without an
 * abort slot. */
VX_API unsigned int RSrvJobAbort(void);

/* RENDER_JOB_NO_JOB without a current job, RENDER_JOB_PENDING while pending, else the host's
 * status (VX_E_NOTFOUND without a status slot). */
VX_API unsigned int RSrvJobStatus(void);

/* The host's statistics object (borrowed); null without a current job or slot. */
VX_API void *RSrvJobStats(void);

/* The host's answer whether this process renders for another; 0 without the slot. */
VX_API int RSrvJobIsSlave(void);

/* The name, type and number of the current job's render outputs, from the host, only while
 * the job is rendering; otherwise null, -1 and 0. */
VX_API const char *RSrvJobRenderOutputName(unsigned int index);
VX_API int RSrvJobRenderOutputType(unsigned int index);
VX_API unsigned int RSrvJobRenderOutputCount(void);

/* While the current job is rendering: returns its status (RENDER_JOB_RENDERING) and does
 * nothing. Otherwise calls the host's clean-up with the current job (null when there is
 * none), drops the job, sets the pending flag and returns 0. */
VX_API unsigned int RSrvJobCleanup(void);

/* ---- Render buffers ---- */

/* A render buffer: named per-pixel float data that renders may fill. */
typedef struct RenderBufferDef {
    const char *name;        /* as registered */
    unsigned int components; /* floats per pixel, 1 to 4 */
    unsigned int flags;      /* the definer's, kept as given */
} RenderBufferDef;

/* Registers the server `name` of class "renderBuffer" whose data is the buffer's definition
 * (defining a name again replaces its definition). Returns 0; VX_E_BADARG for a null or empty
 * name or components outside 1 to 4, VX_E_REFUSED when the module is not started,
 * VX_E_NOMEMORY. */
VX_API unsigned int FloatBufferDefine(const char *name, unsigned int components,
                                      unsigned int flags);

/* The definition of a render buffer, valid until it is defined again or the module stops;
 * null when there is none. */
VX_API const RenderBufferDef *FloatBufferLookup(const char *name);

/* ---- Output file names ---- */

/* The default pattern of render output file names. */
#define RENDER_OUTPUT_PATTERN_DEFAULT "[<pass>][<output>][<LR>]<FFFF>"
/* The text channel of render items that holds their output pattern. */
#define RENDER_OUTPUT_PATTERN_CHANNEL "outPat"

/* The output pattern of a render item as seen from `action` (null: the channel's default):
 * the text of its channel RENDER_OUTPUT_PATTERN_CHANNEL, or RENDER_OUTPUT_PATTERN_DEFAULT when
 * the item is null, has no such channel, no entry sets it, or it is empty. The text stays valid
 * until the next call on the same thread. */
VX_API const char *RenderGetOutputPattern(CineItem *item, CineAction *action);

/* The fields of an output file name. Null texts are empty. */
typedef struct RenderOutputNameFields {
    const char *pass;   /* the render pass */
    const char *output; /* the render output */
    int eye;            /* 0 mono (empty), 1 left ("L"), 2 right ("R") */
    int frame;
} RenderOutputNameFields;

/* Expands an output pattern into a file name (without directory or extension):
 *   <pass>, <output>   the pass and output names;
 *   <LR>               "L" or "R" for a stereo eye, empty for mono;
 *   <F...>             the frame number with at least as many digits as there are F's,
 *                      padded with zeros, a minus sign before them for a negative frame;
 *   [ ... ]            a bracketed part is dropped whole when a field in it is empty;
 *                      brackets do not nest, and a bracket without its partner is text;
 *   anything else      is copied, including a <...> that names no field.
 * With the default pattern, pass "beauty", no output, the left eye and frame 12 this gives
 * "beautyL0012". Writes at most size - 1 characters and a terminating null (nothing when size
 * is 0) and returns the length of the whole name, as snprintf does; a null pattern is the
 * default one. */
VX_API size_t RenderExpandOutputPattern(const char *pattern, const RenderOutputNameFields *fields,
                                        char *buffer, size_t size);

VX_EXTERN_C_END

#endif
