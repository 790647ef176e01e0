// Shared pieces of the subdivision tests: meshes given as vertex and face tables, built both as
// a mesh of SUBD polygons and as an OpenSubdiv refiner with the same options, and the limit
// values of face corners from OpenSubdiv's limit stencils as the reference.
#pragma once

#include <gtest/gtest.h>

#include <opensubdiv/far/ptexIndices.h>
#include <opensubdiv/far/stencilTableFactory.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <array>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include <vexor/subd.h>
#include <vexor/vbuf.h>
#include <vexor/vmap.h>

namespace vx::test {

inline constexpr std::uint32_t kSubd = VX_CODE4('S', 'U', 'B', 'D');
inline constexpr std::uint32_t kTexture = VX_CODE4('T', 'X', 'U', 'V');

// A surface given by tables: positions, faces (as vertex index lists) and one UV per face
// corner (continuous where equal at a vertex).
struct Shape {
    std::vector<std::array<float, 3>> points;
    std::vector<std::vector<int>> faces;
    std::vector<std::vector<std::array<float, 2>>> uvs;  // per face corner; empty: none
};

// A unit cube; UVs unwrapped as a cross, continuous except along the cut.
inline Shape cube() {
    Shape s;
    s.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    s.faces = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
    for (std::size_t f = 0; f < s.faces.size(); ++f) {
        const float u0 = 0.25f * static_cast<float>(f % 4), v0 = 0.5f * static_cast<float>(f / 4);
        s.uvs.push_back({{u0, v0}, {u0 + 0.25f, v0}, {u0 + 0.25f, v0 + 0.5f}, {u0, v0 + 0.5f}});
    }
    return s;
}

// An open surface with a triangle, a pentagon and quads around a hole: a 4x4 grid of
// vertices whose middle cell is left out, a triangle below the grid's bottom edge, and a
// pentagon where the top-left cell has a point on its top edge; UVs are the positions' x, y.
inline Shape mixed() {
    Shape s;
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x) {
            s.points.push_back({float(x), float(y), 0.1f * float((x * 7 + y * 3) % 5)});
        }
    }
    s.points.push_back({2.5f, -0.7f, 0.2f});  // 16: the triangle's tip
    s.points.push_back({0.4f, 3.0f, 0.3f});   // 17: the pentagon's fifth point
    auto at = [](int x, int y) { return y * 4 + x; };
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) {
            if (x == 1 && y == 1) continue;  // the hole
            if (x == 0 && y == 2) continue;  // the pentagon, below
            s.faces.push_back({at(x, y), at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
        }
    }
    s.faces.push_back({at(3, 0), at(2, 0), 16});
    s.faces.push_back({at(0, 2), at(1, 2), at(1, 3), 17, at(0, 3)});
    for (const auto &face : s.faces) {
        std::vector<std::array<float, 2>> corner_uvs;
        for (int v : face)
            corner_uvs.push_back({s.points[std::size_t(v)][0], s.points[std::size_t(v)][1]});
        s.uvs.push_back(corner_uvs);
    }
    return s;
}

// The shape as a mesh of SUBD polygons with a texture map (per polygon values).
struct BuiltShape {
    Mesh *mesh = nullptr;
    VMap *uv = nullptr;
    std::vector<MeshVertex *> vertices;
    std::vector<MeshPolygon *> polygons;
};

inline BuiltShape build(const Shape &shape, std::uint32_t type = kSubd) {
    BuiltShape b;
    b.mesh = MeshCreate();
    for (const auto &p : shape.points) {
        const double xyz[3] = {p[0], p[1], p[2]};
        b.vertices.push_back(MeshNewVertex(b.mesh, xyz));
    }
    if (!shape.uvs.empty()) b.uv = VMapCreate(b.mesh, kTexture);
    for (std::size_t f = 0; f < shape.faces.size(); ++f) {
        std::vector<MeshVertex *> vs;
        for (int v : shape.faces[f]) vs.push_back(b.vertices[std::size_t(v)]);
        MeshPolygon *polygon =
            MeshNewPolygon(b.mesh, type, static_cast<unsigned>(vs.size()), vs.data(), 0);
        b.polygons.push_back(polygon);
        for (std::size_t c = 0; b.uv != nullptr && c < vs.size(); ++c) {
            VMapPSet(b.uv, vs[c], polygon, shape.uvs[f][c].data());
        }
    }
    return b;
}

// OpenSubdiv's own answer: limit values at every face corner, from limit stencils over an
// adaptively refined copy of the topology (the channel's values for face-varying data).
struct Reference {
    std::vector<std::array<float, 3>> corner_points;  // per face corner
    std::vector<std::array<float, 2>> corner_uvs;     // per face corner
};

