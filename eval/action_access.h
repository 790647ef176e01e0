// What evaluation asks of actions: where a channel's value comes from as an action sees it, and
// the change events through which caches learn that a value has changed.
//
// None of these allocate or fail; they may be called from several threads at once as long as
// no thread edits the actions meanwhile (actions are not locked).
#pragma once

#include <vexor/cinema.h>
#include <vexor/env.h>

#include <cstdint>

#include "foundation/value_type.h"

struct Port;

namespace vx::act {

// The data of an action change event. It is sent on the action's own port with code
// kActionChanged (unless the scene is quiet) and through the scene's event routine as scene
// event kActionChanged, for every change of what the action holds: an entry set, cleared,
// removed, revived or purged (item and channel given), an envelope held by an entry edited
// through its own edits (item and channel given, the span of the envelope's note), or a change
// of the whole action, such as its type (item null, span the whole time line).
struct ActionChange {
    CineAction *action = nullptr;
    CineItem *item = nullptr;  // null: the whole action
    std::uint32_t channel = 0;
    std::uint32_t flags = 0;
    double start = -33600000.0;
    double end = 33600000.0;
};

inline constexpr std::uint32_t kActionChanged = 0x8003;

// Where a channel's value comes from, as seen from an action: the first live entry in the
// action and the later actions of the scene's evaluation order, then the same search for the
// item's source item with the mapped channel, then the channel's package default.
struct ValueSource {
    const Envelope *envelope = nullptr;      // set when the value is animated
    const value::Value *constant = nullptr;  // set for a constant entry or the default
    CineAction *holder = nullptr;            // the action holding the entry; null: default
};

// Null action: the default only. An item channel out of range gives an empty source.
ValueSource find_value(CineAction *action, const CineItem &item, std::uint32_t channel) noexcept;

// The scene an action belongs to.
Cinema *scene_of(const CineAction &action) noexcept;
// The action's own port.
Port *port_of(const CineAction &action) noexcept;

}  // namespace vx::act
