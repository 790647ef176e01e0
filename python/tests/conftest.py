import itertools

import pytest

import vexor

_names = itertools.count()


@pytest.fixture
def history():
    """A clean undo history that records."""
    vexor.set_undo_enabled(True)
    vexor.clear_undo()
    yield
    vexor.clear_undo()


@pytest.fixture
def ball_type():
    """A fresh item type with a position vector, a float and an integer channel."""
    name = f"ball{next(_names)}"
    vexor.define_type(name, [("pos", "xyz", (0.0, 1.0, 0.0)), ("squash", "float", 1.0),
                             ("count", "int", 3)])
    return name
