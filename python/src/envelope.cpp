// Envelopes and their keys as Python objects.
//
// An Envelope is either Python's own (made by Envelope(), freed when Python drops it) or held
// by an action entry (read from a scene): a held one is checked against its entry before every
// use, since the action may replace or free it at any time.
#include <cmath>
#include <string>
#include <vector>

#include "common.h"

namespace vxpy {
namespace {

constexpr unsigned kCurveBlock = 100;  // the curve file's blocks, as `vexor env save` writes them
constexpr unsigned kCurveTypeBlock = 101;

// Envelopes Python has dropped while the undo history may still replay their edits: freeing
// them then would leave the history pointing at freed memory, so they wait for clear_undo()
// or the end of the interpreter.
std::vector<Envelope *> &graveyard() {
    static std::vector<Envelope *> envelopes;
    return envelopes;
}

bool recording() {
    return (UndoSysState() & VX_UNDO_RECORDING_MASK) == VX_UNDO_ENABLED;
}

struct PyEnvelope {
    Envelope *env = nullptr;
    bool owned = true;
    bool in_history = false;  // an edit of it was recorded for undo
    Port *port = nullptr;     // ours, made for callbacks on an owned envelope
    // Where a held envelope lives.
    SceneRef scene;
    CineAction *action = nullptr;
    CineItem *item = nullptr;
    unsigned channel = 0;
    Subscribers subscribers;

    PyEnvelope(Envelope *e, bool own) : env(e), owned(own) {}
    PyEnvelope(const PyEnvelope &) = delete;
    PyEnvelope &operator=(const PyEnvelope &) = delete;

    bool valid() const {
        if (env == nullptr || !library_running()) return false;
        if (owned) return true;
        return scene->present(action) && scene->present(item) &&
               CineActionEnv(action, item, channel) == env;
    }
    Envelope *get() const {
        if (env == nullptr || !library_running()) raise_gone("the envelope has been released");
        if (!owned && !valid())
            raise_gone(
                "the envelope is no longer held by its action entry (replaced, cleared, "
                "or its scene destroyed)");
        return env;
    }
    // Called before every edit: remembers that the history may now refer to the envelope.
    Envelope *edit() {
        Envelope *e = get();
        if (recording()) in_history = true;
        return e;
    }

    ~PyEnvelope() {
        if (!library_running() || env == nullptr) return;
        LibraryLock lock;
        cancel_all(subscribers, owned || valid());
        if (!owned) return;
        if (port != nullptr) {
            EnvSetPort(env, nullptr);
            PortDestroy(port);
        }
        if (in_history) {
            graveyard().push_back(env);
        } else {
            EnvDestroyNoUndo(env);
        }
    }
};

}  // namespace

void flush_released_envelopes() {
    for (Envelope *env : graveyard()) EnvDestroyNoUndo(env);
    graveyard().clear();
}

namespace {

struct Key {
    py::object owner;  // the Envelope, kept alive by the key
    EnvKey *key;

