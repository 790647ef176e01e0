// `vexor subd`: subdivision surfaces at work, through the public C interface only. A cube and a
// lone five-sided face are built of SUBD polygons and drawn at levels 0 to 3: the cage in grey,
// the refined quads of the surface in blue and the limit corners as red dots. A table gives
// the refined quads and the limit position of one corner at each level.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/subd.h>
#include <vexor/vbuf.h>

#include "curve_plot.h"

namespace {

constexpr std::uint32_t kSubd = VX_CODE4('S', 'U', 'B', 'D');
constexpr int kLevels = 4;  // 0 to 3
constexpr double kCell = 220.0;

struct Model {
    const char *name;
    Mesh *mesh = nullptr;
    std::vector<MeshVertex *> vertices;
    std::vector<MeshPolygon *> polygons;
};

Model make(const char *name, const std::vector<std::vector<double>> &points,
           const std::vector<std::vector<int>> &faces) {
    Model m{name, nullptr, {}, {}};
    m.mesh = MeshCreate();
    if (m.mesh == nullptr) return m;
    for (const auto &p : points) m.vertices.push_back(MeshNewVertex(m.mesh, p.data()));
    for (const auto &face : faces) {
        std::vector<MeshVertex *> vs;
        for (int v : face) vs.push_back(m.vertices[static_cast<std::size_t>(v)]);
        m.polygons.push_back(
            MeshNewPolygon(m.mesh, kSubd, static_cast<unsigned>(vs.size()), vs.data(), 0));
    }
    return m;
}

Model cube() {
    return make(
        "cube",
        {{-1, -1, -1},
         {1, -1, -1},
         {1, 1, -1},
         {-1, 1, -1},
         {-1, -1, 1},
         {1, -1, 1},
         {1, 1, 1},
         {-1, 1, 1}},
        {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}});
}

// A pentagon with one corner lifted, so that its surface bends.
Model pentagon() {
    std::vector<std::vector<double>> points;
    for (int i = 0; i < 5; ++i) {
        const double a = 1.5707963 + 6.2831853 * i / 5.0;
        points.push_back({1.3 * std::cos(a), 1.3 * std::sin(a), i == 0 ? 0.9 : 0.0});
    }
    return make("pentagon", points, {{0, 1, 2, 3, 4}});
}

// An oblique view: x to the right, z up, y into the picture.
struct View {
    double x0, y0;
    void at(const float p[3], double &sx, double &sy) const {
        const double x = p[0], y = p[1], z = p[2];
        sx = x0 + kCell / 2 + 55.0 * (x + 0.45 * y);
        sy = y0 + kCell / 2 - 55.0 * (z + 0.35 * y);
    }
};

void polyline(std::string &svg, const View &view, const float *points, std::size_t count,
              const char *style) {
    svg += "<polygon points=\"";
    for (std::size_t i = 0; i < count; ++i) {
        double x, y;
        view.at(points + 3 * i, x, y);
        char pair[64];
        std::snprintf(pair, sizeof pair, "%.1f,%.1f ", x, y);
        svg += pair;
    }
    svg += "\" ";
    svg += style;
    svg += "/>\n";
}

// The surface's quads of every polygon at the mesh's level; returns the number of quads.
std::size_t draw_quads(std::string &svg, const View &view, const Model &m) {
    PolyVBuf *buffer = PolyVBufCreate(m.mesh, nullptr, PVBUF_QUADS);
    if (buffer == nullptr) return 0;
    PolyVBufResetCount(buffer);
    for (MeshPolygon *p : m.polygons) PolyVBufCountPoly(buffer, p);
    std::size_t quads = 0;
    if (PolyVBufAllocate(buffer) != 0) {
        PolyVBufResetCount(buffer);
        for (MeshPolygon *p : m.polygons) PolyVBufGenPoly(buffer, p);
        AVBView values{};
        AttrVBuf *avb = PolyVBufAttributes(buffer);
        AVBUpdateBegin(avb, &values);
        quads = values.count / 4;
        for (std::size_t q = 0; q < quads; ++q) {
            polyline(svg, view, values.values + 12 * q, 4,
                     "fill=\"none\" stroke=\"#2a5db0\" stroke-width=\"0.6\"");
        }
        AVBUpdateEnd(avb);
    }
    PolyVBufDestroy(buffer);
    return quads;
}

