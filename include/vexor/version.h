/* The version of the library in use.
 *
 * The version is major.minor.patch. Within one major version the C interface only grows:
 * functions are added, none is removed or changes meaning, so a host built against 1.2 runs
 * with 1.5. The shared library's SONAME carries the major version (libvexor.so.1). */
#ifndef VEXOR_VERSION_H
#define VEXOR_VERSION_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The version as text, "major.minor.patch" (for example "0.1.0"). The text is static: never
 * null, never freed by the caller, valid for the life of the process. Any thread. */
VX_API const char *VxVersion(void);

/* The parts of the version as numbers, equal to those in VxVersion(). A host that needs an
 * interface added in a given version compares these before calling it; a different major
 * version is not compatible. Any thread. */
VX_API int VxVersionMajor(void);
VX_API int VxVersionMinor(void);
VX_API int VxVersionPatch(void);

VX_EXTERN_C_END

#endif
