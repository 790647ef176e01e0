// Texture effects: the "textureEffect" servers, their categories and defaults, and the effect
// objects. A packet effect also records the packet it writes and a type holding just it.
#include <vexor/svec.h>

#include <cstring>
#include <string>
#include <unordered_map>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/guard.h"
#include "foundation/log.h"
#include "foundation/registry.h"
#include "shading/vtype.h"

namespace vx::svec {
namespace {

constexpr const char *kEffectClass = "textureEffect";
constexpr const char *kEffectTag = "textureFX.category";

struct Effect {
    std::string name;
    const TextureEffectOps *ops = nullptr;
    void *data = nullptr;
    HostServer *server = nullptr;
    // Packet effects only.
    HostServer *packet_server = nullptr;
    std::uint32_t packet = kNone;
    VType *type = nullptr;
    void *object = nullptr;
};

struct Effects {
    std::deque<std::unique_ptr<Effect>> list;
    std::unordered_map<std::string, std::string> defaults;
};

Effects &effects() noexcept {
    static Effects e;
    return e;
}

// What TextureEffectAllocate makes: the effect's wrapper object.
struct EffectObject {
    Effect *effect;
    const TextureEffectOps *ops;
    void *data;
    void *object;
};

void *make_effect_object(void *data) {
    auto *effect = static_cast<Effect *>(data);
    const char *cls = effect->type != nullptr ? "packFX.wrapper" : "txtrFX.wrapper";
    com::Ref made(com::allocate(*com::find_class(cls)));
    *static_cast<EffectObject *>(made.get()) = {effect, effect->ops, effect->data, effect->object};
    if (effect->ops != nullptr && effect->ops->Init != nullptr &&
        effect->ops->Init(effect->data) != 0) {
        fail(rc::refused, "the texture effect refused to start");
    }
    return made.take();
}

Effect *find_locked(const char *name) noexcept {
    for (const std::unique_ptr<Effect> &e : effects().list) {
        if (e->name == name) return e.get();
    }
    return nullptr;
}

const char *categories_of(const Effect &e) noexcept {
    return host::tag(e.server, kEffectTag);
}

// Adds a category to an existing server's tag; true when the server exists.
bool extend_locked(const char *category, const char *name) {
    HostServer *server = host::lookup(kEffectClass, name);
    if (server == nullptr) return false;
    const char *listed = host::tag(server, kEffectTag);
    if (listed == nullptr || *listed == '\0') {
        host::add_tag(server, kEffectTag, category);
    } else if (!lists_word(listed, category)) {
        host::add_tag(server, kEffectTag, (std::string(listed) + ' ' + category).c_str());
    }
    return true;
}

void check_names(const char *category, const char *name) {
    require_started();
    if (category == nullptr || *category == '\0' || name == nullptr || *name == '\0') {
        fail(rc::bad_argument, "an effect needs a category and a name");
    }
}

Effect &register_locked(const char *category, std::unique_ptr<Effect> made) {
    Effects &all = effects();
    all.list.push_back(nullptr);
    OnFailure drop_slot([&] { all.list.pop_back(); });
    HostServer *server =
        host::add_built_in(kEffectClass, made->name.c_str(), make_effect_object, made.get());
    OnFailure drop_server([&] { host::remove(server); });
    host::add_tag(server, kEffectTag, category);
    made->server = server;
    all.list.back() = std::move(made);
    return *all.list.back();
}

}  // namespace

void start_effects() {}

void stop_effects() noexcept {
    Effects &all = effects();
    for (const std::unique_ptr<Effect> &e : all.list) {
        host::remove(e->server);
        if (e->packet_server != nullptr) host::remove(e->packet_server);
        if (e->type != nullptr) free_type(e->type);
        if (e->object != nullptr) com::release(e->object);
    }
    all.list.clear();
    all.defaults.clear();
}

}  // namespace vx::svec

using namespace vx::svec;

