// Transform chains: reading them from the scene graphs, and the undoable edits that add,
// move and mark their members.
#include <vexor/package.h>
#include <vexor/scene.h>

#include <algorithm>
#include <cstring>

#include "eval/action_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/link_graph.h"
#include "groups/xfrm.h"
#include "scene/scene.h"

namespace vx::xfrm {
namespace {

CineItem *item_at(GraphNode node) noexcept {
    return static_cast<CineItem *>(node.object);
}

GraphNode node(const CineItem &item) noexcept {
    return node_of(const_cast<CineItem *>(&item));
}

// Where each kind stands in a standard chain, first applied first.
constexpr int kRank[kKinds] = {
    /* scale */ 2,         /* rotation */ 4,         /* translation */ 7,
    /* pivot */ 6,         /* pivotComp */ 0,        /* shear */ 3,
    /* pivotRotation */ 5, /* pivotRotationComp */ 1};

// The member of a pair whose partner link starts, and its compensation.
struct Pair {
    int kind;
    int comp;
};
constexpr Pair kPairs[] = {{kPivot, kPivotComp}, {kPivotRotation, kPivotRotationComp}};

const Pair *pair_of(int kind) noexcept {
    for (const Pair &pair : kPairs) {
        if (pair.kind == kind || pair.comp == kind) return &pair;
    }
    return nullptr;
}

// Adds (linked false) or removes (linked true) one link of a graph, and tells the scene that
// the item it concerns changed, so that evaluation links its modifiers again. Applying again
// does the opposite, back at the same positions.
struct LinkEdit {
    Cinema *scene;
    std::uint64_t id;
    LinkGraph *graph;
    CineItem *from;
    CineItem *to;
    std::size_t fwd_at;
    std::size_t rev_at;
    bool linked;