inline Reference reference(const Shape &shape, bool linear_uv = false) {
    namespace Far = OpenSubdiv::Far;
    namespace Sdc = OpenSubdiv::Sdc;
    std::vector<int> sizes, indices, uv_indices;
    std::vector<float> uv_values;
    std::map<std::tuple<int, float, float>, int> shared;
    for (std::size_t f = 0; f < shape.faces.size(); ++f) {
        sizes.push_back(static_cast<int>(shape.faces[f].size()));
        for (std::size_t c = 0; c < shape.faces[f].size(); ++c) {
            indices.push_back(shape.faces[f][c]);
            // Values shared where a vertex carries equal UVs, as the mesh's map does.
            const std::array<float, 2> &uv = shape.uvs[f][c];
            const auto [at, added] =
                shared.emplace(std::make_tuple(shape.faces[f][c], uv[0], uv[1]),
                               static_cast<int>(uv_values.size() / 2));
            if (added) uv_values.insert(uv_values.end(), uv.begin(), uv.end());
            uv_indices.push_back(at->second);
        }
    }
    Far::TopologyDescriptor d;
    d.numVertices = static_cast<int>(shape.points.size());
    d.numFaces = static_cast<int>(sizes.size());
    d.numVertsPerFace = sizes.data();
    d.vertIndicesPerFace = indices.data();
    Far::TopologyDescriptor::FVarChannel channel;
    channel.numValues = static_cast<int>(uv_values.size() / 2);
    channel.valueIndices = uv_indices.data();
    d.numFVarChannels = 1;
    d.fvarChannels = &channel;
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
    options.SetFVarLinearInterpolation(linear_uv ? Sdc::Options::FVAR_LINEAR_ALL
                                                 : Sdc::Options::FVAR_LINEAR_CORNERS_ONLY);
    std::unique_ptr<Far::TopologyRefiner> refiner(
        Far::TopologyRefinerFactory<Far::TopologyDescriptor>::Create(
            d, Far::TopologyRefinerFactory<Far::TopologyDescriptor>::Options(Sdc::SCHEME_CATMARK,
                                                                             options)));
    Far::TopologyRefiner::AdaptiveOptions adaptive(6);
    adaptive.considerFVarChannels = true;
    refiner->RefineAdaptive(adaptive);

    // The float tables themselves: the compatibility wrappers cast them to derived types they
    // are not.
    using Factory = Far::LimitStencilTableFactoryReal<float>;
    // A quad is one ptex face with its corners at the unit square's; any other face is one
    // ptex face per corner, which sits at that face's origin.
    Far::PtexIndices ptex(*refiner);
    static const float qs[4] = {0, 1, 1, 0}, qt[4] = {0, 0, 1, 1}, origin = 0;
    Factory::LocationArrayVec locations;
    for (std::size_t f = 0; f < shape.faces.size(); ++f) {
        const int id = ptex.GetFaceId(static_cast<int>(f));
        const std::size_t n = shape.faces[f].size();
        for (std::size_t c = 0; c < n; ++c) {
            Factory::LocationArray a;
            a.ptexIdx = n == 4 ? id : id + static_cast<int>(c);
            a.numLocations = 1;
            a.s = n == 4 ? &qs[c] : &origin;
            a.t = n == 4 ? &qt[c] : &origin;
            locations.push_back(a);
        }
    }
    Reference out;
    for (int pass = 0; pass < 2; ++pass) {
        Factory::Options o;
        o.interpolationMode =
            pass == 0 ? Factory::INTERPOLATE_VERTEX : Factory::INTERPOLATE_FACE_VARYING;
        o.fvarChannel = 0;
        std::unique_ptr<const Far::LimitStencilTableReal<float>> table(
            Factory::Create(*refiner, locations, nullptr, nullptr, o));
        for (int i = 0; i < table->GetNumStencils(); ++i) {
            const Far::LimitStencilReal<float> stencil = table->GetLimitStencil(i);
            std::array<float, 3> p{};
            std::array<float, 2> uv{};
            for (int k = 0; k < stencil.GetSize(); ++k) {
                const auto src = static_cast<std::size_t>(stencil.GetVertexIndices()[k]);
                const float w = stencil.GetWeights()[k];
                if (pass == 0) {
                    for (std::size_t a = 0; a < 3; ++a) p[a] += w * shape.points[src][a];
                } else {
                    for (std::size_t a = 0; a < 2; ++a) uv[a] += w * uv_values[2 * src + a];
                }
            }
            if (pass == 0) out.corner_points.push_back(p);
            if (pass == 1) out.corner_uvs.push_back(uv);
        }
    }
    return out;
}

class SubdTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(MeshStartup(), 1); }
    void TearDown() override { MeshShutdown(); }
};

// Counts, allocates and generates one polygon in a buffer; returns the samples generated.
inline unsigned fill(PolyVBuf *buffer, const MeshPolygon *polygon) {
    PolyVBufResetCount(buffer);
    PolyVBufCountPoly(buffer, polygon);
    PolyVBufAllocate(buffer);
    PolyVBufResetCount(buffer);
    return PolyVBufGenPoly(buffer, polygon);
}

// Every value an attribute buffer holds.
inline std::vector<float> values_of(AttrVBuf *avb) {
    AVBView view{};
    AVBUpdateBegin(avb, &view);
    std::vector<float> out(view.values, view.values + std::size_t{view.count} * view.dimension);
    AVBUpdateEnd(avb);
    return out;
}

// A polygon's outline from a buffer over the mesh, read after the buffer is gone: the
// attribute buffer lives on while it is grabbed.
inline std::vector<float> outline(Mesh *mesh, VMap *map, const MeshPolygon *polygon,
                                  int level = -1) {
    PolyVBuf *buffer = PolyVBufCreate(mesh, map, PVBUF_OUTLINE);
    if (level >= 0) SUBDVBufSetLevel(buffer, level);
    fill(buffer, polygon);
    AttrVBuf *avb = PolyVBufAttributes(buffer);
    AVBGrab(avb);
    PolyVBufDestroy(buffer);
    std::vector<float> out = values_of(avb);
    AVBDrop(avb);
    return out;
}

}  // namespace vx::test
