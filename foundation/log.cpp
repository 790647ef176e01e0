#include "foundation/log.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vx::log {

namespace {

// ---- Channels ----------------------------------------------------------------------------
//
// A fixed table, so that switching channels never allocates. Its entries mean one of two
// things: while "all" is off they are the channels switched on; while "all" is on they are
// the channels switched off since. `any` lets a line on a silent channel return without
// taking the lock, which keeps debug lines in hot code nearly free.

struct ChannelEntry {
    char name[kChannelNameMax + 1];
    bool on;
};

struct Channels {
    std::mutex mutex;
    ChannelEntry entries[kMaxChannels];
    std::size_t count = 0;
    bool all = false;
    std::atomic<bool> any{false};
};

Channels &channels() noexcept {
    static Channels instance;
    return instance;
}

bool same_name(const ChannelEntry &entry, const char *name, std::size_t length) noexcept {
    return std::strncmp(entry.name, name, length) == 0 && entry.name[length] == '\0';
}

// Switches the channel `name[0..length)` without looking at the environment.
bool set_channel(const char *name, std::size_t length, bool on) noexcept {
    if (name == nullptr || length == 0 || length > kChannelNameMax) return false;
    Channels &c = channels();
    std::lock_guard lock(c.mutex);
    if (length == 3 && std::strncmp(name, "all", 3) == 0) {
        c.all = on;
        c.count = 0;
        c.any.store(on, std::memory_order_release);
        return true;
    }
    std::size_t found = c.count;
    for (std::size_t i = 0; i < c.count; ++i) {
        if (same_name(c.entries[i], name, length)) {
            found = i;
            break;
        }
    }
    // An entry is needed when the wanted state differs from the default (which is `all`).
    const bool needs_entry = on != c.all;
    if (!needs_entry) {
        if (found < c.count) c.entries[found] = c.entries[--c.count];
    } else if (found == c.count) {
        if (c.count == kMaxChannels) return false;
        ChannelEntry &entry = c.entries[c.count++];
        std::memcpy(entry.name, name, length);
        entry.name[length] = '\0';
        entry.on = on;
    }
    c.any.store(c.all || c.count > 0, std::memory_order_release);
    return true;
}

void apply_list(const char *list) noexcept {
    if (list == nullptr) return;
    const char *p = list;
    while (*p != '\0') {
        const char *start = p;
        while (*p != '\0' && *p != ',') ++p;
        const char *end = p;
        while (start < end && (*start == ' ' || *start == '\t')) ++start;
        while (end > start && (end[-1] == ' ' || end[-1] == '\t')) --end;
        if (end > start) set_channel(start, static_cast<std::size_t>(end - start), true);
        if (*p == ',') ++p;
    }
}

// VEXOR_DEBUG is read once, before the first use of any channel, so that a host's own calls
// come after it and win.
void read_environment() noexcept {
    static const bool done = [] {
        apply_list(std::getenv("VEXOR_DEBUG"));
        return true;
    }();
    static_cast<void>(done);
}

// ---- Sink --------------------------------------------------------------------------------
//
// A line takes a copy of the sink and client under the lock and calls the sink outside it, so
// sinks may log and lines from several threads do not wait on each other's sinks. Each call
// is counted in the slot of the sink's generation; set_sink moves to the next generation and
// waits until the previous one's calls have returned. Installers are serialised so that a
// slot is always drained before it is reused.

struct SinkState {
    std::mutex mutex;
    std::condition_variable idle;
    Sink sink = nullptr;
    void *client = nullptr;
    std::uint64_t generation = 0;
    int active[2] = {0, 0};
    std::mutex install;
};

SinkState &sink_state() noexcept {
    static SinkState instance;
    return instance;
}

thread_local int sink_depth = 0;  // sinks running on this thread

void default_sink(const char *text) noexcept {
    std::fputs(text, stderr);
}

void emit(Kind kind, const char *source, const char *text) noexcept {
    SinkState &s = sink_state();
    Sink sink;
    void *client;
    std::size_t slot;
    {
        std::lock_guard lock(s.mutex);
        sink = s.sink;
        client = s.client;
        slot = static_cast<std::size_t>(s.generation & 1u);
        ++s.active[slot];
    }
    ++sink_depth;
    if (sink == nullptr) {
        default_sink(text);
    } else {
        try {
            sink(client, static_cast<int>(kind), source != nullptr ? source : "", text);
        } catch (...) {
            // A sink that fails loses its line; logging itself never fails.
        }
    }
    --sink_depth;
    std::lock_guard lock(s.mutex);
    if (--s.active[slot] == 0) s.idle.notify_all();
}

// ---- Formatting --------------------------------------------------------------------------

// Marks a cut line: "..." (and a newline when the whole line would have ended in one) in
// place of its last characters, never splitting a UTF-8 sequence.
void mark_cut(char (&line)[kLineMax], bool newline) noexcept {
    const char *marker = newline ? "...\n" : "...";
    const std::size_t length = std::strlen(marker);
    std::size_t at = kLineMax - 1 - length;
    while (at > 0 && (static_cast<unsigned char>(line[at]) & 0xC0u) == 0x80u) --at;
    std::memcpy(line + at, marker, length + 1);
}

bool ends_in_newline(const char *format) noexcept {
    const std::size_t n = std::strlen(format);
    return n > 0 && format[n - 1] == '\n';
}

__attribute__((format(printf, 2, 0))) void format_line(char (&line)[kLineMax], const char *format,
                                                       std::va_list args) noexcept {
    if (format == nullptr) {
        line[0] = '\0';
        return;
    }
    const int n = std::vsnprintf(line, kLineMax, format, args);
    if (n < 0) {
        // The format could not be used: pass it on as it is, so the line is not lost.
        std::snprintf(line, kLineMax, "%s", format);
        if (std::strlen(format) >= kLineMax) mark_cut(line, ends_in_newline(format));
    } else if (static_cast<std::size_t>(n) >= kLineMax) {
        mark_cut(line, ends_in_newline(format));
    }
}

std::atomic<int> log_level{1};

}  // namespace

