// The Catmull-Clark surface of a mesh's "SUBD" polygons, built with OpenSubdiv: the hand-over of
// the topology (faces, vertices and one face-varying channel per texture map) to its topology
// refiner, the limit corners, and refined geometry at a level.
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include <vexor/vmap.h>

#include "foundation/failure.h"
#include "foundation/log.h"
#include "subd/subd_data.h"

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

namespace vx::subd {

struct Surface {
    std::unique_ptr<Far::TopologyRefiner> refiner;
    int refined_level = 0;
    std::uint64_t serial = 0;
    // Surface vertices: the mesh vertices of the faces, with their cage positions and limits.
    // Vertices of the key mesh (the mesh of the first one) are found by slot, others by address.
    const Mesh *key_mesh = nullptr;
    std::vector<std::int32_t> vertex_by_slot;
    std::unordered_map<const MeshVertex *, std::int32_t> other_vertices;
    std::vector<float> points;   // three per vertex
    std::vector<float> corners;  // three per vertex
    // Surface faces: the polygons, found by slot (or address), with their first corner.
    const Mesh *face_mesh = nullptr;
    std::vector<std::int32_t> face_by_slot;
    std::unordered_map<const MeshPolygon *, std::int32_t> other_faces;
    std::vector<std::int32_t> face_sizes;
    std::vector<std::int32_t> face_offsets;  // faces + 1
    std::vector<std::int32_t> face_vertices;
    std::vector<UVSet> uv_sets;
    // Refined geometry made while building, at the level built, until the data's table takes it.
    std::vector<std::unique_ptr<RefinedSlot>> fresh;
};

namespace {

std::atomic<std::uint64_t> g_serial{0};

// A value of D floats as the primvar refiner wants it.
template <unsigned D>
struct Value {
    float v[D];
    void Clear(void * = nullptr) {
        for (unsigned k = 0; k < D; ++k) v[k] = 0.0f;
    }
    void AddWithWeight(const Value &src, float weight) {
        for (unsigned k = 0; k < D; ++k) v[k] += weight * src.v[k];
    }
};

void report_error(Far::ErrorType, const char *message) {
    vx::log::debug("subd", "surface: %s", message);
}
void report_warning(const char *message) {
    vx::log::debug("subd", "surface: %s", message);
}

void route_messages() {
    static std::once_flag once;
    std::call_once(once, [] {
        Far::SetErrorCallback(&report_error);
        Far::SetWarningCallback(&report_warning);
    });
}

bool takes_part(const MeshPolygon *polygon, const PolyType *subd) noexcept {
    if (polygon->type() != subd) return false;
    const unsigned n = polygon->count;
    if (n < 3 || n > kMaxFaceSize) return false;
    for (unsigned i = 0; i < n; ++i) {
        const MeshVertex *v = polygon->vertices()[i];
        if (v == nullptr || (v->flags & vx::mesh::kDead) != 0) return false;
        // A repeated vertex folds the face onto itself; such a face is left out.
        for (unsigned j = 0; j < i; ++j) {
            if (polygon->vertices()[j] == v) return false;
        }
    }
    return true;
}

template <class Element>
std::int32_t find_index(const Mesh *key, const std::vector<std::int32_t> &by_slot,
                        const std::unordered_map<const Element *, std::int32_t> &others,
                        const Element *element) noexcept {
    if (element == nullptr) return -1;
    if (vx::mesh::owner_of(element) == key) {
        const std::uint32_t slot = vx::mesh::slot_of(element);
        return slot < by_slot.size() ? by_slot[slot] : -1;
    }
    const auto found = others.find(element);
    return found == others.end() ? -1 : found->second;
}

template <class Element>
void set_index(const Mesh *key, std::vector<std::int32_t> &by_slot,
               std::unordered_map<const Element *, std::int32_t> &others, const Element *element,
               std::int32_t index) {
    if (vx::mesh::owner_of(element) == key) {
        const std::uint32_t slot = vx::mesh::slot_of(element);
        if (slot >= by_slot.size()) by_slot.resize(slot + std::size_t{1}, -1);
        by_slot[slot] = index;
    } else {
        others.emplace(element, index);
    }
}

// The vertices and faces of the surface.
void gather(Surface &s, Mesh *mesh, const PolyType *subd) {
    const std::uint32_t count = vx::mesh::num_polygons(mesh);
    std::vector<const MeshPolygon *> faces;
    faces.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const MeshPolygon *polygon = vx::mesh::polygon_at(mesh, i);
        if (polygon != nullptr && takes_part(polygon, subd)) faces.push_back(polygon);
    }
    if (faces.empty()) return;
    s.face_mesh = faces.front()->mesh;
    s.key_mesh = vx::mesh::owner_of(faces.front()->vertices()[0]);
    s.face_by_slot.assign(vx::mesh::polygon_slots(s.face_mesh), -1);
    s.vertex_by_slot.assign(vx::mesh::vertex_slots(s.key_mesh), -1);
    s.face_sizes.reserve(faces.size());
    s.face_offsets.reserve(faces.size() + 1);
    s.face_offsets.push_back(0);
    std::vector<const MeshVertex *> vertices;
    for (const MeshPolygon *polygon : faces) {
        set_index(s.face_mesh, s.face_by_slot, s.other_faces, polygon,
                  static_cast<std::int32_t>(s.face_sizes.size()));
        for (unsigned i = 0; i < polygon->count; ++i) {
            const MeshVertex *v = polygon->vertices()[i];
            std::int32_t index = find_index(s.key_mesh, s.vertex_by_slot, s.other_vertices, v);
            if (index < 0) {
                index = static_cast<std::int32_t>(vertices.size());
                vertices.push_back(v);
                set_index(s.key_mesh, s.vertex_by_slot, s.other_vertices, v, index);
            }
            s.face_vertices.push_back(index);
        }
        s.face_sizes.push_back(polygon->count);
        s.face_offsets.push_back(static_cast<std::int32_t>(s.face_vertices.size()));
    }
    s.points.resize(3 * vertices.size());
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        MeshVertexPosF(mesh, vertices[i], &s.points[3 * i]);
    }
    // The texture maps: one channel each, values shared by the corners of a vertex that carry
    // equal values, so that the surface smooths across faces where the map is continuous.
    const unsigned maps = std::min(VMapCount(mesh, VX_CODE4('T', 'X', 'U', 'V')), kSlots - 1);
    s.uv_sets.resize(maps);
    std::vector<std::int32_t> first(vertices.size());
    std::vector<std::int32_t> next;
    for (unsigned m = 0; m < maps; ++m) {
        UVSet &set = s.uv_sets[m];
        set.map = VMapByIndex(mesh, VX_CODE4('T', 'X', 'U', 'V'), m);
        set.index.resize(s.face_vertices.size());
        set.face_has.assign(faces.size(), 1);
        std::fill(first.begin(), first.end(), -1);
        next.clear();
        for (std::size_t f = 0; f < faces.size(); ++f) {
            for (std::int32_t c = s.face_offsets[f]; c < s.face_offsets[f + 1]; ++c) {
                const MeshVertex *v = faces[f]->vertices()[c - s.face_offsets[f]];
                const float *uv = VMapEval(set.map, v, faces[f]);
                const float u[2] = {uv != nullptr ? uv[0] : 0.0f, uv != nullptr ? uv[1] : 0.0f};
                if (uv == nullptr) set.face_has[f] = 0;
                const std::int32_t vi = s.face_vertices[static_cast<std::size_t>(c)];
                std::int32_t value = first[static_cast<std::size_t>(vi)];
                while (value >= 0 && std::memcmp(&set.values[2 * static_cast<std::size_t>(value)],
                                                 u, sizeof u) != 0) {
                    value = next[static_cast<std::size_t>(value)];
                }
                if (value < 0) {
                    value = static_cast<std::int32_t>(next.size());
                    next.push_back(first[static_cast<std::size_t>(vi)]);
                    first[static_cast<std::size_t>(vi)] = value;
                    set.values.push_back(u[0]);
                    set.values.push_back(u[1]);
                }
                set.index[static_cast<std::size_t>(c)] = value;
            }
        }
    }
}

