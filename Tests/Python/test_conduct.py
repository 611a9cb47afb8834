"""What nobody should do, and what comes of it: exceptions."""

import gc
import multiprocessing
import subprocess
import sys
import textwrap
import threading
import time

import oxbeam
import pytest
from conftest import SCENES


def run(code, *arguments):
    """In a process of its own, which has to end well."""
    done = subprocess.run([sys.executable, "-c", textwrap.dedent(code), *map(str, arguments)], capture_output=True,
                          text=True, timeout=100)
    assert done.returncode == 0, done.stderr
    return done.stdout


def operations(scene):
    """Everything that a scene can be asked for."""
    lacquer, mesh = scene["shader.lacquer"], scene["mesh.0"]
    return [
        scene.places,
        scene.render,
        lambda: scene.size,
        lambda: scene.view,
        lambda: setattr(scene, "view", ((0, 0, 5), (0, 0, 0))),
        lambda: scene.instances,
        lambda: scene["light.0"],
        lambda: "light.0" in scene,
        lambda: len(scene),
        lambda: lacquer.shininess,
        lambda: setattr(lacquer, "shininess", 3),
        lambda: lacquer.reset(),
        lambda: lacquer.is_set("shininess"),
        lambda: setattr(lacquer, "object", "KelDiffuse"),
        lambda: repr(lacquer),
        lambda: mesh.transform,
        lambda: mesh.numbers,
        lambda: setattr(mesh, "transform", mesh.transform),
        lambda: mesh.set_shader("chalk"),
        lambda: scene.add("light", "KelPointLight"),
        lambda: scene.add_mesh([(0, 0, 0), (1, 0, 0), (0, 1, 0)]),
        lambda: scene.remove("light.0"),
        lambda: scene.intersect((0, 0, 5), (0, 0, -1)),
    ]


def test_a_closed_scene_says_so(table):
    with oxbeam.load(table) as scene:
        picture = scene.render(samples=1)
        every = operations(scene)
    for operation in every:
        with pytest.raises(ValueError, match="closed"):
            operation()
    scene.close()
    assert "closed" in repr(scene) and scene.last is picture


def test_a_scene_that_renders_is_nobody_elses(scene):
    every = operations(scene)
    raised = []

    def others(done):
        for operation in [*every, scene.close]:
            try:
                operation()
            except RuntimeError as error:
                raised.append(error)
        raise LookupError

    with pytest.raises(LookupError):
        scene.render(samples=100000, size=(320, 240), progress=others)
    assert len(raised) == len(every) + 1
    assert scene.render(samples=1).complete


def test_threads_take_turns(table):
    """Scenes of their own render one after the other, one of all is refused to the others, and Python goes on meanwhile."""
    scenes = [oxbeam.load(table) for _ in range(3)]
    pictures, refused = [], []

    def work(scene):
        for _ in range(5):
            try:
                pictures.append(scene.render(samples=3))
            except RuntimeError:
                refused.append(scene)

    threads = [threading.Thread(target=work, args=(scene,)) for scene in [*scenes, scenes[0], scenes[0]]]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert len(pictures) + len(refused) == 25 and len(pictures) >= 15
    assert all((picture.rgb == pictures[0].rgb).all() for picture in pictures)


def test_python_goes_on_while_rendering(scene):
    counted, ends = [0], threading.Event()

    def count():
        while not ends.is_set():
            counted[0] += 1
            time.sleep(0.005)

    thread = threading.Thread(target=count)
    thread.start()
    scene.render(size=(64, 48), seconds=0.5)
    ends.set()
    thread.join()
    assert counted[0] > 10


def test_objects_outlive_their_scene(table):
    lacquer = oxbeam.load(table)["shader.lacquer"]
    gc.collect()
    lacquer.shininess = 5
    assert lacquer.shininess == 5


def test_values_that_run_python_do_no_harm(scene):
    class Closes:
        def tolist(self):
            scene.close()
            return 3.0

    with pytest.raises(ValueError, match="closed"):
        scene["shader.lacquer"].shininess = Closes()


def test_a_thread_that_renders_does_not_outlive_python(table):
    run(
        """
        import sys, threading, time, oxbeam
        scene = oxbeam.load(sys.argv[1])
        threading.Thread(target=scene.render, kwargs={"samples": 1000000}, daemon=True).start()
        time.sleep(0.3)
        """,
        SCENES / "gallery/KelPhong.toml",
    )


def test_a_fork_after_threads_says_what_to_do(table):
    words = run(
        """
        import os, sys, oxbeam
        scene = oxbeam.load(sys.argv[1])
        scene.render(samples=1)
        if os.fork() == 0:
            try:
                scene.render(samples=1)
            except RuntimeError as error:
                print(error, flush=True)
            os._exit(0)
        os.wait()
        """,
        table,
    )
    assert "spawn" in words


def render_by_itself(file):
    return oxbeam.load(file).render(samples=1).rgb.tobytes()


def test_processes_that_are_spawned_render(table):
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        assert pool.map(render_by_itself, [table, table]) == [render_by_itself(table)] * 2


def test_scenes_come_from_load_alone():
    with pytest.raises(TypeError):
        oxbeam.Scene(None)
    with pytest.raises(TypeError):
        oxbeam.Picture()
    with pytest.raises(TypeError):
        oxbeam._oxbeam.Scene()
