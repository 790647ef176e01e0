/* What a host supplies to drive renders: the job function table, the render-job interface of
 * its job objects, and the interfaces the render module names.
 *
 * The host installs one table of job functions for the process (RenderJobSetFuncs in
 * vexor/render_job.h). The RSrvJob functions check the state of the current job and forward
 * to it: every slot receives the current job object (borrowed; null for a clean-up without a
 * current job). Any slot may be null; a call that would forward to a null slot, or made when
 * no table is installed, answers as its declaration says.
 *
 * Slots run on the thread that made the RSrvJob call, without any lock of the library held:
 * they may call the RSrvJob functions themselves. They must return normally. */
#ifndef VEXOR_SYS_RENDER_JOB_H
#define VEXOR_SYS_RENDER_JOB_H

#include "vexor/export.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

/* The interfaces of the render module, as GUIDs; once the module has started, each is also
 * known by its name as a GUID alias (XObjectQueryInterface(obj, "renderjob", ...)). */
#define RENDER_FRAME_BUFFER_GUID "{091C8EB2-5DC1-4d01-AF9B-3C735F2FFB1D}" /* "frameBuffer" */
#define RENDER_JOB_GUID "{8D1710CE-7AF4-46cd-B6B1-222A7DC4C53F}"          /* "renderjob" */
#define RENDER_SERVICE_GUID "{1a89cc09-5326-44d6-9605-3b66bf9c03f5}"      /* "renderservice" */
#define RENDER_STATS_GUID "{154307c9-5fa3-4749-8853-088e2cc1f5ed}"        /* "renderstats" */
#define RENDER_IMAGE_PROCESSING_GUID \
    "{2f403a5c-a6aa-4d5a-88f6-a2dff23da523}" /* "imageprocessing" */
#define RENDER_IMAGE_PROCESSING_READ_GUID "{4a4ca8b2-df07-4156-b1c3-a5fc63318ea8}"
#define RENDER_IMAGE_PROCESSING_SERVICE_GUID "{088D0A6B-7A83-4774-AA56-473F6C241F40}"
#define RENDER_IMAGE_PROCESSING_LISTENER_GUID "{32468B1B-08DE-45A4-B0FE-6477AA7503AB}"
#define RENDER_IMAGE_PROCESSING_GLOBAL_GUID "{4C8B873D-BE6A-4370-8480-9A28E290E752}"
#define RENDER_BUFFER_GUID "{B08C9461-9E4C-49D2-8F18-28698EB90D40}" /* "renderBuffer" */

/* Status words of render jobs. The top bit set means failure. */
#define RENDER_JOB_PENDING 0x6400001u    /* a job is current but not started */
#define RENDER_JOB_RENDERING 0x6400002u  /* the current job is rendering */
#define RENDER_JOB_NO_JOB 0x86400001u    /* there is no current job */
#define RENDER_JOB_BUSY 0x86400002u      /* refused: another job is rendering */
#define RENDER_JOB_NOT_A_JOB 0x85700008u /* the object lacks the render-job interface */

/* The render-job interface of a host's job objects: the common entries, then whatever the host
 * adds. The library only asks whether a job object has it. */
typedef struct RenderJobMethods {
    XObjectMethods object;
} RenderJobMethods;

/* The host's job functions, in the order of their slots. */
typedef struct RenderJobFuncs {
    /* Starts rendering the job; returns a status word. */
    unsigned int (*start)(void *job);
    /* Asks the job to stop; returns a status word. */
    unsigned int (*abort)(void *job);
    /* The job's statistics object (for example one with the "renderstats" interface), borrowed. */
    void *(*statistics)(void *job);
    /* RENDER_JOB_RENDERING while the job renders, another status word otherwise. */
    unsigned int (*status)(void *job);
    /* Non-zero when this process renders for another one. */
    int (*isSlave)(void *job);
    void *reserved;
    /* The name and type of a render output of the job, and the number of outputs. */
    const char *(*outputName)(void *job, unsigned int index);
    int (*outputType)(void *job, unsigned int index);
    unsigned int (*outputCount)(void *job);
    /* The library has dropped the job (which is still alive during the call): free what the
     * render held. */
    void (*cleanup)(void *job);
} RenderJobFuncs;

/* The interface "renderservice" of the object made by the server "renderservice" (class
 * "renderservice"): the RSrvJob functions for plug-ins that reach the module through the
 * registry. `svc` is the service object; each entry does what the function of its name does. */
typedef struct RenderServiceMethods {
    XObjectMethods object;
    unsigned int (*SetCurrent)(void *svc, void *job);
    void *(*Current)(void *svc);
    unsigned int (*Start)(void *svc);
    unsigned int (*Abort)(void *svc);
    unsigned int (*Status)(void *svc);
    void *(*Stats)(void *svc);
    int (*IsSlave)(void *svc);
    const char *(*OutputName)(void *svc, unsigned int index);
    int (*OutputType)(void *svc, unsigned int index);
    unsigned int (*OutputCount)(void *svc);
    unsigned int (*Cleanup)(void *svc);
} RenderServiceMethods;

VX_EXTERN_C_END

#endif