    void prepare(int) {
        if (!linked && cine::scene_alive(scene, id)) reserve_link(*graph, node(*from), node(*to));
    }
    void apply(int) {
        if (!cine::scene_alive(scene, id)) return;
        if (linked) {
            fwd_at = fwd_position(*graph, node(*from), node(*to));
            rev_at = rev_position(*graph, node(*from), node(*to));
            unlink_now(*graph, node(*from), node(*to));
        } else {
            insert_reserved(*graph, node(*from), node(*to), fwd_at, rev_at);
        }
        linked = !linked;
        cine::send_event(*scene, CINE_EVENT_ITEM_CHANGED, to);
    }
};

void link(LinkGraph &graph, CineItem &from, CineItem &to, std::size_t rev_at) {
    Cinema &scene = *to.scene;
    edit_pending<LinkEdit>(1, &scene, scene.id, &graph, &from, &to, kNoLink, rev_at, false);
}

void unlink(LinkGraph &graph, CineItem &from, CineItem &to) {
    Cinema &scene = *to.scene;
    edit_pending<LinkEdit>(1, &scene, scene.id, &graph, &from, &to, kNoLink, kNoLink, true);
}

LinkGraph &need(LinkGraph *graph) {
    if (graph == nullptr) fail(rc::not_found, "the scene has no transform graphs");
    return *graph;
}

// Makes a transform of the type and links it into the item's chain at `at` (kNoLink: last).
// New rotations take the process-wide rotation order in the scene's setup action.
CineItem &make_member(CineItem &item, std::uint32_t type, std::size_t at) {
    Cinema &scene = *item.scene;
    LinkGraph &graph = need(core_graph(scene));
    CineItem &transform = cine::create_item(scene, type);
    if (cine::test_type(transform, kRotationType)) {
        if (CineAction *setup = act::default_action(scene, 0)) {
            const int order = default_rotation_order();
            act::set_constant(*setup, transform, kOrderChannel, act::fill_int, &order);
        }
    }
    link(graph, transform, item, at);
    return transform;
}

CineItem *find_kind(const CineItem &item, int kind) noexcept {
    const char *name = kind_name(kind);
    for (std::size_t i = 0, n = chain_size(item); i < n; ++i) {
        CineItem *member = chain_at(item, i);
        const std::string *tag = cine::item_tag(*member, kStdTag);
        if (tag != nullptr && *tag == name) return member;
    }
    return nullptr;
}

// The chain position a new standard member of the kind takes: before the first standard
// member that comes after it in a standard chain.
std::size_t std_position(const CineItem &item, int kind) noexcept {
    const std::size_t n = chain_size(item);
    for (std::size_t i = 0; i < n; ++i) {
        const int other = kind_of(*chain_at(item, i));
        if (other >= 0 && kRank[other] > kRank[kind]) return i;
    }
    return kNoLink;
}

CineItem &make_std(CineItem &item, int kind) {
    CineItem &member = make_member(item, kind_type(kind), std_position(item, kind));
    cine::set_item_tag(member, kStdTag, kind_name(kind));
    return member;
}

bool starts_with(const char *text, const char *prefix) noexcept {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

LinkGraph *core_graph(const Cinema &scene) noexcept {
    return cine::graph_named(scene, "xfrmCore");
}

LinkGraph *local_graph(const Cinema &scene) noexcept {
    return cine::graph_named(scene, "xfrmLocal");
}

bool is_placed(const CineItem *item) noexcept {
    return item != nullptr && cine::test_type(*item, kCoreType);
}

bool is_transform(const CineItem *item) noexcept {
    return item != nullptr && cine::test_type(*item, kTransformType);
}

std::size_t chain_size(const CineItem &item) noexcept {
    const LinkGraph *graph = core_graph(*item.scene);
    return graph != nullptr && is_placed(&item) ? rev_count(*graph, node(item)) : 0;
}

CineItem *chain_at(const CineItem &item, std::size_t index) noexcept {
    const LinkGraph *graph = core_graph(*item.scene);
    return graph != nullptr ? item_at(rev_by_index(*graph, node(item), index)) : nullptr;
}

std::vector<CineItem *> chain_of(const CineItem &item) {
    std::vector<CineItem *> chain(chain_size(item));
    for (std::size_t i = 0; i < chain.size(); ++i) chain[i] = chain_at(item, i);
    return chain;
}

CineItem *root_of(const CineItem &transform) noexcept {
    const LinkGraph *graph = core_graph(*transform.scene);
    if (graph == nullptr || !is_transform(&transform)) return nullptr;
    return item_at(fwd_by_index(*graph, node(transform), 0));
}

CineItem *partner_of(const CineItem &transform) noexcept {
    const LinkGraph *graph = local_graph(*transform.scene);
    if (graph == nullptr) return nullptr;
    CineItem *partner = item_at(fwd_by_index(*graph, node(transform), 0));
    return is_transform(partner) ? partner : nullptr;
}

CineItem *compensated_by(const CineItem &transform) noexcept {
    const LinkGraph *graph = local_graph(*transform.scene);
    if (graph == nullptr || !is_transform(&transform)) return nullptr;
    for (std::size_t i = 0, n = rev_count(*graph, node(transform)); i < n; ++i) {
        CineItem *from = item_at(rev_by_index(*graph, node(transform), i));
        if (is_transform(from) && partner_of(*from) == &transform) return from;
    }
    return nullptr;
}

std::vector<CineItem *> pre_transforms_of(const CineItem &item) {
    std::vector<CineItem *> out;
    const LinkGraph *graph = local_graph(*item.scene);
    if (graph == nullptr) return out;
    out.resize(rev_count(*graph, node(item)));
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = item_at(rev_by_index(*graph, node(item), i));
    return out;
}

int kind_of(const CineItem &transform) noexcept {
    const std::string *tag = cine::item_tag(transform, kStdTag);
    return tag != nullptr ? kind_named(tag->c_str()) : -1;
}

CineItem *placed_parent(const CineItem &item) noexcept {
    for (CineItem *at = cine::item_parent(item); at != nullptr; at = cine::item_parent(*at)) {
        if (is_placed(at)) return at;
    }
    return nullptr;
}

CineItem &add_transform(CineItem &item, std::uint32_t type) {
    if (!is_placed(&item)) fail(rc::bad_argument, "the item is not placed by transforms");
    if (type == 0 || type == CINE_TYPE_NONE || CineTypeTest(type, kTransformType) == 0) {
        XFRM_FAIL("XfrmAddTransformItem: ", "Unable to create transform item, unknown type");
        fail(rc::not_found, "not a transform type");
    }
    cine::SceneEdit frame(*item.scene);
    return make_member(item, type, kNoLink);
}

bool move_relative(CineItem &transform, CineItem &target, bool after) {
    if (&transform == &target || !is_transform(&transform) || !is_transform(&target)) return false;
    LinkGraph *graph = core_graph(*target.scene);
    CineItem *root = root_of(target);
    if (graph == nullptr || root == nullptr ||
        rev_position(*graph, node(target), node(*root)) == kNoLink) {
        XFRM_FAIL("XfrmMoveRelative: ", "Error - core transform not found");
        return false;
    }
    if (transform.scene != target.scene) return false;
    cine::SceneEdit frame(*target.scene);
    while (CineItem *old = item_at(fwd_by_index(*graph, node(transform), 0))) {
        unlink(*graph, transform, *old);
    }
    const std::size_t at = rev_position(*graph, node(target), node(*root)) + (after ? 1 : 0);
    link(*graph, transform, *root, at);
    return true;
}

CineItem *std_transform(CineItem &item, int kind, bool create) {
    if (!is_placed(&item) || kind < 0 || kind >= kKinds) return nullptr;
    if (CineItem *found = find_kind(item, kind)) return found;
    return create ? &add_std_transform(item, kind) : nullptr;
}

CineItem &add_std_transform(CineItem &item, int kind) {
    if (!is_placed(&item) || kind < 0 || kind >= kKinds)
        fail(rc::bad_argument, "not a placed item or not a standard kind");
    if (find_kind(item, kind) != nullptr) {
        XFRM_FAIL("XfrmAddStdTransform: ", "Standard transform already assigned");
        fail(rc::refused, "standard transform already assigned");
    }
    try {
        cine::SceneEdit frame(*item.scene);
        CineItem &member = make_std(item, kind);
        if (const Pair *pair = pair_of(kind)) {
            // Both halves of a pair exist together, the pivot linked to its compensation.
            CineItem *first = kind == pair->kind ? &member : find_kind(item, pair->kind);
            CineItem *comp = kind == pair->comp ? &member : find_kind(item, pair->comp);
            if (first == nullptr) first = &make_std(item, pair->kind);
            if (comp == nullptr) comp = &make_std(item, pair->comp);
            if (partner_of(*first) != comp)
                link(need(local_graph(*item.scene)), *first, *comp, kNoLink);
        }
        return member;
    } catch (...) {
        XFRM_FAIL("XfrmAddStdTransform: ", "Failed to create standard transform");
        throw;
    }
}

CineItem *legacy_channel(CineItem &item, const char *name, int *component, int *kind) {
    if (kind != nullptr) *kind = -1;
    if (!is_placed(&item) || name == nullptr) return nullptr;
    int found = -1;
    if (starts_with(name, "pos.")) {
        found = kTranslation;
    } else if (starts_with(name, "rotOrd")) {
        if (component != nullptr) *component = static_cast<int>(kOrderChannel);
        if (kind != nullptr) *kind = kRotation;
        return find_kind(item, kRotation);
    } else if (starts_with(name, "rot.")) {
        found = kRotation;
    } else if (starts_with(name, "scl.")) {
        found = kScale;
    } else if (starts_with(name, "pivPos.")) {
        found = kPivot;
    } else if (starts_with(name, "pivPosC.")) {
        found = kPivotComp;
    }
    if (found < 0) return nullptr;
    if (kind != nullptr) *kind = found;
    if (component != nullptr) {
        if (std::strchr(name, 'X') != nullptr) {
            *component = 2;
        } else if (std::strchr(name, 'Y') != nullptr) {
            *component = 3;
        } else if (std::strchr(name, 'Z') != nullptr) {
            *component = 4;
        }
    }
    return find_kind(item, found);
}

bool link_chain_now(CineItem &transform, CineItem &item) {
    return link_now(need(core_graph(*item.scene)), node(transform), node(item));
}

bool link_local_now(CineItem &from, CineItem &to) {
    return link_now(need(local_graph(*to.scene)), node(from), node(to));
}

}  // namespace vx::xfrm