extern "C" {

VX_API int TextureEffectDefine(const char *category, const char *name, const TextureEffectOps *ops,
                               void *data) {
    return vx::guard(0, [&] {
        std::lock_guard hold(module_lock());
        check_names(category, name);
        if (extend_locked(category, name)) return 1;
        auto made = std::make_unique<Effect>();
        made->name = name;
        made->ops = ops;
        made->data = data;
        register_locked(category, std::move(made));
        return 1;
    });
}

VX_API int PacketEffectDefine(const char *category, const char *packet, void *object,
                              const char *name) {
    return vx::guard(0, [&] {
        std::lock_guard hold(module_lock());
        check_names(category, name);
        // An effect of that name only gains the category: its packet is not looked at again.
        if (extend_locked(category, name)) return 1;
        if (packet == nullptr) return 0;
        const std::uint32_t index = resolve_locked(category_locked("sample"), packet, 0, false);
        if (index >= kNone - 1) return 0;
        VType *type = allocate_type("sample", 1);
        if (type == nullptr) vx::fail(vx::rc::no_memory, "no vector type for the effect");
        vx::OnFailure free_made_type([&] { free_type(type); });
        add_packet(*type, packet, 0, false, 1);
        HostServer *packet_server = vx::host::add_built_in("packetEffect", name, nullptr, nullptr);
        vx::OnFailure drop_packet_server([&] { vx::host::remove(packet_server); });
        vx::host::add_tag(packet_server, "packetFX.packet", packet);
        auto made = std::make_unique<Effect>();
        made->name = name;
        made->packet = index;
        made->type = type;
        made->packet_server = packet_server;
        Effect &effect = register_locked(category, std::move(made));
        if (object != nullptr) vx::com::add_ref(object);
        effect.object = object;
        vx::log::named(kLog, "-> Texture effect defined: name = %s, custom packet = %s\n", name,
                       packet);
        return 1;
    });
}

VX_API const char *TextureEffectList(const char *category, unsigned int index) {
    std::lock_guard hold(module_lock());
    for (const std::unique_ptr<Effect> &e : effects().list) {
        if (category != nullptr && !lists_word(categories_of(*e), category)) continue;
        if (index-- == 0) return e->name.c_str();
    }
    return nullptr;
}

VX_API const char *TextureEffectDefault(const char *category) {
    {
        std::lock_guard hold(module_lock());
        if (category == nullptr) return nullptr;
        auto chosen = effects().defaults.find(category);
        if (chosen != effects().defaults.end()) {
            if (Effect *e = find_locked(chosen->second.c_str())) return e->name.c_str();
        }
    }
    return TextureEffectList(category, 0);
}

VX_API int TextureEffectSetDefault(const char *category, const char *name) {
    return vx::guard(0, [&] {
        std::lock_guard hold(module_lock());
        if (category == nullptr || name == nullptr) return 0;
        Effect *e = find_locked(name);
        if (e == nullptr || !lists_word(categories_of(*e), category)) return 0;
        effects().defaults[category] = name;
        return 1;
    });
}

VX_API unsigned int TextureEffectAllocate(const char *name, void **out) {
    if (out == nullptr) return vx::rc::bad_argument;
    *out = nullptr;
    if (name == nullptr) return vx::rc::not_found;
    return vx::latch([&] {
        HostServer *server = vx::host::lookup(kEffectClass, name);
        if (server == nullptr) vx::fail(vx::rc::not_found, "no such texture effect");
        *out = vx::host::allocate(server);
    });
}

VX_API unsigned int TextureEffectPacket(const char *name) {
    std::lock_guard hold(module_lock());
    const Effect *e = name != nullptr ? find_locked(name) : nullptr;
    return e != nullptr ? e->packet : kNone;
}

VX_API const VType *TextureEffectType(const char *name) {
    std::lock_guard hold(module_lock());
    const Effect *e = name != nullptr ? find_locked(name) : nullptr;
    return e != nullptr ? e->type : nullptr;
}

}  // extern "C"
