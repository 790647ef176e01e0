// `vexor gallery`: envelopes at work, through the public C interface only. A few keyed curves show
// the ways a curve continues past its keys (offset repeat, oscillate, repeat, linear) and the
// slope types that shape it between keys (auto, linear in and out, auto flat, stepped, manual
// with stored weights and a broken tangent). One edit is undone and redone through the undo
// system; then the curves are printed frame by frame and drawn to an SVG picture. Last, a
// cube mesh is built, a selection marked on it and enumerated.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/env_eval.h>
#include <vexor/mark.h>
#include <vexor/mesh.h>
#include <vexor/ptag.h>
#include <vexor/undo.h>
#include <vexor/version.h>
#include <vexor/vmap.h>

#include "curve_plot.h"

namespace {

constexpr double kFps = 24.0;

struct KeySpec {
    double time;
    double value;
    unsigned slope_type;
};

Envelope *keyed(std::initializer_list<KeySpec> keys, unsigned pre, unsigned post,
                unsigned interpolation) {
    Envelope *env = EnvCreate(nullptr);
    if (env == nullptr) return nullptr;
    for (const KeySpec &k : keys) {
        EnvKey *key = EnvAddKey(env, k.time, k.value);
        if (key == nullptr) continue;
        // Through manual first, so the type replaces whatever new keys get by default.
        EnvKeySetSlopeType(env, key, 0, ENV_SLOPE_MANUAL);
        EnvKeySetSlopeType(env, key, 0, k.slope_type);
    }
    EnvSetPreBehavior(env, pre);
    EnvSetPostBehavior(env, post);
    EnvSetInterpolation(env, interpolation);
    return env;
}

EnvKey *key_number(Envelope *env, int i) {
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (i-- == 0) return k;
    }
    return nullptr;
}

// The curves of the gallery, each named for what it shows.
std::vector<PlottedCurve> build_curves() {
    std::vector<PlottedCurve> curves;
    curves.push_back(
        {"auto slopes, offset repeat",
         keyed({{0.0, 0.0, ENV_SLOPE_AUTO}, {0.5, 2.0, ENV_SLOPE_AUTO}, {1.0, 1.0, ENV_SLOPE_AUTO}},
               ENV_BEHAVIOR_OFFSET_REPEAT, ENV_BEHAVIOR_OFFSET_REPEAT, ENV_INTERP_CURVE)});
    curves.push_back({"linear in/out + auto flat, oscillate",
                      keyed({{0.0, -1.5, ENV_SLOPE_LINEAR_OUT},
                             {0.6, 1.0, ENV_SLOPE_LINEAR_IN},
                             {1.2, 1.0, ENV_SLOPE_AUTO_FLAT},
                             {1.5, -0.5, ENV_SLOPE_AUTO_FLAT}},
                            ENV_BEHAVIOR_OSCILLATE, ENV_BEHAVIOR_OSCILLATE, ENV_INTERP_CURVE)});
    curves.push_back(
        {"stepped, repeat", keyed({{0.0, -3.0, ENV_SLOPE_AUTO},
                                   {0.25, -2.25, ENV_SLOPE_AUTO},
                                   {0.5, -2.75, ENV_SLOPE_AUTO},
                                   {1.0, -3.5, ENV_SLOPE_AUTO}},
                                  ENV_BEHAVIOR_REPEAT, ENV_BEHAVIOR_REPEAT, ENV_INTERP_STEPPED)});

    // Manual slopes with stored weights, and a key whose tangent breaks: it comes in flat and
    // leaves falling. Linear at both ends.
    Envelope *weighted = keyed(
        {{0.0, 3.0, ENV_SLOPE_MANUAL}, {1.0, 4.5, ENV_SLOPE_MANUAL}, {2.0, 3.25, ENV_SLOPE_MANUAL}},
        ENV_BEHAVIOR_LINEAR, ENV_BEHAVIOR_LINEAR, ENV_INTERP_CURVE);
    if (weighted != nullptr) {
        EnvKey *k0 = key_number(weighted, 0);
        EnvKey *k1 = key_number(weighted, 1);
        EnvKey *k2 = key_number(weighted, 2);
        EnvKeySetSlopeValue(weighted, k0, 0, 0.5);
        EnvKeySetWeightType(weighted, k0, 0, 1);
        EnvKeySetWeightValue(weighted, k0, 0, 0.8);
        EnvKeyBreak(weighted, k1, ENV_BREAK_SLOPE);
        EnvKeySetSlopeValue(weighted, k1, 0, 0.0);
        EnvKeySetSlopeValue(weighted, k1, 1, -3.0);
        EnvKeySetSlopeValue(weighted, k2, 0, 0.25);
        EnvKeySetWeightType(weighted, k2, 0, 1);
        EnvKeySetWeightValue(weighted, k2, 0, 0.6);
    }
    curves.push_back({"weighted, broken tangent, linear", weighted});
    return curves;
}

