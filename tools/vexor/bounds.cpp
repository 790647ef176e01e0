#include "bounds.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include <vexor/log.h>

bool check_input_file(const char *command, const char *path, std::size_t max_bytes) {
    struct stat info {};
    const char *reason = nullptr;
    if (::stat(path, &info) != 0) {
        reason = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        reason = S_ISDIR(info.st_mode) ? "it is a folder" : "it is not a regular file";
    } else if (static_cast<std::uint64_t>(info.st_size) > max_bytes) {
        reason = "it is larger than this command reads";
    }
    if (reason == nullptr) return true;
    std::fprintf(stderr, "vexor %s: cannot read %s: %s\n", command, printable(path).c_str(),
                 reason);
    return false;
}

bool read_input_file(const char *command, const char *path, std::size_t max_bytes,
                     std::string &out) {
    if (!check_input_file(command, path, max_bytes)) return false;
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) {
        std::fprintf(stderr, "vexor %s: cannot read %s: %s\n", command, printable(path).c_str(),
                     std::strerror(errno));
        return false;
    }
    out.clear();
    char buffer[8192];
    std::size_t got = 0;
    // The size was checked, but the file may grow while it is read: never read past the limit.
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0 && out.size() <= max_bytes) {
        out.append(buffer, got);
    }
    const bool failed = std::ferror(file) != 0 || out.size() > max_bytes;
    std::fclose(file);
    if (failed) {
        std::fprintf(stderr, "vexor %s: cannot read %s\n", command, printable(path).c_str());
        return false;
    }
    return true;
}

bool parse_number(std::string_view text, double &out) {
    if (text.empty() || text.size() > 64) return false;
    const std::string copy(text);
    char *end = nullptr;
    errno = 0;
    out = std::strtod(copy.c_str(), &end);
    return errno == 0 && end == copy.c_str() + copy.size() && std::isfinite(out);
}

bool check_span(const char *command, double from, double to) {
    const char *problem = nullptr;
    if (!(std::fabs(from) <= kTimeLine && std::fabs(to) <= kTimeLine)) {
        problem = "the span must lie within the time line, -33600000 s to 33600000 s";
    } else if (!(to > from)) {
        problem = "the span is inverted or empty: --to must be later than --from";
    } else if (to - from < kMinSpan) {
        problem = "the span is narrower than 0.0001 s, the smallest time step there is";
    }
    if (problem == nullptr) return true;
    std::fprintf(stderr, "vexor %s: %s (from %g s to %g s)\n", command, problem, from, to);
    return false;
}

bool check_fps(const char *command, double fps) {
    if (fps > 0.0 && fps <= kMaxFps) return true;
    std::fprintf(stderr, "vexor %s: frames per second must be above 0 and at most %g, not %g\n",
                 command, kMaxFps, fps);
    return false;
}

bool frame_range(double from, double to, double fps, std::int64_t every, FrameRange &out) {
    if (!(std::fabs(from) <= kTimeLine && std::fabs(to) <= kTimeLine && to > from)) return false;
    if (!(fps > 0.0 && fps <= kMaxFps) || every < 1 || every > kMaxEvery) return false;
    // |from·fps| stays below 3.4e10, well inside the range of 64-bit integers.
    const auto first = static_cast<std::int64_t>(std::ceil(from * fps - 1e-9));
    const auto last = static_cast<std::int64_t>(std::floor(to * fps + 1e-9));
    std::int64_t start = first;
    const std::int64_t rem = start % every;
    if (rem != 0) start += rem > 0 ? every - rem : -rem;  // a multiple of the step
    const std::int64_t rows = start > last ? 0 : (last - start) / every + 1;
    if (rows > kMaxRows) return false;
    out = FrameRange{start, last, every, rows};
    return true;
}

std::int64_t every_for_rows(double from, double to, double fps, std::int64_t rows) {
    const double frames = (to - from) * fps;
    if (!(frames > 0.0) || rows < 1) return 1;
    const double every = std::ceil(frames / static_cast<double>(rows));
    if (!(every >= 1.0)) return 1;
    return every > static_cast<double>(kMaxEvery) ? kMaxEvery : static_cast<std::int64_t>(every);
}

bool check_frames(const char *command, double from, double to, double fps, std::int64_t every,
                  FrameRange &out) {
    if (frame_range(from, to, fps, every, out)) return true;
    std::fprintf(stderr,
                 "vexor %s: the table from %g s to %g s at %g frames per second, every %lld, "
                 "would have more than %lld rows: raise --every or narrow the span\n",
                 command, from, to, fps, static_cast<long long>(every),
                 static_cast<long long>(kMaxRows));
    return false;
}

int usage_error(const char *command, const char *message, const char *arg) {
    if (arg != nullptr) {
        std::fprintf(stderr, "vexor %s: %s '%s'\n", command, message, printable(arg).c_str());
    } else {
        std::fprintf(stderr, "vexor %s: %s\n", command, message);
    }
    std::fprintf(stderr, "Run 'vexor %s --help' for usage.\n", command);
    return kExitUsage;
}

std::string printable(std::string_view text, std::size_t most) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (out.size() >= most) {
            out += "...";
            break;
        }
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

std::string svg_text(std::string_view text) {
    std::string out;
    for (const char ch : text) {
        switch (ch) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                if (static_cast<unsigned char>(ch) >= 0x20 && ch != 0x7F) out += ch;
        }
    }
    return out;
}

namespace {

constexpr int kMostLibraryLines = 8;

struct Sink {
    const char *command = "";
    int printed = 0;
    std::set<std::string> seen;
    bool debug = false;
};

Sink g_sink;

// "#[fail] <source>:line message argument\n" becomes "message argument".
void hear(void *, int, const char *, const char *text) {
    if (text == nullptr) return;
    std::string_view line(text);
    constexpr std::string_view kFail = "#[fail] ";
    if (line.substr(0, kFail.size()) != kFail) {
        if (g_sink.debug) std::fputs(printable(line, 400).c_str(), stderr);
        return;
    }
    line.remove_prefix(kFail.size());
    if (const std::size_t space = line.find(' '); space != std::string_view::npos) {
        line.remove_prefix(space + 1);
    }
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.remove_suffix(1);
    std::string said = printable(line, 160);
    if (said.empty() || g_sink.seen.size() > 64 || !g_sink.seen.insert(said).second) return;
    if (++g_sink.printed > kMostLibraryLines) {
        if (g_sink.printed == kMostLibraryLines + 1) {
            std::fprintf(stderr, "vexor %s: (more notes left out)\n", g_sink.command);
        }
        return;
    }
    std::fprintf(stderr, "vexor %s: note: %s\n", g_sink.command, said.c_str());
}

}  // namespace

LibraryMessages::LibraryMessages(const char *command) {
    g_sink = Sink{};
    g_sink.command = command;
    g_sink.debug = std::getenv("VEXOR_DEBUG") != nullptr;
    VxLogSetSink(hear, nullptr);
}

LibraryMessages::~LibraryMessages() {
    VxLogSetSink(nullptr, nullptr);
}
