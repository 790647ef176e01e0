#include "curve_plot.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "bounds.h"
#include "options.h"

#include <vexor/env_eval.h>

namespace {

// The picture: a title, the plot area with its axes, and the legend in rows under it.
constexpr double kWidth = 960.0;
constexpr double kPlotHeight = 520.0;  // down to the time axis' label
constexpr double kLeft = 72.0;         // plot area inside the picture
constexpr double kRight = 24.0;
constexpr double kTop = 48.0;
constexpr double kBottom = 56.0;
constexpr double kLegendRow = 20.0;
constexpr std::size_t kLegendColumns = 2;
constexpr int kCurveSamples = 1200;

const char *const kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd",
                                "#ff7f0e", "#17becf", "#8c564b", "#e377c2"};
constexpr std::size_t kColourCount = sizeof kColours / sizeof kColours[0];

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

bool is_integer(Envelope *env) {
    return EnvType(env) == 1;
}

std::vector<EnvKey *> keys_of(Envelope *env) {
    if (env == nullptr) return {};
    std::vector<EnvKey *> keys;
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) keys.push_back(k);
    return keys;
}

double key_value(Envelope *env, const EnvKey *key, int side) {
    return is_integer(env) ? EnvKeyGetTangentValueInt(key, side) : EnvKeyGetTangentValue(key, side);
}

bool shows_handles(Envelope *env) {
    return env != nullptr && !is_integer(env) && EnvInterpolation(env) != ENV_INTERP_STEPPED;
}

// A tick spacing of 1, 2, 2.5 or 5 times a power of ten giving about `count` ticks.
double tick_step(double range, double count) {
    const double raw = range / count;
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 2.5, 5.0}) {
        if (m * magnitude >= raw) return m * magnitude;
    }
    return 10.0 * magnitude;
}