void show_undo(Envelope *env) {
    EnvKey *key = key_number(env, 1);
    const double t = EnvKeyTime(key);
    std::printf("Undo at work on '%s', its key at %g s:\n", "auto slopes, offset repeat", t);
    std::printf("  value at %.3f s: %8.4f\n", t, EnvEvaluate(env, t));
    EnvKeySetValue(env, key, 2.75);
    std::printf("  key set to 2.75:  %8.4f   (undo steps %u)\n", EnvEvaluate(env, t),
                UndoSysUndoCount());
    UndoSysUndo();
    std::printf("  undone:           %8.4f   (redo steps %u)\n", EnvEvaluate(env, t),
                UndoSysRedoCount());
    UndoSysRedo();
    std::printf("  redone:           %8.4f\n", EnvEvaluate(env, t));
    UndoSysUndo();
    std::printf("  undone again for the table and the picture: %.4f\n\n", EnvEvaluate(env, t));
}

// A cube with a UV map and part tags: its counts, a selection marked on two faces and their
// vertices with one vertex hidden, then the selection enumerated through a mark filter.
constexpr std::uint32_t kSelected = 0x1;
constexpr std::uint32_t kHidden = 0x2;

unsigned print_vertex(MeshVertex *vertex, void *data, void *argument) {
    double p[3] = {0.0, 0.0, 0.0};
    MeshVertexPos(static_cast<Mesh *>(argument), vertex, p);
    const float *uv = VMapGet(static_cast<const VMap *>(data), vertex);
    std::printf("    (%2g, %2g, %2g)  uv (%g, %g)\n", p[0], p[1], p[2],
                uv != nullptr ? static_cast<double>(uv[0]) : 0.0,
                uv != nullptr ? static_cast<double>(uv[1]) : 0.0);
    return 0;
}

unsigned print_polygon(MeshPolygon *polygon, void *, void *) {
    std::printf("    %-6s (%u vertices, material %s)\n", PTagGet(polygon, PTAG_PART),
                MeshNumVrtInPol(polygon), PTagGet(polygon, PTAG_MATERIAL));
    return 0;
}

// The cube as the picture shows it: its faces seen from the front, above and to the right, in
// the order they are painted (farthest first), and its corners, with what is marked on them.
struct CubePicture {
    struct Face {
        double x[4], y[4];
        double depth;
        bool selected;
    };
    struct Corner {
        double x, y;
        bool selected, hidden;
    };
    std::vector<Face> faces;
    std::vector<Corner> corners;
};

void project(const double p[3], double &x, double &y, double &depth) {
    x = p[0] * 0.9 - p[2] * 0.45;
    y = -(p[1] * 0.9 + p[2] * 0.3 - p[0] * 0.1);
    depth = -p[2] * 0.8 + p[0] * 0.2 + p[1] * 0.3;
}

CubePicture picture_of(Mesh *mesh, MeshVertex *const (&corners)[8],
                       MeshPolygon *const (&polygons)[6], std::uint32_t selected,
                       std::uint32_t hidden) {
    CubePicture picture;
    for (MeshPolygon *polygon : polygons) {
        CubePicture::Face face{};
        for (int k = 0; k < 4; ++k) {
            double p[3] = {0.0, 0.0, 0.0}, depth = 0.0;
            MeshVertexPos(mesh, MeshPolVrtByIndex(polygon, k), p);
            project(p, face.x[k], face.y[k], depth);
            face.depth += depth / 4.0;
        }
        face.selected = (MeshPolygonMarks(polygon) & selected) != 0;
        picture.faces.push_back(face);
    }
    std::sort(
        picture.faces.begin(), picture.faces.end(),
        [](const CubePicture::Face &a, const CubePicture::Face &b) { return a.depth > b.depth; });
    for (MeshVertex *corner : corners) {
        double p[3] = {0.0, 0.0, 0.0}, x = 0.0, y = 0.0, depth = 0.0;
        MeshVertexPos(mesh, corner, p);
        project(p, x, y, depth);
        const std::uint32_t marks = MeshVertexMarks(corner);
        picture.corners.push_back({x, y, (marks & selected) != 0, (marks & hidden) != 0});
    }
    return picture;
}

