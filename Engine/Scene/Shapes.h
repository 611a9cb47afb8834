// Meshes that need no file.
#pragma once

#include "Engine/Scene/MeshData.h"

namespace oxbeam {

// Square of side 2 in the plane y = 0, facing up. s runs along x and t along -z, from 0 to 1.
OXBEAM_API MeshData planeMesh();
// Level square of the given half side about a point, facing up, whose triangles grow from `inner` in the middle outwards,
// so that hits there are as exact as on a small plane. A texture repeats every unit along x and -z.
OXBEAM_API MeshData groundMesh(const R3& middle, float inner, float halfSide);
// Cube of side 2 about the origin, each face with texture coordinates of its own.
OXBEAM_API MeshData boxMesh();
// Sphere of radius 1 about the origin with smooth normals: `segments` around and half as many from pole to pole. s runs
// once around the y axis and t from the lower to the upper pole.
OXBEAM_API MeshData sphereMesh(unsigned segments = 96);

}  // namespace oxbeam
