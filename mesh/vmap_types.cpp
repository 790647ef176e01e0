// The vertex map type registry: a process-wide list of types in the order they were defined.
//
// Records are never freed, so that maps, entries and undo records may point at them for as
// long as the process runs; a module that defines its types at every start finds them there.
// The table has a fixed number of slots so that readers need no lock: a record is complete
// before the count that publishes it is raised.
#include <atomic>
#include <cstring>
#include <mutex>

#include "foundation/failure.h"
#include "mesh/vmap.h"

namespace vx::mesh {

namespace {

constexpr unsigned kMaxTypes = 256;

struct Registry {
    std::mutex lock;  // definitions
    std::atomic<unsigned> count{0};
    VMapTypeRecord *types[kMaxTypes] = {};
};

Registry &registry() {
    static Registry state;
    return state;
}

struct BuiltIn {
    char code[5];
    const char *name;
    std::uint32_t dimension;
    std::uint32_t flags;
};

// The mesh module's own types, in the order every host expects them.
constexpr BuiltIn kBuiltIns[] = {
    {"PICK", "pick", 0, 0},         {"WGHT", "weight", 1, 0x4},    {"EPCK", "edgepick", 0, 0x3},
    {"SUBV", "subvweight", 1, 0xA}, {"TXUV", "texture", 2, 0},     {"OPOS", "position", 3, 0x9},
    {"MORF", "morph", 3, 0x5},      {"POSE", "poseShape", 3, 0x5}, {"SPOT", "spot", 3, 0x1},
    {"NORM", "normal", 3, 0xC},     {"RGB ", "rgb", 3, 0x4},       {"RGBA", "rgba", 4, 0x4},
};

std::uint32_t code_of(const char (&text)[5]) noexcept {
    return VX_CODE4(text[0], text[1], text[2], text[3]);
}

}  // namespace

void vmap_types_startup() {
    for (const BuiltIn &type : kBuiltIns) {
        if (!vmap_define_type(code_of(type.code), type.name, type.dimension, type.flags)) {
            fail(rc::failed, "a built-in vertex map type is taken");
        }
    }
}

bool vmap_define_type(std::uint32_t code, const char *name, std::uint32_t dimension,
                      std::uint32_t flags) {
    if (name == nullptr || name[0] == '\0' || code == 0) return false;
    // Entries hold the dimension's floats after their fixed fields; keep blocks sensible.
    if (dimension > 4096) return false;
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    const unsigned count = r.count.load(std::memory_order_relaxed);
    // A definition the registry already holds word for word is a module starting again;
    // anything else is appended, and lookups by code or name answer the first definition.
    for (unsigned i = 0; i < count; ++i) {
        const VMapTypeRecord *type = r.types[i];
        if (type->code == code && std::strcmp(type->name, name) == 0 &&
            type->dimension == dimension && type->flags == flags) {
            return true;
        }
    }
    if (count == kMaxTypes) return false;

    const std::size_t length = std::strlen(name) + 1;
    auto *record = new VMapTypeRecord{code, nullptr, dimension, flags, nullptr};
    OnFailure free_record([&] {
        delete[] record->name;
        delete record;
    });
    record->name = new char[length];
    std::memcpy(record->name, name, length);
    record->pool = new BlockPoolMT(sizeof(VMapEntry) + dimension * sizeof(float));
    free_record.disarm();
    r.types[count] = record;
    r.count.store(count + 1, std::memory_order_release);
    return true;
}

const VMapTypeRecord *vmap_type(std::uint32_t code) noexcept {
    Registry &r = registry();
    const unsigned count = r.count.load(std::memory_order_acquire);
    for (unsigned i = 0; i < count; ++i) {
        if (r.types[i]->code == code) return r.types[i];
    }
    return nullptr;
}

const VMapTypeRecord *vmap_type_named(const char *name) noexcept {
    if (name == nullptr) return nullptr;
    Registry &r = registry();
    const unsigned count = r.count.load(std::memory_order_acquire);
    for (unsigned i = 0; i < count; ++i) {
        if (std::strcmp(r.types[i]->name, name) == 0) return r.types[i];
    }
    return nullptr;
}

unsigned vmap_type_count() noexcept {
    return registry().count.load(std::memory_order_acquire);
}

const VMapTypeRecord *vmap_type_at(unsigned index) noexcept {
    Registry &r = registry();
    return index < r.count.load(std::memory_order_acquire) ? r.types[index] : nullptr;
}

}  // namespace vx::mesh
