// Texture coordinates for meshes that come without.
#pragma once

#include "Engine/Scene/MeshData.h"

namespace oxbeam {

// Each triangle takes those of the side of a cube that it faces most, as seen from outside, upright where y is up:
// positions in units of `side`. Vertices that triangles of several sides share are doubled.
OXBEAM_API void giveBoxCoordinates(MeshData& mesh, float side);

}  // namespace oxbeam
