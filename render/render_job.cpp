// The render job module: its start and stop, the current job with its pending flag, and the
// RSrvJob functions that check the job's state and forward to the host's job functions. The
// state is guarded by one mutex; the host's slots are called with the job held by a reference
// of the call's own and the mutex released, so that they may call back.
#include <vexor/render_job.h>

#include <mutex>
#include <utility>

#include "foundation/component.h"
#include "foundation/guard.h"
#include "foundation/port.h"
#include "foundation/registry.h"
#include "render/render_module.h"

namespace vx::render {

namespace {

struct State {
    std::mutex lock;
    unsigned starts = 0;
    Port *port = nullptr;
    bool has_funcs = false;
    RenderJobFuncs funcs{};
    void *job = nullptr;        // the current job; the module holds one reference
    std::uint32_t pending = 1;  // set from making a job current until it is started
};

State &state() noexcept {
    static State s;
    return s;
}

// What a call needs of the state, taken under the lock: the table, and the current job with a
// reference of the call's own.
struct Snapshot {
    RenderJobFuncs funcs{};
    com::Ref job;
    bool pending = true;
    Port *port = nullptr;
};

Snapshot snapshot() {
    State &s = state();
    std::lock_guard guard(s.lock);
    Snapshot snap;
    if (s.has_funcs) snap.funcs = s.funcs;
    if (s.job != nullptr) {
        com::add_ref(s.job);
        snap.job = com::Ref(s.job);
    }
    snap.pending = s.pending != 0;
    snap.port = s.port;
    return snap;
}

unsigned status_of(const Snapshot &snap) {
    return snap.funcs.status != nullptr ? snap.funcs.status(snap.job.get()) : rc::not_found;
}

bool rendering(const Snapshot &snap) {
    return snap.job.get() != nullptr && !snap.pending && status_of(snap) == RENDER_JOB_RENDERING;
}

// Replaces the current job (taking over the caller's reference to the new one) and sets the
// pending flag; returns the old job for the caller to release outside the lock.
void *replace_job(void *job) noexcept {
    State &s = state();
    std::lock_guard guard(s.lock);
    void *old = s.job;
    s.job = job;
    s.pending = 1;
    return old;
}

void announce(Port *port, std::uint32_t code, void *job) noexcept {
    if (port != nullptr) vx::PortNotify(port, nullptr, code, job);
}

// ---- The "renderservice" object: the same functions through an interface ----

const RenderServiceMethods kServiceMethods = {
    XOBJECT_METHODS_INIT,
    [](void *, void *job) { return RSrvJobSetCurrent(job); },
    [](void *) { return RSrvJobCurrent(); },
    [](void *) { return RSrvJobStart(); },
    [](void *) { return RSrvJobAbort(); },
    [](void *) { return RSrvJobStatus(); },
    [](void *) { return RSrvJobStats(); },
    [](void *) { return RSrvJobIsSlave(); },
    [](void *, unsigned index) { return RSrvJobRenderOutputName(index); },
    [](void *, unsigned index) { return RSrvJobRenderOutputType(index); },
    [](void *) { return RSrvJobRenderOutputCount(); },
    [](void *) { return RSrvJobCleanup(); },
};

constexpr const char *kServiceName = "renderservice";

com::Class &service_class() {
    com::Class &cls = com::define_class(kServiceName, 0, nullptr);
    com::add_interface(cls, RENDER_SERVICE_GUID, &kServiceMethods);
    return cls;
}

void *make_service(void *) {
    return com::allocate(service_class());
}

struct Alias {
    const char *name;
    const char *guid;
};

constexpr Alias kAliases[] = {
    {"frameBuffer", RENDER_FRAME_BUFFER_GUID},
    {"renderjob", RENDER_JOB_GUID},
    {"renderservice", RENDER_SERVICE_GUID},
    {"renderstats", RENDER_STATS_GUID},
    {"imageprocessing", RENDER_IMAGE_PROCESSING_GUID},
    {"imageprocessingread", RENDER_IMAGE_PROCESSING_READ_GUID},
    {"imageprocessingservice", RENDER_IMAGE_PROCESSING_SERVICE_GUID},
    {"imageprocessinglistener", RENDER_IMAGE_PROCESSING_LISTENER_GUID},
    {"imageprocessingglobal", RENDER_IMAGE_PROCESSING_GLOBAL_GUID},
    {"renderBuffer", RENDER_BUFFER_GUID},
};

void remove_server(const char *cls, const char *name) noexcept {
    if (HostServer *server = host::lookup(cls, name)) host::remove(server);
}

void start_module(State &s) {
    host::start();
    OnFailure stop_host([] { host::stop(); });
    for (const Alias &alias : kAliases) com::add_guid_alias(alias.name, alias.guid);
    service_class();
    OnFailure remove_servers([] {
        remove_server("frameBuffer", "frameBuffer");
        remove_server(kServiceName, kServiceName);
    });
    define_frame_buffers();
    host::add_built_in(kServiceName, kServiceName, make_service, nullptr);
    s.port = vx::PortCreate(nullptr);
    remove_servers.disarm();
    stop_host.disarm();
}

}  // namespace

bool module_started() noexcept {
    State &s = state();
    std::lock_guard guard(s.lock);
    return s.starts > 0;
}

}  // namespace vx::render

using vx::render::Snapshot;
using vx::render::snapshot;

