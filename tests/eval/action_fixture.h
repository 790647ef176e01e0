// Shared set-up for the action tests: a started scene module, a scene, an item type "layered"
// with channels of every kind, an add-on package, a log of action events and a snapshot of
// everything the scene's actions hold.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/scene.h>
#include <vexor/undo.h>

#include "eval/action_records.h"
#include "support/log_lines.h"

namespace vx::test {

// Channels of a "layered" item; the add-on packages "extra" ("e0", "e1") and "tail" ("t0") add
// more after them.
enum LayeredChannel : unsigned { kX = 0, kY = 1, kCount = 2, kLabel = 3, kMatrix = 4, kObject = 5 };
inline constexpr double kDefaultX = 1.5;
inline constexpr int kDefaultCount = 7;

struct ActionEvent {
    std::uint32_t code;
    CineAction *action;
    CineItem *item;
    std::uint32_t channel;
    std::uint32_t flags;
    double start;
    double end;
};

// A linear float envelope with keys (t, v) in pairs, built without recording.
inline Envelope *curve(std::initializer_list<double> keys) {
    UndoSysSuspend();
    Envelope *env = EnvCreate(nullptr);
    EnvSetInterpolationDirect(env, ENV_INTERP_LINEAR);
    for (auto k = keys.begin(); k != keys.end() && k + 1 != keys.end(); k += 2) {
        EnvAddKey(env, k[0], k[1]);
    }
    UndoSysResume();
    return env;
}

inline unsigned key_count(Envelope *env) {
    unsigned n = 0;
    for (EnvKey *k = EnvGetKeyList(env)->head; k->succ != nullptr; k = k->succ) ++n;
    return n;
}

// The names of the evaluation order, joined by blanks.
inline std::string order_of(Cinema *scene) {
    std::string text;
    for (unsigned i = 0; CineAction *a = CineActionOrderByIndex(scene, i); ++i) {
        text += (i == 0 ? "" : " ") + std::string(CineActionName(a));
    }
    return text;
}

// Everything the actions of the scene hold for the items, in a form that compares exactly: the
// order, every action with its settings and parents, and every entry with its value or keys.
inline std::string actions_snapshot(Cinema *scene, const std::vector<CineItem *> &items) {
    auto entry_text = [](const act::Entry &entry) -> std::string {
        switch (act::entry_state(&entry)) {
            case CINE_STATE_REMOVED:
                return "removed";
            case CINE_STATE_ENVELOPE: {
                Envelope *env = entry.envelope->envelope;
                std::string text = "env[" + std::to_string(EnvInterpolation(env)) + "]";
                for (EnvKey *k = EnvGetKeyList(env)->head; k->succ != nullptr; k = k->succ) {
                    text +=
                        " " + std::to_string(k->time) + ":" + std::to_string(k->side[0].value.f);
                }
                return text;
            }
            default: {
                char buf[400];
                entry.constant->export_text(buf, sizeof buf);
                return std::string("=") + buf;
            }
        }
    };
    std::string text = "order: " + order_of(scene) + "\n";
    for (CineAction *a = CineActionFirst(scene); a != nullptr; a = CineActionNext(a)) {
        text += std::string(CineActionName(a)) + " type " + std::to_string(CineActionType(a)) +
                " on " + std::to_string(CineActionIsEnabled(a)) + " parents";
        for (unsigned i = 0; i < CineActionParentCount(a); ++i) {
            text += std::string(" ") + CineActionName(CineActionParentByIndex(a, i));
        }
        text += "\n";
        for (std::size_t i = 0; i < items.size(); ++i) {
            for (unsigned ch = 0; ch < CineChannelCount(items[i]) + 2; ++ch) {
                if (const act::Entry *e = act::find_entry(*a, *items[i], ch)) {
                    text += "  " + std::to_string(i) + "." + std::to_string(ch) + " " +
                            entry_text(*e) + "\n";
                }
            }
        }
    }
    return text;
}

// Action events heard on "cinema-db" while it lives.
class ActionEventLog {
  public:
    explicit ActionEventLog(std::vector<ActionEvent> &sink)
        : attachment_(::PortAttach(::PortLookup("cinema-db"), hear, &sink, nullptr)) {}
    ~ActionEventLog() { ::PortDetach(::PortLookup("cinema-db"), attachment_); }
    ActionEventLog(const ActionEventLog &) = delete;
    ActionEventLog &operator=(const ActionEventLog &) = delete;

