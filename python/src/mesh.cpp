// Meshes, their elements, vertex maps, polygon tags and marks as Python objects.
//
// Element and map handles stay valid for the life of their mesh (deleted elements are kept
// dead in their lists), so every such object keeps its Mesh alive and needs no other check.
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "common.h"

namespace vxpy {
namespace {

// Meshes Python has dropped while the undo history may still replay edits of their maps: the
// library forbids destroying those, so they wait for clear_undo() or the interpreter's end.
// Instances are dropped before their sources (they keep them alive), so the list is in an
// order that destroys instances first.
std::vector<Mesh *> &graveyard() {
    static std::vector<Mesh *> meshes;
    return meshes;
}

bool recording() {
    return (UndoSysState() & VX_UNDO_RECORDING_MASK) == VX_UNDO_ENABLED;
}

uint32_t code4(const std::string &text) {
    if (text.size() != 4) throw py::value_error("a type code is four characters ('FACE', 'TXUV')");
    return VX_CODE4(text[0], text[1], text[2], text[3]);
}

std::string code_text(uint32_t code) {
    std::string text(4, ' ');
    for (int i = 0; i < 4; ++i)
        text[static_cast<size_t>(i)] = static_cast<char>((code >> (24 - 8 * i)) & 0xFFu);
    return text;
}

struct PyMesh {
    Mesh *mesh = nullptr;
    py::object source;        // an instance keeps its source alive
    bool in_history = false;  // an edit of one of its maps was recorded for undo
    Subscribers subscribers;

    explicit PyMesh(Mesh *m) : mesh(m) {}
    PyMesh(const PyMesh &) = delete;
    PyMesh &operator=(const PyMesh &) = delete;

