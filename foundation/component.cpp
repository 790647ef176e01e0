#include "foundation/component.h"

#include <vexor/sys/component.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>

#include "foundation/log.h"
#include "foundation/memory.h"

namespace vx::com {

namespace {

inline constexpr std::size_t kGuidLength = 38;  // {8-4-4-4-12}

struct Interface {
    char guid[kGuidLength + 1];  // upper case
    const void *table;
    std::atomic<Interface *> next{nullptr};
};

}  // namespace

struct Alias {
    char name[kClassNameMax + 1];
    char guid[kGuidLength + 1];
    std::atomic<Alias *> next{nullptr};
};

// Appended under the class registry's mutex, read without it; never freed.
std::atomic<Alias *> first_alias{nullptr};

class Class {
  public:
    char name[kClassNameMax + 1] = {};
    std::size_t size = 0;
    DestroyFn destroy = nullptr;
    // Appended under the registry's mutex; read without it.
    std::atomic<Interface *> first{nullptr};
    Interface *last = nullptr;
    std::atomic<std::size_t> count{0};
    Class *next_class = nullptr;
};

namespace {

struct Registry {
    std::mutex mutex;
    Class *first = nullptr;
};

// Never destroyed: objects may still be released by other static destructors at exit.
Registry &registry() {
    static Registry *instance = new Registry;
    return *instance;
}

Class *find_locked(Registry &r, const char *name) noexcept {
    for (Class *c = r.first; c != nullptr; c = c->next_class) {
        if (std::strcmp(c->name, name) == 0) return c;
    }
    return nullptr;
}

// The block of an object: the header, padded so that the instance data keeps the strictest
// alignment, then the instance data.
struct alignas(std::max_align_t) Header {
    std::uint32_t magic;
    std::atomic<std::uint32_t> refs;
    const Class *cls;
};
static_assert(sizeof(Header) % alignof(std::max_align_t) == 0);

inline constexpr std::uint32_t kLiveMagic = 0x584F424Au;

// The header of a live object, or null for null or for what is plainly not one.
Header *header_of(const void *object) noexcept {
    if (object == nullptr) return nullptr;
    auto *bytes = static_cast<unsigned char *>(const_cast<void *>(object));
    auto *header = reinterpret_cast<Header *>(bytes - sizeof(Header));
    return header->magic == kLiveMagic ? header : nullptr;
}

void *instance_of(Header *header) noexcept {
    return reinterpret_cast<unsigned char *>(header) + sizeof(Header);
}

char upper(char c) noexcept {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool is_hex(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Compares a well-formed GUID text with a stored (upper-case) one, without regard to case.
bool same_guid(const char *stored, const char *text) noexcept {
    for (std::size_t i = 0; i < kGuidLength; ++i) {
        if (upper(text[i]) != stored[i]) return false;
    }
    return true;
}

const Interface *find_in(const Class &cls, const char *guid) noexcept {
    for (const Interface *i = cls.first.load(std::memory_order_acquire); i != nullptr;
         i = i->next.load(std::memory_order_acquire)) {
        if (same_guid(i->guid, guid)) return i;
    }
    return nullptr;
}

}  // namespace

bool valid_guid(const char *guid) noexcept {
    if (guid == nullptr) return false;
    for (std::size_t i = 0; i < kGuidLength; ++i) {
        const char c = guid[i];
        bool ok = false;
        switch (i) {
            case 0:
                ok = c == '{';
                break;
            case 9:
            case 14:
            case 19:
            case 24:
                ok = c == '-';
                break;
            case kGuidLength - 1:
                ok = c == '}';
                break;
            default:
                ok = is_hex(c);
                break;
        }
        if (!ok) return false;  // also stops at the terminating null of a short text
    }
    return guid[kGuidLength] == '\0';
}

Class &define_class(const char *name, std::size_t size, DestroyFn destroy) {
    if (name == nullptr || name[0] == '\0') fail(rc::bad_argument, "a class needs a name");
    if (std::strlen(name) > kClassNameMax) fail(rc::bad_argument, "the class name is too long");
    if (size > SIZE_MAX / 2) fail(rc::bad_argument, "the instance size is too large");
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (Class *existing = find_locked(r, name)) {
        if (existing->size != size || existing->destroy != destroy) {
            fail(rc::refused, "the class name is taken by another definition");
        }
        return *existing;
    }
    auto *cls = new Class;
    std::strcpy(cls->name, name);
    cls->size = size;
    cls->destroy = destroy;
    cls->next_class = r.first;
    r.first = cls;
    return *cls;
}

Class *find_class(const char *name) noexcept {
    if (name == nullptr) return nullptr;
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return find_locked(r, name);
}

const char *name_of(const Class &cls) noexcept {
    return cls.name;
}

std::size_t interface_count(const Class &cls) noexcept {
    return cls.count.load(std::memory_order_acquire);
}

void add_interface(Class &cls, const char *guid, const void *table) {
    if (!valid_guid(guid)) fail(rc::bad_argument, "malformed GUID");
    const auto *common = static_cast<const XObjectMethods *>(table);
    if (common == nullptr || common->AddRef == nullptr || common->Release == nullptr ||
        common->QueryInterface == nullptr) {
        fail(rc::bad_argument, "an interface table starts with its common entries, all set");
    }
    std::lock_guard lock(registry().mutex);
    if (const Interface *existing = find_in(cls, guid)) {
        if (existing->table != table) fail(rc::refused, "the GUID is taken by another table");
        return;
    }
    auto *added = new Interface;
    for (std::size_t i = 0; i < kGuidLength; ++i) added->guid[i] = upper(guid[i]);
    added->guid[kGuidLength] = '\0';
    added->table = table;
    // Published complete: a reader sees either the old end of the list or the whole entry.
    (cls.last != nullptr ? cls.last->next : cls.first).store(added, std::memory_order_release);
    cls.last = added;
    cls.count.fetch_add(1, std::memory_order_release);
}

void *allocate(Class &cls) {
    void *block = StdAlloc(sizeof(Header) + cls.size);
    auto *header = new (block) Header{kLiveMagic, {1}, &cls};
    return instance_of(header);
}

std::uint32_t add_ref(void *object) noexcept {
    Header *header = header_of(object);
    if (header == nullptr) return 0;
    return header->refs.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::uint32_t release(void *object) noexcept {
    Header *header = header_of(object);
    if (header == nullptr) return 0;
    std::uint32_t count = header->refs.load(std::memory_order_relaxed);
    do {
        if (count == 0) {
            VX_FAIL_LINE("released an object that has no reference:", header->cls->name);
            return 0;
        }
    } while (!header->refs.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel,
                                                 std::memory_order_relaxed));
    if (count > 1) return count - 1;
    const Class *cls = header->cls;
    if (cls->destroy != nullptr) cls->destroy(object);
    header->magic = 0;
    header->~Header();
    FreeHeap(header, sizeof(Header) + cls->size);
    return 0;
}

std::uint32_t ref_count(const void *object) noexcept {
    const Header *header = header_of(object);
    return header != nullptr ? header->refs.load(std::memory_order_acquire) : 0;
}

void add_guid_alias(const char *name, const char *guid) {
    if (name == nullptr || *name == '\0' || std::strlen(name) > kClassNameMax)
        fail(rc::bad_argument, "GUID alias: bad name");
    if (!valid_guid(guid)) fail(rc::bad_argument, "GUID alias: malformed GUID");
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    for (Alias *a = first_alias.load(std::memory_order_acquire); a != nullptr;
         a = a->next.load(std::memory_order_acquire)) {
        if (std::strcmp(a->name, name) == 0) {
            if (same_guid(a->guid, guid)) return;
            fail(rc::refused, "GUID alias: the name stands for another GUID");
        }
    }
    auto *alias = new Alias;
    std::strcpy(alias->name, name);
    for (std::size_t i = 0; i < kGuidLength; ++i) alias->guid[i] = upper(guid[i]);
    alias->guid[kGuidLength] = '\0';
    // Published at the head: readers see either the old list or the whole new entry.
    alias->next.store(first_alias.load(std::memory_order_relaxed), std::memory_order_relaxed);
    first_alias.store(alias, std::memory_order_release);
}

const char *resolve_guid(const char *text) noexcept {
    if (text == nullptr || *text == '{') return text;
    for (const Alias *a = first_alias.load(std::memory_order_acquire); a != nullptr;
         a = a->next.load(std::memory_order_acquire)) {
        if (std::strcmp(a->name, text) == 0) return a->guid;
    }
    return text;
}

const void *find_interface(const void *object, const char *guid) noexcept {
    guid = resolve_guid(guid);
    const Header *header = header_of(object);
    if (header == nullptr || !valid_guid(guid)) return nullptr;
    const Interface *found = find_in(*header->cls, guid);
    return found != nullptr ? found->table : nullptr;
}

ResultCode query_interface(void *object, const char *guid, void **out) noexcept {
    if (out == nullptr) return rc::bad_argument;
    *out = nullptr;
    guid = resolve_guid(guid);
    Header *header = header_of(object);
    if (header == nullptr || !valid_guid(guid)) return rc::bad_argument;
    const Interface *found = find_in(*header->cls, guid);
    if (found == nullptr) return rc::not_found;
    header->refs.fetch_add(1, std::memory_order_relaxed);
    *out = const_cast<void *>(found->table);
    return rc::ok;
}

const Class *class_of(const void *object) noexcept {
    const Header *header = header_of(object);
    return header != nullptr ? header->cls : nullptr;
}

const char *class_name(const void *object) noexcept {
    const Class *cls = class_of(object);
    return cls != nullptr ? cls->name : nullptr;
}

}  // namespace vx::com
