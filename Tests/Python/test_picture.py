"""Pictures: their bits, their memory, their files."""

import gc
import json
import os
import subprocess
import sys

import numpy as np
import OpenImageIO as oiio
import oxbeam
import pytest
from conftest import SCENES, command


def pixels(file):
    return oiio.ImageBuf(str(file)).get_pixels(oiio.FLOAT)


@pytest.mark.parametrize("name", ["showcase", "gallery/KelPhong", "gallery/KelGlass"])
def test_bits_are_the_commands(tmp_path, name):
    scene = oxbeam.load(SCENES / f"{name}.toml")
    size, layers = (64, 36), ["depth", "normal", "albedo", "object", "samples"]
    picture = scene.render(samples=2, size=size, aovs=layers)
    picture.save(tmp_path / "own.exr")
    command("render", SCENES / f"{name}.toml", "-o", tmp_path / "theirs.exr", "--size", "64x36", "--samples", 2,
            "--aov", ",".join(layers))
    own = pixels(tmp_path / "own.exr")
    assert own.shape == (36, 64, 3 + 1 + 3 + 3 + 1 + 1) and np.array_equal(own, pixels(tmp_path / "theirs.exr"))
    assert np.array_equal(own[..., :3], picture.rgb)
    again = scene.render(samples=2, size=size)  # layers and other renderings leave no trace
    assert np.array_equal(again.rgb, picture.rgb)
    cropped = scene.render(samples=2, size=size, crop=(10, 5, 40, 30), threads=1)
    assert np.array_equal(cropped.rgb, picture.rgb[5:30, 10:40])


def test_changes_give_the_picture_of_the_changed_scene(table):
    scene = oxbeam.load(table)
    scene.render(samples=1)
    scene["shader.lacquer"].shininess = 200
    scene["light.0"].intensity = (10, 20, 30)
    changed = oxbeam.load(table, set={"shader.lacquer.shininess": 200, "light.0.intensity": [10, 20, 30]})
    assert np.array_equal(scene.render().rgb, changed.render().rgb)
    scene["shader.lacquer"].reset()
    assert not np.array_equal(scene.render().rgb, changed.render().rgb)


def test_layers_are_what_geometry_says(scene):
    picture = scene.render(samples=1, aovs=["depth", "normal", "object"])
    assert picture.size == scene.size == (64, 48) and picture.rgb.shape == (48, 64, 3)
    # The middle of the picture lies between four pixels, each next to the sphere's nearest point.
    assert np.allclose(picture.depth[23:25, 31:33], 4.0, atol=0.01)
    assert np.allclose(picture.normal[23:25, 31:33], (0, 0, 1), atol=0.1)
    assert np.isinf(picture.depth[0, 0]) and picture.object[0, 0] == 0
    assert np.allclose(picture.rgb[0, 0], (0.2, 0.3, 0.4))
    assert set(np.unique(picture.object)) == {0, *scene["mesh.0"].numbers}
    assert set(scene.instances) == set(scene["mesh.0"].numbers)
    with pytest.raises(AttributeError, match="aovs=..albedo"):
        picture.albedo


def test_arrays_look_at_the_film_and_hold_it(scene):
    picture = scene.render(samples=3, aovs=["depth", "samples"])
    arrays = [picture.rgb, picture.depth, picture.samples]
    assert np.shares_memory(picture.rgb, picture.samples[:]) or picture.rgb.strides == picture.samples.strides + (4,)
    assert picture.rgb.__array_interface__["data"] == picture.rgb.__array_interface__["data"]
    assert (picture.samples == 3).all()
    for array in arrays:
        with pytest.raises(ValueError):
            array.setflags(write=True)
    kept = [array.copy() for array in arrays]
    del picture
    scene.render(samples=1)
    scene.close()
    del scene
    gc.collect()
    waste = [np.full_like(array, 7) for array in arrays]  # memory that was given back would be taken by these
    assert all(np.array_equal(array, copy) for array, copy in zip(arrays, kept)) and waste


