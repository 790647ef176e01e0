// Pictures and tables of envelopes for the `vexor` program: an SVG plot of one or more curves
// with their keys and tangent handles, and a table of their values frame by frame. Uses the
// library through its public C functions only.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <vexor/env.h>

#include "bounds.h"

// A curve to draw: an envelope with its keys, or a sampled value (a channel read through an
// evaluator) with, optionally, the envelope whose keys it passes through.
struct PlottedCurve {
    std::string name;
    Envelope *env;  // float or integer; not owned; may be null when sample is set
    std::function<double(double)> sample = nullptr;  // the value at a time, when set
};

struct PlotSpan {
    double from;  // seconds
    double to;
};

// A further drawing under the plot: its height, and what draws it into the file with its top
// edge at `top` across the picture's width.
struct SvgPanel {
    double height;
    std::function<void(std::FILE *f, double top, double width)> draw;
};

// Writes an SVG plot of the curves over the span: time and value axes with labels, one colour
// per curve, a dot on every key, the keys' tangent handles, and a legend; then the panels, one
// under the other. False (with errno set by the C library) when the file cannot be written.
bool write_curve_plot(const char *path, const std::vector<PlottedCurve> &curves, PlotSpan span,
                      const std::string &title, const std::vector<SvgPanel> &panels = {});

// Prints the curves' values at the frames of `frames` (see bounds.h) at `fps` frames per
// second, one row per frame.
void print_value_table(std::FILE *out, const std::vector<PlottedCurve> &curves, double fps,
                       const FrameRange &frames);
// The same over a span, every `every`-th frame; prints nothing when the table would be longer
// than kMaxRows rows (the commands that take spans from their users check that first).
void print_value_table(std::FILE *out, const std::vector<PlottedCurve> &curves, PlotSpan span,
                       double fps, int every);

// The value of a float or integer envelope at a time.
double curve_value(Envelope *env, double time);
// The value of a plotted curve at a time: its sample when it has one, else its envelope's.
double curve_value(const PlottedCurve &curve, double time);

// Reads the arguments of a command whose only option is `--svg PATH` into *svg_path (left as
// it is when the option is absent). False, with a message on stderr, for anything else.
bool read_svg_option(const char *command, int argc, char **argv, const char **svg_path);
