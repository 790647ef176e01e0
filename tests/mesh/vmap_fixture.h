// Shared pieces of the vertex map tests: a small mesh with maps, and a snapshot of every value
// the maps give for its vertices, polygons and edges.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <vexor/vmap.h>

#include "mesh_fixture.h"

namespace vx::test {

inline constexpr std::uint32_t kPick = VX_CODE4('P', 'I', 'C', 'K');
inline constexpr std::uint32_t kWeight = VX_CODE4('W', 'G', 'H', 'T');
inline constexpr std::uint32_t kEdgePick = VX_CODE4('E', 'P', 'C', 'K');
inline constexpr std::uint32_t kTexture = VX_CODE4('T', 'X', 'U', 'V');
inline constexpr std::uint32_t kPosition = VX_CODE4('O', 'P', 'O', 'S');
inline constexpr std::uint32_t kMorph = VX_CODE4('M', 'O', 'R', 'F');

inline std::string values_text(const float *values, std::uint32_t dimension) {
    if (values == nullptr) return "-";
    std::string out = "(";
    for (std::uint32_t i = 0; i < dimension; ++i) {
        char text[32];
        std::snprintf(text, sizeof text, "%s%g", i != 0 ? "," : "", static_cast<double>(values[i]));
        out += text;
    }
    return out + ")";
}

// What a map gives for each of the vertices, alone or as corners of `polygon`.
inline std::string reads(VMap *map, const std::vector<MeshVertex *> &v,
                         MeshPolygon *polygon = nullptr) {
    std::string out;
    for (MeshVertex *a : v) {
        out += values_text(polygon != nullptr ? VMapPGet(map, a, polygon) : VMapGet(map, a),
                           VMapDimension(map));
    }
    return out;
}

// Every map of the mesh (dead ones too) with its names and flags, and what it answers for each
// vertex, each polygon corner and each pair of neighbouring vertices.
inline std::string maps_snapshot(Mesh *mesh, const std::vector<MeshVertex *> &v,
                                 const std::vector<MeshPolygon *> &p) {
    const std::uint32_t show_dead = MeshShowDead(mesh);
    MeshSetShowDead(mesh, 1);
    std::string out;
    const unsigned count = VMapCount(mesh, 0);
    for (unsigned m = 0; m < count; ++m) {
        VMap *map = VMapByIndex(mesh, 0, m);
        const std::uint32_t dim = VMapDimension(map);
        out += "[" + std::string(VMapName(map)) + "/" + VMapPublicName(map) + " " +
               std::to_string(VMapFlags(map)) + "]";
        for (MeshVertex *a : v) out += values_text(VMapGet(map, a), dim);
        out += " p";
        for (MeshPolygon *polygon : p) {
            for (unsigned k = 0; k < MeshNumVrtInPol(polygon); ++k) {
                MeshVertex *corner = MeshPolVrtByIndex(polygon, static_cast<int>(k));
                out += values_text(VMapPGet(map, corner, polygon), dim);
            }
        }
        out += " e";
        for (std::size_t i = 0; i + 1 < v.size(); ++i) {
            out += values_text(VMapEGet(map, v[i], v[i + 1]), dim);
        }
        out += values_text(VMapEGet(map, nullptr, v[0]), dim);
        out += " ";
    }
    MeshSetShowDead(mesh, show_dead);
    return out;
}

}  // namespace vx::test