std::string number(double v) {
    if (std::fabs(v) < 1e-12) v = 0.0;
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// Maps times and values into the plot area.
struct Frame {
    double t0, t1, v0, v1;
    // Points far outside the plot area (and values that are not numbers) are pinned just
    // outside it, so the picture's numbers stay small whatever the curve does.
    double x(double t) const {
        return pin(kLeft + (t - t0) / (t1 - t0) * (kWidth - kLeft - kRight), kWidth);
    }
    double y(double v) const {
        return pin(kPlotHeight - kBottom - (v - v0) / (v1 - v0) * (kPlotHeight - kTop - kBottom),
                   kPlotHeight);
    }
    static double pin(double p, double size) {
        if (std::isnan(p)) return -size;
        return std::clamp(p, -size, 2.0 * size);
    }
};

// The value range to show: every curve's exact bounds over the span, and the handles of keys
// inside it, with a margin.
Frame frame_for(const std::vector<PlottedCurve> &curves, PlotSpan span) {
    double lo = HUGE_VAL, hi = -HUGE_VAL;
    for (const PlottedCurve &c : curves) {
        double a = 0.0, b = 0.0;
        if (c.sample) {
            a = HUGE_VAL;
            b = -HUGE_VAL;
            for (int i = 0; i <= kCurveSamples; ++i) {
                const double v = c.sample(span.from + (span.to - span.from) * i / kCurveSamples);
                a = std::min(a, v);
                b = std::max(b, v);
            }
        } else if (is_integer(c.env)) {
            int ia = 0, ib = 0;
            EnvBoundsValueInt(c.env, span.from, span.to, &ia, &ib);
            a = ia;
            b = ib;
        } else {
            EnvBoundsValue(c.env, span.from, span.to, &a, &b);
        }
        lo = std::min(lo, a);
        hi = std::max(hi, b);
        if (!shows_handles(c.env)) continue;
        for (EnvKey *k : keys_of(c.env)) {
            if (k->time < span.from || k->time > span.to) continue;
            for (int side : {0, 1}) {
                double t = 0.0, v = 0.0;
                EnvKeyGetHandle(c.env, k, 0, side, &t, &v);
                if (t >= span.from && t <= span.to) {
                    lo = std::min(lo, v);
                    hi = std::max(hi, v);
                }
            }
        }
    }
    if (!(lo <= hi)) lo = hi = 0.0;
    lo = std::clamp(lo, -1e300, 1e300);  // keeps hi - lo and the margin finite
    hi = std::clamp(hi, -1e300, 1e300);
    if (hi - lo < 1e-9) {
        lo -= 1.0;
        hi += 1.0;
    }
    const double margin = (hi - lo) * 0.08;
    return Frame{span.from, span.to, lo - margin, hi + margin};
}

void write_axes(std::FILE *f, const Frame &fr) {
    const double x0 = kLeft, x1 = kWidth - kRight;
    const double y0 = kTop, y1 = kPlotHeight - kBottom;
    std::fprintf(f,
                 "<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' fill='#fbfbfb' "
                 "stroke='#888'/>\n",
                 x0, y0, x1 - x0, y1 - y0);
    // Ticks are counted, not stepped, so no span or range can make the loop run long.
    const double tstep = tick_step(fr.t1 - fr.t0, 10.0);
    const double t_first = std::ceil(fr.t0 / tstep);
    for (int i = 0; i <= 40 && (t_first + i) * tstep <= fr.t1 + tstep * 1e-6; ++i) {
        const double t = (t_first + i) * tstep;
        const double x = fr.x(t);
        std::fprintf(f, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='%s'/>\n", x, y0, x,
                     y1, std::fabs(t) < 1e-9 ? "#999" : "#e4e4e4");
        std::fprintf(f, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#888'/>\n", x, y1, x,
                     y1 + 5);
        std::fprintf(f, "<text x='%.1f' y='%.1f' text-anchor='middle'>%s s</text>\n", x, y1 + 19,
                     number(t).c_str());
    }
    std::fprintf(f, "<text x='%.1f' y='%.1f' text-anchor='middle' fill='#555'>time</text>\n",
                 (x0 + x1) / 2, kPlotHeight - 20);
    const double vstep = tick_step(fr.v1 - fr.v0, 7.0);
    const double v_first = std::ceil(fr.v0 / vstep);
    for (int i = 0; i <= 40 && (v_first + i) * vstep <= fr.v1 + vstep * 1e-6; ++i) {
        const double v = (v_first + i) * vstep;
        const double y = fr.y(v);
        std::fprintf(f, "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='%s'/>\n", x0, y, x1,
                     y, std::fabs(v) < 1e-9 ? "#999" : "#e4e4e4");
        std::fprintf(f, "<text x='%.1f' y='%.1f' text-anchor='end'>%s</text>\n", x0 - 6, y + 4,
                     number(v).c_str());
    }
    std::fprintf(f,
                 "<text x='16' y='%.1f' fill='#555' transform='rotate(-90 16 %.1f)' "
                 "text-anchor='middle'>value</text>\n",
                 (y0 + y1) / 2, (y0 + y1) / 2);
}

// The curve as a polyline: evenly spaced samples, plus both sides of every key time inside the
// span so held values and breaks step sharply.
void write_curve(std::FILE *f, const Frame &fr, const PlottedCurve &c, const char *colour) {
    std::vector<double> times;
    for (int i = 0; i <= kCurveSamples; ++i) {
        times.push_back(fr.t0 + (fr.t1 - fr.t0) * i / kCurveSamples);
    }
    for (EnvKey *k : keys_of(c.env)) {
        for (double d : {-0.0002, 0.0, 0.0002}) {
            if (k->time + d > fr.t0 && k->time + d < fr.t1) times.push_back(k->time + d);
        }
    }
    std::sort(times.begin(), times.end());
    std::fprintf(f,
                 "<polyline fill='none' stroke='%s' stroke-width='2.2' "
                 "stroke-linejoin='round' points='",
                 colour);
    for (double t : times) std::fprintf(f, "%.2f,%.2f ", fr.x(t), fr.y(curve_value(c, t)));
    std::fputs("'/>\n", f);
}

void write_keys(std::FILE *f, const Frame &fr, const PlottedCurve &c, const char *colour) {
    const bool handles = shows_handles(c.env);
    for (EnvKey *k : keys_of(c.env)) {
        if (k->time < fr.t0 || k->time > fr.t1) continue;
        const double x = fr.x(k->time);
        if (handles) {
            for (int side : {0, 1}) {
                double t = 0.0, v = 0.0;
                EnvKeyGetHandle(c.env, k, 0, side, &t, &v);
                const double from = key_value(c.env, k, side == 1 && (k->flags & 1) ? 1 : 0);
                std::fprintf(f,
                             "<line x1='%.2f' y1='%.2f' x2='%.2f' y2='%.2f' stroke='%s' "
                             "stroke-width='1.2' stroke-dasharray='4 2' opacity='0.8'/>\n",
                             x, fr.y(from), fr.x(t), fr.y(v), colour);
                std::fprintf(f,
                             "<rect x='%.2f' y='%.2f' width='6' height='6' fill='white' "
                             "stroke='%s' stroke-width='1.2'/>\n",
                             fr.x(t) - 3, fr.y(v) - 3, colour);
            }
        }
        // A broken key shows both of its values; the filled dot is the one it shows.
        const double shown = is_integer(c.env) ? EnvKeyValueInt(k) : EnvKeyValue(k);
        if ((k->flags & 1) != 0) {
            const double other = key_value(c.env, k, EnvKeyGetActiveValue(k) != 0 ? 0 : 1);
            std::fprintf(f,
                         "<circle cx='%.2f' cy='%.2f' r='4' fill='white' stroke='%s' "
                         "stroke-width='1.5'/>\n",
                         x, fr.y(other), colour);
        }
        std::fprintf(f,
                     "<circle cx='%.2f' cy='%.2f' r='4.5' fill='%s' stroke='white' "
                     "stroke-width='1.5'/>\n",
                     x, fr.y(shown), colour);
    }
}

// Each curve's colour follows from its name, so a channel has one colour whichever command
// draws it; curves of one picture whose names meet on a colour take the next free one.
std::vector<const char *> colours_for(const std::vector<PlottedCurve> &curves) {
    std::vector<const char *> colours;
    std::vector<bool> used(kColourCount, false);
    for (const PlottedCurve &c : curves) {
        std::uint32_t hash = 2166136261u;  // FNV-1a
        for (const char ch : c.name) hash = (hash ^ static_cast<unsigned char>(ch)) * 16777619u;
        std::size_t i = hash % kColourCount;
        if (curves.size() <= kColourCount) {
            while (used[i]) i = (i + 1) % kColourCount;
        }
        used[i] = true;
        colours.push_back(kColours[i]);
    }
    return colours;
}

// Where each envelope's keys begin and end, dashed in its colour: before the first key the pre
// behaviour holds, after the last the post behaviour. Named when there are few curves.
void write_keyed_spans(std::FILE *f, const Frame &fr, const std::vector<PlottedCurve> &curves,
                       const std::vector<const char *> &colours) {
    const double y0 = kTop, y1 = kPlotHeight - kBottom;
    for (std::size_t i = 0; i < curves.size(); ++i) {
        Envelope *env = curves[i].env;
        if (env == nullptr || EnvFirstKey(env) == nullptr) continue;
        double first = 0.0, last = 0.0;
        EnvBoundsTime(env, &first, &last);
        const struct {
            double time;
            const char *label;
            unsigned behavior;
            const char *anchor;
            double dx;
        } ends[] = {{first, "pre: ", EnvPreBehavior(env), "end", -4.0},
                    {last, "post: ", EnvPostBehavior(env), "start", 4.0}};
        for (const auto &end : ends) {
            if (end.time <= fr.t0 || end.time >= fr.t1) continue;
            const double x = fr.x(end.time);
            std::fprintf(f,
                         "<line x1='%.2f' y1='%.1f' x2='%.2f' y2='%.1f' stroke='%s' "
                         "stroke-width='1' stroke-dasharray='2 4' opacity='0.7'/>\n",
                         x, y0, x, y1, colours[i]);
            if (curves.size() <= 3) {
                std::fprintf(f,
                             "<text x='%.2f' y='%.1f' text-anchor='%s' font-size='10' "
                             "fill='%s'>%s%s</text>\n",
                             x + end.dx, y0 + 12.0 + 12.0 * static_cast<double>(i), end.anchor,
                             colours[i], end.label, behavior_name(end.behavior));
            }
        }
    }
}

// What the symbols mean, top right.
void write_symbol_legend(std::FILE *f) {
    const double y = 28.0;
    double x = kWidth - kRight - 470.0;
    std::fprintf(f,
                 "<circle cx='%.1f' cy='%.1f' r='4.5' fill='#555'/><text x='%.1f' y='%.1f'>key"
                 "</text>\n",
                 x, y - 4, x + 8, y);
    x += 44;
    std::fprintf(f,
                 "<circle cx='%.1f' cy='%.1f' r='4' fill='white' stroke='#555' "
                 "stroke-width='1.5'/><text x='%.1f' y='%.1f'>other side of a broken key</text>\n",
                 x, y - 4, x + 8, y);
    x += 178;
    std::fprintf(f,
                 "<rect x='%.1f' y='%.1f' width='6' height='6' fill='white' stroke='#555'/>"
                 "<text x='%.1f' y='%.1f'>tangent handle</text>\n",
                 x - 3, y - 7, x + 8, y);
    x += 104;
    std::fprintf(f,
                 "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#555' "
                 "stroke-dasharray='2 4'/><text x='%.1f' y='%.1f'>first/last key</text>\n",
                 x, y - 12, x, y + 2, x + 6, y);
}

std::size_t legend_rows(std::size_t curves) {
    return (curves + kLegendColumns - 1) / kLegendColumns;
}

// Under the plot: a swatch of each curve's colour and its name, in columns.
void write_legend(std::FILE *f, const std::vector<PlottedCurve> &curves,
                  const std::vector<const char *> &colours) {
    const double column = (kWidth - kLeft - kRight) / static_cast<double>(kLegendColumns);
    for (std::size_t i = 0; i < curves.size(); ++i) {
        const double x = kLeft + column * static_cast<double>(i % kLegendColumns);
        const double y = kPlotHeight + kLegendRow * static_cast<double>(i / kLegendColumns);
        std::fprintf(f,
                     "<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='%s' "
                     "stroke-width='3'/>\n",
                     x, y - 4, x + 24, y - 4, colours[i]);
        std::fprintf(f, "<text x='%.1f' y='%.1f'>%s</text>\n", x + 32, y,
                     svg_text(curves[i].name).c_str());
    }
}

}  // namespace

