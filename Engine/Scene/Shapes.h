// Meshes that need no file.
#pragma once

#include "Engine/Scene/MeshData.h"

namespace oxbeam {

// Square of side 2 in the plane y = 0, facing up. s runs along x and t along -z, from 0 to 1.
OXBEAM_API MeshData planeMesh();
// Level plane without end through a point, facing up: it goes on for 2.8e11, beyond any horizon. Its triangles grow from
// the point outwards, so that hits near it are as exact as on a small plane. s runs along x and t along -z, both 0 at the
// point, and a texture repeats every unit.
OXBEAM_API MeshData groundMesh(const R3& point);
// Cube of side 2 about the origin, each face with texture coordinates of its own.
OXBEAM_API MeshData boxMesh();
// Sphere of radius 1 about the origin with smooth normals: `segments` around and half as many from pole to pole. s runs
// once around the y axis and t from the lower to the upper pole.
OXBEAM_API MeshData sphereMesh(unsigned segments = 96);

}  // namespace oxbeam
