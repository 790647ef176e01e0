// The subcommands of the `vexor` program.
//
// A subcommand is a handler in a file of its own (tools/vexor/<name>.cpp) and one row in
// kSubcommands below; main.cpp does the dispatching, `vexor --help`, `vexor help <name>` and
// `vexor <name> --help`, so handlers never see --help. Handlers use the library only through
// its public C headers.
#pragma once

// A handler gets the subcommand's own arguments: argv[0] is the subcommand's name and
// argv[argc] is null. It returns the program's exit code: 0 done, 1 the work failed, 2 the
// arguments were wrong (with a message on stderr).
using SubcommandHandler = int (*)(int argc, char **argv);

struct Subcommand {
    const char *name;     // as typed: `vexor <name> ...`
    const char *summary;  // one line, shown by `vexor --help`
    SubcommandHandler run;
    const char *help;  // the full help, ending in a newline
};

int vexor_adjust(int argc, char **argv);
int vexor_blend(int argc, char **argv);
int vexor_demo(int argc, char **argv);
int vexor_env(int argc, char **argv);
int vexor_gallery(int argc, char **argv);
int vexor_hull(int argc, char **argv);
int vexor_image(int argc, char **argv);
int vexor_irrcache(int argc, char **argv);
int vexor_scene(int argc, char **argv);
int vexor_subd(int argc, char **argv);
int vexor_polygon(int argc, char **argv);