def test_files_say_what_they_are(scene, tmp_path):
    picture = scene.render(samples=2, aovs=["depth", "object"])
    picture.save(tmp_path / "picture.exr")
    said = oiio.ImageBuf(str(tmp_path / "picture.exr")).spec()
    assert {"depth.Z", "object.id"} < set(said.channelnames) and said.getattribute("worldToCamera")
    assert said.getattribute("oxbeam:samples") == 2
    assert said.getattribute("Software").startswith(f"oxbeam {oxbeam.__version__}")
    names = json.loads(said.getattribute("oxbeam:objects"))
    assert {int(number): name for number, name in names.items()} == scene.instances
    shown = picture._repr_png_()
    picture.save(tmp_path / "picture.png")
    assert shown[:8] == b"\x89PNG\r\n\x1a\n" and shown == (tmp_path / "picture.png").read_bytes()
    with pytest.raises(ValueError, match="extension|format|ending"):
        picture.save(tmp_path / "picture.doc")
    with pytest.raises(OSError):
        picture.save(tmp_path / "none" / "picture.png")


def said_of(picture, folder):
    picture.save(folder / "said.exr")
    spec = oiio.ImageInput.open(str(folder / "said.exr")).spec()  # nothing is kept of an earlier file
    return {name: spec.getattribute(f"oxbeam:{name}") for name in ("command", "sceneHash", "packages", "engine")}


def test_what_a_picture_is_made_from_is_told_as_the_command_tells_it(table, tmp_path):
    settings = {"shader.lacquer.shininess": 64, "light.0.intensity": [1, 2, 3]}
    words = [word for name, value in settings.items() for word in ("--set", f"{name}={value}")]
    command("render", table, "-o", tmp_path / "theirs.exr", "--samples", 3, "--size", "20x10", *words)
    theirs = oiio.ImageBuf(str(tmp_path / "theirs.exr")).spec()
    scene = oxbeam.load(table, set=settings)
    own = said_of(scene.render(samples=3, size=(20, 10)), tmp_path)
    for name in ("sceneHash", "packages", "engine"):
        assert own[name] == theirs.getattribute(f"oxbeam:{name}") != ""
    assert sys.orig_argv[-1] in own["command"]

    def now():
        return said_of(scene.render(samples=3, size=(20, 10)), tmp_path)["sceneHash"]

    hashes = {own["sceneHash"]}
    at_first = scene["mesh.0"].transform
    for change in [
        lambda: setattr(scene["shader.lacquer"], "shininess", 3),
        lambda: setattr(scene["mesh.0"], "transform", 2 * np.eye(4)[:3]),
        lambda: setattr(scene["mesh.0"], "visible_to", ["primary"]),
        lambda: setattr(scene, "view", ((0, 0, 6), (0, 0, 0))),
        lambda: scene.add_mesh(np.zeros((3, 3)) + np.eye(3)),
        lambda: scene.set_picture("paint", np.ones((2, 2))),
        lambda: scene.set_picture("paint", np.zeros((2, 2))),
        lambda: setattr(scene, "filter", "gaussian"),
    ]:
        change()
        assert now() not in hashes
        hashes.add(now())
    scene = oxbeam.load(table, set=settings)
    scene["shader.lacquer"].shininess = 3
    assert now() in hashes
    scene["shader.lacquer"].shininess = 64
    scene["mesh.0"].transform = 2 * np.eye(4)[:3]
    scene["mesh.0"].transform = at_first
    assert now() == own["sceneHash"]
    scene.remove(scene.add_mesh(np.eye(3)))
    assert now() == own["sceneHash"]


def test_pictures_for_displays_are_toned_when_they_are_saved(scene, tmp_path):
    picture = scene.render()
    saved = {}
    for name, options in [("plain", {}), ("bright", {"exposure": 1}), ("filmic", {"tone": "filmic"})]:
        picture.save(tmp_path / f"{name}.png", bits=16, **options)
        saved[name] = pixels(tmp_path / f"{name}.png")
    assert (saved["bright"][24, 32] > saved["plain"][24, 32]).all() and not (saved["filmic"] == saved["plain"]).all()
    for name, options in [("a.exr", {"exposure": 1}), ("a.hdr", {"tone": "filmic"}), ("a.png", {"tone": "film"}),
                          ("a.png", {"exposure": float("inf")}), ("a.png", {"bits": 7}), ("a.jpg", {"bits": 16})]:
        with pytest.raises(ValueError):
            picture.save(tmp_path / name, **options)