    Mesh *get() const {
        if (mesh == nullptr || !library_running()) raise_gone("the mesh has been released");
        return mesh;
    }
    Mesh *edit_maps() {
        Mesh *m = get();
        if (recording()) {
            in_history = true;
            // The history names the source's maps too, through the instance's.
            if (source) source.cast<PyMesh &>().in_history = true;
        }
        return m;
    }
    ~PyMesh() {
        if (mesh == nullptr || !library_running()) return;
        LibraryLock lock;
        cancel_all(subscribers, true);
        if (in_history || MeshInstanceCount(mesh) != 0) {
            graveyard().push_back(mesh);
        } else {
            MeshDestroy(mesh);
        }
    }
};

struct Vertex {
    py::object owner;
    MeshVertex *vertex;
    Mesh *mesh() const { return owner.cast<PyMesh &>().get(); }
};

struct Polygon {
    py::object owner;
    MeshPolygon *polygon;
    Mesh *mesh() const { return owner.cast<PyMesh &>().get(); }
};

struct Map {
    py::object owner;
    VMap *map;
    VMap *get() const {
        owner.cast<PyMesh &>().get();
        return map;
    }
    VMap *edit() const {
        owner.cast<PyMesh &>().edit_maps();
        return map;
    }
};

// A polygon's tags as a mapping from four-character type to text.
struct Tags {
    Polygon polygon;
};

MeshVertex *vertex_arg(PyMesh &self, py::handle value) {
    Mesh *mesh = self.get();
    if (py::isinstance<Vertex>(value)) {
        const Vertex &v = value.cast<const Vertex &>();
        return v.vertex;
    }
    const long long index = value.cast<long long>();
    const unsigned count = MeshNumVrts(mesh);
    if (index < 0 || index >= static_cast<long long>(count))
        throw py::index_error("vertex index " + std::to_string(index) + " out of range");
    return MeshVrtByIndex(mesh, static_cast<unsigned>(index));
}

MeshVertex *map_vertex(const Map &map, py::handle value) {
    if (py::isinstance<Vertex>(value)) return value.cast<const Vertex &>().vertex;
    return vertex_arg(map.owner.cast<PyMesh &>(), value);
}

py::array_t<float> values_array(const float *values, uint32_t dimension) {
    py::array_t<float> out(static_cast<py::ssize_t>(dimension));
    if (dimension > 0) std::memcpy(out.mutable_data(), values, dimension * sizeof(float));
    return out;
}

std::vector<float> map_values(const Map &map, py::handle values) {
    const uint32_t dimension = VMapDimension(map.get());
    if (dimension == 0) return {};
    auto array = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(values);
    if (!array || array.size() != static_cast<py::ssize_t>(dimension))
        throw py::value_error("the map takes " + std::to_string(dimension) + " values per entry");
    return std::vector<float>(array.data(), array.data() + dimension);
}

template <typename Element, typename Handle>
py::list element_list(py::object owner, unsigned count,
                      Handle *(*by_index)(const Mesh *, unsigned)) {
    Mesh *mesh = owner.cast<PyMesh &>().get();
    py::list list;
    for (unsigned i = 0; i < count; ++i) list.append(Element{owner, by_index(mesh, i)});
    return list;
}

py::tuple mesh_event(void *, void *, uint32_t code, void *) {
    return py::make_tuple(code);
}

// Marks as (set, clear) keyword pairs, the way MESH_MARK_MODE packs them.
uint32_t mark_mode(unsigned set, unsigned clear) {
    if (set > 0xFFFFu || clear > 0xFFFFu) throw py::value_error("marks are 16-bit masks");
    return MESH_MARK_MODE(set, clear);
}

unsigned collect_vertex(MeshVertex *vertex, void *data, void *) {
    static_cast<std::vector<MeshVertex *> *>(data)->push_back(vertex);
    return 0;
}

unsigned collect_polygon(MeshPolygon *polygon, void *data, void *) {
    static_cast<std::vector<MeshPolygon *> *>(data)->push_back(polygon);
    return 0;
}

}  // namespace

void flush_released_meshes() {
    auto &meshes = graveyard();
    std::vector<Mesh *> kept;
    for (Mesh *mesh : meshes)
        if (MeshDestroy(mesh) == 0) kept.push_back(mesh);
    meshes = std::move(kept);
}

void register_meshes(py::module_ &m) {
    at_shutdown(&flush_released_meshes);

    py::class_<Vertex>(m, "Vertex", "A vertex of a mesh: a position and a 16-bit mark word.")
        .def_property(
            "position",
            [](const Vertex &v) {
                LibraryLock lock;
                double p[3] = {0, 0, 0};
                MeshVertexPos(v.mesh(), v.vertex, p);
                return py::make_tuple(p[0], p[1], p[2]);
            },
            [](const Vertex &v, std::array<double, 3> p) {
                LibraryLock lock;
                begin_call();
                check_ptr(MeshVertexSet(v.mesh(), v.vertex, p.data()), "could not move the vertex");
            },
            "The position (x, y, z); stored as 32-bit floats.")
        .def_property_readonly(
            "dead",
            [](const Vertex &v) {
                v.mesh();
                return (MeshVertexFlags(v.vertex) & MESH_ELEMENT_DEAD) != 0;
            },
            "Whether the vertex was deleted.")
        .def_property_readonly(
            "marks",
            [](const Vertex &v) {
                v.mesh();
                return MeshVertexMarks(v.vertex);
            },
            "The mark word.")
        .def(
            "mark",
            [](const Vertex &v, unsigned set, unsigned clear) {
                LibraryLock lock;
                v.mesh();
                MeshMarkVertex(v.vertex, mark_mode(set, clear));
            },
            py::arg("set") = 0, py::arg("clear") = 0, "Clears the `clear` marks, then sets `set`.")
        .def("__eq__", [](const Vertex &a, const Vertex &b) { return a.vertex == b.vertex; })
        .def("__hash__", [](const Vertex &v) { return std::hash<const void *>()(v.vertex); })
        .def("__repr__", [](const Vertex &v) {
            LibraryLock lock;
            double p[3] = {0, 0, 0};
            MeshVertexPos(v.mesh(), v.vertex, p);
            return "<vexor.Vertex (" + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ", " +
                   std::to_string(p[2]) + ")>";
        });

    py::class_<Tags>(m, "PolygonTags",
                     "A polygon's tags: text by four-character type ('MATR' material, 'PART' "
                     "part, 'SMGP' smoothing groups). Setting replaces, del removes.")
        .def("__getitem__",
             [](const Tags &t, const std::string &type) {
                 LibraryLock lock;
                 t.polygon.mesh();
                 const char *text = PTagGet(t.polygon.polygon, code4(type));
                 if (text == nullptr) throw py::key_error(type);
                 return std::string(text);
             })
        .def("__setitem__",
             [](const Tags &t, const std::string &type, const std::string &text) {
                 LibraryLock lock;
                 begin_call();
                 t.polygon.mesh();
                 check(PTagSet(t.polygon.polygon, code4(type), text.c_str()),
                       "could not set the tag");
             })
        .def("__delitem__",
             [](const Tags &t, const std::string &type) {
                 LibraryLock lock;
                 t.polygon.mesh();
                 if (PTagGet(t.polygon.polygon, code4(type)) == nullptr) throw py::key_error(type);
                 PTagSet(t.polygon.polygon, code4(type), nullptr);
             })
        .def("__len__",
             [](const Tags &t) {
                 t.polygon.mesh();
                 return PTagCount(t.polygon.polygon);
             })
        .def("__contains__",
             [](const Tags &t, const std::string &type) {
                 t.polygon.mesh();
                 return PTagGet(t.polygon.polygon, code4(type)) != nullptr;
             })
        .def(
            "items",
            [](const Tags &t) {
                LibraryLock lock;
                t.polygon.mesh();
                py::list items;
                const int count = static_cast<int>(PTagCount(t.polygon.polygon));
                for (int i = 0; i < count; ++i) {
                    uint32_t type = 0;
                    const char *text = PTagGetByIndex(t.polygon.polygon, i, &type);
                    items.append(py::make_tuple(code_text(type), std::string(text)));
                }
                return items;
            },
            "(type, text) pairs in ascending order of type.")
        .def("__iter__", [](const Tags &t) {
            LibraryLock lock;
            t.polygon.mesh();
            py::list types;
            const int count = static_cast<int>(PTagCount(t.polygon.polygon));
            for (int i = 0; i < count; ++i) {
                uint32_t type = 0;
                PTagGetByIndex(t.polygon.polygon, i, &type);
                types.append(code_text(type));
            }
            return py::iter(types);
        });

    py::class_<Polygon>(m, "Polygon", "A polygon of a mesh: its vertices, type, tags and marks.")
        .def_property_readonly(
            "vertices",
            [](const Polygon &p) {
                LibraryLock lock;
                p.mesh();
                py::list list;
                const unsigned count = MeshNumVrtInPol(p.polygon);
                for (unsigned i = 0; i < count; ++i)
                    list.append(Vertex{p.owner, MeshPolVrtByIndex(p.polygon, static_cast<int>(i))});
                return list;
            },
            "The polygon's vertices in order.")
        .def_property_readonly(
            "type",
            [](const Polygon &p) {
                p.mesh();
                return code_text(PolyTypeCode(MeshPolygonType(p.polygon)));
            },
            "The polygon type's four-character code ('FACE', 'SUBD', ...).")
        .def_property_readonly(
            "normal",
            [](const Polygon &p) -> py::object {
                LibraryLock lock;
                float n[3] = {0, 0, 0};
                if (MeshPolygonNormal(p.mesh(), p.polygon, n) == 0) return py::none();
                return py::make_tuple(n[0], n[1], n[2]);
            },
            "The unit normal, or None for a polygon without area.")
        .def_property_readonly(
            "tags", [](const Polygon &p) { return Tags{p}; }, "The polygon's tags (a mapping).")
        .def_property_readonly(
            "dead",
            [](const Polygon &p) {
                p.mesh();
                return (MeshPolygonFlags(p.polygon) & MESH_ELEMENT_DEAD) != 0;
            },
            "Whether the polygon was deleted.")
        .def_property_readonly(
            "marks",
            [](const Polygon &p) {
                p.mesh();
                return MeshPolygonMarks(p.polygon);
            },
            "The mark word.")
        .def(
            "mark",
            [](const Polygon &p, unsigned set, unsigned clear) {
                LibraryLock lock;
                p.mesh();
                MeshMarkPolygon(p.polygon, mark_mode(set, clear));
            },
            py::arg("set") = 0, py::arg("clear") = 0, "Clears the `clear` marks, then sets `set`.")
        .def("__eq__", [](const Polygon &a, const Polygon &b) { return a.polygon == b.polygon; })
        .def("__hash__", [](const Polygon &p) { return std::hash<const void *>()(p.polygon); })
        .def("__repr__", [](const Polygon &p) {
            p.mesh();
            return "<vexor.Polygon " + code_text(PolyTypeCode(MeshPolygonType(p.polygon))) +
                   " of " + std::to_string(MeshNumVrtInPol(p.polygon)) + " vertices>";
        });

    py::class_<Map>(m, "VertexMap",
                    "A vertex map: a fixed number of float values per vertex (UVs, weights, "
                    "morphs, colours, ...), or per vertex of one polygon. Index it with a Vertex "
                    "or a vertex index. Edits are undoable.")
        .def_property(
            "name", [](const Map &map) { return std::string(VMapName(map.get())); },
            [](const Map &map, const std::string &name) {
                LibraryLock lock;
                begin_call();
                check(VMapSetName(map.edit(), name.c_str()), "could not rename the map");
            },
            "The map's name (at most 63 bytes).")
        .def_property_readonly(
            "type", [](const Map &map) { return code_text(VMapType(map.get())); },
            "The map type's four-character code ('TXUV', 'WGHT', ...).")
        .def_property_readonly(
            "dimension", [](const Map &map) { return VMapDimension(map.get()); },
            "Values per entry.")
        .def("__getitem__",
             [](const Map &map, py::handle vertex) -> py::object {
                 LibraryLock lock;
                 const float *values = VMapGet(map.get(), map_vertex(map, vertex));
                 if (values == nullptr) return py::none();
                 return values_array(values, VMapDimension(map.map));
             })
        .def("__setitem__",
             [](const Map &map, py::handle vertex, py::handle values) {
                 LibraryLock lock;
                 begin_call();
                 const std::vector<float> v = map_values(map, values);
                 check_ptr(
                     VMapSet(map.edit(), map_vertex(map, vertex), v.empty() ? nullptr : v.data()),
                     "could not set the value");
             })
        .def("__delitem__",
             [](const Map &map, py::handle vertex) {
                 LibraryLock lock;
                 if (VMapUnset(map.edit(), map_vertex(map, vertex)) == 0)
                     throw py::key_error("no value");
             })
        .def(
            "get",
            [](const Map &map, py::handle vertex, const Polygon *polygon) -> py::object {
                LibraryLock lock;
                const float *values =
                    polygon != nullptr
                        ? VMapEval(map.get(), map_vertex(map, vertex), polygon->polygon)
                        : VMapGet(map.get(), map_vertex(map, vertex));
                if (values == nullptr) return py::none();
                return values_array(values, VMapDimension(map.map));
            },
            py::arg("vertex"), py::arg("polygon") = nullptr,
            "The value of a vertex (as used by the polygon, when given: its own value there, "
            "else the vertex's), or None.")
        .def(
            "set",
            [](const Map &map, py::handle vertex, py::handle values, const Polygon *polygon) {
                LibraryLock lock;
                begin_call();
                const std::vector<float> v = map_values(map, values);
                const float *data = v.empty() ? nullptr : v.data();
                MeshVertex *vx = map_vertex(map, vertex);
                check_ptr(polygon != nullptr ? VMapPSet(map.edit(), vx, polygon->polygon, data)
                                             : VMapSet(map.edit(), vx, data),
                          "could not set the value");
            },
            py::arg("vertex"), py::arg("values"), py::arg("polygon") = nullptr,
            "Sets the value of a vertex, or of the vertex as used by one polygon.")
        .def(
            "to_array",
            [](const Map &map) {
                LibraryLock lock;
                VMap *vmap = map.get();
                Mesh *mesh = map.owner.cast<PyMesh &>().get();
                const unsigned count = MeshNumVrts(mesh);
                const uint32_t dimension = VMapDimension(vmap);
                py::array_t<float> out(
                    {static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(dimension)});
                float *target = out.mutable_data();
                for (unsigned i = 0; i < count; ++i) {
                    const float *values = VMapGet(vmap, MeshVrtByIndex(mesh, i));
                    for (uint32_t d = 0; d < dimension; ++d)
                        target[i * dimension + d] = values != nullptr ? values[d] : std::nanf("");
                }
                return out;
            },
            "The values of every live vertex, in index order, as an (n, dimension) array; NaN "
            "where a vertex has no value.")
        .def(
            "from_array",
            [](const Map &map,
               py::array_t<float, py::array::c_style | py::array::forcecast> values) {
                LibraryLock lock;
                begin_call();
                VMap *vmap = map.edit();
                Mesh *mesh = map.owner.cast<PyMesh &>().get();
                const unsigned count = MeshNumVrts(mesh);
                const uint32_t dimension = VMapDimension(vmap);
                if (values.ndim() != 2 || values.shape(0) != count || values.shape(1) != dimension)
                    throw py::value_error("expected an array of shape (" + std::to_string(count) +
                                          ", " + std::to_string(dimension) + ")");
                const float *source = values.data();
                // One undo step for the whole array. Should a value fail to be set, the ones
                // set before it get their old values back, in the same step.
                std::vector<std::pair<bool, std::vector<float>>> before;
                UndoBlockBegin();
                bool ok = true;
                unsigned done = 0;
                for (; done < count && ok; ++done) {
                    MeshVertex *v = MeshVrtByIndex(mesh, done);
                    const float *old = VMapGet(vmap, v);
                    before.emplace_back(old != nullptr,
                                        old != nullptr ? std::vector<float>(old, old + dimension)
                                                       : std::vector<float>{});
                    ok = VMapSet(vmap, v, source + done * dimension) != nullptr;
                }
                if (!ok) {
                    for (unsigned i = 0; i + 1 < done; ++i) {
                        MeshVertex *v = MeshVrtByIndex(mesh, i);
                        if (!before[i].first) {
                            VMapUnset(vmap, v);
                        } else {
                            VMapSet(vmap, v, before[i].second.data());
                        }
                    }
                }
                UndoBlockEnd();
                if (!ok) raise_failure("could not set the values");
            },
            py::arg("values"),
            "Sets every live vertex's value from an (n, dimension) array, as one undo step.")
        .def("__repr__", [](const Map &map) {
            return "<vexor.VertexMap " + code_text(VMapType(map.get())) + " '" + VMapName(map.map) +
                   "'>";
        });

    py::class_<PyMesh>(m, "Mesh",
                       "A polygon mesh: vertices, polygons, vertex maps and polygon tags.\n\n"
                       "Deleted elements stay (dead) until the mesh goes, so Vertex and Polygon "
                       "objects never dangle; indices count the live elements only.")
        .def(py::init([] {
            LibraryLock lock;
            begin_call();
            return std::make_unique<PyMesh>(check_ptr(MeshCreate(), "could not make a mesh"));
        }))
        .def(
            "instance",
            [](py::object owner, bool take_events) {
                PyMesh &self = owner.cast<PyMesh &>();
                LibraryLock lock;
                begin_call();
                auto instance = std::make_unique<PyMesh>(
                    check_ptr(MeshCreateInstance(self.get(), take_events ? 1 : 0),
                              "could not make an instance"));
                instance->source = self.source ? self.source : owner;
                return instance;
            },
            py::arg("take_events") = true,
            "A mesh sharing this one's vertices and polygons until it changes them.")
        .def(
            "add_vertex",
            [](py::object owner, std::array<double, 3> position) {
                LibraryLock lock;
                begin_call();
                MeshVertex *v =
                    check_ptr(MeshNewVertex(owner.cast<PyMesh &>().get(), position.data()),
                              "could not add the vertex");
                return Vertex{owner, v};
            },
            py::arg("position"), "Adds a vertex at (x, y, z) and returns it.")
        .def(
            "add_vertices",
            [](PyMesh &self,
               py::array_t<double, py::array::c_style | py::array::forcecast> positions) {
                if (positions.ndim() != 2 || positions.shape(1) != 3)
                    throw py::value_error("positions must be an (n, 3) array");
                LibraryLock lock;
                begin_call();
                Mesh *mesh = self.get();
                const unsigned first = MeshNumVrts(mesh);
                const py::ssize_t count = positions.shape(0);
                const double *p = positions.data();
                MeshBatchBegin(mesh);
                bool ok = true;
                for (py::ssize_t i = 0; i < count && ok; ++i)
                    ok = MeshNewVertex(mesh, p + 3 * i) != nullptr;
                MeshBatchEnd(mesh);
                if (!ok) raise_failure("could not add every vertex");
                py::array_t<int64_t> indices(count);
                for (py::ssize_t i = 0; i < count; ++i) indices.mutable_data()[i] = first + i;
                return indices;
            },
            py::arg("positions"),
            "Adds a vertex for each row of an (n, 3) array; returns their indices.")
        .def(
            "add_polygon",
            [](py::object owner, py::iterable vertices, const std::string &type, bool flip) {
                PyMesh &self = owner.cast<PyMesh &>();
                LibraryLock lock;
                begin_call();
                std::vector<MeshVertex *> handles;
                for (py::handle v : vertices) handles.push_back(vertex_arg(self, v));
                MeshPolygon *p = check_ptr(
                    MeshNewPolygon(self.get(), code4(type), static_cast<unsigned>(handles.size()),
                                   handles.data(), flip ? 1 : 0),
                    "could not add the polygon");
                return Polygon{owner, p};
            },
            py::arg("vertices"), py::arg("type") = "FACE", py::arg("flip") = false,
            "Adds a polygon of the vertices (Vertex objects or indices) and returns it.")
        .def(
            "add_polygons",
            [](PyMesh &self,
               py::array_t<int64_t, py::array::c_style | py::array::forcecast> indices,
               const std::string &type) {
                if (indices.ndim() != 2) throw py::value_error("indices must be an (m, k) array");
                LibraryLock lock;
                begin_call();
                Mesh *mesh = self.get();
                const uint32_t code = code4(type);
                const unsigned vertex_count = MeshNumVrts(mesh);
                const py::ssize_t rows = indices.shape(0);
                const py::ssize_t width = indices.shape(1);
                const int64_t *source = indices.data();
                for (py::ssize_t i = 0; i < rows * width; ++i)
                    if (source[i] < 0 || source[i] >= vertex_count)
                        throw py::index_error("vertex index " + std::to_string(source[i]) +
                                              " out of range");
                const unsigned first = MeshNumPols(mesh);
                std::vector<MeshVertex *> handles(static_cast<size_t>(width));
                MeshBatchBegin(mesh);
                bool ok = true;
                for (py::ssize_t r = 0; r < rows && ok; ++r) {
                    for (py::ssize_t c = 0; c < width; ++c)
                        handles[static_cast<size_t>(c)] =
                            MeshVrtByIndex(mesh, static_cast<unsigned>(source[r * width + c]));
                    ok = MeshNewPolygon(mesh, code, static_cast<unsigned>(width), handles.data(),
                                        0) != nullptr;
                }
                MeshBatchEnd(mesh);
                if (!ok) raise_failure("could not add every polygon");
                py::array_t<int64_t> made(rows);
                for (py::ssize_t i = 0; i < rows; ++i) made.mutable_data()[i] = first + i;
                return made;
            },
            py::arg("indices"), py::arg("type") = "FACE",
            "Adds a polygon for each row of an (m, k) array of vertex indices; returns their "
            "indices.")
        .def(
            "remove",
            [](PyMesh &self, py::object element) {
                LibraryLock lock;
                Mesh *mesh = self.get();
                int done = 0;
                if (py::isinstance<Vertex>(element)) {
                    done = MeshFreeVertex(mesh, element.cast<const Vertex &>().vertex);
                } else if (py::isinstance<Polygon>(element)) {
                    done = MeshFreePolygon(mesh, element.cast<const Polygon &>().polygon);
                } else {
                    throw py::type_error("remove() takes a Vertex or a Polygon");
                }
                if (done == 0) throw py::value_error("the element is dead or not in this mesh");
            },
            py::arg("element"),
            "Deletes a vertex or polygon (it stays, dead, until the mesh goes).")
        .def_property_readonly(
            "vertices",
            [](py::object owner) {
                LibraryLock lock;
                return element_list<Vertex>(owner, MeshNumVrts(owner.cast<PyMesh &>().get()),
                                            &MeshVrtByIndex);
            },
            "The live vertices in index order, as a list.")
        .def_property_readonly(
            "polygons",
            [](py::object owner) {
                LibraryLock lock;
                return element_list<Polygon>(owner, MeshNumPols(owner.cast<PyMesh &>().get()),
                                             &MeshPolByIndex);
            },
            "The live polygons in index order, as a list.")
        .def(
            "vertex",
            [](py::object owner, long long index) {
                LibraryLock lock;
                return Vertex{owner, vertex_arg(owner.cast<PyMesh &>(), py::int_(index))};
            },
            py::arg("index"), "The live vertex at an index.")
        .def(
            "polygon",
            [](py::object owner, long long index) {
                LibraryLock lock;
                Mesh *mesh = owner.cast<PyMesh &>().get();
                if (index < 0 || index >= static_cast<long long>(MeshNumPols(mesh)))
                    throw py::index_error("polygon index out of range");
                return Polygon{owner, MeshPolByIndex(mesh, static_cast<unsigned>(index))};
            },
            py::arg("index"), "The live polygon at an index.")
        .def_property_readonly(
            "vertex_count", [](PyMesh &self) { return MeshNumVrts(self.get()); }, "Live vertices.")
        .def_property_readonly(
            "polygon_count", [](PyMesh &self) { return MeshNumPols(self.get()); }, "Live polygons.")
        .def_property(
            "positions",
            [](PyMesh &self) {
                LibraryLock lock;
                Mesh *mesh = self.get();
                const unsigned count = MeshNumVrts(mesh);
                py::array_t<double> out({static_cast<py::ssize_t>(count), py::ssize_t{3}});
                double *target = out.mutable_data();
                for (unsigned i = 0; i < count; ++i)
                    MeshVertexPos(mesh, MeshVrtByIndex(mesh, i), target + 3 * i);
                return out;
            },
            [](PyMesh &self,
               py::array_t<double, py::array::c_style | py::array::forcecast> positions) {
                LibraryLock lock;
                begin_call();
                Mesh *mesh = self.get();
                const unsigned count = MeshNumVrts(mesh);
                if (positions.ndim() != 2 || positions.shape(0) != count || positions.shape(1) != 3)
                    throw py::value_error("expected an array of shape (" + std::to_string(count) +
                                          ", 3)");
                const double *p = positions.data();
                MeshBatchBegin(mesh);
                bool ok = true;
                for (unsigned i = 0; i < count && ok; ++i)
                    ok = MeshVertexSet(mesh, MeshVrtByIndex(mesh, i), p + 3 * i) != nullptr;
                MeshBatchEnd(mesh);
                if (!ok) raise_failure("could not move every vertex");
            },
            "The live vertices' positions as an (n, 3) array (a copy); assign an array of the "
            "same shape to move them all, announced as one change.")
        .def_property_readonly(
            "maps",
            [](py::object owner) {
                LibraryLock lock;
                Mesh *mesh = owner.cast<PyMesh &>().get();
                py::list list;
                const unsigned count = VMapCount(mesh, 0);
                for (unsigned i = 0; i < count; ++i)
                    list.append(Map{owner, VMapByIndex(mesh, 0, i)});
                return list;
            },
            "The mesh's vertex maps, the position map ('OPOS') among them.")
        .def(
            "add_map",
            [](py::object owner, const std::string &type, py::object name) {
                PyMesh &self = owner.cast<PyMesh &>();
                LibraryLock lock;
                begin_call();
                uint32_t code = VMapTypeByName(type.c_str());
                if (code == 0) code = code4(type);
                if (VMapTypeName(code) == nullptr)
                    throw py::value_error("unknown map type '" + type + "'");
                Mesh *mesh = self.edit_maps();
                UndoBlockBegin();
                VMap *map = VMapCreate(mesh, code);
                const bool named =
                    map != nullptr &&
                    (name.is_none() || VMapSetName(map, name.cast<std::string>().c_str()) != 0);
                UndoBlockEnd();
                if (map == nullptr) raise_failure("could not make the map");
                if (!named) throw py::value_error("a map's name is at most 63 bytes");
                return Map{owner, map};
            },
            py::arg("type"), py::arg("name") = py::none(),
            "Makes a vertex map of a type (its code, 'TXUV', or its name) with an optional name; "
            "undoable.")
        .def(
            "find_map",
            [](py::object owner, const std::string &type, py::object name) -> py::object {
                LibraryLock lock;
                Mesh *mesh = owner.cast<PyMesh &>().get();
                uint32_t code = VMapTypeByName(type.c_str());
                if (code == 0) code = code4(type);
                VMap *map = name.is_none()
                                ? VMapFindForMesh(mesh, code)
                                : VMapFindName(mesh, code, name.cast<std::string>().c_str());
                if (map == nullptr) return py::none();
                return py::cast(Map{owner, map});
            },
            py::arg("type"), py::arg("name") = py::none(),
            "The first map of the type (with that name, when given), or None.")
        .def(
            "mark_vertices",
            [](PyMesh &self, unsigned set, unsigned clear, unsigned require, unsigned forbid) {
                LibraryLock lock;
                return MeshMarkVrts(self.get(), mark_mode(require, forbid), mark_mode(set, clear));
            },
            py::arg("set") = 0, py::arg("clear") = 0, py::arg("require") = 0, py::arg("forbid") = 0,
            "Marks every live vertex that has all `require` marks and none of `forbid`: clears "
            "`clear`, sets `set`. Returns how many were marked.")
        .def(
            "mark_polygons",
            [](PyMesh &self, unsigned set, unsigned clear, unsigned require, unsigned forbid) {
                LibraryLock lock;
                return MeshMarkPols(self.get(), mark_mode(require, forbid), mark_mode(set, clear));
            },
            py::arg("set") = 0, py::arg("clear") = 0, py::arg("require") = 0, py::arg("forbid") = 0,
            "As mark_vertices(), for polygons.")
        .def(
            "marked_vertices",
            [](py::object owner, unsigned require, unsigned forbid) {
                LibraryLock lock;
                std::vector<MeshVertex *> found;
                MeshEnumerateVrts(owner.cast<PyMesh &>().get(), mark_mode(require, forbid),
                                  &collect_vertex, &found, nullptr, nullptr);
                py::list list;
                for (MeshVertex *v : found) list.append(Vertex{owner, v});
                return list;
            },
            py::arg("require") = 0, py::arg("forbid") = 0,
            "The live vertices with all `require` marks and none of `forbid`, in list order.")
        .def(
            "marked_polygons",
            [](py::object owner, unsigned require, unsigned forbid) {
                LibraryLock lock;
                std::vector<MeshPolygon *> found;
                MeshEnumeratePols(owner.cast<PyMesh &>().get(), mark_mode(require, forbid),
                                  &collect_polygon, &found, nullptr, nullptr);
                py::list list;
                for (MeshPolygon *p : found) list.append(Polygon{owner, p});
                return list;
            },
            py::arg("require") = 0, py::arg("forbid") = 0, "As marked_vertices(), for polygons.")
        .def(
            "on_change",
            [](PyMesh &self, py::function callback) {
                LibraryLock lock;
                auto subscriber = std::make_shared<Subscriber>(
                    MeshEventPort(self.get()), std::move(callback), &mesh_event, nullptr);
                self.subscribers.push_back(subscriber);
                return make_subscription(subscriber);
            },
            py::arg("callback"),
            "Calls callback(mask) after every change, with a mask of MeshChange bits. Returns a "
            "Subscription.")
        .def(
            "_batch_begin",
            [](PyMesh &self) {
                LibraryLock lock;
                MeshBatchBegin(self.get());
            },
            "Opens a change batch (use the batch() context manager).")
        .def(
            "_batch_end",
            [](PyMesh &self) {
                LibraryLock lock;
                MeshBatchEnd(self.get());
            },
            "Closes a change batch.")
        .def("__repr__", [](PyMesh &self) {
            if (self.mesh == nullptr || !library_running())
                return std::string("<vexor.Mesh (released)>");
            return "<vexor.Mesh " + std::to_string(MeshNumVrts(self.mesh)) + " vertices, " +
                   std::to_string(MeshNumPols(self.mesh)) + " polygons>";
        });
}

}  // namespace vxpy
