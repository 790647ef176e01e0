// The C interface of scene files.
#include <vexor/scene_io.h>

#include "foundation/guard.h"
#include "scene/cinema_module.h"
#include "scene/scene_io.h"

using namespace vx::cine;

extern "C" {

VX_API int CinemaSave(Cinema *scene, const char *path) {
    return vx::guard(0, [&] {
        if (scene == nullptr) vx::fail(vx::rc::bad_argument, "no scene");
        io::save_scene_file(*scene, path);
        return 1;
    });
}

VX_API int CinemaSaveAccess(Cinema *scene, BlkWriter *writer) {
    return vx::guard(0, [&] {
        if (scene == nullptr || writer == nullptr) vx::fail(vx::rc::bad_argument, "no scene");
        io::save_scene(*scene, *writer);
        return 1;
    });
}

VX_API Cinema *CinemaLoadCustom(const char *path, unsigned int options) {
    return vx::guard<Cinema *>(nullptr, [&] {
        scenes();  // refuses while the module is stopped
        return io::load_scene_file(path, options);
    });
}

VX_API Cinema *CinemaLoadAccess(BlkReader *reader, unsigned int options) {
    return vx::guard<Cinema *>(nullptr, [&] {
        scenes();
        if (reader == nullptr) vx::fail(vx::rc::bad_argument, "no reader");
        return io::load_scene(*reader, options, nullptr);
    });
}

}  // extern "C"
