// Component objects: reference-counted objects whose interfaces are C function tables looked
// up by GUID text (see include/vexor/sys/component.h for the C view).
//
// Classes live in a process-wide registry for the life of the process; defining one and adding
// interfaces are guarded by the registry's mutex. Queries read a class's interfaces without a
// lock: interfaces are only ever appended, each published complete.
//
// An object is one block: a hidden header (reference count, class) followed by the class's
// instance data. The handle that callers hold is the address of the instance data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "foundation/failure.h"

namespace vx::com {

using DestroyFn = void (*)(void *object);

class Class;  // a defined class; lives as long as the process

inline constexpr std::size_t kClassNameMax = 63;

// Defines a class, or returns the one of that name if it was defined with the same size and
// destroy function. Raises rc::bad_argument for a null, empty or over-long name, rc::refused
// when the name is taken by another definition, std::bad_alloc.
Class &define_class(const char *name, std::size_t size, DestroyFn destroy);
// The class of that name, or null.
Class *find_class(const char *name) noexcept;
const char *name_of(const Class &cls) noexcept;
// The number of interfaces a class has.
std::size_t interface_count(const Class &cls) noexcept;

// Whether the text is a GUID in the braced form {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
bool valid_guid(const char *guid) noexcept;

// GUID aliases: short names ("package", "scene") that stand for a GUID wherever an interface is
// named. Aliases live as long as the process; defining one again with the same GUID does
// nothing. Raises rc::bad_argument for an empty or over-long name or a malformed GUID,
// rc::refused when the name stands for another GUID, std::bad_alloc.
void add_guid_alias(const char *name, const char *guid);
// The GUID an alias stands for, or the text itself when it is no alias. Lock-free.
const char *resolve_guid(const char *text) noexcept;

// Adds an interface. The table starts with XObjectMethods, all entries set, and outlives the
// class (in practice: a static table). Adding a GUID again with the same table does nothing.
// Raises rc::bad_argument for a malformed GUID or common entries not set, rc::refused when
// the GUID is taken by another table, std::bad_alloc.
void add_interface(Class &cls, const char *guid, const void *table);

// A new object with one reference and zero-filled instance data; raises std::bad_alloc.
void *allocate(Class &cls);

std::uint32_t add_ref(void *object) noexcept;
// Drops a reference; the last one runs the class's destroy function and frees the object.
std::uint32_t release(void *object) noexcept;
std::uint32_t ref_count(const void *object) noexcept;

// The interface's table, or null; no reference is added. Malformed GUIDs find nothing.
const void *find_interface(const void *object, const char *guid) noexcept;
// The C query: the table into *out with one more reference, or a failure code.
ResultCode query_interface(void *object, const char *guid, void **out) noexcept;

const Class *class_of(const void *object) noexcept;
const char *class_name(const void *object) noexcept;

// One reference held for a scope: released on leaving it unless handed on with take().
class Ref {
  public:
    explicit Ref(void *object = nullptr) noexcept : object_(object) {}
    ~Ref() {
        if (object_ != nullptr) release(object_);
    }
    Ref(Ref &&other) noexcept : object_(other.take()) {}
    Ref &operator=(Ref &&other) noexcept {
        if (this != &other) {
            if (object_ != nullptr) release(object_);
            object_ = other.take();
        }
        return *this;
    }
    Ref(const Ref &) = delete;
    Ref &operator=(const Ref &) = delete;

    void *get() const noexcept { return object_; }
    void *take() noexcept { return std::exchange(object_, nullptr); }

  private:
    void *object_;
};

}  // namespace vx::com
