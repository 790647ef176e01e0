// `vexor polygon`: a polygon (read from a text file, or a built-in star) drawn as an SVG picture
// with a grid of test points coloured by PolygonTestPosTol (inside, outside, on the boundary
// band), its corner normal, the axis its tests drop, and whether its first corner is convex.
// Uses the library through its public C functions only.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/polygon.h>

#include "bounds.h"

namespace {

constexpr std::size_t kMaxVertices = 10000;
constexpr int kMaxGrid = 200;

struct Options {
    const char *file = nullptr;
    int star = 5;
    int grid = 41;
    double band = -1.0;  // negative: a fiftieth of the polygon's size
    const char *svg = "vexor-polygon.svg";
};

bool parse_int(const char *text, int low, int high, int *out) {
    char *end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < low || value > high) return false;
    *out = static_cast<int>(value);
    return true;
}

bool parse_double(const char *text, double *out) {
    char *end = nullptr;
    errno = 0;
    const double value = std::strtod(text, &end);
    if (errno != 0 || end == text || *end != '\0' || !std::isfinite(value)) return false;
    *out = value;
    return true;
}

int read_options(int argc, char **argv, Options *options) {
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (std::strcmp(arg, "--star") == 0) {
            if (!has_value || !parse_int(argv[++i], 3, 1000, &options->star)) {
                return usage_error("polygon", "--star needs a number of points from 3 to 1000",
                                   nullptr);
            }
        } else if (std::strcmp(arg, "--grid") == 0) {
            if (!has_value || !parse_int(argv[++i], 2, kMaxGrid, &options->grid)) {
                return usage_error(
                    "polygon", "--grid needs a number of points per side from 2 to 200", nullptr);
            }
        } else if (std::strcmp(arg, "--band") == 0) {
            if (!has_value || !parse_double(argv[++i], &options->band) || options->band < 0.0) {
                return usage_error("polygon", "--band needs a distance of 0 or more", nullptr);
            }
        } else if (std::strcmp(arg, "--svg") == 0) {
            if (!has_value) return usage_error("polygon", "--svg needs a path", nullptr);
            options->svg = argv[++i];
        } else if (arg[0] == '-' && arg[1] != '\0') {
            return usage_error("polygon", "unknown option", arg);
        } else if (options->file != nullptr) {
            return usage_error("polygon", "more than one file:", arg);
        } else {
            options->file = arg;
        }
    }
    return 0;
}

using Point = std::vector<double>;

// Reads "x y [z]" lines; '#' starts a comment. False with a message for anything else.
bool read_points(const char *path, std::vector<Point> *points) {
    std::FILE *file = std::fopen(path, "r");
    if (file == nullptr) {
        std::fprintf(stderr, "vexor polygon: cannot read %s: %s\n", path, std::strerror(errno));
        return false;
    }
    char line[512];
    int number = 0;
    bool ok = true;
    while (ok && std::fgets(line, sizeof line, file) != nullptr) {
        ++number;
        if (char *hash = std::strchr(line, '#')) *hash = '\0';
        double xyz[3] = {0.0, 0.0, 0.0};
        int read = 0;
        char *at = line;
        for (;;) {
            while (*at == ' ' || *at == '\t' || *at == '\r' || *at == '\n' || *at == ',') ++at;
            if (*at == '\0') break;
            char *end = nullptr;
            const double value = std::strtod(at, &end);
            if (end == at || read == 3 || !std::isfinite(value)) {
                std::fprintf(stderr, "vexor polygon: %s:%d: expected \"x y [z]\" as numbers\n",
                             path, number);
                ok = false;
                break;
            }
            xyz[read++] = value;
            at = end;
        }
        if (!ok || read == 0) continue;
        if (read == 1) {
            std::fprintf(stderr, "vexor polygon: %s:%d: a vertex needs at least x and y\n", path,
                         number);
            ok = false;
        } else if (points->size() == kMaxVertices) {
            std::fprintf(stderr, "vexor polygon: %s: more than %zu vertices\n", path, kMaxVertices);
            ok = false;
        } else {
            points->push_back({xyz[0], xyz[1], xyz[2]});
        }
    }
    std::fclose(file);
    if (ok && points->empty()) {
        std::fprintf(stderr, "vexor polygon: %s holds no vertices\n", path);
        ok = false;
    }
    return ok;
}

std::vector<Point> star_points(int points) {
    std::vector<Point> star;
    for (int i = 0; i < 2 * points; ++i) {
        const double angle = 3.141592653589793 * (0.5 + static_cast<double>(i) / points);
        const double radius = i % 2 == 0 ? 1.0 : 0.42;
        star.push_back({radius * std::cos(angle), radius * std::sin(angle), 0.0});
    }
    return star;
}

