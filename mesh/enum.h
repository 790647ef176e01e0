// Enumeration of a mesh's vertices or polygons through a mark filter: the choice of the list to
// walk (the mesh's own, or the subset of a kind-2 source), the walk itself, the walk of dead
// elements and the walk split across threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <vexor/mark.h>

#include "mesh/mark.h"
#include "mesh/mesh.h"

namespace vx::mesh {

// Where a walk goes: an element list or a subset array, and the filter its elements must pass.
template <class Element>
struct WalkPlan {
    const ElementList<Element> *list;
    const DenseArray<Element *> *subset;
    MarkFilter filter;

    std::size_t size() const noexcept { return list != nullptr ? list->size() : subset->size(); }
    Element *operator[](std::size_t index) const noexcept {
        return list != nullptr ? (*list)[index] : const_cast<Element *>((*subset)[index]);
    }
};

// The list a filter walks on this mesh. With kSubsetBit, an instance of a kind-2 mesh walks the
// source's subset, the source's show-dead word deciding about dead elements, and the bit is no
// longer required of the elements.
template <class Element>
WalkPlan<Element> plan_walk(const Mesh *mesh, std::uint32_t mode) noexcept {
    const Mesh *source = mesh->source;
    if ((mode & kSubsetBit) != 0 && source != nullptr && source->kind == kSubsetKind) {
        const std::uint32_t rest = mode & ~kSubsetBit;
        if constexpr (std::is_same_v<Element, MeshVertex>) {
            return {nullptr, &source->subset_vertices, MarkFilter(rest, source->show_dead != 0)};
        } else {
            return {nullptr, &source->subset_polygons, MarkFilter(rest, source->show_dead != 0)};
        }
    }
    if constexpr (std::is_same_v<Element, MeshVertex>) {
        return {mesh->vertices, nullptr, MarkFilter(mode, mesh->show_dead != 0)};
    } else {
        return {mesh->polygons, nullptr, MarkFilter(mode, mesh->show_dead != 0)};
    }
}

// Calls visit(element) for each element of the plan that passes its filter, in order; returns
// the first non-zero result, else 0. The list is read afresh after each visit, so a visit that
// makes elements cannot leave the walk on freed memory.
template <class Element, class Visit>
std::uint32_t walk(const WalkPlan<Element> &plan, Visit &&visit) {
    if (plan.list != nullptr && plan.list->store != nullptr) {
        // A mesh's own list: its records, a chunk at a time.
        const ElementStore<Element> &store = *plan.list->store;
        for (std::size_t i = 0; i < store.size();) {
            std::size_t count = 0;
            Element *run = store.run(i, count);
            for (std::size_t k = 0; k < count; ++k, ++i) {
                if (!plan.filter.passes(run + k)) continue;
                if (const std::uint32_t code = visit(run + k); code != 0) return code;
            }
        }
        return 0;
    }
    for (std::size_t i = 0; i < plan.size(); ++i) {
        Element *element = plan[i];
        if (!plan.filter.passes(element)) continue;
        if (const std::uint32_t code = visit(element); code != 0) return code;
    }
    return 0;
}

// The C-facing enumerations (enum.cpp).
std::uint32_t enumerate(Mesh *mesh, std::uint32_t mode, MeshVertexVisitFunc visit, void *data,
                        void *argument, void *monitor);
std::uint32_t enumerate(Mesh *mesh, std::uint32_t mode, MeshPolygonVisitFunc visit, void *data,
                        void *argument, void *monitor);
std::uint32_t enumerate_dead(Mesh *mesh, MeshVertexVisitFunc visit, void *data, void *argument);
std::uint32_t enumerate_dead(Mesh *mesh, MeshPolygonVisitFunc visit, void *data, void *argument);
std::uint32_t enumerate_threaded(Mesh *mesh, std::uint32_t mode, MeshVertexVisitFunc visit,
                                 void *data, void *argument) noexcept;
std::uint32_t enumerate_threaded(Mesh *mesh, std::uint32_t mode, MeshPolygonVisitFunc visit,
                                 void *data, void *argument) noexcept;

// The bulk marks (mark.cpp): elements that pass `filter` get `mode`; the number marked.
std::uint32_t mark_vertices(Mesh *mesh, std::uint32_t filter, std::uint32_t mode) noexcept;
std::uint32_t mark_polygons(Mesh *mesh, std::uint32_t filter, std::uint32_t mode) noexcept;
// The vertices of the polygons that pass `filter` get `mode`; the number of those polygons.
std::uint32_t mark_vertices_of_polygons(Mesh *mesh, std::uint32_t filter,
                                        std::uint32_t mode) noexcept;

}  // namespace vx::mesh
