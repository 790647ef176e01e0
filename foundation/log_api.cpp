#include <vexor/log.h>

#include <cstdarg>

#include "foundation/log.h"

extern "C" VX_API void VxLogSetSink(VxLogSink sink, void *client) {
    vx::log::set_sink(sink, client);
}

extern "C" VX_API int VxLogEnableChannel(const char *channel, int on) {
    return vx::log::enable_channel(channel, on != 0) ? 1 : 0;
}

extern "C" VX_API int VxLogChannelEnabled(const char *channel) {
    return vx::log::channel_enabled(channel) ? 1 : 0;
}

extern "C" VX_API void VxLogSetLevel(int level) {
    vx::log::set_level(level);
}

extern "C" VX_API int VxLogLevel(void) {
    return vx::log::current_level();
}

extern "C" VX_API void DBSprintf(const char *channel, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vx::log::vdebug(channel, format, args);
    va_end(args);
}

extern "C" VX_API void DBLprintf(int level, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vx::log::vlevel(level, format, args);
    va_end(args);
}

extern "C" VX_API void LogMessage(const char *log, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vx::log::vnamed(log, format, args);
    va_end(args);
}
