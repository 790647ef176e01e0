import threading

import numpy as np
import pytest

import vexor


@pytest.fixture
def scene(ball_type):
    scene = vexor.Scene()
    yield scene
    scene.destroy()


def test_items_and_channels_by_name(scene, ball_type):
    ball = scene.create_item(ball_type, "Ball")
    assert scene.item("Ball") == ball and scene.items == [ball]
    assert ball.channels == ["pos.X", "pos.Y", "pos.Z", "squash", "count"]
    assert (ball["pos.Y"], ball["squash"], ball["count"]) == (1.0, 1.0, 3.0)
    ball["squash"] = 0.5
    assert ball["squash"] == 0.5 and scene.action("edit").state(ball, "squash") == "constant"
    with pytest.raises(KeyError):
        ball["nope"]
    with pytest.raises(IndexError):
        ball[99]
    with pytest.raises(ValueError):
        scene.create_item("no such type")


def test_hierarchy_and_refusals(scene, ball_type):
    parent, child = scene.create_item(ball_type), scene.create_item(ball_type)
    child.parent = parent
    assert parent.children == [child] and child.parent == parent
    with pytest.raises(ValueError):
        parent.parent = child


def test_keys_evaluate_over_arrays_in_every_action(scene, ball_type):
    ball = scene.create_item(ball_type)
    ball.key("pos.Y", 0.0, 0.0)
    ball.key("pos.Y", 1.0, 2.0)
    scene.create_action("walk", parent="scene")
    ball.key("pos.X", 0.0, 5.0, action="walk")
    times = np.linspace(0.0, 1.0, 11)
    evaluator = scene.evaluator()
    values = evaluator.read(ball, "pos.Y", times)
    env = ball.envelope("pos.Y")
    np.testing.assert_allclose(values, env(times))
    assert evaluator.time == 0.0  # an array read keeps the evaluator's time
    assert scene.evaluator(action="walk").read(ball, "pos.X", 0.5) == 5.0
    assert ball.envelope("squash") is None


def test_envelopes_handed_to_an_action_belong_to_it(scene, ball_type):
    ball = scene.create_item(ball_type)
    env = vexor.Envelope.from_keys([(0.0, 1.0), (1.0, 3.0)])
    ball.set_envelope("squash", env)
    assert not env.owned and scene.evaluator(time=0.5).read(ball, "squash") == pytest.approx(2.0)
    with pytest.raises(ValueError):
        ball.set_envelope("pos.X", env)
    scene.action("edit").set_constant(ball, "squash", 4.0)  # the entry lets the envelope go
    with pytest.raises(vexor.LifetimeError):
        env(0.5)


def test_a_destroyed_scene_makes_everything_of_it_raise(ball_type):
    scene = vexor.Scene()
    ball = scene.create_item(ball_type)
    ball.key("squash", 0.0, 1.0)
    edit, evaluator, env = scene.action("edit"), scene.evaluator(), ball.envelope("squash")
    scene.destroy()
    assert not scene.alive
    for touch in (lambda: ball["squash"], lambda: ball.name, lambda: edit.name,
                  lambda: evaluator.read(ball, "squash"), lambda: env(0.0), lambda: scene.items):
        with pytest.raises(vexor.LifetimeError):
            touch()
    del evaluator  # its record went with the scene: dropping it must not touch it


def test_undone_and_deleted_items_raise_until_brought_back(scene, ball_type, history):
    ball = scene.create_item(ball_type, "Gone")
    vexor.undo()
    with pytest.raises(vexor.LifetimeError):
        ball.name
    vexor.redo()
    assert ball.name == "Gone"
    child = scene.create_item(ball_type)
    child.parent = ball
    child.delete()
    assert ball.children == [] and ball in scene.items
    with pytest.raises(vexor.LifetimeError):
        child.parent
    vexor.undo()
    assert child.parent == ball


def test_scene_events_name_their_subject(scene, ball_type, history):
    heard = []
    scene.on_change(lambda code, subject: heard.append((code, subject)))
    ball = scene.create_item(ball_type)
    ball["squash"] = 2.0
    vexor.undo()
    codes = [code for code, _ in heard]
    assert vexor.SceneEvent.ITEM_ADDED in codes and vexor.SceneEvent.ACTION_CHANGED in codes
    assert (vexor.SceneEvent.ITEM_ADDED, ball) in heard


def test_save_and_load(scene, ball_type, tmp_path):
    ball = scene.create_item(ball_type, "Ball")
    ball.key("pos.Y", 0.0, 0.0)
    ball.key("pos.Y", 1.0, 4.0)
    path = str(tmp_path / "shot.vxr")
    scene.save(path)
    loaded = vexor.Scene.load(path)
    times = np.linspace(0, 1, 5)
    np.testing.assert_allclose(loaded.evaluator().read(loaded.item("Ball"), "pos.Y", times),
                               scene.evaluator().read(ball, "pos.Y", times), atol=1e-5)
    (tmp_path / "junk.vxr").write_bytes(b"junk")
    with pytest.raises(vexor.VexorError) as failure:
        vexor.Scene.load(str(tmp_path / "junk.vxr"))
    assert failure.value.code != 0 and failure.value.text


def test_type_definitions_are_checked_first():
    with pytest.raises(ValueError):
        vexor.define_type("badkind", [("x", "quaternion")])
    assert vexor.type_code("badkind") is None
    vexor.define_type("defined_once", [("x", "float")])
    with pytest.raises(ValueError):
        vexor.define_type("defined_once", [("x", "float")])


def test_threads_reading_while_another_edits(scene, ball_type):
    ball = scene.create_item(ball_type)
    ball.key("pos.Y", 0.0, 0.0)
    ball.key("pos.Y", 1.0, 1.0)
    env = vexor.Envelope.from_keys([(0.0, 0.0), (1.0, 1.0)])
    times = np.linspace(0.0, 1.0, 20000)
    failures = []

    def read():
        try:
            for _ in range(5):
                scene.evaluator().read(ball, "pos.Y", times)
                env(times)
        except Exception as error:  # pragma: no cover - reported below
            failures.append(error)

    threads = [threading.Thread(target=read) for _ in range(3)]
    for thread in threads:
        thread.start()
    for i in range(200):
        ball.key("pos.Y", 2.0 + i * 0.01, float(i))
        env.add_key(2.0 + i * 0.01, float(i))
    for thread in threads:
        thread.join()
    assert not failures and len(env) == 202