// In the order `vexor --help` lists them.
inline constexpr Subcommand kSubcommands[] = {
    {"demo", "build a small animated scene, evaluate it and plot its channels", vexor_demo,
     "usage: vexor demo\n"
     "       vexor demo --svg PATH\n"
     "\n"
     "Builds a scene of a few items whose channels are keyed and set in layered\n"
     "actions (a bouncing ball, a sliding ball and a blend item whose modifier drives\n"
     "its output from its inputs and the time, and a third ball animated by two\n"
     "action clips, \"walk\" and \"jump\", kept in a group and switched at 1 s),\n"
     "undoes and redoes a key, evaluates\n"
     "the scene frame by frame, prints a table of the channels and draws them over\n"
     "time with their keys. Last it saves the scene to vexor-demo.vxr, loads the file\n"
     "back as a second scene and checks that both evaluate alike.\n"
     "\n"
     "  --svg PATH   where to write the picture (default: vexor-demo.svg)\n"},
    {"gallery", "key a few curves, undo an edit, plot them; build and select on a cube",
     vexor_gallery,
     "usage: vexor gallery\n"
     "       vexor gallery --svg PATH\n"
     "\n"
     "Keys a few envelopes that show how curves continue past their keys (offset\n"
     "repeat, oscillate, repeat, linear) and the slope types between keys (auto,\n"
     "linear in and out, auto flat, stepped, weighted and broken tangents), undoes\n"
     "and redoes an edit, prints the values every quarter second and draws the\n"
     "curves with their keys and tangent handles. Last it builds a cube mesh with UVs\n"
     "and part tags, marks a selection on it and enumerates the selection.\n"
     "\n"
     "  --svg PATH   where to write the picture (default: vexor-gallery.svg)\n"},
    {"env", "plot an envelope, or save it to a curve file", vexor_env,
     "usage: vexor env plot --key TIME:VALUE[:SLOPE] [--key ...] [options]\n"
     "       vexor env plot --file FILE [options]\n"
     "       vexor env save FILE --key TIME:VALUE[:SLOPE] [--key ...] [options]\n"
     "\n"
     "plot builds an envelope from the keys (or reads it from a curve file), prints\n"
     "its value frame by frame and draws it with its keys and tangent handles to an\n"
     "SVG picture. save writes the envelope the keys describe to a curve file.\n"
     "\n"
     "  --key T:V[:S]    a key at time T (seconds) with value V, and optionally its\n"
     "                   slope type S (default: --slope)\n"
     "  --pre B          behaviour before the first key (default: constant)\n"
     "  --post B         behaviour after the last key (default: constant); B is\n"
     "                   reset, constant, repeat, oscillate, offset-repeat, linear,\n"
     "                   none or a code\n"
     "  --slope S        slope type of the keys: auto, manual, linear-in, linear-out,\n"
     "                   auto-flat, stepped or a code (default: auto)\n"
     "  --interp I       curve, linear or stepped (default: curve)\n"
     "  --weight W       give every key the stored tangent weight W\n"
     "  --int            an integer envelope (values are truncated)\n"
     "  --from T --to T  the span to show (default: the keys and one span either side)\n"
     "  --fps F          frames per second of the table (default: 24)\n"
     "  --every N        print every Nth frame (default: about forty rows)\n"
     "  --name TEXT      the curve's name in the legend\n"
     "  --svg PATH       where to write the picture (default: vexor-env-plot.svg)\n"
     "  --file FILE      plot the curve saved in FILE by 'vexor env save', or the keys\n"
     "                   in a text file: one key a line, \"TIME VALUE [SLOPE]\", and\n"
     "                   lines \"pre B\", \"post B\", \"interp I\", \"slope S\",\n"
     "                   \"weight W\", \"int\" or \"name TEXT\"; # starts a comment\n"
     "\n"
     "example: vexor env plot --key 0:0 --key 1:10 --pre repeat --post oscillate \\\n"
     "             --slope auto --from -2 --to 3\n"
     "         vexor env save bounce.vxc --key 0:0 --key 0.5:2 --key 1:0 --post repeat\n"
     "         vexor env plot --file bounce.vxc --to 3\n"},
    {"scene", "show what a scene file holds, or plot its channels over time", vexor_scene,
     "usage: vexor scene show FILE\n"
     "       vexor scene plot FILE [options]\n"
     "\n"
     "show lists a scene file's items (type, channels, parent), its groups with their\n"
     "members, its action clips with their state, and its actions with what each\n"
     "holds: keyed, constant or removed channels. plot evaluates the scene\n"
     "through an action over a span of time, prints every channel whose value changes\n"
     "frame by frame and draws them to an SVG picture with their keys. Scene files\n"
     "are written by 'vexor demo' (vexor-demo.vxr) and by hosts of the library.\n"
     "\n"
     "  --action NAME    the action to look through (default: edit)\n"
     "  --from T --to T  the span to show, in seconds (default: 0 to 2)\n"
     "  --fps F          frames per second of the table (default: 24)\n"
     "  --every N        print every Nth frame (default: 6)\n"
     "  --svg PATH       where to write the picture (default: vexor-scene-plot.svg)\n"
     "\n"
     "example: vexor demo && vexor scene plot vexor-demo.vxr --action scene --to 3\n"},
    {"image", "what a PNG or EXR picture holds, or the picture in the other format", vexor_image,
     "usage: vexor image info FILE...\n"
     "       vexor image convert IN OUT\n"
     "\n"
     "info prints each picture's format, size and channels, and the smallest, largest\n"
     "and mean value of every channel (PNG samples read as 0 to 1). convert reads a\n"
     "PNG or EXR picture and writes it as the format OUT's name ends in: .png (8-bit,\n"
     "values clamped to 0 to 1) or .exr (32-bit float). Pictures of more than 64\n"
     "megapixels are refused.\n"
     "\n"
     "example: vexor image convert render.exr preview.png\n"},
    {"subd", "draw a cube and a five-sided face subdivided at levels 0 to 3", vexor_subd,
     "usage: vexor subd\n"
     "       vexor subd --svg PATH\n"
     "\n"
     "Builds a cube and a lone five-sided face (one corner lifted) of subdivision\n"
     "surface polygons, sets their level from 1 to 3 and draws each level in a row:\n"
     "the cage dashed in grey, the quads of the refined surface in blue and the\n"
     "limit positions of the cage's corners as red dots (level 0 shows the cage and\n"
     "its limit corners only). Prints the number of refined quads and the limit of\n"
     "the first corner at each level.\n"
     "\n"
     "  --svg PATH   where to write the picture (default: vexor-subd.svg)\n"},
    {"polygon", "test a grid of points against a polygon and draw it", vexor_polygon,
     "usage: vexor polygon [FILE] [options]\n"
     "\n"
     "Builds a polygon from FILE (one vertex a line, \"x y [z]\"; # starts a comment;\n"
     "at most 10000 vertices) or, without a file, a star; tests a grid of points\n"
     "against it with a boundary band, prints what the polygon tests find (vertex\n"
     "count and winding, the corner normal at vertex 0, the axis the point tests\n"
     "drop, first-corner and all-corner convexity, validity, the grid's counts) and\n"
     "draws the polygon with its points coloured inside, outside and on the band.\n"
     "The band lies along the vertices, nearly level edges and the edges that run\n"
     "downward in the plane's v direction only; the picture marks those edges.\n"
     "\n"
     "  --star N     the built-in star's number of points (default: 5)\n"
     "  --grid N     test points per side, 2 to 200 (default: 41)\n"
     "  --band T     the band's half-width (default: a fiftieth of the polygon's size)\n"
     "  --svg PATH   where to write the picture (default: vexor-polygon.svg)\n"
     "\n"
     "example: vexor polygon --star 7 --grid 61\n"},
    {"adjust", "change a picture's hue, saturation, colour and levels as a render output does",
     vexor_adjust,
     "usage: vexor adjust IN OUT [options]\n"
     "\n"
     "Reads a PNG or EXR picture, puts every pixel through a render output's colour\n"
     "operations and writes the result as the format OUT's name ends in: .png (8-bit)\n"
     "or .exr (32-bit float, values above 1 kept). First hue and saturation: the\n"
     "pixel's hue is turned, its saturation scaled (saturation pushed past 1 brightens\n"
     "the pixel instead) and it moves towards the colorization colour; then the output\n"
     "levels. Grey pictures come out as colour ones; alpha is kept. It prints which\n"
     "operations ran.\n"
     "\n"
     "  --hue DEGREES          turn the hue (0 to 360; negative turns the other way)\n"
     "  --saturation F         multiply the saturation by F (0 makes grey)\n"
     "  --colorize R,G,B       move every pixel towards this colour ...\n"
     "  --amount A             ... by A, 0 to 1 (default: 1)\n"
     "  --black B              input black level of the black-and-white levels: luma B\n"
     "                         maps to the output minimum (default: 0)\n"
     "  --out-min M            output minimum of the black-and-white levels (default: 0)\n"
     "  --out-max M            output maximum of the black-and-white levels (default: 1);\n"
     "                         these three scale each pixel by one factor, keeping its hue\n"
     "  --levels-red IN0:IN1:OUT0:OUT1\n"
     "  --levels-green IN0:IN1:OUT0:OUT1\n"
     "  --levels-blue IN0:IN1:OUT0:OUT1\n"
     "                         map the component's input range IN0..IN1 onto OUT0..OUT1,\n"
     "                         after the black-and-white levels\n"
     "\n"
     "example: vexor adjust render.exr graded.png --hue 30 --saturation 1.2 \\\n"
     "             --black 0.05 --levels-blue 0:1:0.1:0.9\n"},
    {"blend", "a picture of the fifteen blend modes of texture layers", vexor_blend,
     "usage: vexor blend [--png PATH] [--opacity O] [--cell N]\n"
     "\n"
     "Blends the same two ramps by each of the fifteen blend modes of texture layers\n"
     "and draws the results as a labelled grid: the base is a horizontal gradient of\n"
     "colours (blue to yellow, left to right), the layer a vertical one (cyan to red,\n"
     "top to bottom). Prints each mode's colour at the centre of its cell.\n"
     "\n"
     "  --png PATH    where to write the picture (default: vexor-blend.png)\n"
     "  --opacity O   the layer's opacity, -4 to 4 (default: 1)\n"
     "  --cell N      the size of one cell in pixels, 32 to 1024 (default: 160)\n"
     "\n"
     "example: vexor blend --opacity 0.5 --png half.png\n"},
    {"irrcache", "what an irradiance cache file holds, and a picture of its values", vexor_irrcache,
     "usage: vexor irrcache show FILE [--svg PATH]\n"
     "\n"
     "Loads an irradiance cache file and prints its version, how many values each of\n"
     "its two lists holds, the blocks, nodes and memory the cache takes, and the\n"
     "bounds of the values' positions and radii. Draws the values seen from above\n"
     "(x to the right, y up), each a disc of half its radius coloured by its\n"
     "irradiance; values of the second list are outlined.\n"
     "\n"
     "  --svg PATH   where to write the picture (default: vexor-irrcache.svg)\n"},
    {"hull", "the convex hull, bounding box and major axis of 2D or 3D points", vexor_hull,
     "usage: vexor hull FILE [--svg PATH] [--print N]\n"
     "\n"
     "Reads points from FILE, one a line: \"x y\" for points in the plane or \"x y z\"\n"
     "for points in space (blanks or commas between numbers, # starts a comment).\n"
     "Points in space are hulled in the plane that fits them best, seen along the\n"
     "axis nearest its normal. Prints the hull's vertices (the file's point numbers),\n"
     "its bounding box and its major axis (a small rectangle around it), and draws\n"
     "the points, the hull and that rectangle to an SVG picture.\n"
     "\n"
     "  --svg PATH   where to write the picture (default: vexor-hull.svg)\n"
     "  --print N    print at most N hull vertices (default: 40)\n"
     "\n"
     "The file may hold up to 2,000,000 points and 64 MiB. Exit status: 0 done, 1 the\n"
     "file could not be read or holds fewer than two distinct points, 2 bad options.\n"
     "\n"
     "example: vexor hull points.txt --svg hull.svg\n"},
};
