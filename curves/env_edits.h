// The envelope operations in C++. Edits raise failures (vx::Failure, std::bad_alloc) and leave
// the envelope as it was when they do; the C functions in env_api.cpp turn that into 0 or null.
#pragma once

#include <cstdint>

#include "curves/envelope.h"

namespace vx::env {

// Lifetime and settings.
Envelope *create(void *data, std::uint32_t type);
void destroy(Envelope &env);  // undoable
void destroy_no_undo(Envelope *env) noexcept;
void copy(Envelope &dst, const Envelope &src);
// Removes every key as one undoable edit; notifies ENV_NOTE_ENVELOPE when `notify_change`.
void clear_keys(Envelope &env, bool notify_change = true);
void set_behavior(Envelope &env, int end, std::uint32_t value);  // end 0 pre, 1 post
void set_interpolation(Envelope &env, std::uint32_t value);

// Process-wide defaults.
std::uint32_t default_behavior() noexcept;
void set_default_behavior(std::uint32_t value);  // raises rc::bad_argument for unknown codes
std::uint32_t default_interpolation() noexcept;
void set_default_interpolation(std::uint32_t value);
std::uint32_t default_slope_type() noexcept;
void set_default_slope_type(std::uint32_t type);  // undoable

// Lookup through the cache. find() gives the key at or before the time (the last key not
// later than it by the tolerance) and the key after it; either may be null.
struct Found {
    EnvKey *at_or_before;
    EnvKey *after;
};
Found find(Envelope &env, double time) noexcept;
EnvKey *get_key(Envelope &env, double time) noexcept;
EnvKey *next_key_after(Envelope &env, double time) noexcept;
EnvKey *prev_key_before(Envelope &env, double time) noexcept;

// Key edits.
EnvKey *add_key(Envelope &env, double time, double value);
EnvKey *add_key_int(Envelope &env, double time, int value);
void delete_key(Envelope &env, EnvKey *key);
void set_time(Envelope &env, EnvKey *key, double time, std::uint32_t reorder);
void set_value(Envelope &env, EnvKey *key, EnvValue value);
void set_side_value(Envelope &env, EnvKey *key, int side, EnvValue value);
void set_slope(Envelope &env, EnvKey *key, int side, double slope);
void set_slope_type(Envelope &env, EnvKey *key, int side, std::uint32_t type);
void set_weight_type(Envelope &env, EnvKey *key, int side, bool manual);
void set_weight(Envelope &env, EnvKey *key, int side, double weight);
bool break_key(Envelope &env, EnvKey *key, std::uint32_t bit);
bool unify_key(Envelope &env, EnvKey *key, std::uint32_t bit);
bool set_active_side(Envelope &env, EnvKey *key, int side) noexcept;
void invert_tangent(Envelope &env, EnvKey *key, int side);
void quantise(Envelope &env, EnvKey *key);
void cut_key(Envelope &env, EnvKey *key);
void paste_key(Envelope &env, EnvKey *key, double time);

// Key reads.
double value_of(const EnvKey *key) noexcept;   // the active value of a float key
int value_of_int(const EnvKey *key) noexcept;  // the active value of an integer key
double auto_weight(const EnvKey *key, int side) noexcept;
double weight_of(const EnvKey *key, int side) noexcept;
double span_of(const EnvKey *key, int side) noexcept;

}  // namespace vx::env
