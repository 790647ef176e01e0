#include "action_fixture.h"

#include <vexor/log.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/undo.h>

#include "eval/action_records.h"

namespace vx::test {
namespace {

const char *const kNoName = nullptr;

void hear(void *client, void *, std::uint32_t code, void *data) {
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

std::string entry_text(const act::Entry &entry) {
    switch (act::entry_state(&entry)) {
        case CINE_STATE_REMOVED:
            return "removed";
        case CINE_STATE_ENVELOPE: {
            Envelope *env = entry.envelope->envelope;
            std::string text = "env[" + std::to_string(EnvInterpolation(env)) + "]";
            EnvKeyList *list = EnvGetKeyList(env);
            for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
                text += " " + std::to_string(k->time) + ":" + std::to_string(k->side[0].value.f);
            }
            return text;
        }
        default: {
            char buf[400];
            entry.constant->export_text(buf, sizeof buf);
            return std::string("=") + buf;
        }
    }
}

}  // namespace

void ActionTest::SetUp() {
    UndoSysStartup();
    CinemaStartup();
    CinePackageDefine("layered");
    CinePackageAddChannel("layered", CINE_CH_NAME, "x", VX_STORE_FLOAT, kNoName, CINE_CH_DEFAULT,
                          kDefaultX, CINE_CH_NAME, "y", VX_STORE_FLOAT, kNoName, CINE_CH_DEFAULT,
                          2.0, CINE_CH_NAME, "count", VX_STORE_INT, kNoName, CINE_CH_DEFAULT_INT,
                          kDefaultCount, CINE_CH_NAME, "label", VX_STORE_TEXT, kNoName,
                          CINE_CH_NAME, "m", VX_STORE_MATRIX, kNoName, CINE_CH_NAME, "obj",
                          VX_STORE_OBJECT, "custom", CINE_CH_NAME, kNoName);
    layered = CineDefineType(0, 0, "layered");
    ASSERT_NE(layered, CINE_TYPE_NONE);
    CinePackageDefine("extra");
    CinePackageAddChannel("extra", CINE_CH_NAME, "e0", VX_STORE_FLOAT, kNoName, CINE_CH_NAME, "e1",
                          VX_STORE_FLOAT, kNoName, CINE_CH_NAME, kNoName);
    CinePackageDefine("tail");
    CinePackageAddChannel("tail", CINE_CH_NAME, "t0", VX_STORE_FLOAT, kNoName, CINE_CH_NAME,
                          kNoName);
    extra = CinePackageFind("extra");
    ASSERT_NE(extra, nullptr);
    scene = CinemaCreate(0);
    ASSERT_NE(scene, nullptr);
    log_ = std::make_unique<ActionEventLog>(events);
    capture_log(lines);
}

void ActionTest::TearDown() {
    release_log();
    log_.reset();
    UndoSysClear();
    CinemaDestroy(scene);
    CinemaShutdown();
    UndoSysShutdown();
}

CineItem *ActionTest::item() {
    UndoSysSuspend();
    CineItem *made = CineItemCreate(scene, layered);
    UndoSysResume();
    EXPECT_NE(made, nullptr);
    items.push_back(made);
    return made;
}

Envelope *curve(std::initializer_list<double> keys) {
    UndoSysSuspend();
    Envelope *env = EnvCreate(nullptr);
    EnvSetInterpolationDirect(env, ENV_INTERP_LINEAR);
    for (auto k = keys.begin(); k != keys.end() && k + 1 != keys.end(); k += 2) {
        EnvAddKey(env, k[0], k[1]);
    }
    UndoSysResume();
    return env;
}

unsigned key_count(Envelope *env) {
    unsigned n = 0;
    for (EnvKey *k = EnvGetKeyList(env)->head; k->succ != nullptr; k = k->succ) ++n;
    return n;
}

std::string order_of(Cinema *scene) {
    std::string text;
    for (unsigned i = 0; CineAction *a = CineActionOrderByIndex(scene, i); ++i) {
        text += (i == 0 ? "" : " ") + std::string(CineActionName(a));
    }
    return text;
}

ActionEventLog::ActionEventLog(std::vector<ActionEvent> &sink) {
    attachment_ = ::PortAttach(::PortLookup("cinema-db"), hear, &sink, nullptr);
}

ActionEventLog::~ActionEventLog() {
    ::PortDetach(::PortLookup("cinema-db"), attachment_);
}

std::string actions_snapshot(Cinema *scene, const std::vector<CineItem *> &items) {
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

std::size_t ActionTest::events_of(std::uint32_t code) const {
    std::size_t n = 0;
    for (const ActionEvent &e : events) n += e.code == code ? 1u : 0u;
    return n;
}

}  // namespace vx::test
