// The group module's start and stop: the package and type "group", the component classes
// "group.item" and "group.enum", the graphs every scene gets, and the listener on "cinema-db".
#include <vexor/cinema.h>
#include <vexor/package.h>
#include <vexor/sys/group.h>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/port.h"
#include "groups/group.h"
#include "groups/group_io.h"
#include "groups/group_objects.h"
#include "scene/cinema_module.h"
#include "scene/over_scenes.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::group {
namespace {

struct Module {
    unsigned starts = 0;
    PortAttachment listener = 0;
};

Module &module() noexcept {
    static Module m;
    return m;
}

// The mirror axis of an assembly; the closing entry names the table.
constexpr TextHint kMirrorHints[] = {{0, "x"},    {1, "y"},  {2, "z"},   {3, "xw"},
                                     {4, "yw"},   {5, "zw"}, {6, "off"}, {0, "=assembly-mirror"},
                                     {0, nullptr}};
constexpr int kMirrorOff = 6;

// Asked only for the group item interface, the one it was registered for.
void *query_group(void *, const char *) {
    return const_cast<GroupItemMethods *>(&item_methods());
}

// A group's local data is the group item itself, so that package callbacks given only the
// local data find the group.
void *group_local(void *item, void *) {
    return item;
}

// The package survives a stop of this module while the scene module runs on, so a second
// start finds it defined.
void define_package() {
    if (cine::find_package(kPackage) != nullptr) return;
    CinePackageDefine(kPackage);
    const char *const none = nullptr;
    if (CinePackageAddChannel(kPackage, CINE_CH_NAME, "mirror", VX_STORE_INT, none,
                              CINE_CH_DEFAULT_INT, kMirrorOff, CINE_CH_INTERNAL, CINE_CH_HINTS,
                              kMirrorHints, 0u, CINE_CH_NAME, none) == 0 ||
        CinePackageAddQueryFunc(kPackage, query_group, nullptr, GROUP_ITEM_GUID) == 0 ||
        CinePackageSetLocal(kPackage, nullptr, group_local, nullptr) == nullptr) {
        fail(rc::no_memory, "the group package could not be defined");
    }
    if (CineDefineType(GROUP_TYPE_CODE, 0, nullptr) != GROUP_TYPE_CODE) {
        fail(rc::failed, "the group type could not be defined");
    }
    if (CineTypeAddTag(GROUP_TYPE_CODE, "isMaskItem", ".") == 0) {
        fail(rc::no_memory, "the group type could not be tagged");
    }
}

}  // namespace

void start() {
    cine::start_over_scenes(module().starts, [] {
        Module &m = module();
        define_package();
        define_classes();
        cine::define_graph(kGroupsGraph, 1);
        cine::define_graph(kItemGraph, 1);
        cine::define_graph(kChanGraph, 2);
        register_io();
        OnFailure drop_io([] { unregister_io(); });
        m.listener = vx::PortAttach(cine::database_port(), hear_items, nullptr, item_event_filter);
        if (m.listener == 0) fail(rc::no_memory, "could not listen to the scene database");
    });
}

void stop() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    vx::PortDetach(cine::database_port(), m.listener);
    m.listener = 0;
    unregister_io();
    forget_stashes();
    CinemaShutdown();
}

bool started() noexcept {
    return module().starts > 0;
}

}  // namespace vx::group
