// The library's log lines, collected for a test to read, or dropped.
#pragma once

#include <string>
#include <vector>

#include <vexor/log.h>

namespace vx::test {

// Appends every line the library logs to `lines` until release_log().
inline void capture_log(std::vector<std::string> &lines) {
    VxLogSetSink(
        [](void *client, int, const char *, const char *text) {
            static_cast<std::vector<std::string> *>(client)->push_back(text);
        },
        &lines);
}
// Drops every line: captured lines would count as memory an edit under test keeps.
inline void quiet_log() {
    VxLogSetSink([](void *, int, const char *, const char *) {}, nullptr);
}
// Back to the default sink.
inline void release_log() {
    VxLogSetSink(nullptr, nullptr);
}

}  // namespace vx::test
