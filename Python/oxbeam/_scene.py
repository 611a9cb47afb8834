"""Scenes."""

import operator
import os
import shlex
import sys
from typing import NamedTuple

from . import _arrays, _oxbeam
from ._objects import object_at, plain
from ._progress import Progress


class View(NamedTuple):
    """How the camera stands, and the vertical angle of its picture in degrees."""

    position: tuple
    look_at: tuple
    look_up: tuple = (0.0, 1.0, 0.0)
    fov: float = 40.0


class Hits(NamedTuple):
    """Where rays hit, an array each."""

    distance: object  # float32, in lengths of the direction; infinity where nothing is hit
    object: object  # uint32, numbers of objects from 1 (Scene.instances); 0 where nothing is hit
    triangle: object  # int32, of the object's mesh from 0; -1 where nothing is hit
    normal: object  # float32, of the triangle's plane and of unit length; zero where nothing is hit


RAY_KINDS = ("primary", "shadow", "transparency", "refraction", "reflection")


class Placement:
    """What stands in a scene: a mesh, or all parts of a model's file."""

    __slots__ = ("_scene", "_place")

    def __init__(self, scene, place):
        self._scene = scene
        self._place = place

    @property
    def place(self):
        """What the scene calls it: "mesh.0". Where one before it is removed, it is another's."""
        return self._place

    @property
    def numbers(self):
        """The numbers that its parts have in pictures and hits."""
        return tuple(self._scene.numbers(self._place))

    @property
    def transform(self):
        """Where it stands: an affine transformation of points (columns), an array of 4 x 4. To move it, set another."""
        import numpy as np

        return np.vstack([np.array(self._scene.transform(self._place)), (0.0, 0.0, 0.0, 1.0)])

    @transform.setter
    def transform(self, matrix):
        self._scene.move(self._place, _arrays.transform(matrix))

    @property
    def visible_to(self):
        """The kinds of rays that hit it: some of "primary", "shadow", "transparency", "refraction", "reflection".

        To change that, set others, or True or False for all and none.
        """
        return tuple(self._scene.visibility(self._place))

    @visible_to.setter
    def visible_to(self, kinds):
        if isinstance(kinds, bool):
            kinds = RAY_KINDS if kinds else ()
        self._scene.set_visibility(self._place, _names(kinds, "visible_to"))

    def set_shader(self, shader):
        """Gives all of it another surface: "lacquer", "shader.lacquer" or "model.0.shader.Steel"."""
        self._scene.set_shader(self._place, _shader_place(self._scene, shader))

    def __repr__(self):
        return f"<{type(self).__name__} {self._place!r}>"


def _shader_place(scene, shader):
    known = scene.places()
    return shader if shader in known or f"shader.{shader}" not in known else f"shader.{shader}"


def _names(values, what):
    """One text, or several."""
    names = [values] if isinstance(values, str) else list(values)
    for name in names:
        if not isinstance(name, str):
            raise TypeError(f"{what}: expected names, not {name!r}")
    return names


def _command():
    """How this process was started, as a shell takes it."""
    try:
        return shlex.join(sys.orig_argv)
    except (TypeError, AttributeError):  # whose arguments somebody has changed
        return "python"


def _whole(values, number, what):
    """So many integers, or None."""
    if values is None:
        return None
    try:
        whole = [operator.index(value) for value in values]
    except TypeError:
        raise TypeError(f"{what}: expected {number} integers, not {values!r}") from None
    if len(whole) != number:
        raise ValueError(f"{what}: expected {number} integers, not {len(whole)}")
    return whole


