"""What nobody should do, and what comes of it: exceptions."""

import copy
import copyreg
import gc
import multiprocessing
import os
import pickle
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import OpenImageIO as oiio
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
        lambda: mesh.visible_to,
        lambda: setattr(mesh, "visible_to", False),
        lambda: scene.textures,
        lambda: scene.set_picture("paint", [[1.0]]),
        lambda: scene.set_picture("paint", SCENES / "assets/parquet.jpg"),
        lambda: scene.camera,
        lambda: setattr(scene, "camera", "camera"),
        *(
            (lambda name=name: setattr(scene, name, getattr(scene, name)))
            for name in ("size", "background", "filter", "filter_width", "exposure", "tone")
        ),
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


def test_a_fork_beside_a_rendering_is_refused_and_ends_at_once(table):
    """Whoever was rendering is not in the child, and would be waited for."""
    words = run(
        """
        import os, signal, sys, threading, time, oxbeam
        scene = oxbeam.load(sys.argv[1])
        told = threading.Event()
        threading.Thread(target=scene.render, daemon=True,
                         kwargs={"samples": 1000000, "progress": lambda done: told.set()}).start()
        told.wait()
        if os.fork() == 0:
            signal.alarm(5)
            try:
                oxbeam.load(sys.argv[1])
            except RuntimeError as error:
                print(error, flush=True)
            sys.exit(0)
        print(os.waitstatus_to_exitcode(os.wait()[1]))
        os._exit(0)
        """,
        table,
    )
    assert "spawn" in words and words.endswith("\n0\n")


def render_by_itself(file):
    return oxbeam.load(file).render(samples=1).rgb.tobytes()


def test_processes_that_are_spawned_render(table):
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        assert pool.map(render_by_itself, [table, table]) == [render_by_itself(table)] * 2


def test_scenes_come_from_load_alone(scene):
    with pytest.raises(TypeError):
        oxbeam.Scene(None)
    for made_here in (oxbeam.Picture, oxbeam._oxbeam.Scene):
        derived = type("Derived", (made_here,), {"__init__": lambda self: None})
        for make in [
            made_here,
            derived,
            lambda: made_here.__new__(made_here),
            lambda: derived.__new__(derived),
            lambda: object.__new__(made_here),
            lambda: made_here.__base__.__new__(made_here),
            lambda: copyreg.__newobj__(made_here),
        ]:
            with pytest.raises(TypeError):
                make()
    for empty in (oxbeam.Scene.__new__(oxbeam.Scene), oxbeam.SceneObject.__new__(oxbeam.SceneObject)):
        with pytest.raises(AttributeError):
            repr(empty)


def test_copies_look_at_the_same_and_nothing_is_pickled(scene):
    lacquer, mesh, picture = scene["shader.lacquer"], scene["mesh.0"], scene.render(samples=1)
    copy.copy(scene)["shader.lacquer"].shininess = 7
    assert copy.copy(lacquer).shininess == lacquer.shininess == 7 and copy.copy(mesh).place == mesh.place
    for whole in (scene, lacquer, mesh, picture):
        with pytest.raises(TypeError, match="pickle"):
            pickle.dumps(whole)
        with pytest.raises(TypeError, match="pickle"):
            copy.deepcopy(whole)
    for values in (picture.rgb, scene.view, scene.intersect((0, 0, 5), (0, 0, -1)), oxbeam.describe("KelPhong")):
        assert pickle.dumps(copy.deepcopy(values))


def test_other_interpreters_of_a_process_are_refused():
    words = run(
        """
        import _xxsubinterpreters, oxbeam
        other = _xxsubinterpreters.create()
        try:
            _xxsubinterpreters.run_string(other, "import oxbeam")
        except _xxsubinterpreters.RunFailedError as error:
            print(error)
        _xxsubinterpreters.destroy(other)
        """
    )
    assert "ImportError" in words


def test_a_fork_saves_and_loads_what_needs_no_threads(table, tmp_path):
    """Compressing is done on threads, where there is much of it; they are gone before and after."""
    words = run(
        """
        import os, sys, oxbeam
        scene = oxbeam.load(sys.argv[1])
        picture = scene.render(samples=1, size=(800, 600), aovs=["normal"])
        picture.save(sys.argv[2] + "/before.exr")
        if os.fork() == 0:
            picture.save(sys.argv[2] + "/after.exr")
            oxbeam.load(sys.argv[1])
            print("saved", flush=True)
            os._exit(0)
        os.wait()
        """,
        table,
        tmp_path,
    )
    assert words == "saved\n"


def test_pictures_are_saved_by_many_threads(scene, tmp_path):
    picture = scene.render(samples=1, size=(640, 480), aovs=["normal", "depth"])
    names = [f"{i}.{ending}" for i in range(3) for ending in ("exr", "jpg", "png")]
    threads = [threading.Thread(target=picture.save, args=(tmp_path / name,)) for name in names]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    for name in names:
        one = oiio.ImageBuf(str(tmp_path / name)).get_pixels()
        assert np.array_equal(one, oiio.ImageBuf(str(tmp_path / f"0.{name[2:]}")).get_pixels(), equal_nan=True)


INTERRUPTED = """
import os, signal, sys, threading, time
import oxbeam
scene = None if sys.argv[2] == "load" else oxbeam.load(sys.argv[1])
work = (lambda: scene.render(samples=1, size=(8, 8))) if scene else (lambda: oxbeam.load(sys.argv[1]))
if sys.argv[2] == "rebuild":
    work()
    moved = scene["mesh.0"].transform
    moved[1, 3] += 1
    scene["mesh.0"].transform = moved
def interrupt():
    time.sleep(float(sys.argv[3]))
    global fired
    fired = time.monotonic()
    os.kill(os.getpid(), signal.SIGINT)
thread = threading.Thread(target=interrupt)
try:
    thread.start()
    work()
    thread.join()
except KeyboardInterrupt:
    print(time.monotonic() - fired)
    again = scene.render(samples=1, size=(8, 8)) if scene else oxbeam.load(sys.argv[1])
    print("again", flush=True)
"""


@pytest.mark.parametrize("what, seconds", [("load", 0.1), ("load", 0.4), ("build", 0.01), ("build", 0.05),
                                           ("rebuild", 0.01), ("rebuild", 0.05)])
def test_loading_and_building_are_interrupted_soon_and_can_be_done_again(tmp_path, what, seconds):
    x, y = np.meshgrid(np.linspace(0, 1, 500), np.linspace(0, 1, 500))
    corners = np.stack([x, y, 0.1 * np.sin(9 * x) * np.cos(7 * y)], axis=2).reshape(-1, 3)
    i = (np.arange(499)[:, None] * 500 + np.arange(499)).reshape(-1, 1) + 1
    faces = np.concatenate([i + (0, 1, 501), i + (0, 501, 500)])
    with open(tmp_path / "hills.obj", "w") as file:
        np.savetxt(file, corners, "v %g %g %g")
        np.savetxt(file, faces, "f %d %d %d")
    done = subprocess.run([sys.executable, "-c", INTERRUPTED, tmp_path / "hills.obj", what, str(seconds)],
                          capture_output=True, text=True, timeout=100)
    assert done.returncode == 0, done.stderr
    took, again = done.stdout.split()
    assert float(took) < 0.5 + 5 * ("ASAN_OPTIONS" in os.environ) and again == "again"
