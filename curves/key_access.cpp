// The key access object. Its methods test their preconditions first and return a failure code
// without touching the envelope; the edits then run under vx::latch, so a failure inside one
// comes back as its code with the envelope as it was.
#include "curves/key_access.h"

#include <cmath>
#include <new>

#include "curves/env_edits.h"
#include "foundation/guard.h"
#include "foundation/undo.h"

namespace vx::env {

namespace {

// ---- Keeping the current key valid ----

void hear(void *client, void *, std::uint32_t code, void *data) {
    auto *self = static_cast<KeyAccess *>(client);
    const auto *note = static_cast<const EnvNote *>(data);
    // A port may serve several envelopes: only this envelope's removals matter.
    if (code == ENV_NOTE_REMOVE && note != nullptr && note->envelope == self->env) {
        self->key = nullptr;
    }
}

int wants(void *, std::uint32_t code) {
    return code == ENV_NOTE_REMOVE ? 1 : 0;
}

void stop_listening(KeyAccess &self) noexcept {
    if (self.attachment != 0) vx::PortDetach(self.port, self.attachment);
    self.port = nullptr;
    self.attachment = 0;
}

// Listens on the port the envelope has now. A failed attach leaves the object deaf until the
// next call tries again; has_key() still catches removals in between.
void follow_port(KeyAccess &self) noexcept {
    Port *port = self.env->port;
    if (port == self.port) return;
    stop_listening(self);
    if (port == nullptr) return;
    try {
        self.attachment = vx::PortAttach(port, hear, &self, wants);
        self.port = port;
    } catch (...) {
        self.attachment = 0;
    }
}

void set_key(KeyAccess &self, EnvKey *key) noexcept {
    self.key = key;
    self.stamp = self.env->edits;
}

// Whether there is a current key. Removals no note told of (no port) show as a change of the
// envelope's edit count: the key is then looked for in the list by address, never read.
bool has_key(KeyAccess &self) noexcept {
    if (self.key == nullptr) return false;
    if (self.stamp == self.env->edits) return true;
    for (EnvKey *k = first_key(*self.env); k != nullptr; k = next_key(k)) {
        if (k == self.key) {
            self.stamp = self.env->edits;
            return true;
        }
    }
    self.key = nullptr;
    return false;
}

// The object behind a method's first argument, listening on its envelope's port; null for a
// null argument.
KeyAccess *open(void *obj) noexcept {
    auto *self = static_cast<KeyAccess *>(obj);
    if (self != nullptr && self->env != nullptr) follow_port(*self);
    return self;
}

// The precondition of methods on the current key.
ResultCode need_key(KeyAccess &self) noexcept {
    return self.env != nullptr && has_key(self) ? rc::ok : rc::not_found;
}

// ---- Sides ----

bool shows_outgoing(const EnvKey *key) noexcept {
    return (key->flags & (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1)) ==
           (ENV_BREAK_VALUE | ENV_ACTIVE_SIDE1);
}

// The envelope's side (0 incoming, 1 outgoing) that an interface side names.
int side_of(const EnvKey *key, int side) noexcept {
    if (side == ENV_KEY_ACCESS_INCOMING) return 0;
    if (side == ENV_KEY_ACCESS_OUTGOING) return 1;
    return shows_outgoing(key) ? 1 : 0;
}

// The side record read for an interface side: the outgoing side of a key that is not broken
// is its incoming side.
const EnvKeySide &read_side(const EnvKey *key, int side) noexcept {
    return key->side[reached_side(key, side_of(key, side))];
}

// ---- Moving ----

ResultCode move_to(KeyAccess &self, EnvKey *key) noexcept {
    if (key == nullptr) return rc::not_found;
    set_key(self, key);
    return rc::ok;
}

unsigned int first(void *obj) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (self->env == nullptr) return rc::not_found;
    return move_to(*self, first_key(*self->env));
}

unsigned int last(void *obj) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (self->env == nullptr) return rc::not_found;
    return move_to(*self, last_key(*self->env));
}

unsigned int next(void *obj) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (ResultCode code = need_key(*self)) return code;
    return move_to(*self, next_key(self->key));
}

unsigned int previous(void *obj) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (ResultCode code = need_key(*self)) return code;
    return move_to(*self, prev_key(self->key));
}

template <EnvKey *(*lookup)(Envelope &, double) noexcept>
unsigned int find_by(void *obj, double time) {
    KeyAccess *self = open(obj);
    if (self == nullptr || std::isnan(time)) return rc::bad_argument;
    if (self->env == nullptr) return rc::not_found;
    return move_to(*self, lookup(*self->env, time));
}

unsigned int count(void *obj, unsigned int *n) {
    KeyAccess *self = open(obj);
    if (self == nullptr || n == nullptr) return rc::bad_argument;
    *n = self->env != nullptr ? static_cast<unsigned int>(key_count(*self->env)) : 0u;
    return rc::ok;
}

// ---- Reading ----

inline constexpr std::uint32_t kAnyType = 0xFFFFFFFF;

