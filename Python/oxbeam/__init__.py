"""Oxbeam renders scenes with packages of shading objects.

    import oxbeam

    scene = oxbeam.load("table.toml", set={"shader.lacquer.shininess": 64})
    scene["shader.lacquer"].shininess = 20
    picture = scene.render(samples=16, size=(640, 360), aovs=["depth"], progress=True)
    picture.save("table.exr")

`oxbeam.objects()` names the objects that packages offer, `oxbeam.describe("KelPhong")` and `help(oxbeam.KelPhong)` tell
about one.
"""

import os

from . import _oxbeam
from ._errors import PackageError, SceneError, SceneFault, SceneWarning, UnknownName
from ._objects import Description, Parameter, SceneObject, describe, object_class as _object_class, objects
from ._oxbeam import Picture
from ._scene import Hits, Placement, Scene, View, load

__version__ = _oxbeam.version
__all__ = [
    "Description",
    "Hits",
    "PackageError",
    "Parameter",
    "Picture",
    "Placement",
    "Scene",
    "SceneError",
    "SceneFault",
    "SceneObject",
    "SceneWarning",
    "UnknownName",
    "View",
    "describe",
    "load",
    "load_packages",
    "objects",
]

Picture.__module__ = __name__


def load_packages(folder):
    """Loads every package (lib*.so) of a folder, beside those that are installed."""
    _oxbeam.load_packages(os.fspath(folder))


def __getattr__(name):
    """Classes of objects, by their names: oxbeam.KelPhong."""
    if name.startswith("_"):
        raise AttributeError(f"module 'oxbeam' has no attribute {name!r}")
    try:
        return _object_class(name)
    except UnknownName as error:
        meant = _oxbeam.did_you_mean(name, __all__)
        raise (UnknownName(f"module 'oxbeam' has no {name!r}{meant}") if meant else error) from None


def __dir__():
    return sorted([*__all__, "__version__", *objects()])
