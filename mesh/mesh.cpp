// Meshes: the module's start and stop, the process-wide list, creation and destruction of
// meshes and instances, and the vertices and polygons with their lists.
//
// Every constructor first prepares everything that can fail (room in the lists, a chunk for
// the element pool, the instance's own copy of a shared list) and only then changes the mesh,
// with operations that cannot fail. A failure therefore leaves the mesh as it was, sends no
// event, and leaves no memory behind.
#include "mesh/mesh.h"

#include <atomic>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <type_traits>

#include "foundation/failure.h"
#include "foundation/undo.h"
#include "mesh/poly_type.h"
#include "mesh/vmap.h"

namespace vx::mesh {

namespace {

// The module's process-wide state: the start count, the list of meshes and the mesh port.
struct Module {
    std::mutex life;  // start and stop, whole
    std::mutex lock;  // the list of meshes and the start count
    unsigned starts = 0;
    Mesh *first = nullptr;
    unsigned count = 0;
    // Read on every announcement, so without the lock.
    std::atomic<Port *> port{nullptr};
    // Steps of later modules run at every first start (under `life`).
    StartupStep steps[8] = {};
    unsigned step_count = 0;
};

Module &module() {
    static Module state;
    return state;
}

void link(Mesh *mesh) noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> hold(m.lock);
    mesh->list_next = m.first;
    if (m.first != nullptr) m.first->list_prev = mesh;
    m.first = mesh;
    ++m.count;
}

void unlink(Mesh *mesh) noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> hold(m.lock);
    if (mesh->list_prev != nullptr) {
        mesh->list_prev->list_next = mesh->list_next;
    } else {
        m.first = mesh->list_next;
    }
    if (mesh->list_next != nullptr) mesh->list_next->list_prev = mesh->list_prev;
    mesh->list_prev = mesh->list_next = nullptr;
    --m.count;
}

bool is_dead(std::uint16_t flags) noexcept {
    return (flags & kDead) != 0;
}

// Whether the mesh may be changed: made, started and not being built.
void require_ready(const Mesh *mesh) {
    if (mesh == nullptr) fail(rc::bad_argument, "no mesh");
    if (mesh->batch_depth == kBuilding) fail(rc::refused, "the mesh is being built");
}

// What a change to one of the mesh's lists needs before anything changes: the mesh's own copy
// of a list it shares (copy on write), room for one more entry, and room in the batch's list
// of changed elements.
template <class Element>
struct ListGrowth {
    ElementList<Element> copy;  // filled when the mesh shares its source's list
    bool copied = false;
    typename DenseArray<Element *>::Growth room;
    typename DenseArray<Element *>::Growth changed_room;
};

template <class Element>
void prepare_list(const ElementList<Element> *list, const ElementList<Element> &own,
                  const DenseArray<Element *> &changed, std::size_t extra,
                  ListGrowth<Element> &growth) {
    if (list != &own) {
        list->copy_into(growth.copy.items, extra);
        growth.copied = true;
    } else if (list->store == nullptr) {
        list->items.prepare(growth.room, extra);
    }
    changed.prepare(growth.changed_room, 1);
}

template <class Element>
void commit_list(Mesh *mesh, ElementList<Element> *&list, ElementList<Element> &own,
                 DenseArray<Element *> &changed, std::uint32_t owns_bit,
                 ListGrowth<Element> &growth) noexcept {
    if (growth.copied) {
        own.items.swap(growth.copy.items);
        own.store = nullptr;
        // Dead entries of the copy are the source's dead elements: count them afresh.
        own.dead = list->dead_count();
        own.recount = false;
        own.changed();
        list = &own;
        mesh->flags |= owns_bit;
    } else if (list->store == nullptr) {
        list->items.commit(growth.room);
    }
    changed.commit(growth.changed_room);
}

void store_position(MeshVertex *vertex, const double position[3]) noexcept {
    for (int axis = 0; axis < 3; ++axis)
        vertex->position[axis] = static_cast<float>(position[axis]);
}

// Polygons of more vertices than the record holds keep them on the heap.
bool heap_array(unsigned count) noexcept {
    return count > MeshPolygon::kInlineVertices;
}