// The cube under the curves: selected faces filled, selected corners as dots, the hidden one
// crossed out, and a key to the symbols.
SvgPanel cube_panel(const CubePicture &picture) {
    return SvgPanel{
        280.0, [picture](std::FILE *f, double top, double width) {
            const double cx = 200.0, cy = top + 140.0, scale = 80.0;
            std::fprintf(f,
                         "<text x='72' y='%.1f' font-size='14' font-weight='bold'>"
                         "The cube mesh and its selection</text>\n",
                         top + 20.0);
            for (const CubePicture::Face &face : picture.faces) {
                std::fputs("<polygon points='", f);
                for (int k = 0; k < 4; ++k) {
                    std::fprintf(f, "%.1f,%.1f ", cx + scale * face.x[k], cy + scale * face.y[k]);
                }
                std::fprintf(f,
                             "' fill='%s' stroke='#444' stroke-width='1.2' "
                             "fill-opacity='0.85'/>\n",
                             face.selected ? "#f5b041" : "#eeeeee");
            }
            for (const CubePicture::Corner &c : picture.corners) {
                const double x = cx + scale * c.x, y = cy + scale * c.y;
                if (c.hidden) {
                    std::fprintf(f,
                                 "<circle cx='%.1f' cy='%.1f' r='5' fill='white' "
                                 "stroke='#c0392b' stroke-width='1.5'/><path d='M%.1f "
                                 "%.1f l8 8 m0 -8 l-8 8' stroke='#c0392b'/>\n",
                                 x, y, x - 4, y - 4);
                } else {
                    std::fprintf(f, "<circle cx='%.1f' cy='%.1f' r='4' fill='%s'/>\n", x, y,
                                 c.selected ? "#b9770e" : "#888");
                }
            }
            const double lx = width / 2.0, ly = top + 90.0;
            std::fprintf(f,
                         "<rect x='%.1f' y='%.1f' width='14' height='10' fill='#f5b041' "
                         "stroke='#444'/><text x='%.1f' y='%.1f'>selected polygon "
                         "(right, top)</text>\n"
                         "<circle cx='%.1f' cy='%.1f' r='4' fill='#b9770e'/><text "
                         "x='%.1f' y='%.1f'>selected vertex</text>\n"
                         "<circle cx='%.1f' cy='%.1f' r='5' fill='white' "
                         "stroke='#c0392b'/><text x='%.1f' y='%.1f'>hidden vertex, "
                         "left out of the filtered walk</text>\n"
                         "<circle cx='%.1f' cy='%.1f' r='4' fill='#888'/><text "
                         "x='%.1f' y='%.1f'>vertex not selected</text>\n",
                         lx, ly - 9, lx + 22, ly, lx + 7, ly + 20, lx + 22, ly + 24, lx + 7,
                         ly + 44, lx + 22, ly + 48, lx + 7, ly + 68, lx + 22, ly + 72);
        }};
}

