import math
import sys

import numpy as np
import pytest

import vexor


def bounce():
    return vexor.Envelope.from_keys([(0.0, 0.0), (0.5, 2.0), (1.0, 0.0)], post="repeat")


def test_array_evaluation_matches_scalar_evaluation_in_shape_and_value():
    env = bounce()
    times = np.linspace(-1.0, 3.0, 161).reshape(7, 23)
    values = env(times)
    assert values.shape == times.shape
    assert all(values.flat[i] == env(float(t)) for i, t in enumerate(times.flat))
    assert env(0.25) == env.evaluate(0.25)
    assert env(1.25) == pytest.approx(env(0.25))  # repeat behaviour past the last key


def test_integer_envelopes_read_ints():
    env = vexor.Envelope(integer=True)
    env.add_key(0.0, 3)
    env.add_key(1.0, 7)
    assert env.integer and env(0.5) == 3 and env(np.array([0.0, 1.5])).tolist() == [3, 7]
    assert isinstance(env.keys[1].value, int)


@pytest.mark.parametrize("setting, value, expected", [
    ("pre_behavior", "oscillate", vexor.Behavior.OSCILLATE),
    ("post_behavior", vexor.Behavior.LINEAR, 5),
    ("post_behavior", 0, vexor.Behavior.RESET),
    ("interpolation", "stepped", vexor.Interpolation.STEPPED),
])
def test_settings_take_names_enums_and_codes(setting, value, expected):
    env = bounce()
    setattr(env, setting, value)
    assert getattr(env, setting) == expected


@pytest.mark.parametrize("setting, value", [
    ("post_behavior", "bounce"), ("post_behavior", 7), ("interpolation", 3), ("pre_behavior", -1),
])
def test_settings_refuse_unknown_values(setting, value):
    env = bounce()
    before = getattr(env, setting)
    with pytest.raises(ValueError):
        setattr(env, setting, value)
    assert getattr(env, setting) == before


@pytest.mark.parametrize("bad", [math.nan, math.inf])
def test_non_finite_times_and_values_are_refused(bad):
    env = bounce()
    for call in (lambda: env.add_key(bad, 1.0), lambda: env.add_key(2.0, bad)):
        with pytest.raises(ValueError):
            call()
    assert len(env) == 3


def test_key_fields_edit_the_curve():
    env = bounce()
    key = env.keys[1]
    key.value = 4.0
    key.time = 0.75
    assert env.key_at(0.75) == key and env.key_at(0.5) is None
    key.slope_type = "manual"
    key.broken = True
    key.incoming.slope = 1.0
    key.outgoing.slope = -1.0
    assert (key.incoming.slope, key.outgoing.slope, key.broken) == (1.0, -1.0, True)
    assert key.outgoing.slope_type == vexor.Slope.MANUAL


def test_a_deleted_key_raises_instead_of_dangling():
    env = bounce()
    key = env.keys[0]
    env.remove_key(key)
    with pytest.raises(vexor.LifetimeError):
        key.value
    with pytest.raises(ValueError):
        bounce().remove_key(env.keys[0])  # a key of another envelope


def test_save_and_load_round_trip(tmp_path):
    env = bounce()
    env.pre_behavior = "oscillate"
    path = str(tmp_path / "bounce.vxc")
    env.save(path)
    back = vexor.Envelope.load(path)
    times = np.linspace(-2, 3, 101)
    assert back.post_behavior == vexor.Behavior.REPEAT and back.pre_behavior == vexor.Behavior.OSCILLATE
    np.testing.assert_allclose(back(times), env(times), atol=1e-5)
    (tmp_path / "junk.vxc").write_bytes(b"not a curve")
    with pytest.raises(ValueError):
        vexor.Envelope.load(str(tmp_path / "junk.vxc"))


def test_edits_undo_and_redo(history):
    env = vexor.Envelope()
    with vexor.undo_block():
        env.add_key(0.0, 1.0)
        env.add_key(1.0, 2.0)
    assert vexor.undo_count() == 1
    assert vexor.undo() and len(env) == 0
    assert vexor.redo() and [k.time for k in env.keys] == [0.0, 1.0]


def test_change_callbacks_hear_edits_and_their_undo(history):
    env = vexor.Envelope()
    heard = []
    subscription = env.on_change(lambda kind, key, start, end: heard.append(kind))
    key = env.add_key(0.0, 1.0)
    key.value = 2.0
    vexor.undo()
    assert "insert" in heard and "key" in heard and len(heard) >= 3
    subscription.cancel()
    count = len(heard)
    env.add_key(2.0, 0.0)
    assert len(heard) == count and not subscription.active


def test_a_raising_callback_is_reported_and_does_not_stop_the_edit(monkeypatch):
    reported = []
    monkeypatch.setattr(sys, "unraisablehook", lambda info: reported.append(info.exc_type))
    env = vexor.Envelope()
    env.on_change(lambda *args: 1 / 0)
    env.add_key(0.0, 1.0)
    assert len(env) == 1 and ZeroDivisionError in reported


def test_bounds_copy_and_ranges():
    env = bounce()
    low, high = env.bounds(0.0, 1.0)
    assert low == pytest.approx(0.0) and high >= 2.0
    copy = env.copy()
    copy.shift(1.0)
    assert copy.time_range == (1.0, 2.0) and env.time_range == (0.0, 1.0)
    assert vexor.Envelope().time_range is None