double curve_value(Envelope *env, double time) {
    return is_integer(env) ? EnvEvaluateInt(env, time) : EnvEvaluate(env, time);
}

double curve_value(const PlottedCurve &curve, double time) {
    return curve.sample ? curve.sample(time) : curve_value(curve.env, time);
}

bool write_curve_plot(const char *path, const std::vector<PlottedCurve> &curves, PlotSpan span,
                      const std::string &title, const std::vector<SvgPanel> &panels) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path, "w"));
    if (!file) return false;
    std::FILE *f = file.get();
    const Frame fr = frame_for(curves, span);
    const double plot_height =
        kPlotHeight + kLegendRow * static_cast<double>(legend_rows(curves.size()));
    double height = plot_height;
    for (const SvgPanel &panel : panels) height += panel.height;
    std::fprintf(f,
                 "<svg xmlns='http://www.w3.org/2000/svg' width='%.0f' height='%.0f' "
                 "viewBox='0 0 %.0f %.0f' font-family='sans-serif' font-size='12'>\n",
                 kWidth, height, kWidth, height);
    std::fprintf(f, "<rect width='100%%' height='100%%' fill='white'/>\n");
    std::fprintf(f, "<text x='%.1f' y='28' font-size='16' font-weight='bold'>%s</text>\n", kLeft,
                 svg_text(title).c_str());
    write_symbol_legend(f);
    write_axes(f, fr);
    const std::vector<const char *> colours = colours_for(curves);
    write_keyed_spans(f, fr, curves, colours);
    // Curves stay inside the plot area; keys and handles get a margin, so a key on an edge of
    // the span is drawn whole.
    const double margin = 8.0;
    std::fprintf(f,
                 "<clipPath id='plot'><rect x='%.1f' y='%.1f' width='%.1f' height='%.1f'/>"
                 "</clipPath>\n<clipPath id='keys'><rect x='%.1f' y='%.1f' width='%.1f' "
                 "height='%.1f'/></clipPath>\n<g clip-path='url(#plot)'>\n",
                 kLeft, kTop, kWidth - kLeft - kRight, kPlotHeight - kTop - kBottom, kLeft - margin,
                 kTop - margin, kWidth - kLeft - kRight + 2 * margin,
                 kPlotHeight - kTop - kBottom + 2 * margin);
    for (std::size_t i = 0; i < curves.size(); ++i) write_curve(f, fr, curves[i], colours[i]);
    std::fputs("</g>\n<g clip-path='url(#keys)'>\n", f);
    for (std::size_t i = 0; i < curves.size(); ++i) write_keys(f, fr, curves[i], colours[i]);
    std::fputs("</g>\n", f);
    write_legend(f, curves, colours);
    double top = plot_height;
    for (const SvgPanel &panel : panels) {
        panel.draw(f, top, kWidth);
        top += panel.height;
    }
    std::fputs("</svg>\n", f);
    if (std::ferror(f) != 0) return false;
    return std::fclose(file.release()) == 0;
}

