// Shared pieces of the Python bindings: the library lock, failures as exceptions, and the
// lifetime tokens that keep a Python object from touching a record the library has freed.
#pragma once

#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include <vexor/vexor.h>

namespace py = pybind11;

namespace vxpy {

// Python threads meet the library one at a time. Calls that hold the GIL are already serial;
// the calls that drop it (evaluation over arrays) must not overlap an edit made meanwhile by
// another Python thread, so every call takes this lock. A thread never waits for the lock
// while holding the GIL, so the two cannot deadlock, and the lock is recursive because
// change callbacks call back into the module.
std::recursive_mutex &library_mutex();

class LibraryLock {
  public:
    LibraryLock() {
        if (!library_mutex().try_lock()) {
            py::gil_scoped_release released;
            library_mutex().lock();
        }
    }
    ~LibraryLock() { library_mutex().unlock(); }
    LibraryLock(const LibraryLock &) = delete;
    LibraryLock &operator=(const LibraryLock &) = delete;
};

// Runs `work` without the GIL and under the library lock (taken after the GIL is dropped).
template <typename Work>
void without_gil(Work &&work) {
    py::gil_scoped_release released;
    std::lock_guard<std::recursive_mutex> lock(library_mutex());
    work();
}

// Raises vexor.VexorError with the library's last failure (or `what` when there is none).
[[noreturn]] void raise_failure(const std::string &what);
// Clears the thread's last failure so a later failure result can be explained by it.
inline void begin_call() {
    VxClearFailure();
}
// Raises when a call reported failure with a zero result.
inline void check(int ok, const char *what) {
    if (ok == 0) raise_failure(what);
}
template <typename T>
T *check_ptr(T *pointer, const char *what) {
    if (pointer == nullptr) raise_failure(what);
    return pointer;
}

// Raises vexor.LifetimeError: the object points into something that no longer exists.
[[noreturn]] void raise_gone(const std::string &what);

// True while the library's modules are started (between import and interpreter exit).
bool library_running();

// What a scene's Python objects share: whether the scene still exists, and which of its items
// and actions are out of it (their creation undone). The module follows the scene's events to
// keep the two sets right; a removed record may be freed by the undo history at any time, so
// it is never touched again unless an event brings it back.
struct SceneState {
    Cinema *scene = nullptr;
    bool alive = true;
    uint64_t attachment = 0;
    std::unordered_set<const void *> removed;

    void require() const {
        if (!alive || !library_running()) raise_gone("the scene has been destroyed");
    }
    // Whether an item or action of the scene may be touched.
    bool present(const void *record) const {
        return alive && library_running() && removed.count(record) == 0;
    }
};
using SceneRef = std::shared_ptr<SceneState>;

// A Python callback on a port. The owner of the port keeps its subscribers and cancels them
// before the port goes; Python holds a Subscription that may cancel one earlier.
class Subscriber {
  public:
    // Turns an event into the callback's arguments (called with the GIL held).
    using Convert = py::tuple (*)(void *context, void *sender, uint32_t code, void *data);
    Subscriber(Port *port, py::function callback, Convert convert, void *context);
    ~Subscriber();
    Subscriber(const Subscriber &) = delete;
    Subscriber &operator=(const Subscriber &) = delete;
    // Detaches from the port (when `port_alive`) and drops the callback.
    void cancel(bool port_alive = true);
    bool active() const { return attachment_ != 0; }

  private:
    static void deliver(void *client, void *sender, uint32_t code, void *data);
    Port *port_;
    uint64_t attachment_ = 0;
    py::function callback_;
    Convert convert_;
    void *context_;
};
using Subscribers = std::vector<std::shared_ptr<Subscriber>>;
// The Python handle of a subscription.
py::object make_subscription(const std::shared_ptr<Subscriber> &subscriber);
// Cancels every subscriber of a list (port_alive: whether their port still exists).
void cancel_all(Subscribers &subscribers, bool port_alive);

// Envelopes held by an action entry, as Python objects; and the hand-over of an envelope that
// Python owns to an action (the action owns it once the library accepted it).
py::object wrap_held_envelope(const SceneRef &scene, CineAction *action, CineItem *item,
                              unsigned channel, Envelope *env);
Envelope *owned_envelope(py::handle envelope);
void envelope_handed_over(py::handle envelope, const SceneRef &scene, CineAction *action,
                          CineItem *item, unsigned channel);

// Objects Python dropped while the undo history might still replay their edits wait until the
// history is cleared (or the interpreter ends); these free them.
void flush_released_envelopes();
void flush_released_meshes();

void register_undo(py::module_ &m);
void register_events(py::module_ &m);
void register_envelopes(py::module_ &m);
void register_meshes(py::module_ &m);
void register_scenes(py::module_ &m);

// Closes every scene, mesh and envelope that Python still holds and stops the modules; later
// attempts to use them raise. Run at interpreter exit.
void shut_down_library();
// Each family registers what it must tear down at exit.
void at_shutdown(void (*hook)());

}  // namespace vxpy
