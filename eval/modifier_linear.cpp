// The "linearBlend" modifier: an item whose "output" channel is a weighted sum of its inputs
// and the time, with no expression to parse. Small as it is, it exercises the whole modifier
// path: a factory that picks its items by type, a node with several inputs (the time node
// among them) and an output that other nodes may read.
#include <vexor/package.h>
#include <vexor/sys/modifier.h>

#include <array>

#include "eval/modifier_builtin.h"
#include "foundation/component.h"
#include "foundation/guard.h"
#include "foundation/registry.h"
#include "scene/channel_desc.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::eval {
namespace {

// Inputs in the order of the node's input indices; the time comes after them.
constexpr std::array<const char *, 6> kInputs = {"inputA",  "inputB",     "weightA",
                                                 "weightB", "timeWeight", "offset"};

struct Node {
    CineItem *item;
};

bool is_blend(const CineItem &item, std::uint32_t code) noexcept {
    for (const CinePackage *pkg = item.type; pkg != nullptr; pkg = pkg->super) {
        if (pkg->type_code == code) return true;
    }
    return false;
}

unsigned int node_link(void *obj, CineModLinks *links) {
    CineItem *item = static_cast<Node *>(obj)->item;
    for (const char *name : kInputs) {
        const std::int64_t channel = cine::lookup_channel(*item, name);
        if (channel < 0 || CineModAddInput(links, item, static_cast<unsigned>(channel)) < 0)
            return VX_E_FAILED;
    }
    const std::int64_t output = cine::lookup_channel(*item, "output");
    if (CineModAddTimeInput(links) < 0 || output < 0 ||
        CineModAddOutput(links, item, static_cast<unsigned>(output)) < 0)
        return VX_E_FAILED;
    return VX_OK;
}

unsigned int node_evaluate(void *, CineModEval *eval) {
    const double a = CineModInput(eval, 0), b = CineModInput(eval, 1);
    const double wa = CineModInput(eval, 2), wb = CineModInput(eval, 3);
    const double wt = CineModInput(eval, 4), offset = CineModInput(eval, 5);
    CineModSetOutput(eval, 0, offset + wa * a + wb * b + wt * CineModInput(eval, 6));
    return VX_OK;
}

int factory_applies(void *, Cinema *) {
    return 1;
}

void factory_enumerate(void *, Cinema *scene, CineModVisitFunc visit, void *visit_data) {
    const std::uint32_t code = CineLookupType(kLinearBlend);
    if (code == 0 || code == CINE_TYPE_NONE) return;
    cine::for_each_item(*scene, [&](CineItem &item) {
        if (item.in_scene && is_blend(item, code)) visit(visit_data, &item, 0);
    });
}

unsigned int factory_create(void *, CineItem *item, unsigned int, void **node);

const CineModNodeMethods kNodeMethods = {XOBJECT_METHODS_INIT, node_link, node_evaluate};
const CineModFactoryMethods kFactoryMethods = {XOBJECT_METHODS_INIT, factory_applies,
                                               factory_enumerate, factory_create};

com::Class &node_class() {
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class("linearBlend.node", sizeof(Node), nullptr);
        com::add_interface(c, CINE_MOD_NODE_GUID, &kNodeMethods);
        return c;
    }();
    return cls;
}

com::Class &factory_class() {
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class("linearBlend.factory", 0, nullptr);
        com::add_interface(c, CINE_MOD_FACTORY_GUID, &kFactoryMethods);
        return c;
    }();
    return cls;
}

unsigned int factory_create(void *, CineItem *item, unsigned int, void **node) {
    return latch([&] {
        void *object = com::allocate(node_class());
        static_cast<Node *>(object)->item = item;
        *node = object;
    });
}

void *make_factory(void *) {
    return com::allocate(factory_class());
}

constexpr cine::ChannelLine kChannels[] = {
    cine::float_channel("inputA"),     cine::float_channel("inputB"),
    cine::float_channel("weightA", 1), cine::float_channel("weightB", 1),
    cine::float_channel("timeWeight"), cine::float_channel("offset"),
    cine::float_channel("output"),
};

}  // namespace

void register_builtin_modifiers() {
    // The package goes with the scene module's registry at every stop; the server lives in the
    // registry of servers, which may outlive it when others keep that registry started.
    if (cine::find_package(kLinearBlend) == nullptr) {
        cine::define(kLinearBlend);
        cine::add_channels(kLinearBlend, kChannels);
        cine::define_type(kLinearBlendCode, 0, kLinearBlend);
    }
    if (host::lookup(CINE_MODIFIER_CLASS, kLinearBlend) != nullptr) return;
    HostServer *server =
        host::add_built_in(CINE_MODIFIER_CLASS, kLinearBlend, make_factory, nullptr);
    OnFailure unregister([&] { host::remove(server); });
    host::add_tag(server, "modifier.typeList", kLinearBlend);
    host::add_tag(server, "modifier.graphList", "");
    host::add_tag(server, "modifier.guidList", "");
}

}  // namespace vx::eval
