// `vexor hull FILE`: the convex hull of 2D or 3D points read from a text file (one point a
// line), printed with its bounding box and major axis, and drawn as an SVG picture of the
// points, the hull and the major-axis rectangle. Uses the library through its C functions only.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/hull.h>

#include "bounds.h"

namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20;
constexpr std::size_t kMaxPoints = 2000000;
constexpr std::size_t kMaxDrawnPoints = 20000;

struct Options {
    const char *file = nullptr;
    const char *svg = "vexor-hull.svg";
    long print = 40;
};

int read_options(int argc, char **argv, Options *options) {
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (std::strcmp(arg, "--svg") == 0) {
            if (i + 1 >= argc) return usage_error("hull", "--svg needs a path");
            options->svg = argv[++i];
        } else if (std::strcmp(arg, "--print") == 0) {
            char *end = nullptr;
            errno = 0;
            options->print = i + 1 < argc ? std::strtol(argv[++i], &end, 10) : -1;
            if (end == nullptr || *end != '\0' || errno != 0 || options->print < 0 ||
                options->print > 100000)
                return usage_error("hull", "--print needs a number of vertices from 0 to 100000");
        } else if (arg[0] == '-' && arg[1] != '\0') {
            return usage_error("hull", "unknown option", arg);
        } else if (options->file != nullptr) {
            return usage_error("hull", "more than one file:", arg);
        } else {
            options->file = arg;
        }
    }
    if (options->file == nullptr) return usage_error("hull", "give a file of points");
    return 0;
}

struct Points {
    std::vector<double> xyz;  // three per point
    bool three_d = false;
};

// Reads the whole file (a regular file of bounded size, see bounds.h) and parses "x y [z]" lines;
// '#' starts a comment and commas separate like blanks. False with a message naming the line.
bool read_points(const char *path, Points *points) {
    std::string text;
    if (!read_input_file("hull", path, kMaxFileBytes, text)) return false;
    std::size_t start = 0;
    int number = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (line.find('\0') != std::string::npos) {
            std::fprintf(stderr, "vexor hull: %s:%d: not text\n", path, number);
            return false;
        }
        if (const std::size_t hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        double value[3] = {0.0, 0.0, 0.0};
        int count = 0;
        const char *at = line.c_str();
        for (;;) {
            while (*at == ' ' || *at == '\t' || *at == '\r' || *at == ',') ++at;
            if (*at == '\0') break;
            char *after = nullptr;
            const double v = std::strtod(at, &after);
            if (after == at || count == 3) {
                std::fprintf(stderr,
                             "vexor hull: %s:%d: expected \"x y\" or \"x y z\" as numbers\n", path,
                             number);
                return false;
            }
            if (!std::isfinite(v)) {
                std::fprintf(stderr, "vexor hull: %s:%d: coordinates must be finite numbers\n",
                             path, number);
                return false;
            }
            value[count++] = v;
            at = after;
        }
        if (count == 0) continue;
        if (count == 1) {
            std::fprintf(stderr, "vexor hull: %s:%d: a point needs at least x and y\n", path,
                         number);
            return false;
        }
        if (points->xyz.size() / 3 == kMaxPoints) {
            std::fprintf(stderr, "vexor hull: %s: more than %zu points\n", path, kMaxPoints);
            return false;
        }
        if (count == 3) points->three_d = true;
        points->xyz.insert(points->xyz.end(), value, value + 3);
    }
    if (points->xyz.empty()) {
        std::fprintf(stderr, "vexor hull: %s holds no points\n", path);
        return false;
    }
    return true;
}

struct Frame {
    double lo[2], hi[2], scale;
    double x(double u) const { return 30.0 + (u - lo[0]) * scale; }
    double y(double v) const { return 30.0 + (hi[1] - v) * scale; }
};