const char *axis_name(int axis) {
    return axis == 0 ? "X" : (axis == 1 ? "Y" : "Z");
}

struct Picture {
    double lo[2], hi[2];  // the drawn (u, v) range
    double scale;
    double x(double u) const { return 40.0 + (u - lo[0]) * scale; }
    double y(double v) const { return 40.0 + (hi[1] - v) * scale; }
};

bool write_svg(const char *path, const std::vector<Point> &points, const AxisTest &test,
               const std::vector<std::vector<double>> &samples,
               const std::vector<std::string> &notes, double band) {
    double lo[2] = {1e300, 1e300}, hi[2] = {-1e300, -1e300};
    for (const Point &p : points) {
        const double uv[2] = {p[static_cast<std::size_t>(test.u)],
                              p[static_cast<std::size_t>(test.v)]};
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::fmin(lo[k], uv[k]);
            hi[k] = std::fmax(hi[k], uv[k]);
        }
    }
    const double size = std::fmax(std::fmax(hi[0] - lo[0], hi[1] - lo[1]), 1e-12);
    Picture picture{{lo[0] - 0.1 * size, lo[1] - 0.1 * size},
                    {hi[0] + 0.1 * size, hi[1] + 0.1 * size},
                    520.0 / (1.2 * size)};
    std::FILE *out = std::fopen(path, "w");
    if (out == nullptr) return false;
    std::fprintf(out,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"960\" height=\"620\" "
                 "font-family=\"sans-serif\" font-size=\"14\">\n"
                 "<rect width=\"960\" height=\"620\" fill=\"white\"/>\n");
    std::fprintf(out,
                 "<polygon fill=\"#dde8f6\" stroke=\"#1f4e8c\" stroke-width=\"1.5\" points=\"");
    for (const Point &p : points) {
        std::fprintf(out, "%.2f,%.2f ", picture.x(p[static_cast<std::size_t>(test.u)]),
                     picture.y(p[static_cast<std::size_t>(test.v)]));
    }
    std::fprintf(out, "\"/>\n");
    // Edges running downward in v carry the boundary band: drawn thicker.
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Point &a = points[(i + points.size() - 1) % points.size()];
        const Point &b = points[i];
        const std::size_t u = static_cast<std::size_t>(test.u),
                          v = static_cast<std::size_t>(test.v);
        if (!(a[v] > b[v])) continue;
        std::fprintf(out,
                     "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"#e08a00\" "
                     "stroke-width=\"4\" stroke-opacity=\"0.6\"/>\n",
                     picture.x(a[u]), picture.y(a[v]), picture.x(b[u]), picture.y(b[v]));
    }
    const char *colours[3] = {"#9aa0a6", "#e08a00", "#1e8e3e"};  // outside, band, inside
    for (const std::vector<double> &s : samples) {
        std::fprintf(out, "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"2.4\" fill=\"%s\"/>\n",
                     picture.x(s[0]), picture.y(s[1]), colours[static_cast<int>(s[2]) + 1]);
    }
    const Point &first = points[0];
    std::fprintf(out,
                 "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"6\" fill=\"none\" stroke=\"#b00020\" "
                 "stroke-width=\"2\"/>\n",
                 picture.x(first[static_cast<std::size_t>(test.u)]),
                 picture.y(first[static_cast<std::size_t>(test.v)]));
    double y = 60.0;
    for (const std::string &note : notes) {
        std::fprintf(out, "<text x=\"620\" y=\"%.0f\">%s</text>\n", y, note.c_str());
        y += 24.0;
    }
    y += 12.0;
    const char *legend[3] = {"outside (-1)", "on the band (0)", "inside (1)"};
    for (int k = 2; k >= 0; --k) {
        std::fprintf(out, "<circle cx=\"628\" cy=\"%.0f\" r=\"5\" fill=\"%s\"/>\n", y - 5.0,
                     colours[k]);
        std::fprintf(out, "<text x=\"642\" y=\"%.0f\">%s</text>\n", y, legend[k]);
        y += 22.0;
    }
    std::fprintf(out,
                 "<text x=\"620\" y=\"%.0f\" font-size=\"12\">thick orange edges run downward in "
                 "v and carry</text>\n<text x=\"620\" y=\"%.0f\" font-size=\"12\">the band "
                 "(half-width %.4g); red ring: vertex 0</text>\n",
                 y + 6.0, y + 22.0, band);
    std::fprintf(out, "</svg>\n");
    return std::fclose(out) == 0;
}

}  // namespace