    PyEnvelope &envelope() const { return owner.cast<PyEnvelope &>(); }
    // The key, after checking that it is still one of its envelope's keys.
    EnvKey *get() const {
        Envelope *env = envelope().get();
        EnvKeyList *list = EnvGetKeyList(env);
        for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ)
            if (k == key) return k;
        raise_gone("the key is no longer in its envelope");
    }
};

struct KeySide {
    Key key;
    int side;
};

unsigned behavior_code(py::handle value) {
    static const char *const names[] = {"reset",         "constant", "repeat", "oscillate",
                                        "offset_repeat", "linear",   "none"};
    if (py::isinstance<py::str>(value)) {
        const std::string name = value.cast<std::string>();
        for (unsigned i = 0; i < 7; ++i)
            if (name == names[i]) return i;
        throw py::value_error(
            "unknown behaviour '" + name +
            "' (reset, constant, repeat, oscillate, offset_repeat, linear, none)");
    }
    const int code = value.cast<int>();
    if (code < 0 || code > 6) throw py::value_error("a behaviour is 0 to 6");
    return static_cast<unsigned>(code);
}

unsigned interpolation_code(py::handle value) {
    static const char *const names[] = {"curve", "linear", "stepped"};
    if (py::isinstance<py::str>(value)) {
        const std::string name = value.cast<std::string>();
        for (unsigned i = 0; i < 3; ++i)
            if (name == names[i]) return i;
        throw py::value_error("unknown interpolation '" + name + "' (curve, linear, stepped)");
    }
    const int code = value.cast<int>();
    if (code < 0 || code > 2) throw py::value_error("an interpolation is 0 to 2");
    return static_cast<unsigned>(code);
}

unsigned slope_code(py::handle value) {
    struct Named {
        const char *name;
        unsigned code;
    };
    static const Named names[] = {
        {"manual", ENV_SLOPE_MANUAL},       {"auto", ENV_SLOPE_AUTO},
        {"linear_in", ENV_SLOPE_LINEAR_IN}, {"linear_out", ENV_SLOPE_LINEAR_OUT},
        {"auto_flat", ENV_SLOPE_AUTO_FLAT}, {"stepped", ENV_SLOPE_STEPPED}};
    if (py::isinstance<py::str>(value)) {
        const std::string name = value.cast<std::string>();
        for (const Named &n : names)
            if (name == n.name) return n.code;
        throw py::value_error("unknown slope type '" + name +
                              "' (manual, auto, linear_in, linear_out, auto_flat, stepped)");
    }
    const int code = value.cast<int>();
    for (const Named &n : names)
        if (static_cast<unsigned>(code) == n.code) return n.code;
    throw py::value_error("unknown slope type code");
}

void require_finite(double value, const char *what) {
    if (!std::isfinite(value)) throw py::value_error(std::string(what) + " must be finite");
}

py::object key_object(py::object owner, EnvKey *key) {
    if (key == nullptr) return py::none();
    return py::cast(Key{std::move(owner), key});
}

// Evaluates at one time (a number) or at every time of an array, into an array of its shape.
py::object evaluate(PyEnvelope &self, py::object times) {
    Envelope *env = nullptr;
    {
        LibraryLock lock;
        env = self.get();
    }
    const bool integer = EnvType(env) == 1;
    if (py::isinstance<py::float_>(times) || py::isinstance<py::int_>(times)) {
        const double t = times.cast<double>();
        LibraryLock lock;
        if (integer) return py::int_(EnvEvaluateInt(env, t));
        return py::float_(EnvEvaluate(env, t));
    }
    auto in = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(times);
    if (!in) throw py::type_error("times must be a number or an array of numbers");
    std::vector<py::ssize_t> shape(in.shape(), in.shape() + in.ndim());
    const double *source = in.data();
    const py::ssize_t count = in.size();
    if (integer) {
        py::array_t<int32_t> out(shape);
        int32_t *target = out.mutable_data();
        without_gil([&] {
            for (py::ssize_t i = 0; i < count; ++i) target[i] = EnvEvaluateInt(env, source[i]);
        });
        return out;
    }
    py::array_t<double> out(shape);
    double *target = out.mutable_data();
    without_gil([&] {
        for (py::ssize_t i = 0; i < count; ++i) target[i] = EnvEvaluate(env, source[i]);
    });
    return out;
}

py::tuple envelope_event(void *context, void *, uint32_t code, void *data) {
    auto *owner = static_cast<PyObject *>(context);
    const auto *note = static_cast<const EnvNote *>(data);
    py::object key = py::none();
    // A removed or destroyed key is not handed out: it may be gone by the time Python looks.
    if (note != nullptr && note->key != nullptr && code != ENV_NOTE_REMOVE &&
        code != ENV_NOTE_DESTROY)
        key = key_object(py::reinterpret_borrow<py::object>(owner), note->key);
    static const char *const names[] = {"",     "destroy", "insert",  "key",
                                        "time", "remove",  "envelope"};
    const char *name = code <= 6 ? names[code] : "";
    return py::make_tuple(name, key, note != nullptr ? note->start : 0.0,
                          note != nullptr ? note->end : 0.0);
}

bool save_curve(Envelope *env, const std::string &path) {
    BlkWriter *writer = BlkWriterOpenFile(path.c_str());
    if (writer == nullptr) return false;
    const unsigned header[2] = {EnvType(env), EnvPostBehavior(env)};
    const bool written = BlkWriteBlock(writer, kCurveBlock) != 0 &&
                         BlkWriteBlock(writer, kCurveTypeBlock) != 0 &&
                         BlkWriteU4(writer, header, 2) != 0 && BlkWriteEnd(writer) != 0 &&
                         EnvSave(env, writer) != 0 && BlkWriteEnd(writer) != 0;
    return BlkWriterClose(writer) != 0 && written;
}

Envelope *load_curve(const std::string &path) {
    BlkReader *reader = BlkReaderOpenFile(path.c_str());
    if (reader == nullptr) throw py::value_error(path + " is not a curve file");
    const BlkBlockId curve_table[] = {{kCurveBlock, "curve"}, {0, nullptr}};
    const BlkBlockId type_table[] = {{kCurveTypeBlock, "type"}, {0, nullptr}};
    unsigned header[2] = {0, 0};
    Envelope *env = nullptr;
    if (BlkFindBlock(reader, curve_table) == kCurveBlock &&
        BlkFindBlock(reader, type_table) == kCurveTypeBlock && BlkReadU4(reader, header, 2) == 2 &&
        BlkReadEnd(reader) != 0 && header[0] <= 1 && header[1] <= ENV_BEHAVIOR_NONE) {
        env = header[0] == 1 ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
        if (env != nullptr) {
            UndoSysSuspend();  // a fresh envelope: nothing of its load belongs in the history
            const int loaded = EnvLoad(env, reader);
            UndoSysResume();
            if (loaded == 0 || BlkReaderFailed(reader) != 0) {
                EnvDestroyNoUndo(env);
                env = nullptr;
            } else {
                EnvSetPostBehaviorDirect(env, header[1]);
            }
        }
    }
    BlkReaderClose(reader);
    if (env == nullptr) throw py::value_error(path + " is damaged or not a curve file");
    return env;
}

}  // namespace

