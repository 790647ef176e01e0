// Scenes, items, actions and evaluators as Python objects, and item types defined from Python.
//
// Every object of a scene shares the scene's state (SceneRef): destroying the scene makes them
// all raise LifetimeError, and an item or action whose creation was undone raises until a redo
// brings it back. Items, actions and evaluators also keep the Scene object alive, so a scene
// only goes when nothing of it is held, or when destroy() is called.
#include <cmath>
#include <cstdarg>
#include <string>
#include <vector>

#include "common.h"

namespace vxpy {
namespace {

std::vector<std::weak_ptr<SceneState>> &open_scenes() {
    static std::vector<std::weak_ptr<SceneState>> scenes;
    return scenes;
}

// Follows the scene's own events to know which items and actions are out of the scene.
void track(void *client, void *, uint32_t code, void *data) {
    auto *state = static_cast<SceneState *>(client);
    switch (code) {
        case CINE_EVENT_ITEM_REMOVED:
        case CINE_EVENT_ACTION_REMOVED:
            state->removed.insert(data);
            break;
        case CINE_EVENT_ITEM_ADDED:
        case CINE_EVENT_ACTION_ADDED:
            state->removed.erase(data);
            break;
        default:
            break;
    }
}

struct PyScene {
    SceneRef state;
    CineEval *reader = nullptr;  // reads item["channel"] at `time` through "edit"
    double time = 0.0;
    Subscribers subscribers;

    explicit PyScene(Cinema *scene) : state(std::make_shared<SceneState>()) {
        state->scene = scene;
        state->attachment = PortAttach(CinemaPort(scene), &track, state.get(), nullptr);
        if (state->attachment == 0) {
            CinemaDestroy(scene);
            state->alive = false;
            raise_failure("could not follow the scene's events");
        }
        open_scenes().push_back(state);
    }
    PyScene(const PyScene &) = delete;
    PyScene &operator=(const PyScene &) = delete;

    Cinema *get() const {
        state->require();
        return state->scene;
    }
    void destroy() {
        if (!state->alive) return;
        if (library_running()) {
            cancel_all(subscribers, true);
            PortDetach(CinemaPort(state->scene), state->attachment);
            CinemaDestroy(state->scene);  // takes its evaluators with it
        }
        state->alive = false;
        reader = nullptr;
    }
    ~PyScene() {
        if (!state->alive || !library_running()) return;
        LibraryLock lock;
        destroy();
    }
};

// Destroys the scenes Python still holds, at interpreter exit.
void close_open_scenes() {
    for (auto &weak : open_scenes())
        if (auto state = weak.lock(); state && state->alive) {
            CinemaDestroy(state->scene);
            state->alive = false;
        }
    open_scenes().clear();
}

struct Item {
    py::object scene_obj;
    SceneRef scene;
    CineItem *item;

    CineItem *get() const {
        scene->require();
        if (!scene->present(item))
            raise_gone("the item is not in its scene (its creation was undone)");
        return item;
    }
    PyScene &owner() const { return scene_obj.cast<PyScene &>(); }
};

struct Action {
    py::object scene_obj;
    SceneRef scene;
    CineAction *action;

    CineAction *get() const {
        scene->require();
        if (!scene->present(action)) raise_gone("the action is not in its scene (destroyed)");
        return action;
    }
};

struct Evaluator {
    py::object scene_obj;
    SceneRef scene;
    CineEval *eval = nullptr;