Far::TopologyRefiner *make_refiner(const Surface &s, bool linear_uv) {
    using Descriptor = Far::TopologyDescriptor;
    Descriptor descriptor;
    descriptor.numVertices = static_cast<int>(s.points.size() / 3);
    descriptor.numFaces = static_cast<int>(s.face_sizes.size());
    descriptor.numVertsPerFace = s.face_sizes.data();
    descriptor.vertIndicesPerFace = s.face_vertices.data();
    std::vector<Descriptor::FVarChannel> channels(s.uv_sets.size());
    for (std::size_t m = 0; m < channels.size(); ++m) {
        channels[m].numValues = static_cast<int>(s.uv_sets[m].values.size() / 2);
        channels[m].valueIndices = s.uv_sets[m].index.data();
    }
    descriptor.numFVarChannels = static_cast<int>(channels.size());
    descriptor.fvarChannels = channels.data();

    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
    options.SetFVarLinearInterpolation(linear_uv ? Sdc::Options::FVAR_LINEAR_ALL
                                                 : Sdc::Options::FVAR_LINEAR_CORNERS_ONLY);
    route_messages();
    return Far::TopologyRefinerFactory<Descriptor>::Create(
        descriptor, Far::TopologyRefinerFactory<Descriptor>::Options(Sdc::SCHEME_CATMARK, options));
}

