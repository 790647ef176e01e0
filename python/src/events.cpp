// Library events delivered to Python callables.
#include "common.h"

namespace vxpy {

Subscriber::Subscriber(Port *port, py::function callback, Convert convert, void *context)
    : port_(port), callback_(std::move(callback)), convert_(convert), context_(context) {
    attachment_ = PortAttach(port, &Subscriber::deliver, this, nullptr);
    if (attachment_ == 0) raise_failure("could not listen to the object's events");
}

// Owners cancel their subscribers while they still know whether the port exists; a
// destructor cannot tell, so it never touches the port.
Subscriber::~Subscriber() = default;

void Subscriber::cancel(bool port_alive) {
    if (attachment_ != 0 && port_alive && library_running()) PortDetach(port_, attachment_);
    attachment_ = 0;
    callback_ = py::function();
}

void Subscriber::deliver(void *client, void *sender, uint32_t code, void *data) {
    auto *self = static_cast<Subscriber *>(client);
    py::gil_scoped_acquire gil;
    if (!self->callback_) return;
    // A listener must not fail: a callback that raises is reported the way Python reports
    // errors it cannot hand to anybody, and delivery goes on.
    try {
        py::function callback = self->callback_;
        callback(*self->convert_(self->context_, sender, code, data));
    } catch (py::error_already_set &error) {
        error.discard_as_unraisable("vexor change callback");
    } catch (const std::exception &error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        PyErr_WriteUnraisable(nullptr);
    }
}

void cancel_all(Subscribers &subscribers, bool port_alive) {
    for (auto &subscriber : subscribers) subscriber->cancel(port_alive);
    subscribers.clear();
}

namespace {

struct SubscriptionHandle {
    std::weak_ptr<Subscriber> subscriber;
};

}  // namespace

py::object make_subscription(const std::shared_ptr<Subscriber> &subscriber) {
    return py::cast(SubscriptionHandle{subscriber});
}

void register_events(py::module_ &m) {
    py::class_<SubscriptionHandle>(
        m, "Subscription",
        "A callback listening to an object's changes. cancel() stops it; "
        "it also stops when its object goes away.")
        .def(
            "cancel",
            [](SubscriptionHandle &self) {
                LibraryLock lock;
                if (auto subscriber = self.subscriber.lock()) subscriber->cancel();
            },
            "Stops the callback (calling it again does nothing).")
        .def_property_readonly(
            "active",
            [](const SubscriptionHandle &self) {
                auto subscriber = self.subscriber.lock();
                return subscriber != nullptr && subscriber->active();
            },
            "Whether the callback still listens.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](SubscriptionHandle &self, py::args) {
            LibraryLock lock;
            if (auto subscriber = self.subscriber.lock()) subscriber->cancel();
        });
}

}  // namespace vxpy
