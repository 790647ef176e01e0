// Envelope lifetime, whole-envelope edits, settings and the process-wide defaults.
#include <atomic>
#include <cstdint>

#include "curves/env_checks.h"
#include "curves/env_edits.h"
#include "curves/env_index.h"
#include "curves/env_records.h"
#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/log.h"

namespace vx::env {

namespace {

std::atomic<std::uint32_t> g_default_behavior{ENV_BEHAVIOR_CONSTANT};
std::atomic<std::uint32_t> g_default_interpolation{ENV_INTERP_CURVE};
std::atomic<std::uint32_t> g_default_slope_type{ENV_SLOPE_AUTO};

unsigned short_address(const void *pointer) noexcept {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

void free_envelope(Envelope *env) noexcept {
    reset_cache(*env);
    while (EnvKey *key = first_key(*env)) {
        unlink(*env, key);
        free_key(key);
    }
    drop_index(*env);
    FreeHeap(env, sizeof(Envelope));
}

// The default slope type of new keys, swapped with the record's.
struct DefaultSlopeTypeSwap {
    std::uint32_t type;
    void apply(int) noexcept { type = g_default_slope_type.exchange(type); }
};

}  // namespace

Envelope *create(void *data, std::uint32_t type) {
    auto *env = static_cast<Envelope *>(StdAlloc(sizeof(Envelope)));
    env->data = data;
    env->type = type;
    env->interpolation = g_default_interpolation.load();
    env->pre_behavior = env->post_behavior = g_default_behavior.load();
    list_init(env->keys);
    log::debug("envelope", "EnvCreate: %x\n", short_address(env));
    return env;
}

void destroy_no_undo(Envelope *env) noexcept {
    if (env == nullptr) return;
    log::debug("envelope", "EnvDestroyNoUndo: %x\n", short_address(env));
    free_envelope(env);
}

void DestroyEnvelope::release(int state) noexcept {
    if (state == 0) free_envelope(env);
}

void destroy(Envelope &env) {
    EditTransaction transaction;
    Edit<ClearKeys> clear(&env, true);
    Edit<DestroyEnvelope> destruction(&env);
    notify(env, ENV_NOTE_DESTROY, nullptr);
    log::debug("envelope", "EnvDestroy: %x\n", short_address(&env));
    clear.apply_then_record(0);
    destruction.apply_then_record(0);
}

void clear_keys(Envelope &env, bool notify_change) {
    edit_apply<ClearKeys>(0, &env, notify_change);
}

void copy(Envelope &dst, const Envelope &src) {
    if (dst.type != src.type) {
        log::fail_line("env", 2354, "copying envelopes of different types!", "");
    }
    EditTransaction transaction;
    reserve_index(dst, key_count(src));
    Edit<ClearKeys> clear(&dst, true);
    Edit<CopyKeys> copies(&dst, src.pre_behavior, src.post_behavior, src.interpolation);
    for (EnvKey *key = first_key(src); key != nullptr; key = next_key(key)) {
        EnvKey *twin = new_key(key->time);
        *twin = *key;
        copies->copies.push_back(twin);
    }
    clear.apply_then_record(0);
    copies.apply_then_record(0);
}

void SettingSwap::apply(int direction) noexcept {
    log::debug("envelope", "EnvBehavior_UndoAction: %x\n", short_address(env));
    std::uint32_t &field = which == pre    ? env->pre_behavior
                           : which == post ? env->post_behavior
                                           : env->interpolation;
    std::swap(field, value);
    notify(*env, ENV_NOTE_ENVELOPE, first_key(*env));
    UndoNewCode(direction == 0 ? 1 : 0);
}

void set_behavior(Envelope &env, int end, std::uint32_t value) {
    require_behavior(value);
    const std::uint32_t current = end == 0 ? env.pre_behavior : env.post_behavior;
    if (current == value) return;
    edit_pending<SettingSwap>(1, &env, end == 0 ? SettingSwap::pre : SettingSwap::post, value);
}

void set_interpolation(Envelope &env, std::uint32_t value) {
    require_interpolation(value);
    if (env.interpolation == value) return;
    edit_pending<SettingSwap>(1, &env, SettingSwap::interpolation, value);
}

std::uint32_t default_behavior() noexcept {
    return g_default_behavior.load();
}
void set_default_behavior(std::uint32_t value) {
    require_behavior(value);
    g_default_behavior.store(value);
}
std::uint32_t default_interpolation() noexcept {
    return g_default_interpolation.load();
}
void set_default_interpolation(std::uint32_t value) {
    require_interpolation(value);
    g_default_interpolation.store(value);
}
std::uint32_t default_slope_type() noexcept {
    return g_default_slope_type.load();
}

void set_default_slope_type(std::uint32_t type) {
    require_slope_type(type);
    if (type == g_default_slope_type.load()) return;
    edit_pending<DefaultSlopeTypeSwap>(0, type);
}

void sort_keys(Envelope &env) noexcept {
    EnvKey *key = first_key(env);
    while (key != nullptr) {
        EnvKey *next = next_key(key);
        EnvKey *prev = prev_key(key);
        if (prev != nullptr && prev->time > key->time) {
            unlink(env, key);
            while (prev != nullptr && prev->time > key->time) prev = prev_key(prev);
            insert_after(env, prev, key);
        }
        key = next;
    }
}

void KeyTimes::apply(int direction) noexcept {
    for (std::size_t i = 0; i < keys.count; ++i) std::swap(keys[i]->time, times[i]);
    sort_keys(*env);
    reset_cache(*env);
    ++env->edits;
    notify(*env, ENV_NOTE_ENVELOPE, nullptr);
    UndoNewCode(direction == 0 ? 1 : 0);
}

}  // namespace vx::env
