#include "scene/scene_objects.h"

#include <vexor/sys/item.h>

#include "foundation/component.h"

namespace vx::cine {
namespace {

struct SceneObject {
    Cinema *scene;
};
struct ItemObject {
    CineItem *item;
};
struct InstanceObject {
    CineItem *item;
    CinePackage *package;
};

Cinema *scene_of(void *obj) {
    return static_cast<SceneObject *>(obj)->scene;
}
CineItem *item_of(void *obj) {
    return static_cast<ItemObject *>(obj)->item;
}
CineItem *instance_item(void *obj) {
    return static_cast<InstanceObject *>(obj)->item;
}
CinePackage *instance_package(void *obj) {
    return static_cast<InstanceObject *>(obj)->package;
}

const CineSceneMethods kSceneMethods = {XOBJECT_METHODS_INIT, scene_of};
const CineItemMethods kItemMethods = {XOBJECT_METHODS_INIT, item_of};
const CinePackageInstanceMethods kInstanceMethods = {XOBJECT_METHODS_INIT, instance_item,
                                                     instance_package};

void *make(const char *name) {
    com::Class *cls = com::find_class(name);
    if (cls == nullptr) fail(rc::not_found, "the scene classes are not defined");
    return com::allocate(*cls);
}

}  // namespace

void define_scene_classes() {
    com::Class &scene = com::define_class("scene", sizeof(SceneObject), nullptr);
    com::add_interface(scene, CINE_SCENE_GUID, &kSceneMethods);
    com::Class &item = com::define_class("item", sizeof(ItemObject), nullptr);
    com::add_interface(item, CINE_ITEM_GUID, &kItemMethods);
    com::Class &inst = com::define_class("pwrap.inst", sizeof(InstanceObject), nullptr);
    com::add_interface(inst, CINE_PACKAGE_INSTANCE_GUID, &kInstanceMethods);
}

void *make_scene_object(Cinema &scene) {
    void *obj = make("scene");
    static_cast<SceneObject *>(obj)->scene = &scene;
    return obj;
}

void *make_item_object(CineItem &item) {
    void *obj = make("item");
    static_cast<ItemObject *>(obj)->item = &item;
    return obj;
}

void *make_instance_object(CineItem &item, CinePackage &pkg) {
    void *obj = make("pwrap.inst");
    auto *inst = static_cast<InstanceObject *>(obj);
    inst->item = &item;
    inst->package = &pkg;
    return obj;
}

}  // namespace vx::cine