bool write_svg(const char *path, const std::vector<double> &uv, const std::vector<double> &hull,
               const double rect[4][2], const std::string &caption) {
    double lo[2] = {uv[0], uv[1]}, hi[2] = {uv[0], uv[1]};
    for (std::size_t i = 0; i < uv.size(); i += 2)
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::fmin(lo[k], uv[i + static_cast<std::size_t>(k)]);
            hi[k] = std::fmax(hi[k], uv[i + static_cast<std::size_t>(k)]);
        }
    for (int c = 0; c < 4; ++c)
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::fmin(lo[k], rect[c][k]);
            hi[k] = std::fmax(hi[k], rect[c][k]);
        }
    const double size = std::fmax(std::fmax(hi[0] - lo[0], hi[1] - lo[1]), 1e-300);
    const Frame frame{{lo[0], lo[1]}, {hi[0], hi[1]}, 600.0 / size};
    std::FILE *out = std::fopen(path, "w");
    if (out == nullptr) return false;
    const double width = 60.0 + (hi[0] - lo[0]) * frame.scale,
                 height = 90.0 + (hi[1] - lo[1]) * frame.scale;
    std::fprintf(out,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                 "font-family=\"sans-serif\" "
                 "font-size=\"13\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
                 width, height);
    std::fputs(
        "<polygon fill=\"none\" stroke=\"#e08a00\" stroke-width=\"1.5\" stroke-dasharray=\"6 4\" "
        "points=\"",
        out);
    for (int c = 0; c < 4; ++c)
        std::fprintf(out, "%.2f,%.2f ", frame.x(rect[c][0]), frame.y(rect[c][1]));
    std::fputs(
        "\"/>\n<polygon fill=\"#dde8f6\" fill-opacity=\"0.6\" stroke=\"#1f4e8c\" "
        "stroke-width=\"2\" points=\"",
        out);
    for (std::size_t i = 0; i < hull.size(); i += 2)
        std::fprintf(out, "%.2f,%.2f ", frame.x(hull[i]), frame.y(hull[i + 1]));
    std::fputs("\"/>\n", out);
    // At most kMaxDrawnPoints points: an even sample of larger sets.
    const std::size_t count = uv.size() / 2,
                      step = count > kMaxDrawnPoints
                                 ? (count + kMaxDrawnPoints - 1) / kMaxDrawnPoints
                                 : 1;
    for (std::size_t i = 0; i < count; i += step)
        std::fprintf(out, "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"1.6\" fill=\"#555\"/>\n",
                     frame.x(uv[2 * i]), frame.y(uv[2 * i + 1]));
    std::fprintf(out,
                 "<text x=\"30\" y=\"%.0f\">%s</text>\n<text x=\"30\" y=\"%.0f\" font-size=\"11\" "
                 "fill=\"#555\">"
                 "blue: hull; dashed orange: major-axis rectangle; grey: points%s</text>\n</svg>\n",
                 height - 40.0, caption.c_str(), height - 20.0, step > 1 ? " (a sample)" : "");
    return std::fclose(out) == 0;
}

}  // namespace

