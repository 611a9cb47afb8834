"""Loading scenes, their objects by name, and what is said of mistakes."""

import copy
import os
import pickle
import subprocess
import sys

import numpy as np
import OpenImageIO as oiio
import oxbeam
import pytest
from conftest import SCENES, command


def test_values_come_back_as_they_were_set(scene, table):
    lacquer = scene["shader.lacquer"]
    for name, given, back in [
        ("shininess", 20, 20.0),
        ("ambientIntensity", np.float32(0.2), 0.2),
        ("shininess", np.int64(7), 7.0),
        ("diffuseColor", (0.1, 0.2, 0.3), (0.1, 0.2, 0.3)),
        ("diffuseColor", np.array([1, 0, 0.5]), (1.0, 0.0, 0.5)),
        ("receiveShadow", True, True),
        ("receiveShadow", np.bool_(False), False),
        ("texture", None, None),
    ]:
        setattr(lacquer, name, given)
        assert getattr(lacquer, name) == lacquer[name] == back
        assert lacquer.is_set(name)
    lacquer.reset("diffuseColor")
    assert lacquer.diffuseColor == oxbeam.describe("KelPhong").parameters["diffuseColor"].default
    del lacquer.shininess
    assert not lacquer.is_set("shininess")
    loaded = oxbeam.load(table, set={"shader.lacquer.shininess": 64, "light.0.intensity": np.array([1, 2, 3])})
    assert (loaded["shader.lacquer"].shininess, loaded["light.0"].intensity) == (64.0, (1.0, 2.0, 3.0))


def test_names_that_are_not_there_are_key_errors_with_the_nearest(scene):
    for mistake, nearest in [
        (lambda: scene["shader.laquer"], "shader.lacquer"),
        (lambda: scene["shader.lacquer"]["shinyness"], "shininess"),
        (lambda: setattr(scene["shader.lacquer"], "difuseColor", (0, 0, 0)), "diffuseColor"),
        (lambda: scene.add("light", "KelPointLigth"), "KelPointLight"),
        (lambda: scene.add("light", "KelPointLight", intesity=(1, 1, 1)), "intensity"),
        (lambda: oxbeam.describe("KelFong"), "KelPhong"),
        (lambda: oxbeam.objects("ligth"), "light"),
        (lambda: scene.remove("light.1"), "light.0"),
        (lambda: scene["lacquer"], "shader.lacquer"),
        (lambda: scene["mesh.1"], "mesh.0"),
        (lambda: scene["mesh.0"].set_shader("chlak"), "shader.chalk"),
        (lambda: scene.add_mesh(np.zeros((3, 3)), shader="laquer"), "shader.lacquer"),
        (lambda: oxbeam.load_package, "load_packages"),
    ]:
        with pytest.raises(KeyError, match=f"did you mean '{nearest}'"):
            mistake()
    with pytest.raises(AttributeError, match="did you mean 'shininess'"):
        scene["shader.lacquer"].shinyness
    with pytest.raises(AttributeError, match="did you mean 'transform'"):
        scene["mesh.0"].transfrom
    for name in ("exposur", "last", "file"):  # not there, or not to be set
        with pytest.raises(AttributeError):
            setattr(scene, name, 1)
    assert not hasattr(scene["shader.lacquer"], "shinyness")
    assert not hasattr(oxbeam, "KelFong")


def test_wrong_values_say_what_was_expected_and_change_nothing(scene):
    lacquer = scene["shader.lacquer"]
    bounds = oxbeam.describe("KelPhong").parameters["shininess"]
    for name, value, exception, words in [
        ("shininess", bounds.upper + 1, ValueError, f"outside its bounds {bounds.lower:g} to {bounds.upper:g}"),
        ("shininess", "much", ValueError, "expected a number"),
        ("shininess", float("nan"), ValueError, "expected a number"),
        ("shininess", 1 << 80, ValueError, "beyond"),
        ("shininess", object(), TypeError, "not object"),
        ("shininess", None, ValueError, "None, which is for textures; expected float"),
        ("diffuseColor", None, ValueError, "None, which is for textures; expected 3 floats"),
        ("diffuseColor", (1, 2), ValueError, "expected a list of 3"),
        ("diffuseColor", (1, 2, "x"), TypeError, "not str"),
        ("texture", "wood", ValueError, "not defined"),
        ("numFuzzySamples", 0.5, ValueError, "expected an integer"),
    ]:
        before = lacquer.values()
        with pytest.raises(exception, match=words):
            lacquer[name] = value
        assert lacquer.values() == before
        assert not lacquer.is_set("shininess")


