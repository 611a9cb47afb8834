#!/usr/bin/env python3
"""Times Oxbeam, POV-Ray and Tachyon on the same scene, and prints a table.

The scene is made here and written for each: a bumpy sphere with smooth normals on a floor that mirrors once, three point
lights with hard shadows, one sample a pixel, one thread unless told otherwise. What counts is the time of tracing, as each
program tells it, without loading. Programs take turns; the medians are printed.

    Benchmarks/renderers.py --oxbeam build/release/bin/oxbeam
"""
import argparse
import math
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

EYE, TARGET, FOV = (1.5, 1.4, 3.0), (0.0, 0.2, 0.0), 40.0
LIGHTS, LIGHT = ((4, 6, 4), (-5, 5, 3), (1, 7, -4)), 0.4
BALL, FLOOR, SKY = (0.7, 0.3, 0.2), (0.6, 0.6, 0.6), (0.4, 0.5, 0.7)
AMBIENT, HIGHLIGHT, SHININESS, MIRROR = 0.2, 0.6, 40, 0.3
FLOOR_CORNERS = ((-10, 0, 10), (10, 0, 10), (10, 0, -10), (-10, 0, -10))


def difference(a, b):
    return tuple(x - y for x, y in zip(a, b))


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def unit(v):
    length = math.sqrt(dot(v, v))
    return tuple(x / length for x in v)


