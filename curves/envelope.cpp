#include "curves/envelope.h"

#include <atomic>

#include "foundation/memory.h"

namespace vx::env {

std::atomic<std::uint64_t> g_loose_key_writes{0};

void note_loose_key_write(std::uint32_t key_bits, std::uint32_t side_bits) noexcept {
    constexpr std::uint32_t kCurveKeyBits =
        ENV_BREAK_VALUE | ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT | ENV_ACTIVE_SIDE1;
    constexpr std::uint32_t kCurveSideBits = kSlopeTypeMask | ENV_WEIGHT_MANUAL;
    if ((key_bits & kCurveKeyBits) != 0 || (side_bits & kCurveSideBits) != 0) {
        g_loose_key_writes.fetch_add(1, std::memory_order_relaxed);
    }
}

void reset_cache(Envelope &env) noexcept {
    env.lookup_key = nullptr;
    env.lookup_next = nullptr;
}

namespace {
void changed(Envelope &env) noexcept {
    reset_cache(env);
    ++env.edits;
}
}  // namespace

void insert_after(Envelope &env, EnvKey *after, EnvKey *key) noexcept {
    EnvKey *before = after != nullptr ? after : head_node(env.keys);
    EnvKey *next = link_of(before, kSucc);
    key->pred = before;
    key->succ = next;
    set_link(next, kPred, key);
    set_link(before, kSucc, key);
    ++env.linked;
    changed(env);
}

void append(Envelope &env, EnvKey *key) noexcept {
    insert_after(env, last_key(env), key);
}

void insert_sorted(Envelope &env, EnvKey *key) noexcept {
    EnvKey *after = last_key(env);
    while (after != nullptr && after->time > key->time) after = prev_key(after);
    insert_after(env, after, key);
}

void unlink(Envelope &env, EnvKey *key) noexcept {
    set_link(key->pred, kSucc, key->succ);
    set_link(key->succ, kPred, key->pred);
    key->succ = nullptr;
    key->pred = nullptr;
    --env.linked;
    changed(env);
}

void notify(Envelope &env, std::uint32_t code, EnvKey *key) noexcept {
    mark_changed(env);
    if (env.port == nullptr) return;
    EnvNote note{&env, key, kTimeLineStart, kTimeLineEnd};
    vx::PortNotify(env.port, nullptr, code, &note);
}

EnvKey *new_key(double time) {
    auto *key = static_cast<EnvKey *>(StdAlloc(sizeof(EnvKey)));
    key->time = time;
    return key;
}

void free_key(EnvKey *key) noexcept {
    FreeHeap(key, sizeof(EnvKey));
}

}  // namespace vx::env
