// The shading-vector module's start and stop, its component classes, and the packet registry.
#include "shading/svec_module.h"

#include <vexor/sys/component.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/registry.h"
#include "shading/vtype.h"

namespace vx::svec {
namespace {

struct Module {
    unsigned starts = 0;
    std::deque<std::unique_ptr<PacketDef>> defs;
    std::unordered_map<std::string, PacketDef *> defs_by_name;
    std::unordered_map<std::string, std::unique_ptr<Category>> categories;
    PacketDef *last = nullptr;
};

Module &module() noexcept {
    static Module m;
    return m;
}

std::atomic<bool> counting{false};
std::atomic<unsigned> allocations{0};

// The object a "vectorPacket" server makes: a view of the packet's definition.
struct PacketObject {
    PacketDef *def;
};

const XObjectMethods kPlainMethods = XOBJECT_METHODS_INIT;

// Every class the module uses, with the interface it answers to. The wrappers are the objects
// of texture and packet effects; "vectorType", "vec.stack" and "vec.list" are the classes a
// host may use to hold types and vectors as objects.
struct ClassDef {
    const char *name;
    std::size_t size;
    const char *guid;
};
constexpr ClassDef kClasses[] = {
    {"vecPacket", sizeof(PacketObject), "{CA13032E-3855-4744-B77A-59530EC3E260}"},
    {"vectorType", sizeof(void *), "{F74C2B0E-4BC5-4E76-8F7D-1D64DA86FD28}"},
    {"vec.stack", sizeof(void *), "{7E8A37CE-618B-4AE4-A429-01317AC40EB0}"},
    {"vec.list", sizeof(void *), "{791B288F-DD69-11D7-857A-000A9593D716}"},
    {"txtrFX.wrapper", 4 * sizeof(void *), "{7915D133-4272-498B-A691-C98118F40FD5}"},
    {"packFX.wrapper", 4 * sizeof(void *), "{F091C272-C770-42C3-B314-62EE90D34C57}"},
};

void define_classes() {
    for (const ClassDef &c : kClasses) {
        com::add_interface(com::define_class(c.name, c.size, nullptr), c.guid, &kPlainMethods);
    }
}

void *make_packet_object(void *data) {
    void *object = com::allocate(*com::find_class("vecPacket"));
    static_cast<PacketObject *>(object)->def = static_cast<PacketDef *>(data);
    return object;
}

// Forgets every category, type, packet and server of the module.
void drop_all(Module &m) noexcept {
    m.categories.clear();
    for (const std::unique_ptr<PacketDef> &def : m.defs) {
        if (def->server != nullptr) host::remove(def->server);
    }
    m.defs.clear();
    m.defs_by_name.clear();
    m.last = nullptr;
}

PacketDef &adopt(Module &m, std::unique_ptr<PacketDef> def) {
    m.defs.push_back(nullptr);
    OnFailure undo_slot([&] { m.defs.pop_back(); });
    m.defs_by_name.emplace(def->name, def.get());
    m.defs.back() = std::move(def);
    return *m.defs.back();
}

std::uint32_t append_locked(Category &c, const char *name, std::uint64_t item, PacketDef *def) {
    const auto index = static_cast<std::uint32_t>(c.entries.size());
    if (index >= kNone - 1) fail(rc::refused, "too many packets in the category");
    c.entries.push_back({name, item, def, index});
    OnFailure undo_entry([&] { c.entries.pop_back(); });
    c.by_name.emplace(name, index);
    return index;
}

// The size a host's own packet server declares with its "vpacket.size" tag.
std::uint32_t declared_size(const HostServer *server) noexcept {
    const char *text = host::tag(server, "vpacket.size");
    if (text == nullptr) return 0;
    char *end = nullptr;
    const unsigned long size = std::strtoul(text, &end, 10);
    return size > 0xFFFFFFu ? 0 : static_cast<std::uint32_t>(size);
}

}  // namespace

Category::Category(std::string n) : name(std::move(n)), pool(std::make_unique<TypePool>(this)) {}
Category::~Category() = default;

std::recursive_mutex &module_lock() noexcept {
    static std::recursive_mutex lock;
    return lock;
}

bool started() noexcept {
    return module().starts > 0;
}

void require_started() {
    if (!started()) fail(rc::refused, "the shading-vector module is not started");
}

bool lists_word(const char *list, const char *word) noexcept {
    if (list == nullptr || word == nullptr) return false;
    const std::string_view w(word);
    std::string_view rest(list);
    while (!rest.empty()) {
        const std::size_t start = rest.find_first_not_of(' ');
        if (start == std::string_view::npos) break;
        rest.remove_prefix(start);
        const std::size_t end = std::min(rest.find(' '), rest.size());
        if (rest.substr(0, end) == w) return true;
        rest.remove_prefix(end);
    }
    return false;
}

Category *find_category_locked(const char *name) noexcept {
    if (name == nullptr) return nullptr;
    Module &m = module();
    auto found = m.categories.find(name);
    return found == m.categories.end() ? nullptr : found->second.get();
}

Category &category_locked(const char *name) {
    require_started();
    if (name == nullptr || *name == '\0') fail(rc::bad_argument, "a category needs a name");
    if (Category *c = find_category_locked(name)) return *c;
    auto made = std::make_unique<Category>(name);
    Category &c = *made;
    module().categories.emplace(name, std::move(made));
    return c;
}

PacketDef &define_packet_locked(const char *categories, const char *name, const VPacketOps *ops,
                                std::uint32_t size) {
    require_started();
    if (categories == nullptr || *categories == '\0' || name == nullptr || *name == '\0') {
        fail(rc::bad_argument, "a packet needs a category and a name");
    }
    Module &m = module();
    if (m.defs_by_name.count(name) != 0) fail(rc::refused, "the packet is defined already");
    // The server first: should anything after it fail, removing it undoes the definition.
    auto def = std::make_unique<PacketDef>();
    def->name = name;
    def->ops = ops;
    def->size = size;
    HostServer *server = host::add_built_in(kPacketClass, name, make_packet_object, def.get());
    OnFailure drop_server([&] { host::remove(server); });
    host::add_tag(server, kCategoryTag, categories);
    // Every category named learns the packet; a failure takes back what was learned.
    std::string words(categories);
    std::vector<Category *> learned;
    std::vector<std::string> made;  // categories this definition brought into being
    OnFailure unlearn([&] {
        for (Category *c : learned) {
            const auto index = static_cast<std::uint32_t>(c->entries.size() - 1);
            auto [first, last] = c->by_name.equal_range(name);
            for (auto hit = first; hit != last; ++hit) {
                if (hit->second == index) {
                    c->by_name.erase(hit);
                    break;
                }
            }
            c->entries.pop_back();
        }
        for (const std::string &word : made) m.categories.erase(word);
    });
    for (char *save = nullptr, *word = strtok_r(words.data(), " ", &save); word != nullptr;
         word = strtok_r(nullptr, " ", &save)) {
        made.reserve(made.size() + 1);
        if (find_category_locked(word) == nullptr) {
            std::string fresh(word);
            category_locked(word);
            made.push_back(std::move(fresh));
        }
        Category &c = category_locked(word);
        if (!c.entries.empty() && c.entries.back().def == def.get()) continue;  // listed twice
        learned.reserve(learned.size() + 1);
        append_locked(c, name, 0, def.get());
        learned.push_back(&c);
    }
    def->server = server;
    PacketDef &adopted = adopt(m, std::move(def));
    m.last = &adopted;
    return adopted;
}

PacketDef *last_defined() noexcept {
    return module().last;
}

std::uint32_t resolve_locked(Category &c, const char *name, std::uint64_t item, bool qualified) {
    if (name == nullptr) return kNone;
    std::uint32_t best = kNone;
    auto [first, last] = c.by_name.equal_range(name);
    for (auto hit = first; hit != last; ++hit) {
        const CategoryEntry &entry = c.entries[hit->second];
        if ((!qualified || item == 0 || item == entry.item) && hit->second < best) {
            best = hit->second;
        }
    }
    if (best != kNone) return best;

    HostServer *server = host::lookup(kPacketClass, name);
    if (server == nullptr) {
        log::named(kLog, "Could not lookup packet: %s !\n", name);
        return kNone;
    }
    const char *categories = host::tag(server, kCategoryTag);
    if (categories == nullptr) {
        log::named(kLog, "Packet server has wrong category: %s !\n", name);
        return kNone;
    }
    if (!lists_word(categories, c.name.c_str())) return kNone;
    Module &m = module();
    PacketDef *def = nullptr;
    if (auto known = m.defs_by_name.find(name); known != m.defs_by_name.end()) {
        def = known->second;
    } else {
        // A host's own server: the module keeps a definition of it from now on.
        auto made = std::make_unique<PacketDef>();
        made->name = name;
        made->size = declared_size(server);
        def = &adopt(m, std::move(made));
    }
    return append_locked(c, name, item, def);
}

void count_allocation() noexcept {
    if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1);
}

void set_counting(bool on) noexcept {
    counting.store(on);
    allocations.store(0);
}

unsigned allocation_count() noexcept {
    return allocations.load();
}

}  // namespace vx::svec

namespace vx::svec {

void start_module() {
    std::lock_guard hold(module_lock());
    Module &m = module();
    if (m.starts > 0) {
        ++m.starts;
        return;
    }
    host::start();
    OnFailure stop_host([] { host::stop(); });
    define_classes();
    m.starts = 1;
    OnFailure unstart([&] {
        stop_effects();
        drop_all(m);
        m.starts = 0;
    });
    define_builtin_packets_locked();
    start_effects();
}

void stop_module() noexcept {
    std::lock_guard hold(module_lock());
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    stop_effects();
    drop_all(m);
    host::stop();
}

}  // namespace vx::svec