std::size_t array_bytes(unsigned count) noexcept {
    return static_cast<std::size_t>(count) * sizeof(MeshVertex *);
}

// A mesh may use its own vertices and, as an instance, its source's.
bool same_family(const Mesh *mesh, const MeshVertex *vertex) noexcept {
    const Mesh *owner = owner_of(vertex);
    return owner == mesh || (mesh->source != nullptr && owner == mesh->source);
}

template <class Element>
bool in_list(ElementList<Element> *list, const Element *element, std::size_t &index) noexcept {
    for (std::size_t i = 0; i < list->size(); ++i) {
        if ((*list)[i] == element) {
            index = i;
            return true;
        }
    }
    return false;
}

// Tells instances that copied a list of this mesh's that its dead count moved.
template <class Element>
void note_dead_to_instances(Mesh *mesh, ElementList<Element> Mesh::*own) noexcept {
    for (std::size_t i = 1; i < mesh->related.size(); ++i) {
        ElementList<Element> &list = mesh->related[i]->*own;
        list.recount = true;
        list.changed();
    }
}

// Deletion by marking (MeshFreeVertex, MeshFreePolygon).
template <class Element>
bool free_element(Mesh *mesh, Element *element, ElementList<Element> *Mesh::*current,
                  ElementList<Element> Mesh::*own, DenseArray<Element *> Mesh::*changed,
                  std::uint32_t owns_bit) {
    require_ready(mesh);
    if (element == nullptr || is_dead(element->flags)) return false;
    ElementList<Element> *list = mesh->*current;
    std::size_t index = 0;
    const bool mine = owner_of(element) == mesh;
    // Only an instance holds elements of another mesh (its source's).
    if (!mine && (mesh->source == nullptr || !in_list(list, element, index))) return false;

    ListGrowth<Element> growth;
    prepare_list(mesh->*current, mesh->*own, mesh->*changed, 0, growth);
    // A copy keeps the order, so the element's index holds in it too.
    commit_list(mesh, mesh->*current, mesh->*own, mesh->*changed, owns_bit, growth);
    list = mesh->*current;

    batch_begin(mesh);
    if (mine) {
        element->flags = static_cast<std::uint16_t>(element->flags | kDead);
        ++list->dead;
        mark_changed(mesh, element);
        note_dead_to_instances(mesh, own);
    } else {
        // An element of the source, reached through this instance's own copy of the list:
        // the source keeps it; only this mesh lets go of it.
        list->items.erase(index);
        mesh->batch_mask |=
            std::is_same_v<Element, MeshVertex> ? MESH_CHANGE_VERTICES : MESH_CHANGE_POLYGONS;
    }
    list->changed();
    batch_end(mesh);
    return true;
}

}  // namespace

// ---- Element lists ---------------------------------------------------------------------

template <class Element>
std::uint32_t ElementList<Element>::dead_count() noexcept {
    if (recount) {
        std::uint32_t n = 0;
        for (std::size_t i = 0; i < size(); ++i) {
            if (is_dead((*this)[i]->flags)) ++n;
        }
        dead = n;
        recount = false;
    }
    return dead;
}

template <class Element>
Element *ElementList<Element>::at_live(std::uint32_t index) noexcept {
    if (!live_valid) {
        // The table of live positions; without memory for it, walk the list instead.
        live.clear();
        typename DenseArray<std::uint32_t>::Growth growth;
        try {
            live.prepare(growth, size());
        } catch (...) {
            for (std::size_t i = 0; i < size(); ++i) {
                if (!is_dead((*this)[i]->flags) && index-- == 0) return (*this)[i];
            }
            return nullptr;
        }
        live.commit(growth);
        for (std::size_t i = 0; i < size(); ++i) {
            if (!is_dead((*this)[i]->flags)) live.push_back(static_cast<std::uint32_t>(i));
        }
        live_valid = true;
    }
    return index < live.size() ? (*this)[live[index]] : nullptr;
}

template <class Element>
void ElementList<Element>::copy_into(DenseArray<Element *> &target, std::size_t extra) const {
    if (store == nullptr) {
        items.copy_into(target, extra);
        return;
    }
    DenseArray<Element *> copy;
    typename DenseArray<Element *>::Growth growth;
    copy.prepare(growth, size() + extra);
    copy.commit(growth);
    for (std::size_t i = 0; i < size(); ++i) copy.push_back((*this)[i]);
    target.swap(copy);
}

