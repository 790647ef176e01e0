// The modifiers that compute matrices: one per transform subtype, which turns the transform's
// own channels into its "matrix"; "$inverse", which gives a compensation the inverse of its
// partner's matrix; "xfrmcore", which composes a placed item's world matrix from its chain,
// its placed parent's world matrix and its inherit switches; "xfrmcore.local", which gives the
// local, inherited and parent matrices from the same inputs; and "xfrmcore.parts", which
// splits the world matrix into position, rotation and scale and places the pivot. Three nodes
// per placed item, so that reading world matrices (the common case) pays for nothing else.
//
// Every node reads channels through the evaluation cache, so a matrix is computed again only
// when something it depends on has changed or is animated, and a re-read at the same time
// is a cache hit.
#include <vexor/package.h>
#include <vexor/sys/modifier.h>

#include <algorithm>

#include "foundation/component.h"
#include "foundation/guard.h"
#include "foundation/registry.h"
#include "groups/xfrm.h"
#include "scene/scene.h"

namespace vx::xfrm {
namespace {

struct ModifierDef;

// A node: the item it was made for, and what its links found (for placed items).
struct Node {
    const ModifierDef *def;
    CineItem *item;
    std::uint32_t members;  // chain members, the first inputs
    std::int32_t pivot;     // input of the standard pivot's matrix, or -1
    std::int32_t pivot_rotation;
    std::uint32_t has_parent;  // the parent's world matrix follows the members
};

struct ModifierDef {
    const char *server;
    const char *types;
    std::uint32_t type;  // items of this type (or a subtype) get a node, if `wants` agrees
    bool (*wants)(const CineItem &item);
    bool (*link)(Node &node, CineModLinks *links);
    void (*evaluate)(Node &node, CineModEval *eval);
};

constexpr const char *kTransformGraphs = "xfrmCore xfrmLocal chanLinks";
constexpr const char *kCoreGraphs = "xfrmCore xfrmLocal parent";

mat::Matrix4 input_matrix(CineModEval *eval, std::uint32_t index) {
    const double *m = CineModInputMatrix(eval, index);
    mat::Matrix4 out = mat::identity();
    if (m != nullptr) std::copy(m, m + 16, out.begin());
    return out;
}

mat::Vector3 input_vector(CineModEval *eval) {
    return {CineModInput(eval, 0), CineModInput(eval, 1), CineModInput(eval, 2)};
}

// ---- Transforms ----

bool plain_transform(const CineItem &item) {
    return compensated_by(item) == nullptr;
}

bool compensation(const CineItem &item) {
    return compensated_by(item) != nullptr;
}

// The transform's own channels from index 2 are the inputs; "matrix" the output.
template <std::uint32_t Inputs>
bool link_own(Node &node, CineModLinks *links) {
    for (std::uint32_t i = 0; i < Inputs; ++i) {
        if (CineModAddInput(links, node.item, kFirstOwn + i) < 0) return false;
    }
    return CineModAddOutput(links, node.item, kMatrix) >= 0;
}

void set_matrix(CineModEval *eval, std::uint32_t index, const mat::Matrix4 &m) {
    CineModSetOutputMatrix(eval, index, m.data());
}

void eval_translation(Node &, CineModEval *eval) {
    set_matrix(eval, 0, mat::translation(input_vector(eval)));
}

void eval_rotation(Node &, CineModEval *eval) {
    const double order = CineModInput(eval, 3);
    set_matrix(eval, 0, mat::rotation(input_vector(eval), static_cast<int>(order)));
}

void eval_scale(Node &, CineModEval *eval) {
    set_matrix(eval, 0, mat::scaling(input_vector(eval)));
}

void eval_shear(Node &, CineModEval *eval) {
    const mat::Vector3 s = input_vector(eval);
    set_matrix(eval, 0, mat::shearing(s[0], s[1], s[2]));
}

bool link_inverse(Node &node, CineModLinks *links) {
    CineItem *partner = compensated_by(*node.item);
    return partner != nullptr && CineModAddInput(links, partner, kMatrix) >= 0 &&
           CineModAddOutput(links, node.item, kMatrix) >= 0;
}

void eval_inverse(Node &, CineModEval *eval) {
    mat::Matrix4 inverse = mat::identity();
    mat::invert(input_matrix(eval, 0), inverse);  // a singular partner leaves the identity
    set_matrix(eval, 0, inverse);
}

// ---- Placed items ----

bool any_item(const CineItem &) {
    return true;
}

// The world matrix, and apart from it what it is made of. Every output a node has costs a
// store whenever it runs, so the world matrix, which is read most, has a node to itself; both
// nodes read the same inputs. The parent's world matrix is split only when an inherit switch is
// off, so the common case is two products.
template <bool World>
bool link_core(Node &node, CineModLinks *links) {
    CineItem &item = *node.item;
    node.members = 0;
    for (CineItem *member : chain_of(item)) {
        if (CineModAddInput(links, member, kMatrix) < 0) return false;
        ++node.members;
    }
    CineItem *parent = placed_parent(item);
    node.has_parent = parent != nullptr ? 1 : 0;
    if (parent != nullptr && CineModAddInput(links, parent, kWorldMatrix) < 0) return false;
    for (std::uint32_t channel : {kInheritPos, kInheritRot, kInheritScl}) {
        if (CineModAddInput(links, &item, channel) < 0) return false;
    }
    if (World) return CineModAddOutput(links, &item, kWorldMatrix) >= 0;
    for (std::uint32_t channel : {kLocalMatrix, kParentMatrix, kWParentMatrix}) {
        if (CineModAddOutput(links, &item, channel) < 0) return false;
    }
    return true;
}

template <bool World>
void eval_core(Node &node, CineModEval *eval) {
    mat::Matrix4 local = node.members > 0 ? input_matrix(eval, 0) : mat::identity();
    for (std::uint32_t i = 1; i < node.members; ++i) mat::compose(local, input_matrix(eval, i));
    std::uint32_t at = node.members;
    const mat::Matrix4 parent_world =
        node.has_parent != 0 ? input_matrix(eval, at++) : mat::identity();
    const bool pos = CineModInput(eval, at) != 0.0;
    const bool rot = CineModInput(eval, at + 1) != 0.0;
    const bool scl = CineModInput(eval, at + 2) != 0.0;
    // What the item inherits: the parent's world matrix split as scale * rotation * position,
    // each part taken only when its switch is on.
    mat::Matrix4 inherited = parent_world;
    if (!(pos && rot && scl)) {
        mat::Matrix4 parent_scl, parent_rot, parent_pos;
        mat::decompose(parent_world, parent_scl, parent_rot, parent_pos);
        inherited = mat::identity();
        if (scl) mat::compose(inherited, parent_scl);
        if (rot) mat::compose(inherited, parent_rot);
        if (pos) mat::compose(inherited, parent_pos);
    }
    if (World) {
        set_matrix(eval, 0, node.has_parent != 0 ? mat::multiply(local, inherited) : local);
    } else {
        set_matrix(eval, 0, local);
        set_matrix(eval, 1, inherited);
        set_matrix(eval, 2, parent_world);
    }
}

// The world matrix split into scale, rotation and position, and the pivot's place and turn.
bool link_parts(Node &node, CineModLinks *links) {
    CineItem &item = *node.item;
    if (CineModAddInput(links, &item, kWorldMatrix) < 0) return false;
    node.pivot = node.pivot_rotation = -1;
    for (CineItem *member : chain_of(item)) {
        const int kind = kind_of(*member);
        if (kind != kPivot && kind != kPivotRotation) continue;
        const int input = CineModAddInput(links, member, kMatrix);
        if (input < 0) return false;
        (kind == kPivot ? node.pivot : node.pivot_rotation) = input;
    }
    for (std::uint32_t channel = kWposMatrix; channel <= kWpivRotMatrix; ++channel) {
        if (CineModAddOutput(links, &item, channel) < 0) return false;
    }
    return true;
}

void eval_parts(Node &node, CineModEval *eval) {
    const mat::Matrix4 world = input_matrix(eval, 0);
    mat::Matrix4 scale, rotation, position;
    mat::decompose(world, scale, rotation, position);
    // The pivot point sits at the pivot's translation in the item's own space.
    mat::Vector3 pivot{0, 0, 0};
    if (node.pivot >= 0)
        pivot = mat::translation_of(input_matrix(eval, static_cast<std::uint32_t>(node.pivot)));
    mat::Matrix4 pivot_rotation = rotation;
    if (node.pivot_rotation >= 0) {
        mat::Matrix4 own = input_matrix(eval, static_cast<std::uint32_t>(node.pivot_rotation));
        own[12] = own[13] = own[14] = 0.0;
        pivot_rotation = mat::multiply(own, rotation);
    }
    set_matrix(eval, 0, position);
    set_matrix(eval, 1, rotation);
    set_matrix(eval, 2, scale);
    set_matrix(eval, 3, mat::translation(mat::transform_point(world, pivot)));
    set_matrix(eval, 4, pivot_rotation);
}

const ModifierDef kModifierDefs[] = {
    {"$inverse", "transform", kTransformType, compensation, link_inverse, eval_inverse},
    {"translation", "translation", kTranslationType, plain_transform, link_own<3>,
     eval_translation},
    {"rotation", "rotation", kRotationType, plain_transform, link_own<4>, eval_rotation},
    {"scale", "scale", kScaleType, plain_transform, link_own<3>, eval_scale},
    {"shear", "shear", kShearType, plain_transform, link_own<3>, eval_shear},
    {"xfrmcore", "xfrmcore", kCoreType, any_item, link_core<true>, eval_core<true>},
    {"xfrmcore.local", "xfrmcore", kCoreType, any_item, link_core<false>, eval_core<false>},
    {"xfrmcore.parts", "xfrmcore", kCoreType, any_item, link_parts, eval_parts},
};

// ---- Component objects ----

struct Factory {
    const ModifierDef *def;
};

unsigned int node_link(void *obj, CineModLinks *links) {
    Node &node = *static_cast<Node *>(obj);
    return node.def->link(node, links) ? VX_OK : VX_E_FAILED;
}

unsigned int node_evaluate(void *obj, CineModEval *eval) {
    Node &node = *static_cast<Node *>(obj);
    node.def->evaluate(node, eval);
    return VX_OK;
}

int factory_applies(void *, Cinema *scene) {
    return core_graph(*scene) != nullptr && local_graph(*scene) != nullptr ? 1 : -1;
}

void factory_enumerate(void *obj, Cinema *scene, CineModVisitFunc visit, void *visit_data) {
    const ModifierDef &def = *static_cast<Factory *>(obj)->def;
    cine::for_each_item(*scene, [&](CineItem &item) {
        if (item.in_scene && cine::test_type(item, def.type) && def.wants(item))
            visit(visit_data, &item, 0);
    });
}

unsigned int factory_create(void *obj, CineItem *item, unsigned int, void **out);

const CineModNodeMethods kNodeMethods = {XOBJECT_METHODS_INIT, node_link, node_evaluate};
const CineModFactoryMethods kFactoryMethods = {XOBJECT_METHODS_INIT, factory_applies,
                                               factory_enumerate, factory_create};

com::Class &node_class() {
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class("xfrm.node", sizeof(Node), nullptr);
        com::add_interface(c, CINE_MOD_NODE_GUID, &kNodeMethods);
        return c;
    }();
    return cls;
}

com::Class &factory_class() {
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class("xfrm.factory", sizeof(Factory), nullptr);
        com::add_interface(c, CINE_MOD_FACTORY_GUID, &kFactoryMethods);
        return c;
    }();
    return cls;
}

