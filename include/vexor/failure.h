/* The last failure of the calling thread, and a callback for every failure.
 *
 * Functions report failure by their documented result (0, null or a result code). A host
 * that wants to know more reads the last failure of its thread. Reading it never changes any
 * function's result, and a successful call does not clear it. */
#ifndef VEXOR_FAILURE_H
#define VEXOR_FAILURE_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Result codes. Interface methods return these; the last failure carries one. */
#define VX_OK 0x00000000u
#define VX_E_FAILED 0x80000001u
#define VX_E_NOMEMORY 0x80000002u
#define VX_E_BADARG 0x80000003u
#define VX_E_REFUSED 0x80000009u
#define VX_E_NOTFOUND 0x80000017u
#define VX_E_TYPEMISMATCH 0x8000001Cu

typedef struct VxFailure {
    unsigned int code; /* VX_OK when no failure has been seen on this thread */
    const char *text;  /* never null; valid until the thread's next failure */
} VxFailure;

/* The last failure that reached the C interface on the calling thread. */
VX_API VxFailure VxLastFailure(void);

/* Forgets the calling thread's last failure. */
VX_API void VxClearFailure(void);

/* Called on the failing thread each time a failure reaches the C interface, after it has
 * been recorded. The text is valid only during the call. The callback must not fail; a null
 * callback removes it. Install it before starting threads that call the library. */
typedef void (*VxFailureCallback)(unsigned int code, const char *text, void *client);
/* Installs the callback with its client value, replacing any earlier one (null removes it). */
VX_API void VxSetFailureCallback(VxFailureCallback callback, void *client);

VX_EXTERN_C_END

#endif
