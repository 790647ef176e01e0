// The polygon type registry. Types live in a fixed table for the life of the process: a type
// handle never moves, lookups read without a lock (entries are published complete, in order),
// and defining a type never allocates.
#include "mesh/poly_type.h"

#include <cstring>
#include <limits>
#include <mutex>

#include "foundation/failure.h"
#include "mesh/mesh.h"
#include "mesh/position_read.h"

namespace vx::mesh {

namespace {

constexpr unsigned kMaxTypes = 64;

struct Registry {
    std::mutex lock;
    PolyType types[kMaxTypes];
    std::atomic<unsigned> count{0};
};

Registry &registry() {
    static Registry state;
    return state;
}

const PolyType *find(const Registry &r, std::uint32_t code) noexcept {
    const unsigned n = r.count.load(std::memory_order_acquire);
    for (unsigned i = 0; i < n; ++i) {
        if (r.types[i].code == code) return &r.types[i];
    }
    return nullptr;
}

// The box of the polygon's vertex positions as the mesh sees them.
int vertex_bounds(const Mesh *mesh, const MeshPolygon *polygon, float box[6]) {
    bool any = false;
    const PositionSource source(mesh);
    for (unsigned i = 0; i < polygon->count; ++i) {
        const MeshVertex *vertex = polygon->vertices()[i];
        if (vertex == nullptr) continue;
        const float *p = source.get(vertex);
        for (int k = 0; k < 3; ++k) {
            if (!any || p[k] < box[k]) box[k] = p[k];
            if (!any || p[k] > box[k + 3]) box[k + 3] = p[k];
        }
        any = true;
    }
    return any ? 1 : 0;
}

constexpr std::uint32_t code4(const char (&text)[5]) {
    return (static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[3]));
}

}  // namespace

const PolyType *poly_type_define(std::uint32_t code, const char *name, std::uint32_t flags,
                                 std::uint32_t flip_flags) {
    if (name == nullptr || code == 0)
        fail(rc::bad_argument, "a polygon type needs a code and name");
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    if (const PolyType *type = find(r, code)) {
        if (type->flags != flags || type->flip_flags != flip_flags) {
            fail(rc::refused, "the polygon type code is taken");
        }
        return type;
    }
    const unsigned n = r.count.load(std::memory_order_relaxed);
    if (n == kMaxTypes) fail(rc::refused, "the polygon type table is full");
    PolyType &type = r.types[n];
    type.code = code;
    type.flags = flags;
    type.flip_flags = flip_flags;
    std::strncpy(type.name, name, sizeof type.name - 1);
    type.name[sizeof type.name - 1] = '\0';
    type.bounds.store(&vertex_bounds, std::memory_order_relaxed);
    r.count.store(n + 1, std::memory_order_release);
    return &type;
}

void poly_types_startup() {
    // Area types keep their first vertex when flipped: the loop is the same polygon seen from
    // the other side. Curve-like types run from their end instead.
    constexpr std::uint32_t area = POLYTYPE_AREA;
    constexpr std::uint32_t linear = POLYTYPE_LINEAR;
    constexpr std::uint32_t keep = POLYTYPE_FLIP_KEEPS_FIRST;
    poly_type_define(code4("FACE"), "face", area | linear, keep);
    poly_type_define(code4("CURV"), "curve", 0, 0);
    poly_type_define(code4("BEZR"), "bezier", 0, 0);
    poly_type_define(code4("SUBD"), "subdiv", area, keep);
    poly_type_define(code4("PSUB"), "psubdiv", area, keep);
    poly_type_define(code4("SPCH"), "splinePatch", area, keep);
    poly_type_define(code4("PTCH"), "patch", area, keep);
    poly_type_define(code4("TEXT"), "text", area | linear, keep);
    poly_type_define(code4("LINE"), "line", linear, 0);
    poly_type_define(code4("BONE"), "bone", linear, 0);
}

const PolyType *poly_type_lookup(std::uint32_t code) noexcept {
    return find(registry(), code);
}

unsigned poly_type_count() noexcept {
    return registry().count.load(std::memory_order_acquire);
}

const PolyType *poly_type_at(unsigned index) noexcept {
    static const PolyType no_type{};
    if (index == kNoPolyType) return &no_type;
    Registry &r = registry();
    return index < r.count.load(std::memory_order_acquire) ? &r.types[index] : nullptr;
}

unsigned poly_type_index(const PolyType *type) noexcept {
    return static_cast<unsigned>(type - registry().types);
}

bool poly_type_set_meta(const PolyType *type, MeshMetaClass *cls) noexcept {
    auto *mutable_type = const_cast<PolyType *>(type);
    MeshMetaClass *expected = nullptr;
    if (mutable_type->meta.compare_exchange_strong(expected, cls)) return true;
    return expected == cls;
}

void poly_types_mesh_initialize(Mesh *mesh) {
    const unsigned n = poly_type_count();
    for (unsigned i = 0; i < n; ++i) {
        if (MeshMetaClass *cls = registry().types[i].meta.load(std::memory_order_acquire)) {
            meta_record(cls, mesh);
        }
    }
}

bool poly_type_bounds(const Mesh *mesh, const MeshPolygon *polygon, float box[6]) noexcept {
    PolyTypeBoundsFunc bounds = polygon->type()->bounds.load(std::memory_order_acquire);
    return bounds != nullptr && bounds(mesh, polygon, box) != 0;
}

}  // namespace vx::mesh