void refine(Surface &s, int level) {
    if (s.refined_level == level) return;
    if (s.refined_level != 0) s.refiner->Unrefine();
    s.refined_level = 0;
    Far::TopologyRefiner::UniformOptions options(level);
    options.fullTopologyInLastLevel = true;
    s.refiner->RefineUniform(options);
    s.refined_level = level;
}

// Values of every level, the base level's first, D floats each; returns the last level's start
// (in values).
template <unsigned D>
std::size_t interpolate(const Surface &s, std::vector<float> &storage, const float *base,
                        std::size_t base_count, int channel) {
    const Far::TopologyRefiner &r = *s.refiner;
    std::size_t total = base_count;
    for (int l = 1; l <= s.refined_level; ++l) {
        const Far::TopologyLevel &level = r.GetLevel(l);
        total += static_cast<std::size_t>(channel < 0 ? level.GetNumVertices()
                                                      : level.GetNumFVarValues(channel));
    }
    storage = std::vector<float>(D * total);
    std::memcpy(storage.data(), base, D * base_count * sizeof(float));
    Far::PrimvarRefiner primvar(r);
    auto *all = reinterpret_cast<Value<D> *>(storage.data());
    Value<D> *src = all;
    std::size_t src_count = base_count;
    for (int l = 1; l <= s.refined_level; ++l) {
        Value<D> *dst = src + src_count;
        if (channel < 0) {
            primvar.Interpolate(l, src, dst);
            src_count = static_cast<std::size_t>(r.GetLevel(l).GetNumVertices());
        } else {
            primvar.InterpolateFaceVarying(l, src, dst, channel);
            src_count = static_cast<std::size_t>(r.GetLevel(l).GetNumFVarValues(channel));
        }
        src = dst;
    }
    return static_cast<std::size_t>(src - all);
}

// The indices a face of a level gives its corners: vertices, or the channel's values.
Far::ConstIndexArray corners_of(const Far::TopologyLevel &level, Far::Index face, int channel) {
    return channel < 0 ? level.GetFaceVertices(face) : level.GetFaceFVarValues(face, channel);
}

// The samples of edge `e` of a face at level `l`, down to the last level. The child quads of a
// face follow its corners. A quad's child at corner j keeps that corner at position j (the
// children of a quad keep its orientation), so the edge's halves are edge e of the children at
// both ends. Other faces' children start at their corner, then run to the edge's midpoint,
// the face point and the previous edge's midpoint: the halves are edge 0 of the child at the
// start and edge 3 of the child at the end.
template <unsigned D>
void edge_samples(const Far::TopologyRefiner &r, int l, Far::Index face, int e, int channel,
                  const Value<D> *last, std::vector<float> &out) {
    const Far::TopologyLevel &level = r.GetLevel(l);
    if (l == r.GetMaxLevel()) {
        const Value<D> &value = last[corners_of(level, face, channel)[e]];
        out.insert(out.end(), value.v, value.v + D);
        return;
    }
    const Far::ConstIndexArray children = level.GetFaceChildFaces(face);
    const int n = children.size();
    const bool quad = n == 4;
    edge_samples<D>(r, l + 1, children[e], quad ? e : 0, channel, last, out);
    edge_samples<D>(r, l + 1, children[(e + 1) % n], quad ? e : 3, channel, last, out);
}

