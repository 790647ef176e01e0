// The modifiers this library ships.
#pragma once

#include <cstdint>

namespace vx::eval {

// Defines the item type "linearBlend" and registers its modifier server (class
// "evalModifier", same name) with its tags. Its items drive their channel "output" from their
// other channels and the scene's time:
//     output = offset + weightA * inputA + weightB * inputB + timeWeight * time
// Needs the scene module started; registering again while it runs does nothing. Main thread.
void register_builtin_modifiers();

inline constexpr const char *kLinearBlend = "linearBlend";
// A fixed code, so that the types of hosts and plug-ins keep the automatic codes from 101 in
// the order they are first needed.
inline constexpr std::uint32_t kLinearBlendCode = 100;

}  // namespace vx::eval
