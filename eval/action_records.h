// The records of the action module: the per-scene action data, actions, and the entries that
// hold channel values, with the table that finds an entry by item and channel.
//
// Ownership. The action data owns the actions in its list; an action owns the entries in its
// table; an entry owns its value (a constant value object, or a held envelope). Whatever an
// undo record has taken out (an action, an entry, a value) belongs to that record until it is
// put back; a record's free step releases it then and never touches the action data, so
// records may outlive their scene.
#pragma once

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "eval/action_access.h"
#include "foundation/port.h"
#include "foundation/time.h"
#include "foundation/value_type.h"

namespace vx::act {

struct Entry;
using ActionData = ::CineActionData;

inline constexpr std::uint32_t kChannelMask = 0x00FFFFFFu;
inline constexpr std::uint8_t kEnvelopeBit = 0x10;
inline constexpr std::uint8_t kRemovedBit = 0x20;
inline constexpr double kWholeStart = kTimeLineStart;
inline constexpr double kWholeEnd = kTimeLineEnd;

// An envelope held by an entry. The entry relays the envelope's change notes as changes of
// its action, so it listens on the envelope's port (making one when the envelope had none).
struct HeldEnvelope {
    Envelope *envelope = nullptr;
    Port *own_port = nullptr;  // the port made for the envelope, if it had none
    PortAttachment attachment = 0;
    Entry *holder = nullptr;  // the entry showing it; null while an undo record keeps it
    bool owned = false;       // the envelope dies with this record once an edit gave it over
};

// What an entry holds: the flag bits of its word and its value.
struct Payload {
    std::uint8_t flags = 0;
    HeldEnvelope *envelope = nullptr;
    value::Value *constant = nullptr;
};

struct Entry {
    CineItem *item = nullptr;
    std::uint32_t word = 0;  // channel in the low 24 bits, flags in the high 8
    HeldEnvelope *envelope = nullptr;
    value::Value *constant = nullptr;
    CineAction *action = nullptr;
    Entry *next = nullptr;  // chain of its bucket
    bool linked = false;    // in its action's table

    std::uint32_t channel() const noexcept { return word & kChannelMask; }
    std::uint8_t flags() const noexcept { return static_cast<std::uint8_t>(word >> 24); }
    bool live() const noexcept { return (flags() & kRemovedBit) == 0; }
};

// Entries by (item, channel). Chains hang off a bucket array that grows when it can: growing
// happens inside apply steps, which must not fail, so a failed allocation only leaves the
// chains longer.
class EntryTable {
  public:
    EntryTable();  // raises std::bad_alloc
    ~EntryTable();
    EntryTable(const EntryTable &) = delete;
    EntryTable &operator=(const EntryTable &) = delete;

    Entry *find(const CineItem *item, std::uint32_t channel) const noexcept;
    void link(Entry &entry) noexcept;
    void unlink(Entry &entry) noexcept;
    std::size_t size() const noexcept { return size_; }

    // Calls fn for every entry; fn may unlink the entry it is given.
    template <class Fn>
    void for_each(Fn &&fn) const {
        for (std::size_t b = 0; b < bucket_count_; ++b) {
            for (Entry *e = buckets_[b]; e != nullptr;) {
                Entry *next = e->next;
                fn(*e);
                e = next;
            }
        }
    }

  private:
    std::size_t bucket_of(const CineItem *item, std::uint32_t channel) const noexcept;
    void grow() noexcept;

    Entry **buckets_ = nullptr;
    std::size_t bucket_count_ = 0;
    std::size_t size_ = 0;
};

}  // namespace vx::act

// The action data of one scene (opaque in the C interface).
struct CineActionData {
    Cinema *scene = nullptr;
    CineAction *first = nullptr;  // the list, in creation order
    CineAction *last = nullptr;
    // The evaluation order. Its capacity is kept at least the number of actions ever made for
    // the scene, so that rebuilding it never allocates.
    std::vector<CineAction *> order;
    std::size_t made = 0;
    CineAction *edit = nullptr;
    CineAction *scene_action = nullptr;
    CineAction *setup = nullptr;
    std::uint32_t visit_stamp = 0;
};

struct CineAction {
    CineAction *prev = nullptr;
    CineAction *next = nullptr;
    vx::act::ActionData *data = nullptr;
    std::string name;
    std::uint32_t type = 0;
    std::uint32_t enabled = 1;
    std::vector<CineAction *> parents;  // the first is the primary parent
    vx::act::EntryTable entries;
    Port *port = nullptr;
    bool linked = false;  // in its scene's list
    std::uint32_t visit = 0;
};

