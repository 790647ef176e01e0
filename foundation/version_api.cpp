#include <vexor/version.h>

// The build passes the project's version to this file alone, so a version change rebuilds one
// object rather than the library.
#if !defined(VEXOR_VERSION_STRING) || !defined(VEXOR_VERSION_MAJOR) || \
    !defined(VEXOR_VERSION_MINOR) || !defined(VEXOR_VERSION_PATCH)
#error "the build must define VEXOR_VERSION_STRING and VEXOR_VERSION_MAJOR/MINOR/PATCH"
#endif

extern "C" {

VX_API const char *VxVersion(void) {
    return VEXOR_VERSION_STRING;
}

VX_API int VxVersionMajor(void) {
    return VEXOR_VERSION_MAJOR;
}

VX_API int VxVersionMinor(void) {
    return VEXOR_VERSION_MINOR;
}

VX_API int VxVersionPatch(void) {
    return VEXOR_VERSION_PATCH;
}
}