template struct ElementList<MeshVertex>;
template struct ElementList<MeshPolygon>;

// ---- Module ----------------------------------------------------------------------------

void startup() {
    Module &m = module();
    std::lock_guard<std::mutex> whole(m.life);
    {
        std::lock_guard<std::mutex> hold(m.lock);
        if (m.starts++ != 0) return;
    }
    OnFailure uncount([&] {
        std::lock_guard<std::mutex> hold(m.lock);
        --m.starts;
    });
    poly_types_startup();
    meta_startup();
    vmap_types_startup();
    for (unsigned i = 0; i < m.step_count; ++i) m.steps[i]();
    m.port.store(vx::PortCreate(MESH_GLOBAL_PORT_NAME), std::memory_order_release);
    uncount.disarm();
    // Nothing below can fail: the undo system that later mesh edits record into.
    vx::UndoSysStartup();
}

bool add_startup_step(StartupStep step) noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> whole(m.life);
    for (unsigned i = 0; i < m.step_count; ++i) {
        if (m.steps[i] == step) return true;
    }
    if (m.step_count == std::size(m.steps)) return false;
    m.steps[m.step_count++] = step;
    return true;
}

void shutdown() noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> whole(m.life);
    {
        std::lock_guard<std::mutex> hold(m.lock);
        if (m.starts == 0 || --m.starts != 0) return;
    }
    // Instances before their sources; then the rest.
    for (;;) {
        Mesh *victim = nullptr;
        {
            std::lock_guard<std::mutex> hold(m.lock);
            for (Mesh *mesh = m.first; mesh != nullptr; mesh = mesh->list_next) {
                if (mesh->related.size() <= 1) {
                    victim = mesh;
                    break;
                }
            }
        }
        if (victim == nullptr) break;
        destroy(victim);
    }
    vx::PortDestroy(m.port.exchange(nullptr, std::memory_order_acq_rel));
    // Outside the lock: records freed by the undo system may still reach meshes.
    vx::UndoSysShutdown();
}

bool started() noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> hold(m.lock);
    return m.starts != 0;
}

Port *global_port() noexcept {
    return module().port.load(std::memory_order_acquire);
}

unsigned global_count() noexcept {
    Module &m = module();
    std::lock_guard<std::mutex> hold(m.lock);
    return m.count;
}

// ---- Meshes ----------------------------------------------------------------------------

namespace {

// A new mesh record, first in its own related-mesh array and with its port; freed again if a
// later step of making the mesh fails.
std::unique_ptr<Mesh> new_mesh_record() {
    auto mesh = std::make_unique<Mesh>();
    DenseArray<Mesh *>::Growth room;
    mesh->related.prepare(room, 1);
    mesh->related.commit(room);
    mesh->related.push_back(mesh.get());
    mesh->port = vx::PortCreate(nullptr);
    return mesh;
}

}  // namespace

Mesh *create() {
    if (!started()) fail(rc::refused, "the mesh module is not started");
    std::unique_ptr<Mesh> record = new_mesh_record();
    Mesh *mesh = record.get();
    init_mesh_tags(mesh, nullptr);
    poly_types_mesh_initialize(mesh);
    vmaps_mesh_initialize(mesh);

    link(mesh);
    record.release();
    mesh->batch_depth = 0;
    return mesh;
}

Mesh *create_instance(Mesh *source, bool take_events) {
    require_ready(source);
    if (source->source != nullptr) source = source->source;

    DenseArray<Mesh *>::Growth source_room;
    source->related.prepare(source_room, 1);

    std::unique_ptr<Mesh> record = new_mesh_record();
    Mesh *instance = record.get();
    init_mesh_tags(instance, source);

    instance->source = source;
    instance->flags = take_events ? 0 : MESH_NO_SOURCE_EVENTS;
    instance->vertices = source->vertices;
    instance->polygons = source->polygons;

    link(instance);
    record.release();
    source->related.commit(source_room);
    source->related.push_back(instance);
    instance->batch_depth = 0;
    return instance;
}

