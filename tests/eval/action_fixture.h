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
#include <vexor/scene.h>

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
Envelope *curve(std::initializer_list<double> keys);
unsigned key_count(Envelope *env);

// The names of the evaluation order, joined by blanks.
std::string order_of(Cinema *scene);
// Everything the actions of the scene hold for the items, in a form that compares exactly: the
// order, every action with its settings and parents, and every entry with its value or keys.
std::string actions_snapshot(Cinema *scene, const std::vector<CineItem *> &items);

// Action events heard on "cinema-db" while it lives.
class ActionEventLog {
  public:
    explicit ActionEventLog(std::vector<ActionEvent> &sink);
    ~ActionEventLog();
    ActionEventLog(const ActionEventLog &) = delete;
    ActionEventLog &operator=(const ActionEventLog &) = delete;

  private:
    std::uint64_t attachment_ = 0;
};

class ActionTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    CineItem *item();
    CineAction *setup() { return CineActionGetDefault(scene, CINE_ACTION_SETUP); }
    CineAction *scene_action() { return CineActionGetDefault(scene, CINE_ACTION_SCENE); }
    CineAction *edit() { return CineActionGetDefault(scene, CINE_ACTION_EDIT); }
    std::string order() const { return order_of(scene); }
    std::string snapshot() const { return actions_snapshot(scene, items); }
    std::size_t events_of(std::uint32_t code) const;

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
