// Logging: debug channels, level logs, named module logs and failure lines.
//
// Every line goes to one sink. The default sink writes to stderr; hosts and tests install
// their own (tests assert messages by capturing the sink, never by reading stderr).
// Debug channels are off unless enabled by the host or by the environment variable
// VEXOR_DEBUG=name,name (or "all"), read once, before the first use of any channel.
//
// A line is formatted into a fixed buffer on the stack: logging never throws and does not
// allocate for ordinary lines. Lines longer than kLineMax are cut and end in "...".
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vx::log {

// What kind of line the sink receives. The source names the channel ("envelope"), the named
// log ("sampleVector"), the level ("1") or, for failure lines, the source-file stem.
enum class Kind : int { channel = 0, level = 1, named = 2, failure = 3 };

// The sink takes the kind as an int (a Kind value) so that the C interface can install a
// host's sink directly. The text is the whole line, including its newline if it has one; it
// and the source are valid only during the call. A sink may log (the line goes to the same
// sink) and may install another sink.
using Sink = void (*)(void *client, int kind, const char *source, const char *text);

// The longest line a sink receives, in bytes with the terminating null.
inline constexpr std::size_t kLineMax = 1024;

// Installs a sink; a null sink restores the default one. Thread-safe. When it returns, no
// other thread is still inside the previous sink (unless called from inside a sink, where
// waiting could never end), so the previous client may be released.
void set_sink(Sink sink, void *client) noexcept;

// Switches one channel on or off. The name "all" switches every channel: on, all channels are
// on (a channel switched off afterwards stays off); off, every channel is off again. Returns
// false when the name is null or empty, longer than kChannelNameMax, or when too many
// channels are named at once (kMaxChannels).
bool enable_channel(const char *channel, bool on) noexcept;
bool channel_enabled(const char *channel) noexcept;
// Switches on the channels of a list in the form of VEXOR_DEBUG: names separated by commas,
// blanks around them ignored, "all" for every channel. A null list does nothing.
void enable_channels(const char *list) noexcept;

inline constexpr std::size_t kChannelNameMax = 47;
inline constexpr std::size_t kMaxChannels = 64;

// Lines at or below this level are emitted by level(); the default is 1 (errors only).
void set_level(int level) noexcept;
int current_level() noexcept;

// A line on a debug channel, printf-style; nothing is formatted when the channel is off.
void debug(const char *channel, const char *format, ...) noexcept
    __attribute__((format(printf, 2, 3)));
void vdebug(const char *channel, const char *format, std::va_list args) noexcept
    __attribute__((format(printf, 2, 0)));
// A line on the level log; nothing is formatted when the level is above current_level().
void level(int level, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));
void vlevel(int level, const char *format, std::va_list args) noexcept
    __attribute__((format(printf, 2, 0)));
// A line on a named module log (always emitted). A null name is printed as empty.
void named(const char *log, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));
void vnamed(const char *log, const char *format, std::va_list args) noexcept
    __attribute__((format(printf, 2, 0)));

// The failure line "#[fail] <%s>:%d %s %s\n" with the bare stem of `source_file` (a path such
// as "curves/env.cpp" gives "env"); message or argument may be null (printed as empty).
void fail_line(const char *source_file, int line, const char *message,
               const char *argument) noexcept;

// The stem of a path: directories and the last extension removed (a leading dot does not
// start an extension). Written into `buffer`, cut to fit; returns `buffer`. A null path gives
// an empty stem.
const char *file_stem(const char *path, char *buffer, std::size_t size) noexcept;

}  // namespace vx::log

// A failure line for the calling source file and line.
#define VX_FAIL_LINE(message, argument) \
    ::vx::log::fail_line(__FILE__, __LINE__, (message), (argument))