def test_transparent_backgrounds_have_alpha(table):
    table.write_text(table.read_text().replace("samples = 2", 'samples = 2\nbackground = "transparent"'))
    picture = oxbeam.load(table).render()
    assert picture.alpha[0, 0] == 0.0 and picture.alpha[24, 32] == 1.0 and not picture.rgb[0, 0].any()
    with pytest.raises(ValueError, match="alpha"):
        picture.save(table.with_suffix(".jpg"))


def test_progress_is_told(scene, capsys):
    told = []
    scene.render(samples=60, size=(320, 240), progress=told.append)
    assert told == sorted(told) and told[-1] == 1.0 and 0.0 <= told[0]
    scene.render(samples=1, progress=True)
    assert "100%" in capsys.readouterr().err

    class Bar:  # as tqdm is one
        made = []

        def __init__(self, total, **_):
            self.n, self.total = 0, total
            self.made.append(self)

        def update(self, more):
            self.n += more

        def close(self):
            self.closed = True

    scene.render(samples=1, progress=Bar)
    assert [(bar.n, bar.total, bar.closed) for bar in Bar.made] == [(100, 100, True)]


def test_seconds_are_kept(scene):
    picture = scene.render(size=(32, 24), seconds=0.05)
    assert picture.complete and picture.passes >= 1 and picture.statistics["seconds"] < 5


def test_mistakes_in_arguments(scene):
    for arguments, exception in [
        ({"samples": 0}, ValueError),
        ({"samples": -1}, ValueError),
        ({"samples": 1.5}, TypeError),
        ({"size": (0, 5)}, ValueError),
        ({"size": (5,)}, ValueError),
        ({"size": 5}, TypeError),
        ({"size": (1 << 70, 5)}, (ValueError, TypeError)),
        ({"aovs": ["dept"]}, ValueError),
        ({"crop": (0, 0, 65, 48)}, ValueError),
        ({"crop": (5, 5, 5, 6)}, ValueError),
        ({"threads": 0}, ValueError),
        ({"seconds": -1}, ValueError),
        ({"progress": 3}, TypeError),
    ]:
        with pytest.raises(exception):
            scene.render(**arguments)
    assert scene.size == (64, 48) and scene.render().size == (64, 48)


INTERRUPTED = """
import os, signal, sys, threading, time
import oxbeam
scene = oxbeam.load(sys.argv[1])
threading.Timer(1.0, os.kill, (os.getpid(), signal.SIGINT)).start()
start = time.monotonic()
try:
    scene.render(samples=100000, aovs=["depth"])
except KeyboardInterrupt as interrupt:
    took = time.monotonic() - start
    picture = interrupt.picture
    assert picture is scene.last and not picture.complete
    print(took, picture.passes, int(picture.samples.max()), float(picture.rgb.max()))
assert scene.render(samples=1, size=(32, 18)).complete
"""


def test_an_interruption_is_soon_and_keeps_the_picture():
    words = subprocess.check_output([sys.executable, "-c", INTERRUPTED, SCENES / "gallery/KelPhong.toml"], text=True)
    took, passes, samples, brightest = map(float, words.split())
    assert 1.0 <= took < 1.5 + 5 * ("ASAN_OPTIONS" in os.environ)
    assert samples >= max(passes, 1) and brightest > 0


def test_an_exception_out_of_progress_ends_the_rendering(scene):
    def refuse(done):
        raise LookupError("enough")

    with pytest.raises(LookupError, match="enough") as caught:
        scene.render(samples=100000, size=(320, 240), progress=refuse)
    assert caught.value.picture is scene.last and not scene.last.complete
