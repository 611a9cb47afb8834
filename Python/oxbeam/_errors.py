"""What goes wrong, beside Python's own exceptions."""

from typing import NamedTuple


class SceneFault(NamedTuple):
    """One error of a scene: what is wrong, and where. Line 0 is the file as a whole."""

    file: str
    line: int
    column: int
    message: str


class SceneError(Exception):
    """A scene that cannot be rendered. `errors` has everything that is wrong with it, each with its place."""

    def __init__(self, message, errors=()):
        super().__init__(message)
        self.errors = tuple(errors)

    def __reduce__(self):
        return SceneError, (self.args[0], self.errors)


class PackageError(Exception):
    """A package of shading objects is broken, or did what none may."""


class UnknownName(KeyError, AttributeError):
    """A place, a parameter or an object that is not there. The message has the nearest name."""

    def __str__(self):
        return str(self.args[0]) if self.args else ""


class SceneWarning(UserWarning):
    """Something that is probably not meant, in a scene, a package or a picture."""
