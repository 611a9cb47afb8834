#!/usr/bin/python3
"""A tour of the module: tour.py [FOLDER]. The cells are those of a notebook; pictures and plots go into the folder."""

# %% Load a scene, change it by name, look at it

import pathlib
import sys

import matplotlib.pyplot as plt
import numpy as np
import oxbeam

folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
scene = oxbeam.load(pathlib.Path(__file__).parent / "table.toml", set={"shader.lacquer.shininess": 64})

lacquer = scene["shader.lacquer"]
print(scene.places())
print(lacquer.parameters()["shininess"])
try:
    lacquer.shininess = 1000
except ValueError as error:
    print(error)  # ... is 1000, outside its bounds 1 to 512

lacquer.shininess = 20
scene.add("light", "KelPointLight", position=(4, 3, 4), intensity=(6, 7, 10))
picture = scene.render(samples=4, aovs=["depth", "object"], progress=True)
picture.save(folder / "table.exr")  # in a notebook, `picture` alone shows it

# %% Pictures are arrays: how much of this one each object takes, and how far away that is

for number, name in scene.instances.items():
    pixels = picture.object == number
    print(f"{name}: {pixels.mean():.0%} of the picture, {picture.depth[pixels].mean():.2f} away")

# %% A sweep: how the highlight grows as the lacquer gets duller

values = np.geomspace(4, 512, 8)
areas, pictures = [], []
for value in values:
    lacquer.shininess = value
    pictures.append(scene.render(samples=2, crop=(100, 50, 220, 150), aovs=["object"]))
    on_ball = np.isin(pictures[-1].object, scene["mesh.1"].numbers)
    areas.append((pictures[-1].rgb[on_ball].min(axis=1) > 0.1).mean())  # red lacquer is white in its highlights alone
assert areas == sorted(areas, reverse=True)

figure, axes = plt.subplots(1, 3, figsize=(12, 3.5), layout="constrained")
axes[0].semilogx(values, areas, "o-")
axes[0].set(xlabel="shininess", ylabel="share of the ball in highlights")
for axis, shown in zip(axes[1:], (0, -1)):
    axis.imshow(np.clip(pictures[shown].rgb, 0, 1) ** (1 / 2.2))
    axis.set_title(f"shininess {values[shown]:.0f}")
    axis.axis("off")
figure.savefig(folder / "sweep.png")

# %% A mesh from NumPy: a hollow ball whose hole is off its middle


def ball(radius, center, rings=96, segments=192):
    """Vertices and faces that face outwards."""
    polar, around = np.meshgrid(np.linspace(0, np.pi, rings + 1), np.linspace(0, 2 * np.pi, segments + 1), indexing="ij")
    points = np.stack([np.sin(polar) * np.cos(around), np.cos(polar), -np.sin(polar) * np.sin(around)], axis=-1)
    corner = np.arange((rings + 1) * (segments + 1)).reshape(rings + 1, segments + 1)
    a, b, c, d = corner[:-1, :-1], corner[1:, :-1], corner[1:, 1:], corner[:-1, 1:]
    faces = np.concatenate([np.stack(three, axis=-1).reshape(-1, 3) for three in ((a, b, c), (a, c, d))])
    return center + radius * points.reshape(-1, 3), faces


outer, outer_faces = ball(0.7, (0, 0.7, 0))
inner, inner_faces = ball(0.5, (0.1, 0.7, 0))
scene.remove("mesh.1")  # the ball that was there
hollow = scene.add_mesh(
    np.concatenate([outer, inner]),
    np.concatenate([outer_faces, len(outer) + inner_faces[:, ::-1]]),  # those of the hole face into it
    shader="lacquer",
    name="hollow ball",
)

# %% Wall thickness as an array: from where the camera sees the ball, straight in to where it ends

view, (width, height) = scene.view, (320, 180)
eye, look_at = np.array(view.position), np.array(view.look_at)
forward = (look_at - eye) / np.linalg.norm(look_at - eye)
right = np.cross(forward, view.look_up) / np.linalg.norm(np.cross(forward, view.look_up))
up = np.cross(right, forward)
half = np.tan(np.radians(view.fov) / 2)
x = ((np.arange(width) + 0.5) / width * 2 - 1) * half * width / height
y = (1 - (np.arange(height) + 0.5) / height * 2) * half
directions = forward + x[:, None] * right + y[:, None, None] * up

seen = scene.intersect(eye, directions)
inwards = -seen.normal
points = eye + np.where(np.isfinite(seen.distance), seen.distance, 0)[..., None] * directions
through = scene.intersect(points + 1e-4 * inwards, inwards)
on_ball = np.isin(seen.object, hollow.numbers)
thickness = np.where(on_ball, through.distance + 1e-4, np.nan)
print(f"the wall is {np.nanmin(thickness):.3f} to {np.nanmax(thickness):.3f} thick where it is seen")
# 0.1 where the hole comes nearest to the outside, 0.3 on the other side; its middle is 0.1 to the right of the ball's.
assert 0.09 < np.nanmin(thickness) < 0.12 and 0.28 < np.nanmax(thickness) < 0.31

figure, axis = plt.subplots(figsize=(6, 4), layout="constrained")
figure.colorbar(axis.imshow(thickness[40:150, 90:230], cmap="viridis"), label="wall thickness")
axis.axis("off")
figure.savefig(folder / "thickness.png")

lacquer.shininess = 64
scene.render(samples=4).save(folder / "hollow.png")
scene.close()