extern "C" {

VX_API int RenderJobStartup(void) {
    return vx::guard(0, [] {
        vx::render::State &s = vx::render::state();
        std::lock_guard guard(s.lock);
        if (s.starts == 0) vx::render::start_module(s);
        ++s.starts;
        return 1;
    });
}

VX_API void RenderJobShutdown(void) {
    vx::render::State &s = vx::render::state();
    void *job = nullptr;
    Port *port = nullptr;
    {
        std::lock_guard guard(s.lock);
        if (s.starts == 0 || --s.starts > 0) return;
        job = std::exchange(s.job, nullptr);
        port = std::exchange(s.port, nullptr);
        s.pending = 1;
        s.has_funcs = false;
        s.funcs = RenderJobFuncs{};
    }
    if (job != nullptr) vx::com::release(job);
    vx::render::remove_float_buffers();
    vx::render::remove_server("frameBuffer", "frameBuffer");
    vx::render::remove_server(vx::render::kServiceName, vx::render::kServiceName);
    if (port != nullptr) vx::PortDestroy(port);
    vx::host::stop();
}

VX_API Port *RenderJobPort(void) {
    vx::render::State &s = vx::render::state();
    std::lock_guard guard(s.lock);
    return s.port;
}

VX_API void RenderJobSetFuncs(const RenderJobFuncs *funcs) {
    vx::render::State &s = vx::render::state();
    std::lock_guard guard(s.lock);
    s.has_funcs = funcs != nullptr;
    s.funcs = funcs != nullptr ? *funcs : RenderJobFuncs{};
}

VX_API unsigned int RSrvJobSetCurrent(void *job) {
    if (!vx::render::module_started()) return vx::rc::refused;
    const Snapshot snap = snapshot();
    if (vx::render::rendering(snap)) return RENDER_JOB_BUSY;
    void *held = nullptr;
    if (job != nullptr) {
        // The query's reference becomes the module's reference to its current job.
        void *table = nullptr;
        if (vx::com::query_interface(job, RENDER_JOB_GUID, &table) != vx::rc::ok) {
            return RENDER_JOB_NOT_A_JOB;
        }
        held = job;
    }
    void *old = vx::render::replace_job(held);
    if (old != nullptr) vx::com::release(old);
    vx::render::announce(snap.port, RENDER_JOB_EVENT_CURRENT, held);
    return 0;
}

VX_API void *RSrvJobCurrent(void) {
    return snapshot().job.take();
}

VX_API unsigned int RSrvJobStart(void) {
    Snapshot snap = snapshot();
    if (snap.job.get() == nullptr) return RENDER_JOB_NO_JOB;
    if (snap.funcs.start == nullptr) return vx::rc::not_found;
    {
        vx::render::State &s = vx::render::state();
        std::lock_guard guard(s.lock);
        if (s.job == snap.job.get()) s.pending = 0;
    }
    const unsigned result = snap.funcs.start(snap.job.get());
    vx::render::announce(snap.port, RENDER_JOB_EVENT_STARTED, snap.job.get());
    return result;
}

VX_API unsigned int RSrvJobAbort(void) {
    const Snapshot snap = snapshot();
    if (snap.job.get() == nullptr) return RENDER_JOB_NO_JOB;
    return snap.funcs.abort != nullptr ? snap.funcs.abort(snap.job.get()) : vx::rc::not_found;
}

VX_API unsigned int RSrvJobStatus(void) {
    const Snapshot snap = snapshot();
    if (snap.job.get() == nullptr) return RENDER_JOB_NO_JOB;
    if (snap.pending) return RENDER_JOB_PENDING;
    return vx::render::status_of(snap);
}

VX_API void *RSrvJobStats(void) {
    const Snapshot snap = snapshot();
    if (snap.job.get() == nullptr || snap.funcs.statistics == nullptr) return nullptr;
    return snap.funcs.statistics(snap.job.get());
}

VX_API int RSrvJobIsSlave(void) {
    const Snapshot snap = snapshot();
    return snap.funcs.isSlave != nullptr ? snap.funcs.isSlave(snap.job.get()) : 0;
}

VX_API const char *RSrvJobRenderOutputName(unsigned int index) {
    const Snapshot snap = snapshot();
    if (snap.funcs.outputName == nullptr || !vx::render::rendering(snap)) return nullptr;
    return snap.funcs.outputName(snap.job.get(), index);
}

VX_API int RSrvJobRenderOutputType(unsigned int index) {
    const Snapshot snap = snapshot();
    if (snap.funcs.outputType == nullptr || !vx::render::rendering(snap)) return -1;
    return snap.funcs.outputType(snap.job.get(), index);
}

VX_API unsigned int RSrvJobRenderOutputCount(void) {
    const Snapshot snap = snapshot();
    if (snap.funcs.outputCount == nullptr || !vx::render::rendering(snap)) return 0;
    return snap.funcs.outputCount(snap.job.get());
}

VX_API unsigned int RSrvJobCleanup(void) {
    const Snapshot snap = snapshot();
    if (snap.job.get() != nullptr && !snap.pending) {
        const unsigned status = vx::render::status_of(snap);
        if (status == RENDER_JOB_RENDERING) return status;
    }
    if (snap.funcs.cleanup != nullptr) snap.funcs.cleanup(snap.job.get());
    if (!vx::render::module_started()) return 0;
    void *old = vx::render::replace_job(nullptr);
    if (old != nullptr) vx::com::release(old);
    vx::render::announce(snap.port, RENDER_JOB_EVENT_CLEANUP, nullptr);
    return 0;
}

}  // extern "C"
