// Reading actions: entries and their states, the holder of a channel further down the
// evaluation order, where a channel's value comes from, and the time span of the keys.
#include <vexor/env.h>

#include "eval/action_records.h"
#include "scene/scene.h"

namespace vx::act {

namespace {

// Source links may form a loop; a search gives up after this many steps.
constexpr int kMaxSourceDepth = 64;

Entry *live_entry(const CineAction &action, const CineItem &item, std::uint32_t channel) noexcept {
    Entry *entry = find_entry(action, item, channel);
    return entry != nullptr && entry->live() ? entry : nullptr;
}

// The first live entry for (item, channel) in the action and the actions after it in the
// evaluation order.
Entry *first_live(CineAction &action, const CineItem &item, std::uint32_t channel) noexcept {
    if (Entry *entry = live_entry(action, item, channel)) return entry;
    const std::ptrdiff_t at = order_position(action);
    if (at < 0) return nullptr;
    const auto &order = action.data->order;
    for (std::size_t i = static_cast<std::size_t>(at) + 1; i < order.size(); ++i) {
        if (Entry *entry = live_entry(*order[i], item, channel)) return entry;
    }
    return nullptr;
}

}  // namespace

Entry *find_entry(const CineAction &action, const CineItem &item, std::uint32_t channel) noexcept {
    return action.entries.find(&item, channel);
}

int entry_state(const Entry *entry) noexcept {
    if (entry == nullptr) return CINE_STATE_NONE;
    if (!entry->live()) return CINE_STATE_REMOVED;
    return (entry->flags() & kEnvelopeBit) != 0 ? CINE_STATE_ENVELOPE : CINE_STATE_CONSTANT;
}

std::ptrdiff_t order_position(const CineAction &action) noexcept {
    const auto &order = action.data->order;
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (order[i] == &action) return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
}

CineAction *holder_for(CineAction &action, const CineItem &item, std::uint32_t channel,
                       std::uint32_t type, int mode) noexcept {
    if (mode != 0 && mode != 1) return nullptr;
    const std::ptrdiff_t at = order_position(action);
    if (at < 0) return nullptr;
    const auto &order = action.data->order;
    for (std::size_t i = static_cast<std::size_t>(at) + 1; i < order.size(); ++i) {
        CineAction *other = order[i];
        if (mode == 1 && other->data->scene != action.data->scene) return nullptr;
        const Entry *entry = find_entry(*other, item, channel);
        if (entry == nullptr || (mode == 0 && !entry->live())) continue;
        if (type == 0xFFFFFFFFu || type == other->type) return other;
    }
    return nullptr;
}

int value_state(CineAction &action, const CineItem &item, std::uint32_t channel) noexcept {
    const CineAction *at = &action;
    for (std::size_t steps = 0; at != nullptr && steps <= action.data->made; ++steps) {
        if (const Entry *entry = find_entry(*at, item, channel)) return entry_state(entry);
        at = at->parents.empty() ? nullptr : at->parents.front();
    }
    return CINE_STATE_NONE;
}

bool extents(const CineAction &action, double *first, double *last) noexcept {
    double lo = kWholeEnd;
    double hi = kWholeStart;
    action.entries.for_each([&](const Entry &entry) {
        if (!entry.live() || entry.envelope == nullptr) return;
        double a = 0.0;
        double b = 0.0;
        EnvBoundsTime(entry.envelope->envelope, &a, &b);
        if (a == kWholeStart && b == kWholeEnd) return;  // no keys
        if (a < lo) lo = a;
        if (b > hi) hi = b;
    });
    if (lo == kWholeEnd && hi == kWholeStart) return false;
    if (first != nullptr) *first = lo;
    if (last != nullptr) *last = hi;
    return true;
}

bool holds_item(const CineAction &action, const CineItem &item) noexcept {
    bool found = false;
    action.entries.for_each([&](const Entry &entry) { found = found || entry.item == &item; });
    return found;
}

ValueSource find_value(CineAction *action, const CineItem &item, std::uint32_t channel) noexcept {
    ValueSource source;
    const vx::cine::ChannelDesc *desc = vx::cine::item_channel(item, channel);
    if (desc == nullptr) return source;
    const CineItem *at = &item;
    std::uint32_t ch = channel;
    for (int depth = 0; action != nullptr && depth < kMaxSourceDepth; ++depth) {
        if (const Entry *entry = first_live(*action, *at, ch)) {
            source.holder = entry->action;
            if (entry->envelope != nullptr) {
                source.envelope = entry->envelope->envelope;
            } else {
                source.constant = entry->constant;
            }
            return source;
        }
        const CineItem *next = vx::cine::item_source(*at);
        if (next == nullptr) break;
        const std::int64_t mapped = vx::cine::match_channel(*at, ch, *next);
        if (mapped < 0) break;
        at = next;
        ch = static_cast<std::uint32_t>(mapped);
    }
    source.constant = &desc->default_value;
    return source;
}

Cinema *scene_of(const CineAction &action) noexcept {
    return action.data->scene;
}

Port *port_of(const CineAction &action) noexcept {
    return action.port;
}

}  // namespace vx::act