unsigned int factory_create(void *obj, CineItem *item, unsigned int, void **out) {
    const ModifierDef *def = static_cast<Factory *>(obj)->def;
    return latch([&] {
        void *object = com::allocate(node_class());
        Node &node = *static_cast<Node *>(object);
        node.def = def;
        node.item = item;
        *out = object;
    });
}

void *make_factory(void *data) {
    void *object = com::allocate(factory_class());
    static_cast<Factory *>(object)->def = static_cast<const ModifierDef *>(data);
    return object;
}

}  // namespace

void register_modifiers() {
    for (const ModifierDef &def : kModifierDefs) {
        // The registry of servers may outlive the scene module: the servers stay registered.
        if (host::lookup(CINE_MODIFIER_CLASS, def.server) != nullptr) continue;
        HostServer *server = host::add_built_in(CINE_MODIFIER_CLASS, def.server, make_factory,
                                                const_cast<ModifierDef *>(&def));
        OnFailure unregister([&] { host::remove(server); });
        host::add_tag(server, "modifier.typeList", def.types);
        host::add_tag(server, "modifier.graphList",
                      def.type == kCoreType ? kCoreGraphs : kTransformGraphs);
        host::add_tag(server, "modifier.guidList", "");
    }
}

}  // namespace vx::xfrm
