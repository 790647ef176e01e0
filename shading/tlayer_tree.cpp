// Navigation of the shader tree: stacks, base layers, shading contexts, flags and effects.
#include <vexor/tlayer.h>

#include <cstring>

#include "foundation/guard.h"
#include "foundation/link_graph.h"
#include "shading/tlayer_module.h"

using namespace vx::shade;

namespace {

// The layer's index among its parent's children, or -1.
int index_in_parent(const CineItem *layer, const CineItem *parent) noexcept {
    for (unsigned i = 0, n = CineItemSubCount(parent); i < n; ++i) {
        if (CineItemSubByIndex(parent, i) == layer) return static_cast<int>(i);
    }
    return -1;
}

CineItem *sibling(const CineItem *layer, int step) noexcept {
    CineItem *parent = layer != nullptr ? CineItemParent(layer) : nullptr;
    if (parent == nullptr) return nullptr;
    const int at = index_in_parent(layer, parent) + step;
    return at >= 0 ? CineItemSubByIndex(parent, static_cast<unsigned>(at)) : nullptr;
}

const char *context_of_type(const CineItem *item) noexcept {
    return CineTypeGetTag(CineItemType(item), "shade.context", 1);
}

bool effect_matches(CineItem *layer, const char *effect) noexcept {
    const char *own = TLayerEffect(layer);
    return effect == nullptr || std::strcmp(own, "(all)") == 0 || std::strcmp(own, effect) == 0;
}

}  // namespace

extern "C" {

VX_API int TLayerIsLayer(const CineItem *item) {
    return is_layer(item) ? 1 : 0;
}

VX_API CineItem *TLayerBaseLayer(const CineItem *layer) {
    LinkGraph *graph = shade_graph(layer);
    if (graph == nullptr) return nullptr;
    const vx::GraphNode node = vx::node_of(const_cast<CineItem *>(layer));
    if (vx::rev_count(*graph, node) == 0) return nullptr;
    return static_cast<CineItem *>(vx::rev_by_index(*graph, node, 0).object);
}

VX_API int TLayerIsMaskLayer(const CineItem *layer) {
    LinkGraph *graph = shade_graph(layer);
    if (graph == nullptr) return 0;
    return static_cast<int>(vx::rev_count(*graph, vx::node_of(const_cast<CineItem *>(layer))));
}

VX_API CineItem *TLayerNextLayer(const CineItem *layer) {
    return sibling(layer, 1);
}

VX_API CineItem *TLayerPrevLayer(const CineItem *layer) {
    return sibling(layer, -1);
}

VX_API const char *TLayerShadeContext(const CineItem *layer) {
    if (layer == nullptr) return "surface";
    if (!is_layer(layer)) {
        if (const char *own = context_of_type(layer)) return own;
    }
    const CineItem *base = TLayerBaseLayer(layer);
    for (const CineItem *at = base != nullptr ? base : layer; at != nullptr;
         at = CineItemParent(at)) {
        if (const char *context = context_of_type(at)) return context;
    }
    return "surface";
}

VX_API unsigned int TLayerFlags(CineItem *layer) {
    if (is_a(layer, output_type())) return TLAYER_FLAG_OUTPUT;
    void *client = nullptr;
    const TextureLayerOps *ops = ops_of(layer, &client);
    return ops != nullptr && ops->Flags != nullptr ? ops->Flags(client, layer) : 0;
}

VX_API const char *TLayerEffect(CineItem *layer) {
    if (!is_layer(layer)) return nullptr;
    const char *effect = read_text(layer, setup_action(layer), "effect");
    return *effect != '\0' ? effect : "(all)";
}

VX_API unsigned int TLayerEffectCount(CineItem *group, const char *effect) {
    unsigned count = 0;
    for (unsigned i = 0, n = group != nullptr ? CineItemSubCount(group) : 0; i < n; ++i) {
        CineItem *layer = CineItemSubByIndex(group, i);
        if (is_layer(layer) && read_number(layer, nullptr, "enable", 1.0) != 0.0 &&
            effect_matches(layer, effect)) {
            ++count;
        }
    }
    return count;
}

VX_API int TLayerIsMasked(CineItem *layer) {
    for (CineItem *at = layer != nullptr ? CineItemParent(layer) : nullptr; at != nullptr;
         at = CineItemParent(at)) {
        if (is_a(at, mask_type()) && *read_text(at, setup_action(at), "ptag") != '\0') return 1;
    }
    return 0;
}

VX_API CineItem *TLayerGroupMaskLayer(CineItem *group) {
    for (unsigned i = 0, n = group != nullptr ? CineItemSubCount(group) : 0; i < n; ++i) {
        CineItem *layer = CineItemSubByIndex(group, i);
        const char *effect = TLayerEffect(layer);
        if (effect != nullptr && std::strcmp(effect, "groupMask") == 0) return layer;
    }
    return nullptr;
}

VX_API CineItem *TLayerRootItem(CineItem *layer) {
    CineItem *root = layer;
    for (CineItem *at = layer != nullptr ? CineItemParent(layer) : nullptr; at != nullptr;
         at = CineItemParent(at)) {
        if (is_layer(at)) root = at;
    }
    return root;
}

VX_API int TLayerLinkShade(CineItem *from, CineItem *layer) {
    LinkGraph *graph = shade_graph(layer);
    if (graph == nullptr || from == nullptr || CineItemContext(from) != CineItemContext(layer)) {
        return 0;
    }
    return vx::guard(
        0, [&] { return vx::link(*graph, vx::node_of(from), vx::node_of(layer)) ? 1 : 0; });
}

VX_API const char *TLayerTagTypeName(uint32_t tagType) {
    switch (tagType) {
        case 0x4D415452u:
            return "Material";  // MATR
        case 0x50415254u:
            return "Part";  // PART
        case 0x5049434Bu:
            return "Selection Set";  // PICK
        default:
            return nullptr;
    }
}

}  // extern "C"
