// Copies of layers: a layer duplicated with its channel entries, children and "shadeLoc"
// links, as one undoable edit.
#include <vexor/action.h>
#include <vexor/tlayer.h>

#include "foundation/failure.h"
#include "foundation/guard.h"
#include "foundation/link_graph.h"
#include "foundation/undo.h"
#include "shading/tlayer_module.h"

using namespace vx::shade;

namespace {

void check(bool ok, const char *what) {
    if (!ok) vx::fail(vx::rc::failed, what);
}

int restore_links(CineItem *copy, const CineItem *original) {
    LinkGraph *graph = shade_graph(original);
    if (graph == nullptr || CineItemContext(copy) != CineItemContext(original)) return -1;
    const vx::GraphNode from = vx::node_of(const_cast<CineItem *>(original));
    const vx::GraphNode to = vx::node_of(copy);
    int made = 0;
    for (std::size_t i = 0, n = vx::fwd_count(*graph, from); i < n; ++i) {
        const vx::GraphNode target = vx::fwd_by_index(*graph, from, i);
        if (target.object != copy && vx::link(*graph, to, target)) ++made;
    }
    for (std::size_t i = 0, n = vx::rev_count(*graph, from); i < n; ++i) {
        const vx::GraphNode source = vx::rev_by_index(*graph, from, i);
        if (source.object != copy && vx::link(*graph, source, to)) ++made;
    }
    return made;
}

CineItem *duplicate(CineItem *layer, CineItem *parent, int position, CineAction *setup) {
    CineItem *copy = CineItemCreate(CineItemContext(layer), CineItemType(layer));
    check(copy != nullptr, "no copy of the layer");
    for (unsigned ch = 0, n = CineChannelCount(layer); ch < n; ++ch) {
        if (CineActionState(setup, layer, ch) == 0) continue;  // no entry of its own
        check(CineActionCopyChannel(setup, copy, ch, setup, layer, ch, 0) == 1,
              "a channel could not be copied");
    }
    if (parent != nullptr) {
        check(CineItemSetParent(copy, parent, position) == 0, "the copy could not be placed");
    }
    for (unsigned i = 0, n = CineItemSubCount(layer); i < n; ++i) {
        duplicate(CineItemSubByIndex(layer, i), copy, -1, setup);
    }
    check(restore_links(copy, layer) >= 0, "the links could not be restored");
    return copy;
}

}  // namespace

extern "C" {

VX_API int TLayerRestoreLinks(CineItem *copy, const CineItem *original) {
    if (copy == nullptr || original == nullptr) return -1;
    return vx::guard(-1, [&] {
        vx::EditTransaction transaction;
        vx::UndoBlock block;
        return restore_links(copy, original);
    });
}

VX_API CineItem *TLayerDuplicateItem(CineItem *layer) {
    if (!is_layer(layer) || !started()) return nullptr;
    return vx::guard<CineItem *>(nullptr, [&] {
        CineAction *setup = setup_action(layer);
        check(setup != nullptr, "the scene has no setup action");
        vx::EditTransaction transaction;
        vx::UndoBlock block;
        CineItem *parent = CineItemParent(layer);
        int position = -1;
        for (unsigned i = 0, n = parent != nullptr ? CineItemSubCount(parent) : 0; i < n; ++i) {
            if (CineItemSubByIndex(parent, i) == layer) position = static_cast<int>(i) + 1;
        }
        return duplicate(layer, parent, position, setup);
    });
}

}  // extern "C"
