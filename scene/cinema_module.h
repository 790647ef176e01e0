// The scene module as a whole: its reference-counted start and stop, and the state that every
// part of it shares.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

struct Port;
struct Cinema;
struct CineItem;
struct HostServer;

namespace vx::cine {

// The first start brings the module's services up in order; a failure takes back what was
// started. The balancing stop takes them down in reverse order.
void start_module();
void stop_module() noexcept;
// When the next stop_module() is the one that stops the module, destroys every scene left,
// while the modules above (actions) can still drop what they keep for them; call it first
// in the module's stop. Otherwise does nothing.
void destroy_scenes_before_stop() noexcept;

// The global port "cinema-db" while the module runs; null otherwise.
Port *database_port() noexcept;

// A graph that every new scene gets.
struct GraphDefinition {
    std::string name;
    std::uint32_t kind;
};

inline constexpr const char *kUntitled = "untitled";

// What the module keeps about scenes while it runs.
struct SceneModule {
    std::vector<Cinema *> scenes;  // the scene list
    std::vector<Cinema *> alive;   // every scene made and not destroyed
    std::uint64_t next_scene_id = 1;
    std::vector<GraphDefinition> graphs;
    std::unordered_set<const CineItem *> hidden;
    std::string untitled = kUntitled;
    int index_style = 0;
    bool names_locked = false;  // unique names survive an index style change
    HostServer *saver = nullptr;
    HostServer *loader = nullptr;
};

// Raises rc::refused while the module is stopped.
SceneModule &scenes();
bool module_started() noexcept;
// Whether the caller runs on the main thread: the thread whose start brought the module up
// (hosts start and stop it there). False while the module is stopped.
bool on_main_thread() noexcept;

}  // namespace vx::cine
