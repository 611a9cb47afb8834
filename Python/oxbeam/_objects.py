"""Classes of objects, made from what the objects say of themselves."""

import contextlib
import keyword
import textwrap
from typing import NamedTuple

from . import _oxbeam
from ._errors import UnknownName


class Parameter(NamedTuple):
    """What an object says of one of its parameters."""

    name: str
    aliases: tuple
    type: str  # "float", "3 floats (color)", "texture", "int: 0 x-Axis, 1 y-Axis", ...
    default: object
    follows: object  # what gives it its value where nobody sets it, in words, or None: its default then is
    lower: object  # a number for all components or one for each, or None
    upper: object
    items: dict  # of an enumeration: values and their names
    group: str
    longname: str
    help: str

    def __str__(self):
        words = f"{self.name}: {self.type}, default {self.follows or self.default}"
        if self.lower is not None and self.upper is not None:
            words += f", {self.lower} to {self.upper}"
        if self.aliases:
            words += f"; also {', '.join(self.aliases)}"
        return words + (f"\n    {self.help}" if self.help else "")


class Description(NamedTuple):
    """What an object says of itself."""

    name: str
    kind: str  # "light", "surface shader", ...
    longname: str
    package: str
    parameters: dict  # of Parameter, by name

    def __str__(self):
        head = f"{self.name} ({self.kind})" + (f": {self.longname}" if self.longname else "")
        lines = [textwrap.indent(str(p), "  ") for p in self.parameters.values()]
        return "\n".join([head, f"from {self.package}", *(lines or ["It has no parameters."])])

    def __repr__(self):
        return str(self)


def objects(kind=None):
    """Names of all objects that the packages offer, or of those of one kind: "light", "camera", ..."""
    return _oxbeam.objects("" if kind is None else text(kind, "kind"))


def describe(name):
    """What an object says of itself: its kind and its parameters with types, bounds, defaults and help."""
    said = _oxbeam.describe(text(name, "name"))
    said["parameters"] = {p["name"]: Parameter(**{**p, "aliases": tuple(p["aliases"])}) for p in said["parameters"]}
    return Description(**said)


def text(value, what):
    """A name that somebody gave."""
    if not isinstance(value, str):
        raise TypeError(f"{what}: expected a name, not {value!r}")
    return value


def plain(value):
    """A value without NumPy in it, as parameters take them."""
    if hasattr(value, "tolist"):
        return value.tolist()
    if isinstance(value, (list, tuple)):
        return [plain(item) for item in value]
    return value


@contextlib.contextmanager
def _cameras_view(place, name):
    """Says where that is which scene files have among a camera's parameters."""
    try:
        yield
    except UnknownName as error:
        if place.partition(".")[0] != "camera" or name not in ("position", "lookAt", "lookUp", "fov"):
            raise
        raise UnknownName(f"{error}; how the camera stands is scene.view") from None


class SceneObject:
    """An object of a scene, by its place. Its parameters are attributes, and items.

    Values are checked against type and bounds when they are set, and count from the next picture on.
    """

    __slots__ = ("_scene", "_place")

    def __init__(self, scene=None, place=None, **_):
        if not isinstance(scene, _oxbeam.Scene):
            raise TypeError("objects stand in scenes: scene[place] is one, and scene.add(place, object) makes another")
        object.__setattr__(self, "_scene", scene)
        object.__setattr__(self, "_place", place)

    @property
    def place(self):
        """What the scene calls it: "shader.lacquer"."""
        return self._place

    @property
    def object(self):
        """The name of its class. Another one may be set; what was set and that knows too stays."""
        return self._scene.class_at(self._place)

    @object.setter
    def object(self, name):
        self._scene.set_class(self._place, text(name, "object"))

    def parameters(self):
        """What its class says of its parameters, by name."""
        return describe(self.object).parameters

    def values(self):
        """The values of all parameters, by name."""
        return {name: self[name] for name in self.parameters()}

    def is_set(self, name):
        """Whether anybody set the parameter, to whatever value."""
        return self._scene.is_set(self._place, name)

    def reset(self, *names):
        """Gives parameters their defaults; all of them where none is named."""
        for name in names or self.parameters():
            self._scene.reset(self._place, name)

    def __getitem__(self, name):
        with _cameras_view(self._place, name):
            return self._scene.get(self._place, text(name, "parameter"))

    def __setitem__(self, name, value):
        with _cameras_view(self._place, name):
            self._scene.set(self._place, text(name, "parameter"), plain(value))

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        return self[name]

    def __setattr__(self, name, value):
        if name == "object":
            return object.__setattr__(self, name, value)
        self[name] = value

    def __dir__(self):
        return [*super().__dir__(), *self.parameters()]

    def __eq__(self, other):
        return isinstance(other, SceneObject) and (self._scene, self._place) == (other._scene, other._place)

    def __hash__(self):
        return hash((id(self._scene), self._place))

    def __reduce__(self):
        return object_at, (self._scene, self._place)

    def __repr__(self):
        return f"<{self.object} at {self._place!r}>"


def _property(parameter):
    name = parameter.name
    return property(
        lambda self: self[name],
        lambda self, value: self.__setitem__(name, value),
        lambda self: self.reset(name),
        str(parameter).partition(": ")[2],
    )


_classes = {}


def object_class(name):
    """The class of a scene's objects of that name, for help() and completion."""
    if name not in _classes:
        said = describe(name)
        members = {
            parameter.name: _property(parameter)
            for parameter in said.parameters.values()
            if parameter.name.isidentifier()
            and not keyword.iskeyword(parameter.name)
            and not hasattr(SceneObject, parameter.name)
        }
        text = f"{(said.longname or said.name).rstrip('.')}: a {said.kind} of {said.package.rpartition('/')[2]}."
        _classes[name] = type(name, (SceneObject,), {"__slots__": (), "__module__": "oxbeam", "__doc__": text, **members})
    return _classes[name]


def object_at(scene, place):
    return object_class(scene.class_at(place))(scene, place)


__all__ = ["Description", "Parameter", "SceneObject", "UnknownName", "describe", "objects"]