  private:
    static void hear(void *client, void *, std::uint32_t code, void *data) {
        if (code < CINE_EVENT_ACTION_ADDED || code > CINE_EVENT_ACTION_DEFINED) return;
        ActionEvent event{code, nullptr, nullptr, 0, 0, 0.0, 0.0};
        if (code == CINE_EVENT_ACTION_CHANGED || code == CINE_EVENT_ACTION_PARENTS) {
            const auto &change = *static_cast<const CineActionChange *>(data);
            event = {code,         change.action, change.item, change.channel,
                     change.flags, change.start,  change.end};
        } else {
            event.action = static_cast<CineAction *>(data);
        }
        static_cast<std::vector<ActionEvent> *>(client)->push_back(event);
    }
    std::uint64_t attachment_ = 0;
};

class ActionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const char *const none = nullptr;
        UndoSysStartup();
        CinemaStartup();
        CinePackageDefine("layered");
        CinePackageAddChannel("layered", CINE_CH_NAME, "x", VX_STORE_FLOAT, none, CINE_CH_DEFAULT,
                              kDefaultX, CINE_CH_NAME, "y", VX_STORE_FLOAT, none, CINE_CH_DEFAULT,
                              2.0, CINE_CH_NAME, "count", VX_STORE_INT, none, CINE_CH_DEFAULT_INT,
                              kDefaultCount, CINE_CH_NAME, "label", VX_STORE_TEXT, none,
                              CINE_CH_NAME, "m", VX_STORE_MATRIX, none, CINE_CH_NAME, "obj",
                              VX_STORE_OBJECT, "custom", CINE_CH_NAME, none);
        layered = CineDefineType(0, 0, "layered");
        ASSERT_NE(layered, CINE_TYPE_NONE);
        CinePackageDefine("extra");
        CinePackageAddChannel("extra", CINE_CH_NAME, "e0", VX_STORE_FLOAT, none, CINE_CH_NAME, "e1",
                              VX_STORE_FLOAT, none, CINE_CH_NAME, none);
        CinePackageDefine("tail");
        CinePackageAddChannel("tail", CINE_CH_NAME, "t0", VX_STORE_FLOAT, none, CINE_CH_NAME, none);
        extra = CinePackageFind("extra");
        ASSERT_NE(extra, nullptr);
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        log_ = std::make_unique<ActionEventLog>(events);
        capture_log(lines);
    }
    void TearDown() override {
        release_log();
        log_.reset();
        UndoSysClear();
        CinemaDestroy(scene);
        CinemaShutdown();
        UndoSysShutdown();
    }

    CineItem *item() {
        UndoSysSuspend();
        CineItem *made = CineItemCreate(scene, layered);
        UndoSysResume();
        EXPECT_NE(made, nullptr);
        items.push_back(made);
        return made;
    }
    CineAction *setup() { return CineActionGetDefault(scene, CINE_ACTION_SETUP); }
    CineAction *scene_action() { return CineActionGetDefault(scene, CINE_ACTION_SCENE); }
    CineAction *edit() { return CineActionGetDefault(scene, CINE_ACTION_EDIT); }
    std::string order() const { return order_of(scene); }
    std::string snapshot() const { return actions_snapshot(scene, items); }
    std::size_t events_of(std::uint32_t code) const {
        std::size_t n = 0;
        for (const ActionEvent &e : events) n += e.code == code ? 1u : 0u;
        return n;
    }

    Cinema *scene = nullptr;
    std::uint32_t layered = 0;
    CinePackage *extra = nullptr;
    std::vector<CineItem *> items;
    std::vector<ActionEvent> events;
    std::vector<std::string> lines;  // log lines

  private:
    std::unique_ptr<ActionEventLog> log_;
};

}  // namespace vx::test
