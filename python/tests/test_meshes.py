import numpy as np
import pytest

import vexor

QUAD = np.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]], dtype=float)


def grid_mesh():
    mesh = vexor.Mesh()
    mesh.add_vertices(QUAD)
    mesh.add_polygons(np.array([[0, 1, 2, 3]]))
    return mesh


def test_vertices_and_polygons_from_arrays():
    mesh = vexor.Mesh()
    assert mesh.add_vertices(QUAD).tolist() == [0, 1, 2, 3]
    assert mesh.add_polygons(np.array([[0, 1, 2], [0, 2, 3]]), type="FACE").tolist() == [0, 1]
    np.testing.assert_array_equal(mesh.positions, QUAD)
    assert [v.position for v in mesh.polygon(1).vertices] == [tuple(QUAD[i]) for i in (0, 2, 3)]
    assert mesh.polygon(0).normal == pytest.approx((0.0, 0.0, 1.0))
    with pytest.raises(IndexError):
        mesh.add_polygons(np.array([[0, 1, 9]]))
    with pytest.raises(ValueError):
        mesh.add_vertices(np.zeros((2, 2)))
    assert mesh.polygon_count == 2


def test_positions_assign_as_one_change():
    mesh = grid_mesh()
    masks = []
    mesh.on_change(masks.append)
    mesh.positions = QUAD * 2.0
    np.testing.assert_array_equal(mesh.positions, QUAD * 2.0)
    assert len(masks) == 1 and masks[0] & vexor.MeshChange.POSITIONS
    with pytest.raises(ValueError):
        mesh.positions = QUAD[:2]


def test_deleted_elements_stay_readable_and_indices_close_up():
    mesh = grid_mesh()
    first = mesh.vertex(0)
    mesh.remove(first)
    assert first.dead and mesh.vertex_count == 3 and mesh.vertex(0).position == (1.0, 0.0, 0.0)
    with pytest.raises(ValueError):
        mesh.remove(first)


def test_vertex_maps_edit_with_undo(history):
    mesh = grid_mesh()
    uv = mesh.add_map("TXUV", "uv")
    assert mesh.find_map("TXUV", "uv") is not None and uv.dimension == 2
    uv.from_array(np.array([[0, 0], [1, 0], [1, 1], [0, 1]], dtype=np.float32))
    uv[0] = (0.25, 0.5)
    polygon = mesh.polygon(0)
    uv.set(1, (9.0, 9.0), polygon=polygon)
    assert uv.get(1, polygon).tolist() == [9.0, 9.0] and uv[1].tolist() == [1.0, 0.0]
    vexor.undo()
    vexor.undo()
    assert uv[0].tolist() == [0.0, 0.0]
    vexor.undo()  # the whole array was one step
    assert np.isnan(uv.to_array()).all()
    with pytest.raises(ValueError):
        uv[0] = (1.0, 2.0, 3.0)
    with pytest.raises(ValueError):
        mesh.add_map("NOPE")


def test_tags_and_marks():
    mesh = grid_mesh()
    polygon = mesh.polygon(0)
    polygon.tags["MATR"] = "wood"
    polygon.tags["SMGP"] = "ba"
    assert dict(polygon.tags.items())["MATR"] == "wood" and polygon.tags["SMGP"] == "ab"
    del polygon.tags["PART"]
    assert "PART" not in polygon.tags and list(polygon.tags) == ["MATR", "SMGP"]
    with pytest.raises(KeyError):
        polygon.tags["PART"]
    mesh.vertex(1).mark(set=0x4)
    assert mesh.mark_vertices(set=0x1, require=0x4) == 1
    assert mesh.marked_vertices(require=0x5) == [mesh.vertex(1)]
    assert mesh.mark_polygons(set=0x2) == 1 and mesh.marked_polygons(require=0x2) == [polygon]


def test_elements_keep_their_mesh_and_instances_their_source():
    vertex = grid_mesh().vertex(2)
    assert vertex.position == (1.0, 1.0, 0.0)
    instance = grid_mesh().instance()
    assert instance.vertex_count == 4
