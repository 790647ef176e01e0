// The objects of the saver and loader "$Cinema": component objects of class "cinema.file"
// whose interface saves and loads scene files, for hosts that reach savers and loaders through
// the registry rather than by name.
#include <vexor/scene_io.h>

#include "foundation/component.h"
#include "scene/scene_io.h"

namespace vx::cine::io {
namespace {

int save(void *, Cinema *scene, const char *path) {
    return CinemaSave(scene, path);
}

Cinema *load(void *, const char *path, unsigned int options) {
    return CinemaLoadCustom(path, options);
}

const CinemaFileMethods kFileMethods = {XOBJECT_METHODS_INIT, save, load};

}  // namespace

void define_file_class() {
    com::Class &cls = com::define_class(CINEMA_FILE_CLASS, 0, nullptr);
    com::add_interface(cls, CINEMA_FILE_GUID, &kFileMethods);
}

void *make_file_object(void *) {
    com::Class *cls = com::find_class(CINEMA_FILE_CLASS);
    if (cls == nullptr) fail(rc::not_found, "the scene file class is not defined");
    return com::allocate(*cls);
}

}  // namespace vx::cine::io
