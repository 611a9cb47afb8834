// Where points of a world are in its picture.
#pragma once

#include "Engine/World/World.h"

#include <array>

namespace oxbeam {

// Row by row, for row vectors: p' = p M, as picture files have it.
using Matrix44 = std::array<float, 16>;

struct ViewMatrices {
    Matrix44 worldToCamera;  // left-handed: x to the right, y upwards, z the way that the camera looks
    Matrix44 worldToNDC;     // (0, 0) is the picture's left top corner, (1, 1) its right bottom one; z grows with depth
};

// Of the view that a world's camera is given; its geometry must be built. A camera that does not project onto a plane
// makes something else of it.
OXBEAM_API ViewMatrices viewMatrices(const World& world);

}  // namespace oxbeam