// The precondition of methods that take or give a value of one type.
ResultCode need_type(const KeyAccess &self, std::uint32_t type) noexcept {
    if (type == kAnyType || self.env == nullptr) return rc::ok;
    return self.type == type ? rc::ok : rc::type_mismatch;
}

// Reads of the current key: `read` gets the key once the preconditions hold.
template <class Out, class Read>
unsigned int read_key(void *obj, Out *out, Read read, std::uint32_t type = kAnyType) {
    KeyAccess *self = open(obj);
    if (self == nullptr || out == nullptr) return rc::bad_argument;
    if (ResultCode code = need_type(*self, type)) return code;
    if (ResultCode code = need_key(*self)) return code;
    *out = read(*self->key);
    return rc::ok;
}

unsigned int time_of(void *obj, double *time) {
    return read_key(obj, time, [](const EnvKey &k) { return k.time; });
}

unsigned int value(void *obj, int side, double *out) {
    return read_key(
        obj, out, [side](const EnvKey &k) { return read_side(&k, side).value.f; }, kTypeFloat);
}

unsigned int value_int(void *obj, int side, int *out) {
    return read_key(
        obj, out, [side](const EnvKey &k) { return read_side(&k, side).value.i; }, kTypeInt);
}

unsigned int slope(void *obj, int side, double *out) {
    return read_key(obj, out, [side](const EnvKey &k) { return read_side(&k, side).slope; });
}

unsigned int slope_type(void *obj, int side, unsigned int *out) {
    return read_key(obj, out,
                    [side](const EnvKey &k) { return read_side(&k, side).flags & kSlopeTypeMask; });
}

unsigned int weight(void *obj, int side, double *out) {
    return read_key(obj, out, [side](const EnvKey &k) {
        return weight_of(&k, reached_side(&k, side_of(&k, side)));
    });
}

unsigned int weight_type(void *obj, int side, unsigned int *out) {
    return read_key(obj, out, [side](const EnvKey &k) {
        return (read_side(&k, side).flags & ENV_WEIGHT_MANUAL) != 0 ? 1u : 0u;
    });
}

unsigned int breaks(void *obj, unsigned int *out) {
    return read_key(obj, out, [](const EnvKey &k) {
        return k.flags & (ENV_BREAK_VALUE | ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT);
    });
}

unsigned int active_side(void *obj, int *out) {
    return read_key(obj, out, [](const EnvKey &k) {
        return shows_outgoing(&k) ? ENV_KEY_ACCESS_OUTGOING : ENV_KEY_ACCESS_INCOMING;
    });
}

// ---- Editing ----

// Runs an edit as one undo step under the latch. A current key that survives the edit is
// known to be in the list afterwards.
template <class Body>
ResultCode edit(KeyAccess &self, Body &&body) noexcept {
    const ResultCode code = latch([&] {
        UndoBlock step;
        body();
    });
    if (self.key != nullptr) self.stamp = self.env->edits;
    return code;
}

// Edits of the current key: `body` gets the envelope and the key once the preconditions hold.
template <class Body>
unsigned int edit_key(void *obj, Body &&body, std::uint32_t type = kAnyType) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (ResultCode code = need_type(*self, type)) return code;
    if (ResultCode code = need_key(*self)) return code;
    return edit(*self, [&] { body(*self->env, self->key); });
}

EnvValue float_value(double v) noexcept {
    EnvValue value{};
    value.f = v;
    return value;
}

EnvValue int_value(int v) noexcept {
    EnvValue value{};
    value.i = v;
    return value;
}

unsigned int set_time_of(void *obj, double time) {
    KeyAccess *self = open(obj);
    if (self == nullptr || !std::isfinite(time)) return rc::bad_argument;
    if (ResultCode code = need_key(*self)) return code;
    // A key deleted to make room drops the current key as any removal does; the moved key
    // itself is never the one removed, so it stays current.
    EnvKey *key = self->key;
    const ResultCode code = edit(*self, [&] { set_time(*self->env, key, time, 1u); });
    set_key(*self, key);
    return code;
}

// A value write: the interface side names a side, or the key's shown value.
void write_value(Envelope &env, EnvKey *key, int side, EnvValue v) {
    if (side == ENV_KEY_ACCESS_INCOMING || side == ENV_KEY_ACCESS_OUTGOING) {
        set_side_value(env, key, side_of(key, side), v);
    } else {
        set_value(env, key, v);
    }
}

unsigned int set_value_of(void *obj, int side, double v) {
    return edit_key(
        obj, [&](Envelope &env, EnvKey *key) { write_value(env, key, side, float_value(v)); },
        kTypeFloat);
}

unsigned int set_value_int(void *obj, int side, int v) {
    return edit_key(
        obj, [&](Envelope &env, EnvKey *key) { write_value(env, key, side, int_value(v)); },
        kTypeInt);
}

unsigned int set_slope_of(void *obj, int side, double v) {
    return edit_key(
        obj, [&](Envelope &env, EnvKey *key) { set_slope(env, key, side_of(key, side), v); });
}

