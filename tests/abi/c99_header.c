/* The umbrella header as a C99 host sees it, compiled with -std=c99 -pedantic -Werror, and a
 * few calls through the shared library. */
#include <stdio.h>
#include <string.h>

#include <vexor/vexor.h>

#ifdef __cplusplus
#error "this file checks the header as C"
#endif

static int failures = 0;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

int main(void) {
    const char *version = VxVersion();
    char parts[64];
    VxFailure failure;

    check(version != NULL, "VxVersion() is not null");
    if (version != NULL) {
        check(strcmp(version, VEXOR_EXPECTED_VERSION) == 0,
              "VxVersion() is the project version " VEXOR_EXPECTED_VERSION);
        snprintf(parts, sizeof parts, "%d.%d.%d", VxVersionMajor(), VxVersionMinor(),
                 VxVersionPatch());
        check(strcmp(version, parts) == 0, "VxVersionMajor/Minor/Patch agree with VxVersion()");
    }

    failure = VxLastFailure();
    check(failure.code == VX_OK, "a new thread has no last failure");
    check(failure.text != NULL, "the last failure's text is never null");

    if (failures == 0) printf("vexor %s seen from C99\n", version);
    return failures == 0 ? 0 : 1;
}
