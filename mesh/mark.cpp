// Marking many elements at once, and the kinds and subsets that the instance and delta
// machinery sets on meshes.
#include "mesh/mark.h"

#include "foundation/failure.h"
#include "mesh/enum.h"

namespace vx::mesh {

namespace {

// Marks every element of one kind that the filter passes; returns how many.
template <class Element>
std::uint32_t mark_all(Mesh *mesh, std::uint32_t filter, std::uint32_t mode) noexcept {
    std::uint32_t marked_count = 0;
    walk(plan_walk<Element>(mesh, filter), [&](Element *element) -> std::uint32_t {
        mark(element, mode);
        ++marked_count;
        return 0;
    });
    return marked_count;
}

}  // namespace

std::uint32_t mark_vertices(Mesh *mesh, std::uint32_t filter, std::uint32_t mode) noexcept {
    return mark_all<MeshVertex>(mesh, filter, mode);
}

std::uint32_t mark_polygons(Mesh *mesh, std::uint32_t filter, std::uint32_t mode) noexcept {
    return mark_all<MeshPolygon>(mesh, filter, mode);
}

std::uint32_t mark_vertices_of_polygons(Mesh *mesh, std::uint32_t filter,
                                        std::uint32_t mode) noexcept {
    std::uint32_t polygons = 0;
    walk(plan_walk<MeshPolygon>(mesh, filter), [&](MeshPolygon *polygon) -> std::uint32_t {
        // Slots of a polygon made empty may still be null.
        for (unsigned i = 0; i < polygon->count; ++i) {
            if (MeshVertex *vertex = polygon->vertices()[i]) mark(vertex, mode);
        }
        ++polygons;
        return 0;
    });
    return polygons;
}

void set_kind(Mesh *mesh, std::uint32_t kind) noexcept {
    mesh->kind = kind;
}

namespace {
template <class Element>
void add_to_subset(Mesh *mesh, DenseArray<Element *> &subset, Element *element) {
    if (element == nullptr || owner_of(element) != mesh) {
        fail(rc::bad_argument, "a subset takes elements of its own mesh");
    }
    typename DenseArray<Element *>::Growth room;
    subset.prepare(room, 1);
    subset.commit(room);
    subset.push_back(element);
}
}  // namespace

void subset_add(Mesh *mesh, MeshVertex *vertex) {
    add_to_subset(mesh, mesh->subset_vertices, vertex);
}

void subset_add(Mesh *mesh, MeshPolygon *polygon) {
    add_to_subset(mesh, mesh->subset_polygons, polygon);
}

void subset_clear(Mesh *mesh) noexcept {
    mesh->subset_vertices.release();
    mesh->subset_polygons.release();
}

}  // namespace vx::mesh