bool destroy(Mesh *mesh) noexcept {
    if (mesh == nullptr || mesh->related.size() > 1) return false;
    if (Mesh *source = mesh->source) {
        for (std::size_t i = 1; i < source->related.size(); ++i) {
            if (source->related[i] == mesh) {
                source->related.erase(i);
                break;
            }
        }
    }
    mesh->flags |= kDying;
    mesh->batch_depth = kBuilding;
    unlink(mesh);
    delete mesh;
    return true;
}

// ---- Vertices --------------------------------------------------------------------------

MeshVertex *new_vertex(Mesh *mesh, const double position[3]) {
    require_ready(mesh);
    ListGrowth<MeshVertex> list_growth;
    prepare_list(mesh->vertices, mesh->own_vertices, mesh->changed_vertices, 1, list_growth);
    ElementStore<MeshVertex>::Growth chunk;
    mesh->vertex_store.prepare(chunk);

    // Nothing below can fail.
    commit_list(mesh, mesh->vertices, mesh->own_vertices, mesh->changed_vertices,
                MESH_OWNS_VERTICES, list_growth);
    MeshVertex *vertex = mesh->vertex_store.take(chunk);
    vertex->flags = kNewVertexFlags;
    store_position(vertex, position);
    if (mesh->vertices->store == nullptr) mesh->vertices->items.push_back(vertex);
    mesh->vertices->changed();

    batch_begin(mesh);
    mark_changed(mesh, vertex);
    batch_end(mesh);
    return vertex;
}

const float *set_vertex(Mesh *mesh, MeshVertex *vertex, const double position[3]) {
    require_ready(mesh);
    if (vertex == nullptr || is_dead(vertex->flags)) return nullptr;
    if (!same_family(mesh, vertex)) fail(rc::bad_argument, "a vertex of another mesh");
    Mesh *owner = owner_of(vertex);
    DenseArray<MeshVertex *>::Growth changed_room;
    owner->changed_vertices.prepare(changed_room, 1);
    owner->changed_vertices.commit(changed_room);

    store_position(vertex, position);
    const float *stored = vertex->position;
    batch_begin(owner);
    mark_changed(owner, vertex);
    owner->batch_mask |= MESH_CHANGE_POSITIONS;
    batch_end(owner);
    return stored;
}

// ---- Polygons --------------------------------------------------------------------------

MeshPolygon *new_polygon(Mesh *mesh, const PolyType *type, unsigned count,
                         MeshVertex *const *vertices, bool flip, bool default_tags) {
    require_ready(mesh);
    if (type == nullptr) fail(rc::bad_argument, "no polygon type");
    if (count > 0xFFFF) fail(rc::bad_argument, "too many vertices for a polygon");
    if (vertices != nullptr) {
        for (unsigned i = 0; i < count; ++i) {
            if (vertices[i] == nullptr || !same_family(mesh, vertices[i])) {
                fail(rc::bad_argument, "a polygon vertex of another mesh");
            }
        }
    }

    ListGrowth<MeshPolygon> list_growth;
    prepare_list(mesh->polygons, mesh->own_polygons, mesh->changed_polygons, 1, list_growth);
    ElementStore<MeshPolygon>::Growth chunk;
    mesh->polygon_store.prepare(chunk);
    RawBlock long_array;
    if (heap_array(count)) long_array = RawBlock(array_bytes(count));
    DefaultTagGrowth tag_growth;
    if (default_tags) prepare_default_tags(mesh, tag_growth);

    // Nothing below can fail.
    commit_list(mesh, mesh->polygons, mesh->own_polygons, mesh->changed_polygons,
                MESH_OWNS_POLYGONS, list_growth);
    MeshPolygon *polygon = mesh->polygon_store.take(chunk);
    polygon->mesh = mesh;
    polygon->flags = kNewPolygonFlags;
    polygon->type_index = poly_type_index(type);
    polygon->count = static_cast<std::uint16_t>(count);
    polygon->slot = static_cast<std::uint32_t>(mesh->polygon_store.size() - 1);
    if (heap_array(count)) {
        polygon->vertex_slots.many = static_cast<MeshVertex **>(long_array.forget());
        std::memset(static_cast<void *>(polygon->vertex_slots.many), 0, array_bytes(count));
        ++mesh->long_arrays;
    }
    MeshVertex **slots = polygon->vertices();

    if (vertices != nullptr && count != 0) {
        if (!flip || count < 3) {
            for (unsigned i = 0; i < count; ++i) slots[i] = vertices[i];
        } else if ((type->flip_flags & POLYTYPE_FLIP_KEEPS_FIRST) != 0) {
            slots[0] = vertices[0];
            for (unsigned i = 1; i < count; ++i) slots[i] = vertices[count - i];
        } else {
            for (unsigned i = 0; i < count; ++i) slots[i] = vertices[count - 1 - i];
        }
    }
    commit_default_tags(mesh, polygon, tag_growth);
    if (mesh->polygons->store == nullptr) mesh->polygons->items.push_back(polygon);
    mesh->polygons->changed();

    batch_begin(mesh);
    mark_changed(mesh, polygon);
    batch_end(mesh);
    return polygon;
}