def bumpy_sphere(segments):
    """Points, normals and triangles of a sphere about (0, 1, 0)."""
    points, normals, triangles = [], [], []
    height, waves = 0.06, 9.0
    for i in range(segments // 2 + 1):
        polar = math.pi * i / (segments // 2)
        for j in range(segments):
            around = 2 * math.pi * j / segments
            p = (math.sin(polar) * math.cos(around), math.cos(polar), math.sin(polar) * math.sin(around))
            s, c = [math.sin(waves * x) for x in p], [math.cos(waves * x) for x in p]
            slope = [height * waves * x for x in (c[0] * s[1] * s[2], s[0] * c[1] * s[2], s[0] * s[1] * c[2])]
            radius, along = 1 + height * s[0] * s[1] * s[2], dot(slope, p)
            points.append((radius * p[0], radius * p[1] + 1, radius * p[2]))
            normals.append(unit([radius * x - (d - along * x) for x, d in zip(p, slope)]))
    for i in range(segments // 2):
        for j in range(segments):
            a, b = i * segments + j, i * segments + (j + 1) % segments
            if i > 0:
                triangles.append((a, b, a + segments))
            if i + 1 < segments // 2:
                triangles.append((b, b + segments, a + segments))
    return points, normals, triangles


def text(v, between):
    return between.join(f"{x:.7g}" for x in v)


def write_oxbeam(folder, mesh, size):
    points, normals, triangles = mesh
    with open(f"{folder}/ball.ply", "w", encoding="ascii") as f:
        f.write(f"ply\nformat ascii 1.0\nelement vertex {len(points)}\n")
        f.writelines(f"property float {name}\n" for name in ("x", "y", "z", "nx", "ny", "nz"))
        f.write(f"element face {len(triangles)}\nproperty list uchar int vertex_indices\nend_header\n")
        f.writelines(f"{text(p + n, ' ')}\n" for p, n in zip(points, normals))
        f.writelines(f"3 {t[0]} {t[1]} {t[2]}\n" for t in triangles)
    with open(f"{folder}/scene.toml", "w", encoding="ascii") as f:
        f.write(f"""[image]
width = {size[0]}
height = {size[1]}
samples = 1
[render]
recursionLimit = 2
[camera]
position = [{text(EYE, ", ")}]
lookAt = [{text(TARGET, ", ")}]
fov = {FOV}
[environment]
background = [{text(SKY, ", ")}]
[shader.ball]
object = "KelPhong"
ambientIntensity = {AMBIENT}
diffuseColor = [{text(BALL, ", ")}]
specularColor = [{HIGHLIGHT}, {HIGHLIGHT}, {HIGHLIGHT}]
shininess = {SHININESS}
[shader.floor]
object = "KelPhong"
ambientIntensity = {AMBIENT}
diffuseColor = [{text(FLOOR, ", ")}]
reflective = [{MIRROR}, {MIRROR}, {MIRROR}]
[[mesh]]
file = "ball.ply"
shader = "ball"
[[mesh]]
shape = "plane"
shader = "floor"
scale = 10
""")
        for place in LIGHTS:
            f.write(f"""[[light]]
object = "KelPointLight"
position = [{text(place, ", ")}]
intensity = [{LIGHT}, {LIGHT}, {LIGHT}]
atten = [0.999, 0, 0]
""")


def write_povray(folder, mesh, size):
    points, normals, triangles = mesh

    def vectors(values):
        return f"{len(values)}, " + ", ".join(f"<{text(v, ', ')}>" for v in values)

    # A negative `right` makes the system right-handed.
    width = size[0] / size[1]
    across = 2 * math.degrees(math.atan(width * math.tan(math.radians(FOV / 2))))
    with open(f"{folder}/scene.pov", "w", encoding="ascii") as f:
        f.write(f"""#version 3.7;
global_settings {{ assumed_gamma 1 max_trace_level 2 ambient_light rgb 1 }}
background {{ color rgb <{text(SKY, ", ")}> }}
camera {{ location <{text(EYE, ", ")}> up y right <{-width}, 0, 0> angle {across} look_at <{text(TARGET, ", ")}> }}
mesh2 {{
vertex_vectors {{ {vectors(points)} }}
normal_vectors {{ {vectors(normals)} }}
face_indices {{ {vectors(triangles)} }}
pigment {{ color rgb <{text(BALL, ", ")}> }}
finish {{ ambient {AMBIENT} diffuse 1 phong {HIGHLIGHT} phong_size {SHININESS} }}
}}
mesh2 {{
vertex_vectors {{ {vectors(FLOOR_CORNERS)} }}
face_indices {{ 2, <0, 1, 2>, <0, 2, 3> }}
pigment {{ color rgb <{text(FLOOR, ", ")}> }}
finish {{ ambient {AMBIENT} diffuse 1 reflection {{ {MIRROR} }} }}
}}
""")
        for place in LIGHTS:
            f.write(f"light_source {{ <{text(place, ', ')}> color rgb {LIGHT} }}\n")


def write_tachyon(folder, mesh, size):
    # Its space is left-handed: the scene is mirrored and its triangles are turned, for the same picture.
    def mirrored(v):
        return text((-v[0], v[1], v[2]), " ")

    points, normals, triangles = mesh
    zoom = 0.5 / math.tan(math.radians(FOV / 2))

    def texture(color, mirror, highlight):
        phong = f"PHONG PLASTIC {highlight} PHONG_SIZE {SHININESS} " if highlight else ""
        return (f"TEXTURE AMBIENT {AMBIENT} DIFFUSE 1 SPECULAR {mirror} OPACITY 1 {phong}"
                f"COLOR {text(color, ' ')} TEXFUNC 0\n")

    with open(f"{folder}/scene.dat", "w", encoding="ascii") as f:
        f.write(f"""BEGIN_SCENE
RESOLUTION {size[0]} {size[1]}
CAMERA
ZOOM {zoom}
ASPECTRATIO 1
ANTIALIASING 0
RAYDEPTH 2
CENTER {mirrored(EYE)}
VIEWDIR {mirrored(unit(difference(TARGET, EYE)))}
UPDIR 0 1 0
END_CAMERA
BACKGROUND {text(SKY, " ")}
""")
        for place in LIGHTS:
            f.write(f"LIGHT CENTER {mirrored(place)} RAD 0.01 COLOR {LIGHT} {LIGHT} {LIGHT}\n")
        def triangle(kind, t, corners, corner_normals, surface):
            t = t[::-1]
            f.write(" ".join([kind] + [f"V{i} {mirrored(corners[p])}" for i, p in enumerate(t)] +
                             [f"N{i} {mirrored(corner_normals[p])}" for i, p in enumerate(t) if corner_normals]))
            f.write("\n" + surface)

        for t in triangles:
            triangle("STRI", t, points, normals, texture(BALL, 0, HIGHLIGHT))
        for t in ((0, 1, 2), (0, 2, 3)):
            triangle("TRI", t, FLOOR_CORNERS, (), texture(FLOOR, MIRROR, 0))
        f.write("END_SCENE\n")


def commands(oxbeam, size, threads):
    """For each program: what writes its input, its command, and what it says of its time."""
    return {
        "Oxbeam": (write_oxbeam, [oxbeam, "render", "scene.toml", "-o", "oxbeam.png", "--threads", str(threads)],
                   r"rendered .* in ([\d.]+) s"),
        "POV-Ray": (write_povray, ["povray", "+Iscene.pov", "+Opovray.png", f"+W{size[0]}", f"+H{size[1]}", "-D", "-A",
                                   f"+WT{threads}", "+Q9"], r"Trace Time:.*\(([\d.]+) seconds\)"),
        "Tachyon": (write_tachyon, ["tachyon", "scene.dat", "-numthreads", str(threads), "-fullshade", "-format",
                                    "PNG", "-o", "tachyon.png"], r"Ray Tracing Time:\s*([\d.]+) seconds"),
    }


def trace_time(folder, command, pattern):
    run = subprocess.run(command, cwd=folder, capture_output=True, text=True, errors="replace", check=False)
    told = re.search(pattern, run.stdout + run.stderr)
    if run.returncode != 0 or not told:
        sys.exit(f"{command[0]} failed:\n{run.stdout[-2000:]}{run.stderr[-2000:]}")
    return float(told.group(1))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--oxbeam", default="oxbeam", help="the command to time (default: the one that is found)")
    parser.add_argument("--turns", type=int, default=5)
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("--size", default="1280x720")
    parser.add_argument("--segments", type=int, default=266, help="of the sphere, of as many triangles as their square")
    parser.add_argument("--keep", metavar="FOLDER", help="leave the scenes and the pictures there, to be compared")
    arguments = parser.parse_args()
    oxbeam = shutil.which(arguments.oxbeam)
    if not oxbeam:
        sys.exit(f"{arguments.oxbeam}: no such program; ./run builds build/release/bin/oxbeam")
    size = tuple(int(side) for side in arguments.size.split("x"))
    programs = commands(os.path.abspath(oxbeam), size, arguments.threads)
    missing = [command[0] for _, command, _ in programs.values() if not shutil.which(command[0])]
    if missing:
        sys.exit(f"missing: {', '.join(missing)}; on Debian: apt-get install {' '.join(missing)}")

    with tempfile.TemporaryDirectory() as temporary:
        folder = arguments.keep or temporary
        os.makedirs(folder, exist_ok=True)
        mesh = bumpy_sphere(arguments.segments)
        for write, _, _ in programs.values():
            write(folder, mesh, size)
        times = {name: [] for name in programs}
        for _ in range(arguments.turns):
            for name, (_, command, pattern) in programs.items():
                times[name].append(trace_time(folder, command, pattern))
    first = statistics.median(times["Oxbeam"])
    print(f"{len(mesh[2]) + 2} triangles, {size[0]} x {size[1]}, threads: {arguments.threads}, "
          f"turns: {arguments.turns}\n")
    print("| program | tracing, s | to Oxbeam |\n|---|---|---|")
    for name, values in times.items():
        median = statistics.median(values)
        print(f"| {name} | {median:.3f} | {median / first:.2f} |")


if __name__ == "__main__":
    main()
