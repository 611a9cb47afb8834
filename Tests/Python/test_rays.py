"""Arrays of rays."""

import numpy as np
import oxbeam
import pytest
from conftest import SCENES


def camera_rays(scene, width, height):
    """Of the middles of pixels, as a pinhole has them."""
    position, look_at, look_up, fov = (np.array(part, dtype=float) for part in scene.view)
    forward = (look_at - position) / np.linalg.norm(look_at - position)
    right = np.cross(forward, look_up) / np.linalg.norm(np.cross(forward, look_up))
    up = np.cross(right, forward)
    half = np.tan(np.radians(fov) / 2)
    x = ((np.arange(width) + 0.5) / width * 2 - 1) * half * width / height
    y = (1 - (np.arange(height) + 0.5) / height * 2) * half
    return position, forward + x[None, :, None] * right + y[:, None, None] * up


def test_a_sphere_is_hit_where_it_is(scene):
    generator = np.random.default_rng(1)
    origins = generator.normal(size=(20000, 3))
    origins *= 3 / np.linalg.norm(origins, axis=1, keepdims=True)
    targets = generator.uniform(-1.2, 1.2, (20000, 3))
    directions = targets - origins
    hits = scene.intersect(origins, directions)
    # |o + t d| = 1, of a sphere; the mesh has its corners there and goes a little below.
    a, b = (directions**2).sum(1), (origins * directions).sum(1)
    root = b * b - a * ((origins**2).sum(1) - 1)
    sure = np.abs(root) > 0.05 * a
    assert ((hits.object[sure] > 0) == (root[sure] > 0)).all()
    met = sure & (root > 0)
    expected = (-b - np.sqrt(np.where(root > 0, root, 0))) / a
    assert np.allclose(hits.distance[met], expected[met], atol=0.02)
    points = origins[met] + hits.distance[met, None] * directions[met]
    assert np.allclose(np.linalg.norm(hits.normal[met], axis=1), 1, atol=1e-5)
    assert ((points * hits.normal[met]).sum(1) > 0.99).all()
    missed = hits.object == 0
    assert np.isinf(hits.distance[missed]).all() and (hits.triangle[missed] == -1).all()
    assert not hits.normal[missed].any()
    assert len(np.unique(hits.triangle[~missed])) > 1000


def test_distances_are_those_of_pictures():
    scene = oxbeam.load(SCENES / "showcase.toml")
    width, height = 160, 90
    picture = scene.render(samples=1, size=(width, height), aovs=["depth", "object"])
    origin, directions = camera_rays(scene, width, height)
    hits = scene.intersect(origin, directions)
    assert hits.distance.shape == (height, width) and hits.normal.shape == (height, width, 3)
    same = hits.object == picture.object
    assert same.mean() > 0.99
    seen = same & (hits.object > 0)  # directions reach to the plane at distance 1, which depths are counted from
    assert np.allclose(hits.distance[seen], picture.depth[seen], rtol=1e-4)
    one = scene.intersect(np.broadcast_to(origin, directions.shape), directions, threads=1)
    for array, other in zip(one, hits):
        assert np.array_equal(array, other)


def test_rays_that_are_no_rays_hit_nothing(scene):
    good = ((0, 0, 5), (0, 0, -1))
    bad = [
        ((np.nan, 0, 5), (0, 0, -1)),
        ((0, 0, 5), (0, np.nan, -1)),
        ((np.inf, 0, 5), (0, 0, -1)),
        ((0, 0, 5), (0, 0, -np.inf)),
        ((3e38, 0, 5), (0, 0, -1)),
        ((0, 0, 5), (0, 0, -3e38)),
        ((0, 0, 5), (0, 0, 0)),
        ((1e300, 0, 5), (0, 0, -1)),
    ]
    for number in range(1, 18):  # so that each stands in every lane once
        rays = [good] * number + bad + [good] * number
        hits = scene.intersect(*map(np.array, zip(*rays)))
        assert (hits.object[number : number + len(bad)] == 0).all()
        assert np.isclose(np.delete(hits.distance, np.s_[number : number + len(bad)]), 4.0, atol=0.01).all()


def test_rays_are_broadcast_as_numpy_does_it(scene):
    """As of many points to many parts of a sky."""
    points = np.array([(0, 0, 5), (0.5, 0, 5), (3, 0, 5), (0, 0, 9)])
    ways = np.array([(0, 0, -1), (0, 0, -2), (0, 1, 0)])
    every = scene.intersect(points[:, None], ways)
    assert every.distance.shape == (4, 3) and every.normal.shape == (4, 3, 3)
    flat = scene.intersect(np.repeat(points, 3, axis=0), np.tile(ways, (4, 1)))
    assert all(np.array_equal(of.reshape(alone.shape), alone) for of, alone in zip(every, flat))
    assert (every.object > 0).tolist() == [[True, True, False], [True, True, False], [False] * 3, [True, True, False]]
    assert np.allclose(scene.intersect(points, ways[0]).distance, every.distance[:, 0])
    assert scene.intersect(points[:0], ways[0]).distance.shape == (0,)


def test_shapes_and_kinds_of_arrays(scene):
    way = np.array((0, 0, -1.0))
    assert scene.intersect((0, 0, 5), way).distance.shape == ()
    assert scene.intersect(np.zeros((0, 3)), np.zeros((0, 3))).distance.shape == (0,)
    lines = np.zeros((4, 7, 3), dtype=np.float32) + (0, 0, 5)
    ways = np.broadcast_to(way, (4, 7, 3))
    straight = scene.intersect(lines, ways)
    assert straight.distance.shape == (4, 7) and straight.normal.shape == (4, 7, 3)
    odd = np.frombuffer(b"x" + lines.astype(np.float32).tobytes(), np.float32, lines.size, 1).reshape(lines.shape)
    for other in (np.asfortranarray(lines), lines[::-1], lines.astype(np.float64), odd):
        assert np.array_equal(scene.intersect(other, ways).distance, straight.distance)
    for origins, directions, exception in [
        ((0, 0), way, ValueError),
        (np.zeros((2, 3)), np.zeros((3, 3)), ValueError),
        (np.zeros((3, 1, 3)), np.zeros((2, 2, 3)), ValueError),
        (np.zeros((3, 2)), np.zeros((3, 2)), ValueError),
        (5, way, ValueError),
        (None, way, TypeError),
        ("abc", way, TypeError),
        (np.zeros(3, dtype=complex), way, TypeError),
    ]:
        with pytest.raises(exception):
            scene.intersect(origins, directions)