int vexor_polygon(int argc, char **argv) {
    Options options;
    if (const int bad = read_options(argc, argv, &options)) return bad;
    std::vector<Point> points;
    if (options.file != nullptr) {
        if (!read_points(options.file, &points)) return 1;
    } else {
        points = star_points(options.star);
    }
    if (MeshStartup() != 1) {
        std::fputs("vexor polygon: the mesh module did not start\n", stderr);
        return 1;
    }
    Mesh *mesh = MeshCreate();
    std::vector<MeshVertex *> vertices;
    for (const Point &p : points) vertices.push_back(MeshNewVertex(mesh, p.data()));
    MeshPolygon *polygon =
        MeshNewPolygon(mesh, VX_CODE4('F', 'A', 'C', 'E'), static_cast<unsigned>(vertices.size()),
                       vertices.data(), 0);
    if (mesh == nullptr || polygon == nullptr) {
        std::fputs("vexor polygon: out of memory\n", stderr);
        MeshDestroy(mesh);
        MeshShutdown();
        return 1;
    }

    AxisTest test;
    const int from_normal = PolygonSetTestAxis(mesh, polygon, &test);
    double normal[3] = {0.0, 0.0, 0.0};
    const int has_normal = PolygonGetNormal(polygon, normal, mesh);
    const int first = PolygonFirstConvex(mesh, polygon);
    const int convex = PolygonIsConvex(mesh, polygon);
    const int counter_clockwise = PolygonOrientation(mesh, polygon, &test);
    const std::uint32_t validity = PolygonTestValidity(mesh, polygon, 0x8000);

    // The grid spans the polygon's box in (u, v) and a margin around it.
    const std::size_t u = static_cast<std::size_t>(test.u), v = static_cast<std::size_t>(test.v);
    double lo[2] = {1e300, 1e300}, hi[2] = {-1e300, -1e300};
    for (const Point &p : points) {
        lo[0] = std::fmin(lo[0], p[u]);
        hi[0] = std::fmax(hi[0], p[u]);
        lo[1] = std::fmin(lo[1], p[v]);
        hi[1] = std::fmax(hi[1], p[v]);
    }
    const double size = std::fmax(std::fmax(hi[0] - lo[0], hi[1] - lo[1]), 1e-12);
    const double band = options.band >= 0.0 ? options.band : size / 50.0;
    std::vector<std::vector<double>> samples;
    int counts[3] = {0, 0, 0};
    for (int i = 0; i < options.grid; ++i) {
        for (int j = 0; j < options.grid; ++j) {
            double at[3] = {points[0][0], points[0][1], points[0][2]};
            at[u] = lo[0] - 0.05 * size + 1.1 * size * i / (options.grid - 1);
            at[v] = lo[1] - 0.05 * size + 1.1 * size * j / (options.grid - 1);
            const int answer = PolygonTestPosTol(mesh, polygon, &test, at, band);
            ++counts[answer + 1];
            samples.push_back({at[u], at[v], static_cast<double>(answer)});
        }
    }

    char text[160];
    std::vector<std::string> notes;
    std::snprintf(text, sizeof text, "%zu %s, %s", points.size(),
                  points.size() == 1 ? "vertex" : "vertices",
                  counter_clockwise ? "counter-clockwise" : "clockwise");
    notes.emplace_back(text);
    if (has_normal) {
        std::snprintf(text, sizeof text, "corner normal (%.3f, %.3f, %.3f)", normal[0], normal[1],
                      normal[2]);
    } else {
        std::snprintf(text, sizeof text, "corner normal: none (degenerate corner)");
    }
    notes.emplace_back(text);
    std::snprintf(text, sizeof text, "tests drop %s (from the %s), read (%s, %s)",
                  axis_name(test.axis), from_normal ? "normal" : "thinnest box axis",
                  axis_name(test.u), axis_name(test.v));
    notes.emplace_back(text);
    notes.emplace_back(first > 0   ? "first corner: convex"
                       : first < 0 ? "first corner: reflex"
                                   : "first corner: degenerate");
    notes.emplace_back(convex ? "every corner convex" : "some corner reflex");
    notes.emplace_back(validity == 0 ? "structurally valid"
                                     : "not valid (repeated vertex or count)");
    std::snprintf(text, sizeof text, "grid %dx%d: %d inside, %d band, %d outside", options.grid,
                  options.grid, counts[2], counts[1], counts[0]);
    notes.emplace_back(text);
    for (const std::string &note : notes) std::printf("%s\n", note.c_str());

    const bool written = write_svg(options.svg, points, test, samples, notes, band);
    MeshDestroy(mesh);
    MeshShutdown();
    if (!written) {
        std::fprintf(stderr, "vexor polygon: cannot write %s: %s\n", options.svg,
                     std::strerror(errno));
        return 1;
    }
    std::printf("wrote %s\n", options.svg);
    return 0;
}