void draw_cage(std::string &svg, const View &view, const Model &m) {
    for (MeshPolygon *p : m.polygons) {
        std::vector<float> corners;
        for (unsigned i = 0; i < MeshNumVrtInPol(p); ++i) {
            float xyz[3];
            MeshVertexPosF(m.mesh, MeshPolVrtByIndex(p, static_cast<int>(i)), xyz);
            corners.insert(corners.end(), xyz, xyz + 3);
        }
        polyline(svg, view, corners.data(), corners.size() / 3,
                 "fill=\"none\" stroke=\"#999\" stroke-width=\"1.2\" stroke-dasharray=\"4 2\"");
    }
}

void draw_corners(std::string &svg, const View &view, const Model &m) {
    for (MeshVertex *v : m.vertices) {
        float limit[3];
        if (SUBDGetCorner(m.mesh, v, limit) == 0) continue;
        double x, y;
        view.at(limit, x, y);
        char dot[96];
        std::snprintf(dot, sizeof dot,
                      "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"2.5\" fill=\"#c0392b\"/>\n", x, y);
        svg += dot;
    }
}

}  // namespace

int vexor_subd(int argc, char **argv) {
    const char *svg_path = "vexor-subd.svg";
    if (!read_svg_option("subd", argc, argv, &svg_path)) return 2;
    if (MeshStartup() == 0) {
        std::fprintf(stderr, "vexor subd: meshes could not start\n");
        return 1;
    }
    Model models[2] = {cube(), pentagon()};
    std::string svg;
    char text[256];
    std::snprintf(text, sizeof text,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                  "font-family=\"sans-serif\" font-size=\"13\">\n<rect width=\"100%%\" "
                  "height=\"100%%\" fill=\"white\"/>\n",
                  kCell * kLevels, kCell * 2 + 30);
    svg += text;
    std::printf("%-9s %5s %8s  %s\n", "model", "level", "quads", "limit of the first corner");
    int status = 0;
    for (int row = 0; row < 2; ++row) {
        Model &m = models[row];
        if (m.mesh == nullptr) {
            status = 1;
            continue;
        }
        for (int level = 0; level < kLevels; ++level) {
            const View view{kCell * level, 30.0 + kCell * row};
            std::size_t quads = 0;
            if (level > 0) {
                SUBDSetLevel(m.mesh, level);
                quads = draw_quads(svg, view, m);
            }
            draw_cage(svg, view, m);
            draw_corners(svg, view, m);
            float limit[3] = {0, 0, 0};
            const int has = SUBDGetCorner(m.mesh, m.vertices[0], limit);
            if (has == 0) status = 1;
            std::printf("%-9s %5d %8zu  (%.4f, %.4f, %.4f)\n", m.name, level, quads,
                        double{limit[0]}, double{limit[1]}, double{limit[2]});
            std::snprintf(text, sizeof text, "<text x=\"%.0f\" y=\"%.0f\">%s, level %d</text>\n",
                          view.x0 + 8, view.y0 + 4, m.name, level);
            svg += text;
        }
        MeshDestroy(m.mesh);
    }
    svg += "</svg>\n";
    MeshShutdown();
    std::FILE *file = std::fopen(svg_path, "wb");
    if (file == nullptr || std::fwrite(svg.data(), 1, svg.size(), file) != svg.size()) {
        std::fprintf(stderr, "vexor subd: cannot write %s\n", svg_path);
        if (file != nullptr) std::fclose(file);
        return 1;
    }
    std::fclose(file);
    std::printf("wrote %s\n", svg_path);
    return status;
}