namespace vx::act {

// ---- Module (action_module.cpp) ----

// Reference counted: the first start installs the scene hooks, the last stop removes them.
void start();
void stop() noexcept;

// ---- Records (action_table.cpp) ----

// The scene's action data, or null.
ActionData *data_of(const Cinema &scene) noexcept;

// A new action, not in any list; raises std::bad_alloc.
CineAction *new_action(ActionData &data, const char *name, std::uint32_t type);
// Frees an action that is in no list, with its entries and their values.
void free_action(CineAction *action) noexcept;

// A new entry (not linked) holding the payload; raises std::bad_alloc.
Entry *new_entry(CineAction &action, CineItem &item, std::uint32_t channel);
void free_entry(Entry *entry) noexcept;
Payload take_payload(Entry &entry) noexcept;
void put_payload(Entry &entry, const Payload &payload) noexcept;
void free_payload(const Payload &payload) noexcept;

// Wraps an envelope for an entry: attaches the relay (making a port for the envelope when it
// has none). Until `owned` is set, freeing the wrapper gives the envelope back untouched.
HeldEnvelope *hold_envelope(Envelope *env);
void free_held(HeldEnvelope *held) noexcept;
// A copy of a value or an envelope (keys and settings), for copies of entries.
Payload copy_payload(const Payload &payload);

// ---- Events (action_data.cpp) ----

// Announces a change on the action's port and as a scene event.
void announce(CineAction &action, CineItem *item, std::uint32_t channel, std::uint32_t flags,
              double start = kWholeStart, double end = kWholeEnd) noexcept;
void announce_entry(const Entry &entry, std::uint32_t flags) noexcept;
// Rebuilds the scene's evaluation order and announces it.
void rebuild_order(ActionData &data) noexcept;
bool setup_state(const ActionData &data) noexcept;

// ---- Look-ups (action_lookup.cpp) ----

Entry *find_entry(const CineAction &action, const CineItem &item, std::uint32_t channel) noexcept;
int entry_state(const Entry *entry) noexcept;
// The position of the action in its scene's evaluation order, or -1.
std::ptrdiff_t order_position(const CineAction &action) noexcept;
CineAction *holder_for(CineAction &action, const CineItem &item, std::uint32_t channel,
                       std::uint32_t type, int mode) noexcept;
int value_state(CineAction &action, const CineItem &item, std::uint32_t channel) noexcept;
bool extents(const CineAction &action, double *first, double *last) noexcept;
bool holds_item(const CineAction &action, const CineItem &item) noexcept;

// ---- Actions and parents (action_data.cpp) ----

ActionData &make_data(Cinema &scene);
void destroy_data(ActionData *data) noexcept;
void make_defaults(Cinema &scene);
CineAction *default_action(const Cinema &scene, std::uint32_t kind) noexcept;
CineAction *lookup(const Cinema &scene, const char *name) noexcept;
CineAction *create(Cinema &scene, const char *name, std::uint32_t type, CineAction *parent);
CineAction *copy_action(CineAction &source, const char *name);
bool destroy(CineAction &action);
void set_type(CineAction &action, std::uint32_t type);
void set_enable(CineAction &action, bool enabled);
bool add_parent(CineAction &action, CineAction &parent, int index);
bool remove_parent(CineAction &action, CineAction &parent);

// ---- Entry edits (action_edits.cpp) ----

// Fills a new value object of the channel's type.
using Fill = void (*)(value::Value &value, const void *source);
void fill_float(value::Value &to, const void *from);   // from: const double *
void fill_int(value::Value &to, const void *from);     // from: const int *
void fill_text(value::Value &to, const void *from);    // from: const char *
void fill_matrix(value::Value &to, const void *from);  // from: 16 doubles, row by row
void fill_object(value::Value &to, const void *from);  // from: the object itself
// A null fill sets the channel's default.
void set_constant(CineAction &action, CineItem &item, std::uint32_t channel, Fill fill,
                  const void *source);
void set_value(CineAction &action, CineItem &item, std::uint32_t channel, double value,
               bool integer, double time);
void set_envelope(CineAction &action, CineItem &item, std::uint32_t channel, Envelope *env);
void set_state(CineAction &action, CineItem &item, std::uint32_t channel, int state, void *extra);
bool copy_channel(CineAction &to, CineItem &dst, std::uint32_t dst_channel, CineAction &from,
                  const CineItem &src, std::uint32_t src_channel, std::uint32_t flags);
bool merge_channel(CineAction &action, CineAction *target, CineItem &item, std::uint32_t channel);
// Takes out the entries of channels [first, first + count) of the item in every action of
// its scene; count 0 means every channel.
void purge(CineItem &item, std::uint32_t first, std::uint32_t count);
// What removing a package from an item does to actions: the entries of its channels are taken
// out, and those of the channels after them move down to their new indices.
void purge_package(CineItem &item, std::uint32_t first, std::uint32_t count);
bool apply_item(CineAction &target, CineAction &action, CineItem &dst, const CineItem &src,
                std::uint32_t flags);
// Frees every entry of the item in every action of its scene, without undo.
void forget_item(CineItem &item) noexcept;

}  // namespace vx::act
