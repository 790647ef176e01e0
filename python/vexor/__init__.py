"""Vexor core for Python: animation curves, meshes, scenes and their evaluation.

The module starts the library when imported and stops it when the interpreter ends. Every
edit is undoable: ``vexor.undo()`` and ``vexor.redo()`` step through one history for the
process, and ``with vexor.undo_block():`` makes everything inside one step.

Envelopes (animation curves)::

    import numpy as np, vexor
    bounce = vexor.Envelope()
    bounce.add_key(0.0, 0.0)
    bounce.add_key(0.5, 2.0)
    bounce.post_behavior = vexor.Behavior.OSCILLATE
    heights = bounce(np.linspace(0, 2, 49))      # a numpy array of values

Meshes::

    mesh = vexor.Mesh()
    mesh.add_vertices(np.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]]))
    mesh.add_polygons(np.array([[0, 1, 2, 3]]))
    uv = mesh.add_map("TXUV", "uv")

Scenes::

    vexor.define_type("ball", [("pos", "xyz", 0.0), ("squash", "float", 1.0)])
    scene = vexor.Scene()
    ball = scene.create_item("ball", "Ball")
    ball.key("pos.Y", 0.0, 0.0)
    ball.key("pos.Y", 0.5, 2.0)
    heights = scene.evaluator().read(ball, "pos.Y", np.linspace(0, 1, 25))

Failures raise ``VexorError`` (with the library's ``code`` and ``text``); using an object whose
underlying record is gone (an item of a destroyed scene, say) raises ``LifetimeError``.
Callbacks given to ``on_change`` run with the GIL held, after every change and its undo and
redo.
"""

import atexit as _atexit
import contextlib as _contextlib
import enum as _enum

from . import _core
from ._core import (Action, Envelope, Evaluator, Item, Key, KeySide, LifetimeError, Mesh,
                    Polygon, PolygonTags, Scene, Subscription, Vertex, VertexMap, VexorError,
                    can_redo, can_undo, clear_undo, define_type, last_failure, redo, redo_count,
                    set_undo_enabled, type_code, type_names, undo, undo_count, undo_recording)

__version__ = _core.__version__

__all__ = [
    "Action", "Behavior", "Envelope", "Evaluator", "Interpolation", "Item", "Key", "KeySide",
    "LifetimeError", "Mesh", "MeshChange", "Polygon", "PolygonTags", "Scene", "SceneEvent",
    "Slope", "Subscription", "Vertex", "VertexMap", "VexorError", "batch", "can_redo",
    "can_undo", "clear_undo", "define_type", "last_failure", "redo", "redo_count",
    "set_undo_enabled", "type_code", "type_names", "undo", "undo_block", "undo_count",
    "undo_recording",
]


class Behavior(_enum.IntEnum):
    """How an envelope goes on before its first key and after its last."""
    RESET = 0
    CONSTANT = 1
    REPEAT = 2
    OSCILLATE = 3
    OFFSET_REPEAT = 4
    LINEAR = 5
    NONE = 6


class Interpolation(_enum.IntEnum):
    """How an envelope goes from one key to the next."""
    CURVE = 0
    LINEAR = 1
    STEPPED = 2


class Slope(_enum.IntEnum):
    """How a key side's slope is found."""
    MANUAL = 0
    AUTO = 1
    LINEAR_IN = 2
    LINEAR_OUT = 4
    AUTO_FLAT = 16
    STEPPED = 32


class MeshChange(_enum.IntFlag):
    """The bits of a mesh change mask, as Mesh.on_change callbacks receive it."""
    VERTICES = 0x1
    POLYGONS = 0x2
    POSITIONS = 0x4
    TAGS = 0x20
    MAPS = 0x200
    LEVELS = 0x400
    SELECTION = 0x800


class SceneEvent(_enum.IntEnum):
    """Codes of the scene events Scene.on_change callbacks receive."""
    BATCH_BEGIN = 0x12000
    NAMES_REBUILD = 0x12002
    ITEM_ADDED = 0x12004
    ITEM_REMOVED = 0x12005
    ITEM_NAME = 0x12008
    BATCH_END = 0x12010
    ITEM_CHANGED = 0x12011
    PACKAGE = 0x12015
    CHANNELS_MOVED = 0x1201B
    HIDDEN = 0x1201D
    CHANGED_STATE = 0x11002
    ACTION_ADDED = 0x8000
    ACTION_REMOVED = 0x8001
    ACTION_PARENTS = 0x8002
    ACTION_CHANGED = 0x8003
    ACTION_ORDER = 0x8004
    ACTION_DEFINED = 0x8005


@_contextlib.contextmanager
def undo_block():
    """Makes every edit inside the ``with`` block one undo step. Blocks nest."""
    _core._undo_block_begin()
    try:
        yield
    finally:
        _core._undo_block_end()


@_contextlib.contextmanager
def batch(mesh):
    """Announces every change made to the mesh inside the ``with`` block as one event."""
    mesh._batch_begin()
    try:
        yield mesh
    finally:
        mesh._batch_end()


_atexit.register(_core._shutdown)
