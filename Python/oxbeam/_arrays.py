"""Arrays as the engine takes them, and what is wrong with others."""

import numpy as np


def _numbers(values, what):
    try:
        array = np.asarray(values)
    except ValueError as error:
        raise ValueError(f"{what}: expected an array of numbers: {error}") from None
    if array.dtype.kind not in "iuf" and array.size:
        raise TypeError(f"{what}: expected numbers, not {array.dtype}")
    return array


def _packed(array, dtype):
    """One number after the other, where a processor wants them."""
    return np.require(array, dtype, ["C_CONTIGUOUS", "ALIGNED"])


def rows(values, columns, what):
    """Finite float32 numbers in so many columns, one row after the other; as it is where it is so already."""
    array = _numbers(values, what)
    if array.ndim != 2 or array.shape[1] != columns:
        raise ValueError(f"{what}: expected the shape (n, {columns}), not {array.shape}")
    with np.errstate(over="ignore"):
        array = _packed(array, np.float32)
    bad = ~np.isfinite(array).all(axis=1)
    if bad.any():
        raise ValueError(f"{what}: row {int(bad.argmax())} is not finite in single precision")
    return array


def picture(values):
    """Height x width x channels of uint8, uint16 or finite float32."""
    array = _numbers(values, "picture")
    if array.ndim == 2:
        array = array[..., np.newaxis]
    if array.ndim != 3 or not 1 <= array.shape[2] <= 4 or array.size == 0:
        raise ValueError(f"picture: expected the shape (h, w) or (h, w, 1 to 4), not {np.shape(values)}")
    if array.dtype.kind in "iu" and not (array.dtype.kind == "u" and array.dtype.itemsize <= 2):
        raise TypeError(f"picture: expected uint8, uint16 or floats, not {array.dtype}")
    if array.dtype.kind == "f":
        with np.errstate(over="ignore"):
            array = array.astype(np.float32)
        if not np.isfinite(array).all():
            raise ValueError("picture: not all numbers are finite in single precision")
    return _packed(array, array.dtype.newbyteorder("="))


def faces(values, vertices):
    """Triangles as uint32; all of the vertices in turn where there are none."""
    if values is None:
        if vertices % 3:
            raise ValueError(f"without faces, three vertices make a triangle; {vertices} do not come out even")
        return np.arange(vertices, dtype=np.uint32).reshape(-1, 3)
    array = _numbers(values, "faces")
    if array.ndim != 2 or array.shape[1] != 3:
        raise ValueError(f"faces: expected the shape (n, 3), not {array.shape}")
    if array.size and array.dtype.kind not in "iu":
        raise TypeError(f"faces: expected integers, not {array.dtype}")
    if array.size and (array.min() < 0 or array.max() >= vertices):
        bad = int(((array < 0) | (array >= vertices)).any(axis=1).argmax())
        raise ValueError(f"faces: face {bad} is {array[bad].tolist()}; expected vertices from 0 to {vertices - 1}")
    return _packed(array, np.uint32)


def transform(values):
    """The first three rows of an affine transformation of points (columns), as lists."""
    if values is None:
        values = np.eye(4)
    array = _numbers(values, "transform").astype(np.float64)
    if array.shape not in ((4, 4), (3, 4)):
        raise ValueError(f"transform: expected the shape (4, 4) or (3, 4), not {array.shape}")
    if not np.isfinite(array).all() or (np.abs(array) > np.finfo(np.float32).max).any():
        raise ValueError("transform: expected finite numbers")
    if array.shape == (4, 4) and not np.array_equal(array[3], (0, 0, 0, 1)):
        raise ValueError(f"transform: expected 0, 0, 0, 1 in the last row, not {array[3].tolist()}")
    return array[:3].tolist()


def _vectors(values, what):
    """Three float32 numbers in each row."""
    array = _numbers(values, what)
    if array.ndim == 0 or array.shape[-1] != 3:
        raise ValueError(f"{what}: expected the shape (..., 3), not {array.shape}")
    with np.errstate(over="ignore"):  # what becomes infinite hits nothing
        return array.astype(np.float32, copy=False)


def rays(origins, directions):
    """As many rows of both, one after the other, or one origin for all; and the shape of all but the rows."""
    starts, ways = _vectors(origins, "origins"), _vectors(directions, "directions")
    try:
        shape = np.broadcast_shapes(starts.shape, ways.shape)
    except ValueError:
        raise ValueError(
            f"origins of {starts.shape} and directions of {ways.shape} do not go together; expected as many of both, "
            f"one for all, or what NumPy broadcasts"
        ) from None
    if starts.ndim > 1:
        starts = np.broadcast_to(starts, shape)
    return tuple(_packed(a, np.float32).reshape(-1, 3) for a in (starts, np.broadcast_to(ways, shape))) + (shape[:-1],)