// The face of the last level at a corner, and the corner's position in it.
std::pair<Far::Index, int> corner_descendant(const Far::TopologyRefiner &r, Far::Index face,
                                             int corner) {
    for (int l = 0; l < r.GetMaxLevel(); ++l) {
        const Far::ConstIndexArray children = r.GetLevel(l).GetFaceChildFaces(face);
        face = children[corner];
        if (children.size() != 4) corner = 0;
    }
    return {face, corner};
}

template <unsigned D>
RefinedSlot *fill(Surface &s, int channel, const float *base, std::size_t base_count) {
    const Far::TopologyRefiner &r = *s.refiner;
    std::vector<float> storage;
    const std::size_t last_start = interpolate<D>(s, storage, base, base_count, channel);
    const std::size_t last_count = storage.size() / D - last_start;

    auto slot = std::make_unique<RefinedSlot>();
    slot->level = s.refined_level;
    slot->dimension = D;
    slot->values = std::move(storage);
    slot->first = D * last_start;
    const auto *last = reinterpret_cast<const Value<D> *>(slot->refined());
    slot->limits = std::vector<float>(D * last_count);
    auto *limits = reinterpret_cast<Value<D> *>(slot->limits.data());
    Far::PrimvarRefiner primvar(r);
    if (channel < 0) {
        primvar.Limit(last, limits);
    } else {
        primvar.LimitFaceVarying(last, limits, channel);
    }

    const int max = r.GetMaxLevel();
    const Far::TopologyLevel &top = r.GetLevel(max);
    const int quads = top.GetNumFaces();
    slot->quads.resize(4 * static_cast<std::size_t>(quads));
    for (int q = 0; q < quads; ++q) {
        const Far::ConstIndexArray c = corners_of(top, q, channel);
        for (int k = 0; k < 4 && k < c.size(); ++k) {
            slot->quads[4 * static_cast<std::size_t>(q) + static_cast<std::size_t>(k)] = c[k];
        }
    }
    // The surface face of each refined quad: the quads of a face follow each other, one run
    // per corner (4^(level-1) quads each) for every face in order.
    slot->parents.resize(static_cast<std::size_t>(quads));
    auto parent = slot->parents.begin();
    for (std::size_t f = 0; f < s.face_sizes.size(); ++f) {
        const auto run = static_cast<std::ptrdiff_t>(s.face_sizes[f]) << (2 * max - 2);
        std::fill(parent, parent + run, static_cast<std::int32_t>(f));
        parent += run;
    }
    // Outlines: each surface face's boundary, corner after corner.
    slot->outlines.reserve(D * s.face_vertices.size() << max);
    for (std::size_t f = 0; f < s.face_sizes.size(); ++f) {
        for (int e = 0; e < s.face_sizes[f]; ++e) {
            edge_samples<D>(r, 0, static_cast<Far::Index>(f), e, channel, last, slot->outlines);
        }
    }
    return slot.release();
}

// The limit corners: vertex limits from the refined positions, and each texture map's limit
// at every face corner.
void limit_corners(Surface &s) {
    const Far::TopologyRefiner &r = *s.refiner;
    s.fresh.resize(1 + s.uv_sets.size());
    s.fresh[0].reset(fill<3>(s, -1, s.points.data(), s.points.size() / 3));
    const RefinedSlot *positions = s.fresh[0].get();
    const std::size_t vertices = s.points.size() / 3;
    s.corners.resize(3 * vertices);
    for (std::size_t v = 0; v < vertices; ++v) {
        Far::Index child = static_cast<Far::Index>(v);
        for (int l = 0; l < r.GetMaxLevel(); ++l) child = r.GetLevel(l).GetVertexChildVertex(child);
        std::memcpy(&s.corners[3 * v], &positions->limits[3 * static_cast<std::size_t>(child)],
                    3 * sizeof(float));
    }
    for (std::size_t m = 0; m < s.uv_sets.size(); ++m) {
        UVSet &set = s.uv_sets[m];
        s.fresh[m + 1].reset(
            fill<2>(s, static_cast<int>(m), set.values.data(), set.values.size() / 2));
        const RefinedSlot *uv = s.fresh[m + 1].get();
        const Far::TopologyLevel &top = r.GetLevel(r.GetMaxLevel());
        set.corners.resize(3 * set.index.size());
        for (std::size_t f = 0; f < s.face_sizes.size(); ++f) {
            for (int c = 0; c < s.face_sizes[f]; ++c) {
                const auto [q, k] = corner_descendant(r, static_cast<Far::Index>(f), c);
                const Far::Index value = top.GetFaceFVarValues(q, static_cast<int>(m))[k];
                float *out = &set.corners[3 * static_cast<std::size_t>(s.face_offsets[f] + c)];
                out[0] = uv->limits[2 * static_cast<std::size_t>(value)];
                out[1] = uv->limits[2 * static_cast<std::size_t>(value) + 1];
                out[2] = 0.0f;
            }
        }
    }
}

}  // namespace

