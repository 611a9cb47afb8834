"""Scenes."""

import collections.abc
import errno
import operator
import os
import shlex
import stat
import sys
from typing import NamedTuple

from . import _arrays, _oxbeam
from ._errors import UnknownName
from ._objects import object_at, plain, text
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


def _unknown(scene, place):
    return UnknownName(f"the scene has no {place!r}{_oxbeam.place_meant(place, scene.places())}")


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
        """Gives all of it another surface: "lacquer", "shader.lacquer", "model.0.shader.Steel", or such an object."""
        self._scene.set_shader(self._place, _shader_place(self._scene, shader))

    def __getattr__(self, name):
        """Says what has another name here than in scene files."""
        elsewhere = "; see set_shader" if name == "shader" else ""
        if name in ("translate", "rotate", "scale", "matrix"):
            elsewhere = "; see transform"
        raise AttributeError(f"a placement has no {name!r}{elsewhere or _oxbeam.did_you_mean(name, dir(type(self)))}")

    def __setattr__(self, name, value):
        if not hasattr(type(self), name):
            self.__getattr__(name)
        object.__setattr__(self, name, value)

    def __repr__(self):
        return f"<{type(self).__name__} {self._place!r}>"


def _shader_place(scene, shader):
    known = scene.places()
    shader = text(getattr(shader, "place", shader), "shader")
    if f"shader.{shader}" in known and shader not in known:
        return f"shader.{shader}"
    if shader not in known:
        raise _unknown(scene, shader)
    return shader


def _names(values, what):
    """One text, or several."""
    try:
        return [text(name, what) for name in ([values] if isinstance(values, str) else values)]
    except TypeError:
        raise TypeError(f"{what}: expected names, not {values!r}") from None


def _command():
    """How this process was started, as a shell takes it."""
    try:
        words = shlex.join(sys.orig_argv)
    except (TypeError, AttributeError):  # whose arguments somebody has changed
        return "python"
    return words.encode(errors="surrogateescape").decode(errors="replace")  # file names need not be UTF-8


def _index(value, what):
    """An integer, or None."""
    try:
        return value if value is None else operator.index(value)
    except TypeError:
        raise TypeError(f"{what}: expected an integer, not {value!r}") from None


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


def _held(name, doc):
    """A property that the engine's scene keeps, and answers and takes as it is."""
    return property(
        lambda self: getattr(self._scene, name)(), lambda self, value: getattr(self._scene, "set_" + name)(value), doc=doc
    )


class Scene:
    """A scene that was loaded: its objects by their places, and its pictures.

    `scene["shader.lacquer"]` is an object, `scene["mesh.0"]` what stands in the scene. A scene is for one thread at a time:
    while it is at work, others that use it get a RuntimeError. It can be used in `with`, which closes it.
    """

    __slots__ = ("_scene", "__weakref__")

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

    background = _held(
        "background",
        """What is seen where nothing is: "environment", or "transparent" for pictures with alpha."""
    )
    filter = _held(
        "filter",
        """How samples count for their pixel: "box", "gaussian", ...; setting one sets its usual width."""
    )
    filter_width = _held("filter_width", "In pixels.")
    exposure = _held("exposure", "Of pictures for displays, in stops: each doubles the light.")
    tone = _held("tone", """The tone curve of pictures for displays: "none", "filmic", ...""")

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
        try:
            view = View(*view)
        except TypeError:
            raise TypeError(f"view: expected position, look_at, and perhaps look_up and fov, not {view!r}") from None
        self._scene.set_view(*(plain(part) for part in view))

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
                raise _unknown(self._scene, place) from None
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
        return object_at(self._scene, self._scene.add(text(place, "place"), text(object, "object"), values))

    def add_mesh(self, vertices, faces=None, normals=None, uv=None, shader=None, transform=None, name=None):
        """Adds triangles, and answers where they stand.

        `vertices` is an array of (n, 3), `faces` one of (m, 3) with numbers of vertices; without faces, three vertices in
        turn make a triangle. `normals` and `uv` are per vertex. What has `vertices` and `faces` of its own, as a mesh of
        trimesh has, can be given instead of both. `shader` is the name of a surface; without one it is the scene's first.
        Triangles without an area are left out. Arrays are copied once, and can be changed afterwards.
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
        named = text(texture, "texture").startswith("texture.") or texture in self._scene.textures()
        place = texture if named else f"texture.{texture}"
        if color_space not in (None, "srgb", "linear"):
            raise ValueError(f"color_space: expected 'srgb' or 'linear', not {color_space!r}")
        space = color_space or ""
        if isinstance(picture, (str, os.PathLike)):
            self._scene.set_texture_file(place, _file(picture), space)
        else:
            self._scene.set_texture(place, _arrays.picture(picture), space)

    def remove(self, place):
        """Removes a light, a mesh or a model. Those after it are counted anew: "light.2" becomes "light.1"."""
        self._scene.remove(text(getattr(place, "place", place), "place"))

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
        wish = {
            "samples": _index(samples, "samples"),
            "size": _whole(size, 2, "size"),
            "aovs": _names(aovs, "aovs"),
            "threads": _index(threads, "threads"),
            "crop": _whole(crop, 4, "crop"),
            "seconds": seconds,
            "packets": bool(packets),
            "command": _command(),
        }
        with Progress(progress) as tell:
            return self._scene.render(wish, tell)

    def intersect(self, origins, directions, *, threads=None):
        """Where rays hit first, of what cameras see: distance, object, triangle and normal, an array each.

        `origins` and `directions` are arrays of (..., 3) that go together as NumPy broadcasts them: as many of both, one
        origin of (3,) for all, or each of (n, 1, 3) with each of (m, 3). Directions are of any length, which distances are
        counted in. Arrays of contiguous float32 are read where they are. Rays that are not finite hit nothing.
        """
        starts, ways, shape = _arrays.rays(origins, directions)
        hits = self._scene.intersect(starts, ways, _index(threads, "threads"))
        return Hits(*(array.reshape((*shape, *array.shape[1:])) for array in hits))

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
    mode = os.stat(path).st_mode
    if stat.S_ISDIR(mode):
        raise IsADirectoryError(errno.EISDIR, "Is a directory", path)
    if not stat.S_ISREG(mode):
        raise ValueError(f"{path!r} is not a regular file")
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
    if set is not None and not isinstance(set, collections.abc.Mapping):
        raise TypeError(f"set: expected values by name, such as {{'shader.lacquer.shininess': 64}}, not {set!r}")
    for name, value in (set or {}).items():
        if not isinstance(name, str):
            raise TypeError(f"set: expected names such as 'shader.lacquer.shininess', not {name!r}")
        with_values[name] = plain(value)
    path = _file(path)
    model = {
        "shader": shader,
        "color": None if color is None else plain(color),
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
        "import_limit": _index(import_limit, "import_limit"),
    }
    model.update((name, value) for name, value in both.items() if value is not None)
    return Scene(_oxbeam.load(path, with_values, model))
