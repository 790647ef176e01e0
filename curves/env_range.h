// Edits of many keys at once (see env_key_range.cpp).
#pragma once

#include "curves/envelope.h"

namespace vx::env {

void shift_all_keys(Envelope &env, double offset);
void scale_all_keys(Envelope &env, double pivot, double scale);
void ripple_keys(Envelope &env, double time, double offset);
void move_key_array(Envelope &env, EnvKey *const *keys, int count, double offset);
void scale_key_array(Envelope &env, EnvKey *const *keys, int count, double pivot, double scale);
void delete_key_range(Envelope &env, double start, double end);
void shift_values(Envelope &env, double start, double end, double offset);
void shift_values_int(Envelope &env, double start, double end, int offset);
void scale_values(Envelope &env, double start, double end, double pivot, double scale);

}  // namespace vx::env
