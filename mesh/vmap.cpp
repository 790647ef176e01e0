// Vertex maps of a mesh: entry tables, layers, computed maps, the position map, the undoable
// edits of maps and values, and the lookup of a mesh's maps.
//
// Every edit prepares what it needs (its record, room in the undo history, a larger bucket
// array, the new entry) before it touches the map, and the entry comes last so that a failure
// never leaves a fresh pool chunk behind. Entries taken out of a table stay with the edit's
// record until the record is dropped, so undo and redo only relink them.
#include "mesh/vmap.h"

#include <cstring>
#include <utility>

#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/undo.h"
#include "mesh/mesh.h"

namespace vx::mesh {

namespace {

std::uint32_t pointer_hash(const void *pointer) noexcept {
    if (pointer == nullptr) return 0;
    std::uint64_t v = reinterpret_cast<std::uintptr_t>(pointer);
    v ^= v >> 17;
    v *= 0x9E3779B97F4A7C15ull;
    return static_cast<std::uint32_t>(v >> 32);
}

EntryKey make_key(const void *first, const void *second, EntryKind kind) noexcept {
    return EntryKey{first, second, kind,
                    static_cast<std::uint32_t>(pointer_hash(first) + pointer_hash(second))};
}

constexpr std::size_t kFirstBuckets = 16;

}  // namespace

EntryKey plain_key(const MeshVertex *vertex) noexcept {
    return make_key(vertex, nullptr, EntryKind::plain);
}

EntryKey polygon_key(const MeshVertex *vertex, const MeshPolygon *polygon) noexcept {
    return make_key(vertex, polygon, EntryKind::polygon);
}

EntryKey edge_key(const MeshVertex *a, const MeshVertex *b) noexcept {
    if (reinterpret_cast<std::uintptr_t>(b) < reinterpret_cast<std::uintptr_t>(a)) {
        const MeshVertex *t = a;
        a = b;
        b = t;
    }
    return make_key(a, b, EntryKind::edge);
}

// ---- Entry tables ----------------------------------------------------------------------

void EntryTable::init() {
    RawBlock buckets(kFirstBuckets * sizeof(VMapEntry *));
    std::memset(buckets.get(), 0, buckets.bytes());
    buckets_.swap(buckets);
}

void EntryTable::prepare(RawBlock &growth) const {
    const std::size_t n = bucket_count();
    if (n == 0 || count_ + 1 <= n) return;
    if (growth.bytes() > buckets_.bytes()) return;
    growth = RawBlock(2 * n * sizeof(VMapEntry *));
}

void EntryTable::insert(VMapEntry *entry, RawBlock &growth) noexcept {
    std::size_t n = bucket_count();
    if (count_ + 1 > n && growth.bytes() > buckets_.bytes()) {
        // Rehash into the prepared array; the old one goes back to the growth to be freed.
        std::memset(growth.get(), 0, growth.bytes());
        auto **fresh = static_cast<VMapEntry **>(growth.get());
        const std::size_t fresh_count = growth.bytes() / sizeof(VMapEntry *);
        auto **old = static_cast<VMapEntry **>(buckets_.get());
        for (std::size_t i = 0; i < n; ++i) {
            for (VMapEntry *e = old[i]; e != nullptr;) {
                VMapEntry *next = e->next;
                VMapEntry *&head = fresh[e->hash & (fresh_count - 1)];
                e->next = head;
                head = e;
                e = next;
            }
        }
        buckets_.swap(growth);
        n = fresh_count;
    }
    VMapEntry *&head = static_cast<VMapEntry **>(buckets_.get())[entry->hash & (n - 1)];
    entry->next = head;
    head = entry;
    ++count_;
}

void EntryTable::remove(VMapEntry *entry) noexcept {
    const std::size_t n = bucket_count();
    if (n == 0) return;
    VMapEntry **link = &static_cast<VMapEntry **>(buckets_.get())[entry->hash & (n - 1)];
    while (*link != nullptr && *link != entry) link = &(*link)->next;
    if (*link == nullptr) return;
    *link = entry->next;
    entry->next = nullptr;
    --count_;
}

VMapEntry *EntryTable::find(const EntryKey &key) const noexcept {
    const std::size_t n = bucket_count();
    if (n == 0 || count_ == 0) return nullptr;
    for (VMapEntry *e = static_cast<VMapEntry **>(buckets_.get())[key.hash & (n - 1)]; e != nullptr;
         e = e->next) {
        if (e->first == key.first && e->second == key.second && e->kind == key.kind) return e;
    }
    return nullptr;
}

namespace {

// ---- Entries and maps ------------------------------------------------------------------

VMapEntry *new_entry(const VMapTypeRecord *type, const EntryKey &key, const float *values) {
    auto *entry = static_cast<VMapEntry *>(type->pool->alloc());
    entry->next = nullptr;
    entry->first = key.first;
    entry->second = key.second;
    entry->hash = key.hash;
    entry->kind = key.kind;
    if (values != nullptr && type->dimension != 0) {
        std::memcpy(entry->values(), values, type->dimension * sizeof(float));
    }
    return entry;
}

void free_entry(const VMapTypeRecord *type, VMapEntry *entry) noexcept {
    if (entry != nullptr) type->pool->free(entry);
}

void copy_name(char (&target)[64], const char *name) noexcept {
    const std::size_t length = std::strlen(name);
    const std::size_t n = length < sizeof target - 1 ? length : sizeof target - 1;
    std::memcpy(target, name, n);
    target[n] = '\0';
}

// A map not yet on any list. Tables are made for maps that store values.
VMap *new_map(Mesh *mesh, const VMapTypeRecord *type, std::uint32_t flags) {
    auto *map = new VMap{};
    OnFailure free_map([&] { delete map; });
    map->mesh = mesh;
    map->type = type;
    map->flags = flags;
    copy_name(map->name, type->name);
    if ((flags & (VMAP_COMPUTED | VMAP_POSITIONS)) == 0) {
        map->values.init();
        map->removed.init();
    }
    free_map.disarm();
    return map;
}

void free_map(VMap *map) noexcept {
    const VMapTypeRecord *type = map->type;
    map->values.drain([type](VMapEntry *e) { free_entry(type, e); });
    map->removed.drain([type](VMapEntry *e) { free_entry(type, e); });
    delete map;
}

bool dead(const VMap *map) noexcept {
    return (map->flags & VMAP_DEAD) != 0;
}

bool building(const Mesh *mesh) noexcept {
    return mesh->batch_depth == kBuilding;
}

void require_editable(const VMap *map) {
    if (map == nullptr) fail(rc::bad_argument, "no vertex map");
    if (dead(map)) fail(rc::refused, "the vertex map is destroyed");
    if (building(map->mesh)) fail(rc::refused, "the mesh is being built");
}

void announce(Mesh *mesh, std::uint32_t bits) noexcept {
    change_event(mesh, MESH_CHANGE_MAPS | bits);
}

// ---- Edits -----------------------------------------------------------------------------

// Puts a map on its mesh's list (direction 1) or takes it off; the record owns the map while
// it is off the list.
struct MapLink {
    VMap *map;
    DenseArray<VMap *>::Growth room;

