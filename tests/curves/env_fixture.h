// Shared pieces of the envelope tests: an envelope with a listening port, a full snapshot of
// its state, and the notes observers heard.
#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/port.h>
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

// Every setting and every key field, bit for bit.
inline std::string snapshot(Envelope *env) {
    std::string text = "type " + std::to_string(EnvType(env)) + " pre " +
                       std::to_string(EnvPreBehavior(env)) + " post " +
                       std::to_string(EnvPostBehavior(env)) + " interp " +
                       std::to_string(EnvInterpolation(env)) + "\n";
    const EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        text += bits(k->time) + " f" + std::to_string(k->flags);
        for (const EnvKeySide &s : k->side) {
            text += " [" + std::to_string(s.flags) + " " + bits(s.value.f) + " " + bits(s.slope) +
                    " " + bits(s.weight) + "]";
        }
        text += "\n";
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