void print_value_table(std::FILE *out, const std::vector<PlottedCurve> &curves, double fps,
                       const FrameRange &frames) {
    // Columns are numbered; the names are listed above the table.
    for (std::size_t i = 0; i < curves.size(); ++i) {
        std::fprintf(out, "  [%zu] %s\n", i + 1, printable(curves[i].name).c_str());
    }
    std::fprintf(out, "%7s %9s", "frame", "time");
    for (std::size_t i = 0; i < curves.size(); ++i) std::fprintf(out, " %10s[%zu]", "", i + 1);
    std::fputc('\n', out);
    // The range was bounded by frame_range: at most kMaxRows rows.
    for (std::int64_t row = 0; row < frames.rows; ++row) {
        const std::int64_t frame = frames.first + row * frames.every;
        const double t = static_cast<double>(frame) / fps;
        std::fprintf(out, "%7lld %9.4f", static_cast<long long>(frame), t);
        for (const PlottedCurve &c : curves) std::fprintf(out, " %13.4f", curve_value(c, t));
        std::fputc('\n', out);
    }
}

void print_value_table(std::FILE *out, const std::vector<PlottedCurve> &curves, PlotSpan span,
                       double fps, int every) {
    FrameRange frames;
    if (frame_range(span.from, span.to, fps, every, frames)) {
        print_value_table(out, curves, fps, frames);
    }
}

bool read_svg_option(const char *command, int argc, char **argv, const char **svg_path) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--svg") == 0 && i + 1 < argc) {
            *svg_path = argv[++i];
        } else {
            std::fprintf(stderr, "vexor %s: unknown argument '%s'\n", command, argv[i]);
            return false;
        }
    }
    return true;
}