def test_what_stands_elsewhere_than_in_scene_files_is_pointed_to(scene):
    for mistake, words in [
        (lambda: scene["camera"].position, "scene.view"),
        (lambda: setattr(scene["camera"], "fov", 30), "scene.view"),
        (lambda: scene["mesh.0"].translate, "transform"),
        (lambda: setattr(scene["mesh.0"], "scale", 2), "transform"),
        (lambda: setattr(scene["mesh.0"], "shader", "chalk"), "set_shader"),
        (lambda: scene.remove(oxbeam.KelPhong), "expected a name"),
        (lambda: oxbeam.KelPhong(), "scene.add"),
    ]:
        with pytest.raises((AttributeError, TypeError), match=words):
            mistake()
    scene["mesh.0"].set_shader(scene["shader.chalk"])


def test_arguments_of_other_types_are_told_by_their_names(scene, table):
    picture = scene.render(1)
    for name, mistake in [
        ("exposure", lambda: setattr(scene, "exposure", "a")),
        ("tone", lambda: setattr(scene, "tone", None)),
        ("filter", lambda: setattr(scene, "filter", 3)),
        ("filter_width", lambda: setattr(scene, "filter_width", None)),
        ("background", lambda: setattr(scene, "background", (1, 1, 1))),
        ("camera", lambda: setattr(scene, "camera", 3)),
        ("size", lambda: setattr(scene, "size", None)),
        ("size", lambda: setattr(scene, "size", (1 << 70, 5))),
        ("view", lambda: setattr(scene, "view", "front")),
        ("position", lambda: setattr(scene, "view", ((0, 0), (0, 0, 0)))),
        ("fov", lambda: setattr(scene, "view", ((0, 0, 5), (0, 0, 0), (0, 1, 0), "wide"))),
        ("object", lambda: setattr(scene["shader.chalk"], "object", None)),
        ("place", lambda: scene.add(3, "KelPhong")),
        ("shader", lambda: scene.add_mesh(np.zeros((3, 3)), shader=3)),
        ("samples", lambda: scene.render("many")),
        ("aovs", lambda: scene.render(aovs=[3])),
        ("seconds", lambda: scene.render(seconds="a")),
        ("threads", lambda: scene.render(threads=1 << 70)),
        ("set", lambda: oxbeam.load(table, set=["shader.lacquer.shininess=3"])),
        ("color", lambda: oxbeam.load(BUNNY, color="red")),
        ("name", lambda: oxbeam.describe(3)),
        ("kind", lambda: oxbeam.objects(3)),
        ("file", lambda: picture.save(3)),
        ("bits", lambda: picture.save("x.png", bits="8")),
        ("exposure", lambda: picture.save("x.png", exposure="a")),
        ("tone", lambda: picture.save("x.png", tone=3)),
    ]:
        with pytest.raises(TypeError, match=f"^{name}: expected .*not "):
            mistake()


def test_all_errors_of_a_scene_come_in_one_exception_with_their_places(tmp_path):
    file = tmp_path / "wrong.toml"
    file.write_text('[shader.a]\nobject = "KelPhong"\nshinyness = 3\n\n[[mesh]]\nfile = "none.obj"\nshader = "b"\n')
    with pytest.raises(oxbeam.SceneError) as caught:
        oxbeam.load(file)
    errors = caught.value.errors
    assert [(error.line, error.column) for error in errors if error.line] == [(3, 1), (6, 8), (7, 10)]
    assert all(error.file == str(file) for error in errors)
    assert "did you mean 'shininess'?" in errors[0].message
    assert str(caught.value).splitlines()[0].startswith(f"{file}:3:1: error: ")
    assert pickle.loads(pickle.dumps(caught.value)).errors == errors
    with pytest.raises(oxbeam.SceneError, match="expected a boolean|true or false"):
        file.write_text("[render]\nsoftShadows = 7\n")
        oxbeam.load(file)


