// Render buffers defined by name: each is a server of the class "renderBuffer" whose data is
// its definition. The module keeps the definitions in a list (the records the servers point
// at) and a hash by name.
#include <vexor/render_job.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "foundation/guard.h"
#include "foundation/registry.h"
#include "render/render_module.h"

namespace vx::render {

namespace {

constexpr const char *kClassName = "renderBuffer";

struct Definition {
    std::string name;
    RenderBufferDef def{};
};

struct Buffers {
    std::mutex lock;
    std::unordered_map<std::string, std::unique_ptr<Definition>> by_name;
};

Buffers &buffers() noexcept {
    static Buffers b;
    return b;
}

}  // namespace

void remove_float_buffers() noexcept {
    Buffers &b = buffers();
    std::lock_guard guard(b.lock);
    for (auto &[name, definition] : b.by_name) {
        if (HostServer *server = host::lookup(kClassName, name.c_str())) host::remove(server);
    }
    b.by_name.clear();
}

}  // namespace vx::render

extern "C" {

VX_API unsigned int FloatBufferDefine(const char *name, unsigned int components,
                                      unsigned int flags) {
    if (name == nullptr || name[0] == '\0' || components < 1 || components > 4) {
        return vx::rc::bad_argument;
    }
    if (!vx::render::module_started()) return vx::rc::refused;
    return vx::latch([&] {
        auto definition = std::make_unique<vx::render::Definition>();
        definition->name = name;
        definition->def = {definition->name.c_str(), components, flags};
        vx::render::Buffers &b = vx::render::buffers();
        std::lock_guard guard(b.lock);
        std::unique_ptr<vx::render::Definition> &slot = b.by_name[definition->name];
        // The server's data changes only once the registry has taken the new definition.
        vx::OnFailure forget([&] {
            if (!slot) b.by_name.erase(definition->name);
        });
        vx::host::add_built_in(vx::render::kClassName, name, nullptr, &definition->def);
        slot = std::move(definition);
    });
}

VX_API const RenderBufferDef *FloatBufferLookup(const char *name) {
    if (name == nullptr) return nullptr;
    vx::render::Buffers &b = vx::render::buffers();
    std::lock_guard guard(b.lock);
    const auto found = b.by_name.find(name);
    return found != b.by_name.end() ? &found->second->def : nullptr;
}

}  // extern "C"
