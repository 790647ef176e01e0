// The shading-vector module: its start and stop, the lock, and the packet registry.
//
// A packet definition is owned by the module from VPacketDefine (or from the first look-up of
// a host's own "vectorPacket" server) until the last SVecShutdown. A category numbers the
// packets it knows in the order it learns them; its entries never move, so vector types and
// vectors keep pointers to them without holding the lock.
//
// The module lock guards the category tables, the type pools, the effect list and the adding
// of packets. Functions named *_locked expect it held.
#pragma once

#include <vexor/sys/vpacket.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

struct HostServer;

namespace vx::svec {

inline constexpr std::uint32_t kNone = 0xFFFFFFFFu;
inline constexpr const char *kLog = "sampleVector";
inline constexpr const char *kPacketClass = "vectorPacket";
inline constexpr const char *kCategoryTag = "vpacket.category";

struct PacketDef {
    std::string name;
    const VPacketOps *ops = nullptr;
    void *object[3] = {};
    std::uint32_t size = 0;  // declared; 0 is one object pointer
    HostServer *server = nullptr;

    // The bytes the packet takes in a row.
    std::uint32_t slot_size() const noexcept { return size == 0 ? 8 : size; }
    bool holds_object() const noexcept { return size == 0; }
};

struct CategoryEntry {
    std::string name;
    std::uint64_t item = 0;
    PacketDef *def = nullptr;
    std::uint32_t index = 0;
};

class TypePool;

struct Category {
    explicit Category(std::string n);
    ~Category();
    std::string name;
    std::unordered_multimap<std::string, std::uint32_t> by_name;
    std::deque<CategoryEntry> entries;
    std::unique_ptr<TypePool> pool;
};

// The module lock; recursive so that an effect definition may allocate a type under it.
std::recursive_mutex &module_lock() noexcept;

// SVecStartup and SVecShutdown.
void start_module();
void stop_module() noexcept;

bool started() noexcept;
// Raises rc::refused when the module is not started.
void require_started();

// The category of that name, made when unknown (lock held).
Category &category_locked(const char *name);
// The category, or null (lock held).
Category *find_category_locked(const char *name) noexcept;

// Registers a packet and adds it to each category word of `categories` (lock held). Raises
// rc::bad_argument for empty names, rc::refused for a name already defined, std::bad_alloc.
PacketDef &define_packet_locked(const char *categories, const char *name, const VPacketOps *ops,
                                std::uint32_t size);
PacketDef *last_defined() noexcept;

// The packet's index in the category, learning it from the registry when the category does
// not know it; kNone (after logging, for the two cases that log) when there is no such
// packet. `qualified` looks for an entry of that item (item 0 matches any entry).
std::uint32_t resolve_locked(Category &category, const char *name, std::uint64_t item,
                             bool qualified);

// Counting of type allocations.
void count_allocation() noexcept;
void set_counting(bool on) noexcept;
unsigned allocation_count() noexcept;

// Whether a blank-separated word list holds the word.
bool lists_word(const char *list, const char *word) noexcept;

// The effects' part of start and stop (texture_effect.cpp).
void start_effects();
void stop_effects() noexcept;
// The built-in packets (vpacket_builtin.cpp).
void define_builtin_packets_locked();

}  // namespace vx::svec
