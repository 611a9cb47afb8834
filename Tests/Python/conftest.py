"""What tests of the Python module share. The build says where things are."""

import os
import pathlib
import subprocess

import oxbeam
import pytest

SCENES = pathlib.Path(os.environ["SCENES"])
COMMAND = os.environ["OXBEAM_COMMAND"]

TABLE = """
[image]
width = 64
height = 48
samples = 2

[camera]
position = [0, 0, 5]
lookAt = [0, 0, 0]
fov = 40

[environment]
background = [0.2, 0.3, 0.4]

[shader.lacquer]
object = "KelPhong"
diffuseColor = [0.8, 0.2, 0.1]

[shader.chalk]
object = "KelDiffuse"

[[light]]
object = "KelPointLight"
position = [4, 6, 4]
intensity = [40, 40, 40]

[[mesh]]
shape = "sphere"
shader = "lacquer"
"""


def command(*arguments):
    subprocess.run([COMMAND, *map(str, arguments), "--quiet"], check=True)


@pytest.fixture
def table(tmp_path):
    """A file with a unit sphere about the origin, seen from (0, 0, 5)."""
    file = tmp_path / "table.toml"
    file.write_text(TABLE)
    return file


@pytest.fixture
def scene(table):
    return oxbeam.load(table)
