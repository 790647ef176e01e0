// What keeps every `vexor` command's work and output bounded whatever its input, and its
// messages in the program's own words. Commands that read files, spans, rates or names use
// these; new commands should too.
//
// Exit codes, for every command: kExitOk (0) done; kExitFailure (1) the work failed (a file
// that cannot be read or is damaged, a picture that cannot be written, no memory); kExitUsage
// (2) the arguments were wrong (an unknown option or code, a span or rate the command cannot
// draw, too many table rows), with a message on stderr.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Input files: only regular files, and no larger than these.
inline constexpr std::size_t kMaxTextFileBytes = std::size_t{1} << 20;   // key lists
inline constexpr std::size_t kMaxDataFileBytes = std::size_t{64} << 20;  // curve, scene files

// Spans and rates a table or picture can show: within the whole time line, at least the time
// tolerance wide (closer times are one time), at most kMaxFps frames per second, at most
// kMaxRows rows in a table.
inline constexpr double kTimeLine = 33600000.0;
inline constexpr double kMinSpan = 0.0001;
inline constexpr double kMaxFps = 1000.0;
inline constexpr std::int64_t kMaxRows = 100000;
inline constexpr std::int64_t kMaxEvery = 1000000;

// Whether the file can be read: it exists, is a regular file (not a device, pipe or folder) and
// has at most `max_bytes`. Otherwise prints "vexor <command>: cannot read PATH: <reason>" (the
// operating system's reason where it gives one) and returns false.
bool check_input_file(const char *command, const char *path, std::size_t max_bytes);
// The same, then the whole file into `out`.
bool read_input_file(const char *command, const char *path, std::size_t max_bytes,
                     std::string &out);

// A number as the options take them: the whole text, finite.
bool parse_number(std::string_view text, double &out);

// The checks of a shown span and rate; each prints a usage message naming the command and
// returns false when the value cannot be shown.
bool check_span(const char *command, double from, double to);
bool check_fps(const char *command, double fps);

// The frames of a table over [from, to] at `fps`, every `every`th: first and last frame numbers
// (multiples of `every` where they can be) and the row count, computed without overflow.
// False when the span, rate or step are out of the bounds above or the table would have more
// than kMaxRows rows.
struct FrameRange {
    std::int64_t first = 0;
    std::int64_t last = -1;
    std::int64_t every = 1;
    std::int64_t rows = 0;
};
bool frame_range(double from, double to, double fps, std::int64_t every, FrameRange &out);
// The step that gives about `rows` rows over the span (at least 1).
std::int64_t every_for_rows(double from, double to, double fps, std::int64_t rows);
// frame_range with a usage message when the table would be too long.
bool check_frames(const char *command, double from, double to, double fps, std::int64_t every,
                  FrameRange &out);

// A usage failure: prints "vexor <command>: <message> '<arg>'" (the argument printable, and
// left out when null) and where to find the command's options, and answers kExitUsage.
int usage_error(const char *command, const char *message, const char *arg = nullptr);

// Text from a file or the library, made safe to print: control bytes and bytes that are not
// printable ASCII become \xNN, and text past `most` bytes is cut with "...".
std::string printable(std::string_view text, std::size_t most = 80);
// Text made safe inside SVG text and attributes: & < > " ' escaped, other control bytes
// dropped.
std::string svg_text(std::string_view text);

// While it lives, the library's log lines go through the program: failure lines are printed as
// "vexor <command>: <what the library said>" (printable, each distinct line once, at most a
// few), and other lines are dropped unless VEXOR_DEBUG asked for a channel.
class LibraryMessages {
  public:
    explicit LibraryMessages(const char *command);
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages &) = delete;
    LibraryMessages &operator=(const LibraryMessages &) = delete;
};
