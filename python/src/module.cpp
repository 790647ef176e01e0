// The compiled half of the `vexor` package: module start, exceptions, and the families.
#include <vector>

#include "common.h"

namespace vxpy {
namespace {

// Held forever: exception types must outlive every object that may raise them at exit.
py::object *g_vexor_error = nullptr;
py::object *g_lifetime_error = nullptr;
bool g_running = false;

std::vector<void (*)()> &shutdown_hooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}

}  // namespace

std::recursive_mutex &library_mutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

bool library_running() {
    return g_running;
}

void raise_failure(const std::string &what) {
    const VxFailure failure = VxLastFailure();
    std::string message = what;
    if (failure.code != VX_OK && failure.text != nullptr && failure.text[0] != '\0') {
        message += ": ";
        message += failure.text;
    }
    py::object error = (*g_vexor_error)(message);
    error.attr("code") = failure.code;
    error.attr("text") = failure.code != VX_OK ? failure.text : "";
    PyErr_SetObject(g_vexor_error->ptr(), error.ptr());
    throw py::error_already_set();
}

void raise_gone(const std::string &what) {
    PyErr_SetString(g_lifetime_error->ptr(), what.c_str());
    throw py::error_already_set();
}

void at_shutdown(void (*hook)()) {
    shutdown_hooks().push_back(hook);
}

void shut_down_library() {
    if (!g_running) return;
    LibraryLock lock;
    // Scenes before meshes and envelopes: scenes own envelopes of their own.
    for (auto it = shutdown_hooks().rbegin(); it != shutdown_hooks().rend(); ++it) (*it)();
    g_running = false;
    CinemaShutdown();
    MeshShutdown();
}

}  // namespace vxpy

PYBIND11_MODULE(_core, m) {
    using namespace vxpy;
    m.doc() = "The compiled part of the vexor package; import vexor instead.";

    g_vexor_error = new py::object(py::reinterpret_steal<py::object>(
        PyErr_NewExceptionWithDoc("vexor.VexorError",
                                  "A library call failed. `code` is the library's result code "
                                  "(0x80000003 for a bad argument, ...) and `text` its reason.",
                                  PyExc_RuntimeError, nullptr)));
    g_lifetime_error = new py::object(py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "vexor.LifetimeError",
        "The object points into something that no longer exists: an item of a destroyed scene, "
        "an item whose creation was undone, an envelope its action no longer holds.",
        PyExc_RuntimeError, nullptr)));
    m.attr("VexorError") = *g_vexor_error;
    m.attr("LifetimeError") = *g_lifetime_error;
    m.attr("__version__") = VEXOR_VERSION;

    if (MeshStartup() == 0) throw std::runtime_error("vexor: the mesh module could not start");
    CinemaStartup();
    g_running = true;

    register_events(m);
    register_undo(m);
    register_envelopes(m);
    register_meshes(m);
    register_scenes(m);

    m.def("_shutdown", &shut_down_library,
          "Destroys every scene, mesh and envelope still held and stops the library (run at "
          "interpreter exit; objects used afterwards raise LifetimeError).");
    m.def(
        "last_failure",
        [] {
            const VxFailure failure = VxLastFailure();
            return py::make_tuple(failure.code, failure.text);
        },
        "The calling thread's last failure as (code, text); code 0 when there was none.");
    m.def(
        "version", [] { return std::string(VxVersion()); }, "The loaded library's version.");
}