unsigned int set_slope_type_of(void *obj, int side, unsigned int type) {
    return edit_key(obj, [&](Envelope &env, EnvKey *key) {
        set_slope_type(env, key, side_of(key, side), type);
    });
}

unsigned int set_weight_of(void *obj, int side, double v) {
    return edit_key(
        obj, [&](Envelope &env, EnvKey *key) { set_weight(env, key, side_of(key, side), v); });
}

unsigned int set_weight_type_of(void *obj, int side, unsigned int manual) {
    return edit_key(obj, [&](Envelope &env, EnvKey *key) {
        set_weight_type(env, key, side_of(key, side), manual != 0);
    });
}

bool valid_break_bit(unsigned int bit) noexcept {
    return bit == ENV_BREAK_VALUE || bit == ENV_BREAK_SLOPE || bit == ENV_BREAK_WEIGHT;
}

unsigned int break_bit(void *obj, unsigned int bit) {
    if (!valid_break_bit(bit)) return rc::bad_argument;
    return edit_key(obj, [&](Envelope &env, EnvKey *key) { break_key(env, key, bit); });
}

unsigned int unify_bit(void *obj, unsigned int bit) {
    if (!valid_break_bit(bit)) return rc::bad_argument;
    return edit_key(obj, [&](Envelope &env, EnvKey *key) { unify_key(env, key, bit); });
}

unsigned int delete_current(void *obj) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (ResultCode code = need_key(*self)) return code;
    return edit(*self, [&] {
        delete_key(*self->env, self->key);
        self->key = nullptr;  // heard already when listening; not when the envelope has no port
    });
}

template <class Value, std::uint32_t type, EnvKey *(*add)(Envelope &, double, Value)>
unsigned int add_key_of(void *obj, double time, Value v) {
    KeyAccess *self = open(obj);
    if (self == nullptr || !std::isfinite(time)) return rc::bad_argument;
    if (self->env == nullptr) return rc::not_found;
    if (ResultCode code = need_type(*self, type)) return code;
    return edit(*self, [&] { set_key(*self, add(*self->env, time, v)); });
}

// Edits of the envelope as a whole; refused without a current key.
template <class Body>
unsigned int edit_envelope(void *obj, Body &&body) {
    KeyAccess *self = open(obj);
    if (self == nullptr) return rc::bad_argument;
    if (need_key(*self) != rc::ok) return rc::refused;
    return edit(*self, [&] { body(*self); });
}

unsigned int set_pre_behavior(void *obj, unsigned int behavior) {
    return edit_envelope(obj, [&](KeyAccess &self) { set_behavior(*self.env, 0, behavior); });
}

unsigned int set_post_behavior(void *obj, unsigned int behavior) {
    return edit_envelope(obj, [&](KeyAccess &self) { set_behavior(*self.env, 1, behavior); });
}

unsigned int clear_all(void *obj) {
    return edit_envelope(obj, [](KeyAccess &self) {
        clear_keys(*self.env, true);
        self.key = nullptr;
    });
}

// ---- The class ----

void destroy(void *obj) {
    stop_listening(*static_cast<KeyAccess *>(obj));
}

const EnvKeyAccessMethods kMethods = {
    XOBJECT_METHODS_INIT,
    first,
    last,
    next,
    previous,
    find_by<get_key>,
    find_by<next_key_after>,
    find_by<prev_key_before>,
    count,
    time_of,
    value,
    value_int,
    slope,
    slope_type,
    weight,
    weight_type,
    breaks,
    active_side,
    set_time_of,
    set_value_of,
    set_value_int,
    set_slope_of,
    set_slope_type_of,
    set_weight_of,
    set_weight_type_of,
    break_bit,
    unify_bit,
    delete_current,
    add_key_of<double, kTypeFloat, add_key>,
    add_key_of<int, kTypeInt, add_key_int>,
    set_pre_behavior,
    set_post_behavior,
    clear_all,
};

}  // namespace

com::Class &key_access_class() {
    // A failed registration leaves the static uninitialised, so the next use tries again;
    // defining the class and adding its interface again are harmless.
    static com::Class &cls = []() -> com::Class & {
        com::Class &c = com::define_class(ENV_KEY_ACCESS_CLASS, sizeof(KeyAccess), destroy);
        com::add_interface(c, ENV_KEY_ACCESS_GUID, &kMethods);
        return c;
    }();
    return cls;
}

void *create_key_access(Envelope &env) {
    com::Ref object(com::allocate(key_access_class()));
    auto *self = new (object.get()) KeyAccess{&env, nullptr, env.type, nullptr, 0, 0};
    if (env.port != nullptr) {
        self->attachment = vx::PortAttach(env.port, hear, self, wants);
        self->port = env.port;
    }
    return object.take();
}

}  // namespace vx::env

extern "C" VX_API unsigned int EnvKeyAccessCreate(Envelope *env, void **out) {
    if (out == nullptr) return vx::rc::bad_argument;
    *out = nullptr;
    if (env == nullptr) return vx::rc::bad_argument;
    return vx::latch([&] { *out = vx::env::create_key_access(*env); });
}