class Scene:
    """A scene that was loaded: its objects by their places, and its pictures.

    `scene["shader.lacquer"]` is an object, `scene["mesh.0"]` what stands in the scene. A scene is for one thread at a time:
    while it is at work, others that use it get a RuntimeError. It can be used in `with`, which closes it.
    """

    def __init__(self, scene):
        if not isinstance(scene, _oxbeam.Scene):
            raise TypeError("scenes come from oxbeam.load")
        self._scene = scene

    # ---- What is in it

    @property
    def file(self):
        """The file that it was loaded from."""
        return self._scene.file

    @property
    def size(self):
        """Width and height of its pictures, unless others are asked for."""
        return self._scene.size()

    @size.setter
    def size(self, size):
        self._scene.set_size(_whole(size, 2, "size"))

    @property
    def background(self):
        """What is seen where nothing is: "environment", or "transparent" for pictures with alpha."""
        return self._scene.background()

    @background.setter
    def background(self, name):
        self._scene.set_background(name)

    @property
    def filter(self):
        """How samples count for their pixel: "box", "gaussian", ...; setting one sets its usual width."""
        return self._scene.filter()

    @filter.setter
    def filter(self, name):
        self._scene.set_filter(name)

    @property
    def filter_width(self):
        """In pixels."""
        return self._scene.filter_width()

    @filter_width.setter
    def filter_width(self, pixels):
        self._scene.set_filter_width(pixels)

    @property
    def exposure(self):
        """Of pictures for displays, in stops: each doubles the light."""
        return self._scene.exposure()

    @exposure.setter
    def exposure(self, stops):
        self._scene.set_exposure(stops)

    @property
    def tone(self):
        """The tone curve of pictures for displays: "none", "filmic", ..."""
        return self._scene.tone()

    @tone.setter
    def tone(self, curve):
        self._scene.set_tone(curve)

    @property
    def camera(self):
        """The place of the camera in force: "camera", or "camera.close". To take another, set its place or its name."""
        return self._scene.camera()

    @camera.setter
    def camera(self, place):
        known = self._scene.places()
        self._scene.set_camera(place if place in known or f"camera.{place}" not in known else f"camera.{place}")

    @property
    def textures(self):
        """The places of all textures, and the width and height of their pictures."""
        return self._scene.textures()

    @property
    def view(self):
        """How the camera stands; without a word of the scene's, so that all is seen. To move it, set another."""
        return View(*self._scene.view())

    @view.setter
    def view(self, view):
        self._scene.set_view(*(plain(part) for part in View(*view)))

    @property
    def last(self):
        """The picture that was rendered last, also one that was interrupted; or None."""
        return self._scene.last

    @property
    def instances(self):
        """Names of what rays can hit, by the numbers that pictures and hits have."""
        return self._scene.instances()

    def places(self):
        """Names of all that `scene[...]` has."""
        return self._scene.places()

    def __getitem__(self, place):
        if not isinstance(place, str):
            raise TypeError(f"expected the name of a place, such as 'shader.lacquer', not {place!r}")
        try:
            return object_at(self._scene, place)
        except KeyError:
            if place not in self._scene.places():
                raise
        return Placement(self._scene, place)

    def __contains__(self, place):
        return place in self._scene.places()

    def __iter__(self):
        return iter(self._scene.places())

    def __len__(self):
        return len(self._scene.places())

    def _ipython_key_completions_(self):
        return self._scene.places()

    # ---- Changes

    def add(self, place, object, **parameters):
        """Adds a light, or a surface by a name of its own, and answers it.

        scene.add("light", "KelPointLight", position=(4, 6, 4), intensity=(40, 40, 40))
        scene.add("shader.red", "KelPhong", diffuseColor=(1, 0, 0))
        """
        values = {name: plain(value) for name, value in parameters.items()}
        return object_at(self._scene, self._scene.add(place, object, values))

    def add_mesh(self, vertices, faces=None, normals=None, uv=None, shader=None, transform=None, name=None):
        """Adds triangles, and answers where they stand.

        `vertices` is an array of (n, 3), `faces` one of (m, 3) with numbers of vertices; without faces, three vertices in
        turn make a triangle. `normals` and `uv` are per vertex. What has `vertices` and `faces` of its own, as a mesh of
        trimesh has, can be given instead of both. `shader` is the name of a surface; without one it is the scene's first.
        Arrays are copied once, and can be changed afterwards.
        """
        if hasattr(vertices, "vertices") and hasattr(vertices, "faces"):
            if faces is not None:
                raise TypeError("faces: the mesh has some already")
            mesh, vertices, faces = vertices, vertices.vertices, vertices.faces
            uv = getattr(getattr(mesh, "visual", None), "uv", None) if uv is None else uv
        points = _arrays.rows(vertices, 3, "vertices")
        place = self._scene.add_mesh(
            "" if name is None else str(name),
            points,
            _arrays.faces(faces, len(points)),
            None if normals is None else _arrays.rows(normals, 3, "normals"),
            None if uv is None else _arrays.rows(uv, 2, "uv"),
            "" if shader is None else _shader_place(self._scene, shader),
            _arrays.transform(transform),
        )
        return Placement(self._scene, place)

    def set_picture(self, texture, picture, color_space=None):
        """Gives a texture another picture; a name that is not there yet becomes a texture of the scene's.

        scene.set_picture("wood", "oak.png")
        scene.set_picture("checks", np.indices((8, 8)).sum(0) % 2 * 1.0)
        scene["shader.lacquer"].texture = "checks"

        `picture` is a file, or an array of height x width or height x width x 1 to 4 (grey, grey and alpha, colour, colour
        and alpha), rows from the top: float32 from 0 on, or uint8 or uint16 for 0 to 1. `color_space` is "srgb" or
        "linear"; without it files say it, integers are sRGB, and floats linear. It is used as the picture before was: how
        it is wrapped and filtered stays. Arrays are copied.
        """
        if not isinstance(texture, str):
            raise TypeError(f"texture: expected a name, not {texture!r}")
        place = texture if texture in self._scene.textures() or texture.startswith("texture.") else f"texture.{texture}"
        if color_space not in (None, "srgb", "linear"):
            raise ValueError(f"color_space: expected 'srgb' or 'linear', not {color_space!r}")
        space = color_space or ""
        if isinstance(picture, (str, os.PathLike)):
            self._scene.set_texture_file(place, _file(picture), space)
        else:
            self._scene.set_texture(place, _arrays.picture(picture), space)

    def remove(self, place):
        """Removes a light, a mesh or a model. Those after it are counted anew: "light.2" becomes "light.1"."""
        self._scene.remove(place.place if hasattr(place, "place") else place)

    # ---- Pictures and rays

    def render(
        self,
        samples=None,
        size=None,
        *,
        aovs=(),
        crop=None,
        seconds=None,
        packets=False,
        threads=None,
        progress=None,
    ):
        """Renders a picture: what the scene does not leave to the arguments is as the scene says it.

        `samples` is the number of passes, `size` width and height, `aovs` the layers beside the colours: some of "depth",
        "normal", "albedo", "object", "samples". `crop` keeps a part of the picture only: x0, y0, x1, y1. `seconds` renders
        as many whole passes as fit, and one at least. `packets` is a fast preview where objects can do it. `progress` is
        True for a bar, tqdm itself, or a function that is called with the share that is done, from 0 to 1.

        Other threads of Python's run meanwhile. Ctrl-C, or an exception out of `progress`, ends the rendering at once; the
        picture as it is then is in the exception as `picture`, and in `scene.last`.
        """
        if isinstance(aovs, str):
            aovs = [aovs]
        with Progress(progress) as tell:
            return self._scene.render(
                None if samples is None else operator.index(samples),
                _whole(size, 2, "size"),
                list(aovs),
                None if threads is None else operator.index(threads),
                _whole(crop, 4, "crop"),
                seconds,
                bool(packets),
                tell,
                _command(),
            )

    def intersect(self, origins, directions, *, threads=None):
        """Where rays hit first, of what cameras see: distance, object, triangle and normal, an array each.

        `origins` and `directions` are arrays of (..., 3), or one origin of (3,) for all. Directions are of any length, which
        distances are counted in. Arrays of contiguous float32 are read where they are. Rays that are not finite hit
        nothing.
        """
        starts, shape = _arrays.vectors(origins, "origins")
        ways, wanted = _arrays.vectors(directions, "directions")
        if shape not in (wanted, ()):
            raise ValueError(f"origins: expected the shape of the directions, {(*wanted, 3)}, or (3,), not {(*shape, 3)}")
        hits = self._scene.intersect(starts, ways, None if threads is None else operator.index(threads))
        return Hits(*(array.reshape((*wanted, *array.shape[1:])) for array in hits))

    # ---- The end

    def close(self):
        """Gives back its memory. Pictures stay; nothing else of it can be used any more."""
        self._scene.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __repr__(self):
        return f"<oxbeam.Scene {self.file!r}{'' if self._scene.is_open else ', closed'}>"