void set_sink(Sink sink, void *client) noexcept {
    SinkState &s = sink_state();
    if (sink_depth > 0) {
        // From inside a sink: the running call would never finish while we wait for it.
        std::lock_guard lock(s.mutex);
        s.sink = sink;
        s.client = sink != nullptr ? client : nullptr;
        ++s.generation;
        return;
    }
    std::lock_guard install(s.install);
    std::unique_lock lock(s.mutex);
    s.sink = sink;
    s.client = sink != nullptr ? client : nullptr;
    const std::size_t previous = static_cast<std::size_t>(s.generation & 1u);
    ++s.generation;
    s.idle.wait(lock, [&] { return s.active[previous] == 0; });
}

bool enable_channel(const char *channel, bool on) noexcept {
    read_environment();
    if (channel == nullptr) return false;
    return set_channel(channel, std::strlen(channel), on);
}

bool channel_enabled(const char *channel) noexcept {
    read_environment();
    Channels &c = channels();
    if (!c.any.load(std::memory_order_acquire) || channel == nullptr) return false;
    const std::size_t length = std::strlen(channel);
    std::lock_guard lock(c.mutex);
    for (std::size_t i = 0; i < c.count; ++i) {
        if (same_name(c.entries[i], channel, length)) return c.entries[i].on;
    }
    return c.all;
}

void enable_channels(const char *list) noexcept {
    read_environment();
    apply_list(list);
}

void set_level(int level) noexcept {
    log_level.store(level, std::memory_order_relaxed);
}

int current_level() noexcept {
    return log_level.load(std::memory_order_relaxed);
}

void vdebug(const char *channel, const char *format, std::va_list args) noexcept {
    if (!channel_enabled(channel)) return;
    char line[kLineMax];
    format_line(line, format, args);
    emit(Kind::channel, channel, line);
}

void debug(const char *channel, const char *format, ...) noexcept {
    if (!channel_enabled(channel)) return;
    std::va_list args;
    va_start(args, format);
    char line[kLineMax];
    format_line(line, format, args);
    va_end(args);
    emit(Kind::channel, channel, line);
}

void vlevel(int level, const char *format, std::va_list args) noexcept {
    if (level > current_level()) return;
    char source[16];
    std::snprintf(source, sizeof source, "%d", level);
    char line[kLineMax];
    format_line(line, format, args);
    emit(Kind::level, source, line);
}

void level(int level, const char *format, ...) noexcept {
    std::va_list args;
    va_start(args, format);
    vlevel(level, format, args);
    va_end(args);
}

void vnamed(const char *log, const char *format, std::va_list args) noexcept {
    char line[kLineMax];
    format_line(line, format, args);
    emit(Kind::named, log, line);
}

void named(const char *log, const char *format, ...) noexcept {
    std::va_list args;
    va_start(args, format);
    vnamed(log, format, args);
    va_end(args);
}

void fail_line(const char *source_file, int line, const char *message,
               const char *argument) noexcept {
    char stem[128];
    file_stem(source_file, stem, sizeof stem);
    char text[kLineMax];
    const int n =
        std::snprintf(text, kLineMax, "#[fail] <%s>:%d %s %s\n", stem, line,
                      message != nullptr ? message : "", argument != nullptr ? argument : "");
    if (n >= 0 && static_cast<std::size_t>(n) >= kLineMax) mark_cut(text, true);
    emit(Kind::failure, stem, text);
}

const char *file_stem(const char *path, char *buffer, std::size_t size) noexcept {
    if (buffer == nullptr || size == 0) return "";
    if (path == nullptr) path = "";
    const char *start = path;
    for (const char *p = path; *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\') start = p + 1;
    }
    const char *end = start + std::strlen(start);
    const char *dot = std::strrchr(start, '.');
    if (dot != nullptr && dot != start) end = dot;
    std::size_t length = static_cast<std::size_t>(end - start);
    if (length >= size) length = size - 1;
    std::memcpy(buffer, start, length);
    buffer[length] = '\0';
    return buffer;
}

}  // namespace vx::log