def test_warnings_are_pythons(table):
    with pytest.warns(oxbeam.SceneWarning, match="outside its bounds"):
        oxbeam.load(table, set={"shader.lacquer.shininess": 1e9})


def test_files_that_cannot_be_read_are_os_errors(tmp_path):
    with pytest.raises(FileNotFoundError) as caught:
        oxbeam.load(tmp_path / "none.toml")
    assert caught.value.filename == tmp_path / "none.toml" or caught.value.filename == str(tmp_path / "none.toml")
    with pytest.raises(IsADirectoryError):
        oxbeam.load(tmp_path)
    os.mkfifo(tmp_path / "pipe.toml")
    for load in (oxbeam.load, lambda pipe: oxbeam.load(BUNNY, texture=pipe)):
        with pytest.raises(ValueError, match="is not a regular file"):
            load(tmp_path / "pipe.toml")
    with pytest.raises(NotADirectoryError):
        oxbeam.load_packages(tmp_path / "none")


def test_objects_come_and_go(scene):
    light = scene.add("light", "KelPointLight", position=(4, 6, 4), intensity=[40, 40, 40])
    assert (light.place, light.intensity) == ("light.1", (40.0, 40.0, 40.0))
    before = scene.places()
    with pytest.raises(ValueError, match="expected a list of 3"):
        scene.add("light", "KelPointLight", intensity=1)
    with pytest.raises(ValueError, match="expected a light"):
        scene.add("light", "KelPhong")
    with pytest.raises(ValueError, match="already"):
        scene.add("shader.chalk", "KelPhong")
    with pytest.raises(ValueError, match="expected 'light' or 'shader.NAME'"):
        scene.add("camera", "KelDOFCamera")
    assert scene.places() == before
    scene.remove("light.0")
    assert scene["light.0"].intensity == (40.0, 40.0, 40.0)
    red = scene.add("shader.red", "KelPhong", diffuseColor=(1, 0, 0), shininess=30)
    red.object = "KelDiffuse"
    assert (red.object, red.diffuseColor) == ("KelDiffuse", (1.0, 0.0, 0.0))
    with pytest.raises(ValueError, match="cannot be removed"):
        scene.remove("shader.red")


def test_objects_are_themselves_to_python(scene):
    lacquer = scene["shader.lacquer"]
    assert lacquer == scene["shader.lacquer"] != scene["shader.chalk"]
    assert isinstance(lacquer, oxbeam.KelPhong) and isinstance(lacquer, oxbeam.SceneObject)
    assert "shininess" in dir(lacquer)
    assert "shader.lacquer" in scene and "mesh.0" in list(scene)
    with pytest.raises((TypeError, AttributeError)):
        copy.deepcopy(lacquer)


def test_names_of_files_and_arguments_need_not_be_utf_8(table):
    file = bytes(table.parent) + b"/t\xff.toml"
    os.rename(table, file)
    code = "import oxbeam, sys; scene = oxbeam.load(sys.argv[1]); assert scene.file == sys.argv[1]; scene.render(1)"
    subprocess.run([sys.executable, "-c", code, file], check=True)


BUNNY = SCENES / "assets/bunny.glb"


def test_a_model_is_shown_as_the_command_shows_it(tmp_path):
    options = {"view": "front", "azimuth": 20, "zoom": 1.5, "color": (0.9, 0.2, 0.1), "shader": "KelPhong",
               "background": (0.1, 0.2, 0.3), "rotate_environment": 30, "ground": False, "up": "z",
               "environment": SCENES / "assets/studio.exr", "import_limit": 60}
    words = ["--view", "front", "--azimuth", 20, "--zoom", 1.5, "--color", "0.9,0.2,0.1", "--shader", "KelPhong",
             "--background", "0.1,0.2,0.3", "--rotate-environment", 30, "--ground", "none", "--up", "z",
             "--environment", SCENES / "assets/studio.exr", "--import-limit", 60]
    oxbeam.load(BUNNY, size=(32, 24), **options).render(samples=1).save(tmp_path / "own.exr")
    command("render", BUNNY, "-o", tmp_path / "theirs.exr", "--size", "32x24", "--samples", 1, *words)
    own, theirs = ((oiio.ImageBuf(str(tmp_path / f"{name}.exr"))) for name in ("own", "theirs"))
    assert np.array_equal(own.get_pixels(), theirs.get_pixels())
    assert own.spec().getattribute("oxbeam:sceneHash") == theirs.spec().getattribute("oxbeam:sceneHash")


