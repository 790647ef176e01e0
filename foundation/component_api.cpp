// The C interface of component objects: result codes around the C++ registry and objects.
#include <vexor/sys/component.h>

#include "foundation/component.h"
#include "foundation/guard.h"

namespace {

vx::com::Class &known_class(const char *name) {
    vx::com::Class *cls = vx::com::find_class(name);
    if (cls == nullptr) vx::fail(vx::rc::not_found, "no class of that name");
    return *cls;
}

}  // namespace

extern "C" {

VX_API unsigned int XObjectDefineClass(const char *className, size_t size,
                                       XObjectDestroyFunc destroy) {
    return vx::latch([&] { vx::com::define_class(className, size, destroy); });
}

VX_API unsigned int XObjectAddInterface(const char *className, const char *guid,
                                        const void *table) {
    return vx::latch([&] { vx::com::add_interface(known_class(className), guid, table); });
}

VX_API unsigned int XObjectAllocate(const char *className, void **out) {
    if (out == nullptr) return vx::rc::bad_argument;
    *out = nullptr;
    return vx::latch([&] { *out = vx::com::allocate(known_class(className)); });
}

VX_API unsigned int XObjectAddRef(void *obj) {
    return vx::com::add_ref(obj);
}

VX_API unsigned int XObjectRelease(void *obj) {
    return vx::com::release(obj);
}

VX_API unsigned int XObjectQueryInterface(void *obj, const char *guid, void **out) {
    return vx::com::query_interface(obj, guid, out);
}

VX_API const char *XObjectClassName(const void *obj) {
    return vx::com::class_name(obj);
}
}