    Evaluator(py::object owner, SceneRef state, CineEval *e)
        : scene_obj(std::move(owner)), scene(std::move(state)), eval(e) {}
    Evaluator(const Evaluator &) = delete;
    Evaluator &operator=(const Evaluator &) = delete;
    CineEval *get() const {
        scene->require();
        return eval;
    }
    ~Evaluator() {
        if (scene->alive && library_running()) {
            LibraryLock lock;
            CineEvalDestroy(eval);
        }
    }
};

py::object item_object(py::object scene_obj, const SceneRef &scene, CineItem *item) {
    if (item == nullptr) return py::none();
    return py::cast(Item{std::move(scene_obj), scene, item});
}

py::object action_object(py::object scene_obj, const SceneRef &scene, CineAction *action) {
    if (action == nullptr) return py::none();
    return py::cast(Action{std::move(scene_obj), scene, action});
}

unsigned channel_arg(CineItem *item, py::handle channel) {
    if (py::isinstance<py::str>(channel)) {
        const std::string name = channel.cast<std::string>();
        const int index = CineItemLookupChannel(item, name.c_str());
        if (index < 0) throw py::key_error("the item has no channel '" + name + "'");
        return static_cast<unsigned>(index);
    }
    const long long index = channel.cast<long long>();
    if (index < 0 || index >= static_cast<long long>(CineChannelCount(item)))
        throw py::index_error("channel index " + std::to_string(index) + " out of range");
    return static_cast<unsigned>(index);
}

CineAction *action_arg(const PyScene &scene, py::handle action) {
    Cinema *cinema = scene.get();
    if (action.is_none()) return CineActionGetDefault(cinema, CINE_ACTION_EDIT);
    if (py::isinstance<py::str>(action)) {
        const std::string name = action.cast<std::string>();
        CineAction *found = CineActionLookup(cinema, name.c_str());
        if (found == nullptr) throw py::key_error("the scene has no action '" + name + "'");
        return found;
    }
    const Action &a = action.cast<const Action &>();
    if (a.scene != scene.state) throw py::value_error("the action belongs to another scene");
    return a.get();
}

void require_finite(double value, const char *what) {
    if (!std::isfinite(value)) throw py::value_error(std::string(what) + " must be finite");
}

// The channel kinds a Python type definition may use.
struct ChannelKind {
    const char *name;
    int storage;
    unsigned vector;  // CINE_VECTOR_... for vectors, or ~0u
};
constexpr ChannelKind kKinds[] = {
    {"float", VX_STORE_FLOAT, ~0u},
    {"int", VX_STORE_INT, ~0u},
    {"text", VX_STORE_TEXT, ~0u},
    {"xyz", VX_STORE_FLOAT, CINE_VECTOR_XYZ},
    {"rgb", VX_STORE_FLOAT, CINE_VECTOR_RGB},
    {"rgba", VX_STORE_FLOAT, CINE_VECTOR_RGBA},
    {"uv", VX_STORE_FLOAT, CINE_VECTOR_PAIR},
};

const ChannelKind &channel_kind(const std::string &name) {
    for (const ChannelKind &kind : kKinds)
        if (name == kind.name) return kind;
    throw py::value_error("unknown channel kind '" + name +
                          "' (float, int, text, xyz, rgb, rgba, uv)");
}

int add_channel(const char *package, const std::string &name, const ChannelKind &kind) {
    const char *const none = nullptr;
    if (kind.vector != ~0u)
        return CinePackageAddChannel(package, CINE_CH_NAME, name.c_str(), kind.storage, none,
                                     CINE_CH_VECTOR, kind.vector, none, CINE_CH_NAME, none);
    return CinePackageAddChannel(package, CINE_CH_NAME, name.c_str(), kind.storage, none,
                                 CINE_CH_NAME, none);
}

uint32_t define_type(const std::string &name, py::list channels, py::object super) {
    LibraryLock lock;
    begin_call();
    if (name.empty()) throw py::value_error("a type needs a name");
    if (CinePackageFind(name.c_str()) != nullptr)
        throw py::value_error("a package named '" + name + "' is already defined");
    int32_t super_code = 0;
    if (!super.is_none()) {
        const uint32_t code = py::isinstance<py::str>(super)
                                  ? CineLookupType(super.cast<std::string>().c_str())
                                  : super.cast<uint32_t>();
        if (code == CINE_TYPE_NONE || CineTypeName(code) == nullptr)
            throw py::value_error("unknown super type");
        super_code = static_cast<int32_t>(code);
    }
    // Everything is checked before the package is made, so a bad description leaves nothing.
    struct Channel {
        std::string name;
        const ChannelKind *kind;
        std::vector<double> defaults;
    };
    std::vector<Channel> parsed;
    for (py::handle entry : channels) {
        py::tuple t = py::reinterpret_borrow<py::object>(entry).cast<py::tuple>();
        if (t.size() < 1 || t.size() > 3)
            throw py::value_error("a channel is (name, kind, default)");
        Channel c{t[0].cast<std::string>(),
                  &channel_kind(t.size() > 1 ? t[1].cast<std::string>() : "float"),
                  {}};
        if (c.name.empty()) throw py::value_error("a channel needs a name");
        if (t.size() == 3 && !t[2].is_none()) {
            if (py::isinstance<py::sequence>(t[2]) && !py::isinstance<py::str>(t[2])) {
                c.defaults = t[2].cast<std::vector<double>>();
            } else {
                c.defaults.push_back(t[2].cast<double>());
            }
            for (double d : c.defaults) require_finite(d, "a default");
            if (c.kind->storage == VX_STORE_TEXT)
                throw py::value_error("text channels take no default");
        }
        parsed.push_back(std::move(c));
    }
    CinePackageDefine(name.c_str());
    check(CinePackageFind(name.c_str()) != nullptr, "could not define the package");
    for (const Channel &c : parsed) {
        check(add_channel(name.c_str(), c.name, *c.kind), "could not add a channel");
        if (!c.defaults.empty()) {
            const unsigned width =
                c.kind->vector != ~0u ? CineChannelVectorSize(c.kind->vector) : 1u;
            std::vector<double> values(width, c.defaults.back());
            for (size_t i = 0; i < c.defaults.size() && i < width; ++i) values[i] = c.defaults[i];
            CinePackageSetDefault(name.c_str(), c.name.c_str(), values.data());
        }
    }
    const uint32_t code = CineDefineType(0, super_code, name.c_str());
    if (code == CINE_TYPE_NONE) raise_failure("could not make '" + name + "' a type");
    return code;
}

py::tuple scene_event(void *context, void *, uint32_t code, void *data) {
    auto *scene_obj = static_cast<PyObject *>(context);
    py::object owner = py::reinterpret_borrow<py::object>(scene_obj);
    const SceneRef &state = owner.cast<PyScene &>().state;
    py::object subject = py::none();
    switch (code) {
        case CINE_EVENT_ITEM_ADDED:
        case CINE_EVENT_ITEM_REMOVED:
        case CINE_EVENT_ITEM_NAME:
        case CINE_EVENT_ITEM_CHANGED:
        case CINE_EVENT_HIDDEN:
            subject = item_object(owner, state, static_cast<CineItem *>(data));
            break;
        case CINE_EVENT_PACKAGE:
        case CINE_EVENT_CHANNELS_MOVED:
            if (data != nullptr)
                subject = item_object(owner, state, static_cast<CinePackageEvent *>(data)->item);
            break;
        case CINE_EVENT_ACTION_PARENTS:
        case CINE_EVENT_ACTION_CHANGED:
            if (data != nullptr)
                subject =
                    action_object(owner, state, static_cast<CineActionChange *>(data)->action);
            break;
        case CINE_EVENT_ACTION_ADDED:
        case CINE_EVENT_ACTION_REMOVED:
        case CINE_EVENT_ACTION_ORDER:
        case CINE_EVENT_ACTION_DEFINED:
            subject = action_object(owner, state, static_cast<CineAction *>(data));
            break;
        default:
            break;
    }
    return py::make_tuple(code, subject);
}

// Reads one channel at one time or at every time of an array (without the GIL).
py::object read_at(CineEval *eval, CineItem *item, unsigned channel, py::object times,
                   double *restore) {
    auto in = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(times);
    if (!in) throw py::type_error("times must be a number or an array of numbers");
    std::vector<py::ssize_t> shape(in.shape(), in.shape() + in.ndim());
    py::array_t<double> out(shape);
    const double *source = in.data();
    double *target = out.mutable_data();
    const py::ssize_t count = in.size();
    for (py::ssize_t i = 0; i < count; ++i) require_finite(source[i], "a time");
    bool failed = false;
    without_gil([&] {
        VxClearFailure();
        for (py::ssize_t i = 0; i < count; ++i) {
            CineEvalSetTime(eval, source[i]);
            target[i] = CineEvalChannel(eval, item, channel);
        }
        failed = VxLastFailure().code != VX_OK;
        if (restore != nullptr) CineEvalSetTime(eval, *restore);
    });
    if (failed) raise_failure("could not read the channel");
    return out;
}

}  // namespace

void register_scenes(py::module_ &m) {
    at_shutdown(&close_open_scenes);

    m.def("define_type", &define_type, py::arg("name"), py::arg("channels"),
          py::arg("super") = py::none(),
          "Defines an item type and returns its type code. `channels` is a list of (name, kind, "
          "default) tuples: kind 'float', 'int', 'text', or a vector 'xyz', 'rgb', 'rgba', 'uv' "
          "(channels 'name.X', 'name.Y', ...), default a number or one per component. `super` "
          "(a type name or code) makes it a subtype. Types live until the interpreter ends.");
    m.def(
        "type_code",
        [](const std::string &name) -> py::object {
            const uint32_t code = CineLookupType(name.c_str());
            if (code == CINE_TYPE_NONE) return py::none();
            return py::int_(code);
        },
        py::arg("name"), "The code of the item type of that name, or None.");
    m.def(
        "type_names",
        [] {
            py::list names;
            const unsigned count = CineTypeCount();
            for (unsigned i = 0; i < count; ++i)
                names.append(std::string(CineTypeName(CineTypeByIndex(i))));
            return names;
        },
        "The names of every item type, in order of type code.");

    py::class_<Item>(m, "Item",
                     "An item of a scene. Its channels are read and set by name: item['pos.X'] "
                     "is the value the scene's 'edit' action gives at scene.time (modifiers "
                     "included), and item['pos.X'] = v sets it there, keying the channel when it "
                     "is animated.")
        .def_property_readonly(
            "scene", [](const Item &i) { return i.scene_obj; }, "The item's scene.")
        .def_property(
            "name",
            [](const Item &i) -> py::object {
                const char *name = CineItemName(i.get());
                if (name == nullptr) return py::none();
                return py::str(name);
            },
            [](const Item &i, py::object name) {
                LibraryLock lock;
                begin_call();
                const std::string text = name.is_none() ? std::string() : name.cast<std::string>();
                check(CineItemSetName(i.get(), name.is_none() ? nullptr : text.c_str()),
                      "could not rename the item");
            },
            "The item's own name (None when it has none); setting it is undoable.")
        .def_property_readonly(
            "unique_name",
            [](const Item &i) {
                LibraryLock lock;
                return std::string(CineItemUniqueName(i.get()));
            },
            "The name that tells the item apart in its scene.")
        .def_property_readonly(
            "ident", [](const Item &i) { return std::string(CineItemIdent(i.get())); },
            "The identity string, fixed for the item's life.")
        .def_property_readonly(
            "type", [](const Item &i) { return CineItemType(i.get()); }, "The item's type code.")
        .def_property_readonly(
            "type_name",
            [](const Item &i) { return std::string(CineTypeName(CineItemType(i.get()))); },
            "The name of the item's type.")
        .def_property(
            "parent",
            [](const Item &i) {
                return item_object(i.scene_obj, i.scene, CineItemParent(i.get()));
            },
            [](const Item &i, py::object parent) {
                LibraryLock lock;
                begin_call();
                CineItem *p = nullptr;
                if (!parent.is_none()) {
                    const Item &pi = parent.cast<const Item &>();
                    p = pi.get();
                }
                const unsigned code = CineItemSetParent(i.get(), p, -1);
                if (code != VX_OK) {
                    if (code == VX_E_REFUSED)
                        throw py::value_error(
                            "refused: the parent is the item, one of its descendants, "
                            "or of another scene");
                    raise_failure("could not set the parent");
                }
            },
            "The parent item, or None; setting it (undoable) puts the item last among its "
            "children.")
        .def_property_readonly(
            "children",
            [](const Item &i) {
                CineItem *item = i.get();
                py::list list;
                const unsigned count = CineItemSubCount(item);
                for (unsigned k = 0; k < count; ++k)
                    list.append(item_object(i.scene_obj, i.scene, CineItemSubByIndex(item, k)));
                return list;
            },
            "The child items in order.")
        .def_property(
            "source",
            [](const Item &i) {
                return item_object(i.scene_obj, i.scene, CineItemSource(i.get()));
            },
            [](const Item &i, py::object source) {
                LibraryLock lock;
                begin_call();
                CineItem *s = source.is_none() ? nullptr : source.cast<const Item &>().get();
                check(CineItemSetSource(i.get(), s),
                      "could not set the source (another scene, or a loop)");
            },
            "The item whose channel values this one falls back on, or None (undoable).")
        .def_property(
            "hidden", [](const Item &i) { return CineItemHidden(i.get()) != 0; },
            [](const Item &i, bool hidden) {
                LibraryLock lock;
                CineItemSetHidden(i.get(), hidden ? 1 : 0);
            },
            "Whether the item is hidden.")
        .def_property_readonly(
            "channels",
            [](const Item &i) {
                CineItem *item = i.get();
                py::list names;
                const unsigned count = CineChannelCount(item);
                for (unsigned k = 0; k < count; ++k)
                    names.append(std::string(CineChannelName(item, k)));
                return names;
            },
            "The names of the item's channels, in index order.")
        .def(
            "channel_index",
            [](const Item &i, const std::string &name) {
                return channel_arg(i.get(), py::str(name));
            },
            py::arg("name"), "The index of a channel by name (KeyError when there is none).")
        .def("__getitem__",
             [](const Item &i, py::object channel) {
                 LibraryLock lock;
                 begin_call();
                 CineItem *item = i.get();
                 const unsigned index = channel_arg(item, channel);
                 PyScene &scene = i.owner();
                 if (scene.reader == nullptr) {
                     scene.reader =
                         check_ptr(CineEvalCreate(scene.get()), "could not make an evaluator");
                     CineEvalSetAction(scene.reader,
                                       CineActionGetDefault(scene.get(), CINE_ACTION_EDIT));
                 }
                 CineEvalSetTime(scene.reader, scene.time);
                 const double value = CineEvalChannel(scene.reader, item, index);
                 if (VxLastFailure().code != VX_OK) raise_failure("could not read the channel");
                 return value;
             })
        .def("__setitem__",
             [](const Item &i, py::object channel, double value) {
                 require_finite(value, "a channel value");
                 LibraryLock lock;
                 begin_call();
                 CineItem *item = i.get();
                 PyScene &scene = i.owner();
                 CineAction *edit = CineActionGetDefault(scene.get(), CINE_ACTION_EDIT);
                 check(
                     CineActionSetValue(edit, item, channel_arg(item, channel), value, scene.time),
                     "could not set the channel");
             })
        .def(
            "key",
            [](const Item &i, py::object channel, double time, double value, py::object action) {
                require_finite(time, "a time");
                require_finite(value, "a value");
                LibraryLock lock;
                begin_call();
                CineItem *item = i.get();
                const unsigned index = channel_arg(item, channel);
                CineAction *target = action_arg(i.owner(), action);
                // Giving the entry an envelope and keying it are one step for the user; when
                // the key fails, the entry gets back what it held (a constant, a removed
                // marker, or nothing), recorded in the same step.
                const int before = CineActionState(target, item, index);
                const double constant = CineActionValueFloat(target, item, index);
                UndoBlockBegin();
                const bool made = CineActionEnv(target, item, index) == nullptr;
                int ok = made
                             ? CineActionSetState(target, item, index, CINE_STATE_ENVELOPE, nullptr)
                             : 1;
                if (ok != 0) ok = CineActionSetValue(target, item, index, value, time);
                if (ok == 0 && made) {
                    if (before == CINE_STATE_CONSTANT) {
                        CineActionSetConstant(target, item, index, constant);
                    } else {
                        CineActionSetState(target, item, index, before, nullptr);
                    }
                }
                UndoBlockEnd();
                if (ok == 0) raise_failure("could not key the channel");
            },
            py::arg("channel"), py::arg("time"), py::arg("value"), py::arg("action") = py::none(),
            "Keys a channel at a time in an action (default 'edit'; a name or an Action), giving "
            "the entry an envelope first when it has none. One undo step.")
        .def(
            "envelope",
            [](const Item &i, py::object channel, py::object action) {
                LibraryLock lock;
                CineItem *item = i.get();
                const unsigned index = channel_arg(item, channel);
                CineAction *target = action_arg(i.owner(), action);
                return wrap_held_envelope(i.scene, target, item, index,
                                          CineActionEnv(target, item, index));
            },
            py::arg("channel"), py::arg("action") = py::none(),
            "The envelope the action's entry holds for the channel, or None. The action owns it; "
            "the Envelope raises LifetimeError once the entry no longer holds it.")
        .def(
            "set_envelope",
            [](const Item &i, py::object channel, py::object envelope, py::object action) {
                LibraryLock lock;
                begin_call();
                CineItem *item = i.get();
                const unsigned index = channel_arg(item, channel);
                CineAction *target = action_arg(i.owner(), action);
                Envelope *env = owned_envelope(envelope);
                check(CineActionSetEnvelope(target, item, index, env),
                      "could not set the envelope");
                envelope_handed_over(envelope, i.scene, target, item, index);
            },
            py::arg("channel"), py::arg("envelope"), py::arg("action") = py::none(),
            "Gives the action's entry an envelope of Python's own; the action takes it over.")
        .def(
            "delete",
            [](const Item &i) {
                LibraryLock lock;
                begin_call();
                check(CineItemDelete(i.get()), "could not delete the item");
            },
            "Takes the item out of its scene with its links (undoable: undo puts it back as it "
            "was). Using it afterwards raises LifetimeError until an undo brings it back.")
        .def("__eq__", [](const Item &a, const Item &b) { return a.item == b.item; })
        .def("__hash__", [](const Item &i) { return std::hash<const void *>()(i.item); })
        .def("__repr__", [](const Item &i) {
            if (!i.scene->present(i.item)) return std::string("<vexor.Item (gone)>");
            LibraryLock lock;
            return "<vexor.Item '" + std::string(CineItemUniqueName(i.item)) + "' of type '" +
                   CineTypeName(CineItemType(i.item)) + "'>";
        });

    py::class_<Action>(m, "Action",
                       "An action: a layer of channel values (constants and envelopes). Values "
                       "are looked up through the scene's chain of actions. Edits are undoable.")
        .def_property_readonly(
            "name", [](const Action &a) { return std::string(CineActionName(a.get())); },
            "The action's name.")
        .def_property(
            "type", [](const Action &a) { return CineActionType(a.get()); },
            [](const Action &a, unsigned type) {
                LibraryLock lock;
                begin_call();
                check(CineActionSetType(a.get(), type), "could not set the type");
            },
            "The action's type (0 setup, 1 scene, 9 edit, others the caller's).")
        .def_property(
            "enabled", [](const Action &a) { return CineActionIsEnabled(a.get()) != 0; },
            [](const Action &a, bool on) {
                LibraryLock lock;
                begin_call();
                check(CineActionSetEnable(a.get(), on ? 1 : 0), "could not enable the action");
            },
            "Whether the action is enabled.")
        .def_property_readonly(
            "parents",
            [](const Action &a) {
                CineAction *action = a.get();
                py::list list;
                const unsigned count = CineActionParentCount(action);
                for (unsigned k = 0; k < count; ++k)
                    list.append(
                        action_object(a.scene_obj, a.scene, CineActionParentByIndex(action, k)));
                return list;
            },
            "The parent actions in order.")
        .def(
            "value",
            [](const Action &a, const Item &item, py::object channel) {
                LibraryLock lock;
                CineItem *it = item.get();
                return CineActionValueFloat(a.get(), it, channel_arg(it, channel));
            },
            py::arg("item"), py::arg("channel"),
            "The constant the action sees for the channel (the default when it is animated or "
            "unset).")
        .def(
            "state",
            [](const Action &a, const Item &item, py::object channel) {
                static const char *const names[] = {"none", "removed", "constant", "envelope"};
                LibraryLock lock;
                CineItem *it = item.get();
                const int state = CineActionState(a.get(), it, channel_arg(it, channel));
                return std::string(state >= 0 && state <= 3 ? names[state] : "none");
            },
            py::arg("item"), py::arg("channel"),
            "What this action itself holds for the channel: 'none', 'removed', 'constant' or "
            "'envelope'.")
        .def(
            "set_constant",
            [](const Action &a, const Item &item, py::object channel, double value) {
                require_finite(value, "a value");
                LibraryLock lock;
                begin_call();
                CineItem *it = item.get();
                check(CineActionSetConstant(a.get(), it, channel_arg(it, channel), value),
                      "could not set the constant");
            },
            py::arg("item"), py::arg("channel"), py::arg("value"),
            "Makes the entry a constant, dropping any envelope it held.")
        .def(
            "set_value",
            [](const Action &a, const Item &item, py::object channel, double value, double time) {
                require_finite(value, "a value");
                require_finite(time, "a time");
                LibraryLock lock;
                begin_call();
                CineItem *it = item.get();
                check(CineActionSetValue(a.get(), it, channel_arg(it, channel), value, time),
                      "could not set the value");
            },
            py::arg("item"), py::arg("channel"), py::arg("value"), py::arg("time") = 0.0,
            "Sets the channel: keys the entry's envelope at the time when it holds one, else "
            "makes it a constant.")
        .def(
            "clear",
            [](const Action &a, const Item &item, py::object channel) {
                LibraryLock lock;
                begin_call();
                CineItem *it = item.get();
                check(CineActionSetState(a.get(), it, channel_arg(it, channel), CINE_STATE_NONE,
                                         nullptr),
                      "could not clear the entry");
            },
            py::arg("item"), py::arg("channel"), "Takes the entry out of the action.")
        .def(
            "envelope",
            [](const Action &a, const Item &item, py::object channel) {
                LibraryLock lock;
                CineItem *it = item.get();
                const unsigned index = channel_arg(it, channel);
                return wrap_held_envelope(a.scene, a.get(), it, index,
                                          CineActionEnv(a.get(), it, index));
            },
            py::arg("item"), py::arg("channel"), "The envelope this action's entry holds, or None.")
        .def(
            "destroy",
            [](const Action &a) {
                LibraryLock lock;
                begin_call();
                check(CineActionDestroy(a.get()),
                      "could not destroy the action (a default action, or a parent)");
            },
            "Takes the action out of its scene (undoable).")
        .def_property_readonly(
            "extents",
            [](const Action &a) -> py::object {
                LibraryLock lock;
                double first = 0.0;
                double last = 0.0;
                if (CineActionExtents(a.get(), &first, &last) == 0) return py::none();
                return py::make_tuple(first, last);
            },
            "(first, last) key time of the action's envelopes, or None without keys.")
        .def("__eq__", [](const Action &x, const Action &y) { return x.action == y.action; })
        .def("__hash__", [](const Action &a) { return std::hash<const void *>()(a.action); })
        .def("__repr__", [](const Action &a) {
            if (!a.scene->present(a.action)) return std::string("<vexor.Action (gone)>");
            return "<vexor.Action '" + std::string(CineActionName(a.action)) + "'>";
        });

    py::class_<Evaluator>(m, "Evaluator",
                          "Reads channels at a time through an action, with caches and modifiers. "
                          "read() takes one time or a numpy array of times.")
        .def_property(
            "time", [](const Evaluator &e) { return CineEvalTime(e.get()); },
            [](const Evaluator &e, double time) {
                require_finite(time, "a time");
                LibraryLock lock;
                CineEvalSetTime(e.get(), time);
            },
            "The time read at, in seconds.")
        .def_property(
            "action",
            [](const Evaluator &e) {
                return action_object(e.scene_obj, e.scene, CineEvalAction(e.get()));
            },
            [](const Evaluator &e, py::object action) {
                LibraryLock lock;
                CineEvalSetAction(e.get(), action_arg(e.scene_obj.cast<PyScene &>(), action));
            },
            "The action read through (a name or an Action when set).")
        .def(
            "read",
            [](const Evaluator &e, const Item &item, py::object channel,
               py::object times) -> py::object {
                LibraryLock lock;
                begin_call();
                CineEval *eval = e.get();
                CineItem *it = item.get();
                if (item.scene != e.scene)
                    throw py::value_error("the item belongs to another scene");
                const unsigned index = channel_arg(it, channel);
                if (times.is_none()) {
                    const double value = CineEvalChannel(eval, it, index);
                    if (VxLastFailure().code != VX_OK) raise_failure("could not read the channel");
                    return py::float_(value);
                }
                if (py::isinstance<py::float_>(times) || py::isinstance<py::int_>(times)) {
                    const double t = times.cast<double>();
                    require_finite(t, "a time");
                    CineEvalSetTime(eval, t);
                    const double value = CineEvalChannel(eval, it, index);
                    if (VxLastFailure().code != VX_OK) raise_failure("could not read the channel");
                    return py::float_(value);
                }
                double time = CineEvalTime(eval);
                return read_at(eval, it, index, times, &time);
            },
            py::arg("item"), py::arg("channel"), py::arg("times") = py::none(),
            "The channel's value: at the evaluator's time, at a given time (which becomes the "
            "evaluator's time), or at each time of a numpy array (the evaluator's time is kept; "
            "the GIL is released meanwhile).")
        .def("__repr__", [](const Evaluator &e) {
            if (!e.scene->alive) return std::string("<vexor.Evaluator (scene destroyed)>");
            return "<vexor.Evaluator at " + std::to_string(CineEvalTime(e.eval)) + " s>";
        });

    py::class_<PyScene>(m, "Scene",
                        "A scene: typed items with channels, the actions that hold their values, "
                        "and evaluators that read them at a time.\n\n"
                        "Scene() makes an empty scene with the default actions 'setup', 'scene' "
                        "and 'edit'. destroy() ends it at once; otherwise it goes when neither it "
                        "nor anything of it is referenced.")
        .def(py::init([] {
            LibraryLock lock;
            begin_call();
            return std::make_unique<PyScene>(check_ptr(CinemaCreate(0), "could not make a scene"));
        }))
        .def_static(
            "load",
            [](const std::string &path, bool strict) {
                LibraryLock lock;
                begin_call();
                Cinema *scene = CinemaLoadCustom(path.c_str(), strict ? CINEMA_LOAD_STRICT : 0u);
                return std::make_unique<PyScene>(
                    check_ptr(scene, ("could not load " + path).c_str()));
            },
            py::arg("path"), py::arg("strict") = false,
            "Loads a scene file as a new scene. Items of types this session lacks are dropped "
            "(with a log line) unless strict is set, which fails instead.")
        .def(
            "save",
            [](PyScene &self, const std::string &path) {
                LibraryLock lock;
                begin_call();
                check(CinemaSave(self.get(), path.c_str()), ("could not save " + path).c_str());
            },
            py::arg("path"), "Saves the scene to a scene file (*.vxr), replacing it safely.")
        .def(
            "destroy",
            [](PyScene &self) {
                LibraryLock lock;
                self.destroy();
            },
            "Ends the scene now: its items, actions, evaluators and held envelopes raise "
            "LifetimeError from then on.")
        .def_property_readonly(
            "alive", [](const PyScene &self) { return self.state->alive && library_running(); },
            "False once the scene was destroyed.")
        .def_property(
            "time", [](const PyScene &self) { return self.time; },
            [](PyScene &self, double time) {
                require_finite(time, "a time");
                self.time = time;
            },
            "The time at which item['channel'] reads and sets values (seconds, default 0).")
        .def_property_readonly(
            "items",
            [](py::object owner) {
                PyScene &self = owner.cast<PyScene &>();
                Cinema *scene = self.get();
                py::list list;
                const unsigned count = CinemaItemCount(scene);
                for (unsigned k = 0; k < count; ++k)
                    list.append(item_object(owner, self.state, CinemaItemByIndex(scene, k)));
                return list;
            },
            "The items of the scene.")
        .def(
            "create_item",
            [](py::object owner, py::object type, py::object name) {
                PyScene &self = owner.cast<PyScene &>();
                LibraryLock lock;
                begin_call();
                uint32_t code = CINE_TYPE_NONE;
                if (py::isinstance<py::str>(type)) {
                    code = CineLookupType(type.cast<std::string>().c_str());
                    if (code == CINE_TYPE_NONE)
                        throw py::value_error("unknown item type '" + type.cast<std::string>() +
                                              "'");
                } else {
                    code = type.cast<uint32_t>();
                }
                UndoBlockBegin();
                CineItem *item = CineItemCreate(self.get(), code);
                const bool named = item != nullptr &&
                                   (name.is_none() ||
                                    CineItemSetName(item, name.cast<std::string>().c_str()) != 0);
                UndoBlockEnd();
                if (item == nullptr) raise_failure("could not make the item");
                if (!named) raise_failure("could not name the item");
                return item_object(owner, self.state, item);
            },
            py::arg("type"), py::arg("name") = py::none(),
            "Makes an item of a type (its name or code), optionally named; one undo step.")
        .def(
            "item",
            [](py::object owner, const std::string &text) {
                PyScene &self = owner.cast<PyScene &>();
                LibraryLock lock;
                return item_object(owner, self.state, CineLookupItem(self.get(), text.c_str()));
            },
            py::arg("name"), "The item of that unique name, identity string or 'type[n]', or None.")
        .def_property_readonly(
            "actions",
            [](py::object owner) {
                PyScene &self = owner.cast<PyScene &>();
                py::list list;
                for (CineAction *a = CineActionFirst(self.get()); a != nullptr;
                     a = CineActionNext(a))
                    list.append(action_object(owner, self.state, a));
                return list;
            },
            "The actions in creation order.")
        .def(
            "action",
            [](py::object owner, const std::string &name) {
                PyScene &self = owner.cast<PyScene &>();
                return action_object(owner, self.state, CineActionLookup(self.get(), name.c_str()));
            },
            py::arg("name"), "The action of that name (any case), or None.")
        .def(
            "create_action",
            [](py::object owner, const std::string &name, unsigned type, py::object parent) {
                PyScene &self = owner.cast<PyScene &>();
                LibraryLock lock;
                begin_call();
                CineAction *p = parent.is_none() ? nullptr : action_arg(self, parent);
                CineAction *action = check_ptr(CineActionCreate(self.get(), name.c_str(), type, p),
                                               "could not make the action (empty or taken name?)");
                return action_object(owner, self.state, action);
            },
            py::arg("name"), py::arg("type") = 2, py::arg("parent") = py::none(),
            "Makes an empty action (undoable) with an optional parent action.")
        .def(
            "evaluator",
            [](py::object owner, py::object action, double time, bool private_cache) {
                PyScene &self = owner.cast<PyScene &>();
                LibraryLock lock;
                begin_call();
                require_finite(time, "a time");
                CineAction *a = action_arg(self, action);
                CineEval *eval = check_ptr(private_cache ? CineEvalCreateSpecial(self.get(), 2)
                                                         : CineEvalCreate(self.get()),
                                           "could not make an evaluator");
                auto wrapper = std::make_unique<Evaluator>(owner, self.state, eval);
                CineEvalSetAction(eval, a);
                CineEvalSetTime(eval, time);
                return wrapper;
            },
            py::arg("action") = py::none(), py::arg("time") = 0.0, py::arg("private") = false,
            "An evaluator reading through an action (default 'edit') at a time. Shared "
            "evaluators share caches; a private one keeps its own.")
        .def(
            "on_change",
            [](py::object owner, py::function callback) {
                PyScene &self = owner.cast<PyScene &>();
                LibraryLock lock;
                auto subscriber = std::make_shared<Subscriber>(
                    CinemaPort(self.get()), std::move(callback), &scene_event, owner.ptr());
                self.subscribers.push_back(subscriber);
                return make_subscription(subscriber);
            },
            py::arg("callback"),
            "Calls callback(code, subject) for every scene event, its undo and redo: code a "
            "SceneEvent value, subject the Item or Action concerned, or None. Returns a "
            "Subscription.")
        .def("__repr__", [](const PyScene &self) {
            if (!self.state->alive || !library_running())
                return std::string("<vexor.Scene (destroyed)>");
            return "<vexor.Scene " + std::to_string(CinemaItemCount(self.state->scene)) + " items>";
        });
}

}  // namespace vxpy