py::object wrap_held_envelope(const SceneRef &scene, CineAction *action, CineItem *item,
                              unsigned channel, Envelope *env) {
    if (env == nullptr) return py::none();
    auto wrapper = std::make_unique<PyEnvelope>(env, false);
    wrapper->scene = scene;
    wrapper->action = action;
    wrapper->item = item;
    wrapper->channel = channel;
    return py::cast(std::move(wrapper));
}

Envelope *owned_envelope(py::handle envelope) {
    PyEnvelope &self = envelope.cast<PyEnvelope &>();
    Envelope *env = self.get();
    if (!self.owned) throw py::value_error("the envelope already belongs to an action entry");
    return env;
}

void envelope_handed_over(py::handle envelope, const SceneRef &scene, CineAction *action,
                          CineItem *item, unsigned channel) {
    PyEnvelope &self = envelope.cast<PyEnvelope &>();
    self.owned = false;
    self.scene = scene;
    self.action = action;
    self.item = item;
    self.channel = channel;
    // The action now listens on our port too, so the port stays as long as the process:
    // nobody can tell when the action lets the envelope go.
    self.port = nullptr;
}

void register_envelopes(py::module_ &m) {
    at_shutdown(&flush_released_envelopes);

    py::class_<Key>(m, "Key",
                    "A key of an envelope: a time and a value, with an incoming and an outgoing "
                    "side (tangent). Setting a field is an undoable edit. A key deleted from its "
                    "envelope raises LifetimeError when used.")
        .def_property(
            "time",
            [](const Key &k) {
                LibraryLock lock;
                return EnvKeyTime(k.get());
            },
            [](Key &k, double time) {
                require_finite(time, "a key's time");
                LibraryLock lock;
                begin_call();
                EnvKey *key = k.get();
                check(EnvKeySetTime(k.envelope().edit(), key, time, 1), "could not move the key");
            },
            "The key's time in seconds; setting it moves the key, past its neighbours if need be "
            "(a key already at that time is replaced).")
        .def_property(
            "value",
            [](const Key &k) -> py::object {
                LibraryLock lock;
                EnvKey *key = k.get();
                if (EnvType(k.envelope().get()) == 1) return py::int_(EnvKeyValueInt(key));
                return py::float_(EnvKeyValue(key));
            },
            [](Key &k, py::object value) {
                LibraryLock lock;
                begin_call();
                EnvKey *key = k.get();
                Envelope *env = k.envelope().edit();
                if (EnvType(env) == 1) {
                    check(EnvKeySetValueInt(env, key, value.cast<int>()),
                          "could not set the value");
                } else {
                    const double v = value.cast<double>();
                    require_finite(v, "a key's value");
                    check(EnvKeySetValue(env, key, v), "could not set the value");
                }
            },
            "The key's value (an int in an integer envelope).")
        .def_property(
            "slope_type",
            [](const Key &k) {
                LibraryLock lock;
                return EnvKeyGetSlopeType(k.get(), 1);
            },
            [](Key &k, py::object type) {
                const unsigned code = slope_code(type);
                LibraryLock lock;
                begin_call();
                EnvKey *key = k.get();
                Envelope *env = k.envelope().edit();
                UndoBlockBegin();
                const int ok =
                    EnvKeySetSlopeType(env, key, 0, code) & EnvKeySetSlopeType(env, key, 1, code);
                UndoBlockEnd();
                check(ok, "could not set the slope type");
            },
            "The slope type of both sides (Slope.AUTO, 'linear_in', ...); reads the outgoing side.")
        .def_property_readonly(
            "incoming",
            [](const Key &k) {
                return KeySide{k, 0};
            },
            "The incoming side (tangent).")
        .def_property_readonly(
            "outgoing",
            [](const Key &k) {
                return KeySide{k, 1};
            },
            "The outgoing side (tangent).")
        .def_property(
            "broken",
            [](const Key &k) {
                LibraryLock lock;
                return EnvKeyIsBroken(k.get(), ENV_BREAK_SLOPE) != 0;
            },
            [](Key &k, bool broken) {
                LibraryLock lock;
                begin_call();
                EnvKey *key = k.get();
                Envelope *env = k.envelope().edit();
                if ((EnvKeyIsBroken(key, ENV_BREAK_SLOPE) != 0) == broken) return;
                check(broken ? EnvKeyBreak(env, key, ENV_BREAK_SLOPE)
                             : EnvKeyUnify(env, key, ENV_BREAK_SLOPE, 0),
                      "could not change the key's tangents");
            },
            "Whether the two sides have slopes of their own.")
        .def_property_readonly(
            "envelope", [](const Key &k) { return k.owner; }, "The envelope of the key.")
        .def(
            "handle",
            [](const Key &k, int side) {
                LibraryLock lock;
                EnvKey *key = k.get();
                double time = 0.0;
                double value = 0.0;
                EnvKeyGetHandle(k.envelope().get(), key, 0, side, &time, &value);
                return py::make_tuple(time, value);
            },
            py::arg("side") = 1, "The end of the tangent handle of a side, as (time, value).")
        .def("__repr__",
             [](const Key &k) {
                 LibraryLock lock;
                 EnvKey *key = k.get();
                 const bool integer = EnvType(k.envelope().get()) == 1;
                 return "<vexor.Key time=" + std::to_string(EnvKeyTime(key)) + " value=" +
                        (integer ? std::to_string(EnvKeyValueInt(key))
                                 : std::to_string(EnvKeyValue(key))) +
                        ">";
             })
        .def("__eq__",
             [](const Key &a, const Key &b) { return a.key == b.key && a.owner.is(b.owner); })
        .def("__hash__", [](const Key &k) { return std::hash<const void *>()(k.key); });

    py::class_<KeySide>(m, "KeySide", "One side of a key: its slope, slope type and weight.")
        .def_property(
            "slope",
            [](const KeySide &s) {
                LibraryLock lock;
                return EnvKeyGetSlopeValue(s.key.get(), s.side);
            },
            [](KeySide &s, double slope) {
                require_finite(slope, "a slope");
                LibraryLock lock;
                begin_call();
                EnvKey *key = s.key.get();
                check(EnvKeySetSlopeValue(s.key.envelope().edit(), key, s.side, slope),
                      "could not set the slope");
            },
            "Value per second (a manual slope; automatic ones are computed on evaluation).")
        .def_property(
            "slope_type",
            [](const KeySide &s) {
                LibraryLock lock;
                return EnvKeyGetSlopeType(s.key.get(), s.side);
            },
            [](KeySide &s, py::object type) {
                const unsigned code = slope_code(type);
                LibraryLock lock;
                begin_call();
                EnvKey *key = s.key.get();
                check(EnvKeySetSlopeType(s.key.envelope().edit(), key, s.side, code),
                      "could not set the slope type");
            },
            "How the slope is found: Slope.MANUAL, AUTO, LINEAR_IN, ...")
        .def_property(
            "weight",
            [](const KeySide &s) {
                LibraryLock lock;
                return EnvKeyGetWeightValue(s.key.get(), s.side);
            },
            [](KeySide &s, double weight) {
                require_finite(weight, "a weight");
                LibraryLock lock;
                begin_call();
                EnvKey *key = s.key.get();
                Envelope *env = s.key.envelope().edit();
                UndoBlockBegin();
                const int ok = EnvKeySetWeightType(env, key, s.side, 1) &
                               EnvKeySetWeightValue(env, key, s.side, weight);
                UndoBlockEnd();
                check(ok, "could not set the weight");
            },
            "The tangent handle's length; setting it makes the weight manual.");

    py::class_<PyEnvelope>(m, "Envelope",
                           "An animation curve: keys of one value over time, extended before "
                           "the first and after the last key by its behaviours.\n\n"
                           "Envelope() makes a float curve, Envelope(integer=True) an integer "
                           "one. Every edit is undoable (vexor.undo()). Calling the envelope, or "
                           "evaluate(), gives its value at a time or at a numpy array of times.")
        .def(py::init([](bool integer) {
                 LibraryLock lock;
                 begin_call();
                 Envelope *env = check_ptr(integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr),
                                           "could not make an envelope");
                 return std::make_unique<PyEnvelope>(env, true);
             }),
             py::arg("integer") = false)
        .def_static(
            "from_keys",
            [](py::iterable keys, py::object pre, py::object post, bool integer) {
                py::object self = py::type::of<PyEnvelope>()(integer);
                for (py::handle key : keys) {
                    py::tuple pair = py::reinterpret_borrow<py::object>(key).cast<py::tuple>();
                    if (pair.size() != 2) throw py::value_error("keys are (time, value) pairs");
                    self.attr("add_key")(pair[0], pair[1]);
                }
                if (!pre.is_none()) self.attr("pre_behavior") = pre;
                if (!post.is_none()) self.attr("post_behavior") = post;
                return self;
            },
            py::arg("keys"), py::arg("pre") = py::none(), py::arg("post") = py::none(),
            py::arg("integer") = false,
            "An envelope with keys at the (time, value) pairs and, when given, its behaviours.")
        .def_static(
            "load",
            [](const std::string &path) {
                LibraryLock lock;
                return std::make_unique<PyEnvelope>(load_curve(path), true);
            },
            py::arg("path"), "Reads a curve file (as written by save() or `vexor env save`).")
        .def(
            "save",
            [](PyEnvelope &self, const std::string &path) {
                LibraryLock lock;
                begin_call();
                if (!save_curve(self.get(), path)) raise_failure("could not write " + path);
            },
            py::arg("path"),
            "Writes the curve file that load() and `vexor env plot --file` read. Values and "
            "times are kept to single precision.")
        .def_property_readonly(
            "integer",
            [](PyEnvelope &self) {
                LibraryLock lock;
                return EnvType(self.get()) == 1;
            },
            "Whether the envelope holds integer values.")
        .def_property_readonly(
            "owned", [](PyEnvelope &self) { return self.owned; },
            "True for an envelope of Python's own, False for one held by an action entry.")
        .def_property(
            "pre_behavior",
            [](PyEnvelope &self) {
                LibraryLock lock;
                return EnvPreBehavior(self.get());
            },
            [](PyEnvelope &self, py::object behavior) {
                const unsigned code = behavior_code(behavior);
                LibraryLock lock;
                begin_call();
                check(EnvSetPreBehavior(self.edit(), code), "could not set the behaviour");
            },
            "How the curve goes on before its first key (Behavior.CONSTANT, 'repeat', ...).")
        .def_property(
            "post_behavior",
            [](PyEnvelope &self) {
                LibraryLock lock;
                return EnvPostBehavior(self.get());
            },
            [](PyEnvelope &self, py::object behavior) {
                const unsigned code = behavior_code(behavior);
                LibraryLock lock;
                begin_call();
                check(EnvSetPostBehavior(self.edit(), code), "could not set the behaviour");
            },
            "How the curve goes on after its last key.")
        .def_property(
            "interpolation",
            [](PyEnvelope &self) {
                LibraryLock lock;
                return EnvInterpolation(self.get());
            },
            [](PyEnvelope &self, py::object mode) {
                const unsigned code = interpolation_code(mode);
                LibraryLock lock;
                begin_call();
                check(EnvSetInterpolation(self.edit(), code), "could not set the interpolation");
            },
            "How the curve goes between keys: Interpolation.CURVE, LINEAR or STEPPED.")
        .def(
            "add_key",
            [](py::object owner, double time, py::object value) {
                require_finite(time, "a key's time");
                PyEnvelope &self = owner.cast<PyEnvelope &>();
                LibraryLock lock;
                begin_call();
                Envelope *env = self.edit();
                EnvKey *key = nullptr;
                if (EnvType(env) == 1) {
                    key = EnvAddKeyInt(env, time, value.cast<int>());
                } else {
                    const double v = value.cast<double>();
                    require_finite(v, "a key's value");
                    key = EnvAddKey(env, time, v);
                }
                return key_object(owner, check_ptr(key, "could not add the key"));
            },
            py::arg("time"), py::arg("value"),
            "Keys the value at the time (a key already there gets the value) and returns the key.")
        .def(
            "key_at",
            [](py::object owner, double time) {
                PyEnvelope &self = owner.cast<PyEnvelope &>();
                LibraryLock lock;
                return key_object(owner, EnvGetKey(self.get(), time));
            },
            py::arg("time"), "The key within 0.0001 s of the time, or None.")
        .def_property_readonly(
            "keys",
            [](py::object owner) {
                PyEnvelope &self = owner.cast<PyEnvelope &>();
                LibraryLock lock;
                py::list keys;
                EnvKeyList *list = EnvGetKeyList(self.get());
                for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ)
                    keys.append(key_object(owner, k));
                return keys;
            },
            "The keys in time order, as a list.")
        .def("__len__",
             [](PyEnvelope &self) {
                 LibraryLock lock;
                 py::ssize_t count = 0;
                 EnvKeyList *list = EnvGetKeyList(self.get());
                 for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) ++count;
                 return count;
             })
        .def(
            "remove_key",
            [](PyEnvelope &self, const Key &key) {
                if (&key.envelope() != &self)
                    throw py::value_error("the key belongs to another envelope");
                LibraryLock lock;
                begin_call();
                EnvKey *k = key.get();
                check(EnvDelKey(self.edit(), k), "could not delete the key");
            },
            py::arg("key"), "Deletes a key of this envelope.")
        .def(
            "clear",
            [](PyEnvelope &self) {
                LibraryLock lock;
                begin_call();
                check(EnvClearKeys(self.edit()), "could not clear the keys");
            },
            "Deletes every key, as one undoable edit.")
        .def(
            "shift",
            [](PyEnvelope &self, double offset) {
                require_finite(offset, "an offset");
                LibraryLock lock;
                begin_call();
                check(EnvShiftAllKeys(self.edit(), offset), "could not shift the keys");
            },
            py::arg("offset"), "Moves every key by the offset in seconds.")
        .def(
            "scale",
            [](PyEnvelope &self, double pivot, double factor) {
                require_finite(pivot, "a pivot");
                require_finite(factor, "a factor");
                LibraryLock lock;
                begin_call();
                check(EnvScaleAllKeys(self.edit(), pivot, factor), "could not scale the keys");
            },
            py::arg("pivot"), py::arg("factor"), "Scales every key's time about the pivot time.")
        .def(
            "copy",
            [](PyEnvelope &self) {
                LibraryLock lock;
                begin_call();
                Envelope *source = self.get();
                Envelope *env =
                    check_ptr(EnvType(source) == 1 ? EnvCreateInt(nullptr) : EnvCreate(nullptr),
                              "could not make an envelope");
                UndoSysSuspend();  // a new envelope: its filling is no step of the history
                const int copied = EnvCopy(env, source);
                UndoSysResume();
                if (copied == 0) {
                    EnvDestroyNoUndo(env);
                    raise_failure("could not copy the envelope");
                }
                return std::make_unique<PyEnvelope>(env, true);
            },
            "A new envelope of Python's own with copies of the keys and settings.")
        .def_property_readonly(
            "animated",
            [](PyEnvelope &self) {
                LibraryLock lock;
                return EnvIsAnimated(self.get()) != 0;
            },
            "Whether the envelope has at least two keys.")
        .def_property_readonly(
            "time_range",
            [](PyEnvelope &self) -> py::object {
                LibraryLock lock;
                Envelope *env = self.get();
                if (EnvFirstKey(env) == nullptr) return py::none();
                double first = 0.0;
                double last = 0.0;
                EnvBoundsTime(env, &first, &last);
                return py::make_tuple(first, last);
            },
            "(first key's time, last key's time), or None without keys.")
        .def(
            "bounds",
            [](PyEnvelope &self, double start, double end) {
                LibraryLock lock;
                double low = 0.0;
                double high = 0.0;
                EnvBoundsValue(self.get(), start, end, &low, &high);
                return py::make_tuple(low, high);
            },
            py::arg("start"), py::arg("end"),
            "(least, greatest) value the curve takes from start to end, overshoot included.")
        .def("evaluate", &evaluate, py::arg("times"),
             "The value at a time, or a numpy array of values at an array of times (the GIL is "
             "released meanwhile).")
        .def("__call__", &evaluate, py::arg("times"), "Same as evaluate().")
        .def(
            "on_change",
            [](py::object owner, py::function callback) {
                PyEnvelope &self = owner.cast<PyEnvelope &>();
                LibraryLock lock;
                Envelope *env = self.get();
                Port *port = EnvGetPort(env);
                if (port == nullptr) {
                    if (!self.owned) raise_gone("the envelope has no port");
                    port = check_ptr(PortCreate(nullptr), "could not make a port");
                    self.port = port;
                    EnvSetPort(env, port);
                }
                auto subscriber = std::make_shared<Subscriber>(port, std::move(callback),
                                                               &envelope_event, owner.ptr());
                self.subscribers.push_back(subscriber);
                return make_subscription(subscriber);
            },
            py::arg("callback"),
            "Calls callback(kind, key, start, end) after every change, its undo and redo: kind "
            "is 'insert', 'key', 'time', 'remove', 'envelope' or 'destroy', key the Key concerned "
            "(None for the whole envelope or a key going away), start and end the affected span. "
            "Returns a Subscription.")
        .def("__repr__", [](PyEnvelope &self) {
            if (!self.valid()) return std::string("<vexor.Envelope (released)>");
            LibraryLock lock;
            py::ssize_t count = 0;
            EnvKeyList *list = EnvGetKeyList(self.env);
            for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) ++count;
            return std::string("<vexor.Envelope ") + (EnvType(self.env) == 1 ? "integer " : "") +
                   std::to_string(count) + " keys" + (self.owned ? "" : ", held by an action") +
                   ">";
        });
}

}  // namespace vxpy
