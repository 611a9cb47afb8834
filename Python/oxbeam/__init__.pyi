from os import PathLike
from typing import Any, Callable, Iterable, Iterator, Literal, Mapping, NamedTuple, Sequence, SupportsIndex, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

__version__: str

_Value = Union[bool, float, str, Sequence[float], "NDArray[Any]", None]
_Layer = Literal["depth", "normal", "albedo", "object", "samples"]
_RayKind = Literal["primary", "shadow", "transparency", "refraction", "reflection"]
_Path = Union[str, PathLike[str]]

class SceneFault(NamedTuple):
    file: str
    line: int
    column: int
    message: str

class SceneError(Exception):
    errors: tuple[SceneFault, ...]
    def __init__(self, message: str, errors: Iterable[SceneFault] = ()) -> None: ...

class PackageError(Exception): ...
class UnknownName(KeyError, AttributeError): ...
class SceneWarning(UserWarning): ...

class Parameter(NamedTuple):
    name: str
    aliases: tuple[str, ...]
    type: str
    default: Any
    follows: str | None
    lower: float | tuple[float, ...] | None
    upper: float | tuple[float, ...] | None
    items: dict[int, str]
    group: str
    longname: str
    help: str

class Description(NamedTuple):
    name: str
    kind: str
    longname: str
    package: str
    parameters: dict[str, Parameter]

class View(NamedTuple):
    position: tuple[float, float, float]
    look_at: tuple[float, float, float]
    look_up: tuple[float, float, float] = ...
    fov: float = ...

class Hits(NamedTuple):
    distance: NDArray[np.float32]
    object: NDArray[np.uint32]
    triangle: NDArray[np.int32]
    normal: NDArray[np.float32]

class SceneObject:
    object: str
    @property
    def place(self) -> str: ...
    def parameters(self) -> dict[str, Parameter]: ...
    def values(self) -> dict[str, Any]: ...
    def is_set(self, name: str) -> bool: ...
    def reset(self, *names: str) -> None: ...
    def __getitem__(self, name: str) -> Any: ...
    def __setitem__(self, name: str, value: _Value) -> None: ...
    def __getattr__(self, name: str) -> Any: ...
    def __setattr__(self, name: str, value: _Value) -> None: ...

class Placement:
    @property
    def place(self) -> str: ...
    @property
    def numbers(self) -> tuple[int, ...]: ...
    @property
    def transform(self) -> NDArray[np.float64]: ...
    @transform.setter
    def transform(self, matrix: ArrayLike) -> None: ...
    @property
    def visible_to(self) -> tuple[str, ...]: ...
    @visible_to.setter
    def visible_to(self, kinds: bool | str | Iterable[_RayKind]) -> None: ...
    def set_shader(self, shader: str | SceneObject) -> None: ...

class Picture:
    @property
    def complete(self) -> bool: ...
    @property
    def rgb(self) -> NDArray[np.float32]: ...
    @property
    def alpha(self) -> NDArray[np.float32]: ...
    @property
    def depth(self) -> NDArray[np.float32]: ...
    @property
    def normal(self) -> NDArray[np.float32]: ...
    @property
    def albedo(self) -> NDArray[np.float32]: ...
    @property
    def object(self) -> NDArray[np.uint32]: ...
    @property
    def samples(self) -> NDArray[np.uint32]: ...
    @property
    def size(self) -> tuple[int, int]: ...
    @property
    def crop(self) -> tuple[int, int, int, int]: ...
    @property
    def passes(self) -> int: ...
    @property
    def statistics(self) -> dict[str, Any]: ...
    def save(
        self,
        file: _Path,
        *,
        bits: Literal[8, 16] = 8,
        exposure: float | None = None,
        tone: str | None = None,
    ) -> None: ...

class Scene:
    @property
    def file(self) -> str: ...
    @property
    def size(self) -> tuple[int, int]: ...
    @size.setter
    def size(self, size: Sequence[SupportsIndex]) -> None: ...
    background: str
    filter: str
    filter_width: float
    exposure: float
    tone: str
    camera: str
    @property
    def textures(self) -> dict[str, tuple[int, int]]: ...
    @property
    def view(self) -> View: ...
    @view.setter
    def view(self, view: View | Sequence[Any]) -> None: ...
    @property
    def last(self) -> Picture | None: ...
    @property
    def instances(self) -> dict[int, str]: ...
    def places(self) -> list[str]: ...
    def __getitem__(self, place: str) -> Any: ...
    def __contains__(self, place: str) -> bool: ...
    def __iter__(self) -> Iterator[str]: ...
    def __len__(self) -> int: ...
    def add(self, place: str, object: str, **parameters: _Value) -> SceneObject: ...
    def add_mesh(
        self,
        vertices: ArrayLike | Any,
        faces: ArrayLike | None = None,
        normals: ArrayLike | None = None,
        uv: ArrayLike | None = None,
        shader: str | SceneObject | None = None,
        transform: ArrayLike | None = None,
        name: str | None = None,
    ) -> Placement: ...
    def set_picture(
        self, texture: str, picture: _Path | ArrayLike, color_space: Literal["srgb", "linear"] | None = None
    ) -> None: ...
    def remove(self, place: str | Placement | SceneObject) -> None: ...
    def render(
        self,
        samples: SupportsIndex | None = None,
        size: Sequence[SupportsIndex] | None = None,
        *,
        aovs: _Layer | Sequence[_Layer] = (),
        crop: Sequence[SupportsIndex] | None = None,
        seconds: float | None = None,
        packets: bool = False,
        threads: SupportsIndex | None = None,
        progress: bool | Callable[[float], Any] | type | None = None,
    ) -> Picture: ...
    def intersect(
        self, origins: ArrayLike, directions: ArrayLike, *, threads: SupportsIndex | None = None
    ) -> Hits: ...
    def close(self) -> None: ...
    def __enter__(self) -> Scene: ...
    def __exit__(self, *_: Any) -> None: ...

def load(
    path: _Path,
    *,
    set: Mapping[str, _Value] | None = None,
    camera: str | None = None,
    size: Sequence[SupportsIndex] | None = None,
    background: str | Sequence[float] | None = None,
    import_limit: SupportsIndex | None = None,
    shader: str | None = None,
    color: Sequence[float] | None = None,
    texture: _Path | None = None,
    environment: _Path | None = None,
    rotate_environment: float | None = None,
    ground: bool | None = None,
    view: str | None = None,
    azimuth: float | None = None,
    elevation: float | None = None,
    zoom: float | None = None,
    up: Literal["x", "y", "z", "-x", "-y", "-z"] | None = None,
) -> Scene: ...
def load_packages(folder: _Path) -> None: ...
def objects(kind: str | None = None) -> list[str]: ...
def describe(name: str) -> Description: ...
def __getattr__(name: str) -> type[SceneObject]: ...
