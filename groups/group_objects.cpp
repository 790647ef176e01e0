#include "groups/group_objects.h"

#include <cstdint>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "groups/group.h"
#include "scene/scene.h"

namespace vx::group {
namespace {

unsigned int kind(CineItem *group) {
    return group != nullptr && is_group(*group) ? kind_of(*group) : GROUP_KIND_NONE;
}

unsigned int count(CineItem *group, unsigned int what) {
    if (group == nullptr || !is_group(*group)) return 0;
    return static_cast<unsigned int>(member_count(*group, what != 0));
}

CineItem *item_by_index(CineItem *group, unsigned int index) {
    return group != nullptr && is_group(*group) ? member_item(*group, index) : nullptr;
}

const GroupItemMethods kItemMethods = {XOBJECT_METHODS_INIT, kind, count, item_by_index};

// The group is named by its scene and identity, so that a walk outliving its group (taken out
// of the scene and freed) finds nothing instead of reading freed memory.
struct EnumObject {
    Cinema *scene;
    std::uint64_t scene_id;
    const char *ident;  // points into enum_idents while the object lives
    unsigned int what;
    std::size_t next;
    CineItem *group;
};

CineItem *group_of(const EnumObject &walk) noexcept {
    if (!cine::scene_alive(walk.scene, walk.scene_id)) return nullptr;
    auto it = walk.scene->by_ident.find(walk.ident);
    return it != walk.scene->by_ident.end() && it->second == walk.group ? walk.group : nullptr;
}

void reset(void *obj) {
    static_cast<EnumObject *>(obj)->next = 0;
}

unsigned int next(void *obj, CineItem **item, unsigned int *channel) {
    auto &walk = *static_cast<EnumObject *>(obj);
    CineItem *group = group_of(walk);
    if (group == nullptr) return rc::not_found;
    CineItem *member = nullptr;
    std::uint32_t at = 0xFFFFFFFFu;
    if (walk.what == 0) {
        member = member_item(*group, walk.next);
    } else if (!member_channel(*group, walk.next, member, at)) {
        member = nullptr;
    }
    if (member == nullptr) return rc::not_found;
    ++walk.next;
    if (item != nullptr) *item = member;
    if (channel != nullptr) *channel = at;
    return rc::ok;
}

void destroy_enum(void *obj) {
    delete[] static_cast<EnumObject *>(obj)->ident;
}

const GroupEnumMethods kEnumMethods = {XOBJECT_METHODS_INIT, reset, next};

}  // namespace

const GroupItemMethods &item_methods() noexcept {
    return kItemMethods;
}

void define_classes() {
    com::Class &item = com::define_class("group.item", 0, nullptr);
    com::add_interface(item, GROUP_ITEM_GUID, &kItemMethods);
    com::Class &walk = com::define_class("group.enum", sizeof(EnumObject), destroy_enum);
    com::add_interface(walk, GROUP_ENUM_GUID, &kEnumMethods);
}

void *make_enum(CineItem &group, unsigned int what) {
    com::Class *cls = com::find_class("group.enum");
    if (cls == nullptr) fail(rc::not_found, "the group classes are not defined");
    char *ident = new char[group.ident.size() + 1];
    group.ident.copy(ident, group.ident.size());
    ident[group.ident.size()] = '\0';
    void *obj = nullptr;
    try {
        obj = com::allocate(*cls);
    } catch (...) {
        delete[] ident;
        throw;
    }
    *static_cast<EnumObject *>(obj) =
        EnumObject{group.scene, group.scene->id, ident, what, 0, &group};
    return obj;
}

}  // namespace vx::group
