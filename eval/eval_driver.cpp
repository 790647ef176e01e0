// Drivers: component objects of class "eval.cache" that read channels in one cache.
#include <vexor/eval.h>

#include <mutex>

#include "eval/eval_data.h"
#include "foundation/component.h"
#include "foundation/guard.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

struct Driver {
    EvalData *data;
    Cache *cache;
};

Driver &driver(void *obj) noexcept {
    return *static_cast<Driver *>(obj);
}

// The driver holds a reference on a shared cache, so that no evaluator re-times it meanwhile.
void destroy_driver(void *obj) {
    Driver &d = driver(obj);
    if (d.cache == nullptr || d.cache->is_private()) return;
    std::lock_guard lock(d.data->lock);
    d.cache->in_use = --d.cache->refs > 0;
}

double driver_channel(void *obj, CineItem *item, unsigned int channel) {
    Driver &d = driver(obj);
    if (item == nullptr || item->scene != &d.data->scene) return 0.0;
    if (cine::item_channel(*item, channel) == nullptr) return 0.0;
    return guard(0.0, [&] { return read_in_cache(*d.cache, ChannelKey{item, channel}).number; });
}

double driver_time(void *obj) {
    return driver(obj).cache->time();
}

CineAction *driver_action(void *obj) {
    return driver(obj).cache->action();
}

const CineEvalDriverMethods kDriverMethods = {XOBJECT_METHODS_INIT, driver_channel, driver_time,
                                              driver_action};

com::Class &driver_class() {
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class("eval.cache", sizeof(Driver), destroy_driver);
        com::add_interface(c, CINE_EVAL_DRIVER_GUID, &kDriverMethods);
        return c;
    }();
    return cls;
}

}  // namespace
}  // namespace vx::eval

extern "C" VX_API void *CineEvalGetDriver(CineEval *eval) {
    using namespace vx::eval;
    if (eval == nullptr) return nullptr;
    return vx::guard(static_cast<void *>(nullptr), [&] {
        if (eval->data == nullptr) vx::fail(vx::rc::refused, "the evaluator's scene is gone");
        vx::com::Class &cls = driver_class();
        vx::com::Ref object(vx::com::allocate(cls));
        evaluate(*eval);
        Driver &d = driver(object.get());
        d.data = eval->data;
        d.cache = eval->cache;
        if (!d.cache->is_private()) {
            std::lock_guard lock(d.data->lock);
            ++d.cache->refs;
            d.cache->in_use = true;
        }
        return object.take();
    });
}