    void prepare(int direction) {
        // The growth may still hold the buffer an earlier commit replaced: never commit that.
        room = DenseArray<VMap *>::Growth{};
        if (direction != 0) map->mesh->vmaps.maps.prepare(room, 1);
    }
    void apply(int direction) noexcept {
        DenseArray<VMap *> &maps = map->mesh->vmaps.maps;
        if (direction != 0) {
            maps.commit(room);
            maps.push_back(map);
        } else {
            for (std::size_t i = maps.size(); i-- > 0;) {
                if (maps[i] == map) {
                    maps.erase(i);
                    break;
                }
            }
        }
        UndoNewCode(direction == 0 ? 1 : 0);
        announce(map->mesh, 0);
    }
    void release(int state) noexcept {
        if (state != 0) free_map(map);
    }
};

// Marks a map dead (direction 1) or alive again. A dead map stays on its mesh's list and is
// freed with the mesh.
struct MapDeath {
    VMap *map;
    void apply(int direction) noexcept {
        if (direction != 0) {
            map->flags |= VMAP_DEAD;
        } else {
            map->flags &= ~VMAP_DEAD;
        }
        UndoNewCode(direction == 0 ? 1 : 0);
        announce(map->mesh, 0);
    }
};

// One key's change in a map's own tables: `gone` leaves the values and `put` joins them,
// `unhide` leaves the removed keys and `hide` joins them; undo does the reverse. The new entry
// is made by the first prepare step from `source`, the caller's values.
struct EntryEdit {
    VMap *map;
    const VMapTypeRecord *type;
    EntryKey key;
    const float *source;
    bool make_put;
    bool make_hide;
    VMapEntry *gone;
    VMapEntry *unhide;
    VMapEntry *put;
    VMapEntry *hide;
    RawBlock values_room;
    RawBlock removed_room;