def _file(path):
    """Its name; says who is missing."""
    path = os.fsdecode(path)
    os.stat(path)
    if os.path.isdir(path):
        raise IsADirectoryError(21, "Is a directory", path)
    return path


def _color(value):
    """Of a background: three numbers as the engine reads them, or its name."""
    return value if isinstance(value, str) else ",".join(str(float(part)) for part in plain(value))


def load(
    path,
    *,
    set=None,
    camera=None,
    size=None,
    background=None,
    import_limit=None,
    shader=None,
    color=None,
    texture=None,
    environment=None,
    rotate_environment=None,
    ground=None,
    view=None,
    azimuth=None,
    elevation=None,
    zoom=None,
    up=None,
):
    """Loads a scene file, or makes a scene around a model's.

    `set` lays values over the file's: {"shader.lacquer.shininess": 64}. `camera` is one of the scene's named cameras, or of
    a model's. `size` is width and height of the pictures. `background` is "environment", "transparent", or a colour
    around a model. `import_limit` is how many seconds reading a model may take.

    The others are for models, as `oxbeam render` has them: a `shader` for all of it, a `color` and a picture (`texture`)
    in place of the file's; a picture of the `environment`, turned by `rotate_environment` degrees; `ground` is whether it
    stands on its shadow; `view` is where it is looked at from ("front", "iso", ...), or `azimuth` and `elevation` in
    degrees, and `zoom` how large; `up` is the axis of the file that is up: "z".

    Raises SceneError with everything that is wrong with the scene, and FileNotFoundError where a file is not there.
    """
    with_values = {}
    for name, value in (set or {}).items():
        if not isinstance(name, str):
            raise TypeError(f"set: expected names such as 'shader.lacquer.shininess', not {name!r}")
        with_values[name] = plain(value)
    path = _file(path)
    model = {
        "shader": shader,
        "color": None if color is None else [float(part) for part in plain(color)],
        "texture": None if texture is None else _file(texture),
        "environment": None if environment is None else _file(environment),
        "rotate_environment": rotate_environment,
        "ground": None if ground is None else bool(ground),
        "view": view,
        "azimuth": azimuth,
        "elevation": elevation,
        "zoom": zoom,
        "up": up,
    }
    model = {name: value for name, value in model.items() if value is not None}
    if model and _oxbeam.is_scene_file(path):
        raise ValueError(f"{next(iter(model))} is for models; {path!r} is a scene file")
    both = {
        "camera": camera,
        "size": _whole(size, 2, "size"),
        "background": None if background is None else _color(background),
        "import_limit": None if import_limit is None else operator.index(import_limit),
    }
    model.update((name, value) for name, value in both.items() if value is not None)
    return Scene(_oxbeam.load(path, with_values, model))
