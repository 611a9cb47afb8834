"""Meshes from NumPy, and where they stand."""

import types

import numpy as np
import oxbeam
import pytest

# A square of side 2 in the plane z = 0, facing the camera.
SQUARE = np.array([(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)], dtype=np.float32)
FACES = np.array([(0, 1, 2), (0, 2, 3)])


@pytest.fixture
def empty(table):
    """The scene without its sphere."""
    table.write_text(table.read_text().split("[[mesh]]")[0])
    return oxbeam.load(table)


def depth(scene):
    return scene.render(samples=1, aovs=["depth"]).depth


def ray(scene, x=0.2, y=0.1):
    """Straight at the plane z = 0."""
    return oxbeam.Hits(*(array[0] for array in scene.intersect([(x, y, 5)], [(0, 0, -1)])))


@pytest.mark.parametrize("dtype", [np.float32, np.float64, np.int32])
@pytest.mark.parametrize("layout", ["rows", "columns", "every other", "backwards", "list"])
def test_any_array_makes_the_same_mesh(empty, dtype, layout):
    vertices = {
        "rows": lambda a: a,
        "columns": np.asfortranarray,
        "every other": lambda a: np.repeat(a, 2, axis=0)[::2],
        "backwards": lambda a: a[::-1].copy()[::-1],
        "list": np.ndarray.tolist,
    }[layout](SQUARE.astype(dtype))
    mesh = empty.add_mesh(vertices, FACES.astype(np.uint8), shader="lacquer", name="square")
    assert mesh.place == "mesh.0" and empty.instances == {mesh.numbers[0]: "square"}
    hit = ray(empty)
    assert (hit.distance, hit.object, hit.triangle) == (5.0, mesh.numbers[0], 0)
    assert hit.normal.tolist() == [0, 0, 1]
    assert ray(empty, -0.2, 0.1).triangle == 1
    assert np.isclose(depth(empty)[24, 32], 5.0, atol=1e-4)


def test_the_array_is_the_callers_again(empty):
    vertices = SQUARE.copy()
    empty.add_mesh(vertices, FACES)
    vertices[:] = np.nan
    assert ray(empty).distance == 5.0


def test_without_faces_three_vertices_are_one(empty):
    empty.add_mesh(SQUARE[FACES].reshape(-1, 3))
    assert ray(empty).triangle == 0 and ray(empty, -0.2, 0.1).triangle == 1


def test_a_mesh_of_trimesh_is_taken_as_it_is(empty):
    mesh = types.SimpleNamespace(vertices=SQUARE, faces=FACES, visual=types.SimpleNamespace(uv=SQUARE[:, :2]))
    empty.add_mesh(mesh, shader="shader.chalk")
    assert ray(empty).distance == 5.0
    with pytest.raises(TypeError, match="already"):
        empty.add_mesh(mesh, FACES)


def test_meshes_stand_where_they_are_put(empty):
    there = np.eye(4)
    there[:3, 3] = (0, 0, 1)
    mesh = empty.add_mesh(SQUARE, FACES, transform=there)
    assert ray(empty).distance == 4.0
    there[2, 3] = 2
    mesh.transform = there
    assert np.isclose(ray(empty).distance, 3.0) and np.array_equal(mesh.transform, there)
    other = empty.add_mesh(SQUARE, FACES, transform=np.diag((1, 1, 1, 1))[:3], shader="chalk")
    other.set_shader("lacquer")
    empty.remove(mesh)
    assert ray(empty).distance == 5.0 and "mesh.1" not in empty
    assert np.isclose(depth(empty)[24, 32], 5.0, atol=1e-4)


def test_normals_and_texture_coordinates_are_per_vertex(empty):
    empty.add_mesh(SQUARE, FACES, normals=np.tile((0, 0.6, 0.8), (4, 1)), uv=SQUARE[:, :2])
    assert np.allclose(empty.render(samples=1, aovs=["normal"]).normal[24, 32], (0, 0.6, 0.8))


def test_wrong_arrays_are_told_of_and_add_nothing(empty):
    for exception, words, arguments in [
        (ValueError, r"shape \(n, 3\), not \(4, 2\)", {"vertices": SQUARE[:, :2]}),
        (ValueError, "row 2 is not finite", {"vertices": [(0, 0, 0), (1, 0, 0), (0, np.inf, 0)], "faces": None}),
        (ValueError, "row 0 is not finite", {"vertices": [(1e60, 0, 0)], "faces": []}),
        (ValueError, "face 1 is .0, 2, 4.; expected vertices from 0 to 3", {"faces": [(0, 1, 2), (0, 2, 4)]}),
        (ValueError, "face 0", {"faces": [(0, 1, -1)]}),
        (ValueError, "face 0", {"faces": np.array([(0, 1, 1 << 32)], dtype=np.int64)}),
        (TypeError, "expected integers", {"faces": FACES.astype(float)}),
        (ValueError, "do not come out even", {"faces": None}),
        (ValueError, "3 normals for 4 vertices", {"normals": SQUARE[:3]}),
        (ValueError, "shape .n, 2.", {"uv": SQUARE}),
        (TypeError, "expected numbers", {"vertices": [("a", "b", "c")]}),
        (ValueError, "array of numbers|inhomogeneous|shape", {"vertices": [(0, 0, 0), (1, 1)]}),
        (TypeError, "expected numbers", {"vertices": np.zeros((4, 3), dtype=complex)}),
        (TypeError, "expected numbers", {"vertices": np.zeros((4, 3), dtype=object)}),
        (ValueError, "shape .4, 4.", {"transform": np.eye(3)}),
        (ValueError, "finite", {"transform": np.full((4, 4), np.nan)}),
        (ValueError, "last row", {"transform": np.ones((4, 4))}),
        (KeyError, "did you mean 'lacquer'|did you mean", {"shader": "shader.laquer"}),
    ]:
        with pytest.raises(exception, match=words):
            empty.add_mesh(**{"vertices": SQUARE, "faces": FACES, **arguments})
    assert "mesh.0" not in empty
    empty.add_mesh(np.zeros((0, 3)), np.zeros((0, 3), dtype=int))  # which nothing is wrong with
    assert ray(empty).object == 0


def test_visibility_is_by_kinds_of_rays(scene):
    mesh = scene["mesh.0"]
    seen = scene.render(aovs=["object"])
    assert mesh.visible_to == ("primary", "shadow", "transparency", "refraction", "reflection")
    for kinds, told in [(False, ()), (["shadow"], ("shadow",)), ("reflection", ("reflection",))]:
        mesh.visible_to = kinds
        assert mesh.visible_to == told and not scene.render(aovs=["object"]).object.any()
    assert np.isinf(scene.intersect((0, 0, 5), (0, 0, -1)).distance)
    mesh.visible_to = True
    assert np.array_equal(scene.render().rgb, seen.rgb)
    for kinds, exception in [(["primry"], ValueError), ([3], TypeError), (3, TypeError), (None, TypeError)]:
        with pytest.raises(exception):
            mesh.visible_to = kinds
    assert len(mesh.visible_to) == 5