def test_wrong_options_of_a_model_name_the_argument(table, tmp_path):
    for arguments, exception, words in [
        ({"view": "isoo"}, ValueError, "^view isoo: .* did you mean .iso"),
        ({"view": 3}, TypeError, "^view"),
        ({"azimuth": float("nan")}, ValueError, "azimuth"),
        ({"zoom": 0}, ValueError, "zoom"),
        ({"zoom": "x"}, TypeError, "zoom"),
        ({"up": "w"}, ValueError, "up: expected one of x"),
        ({"color": (1, 2)}, TypeError, "color"),
        ({"color": (1, 2, 3)}, ValueError, "color"),
        ({"background": "pink"}, ValueError, "background"),
        ({"shader": "KelFong"}, ValueError, "did you mean .KelPhong"),
        ({"camera": "x"}, oxbeam.SceneError, "no cameras"),
        ({"camera": 3}, TypeError, "camera"),
        ({"size": (0, 5)}, ValueError, "size"),
        ({"import_limit": 0}, ValueError, "import_limit"),
        ({"texture": tmp_path / "none.png"}, FileNotFoundError, "none.png"),
        ({"environment": tmp_path}, IsADirectoryError, ""),
    ]:
        with pytest.raises(exception, match=words):
            oxbeam.load(BUNNY, **arguments)
    with pytest.raises(ValueError, match="view is for models"):
        oxbeam.load(table, view="front")


def test_what_a_scene_says_of_its_pictures_can_be_changed(table):
    scene = oxbeam.load(table)
    said = {"size": (20, 10), "background": "transparent", "filter": "gaussian", "filter_width": 3.0, "exposure": 1.5,
            "tone": "filmic"}
    for name, value in said.items():
        setattr(scene, name, value)
        assert getattr(scene, name) == value
    for name, value in [("size", (0, 1)), ("background", "pink"), ("filter", "cone"), ("filter_width", 0),
                        ("exposure", float("nan")), ("tone", "film")]:
        with pytest.raises(ValueError, match=name):
            setattr(scene, name, value)
        assert getattr(scene, name) == said[name]
    changed = scene.render()
    file = table.read_text().replace("width = 64\nheight = 48", "width = 20\nheight = 10\nfilterWidth = 3\n"
                                     'background = "transparent"\nfilter = "gaussian"')
    table.write_text(file)
    fresh = oxbeam.load(table).render()
    assert np.array_equal(changed.rgb, fresh.rgb) and np.array_equal(changed.alpha, fresh.alpha)


def test_views_that_nobody_can_have_are_told(scene):
    before = scene.view
    for view, words in [
        (((0, 0, 0), (0, 0, 0)), "^look_at: expected a point away"),
        (((0, 0, 0), (0, 5, 0)), "^look_up: expected a direction across"),
        (((0, 0, 0), (1e-8, 5, 0)), "^look_up"),
        (((0, 0, 5), (0, 0, 0), (0, 0, 0)), "^look_up"),
        (((0, 0, np.nan), (0, 0, 0)), "^position: expected finite"),
        (((0, 0, 5), (0, 0, 0), (0, 1, 0), 180), "^fov"),
    ]:
        with pytest.raises(ValueError, match=words):
            scene.view = view
    assert scene.view == before


def test_cameras_are_chosen_by_name(table):
    table.write_text(table.read_text() + "\n[camera.side]\nposition = [5, 0, 0]\nlookAt = [0, 0, 0]\n")
    scene = oxbeam.load(table)
    assert scene.camera == "camera"
    scene.camera = "side"
    assert scene.camera == "camera.side" and scene.view.position == (5.0, 0.0, 0.0)
    assert np.array_equal(scene.render().rgb, oxbeam.load(table, camera="side").render().rgb)
    for name, exception in [("none", KeyError), ("light.0", KeyError), (None, TypeError)]:
        with pytest.raises(exception):
            scene.camera = name