int fitted_level(const Surface &surface, int level) noexcept {
    level = std::clamp(level, 0, kMaxLevel);
    // Level 1 makes one quad per face corner; every further level four of each.
    std::size_t quads = surface.face_vertices.size();
    int fitted = level > 0 ? 1 : 0;
    while (fitted < level && quads * 4 <= kMaxRefinedFaces) {
        quads *= 4;
        ++fitted;
    }
    return fitted;
}

Surface *build_surface(Mesh *mesh, int level, bool linear_uv) {
    auto s = std::make_unique<Surface>();
    s->serial = g_serial.fetch_add(1, std::memory_order_relaxed) + 1;
    gather(*s, mesh, classes().subd_type);
    if (s->face_sizes.empty()) return s.release();
    s->refiner.reset(make_refiner(*s, linear_uv));
    if (!s->refiner) fail(rc::failed, "the subdivision surface could not be built");
    // Limits are the same at every level; the data's level is refined first since its
    // geometry is the most likely to be asked for next.
    refine(*s, std::max(1, fitted_level(*s, level)));
    limit_corners(*s);
    return s.release();
}

void free_surface(Surface *surface) noexcept {
    delete surface;
}

void take_fresh(Surface &surface, SlotTable &table) noexcept {
    for (std::size_t key = 0; key < surface.fresh.size(); ++key) {
        delete table.slots[key];
        table.slots[key] = surface.fresh[key].release();
    }
    surface.fresh.clear();
}

std::uint64_t surface_serial(const Surface &surface) noexcept {
    return surface.serial;
}

int surface_face(const Surface &surface, const MeshPolygon *polygon) noexcept {
    if (surface.face_sizes.empty()) return -1;
    return find_index(surface.face_mesh, surface.face_by_slot, surface.other_faces, polygon);
}

unsigned surface_face_count(const Surface &surface) noexcept {
    return static_cast<unsigned>(surface.face_sizes.size());
}

int surface_face_offset(const Surface &surface, int face) noexcept {
    return surface.face_offsets[static_cast<std::size_t>(face)];
}

bool surface_corner(const Surface &surface, const MeshVertex *vertex, float out[3]) noexcept {
    if (surface.face_sizes.empty()) return false;
    const std::int32_t index =
        find_index(surface.key_mesh, surface.vertex_by_slot, surface.other_vertices, vertex);
    if (index < 0) return false;
    std::memcpy(out, &surface.corners[3 * static_cast<std::size_t>(index)], 3 * sizeof(float));
    return true;
}

int surface_uv_set_index(const Surface &surface, const VMap *map) noexcept {
    if (surface.uv_sets.empty()) return -1;
    if (map == nullptr) return 0;
    for (std::size_t m = 0; m < surface.uv_sets.size(); ++m) {
        if (surface.uv_sets[m].map == map) return static_cast<int>(m);
    }
    return -1;
}

const UVSet *surface_uv_set(const Surface &surface, const VMap *map) noexcept {
    const int index = surface_uv_set_index(surface, map);
    return index < 0 ? nullptr : &surface.uv_sets[static_cast<std::size_t>(index)];
}

RefinedSlot *make_slot(Surface &surface, unsigned key, int level) {
    if (surface.face_sizes.empty()) fail(rc::refused, "no subdivision surface");
    refine(surface, std::max(1, fitted_level(surface, level)));
    if (key == 0) return fill<3>(surface, -1, surface.points.data(), surface.points.size() / 3);
    const std::size_t m = key - 1;
    if (m >= surface.uv_sets.size()) fail(rc::bad_argument, "no such texture map");
    const UVSet &set = surface.uv_sets[m];
    return fill<2>(surface, static_cast<int>(m), set.values.data(), set.values.size() / 2);
}

}  // namespace vx::subd