bool set_polygon_vertex(Mesh *mesh, MeshPolygon *polygon, unsigned index, MeshVertex *vertex) {
    require_ready(mesh);
    if (polygon == nullptr || vertex == nullptr || index >= polygon->count) return false;
    if (is_dead(polygon->flags) || !same_family(mesh, vertex)) return false;
    Mesh *owner = polygon->mesh;
    DenseArray<MeshPolygon *>::Growth changed_room;
    owner->changed_polygons.prepare(changed_room, 1);
    owner->changed_polygons.commit(changed_room);
    polygon->vertices()[index] = vertex;
    batch_begin(owner);
    mark_changed(owner, polygon);
    batch_end(owner);
    return true;
}

bool free_vertex(Mesh *mesh, MeshVertex *vertex) {
    return free_element(mesh, vertex, &Mesh::vertices, &Mesh::own_vertices, &Mesh::changed_vertices,
                        MESH_OWNS_VERTICES);
}

bool free_polygon(Mesh *mesh, MeshPolygon *polygon) {
    return free_element(mesh, polygon, &Mesh::polygons, &Mesh::own_polygons,
                        &Mesh::changed_polygons, MESH_OWNS_POLYGONS);
}

// ---- Counting and indexing -------------------------------------------------------------

std::uint32_t num_vertices(const Mesh *mesh) noexcept {
    VertexList *list = mesh->vertices;
    return static_cast<std::uint32_t>(list->size()) - list->dead_count();
}

std::uint32_t num_polygons(const Mesh *mesh) noexcept {
    PolygonList *list = mesh->polygons;
    return static_cast<std::uint32_t>(list->size()) - list->dead_count();
}

namespace {
template <class Element>
Element *element_at(const Mesh *mesh, ElementList<Element> *list, std::uint32_t index) noexcept {
    if (list->dead_count() == 0 || mesh->show_dead != 0) {
        return index < list->size() ? (*list)[index] : nullptr;
    }
    return list->at_live(index);
}
}  // namespace

MeshVertex *vertex_at(const Mesh *mesh, std::uint32_t index) noexcept {
    return element_at(mesh, mesh->vertices, index);
}

MeshPolygon *polygon_at(const Mesh *mesh, std::uint32_t index) noexcept {
    return element_at(mesh, mesh->polygons, index);
}

}  // namespace vx::mesh

// ---- The record ------------------------------------------------------------------------

Mesh::Mesh() noexcept {
    own_vertices.store = &vertex_store;
    own_polygons.store = &polygon_store;
}

Mesh::~Mesh() {
    vx::mesh::release_mesh_tags(this);
    vx::mesh::meta_release(this);
    vx::mesh::vmaps_release(this);
    // Long vertex arrays come from the heap; the pooled ones go with their pools.
    if (long_arrays != 0) {
        for (std::size_t i = 0; i < polygon_store.size(); ++i) {
            const MeshPolygon *polygon = polygon_store.at(i);
            if (polygon->count > MeshPolygon::kInlineVertices) {
                ::operator delete(static_cast<void *>(polygon->vertex_slots.many),
                                  static_cast<std::size_t>(polygon->count) * sizeof(MeshVertex *));
            }
        }
    }
    vx::PortDestroy(port);
}
