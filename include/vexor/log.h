/* Logging: debug channels, the level log, named module logs.
 *
 * Every line goes to one sink: by default stderr, or the host's own (VxLogSetSink). Debug
 * channels ("envelope", "cinemachanged") are off unless the host switches them on or the
 * environment variable VEXOR_DEBUG lists them (VEXOR_DEBUG=envelope,undo or VEXOR_DEBUG=all),
 * read once before the first use of any channel.
 *
 * All of these functions may be called from any thread and never fail. A line longer than
 * 1023 bytes is cut and ends in "...". */
#ifndef VEXOR_LOG_H
#define VEXOR_LOG_H

#include "vexor/export.h"

#if defined(__GNUC__)
#define VX_LOG_PRINTF(format_index, first_arg) \
    __attribute__((format(printf, format_index, first_arg)))
#else
#define VX_LOG_PRINTF(format_index, first_arg)
#endif

VX_EXTERN_C_BEGIN

/* What kind of line a sink receives; `source` then names the channel, the level (as digits),
 * the named log, or the stem of the source file of a failure line. */
typedef enum VxLogKind {
    VX_LOG_CHANNEL = 0,
    VX_LOG_LEVEL = 1,
    VX_LOG_NAMED = 2,
    VX_LOG_FAILURE = 3
} VxLogKind;

/* Receives each line: `kind` is a VxLogKind; `text` is the whole line with its newline, if
 * it has one. Both strings are valid only during the call. The sink may be called on any
 * thread, also on several at once; it may log (the line comes back to it). */
typedef void (*VxLogSink)(void *client, int kind, const char *source, const char *text);

/* Installs the sink; null restores the default (stderr). When it returns, no other thread is
 * still running the previous sink, so its client may be released (unless it is called from
 * inside a sink). */
VX_API void VxLogSetSink(VxLogSink sink, void *client);

/* Switches a debug channel on (on != 0) or off. "all" switches every channel on, or all of
 * them off again. Returns 1, or 0 when the name is null, empty, longer than 47 bytes, or when
 * more than 64 channels are named at once. */
VX_API int VxLogEnableChannel(const char *channel, int on);
/* 1 when lines on the channel are emitted; 0 for a null name. */
VX_API int VxLogChannelEnabled(const char *channel);

/* Lines of the level log at or below `level` are emitted; the default is 1 (errors only). */
VX_API void VxLogSetLevel(int level);
VX_API int VxLogLevel(void);

/* A printf-style line on a debug channel; nothing is formatted when the channel is off. */
VX_API void DBSprintf(const char *channel, const char *format, ...) VX_LOG_PRINTF(2, 3);
/* A printf-style line on the level log. */
VX_API void DBLprintf(int level, const char *format, ...) VX_LOG_PRINTF(2, 3);
/* A printf-style line on a named module log ("sampleVector"); always emitted. */
VX_API void LogMessage(const char *log, const char *format, ...) VX_LOG_PRINTF(2, 3);

VX_EXTERN_C_END

#endif
