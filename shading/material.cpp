// Materials by polygon tag: finding the "mask" group and "advancedMaterial" that serve a tag,
// and making them as one undoable edit when there are none.
#include <vexor/action.h>
#include <vexor/tlayer.h>

#include <cstring>

#include "foundation/failure.h"
#include "foundation/guard.h"
#include "foundation/link_graph.h"
#include "foundation/undo.h"
#include "shading/tlayer_module.h"

using namespace vx::shade;

namespace {

bool serves(CineItem *group, CineAction *action, const char *tag) noexcept {
    return std::strcmp(read_text(group, action, "ptag"), tag) == 0;
}

// A nested match wins over the group itself, at every depth.
CineItem *match_in(CineAction *action, CineItem *group, const char *tag) noexcept {
    if (CineItem *nested = PTagGroupLookup(action, group, tag)) return nested;
    return serves(group, action, tag) ? group : nullptr;
}

CineItem *first_of_type(CineItem *parent, std::uint32_t type) noexcept {
    for (unsigned i = 0, n = CineItemSubCount(parent); i < n; ++i) {
        CineItem *child = CineItemSubByIndex(parent, i);
        if (is_a(child, type)) return child;
    }
    return nullptr;
}

// The group whose first forward "shadeLoc" link is `item`.
CineItem *linked_group(CineItem *parent, CineItem *item) noexcept {
    LinkGraph *graph = shade_graph(parent);
    if (graph == nullptr) return nullptr;
    for (unsigned i = 0, n = CineItemSubCount(parent); i < n; ++i) {
        CineItem *child = CineItemSubByIndex(parent, i);
        const vx::GraphNode node = vx::node_of(child);
        if (is_a(child, mask_type()) && vx::fwd_count(*graph, node) > 0 &&
            vx::fwd_by_index(*graph, node, 0).object == item) {
            return child;
        }
    }
    return nullptr;
}

// The number of "mask" groups at the bottom of parent's stack, `group` left out.
int init_position(CineItem *parent, const CineItem *group) noexcept {
    int position = 0;
    for (unsigned i = 0, n = CineItemSubCount(parent); i < n; ++i) {
        CineItem *child = CineItemSubByIndex(parent, i);
        if (child == group) continue;
        if (!is_a(child, mask_type())) break;
        ++position;
    }
    return position;
}

void check(bool ok, const char *what) {
    if (!ok) vx::fail(vx::rc::failed, what);
}

// Makes the group and its material; a failure anywhere takes back every step.
CineItem *create_material(CineItem *parent, const char *tag, CineItem **group_out) {
    Cinema *scene = CineItemContext(parent);
    CineAction *setup = setup_action(parent);
    check(setup != nullptr, "the scene has no setup action");
    vx::EditTransaction transaction;
    vx::UndoBlock block;
    CineItem *group = CineItemCreate(scene, mask_type());
    check(group != nullptr, "no mask group");
    const int ptag = CineItemLookupChannel(group, "ptag");
    const int ptyp = CineItemLookupChannel(group, "ptyp");
    check(ptag >= 0 && ptyp >= 0, "the mask group lacks its tag channels");
    check(CineActionSetConstantText(setup, group, static_cast<unsigned>(ptag), tag) != 0 &&
              CineActionSetConstantText(setup, group, static_cast<unsigned>(ptyp),
                                        TLayerTagTypeName(0x4D415452u)) != 0,
          "the group's tag could not be set");
    CineItem *material = CineItemCreate(scene, material_type());
    check(material != nullptr, "no material");
    check(CineItemSetParent(material, group, -1) == 0, "the material could not be placed");
    // Placed at once where TLayerInitPosition puts it, with no stop at the end of the stack:
    // the same tree, one link fewer to take back should the edit fail.
    check(CineItemSetParent(group, parent, init_position(parent, group)) == 0,
          "the group could not be placed");
    *group_out = group;
    return material;
}

CineItem *lookup(CineItem *parent, CineItem *item, const char *tag, int create,
                 CineItem **group_out) {
    *group_out = nullptr;
    if (parent == nullptr || tag == nullptr || !started()) return nullptr;
    CineAction *setup = setup_action(parent);
    CineItem *group = nullptr;
    for (unsigned i = 0, n = CineItemSubCount(parent); i < n && group == nullptr; ++i) {
        CineItem *child = CineItemSubByIndex(parent, i);
        if (is_a(child, mask_type())) group = match_in(setup, child, tag);
    }
    if (group == nullptr && item != nullptr) group = linked_group(parent, item);
    if (CineItem *material = first_of_type(group != nullptr ? group : parent, material_type())) {
        *group_out = group;
        return material;
    }
    if (create == 0) return nullptr;
    return vx::guard<CineItem *>(nullptr, [&] { return create_material(parent, tag, group_out); });
}

}  // namespace

extern "C" {

VX_API CineItem *PTagGroupLookup(CineAction *action, CineItem *group, const char *tag) {
    if (group == nullptr || tag == nullptr) return nullptr;
    for (unsigned i = 0, n = CineItemSubCount(group); i < n; ++i) {
        CineItem *child = CineItemSubByIndex(group, i);
        if (!is_a(child, mask_type())) continue;
        if (CineItem *found = match_in(action, child, tag)) return found;
    }
    return nullptr;
}

VX_API CineItem *MaterialLookup(CineItem *parent, CineItem *item, const char *tag, int create) {
    CineItem *group = nullptr;
    return lookup(parent, item, tag, create, &group);
}

VX_API CineItem *MaterialMaskLookup(CineItem *parent, CineItem *item, const char *tag, int create) {
    CineItem *group = nullptr;
    return lookup(parent, item, tag, create, &group) != nullptr ? group : nullptr;
}

VX_API int TLayerInitPosition(CineItem *layer) {
    CineItem *group = layer != nullptr ? CineItemParent(layer) : nullptr;
    CineItem *top = group != nullptr ? CineItemParent(group) : nullptr;
    return top != nullptr ? init_position(top, group) : -1;
}

}  // extern "C"