int vexor_hull(int argc, char **argv) {
    Options options;
    if (const int bad = read_options(argc, argv, &options)) return bad;
    Points points;
    if (!read_points(options.file, &points)) return 1;

    ConvexHull *hull = ConvexHullCreate();
    if (hull == nullptr) {
        std::fputs("vexor hull: out of memory\n", stderr);
        return 1;
    }
    ConvexHullStart(hull);
    const std::size_t count = points.xyz.size() / 3;
    std::size_t duplicates = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double *p = &points.xyz[3 * i];
        const int added = points.three_d ? ConvexHullAppendPos(hull, p, i)
                                         : ConvexHullAppend(hull, p[0], p[1], i);
        if (added == 1) ++duplicates;
        if (added < 0) {
            std::fputs("vexor hull: out of memory\n", stderr);
            ConvexHullDestroy(hull);
            return 1;
        }
    }
    if (ConvexHullDone(hull) == 0) {
        std::fprintf(stderr,
                     "vexor hull: %s: a hull needs at least two distinct points (%zu given)\n",
                     options.file, count);
        ConvexHullDestroy(hull);
        return 1;
    }
    AxisTest test;
    ConvexHullGetAxisTest(hull, &test);
    const char *axes = "XYZ";
    const unsigned vertices = ConvexHullVertexCount(hull);
    std::printf("%zu points (%s), %zu repeated; the hull has %u vertices", count,
                points.three_d ? "3D" : "2D", duplicates, vertices);
    if (points.three_d)
        std::printf(", seen along %c (plane coordinates %c, %c)", axes[test.axis], axes[test.u],
                    axes[test.v]);
    std::printf(":\n");
    std::vector<double> outline;
    for (unsigned i = 0; i < vertices; ++i) {
        double uv[2];
        uint64_t source = 0;
        ConvexHullGetVertex(hull, i, uv, &source);
        outline.insert(outline.end(), uv, uv + 2);
        if (i < static_cast<unsigned long>(options.print)) {
            const double *p = &points.xyz[3 * source];
            if (points.three_d) {
                std::printf("  %4u  point %-8llu (%g, %g, %g)\n", i,
                            static_cast<unsigned long long>(source + 1), p[0], p[1], p[2]);
            } else {
                std::printf("  %4u  point %-8llu (%g, %g)\n", i,
                            static_cast<unsigned long long>(source + 1), p[0], p[1]);
            }
        }
    }
    if (vertices > options.print)
        std::printf("  ... and %lu more (--print shows more)\n",
                    vertices - static_cast<unsigned long>(options.print));
    BBox box;
    ConvexHullGetBBox(hull, &box);
    std::printf("bounding box: (%g, %g) to (%g, %g), %g by %g\n", box.min[0], box.min[1],
                box.max[0], box.max[1], box.extent[0], box.extent[1]);
    double cu = 0, cv = 0, au = 1, av = 0, length = 0, width = 0;
    double rect[4][2] = {};
    std::string caption;
    if (ConvexHullMajorAxis(hull, &cu, &cv, &au, &av, &length, &width) != 0) {
        std::printf("major axis: centre (%g, %g), direction (%g, %g), length %g, width %g\n", cu,
                    cv, au, av, length, width);
        double centre[3], axis[3], length3 = 0, width3 = 0;
        if (points.three_d && ConvexHullMajorAxis3D(hull, centre, axis, &length3, &width3) != 0)
            std::printf(
                "in space: centre (%g, %g, %g), direction (%g, %g, %g), length %g, width %g\n",
                centre[0], centre[1], centre[2], axis[0], axis[1], axis[2], length3, width3);
        const double across[2] = {-av, au};
        for (int c = 0; c < 4; ++c) {
            const double s = (c == 0 || c == 3) ? -0.5 : 0.5, t = (c < 2) ? -0.5 : 0.5;
            rect[c][0] = cu + s * length * au + t * width * across[0];
            rect[c][1] = cv + s * length * av + t * width * across[1];
        }
        char text[200];
        std::snprintf(text, sizeof text, "%u hull vertices of %zu points; major axis %.4g by %.4g",
                      vertices, count, length, width);
        caption = text;
    } else {
        std::printf("major axis: none (the hull has no extent)\n");
        for (auto &corner : rect) {
            corner[0] = outline[0];
            corner[1] = outline[1];
        }
        caption = std::to_string(vertices) + " hull vertices; no major axis";
    }
    std::vector<double> uv;
    uv.reserve(2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        double mapped[3];
        AxisTestMultiply(mapped, &test, &points.xyz[3 * i]);
        uv.push_back(mapped[test.u]);
        uv.push_back(mapped[test.v]);
    }
    ConvexHullDestroy(hull);
    if (!write_svg(options.svg, uv, outline, rect, caption)) {
        std::fprintf(stderr, "vexor hull: cannot write %s: %s\n", options.svg,
                     std::strerror(errno));
        return 1;
    }
    std::printf("wrote %s\n", options.svg);
    return 0;
}
