// Shared pieces of the envelope tests: an envelope with a listening port, a full snapshot of
// its state, the notes observers heard, the log's lines, and the undo system around a test.
// It brings the headers every envelope test uses.
#pragma once

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/log.h>
#include <vexor/port.h>
#include <vexor/time.h>
#include <vexor/undo.h>

namespace vx::test {

struct HeardNote {
    std::uint32_t code;
    EnvKey *key;
    bool operator==(const HeardNote &) const = default;
};

// Listens on an envelope's port. Its buffer is reserved, so hearing never allocates while an
// edit under test runs.
class NoteLog {
  public:
    NoteLog() { notes_.reserve(4096); }
    static void listen(void *client, void *, std::uint32_t code, void *data) {
        auto *log = static_cast<NoteLog *>(client);
        const auto *note = static_cast<const EnvNote *>(data);
        if (log->notes_.size() < log->notes_.capacity()) {
            log->notes_.push_back({code, note->key});
        }
        log->wrong_span_ |= note->start != -33600000.0 || note->end != 33600000.0;
    }
    std::vector<HeardNote> take() {
        std::vector<HeardNote> heard = notes_;
        notes_.clear();
        return heard;
    }
    std::vector<std::uint32_t> codes() {
        std::vector<std::uint32_t> out;
        for (const HeardNote &n : take()) out.push_back(n.code);
        return out;
    }
    std::size_t count() const { return notes_.size(); }
    bool wrong_span() const { return wrong_span_; }

  private:
    std::vector<HeardNote> notes_;
    bool wrong_span_ = false;
};

inline std::string bits(double value) {
    std::uint64_t raw;
    std::memcpy(&raw, &value, sizeof raw);
    char text[20];
    std::snprintf(text, sizeof text, "%016" PRIx64, raw);
    return text;
}

// A key bit for bit, ignoring the links. With `as_loaded`, the key as a save and a load give it
// back: narrowed to single precision, and side 1 zero when the key has no break.
inline std::string describe(const EnvKey &key, bool integer, bool as_loaded = false) {
    const bool side1 = !as_loaded || (key.flags & 0x7u) != 0;
    auto num = [&](double v) {
        return bits(as_loaded ? static_cast<double>(static_cast<float>(v)) : v);
    };
    std::string text = num(key.time) + " f" + std::to_string(key.flags);
    for (int s = 0; s < 2; ++s) {
        const EnvKeySide side = s == 0 || side1 ? key.side[s] : EnvKeySide{};
        text += " [" + std::to_string(side.flags) + " " +
                (integer ? std::to_string(side.value.i) : num(side.value.f)) + " " +
                num(side.slope) + " " + num(side.weight) + "]";
    }
    return text;
}

// Every setting and every key field, bit for bit.
inline std::string snapshot(Envelope *env) {
    std::string text = "type " + std::to_string(EnvType(env)) + " pre " +
                       std::to_string(EnvPreBehavior(env)) + " post " +
                       std::to_string(EnvPostBehavior(env)) + " interp " +
                       std::to_string(EnvInterpolation(env)) + "\n";
    const EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        text += describe(*k, EnvType(env) == 1) + "\n";
    }
    return text;
}

inline std::vector<double> key_times(Envelope *env) {
    std::vector<double> times;
    const EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *k = list->head; k->succ != nullptr; k = k->succ) times.push_back(k->time);
    return times;
}

inline EnvKey *key_at(Envelope *env, int index) {
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (index-- == 0) return k;
    }
    return nullptr;
}

inline int key_count(Envelope *env) {
    int n = 0;
    const EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *k = list->head; k->succ != nullptr; k = k->succ) ++n;
    return n;
}

// Keys at 0, 1, 2 and 3 s with values 0, 10, 20, 30 (float or integer), built without recording.
inline void fill(Envelope *env) {
    UndoSysSuspend();
    for (int i = 0; i < 4; ++i) {
        if (EnvType(env) == 1) {
            EnvAddKeyInt(env, i, 10 * i);
        } else {
            EnvAddKey(env, i, 10.0 * i);
        }
    }
    UndoSysResume();
}

// Undoes (or redoes) n steps, or every step there is.
inline void undo(int n = -1) {
    while (n-- != 0 && UndoSysUndo() != 0) {
    }
}
inline void redo(int n = -1) {
    while (n-- != 0 && UndoSysRedo() != 0) {
    }
}

// Takes the log's lines while it lives, with a debug channel turned on, and keeps them. With no
// channel it only silences the log (without allocating, so counts of live blocks hold), for
// the failure lines of malformed input.
class LogCapture {
  public:
    explicit LogCapture(const char *channel = nullptr) : channel_(channel) {
        VxLogSetSink(sink, this);
        if (channel_ != nullptr) VxLogEnableChannel(channel_, 1);
    }
    ~LogCapture() {
        if (channel_ != nullptr) VxLogEnableChannel(channel_, 0);
        VxLogSetSink(nullptr, nullptr);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<std::string> lines;  // "source|text"
    std::vector<std::string> texts;

  private:
    static void sink(void *client, int, const char *source, const char *text) {
        auto *log = static_cast<LogCapture *>(client);
        if (log->channel_ == nullptr) return;
        log->lines.push_back(std::string(source) + "|" + text);
        log->texts.emplace_back(text);
    }
    const char *channel_;
};

// The undo system started and recording for each test, at 30 frames a second.
class UndoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        TimeSetGlobalFPS(30.0);
    }
    void TearDown() override {
        UndoSysClear();
        UndoSysEnable(1);
        TimeSetGlobalFPS(24.0);
        UndoSysShutdown();
    }
};

// An envelope attached to a port with a note log; undo recording for the test's lifetime.
class ListenedEnvelope {
  public:
    explicit ListenedEnvelope(bool integer = false)
        : env(integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr)), port(PortCreate(nullptr)) {
        PortAttach(port, NoteLog::listen, &notes, nullptr);
        EnvSetPort(env, port);
    }
    ~ListenedEnvelope() {
        UndoSysClear();  // records may point into the envelope
        EnvDestroyNoUndo(env);
        PortDestroy(port);
    }
    ListenedEnvelope(const ListenedEnvelope &) = delete;
    ListenedEnvelope &operator=(const ListenedEnvelope &) = delete;

    Envelope *env;
    Port *port;
    NoteLog notes;
};

}  // namespace vx::test