    void prepare(int direction) {
        const bool forward = direction != 0;
        if (forward ? (put != nullptr || make_put) : gone != nullptr) {
            map->values.prepare(values_room);
        }
        if (forward ? (hide != nullptr || make_hide) : unhide != nullptr) {
            map->removed.prepare(removed_room);
        }
        // Last, so that nothing can fail after the type's pool has grown.
        if (forward && make_put && put == nullptr) put = new_entry(type, key, source);
        if (forward && make_hide && hide == nullptr) hide = new_entry(type, key, nullptr);
        source = nullptr;
    }
    void apply(int direction) noexcept {
        VMapEntry *leave = direction != 0 ? gone : put;
        VMapEntry *join = direction != 0 ? put : gone;
        VMapEntry *show = direction != 0 ? unhide : hide;
        VMapEntry *cover = direction != 0 ? hide : unhide;
        if (leave != nullptr) map->values.remove(leave);
        if (join != nullptr) map->values.insert(join, values_room);
        if (show != nullptr) map->removed.remove(show);
        if (cover != nullptr) map->removed.insert(cover, removed_room);
        announce(map->mesh, 0);
    }
    void release(int state) noexcept {
        free_entry(type, state == 0 ? gone : put);
        free_entry(type, state == 0 ? unhide : hide);
    }
};

// Swaps a vertex's stored position with the record's.
struct PositionEdit {
    MeshVertex *vertex;
    float xyz[3];
    void apply(int) noexcept {
        Mesh *owner = owner_of(vertex);
        for (int axis = 0; axis < 3; ++axis) std::swap(xyz[axis], vertex->position[axis]);
        // Heard as MeshVertexSet is heard, so caches of positions drop what they hold.
        announce(owner, MESH_CHANGE_VERTICES | MESH_CHANGE_POSITIONS);
    }
};

// Swaps one of the map's names with the record's.
struct NameSwap {
    VMap *map;
    bool public_name;
    char text[64];
    void apply(int) noexcept {
        char *name = public_name ? map->public_name : map->name;
        char held[64];
        std::memcpy(held, name, sizeof held);
        std::memcpy(name, text, sizeof held);
        std::memcpy(text, held, sizeof held);
        announce(map->mesh, 0);
    }
};

// Hands a new map to its mesh's list as one undoable edit; the map is freed on failure.
VMap *link_new(VMap *map) {
    EditTransaction transaction;
    OnFailure drop([&] { free_map(map); });
    Edit<MapLink> edit(map);
    drop.disarm();  // the record owns the map from here on
    edit.apply_then_record(0);
    return map;
}

// ---- Lookup ----------------------------------------------------------------------------

bool visible(const Mesh *mesh, const VMap *map) noexcept {
    return !dead(map) || mesh->show_dead != 0;
}

// The first visible own map of an instance lying over a map of its source.
const VMap *layer_over(const Mesh *mesh, const VMap *under) noexcept {
    const DenseArray<VMap *> &own = mesh->vmaps.maps;
    for (std::size_t i = 0; i < own.size(); ++i) {
        if (own[i]->under == under && visible(mesh, own[i])) return own[i];
    }
    return nullptr;
}

// Calls fn(map) for the mesh's visible maps of the type, in lookup order, until it returns
// true; returns that map.
template <class Fn>
VMap *walk(const Mesh *mesh, std::uint32_t type, Fn fn) noexcept {
    auto wanted = [&](const VMap *map) {
        return visible(mesh, map) && (type == 0 || map->type->code == type);
    };
    const DenseArray<VMap *> &own = mesh->vmaps.maps;
    if (const Mesh *source = mesh->source) {
        const DenseArray<VMap *> &shared = source->vmaps.maps;
        for (std::size_t i = 0; i < shared.size(); ++i) {
            if (!visible(mesh, shared[i])) continue;
            const VMap *over = layer_over(mesh, shared[i]);
            VMap *map = over != nullptr ? const_cast<VMap *>(over) : shared[i];
            if (wanted(map) && fn(map)) return map;
        }
        for (std::size_t i = 0; i < own.size(); ++i) {
            VMap *map = own[i];
            const bool replaces = map->under != nullptr && map->under->mesh == source &&
                                  visible(mesh, map->under) && layer_over(mesh, map->under) == map;
            if (!replaces && wanted(map) && fn(map)) return map;
        }
        return nullptr;
    }
    for (std::size_t i = 0; i < own.size(); ++i) {
        if (wanted(own[i]) && fn(own[i])) return own[i];
    }
    return nullptr;
}

}  // namespace

// ---- The mesh's hooks ------------------------------------------------------------------

void vmaps_mesh_initialize(Mesh *mesh) {
    const VMapTypeRecord *type = vmap_type(kPositionType);
    if (type == nullptr) fail(rc::refused, "no position map type");
    VMap *map = new_map(mesh, type, VMAP_POSITIONS);
    OnFailure drop([&] { free_map(map); });
    DenseArray<VMap *>::Growth room;
    mesh->vmaps.maps.prepare(room, 1);
    drop.disarm();
    mesh->vmaps.maps.commit(room);
    mesh->vmaps.maps.push_back(map);
}

void vmaps_release(Mesh *mesh) noexcept {
    DenseArray<VMap *> &maps = mesh->vmaps.maps;
    for (std::size_t i = 0; i < maps.size(); ++i) free_map(maps[i]);
    maps.release();
}

// ---- Making and destroying maps --------------------------------------------------------

VMap *vmap_create(Mesh *mesh, std::uint32_t code) {
    if (mesh == nullptr) fail(rc::bad_argument, "no mesh");
    if (building(mesh)) fail(rc::refused, "the mesh is being built");
    const VMapTypeRecord *type = vmap_type(code);
    if (type == nullptr) fail(rc::not_found, "unknown vertex map type");
    VMap *model = nullptr;
    if ((type->flags & VMAP_TYPE_SINGLE) != 0) {
        VMap *found = walk(mesh, code, [](const VMap *) { return true; });
        if (found != nullptr && found->mesh == mesh) return found;
        model = found;
    }
    VMap *map = new_map(mesh, type, 0);
    if (model != nullptr) {
        // A map of the source: this mesh's map lies over it, with its names.
        map->under = model;
        copy_name(map->name, model->name);
        copy_name(map->public_name, model->public_name);
    }
    return link_new(map);
}

VMap *vmap_create_over(Mesh *mesh, VMap *under) {
    if (mesh == nullptr || under == nullptr) fail(rc::bad_argument, "no mesh or map");
    if (building(mesh)) fail(rc::refused, "the mesh is being built");
    if (dead(under)) fail(rc::refused, "the underlying map is destroyed");
    if (under->mesh != mesh && under->mesh != mesh->source) {
        fail(rc::bad_argument, "the underlying map belongs to another mesh");
    }
    VMap *map = new_map(mesh, under->type, 0);
    map->under = under;
    copy_name(map->name, under->name);
    copy_name(map->public_name, under->public_name);
    return link_new(map);
}

VMap *vmap_create_computed(Mesh *mesh, std::uint32_t code, VMapEvalFunc eval, void *client) {
    if (mesh == nullptr || eval == nullptr) fail(rc::bad_argument, "no mesh or function");
    if (building(mesh)) fail(rc::refused, "the mesh is being built");
    const VMapTypeRecord *type = vmap_type(code);
    if (type == nullptr) fail(rc::not_found, "unknown vertex map type");
    VMap *map = new_map(mesh, type, VMAP_COMPUTED);
    map->eval = eval;
    map->client = client;
    return link_new(map);
}

bool vmap_destroy(VMap *map) {
    require_editable(map);
    if ((map->flags & VMAP_POSITIONS) != 0) return false;
    edit_apply<MapDeath>(0, map);
    return true;
}

bool vmap_set_name(VMap *map, const char *name, bool public_name) {
    require_editable(map);
    if (name == nullptr || std::strlen(name) >= sizeof map->name) return false;
    if (std::strcmp(public_name ? map->public_name : map->name, name) == 0) return true;
    EditTransaction transaction;
    Edit<NameSwap> edit(map, public_name);
    copy_name(edit->text, name);
    edit.apply_then_record(1);
    return true;
}

// ---- Values ----------------------------------------------------------------------------

const float *vmap_set(VMap *map, const EntryKey &key, const MeshVertex *vertex,
                      const float *values) {
    require_editable(map);
    if ((map->flags & VMAP_COMPUTED) != 0) return nullptr;
    if (values == nullptr && map->type->dimension != 0) fail(rc::bad_argument, "no values");
    if (!related(map->mesh, owner_of(vertex))) return nullptr;
    if ((map->flags & VMAP_POSITIONS) != 0) {
        if (key.kind != EntryKind::plain) return nullptr;
        auto *target = const_cast<MeshVertex *>(vertex);
        EditTransaction transaction;
        Edit<PositionEdit> edit(target);
        for (int axis = 0; axis < 3; ++axis) edit->xyz[axis] = values[axis];
        edit.apply_then_record(1);
        return target->position;
    }
    VMapEntry *gone = map->values.find(key);
    VMapEntry *unhide = map->removed.find(key);
    {
        EditTransaction transaction;
        Edit<EntryEdit> edit(map, map->type, key, values, true, false, gone, unhide);
        edit.apply_then_record(gone != nullptr ? 1 : 0);
    }
    return map->values.find(key)->values();
}

bool vmap_unset(VMap *map, const EntryKey &key) {
    require_editable(map);
    if ((map->flags & (VMAP_COMPUTED | VMAP_POSITIONS)) != 0) return false;
    VMapEntry *gone = map->values.find(key);
    const bool hide = map->under != nullptr && map->removed.find(key) == nullptr;
    if (gone == nullptr && !hide) return false;
    EditTransaction transaction;
    Edit<EntryEdit> edit(map, map->type, key, nullptr, false, hide, gone, nullptr);
    edit.apply_then_record(0);
    return true;
}

const float *vmap_get(const VMap *map, const EntryKey &key, const MeshVertex *vertex,
                      const MeshPolygon *polygon) noexcept {
    if (dead(map)) return nullptr;
    // Edge-like types: an edge keyed by this vertex alone answers for the vertex.
    const bool halves = key.kind == EntryKind::plain && (map->type->flags & VMAP_TYPE_EDGE) != 0;
    const EntryKey half = halves ? edge_key(nullptr, vertex) : key;
    for (const VMap *layer = map; layer != nullptr; layer = layer->under) {
        if (dead(layer)) continue;
        if ((layer->flags & VMAP_COMPUTED) != 0) {
            if (key.kind == EntryKind::edge) return nullptr;
            return layer->eval(layer, vertex, key.kind == EntryKind::polygon ? polygon : nullptr,
                               layer->client);
        }
        if ((layer->flags & VMAP_POSITIONS) != 0) {
            return key.kind == EntryKind::plain ? stored_position_in(layer, vertex) : nullptr;
        }
        if (VMapEntry *e = layer->values.find(key)) return e->values();
        if (halves) {
            if (VMapEntry *e = layer->values.find(half)) return e->values();
        }
        if (layer->removed.find(key) != nullptr) return nullptr;
    }
    return nullptr;
}

// ---- Lookup ----------------------------------------------------------------------------

unsigned vmap_list(const Mesh *mesh, std::uint32_t type, VMap **out, unsigned max) noexcept {
    unsigned count = 0;
    walk(mesh, type, [&](VMap *map) {
        if (out != nullptr && count < max) out[count] = map;
        ++count;
        return false;
    });
    return count;
}

VMap *vmap_at(const Mesh *mesh, std::uint32_t type, unsigned index) noexcept {
    return walk(mesh, type, [&](const VMap *) { return index-- == 0; });
}

VMap *vmap_find(const Mesh *mesh, std::uint32_t type, const char *name, bool public_name) noexcept {
    if (name == nullptr) return nullptr;
    return walk(mesh, type, [&](const VMap *map) {
        return std::strcmp(public_name ? map->public_name : map->name, name) == 0;
    });
}

}  // namespace vx::mesh
