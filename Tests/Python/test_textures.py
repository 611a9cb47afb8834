"""Pictures of textures, from arrays and from files."""

import numpy as np
import OpenImageIO as oiio
import oxbeam
import pytest
from conftest import SCENES

CORNERS = np.array([(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)], np.float32)
UV = (CORNERS[:, :2] + 1) / 2


def add_square(scene):
    scene.add_mesh(CORNERS, [(0, 1, 2), (0, 2, 3)], uv=UV, shader="paper")
    return scene


@pytest.fixture
def square(tmp_path):
    """A square that fills the picture, and whose colour is its texture's."""
    file = tmp_path / "square.toml"
    file.write_text(
        """
[image]
width = 4
height = 4
samples = 1
[camera]
position = [0, 0, 5]
lookAt = [0, 0, 0]
fov = 20
[environment]
background = [0, 0, 0]
[shader.paper]
object = "KelPhong"
diffuseColor = [1, 1, 1]
"""
    )
    return add_square(oxbeam.load(file))


def shown(scene):
    return scene.render(aovs=["albedo"]).albedo


def test_an_array_is_shown_as_it_is_laid_out(square):
    """Red at the left top, blue at the right bottom; all dtypes and strides alike."""
    picture = np.zeros((2, 2, 3), np.float32)
    picture[0, 0], picture[1, 1] = (1, 0, 0), (0, 0, 1)
    wide = np.zeros((4, 4, 3), np.float64)
    wide[::2, ::2] = picture
    square.set_picture("paint", picture)
    square["shader.paper"].texture = "paint"
    first = shown(square)
    assert first[0, 0].argmax() == 0 and first[0, 0, 0] > 0.5 and first[3, 3].argmax() == 2
    for same in [
        wide[::2, ::2],
        (255 * picture).astype(np.uint8),
        (65535 * picture).astype(">u2"),
        np.asfortranarray(picture),
        np.concatenate([picture, np.ones((2, 2, 1), np.float32)], axis=2),
    ]:
        square.set_picture("texture.paint", same)
        assert np.array_equal(shown(square), first), same.dtype
    grey = np.full((2, 2), 128, np.uint8)
    square.set_picture("paint", grey)
    assert np.allclose(shown(square), 0.2158605, atol=1e-4)  # as sRGB has it
    square.set_picture("paint", grey, color_space="linear")
    assert np.allclose(shown(square), 128 / 255, atol=1e-4)
    assert square.textures == {"texture.paint": (2, 2)}


def test_a_file_is_what_a_scene_would_read(square, tmp_path):
    picture = SCENES / "assets/parquet.jpg"
    square.set_picture("wood", picture)
    square["shader.paper"].texture = "wood"
    assert square.textures["texture.wood"] > (1, 1)
    loaded = tmp_path / "wood.toml"
    loaded.write_text(
        (tmp_path / "square.toml").read_text() + f'texture = "wood"\n[texture.wood]\nfile = "{picture}"\n'
    )
    theirs = shown(add_square(oxbeam.load(loaded)))
    assert np.array_equal(shown(square), theirs) and theirs.std() > 0


def test_numbers_that_are_not_finite_are_warned_of(square, tmp_path):
    image = oiio.ImageBuf(oiio.ImageSpec(2, 1, 3, "float"))
    image.setpixel(0, 0, (float("nan"), 1, 1))
    image.write(str(tmp_path / "nan.exr"))
    with pytest.warns(oxbeam.SceneWarning, match="nan.exr: 1 numbers of the picture are not finite"):
        square.set_picture("paint", tmp_path / "nan.exr")
    assert np.isfinite(square.render(samples=1).rgb).all()


def test_what_is_no_picture_changes_nothing(square, tmp_path):
    square.set_picture("paint", np.ones((2, 2)))
    square["shader.paper"].texture = "paint"
    before = shown(square)
    (tmp_path / "no.png").write_text("no picture")
    for picture, exception in [
        (np.ones((2, 2, 5)), ValueError),
        (np.ones((0, 3)), ValueError),
        (np.ones(4), ValueError),
        (np.full((2, 2), np.nan), ValueError),
        (np.full((2, 2), 1e300), ValueError),
        (np.ones((70000, 1)), ValueError),
        (np.ones((2, 2), int), TypeError),
        (np.ones((2, 2), bool), TypeError),
        (np.ones((2, 2), complex), TypeError),
        (np.array([[object()]]), TypeError),
        (None, TypeError),
        (tmp_path / "none.png", FileNotFoundError),
        (tmp_path, IsADirectoryError),
        (tmp_path / "no.png", ValueError),
        ("/dev/zero", ValueError),
    ]:
        with pytest.raises(exception):
            square.set_picture("paint", picture)
    for name, exception in [("a.b", KeyError), ("", KeyError), ("model.0.texture.a", KeyError), (3, TypeError)]:
        with pytest.raises(exception):
            square.set_picture(name, np.ones((2, 2)))
    with pytest.raises(ValueError, match="color_space"):
        square.set_picture("paint", np.ones((2, 2)), "rgb")
    assert np.array_equal(shown(square), before)