int show_mesh(CubePicture &picture) {
    if (MeshStartup() == 0) return 1;
    Mesh *mesh = MeshCreate();
    if (mesh == nullptr) {
        MeshShutdown();
        return 1;
    }
    // Corner i has x, y, z = -1 or +1 from its bits 0, 1 and 2.
    MeshVertex *corners[8];
    for (unsigned i = 0; i < 8; ++i) {
        const double p[3] = {i & 1 ? 1.0 : -1.0, i & 2 ? 1.0 : -1.0, i & 4 ? 1.0 : -1.0};
        corners[i] = MeshNewVertex(mesh, p);
    }
    struct Face {
        const char *part;
        unsigned v[4];
    };
    const Face faces[6] = {{"left", {0, 4, 6, 2}},   {"right", {1, 3, 7, 5}},
                           {"bottom", {0, 1, 5, 4}}, {"top", {2, 6, 7, 3}},
                           {"back", {0, 2, 3, 1}},   {"front", {4, 5, 7, 6}}};
    MeshPolygon *polygons[6];
    MeshSetDefaultTag(mesh, PTAG_MATERIAL, "Cube");
    for (unsigned f = 0; f < 6; ++f) {
        MeshVertex *v[4];
        for (unsigned k = 0; k < 4; ++k) v[k] = corners[faces[f].v[k]];
        polygons[f] = MeshNewPolygon(mesh, VX_CODE4('F', 'A', 'C', 'E'), 4, v, 0);
        PTagSet(polygons[f], PTAG_PART, faces[f].part);
    }
    // The UVs project the cube onto its front; made outside the undo history, which must
    // not hold edits of a mesh that is destroyed.
    UndoSysSuspend();
    VMap *uvs = VMapCreate(mesh, VX_CODE4('T', 'X', 'U', 'V'));
    for (MeshVertex *corner : corners) {
        double p[3] = {0.0, 0.0, 0.0};
        MeshVertexPos(mesh, corner, p);
        const float uv[2] = {static_cast<float>((p[0] + 1.0) / 2.0),
                             static_cast<float>((p[1] + 1.0) / 2.0)};
        VMapSet(uvs, corner, uv);
    }
    UndoSysResume();
    std::printf("\nMesh: a cube of %u vertices and %u polygons, with a UV map and part tags\n",
                MeshNumVrts(mesh), MeshNumPols(mesh));

    MeshMarkPolygon(polygons[1], kSelected);
    MeshMarkPolygon(polygons[3], kSelected);
    MeshMarkVrtsOfPols(mesh, kSelected, kSelected);
    MeshMarkVertex(corners[7], kHidden);
    std::printf("  selected polygons (marks 0x%x):\n", kSelected);
    MeshEnumeratePols(mesh, kSelected, &print_polygon, nullptr, nullptr, nullptr);
    const std::uint32_t filter = MESH_MARK_MODE(kSelected, kHidden);
    std::printf("  their vertices that are not hidden (filter 0x%08x):\n", filter);
    MeshEnumerateVrts(mesh, filter, &print_vertex, uvs, mesh, nullptr);
    const unsigned selected = MeshMarkVrts(mesh, kSelected, 0);
    const unsigned visible = MeshMarkVrts(mesh, filter, 0);
    std::printf("  %u vertices selected, %u of them visible\n", selected, visible);
    picture = picture_of(mesh, corners, polygons, kSelected, kHidden);
    MeshDestroy(mesh);
    MeshShutdown();
    return 0;
}

}  // namespace

int vexor_gallery(int argc, char **argv) {
    const char *svg_path = "vexor-gallery.svg";
    if (!read_svg_option("gallery", argc, argv, &svg_path)) return 2;

    std::vector<PlottedCurve> curves = build_curves();  // built before undo records anything
    for (const PlottedCurve &c : curves) {
        if (c.env == nullptr) {
            std::fputs("vexor gallery: out of memory building the curves\n", stderr);
            return 1;
        }
    }
    std::printf("vexor %s: envelopes, %zu curves keyed and evaluated\n\n", VxVersion(),
                curves.size());

    UndoSysStartup();
    show_undo(curves[0].env);

    const PlotSpan span{-1.0, 3.0};
    std::printf("Values every quarter second (%g frames per second):\n", kFps);
    print_value_table(stdout, curves, span, kFps, 6);

    CubePicture cube;
    const int meshed = show_mesh(cube);
    const bool written =
        meshed == 0 && write_curve_plot(svg_path, curves, span,
                                        "vexor gallery: envelopes and a mesh", {cube_panel(cube)});
    UndoSysShutdown();
    for (const PlottedCurve &c : curves) EnvDestroyNoUndo(c.env);
    if (meshed != 0) return meshed;
    if (!written) {
        std::perror(("vexor gallery: writing " + std::string(svg_path)).c_str());
        return 1;
    }
    std::printf(
        "\nPlot of the curves, keys and tangent handles, and of the cube with its "
        "selection, written to %s\n",
        svg_path);
    return 0;
}
