// The texture-layer module: its start and stop, the registry of layer types, and the channel
// reads that navigation, look-up and evaluation share.
#pragma once

#include <vexor/tlayer.h>

#include <cstdint>

struct LinkGraph;

namespace vx::shade {

inline constexpr const char *kShadeGraph = "shadeLoc";
inline constexpr const char *kMask = "mask";
inline constexpr const char *kMaterial = "advancedMaterial";
inline constexpr const char *kOutput = "renderOutput";

// SVecStartup and ShadeShutdown's work.
void start_module();
void stop_module() noexcept;
bool started() noexcept;

// Type codes of the built-in types (CINE_TYPE_NONE before the first start).
std::uint32_t mask_type() noexcept;
std::uint32_t material_type() noexcept;
std::uint32_t output_type() noexcept;

// The operations registered for the item's type or its nearest registered ancestor, or null.
const TextureLayerOps *ops_of(const CineItem *item, void **client) noexcept;

bool is_layer(const CineItem *item) noexcept;
bool is_a(const CineItem *item, std::uint32_t type) noexcept;

// The scene's "setup" action, through which channels are read when no evaluator is given.
CineAction *setup_action(const CineItem *item) noexcept;
// A channel by name, through the evaluator or the setup action; `fallback` when the item has no
// such channel.
double read_number(CineItem *item, CineEval *eval, const char *channel, double fallback) noexcept;
// A text channel through the action (null: the default); "" when absent.
const char *read_text(CineItem *item, CineAction *action, const char *channel) noexcept;

// The scene's "shadeLoc" graph, or null.
LinkGraph *shade_graph(const CineItem *item) noexcept;

}  // namespace vx::shade
