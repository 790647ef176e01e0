#include <vexor/failure.h>

#include "foundation/failure.h"

extern "C" {

VX_API VxFailure VxLastFailure(void) {
    const vx::FailureRecord &record = vx::last_failure();
    return VxFailure{record.code, record.text};
}

VX_API void VxClearFailure(void) {
    vx::clear_last_failure();
}

VX_API void VxSetFailureCallback(VxFailureCallback callback, void *client) {
    vx::set_failure_callback(callback, client);
}
}
