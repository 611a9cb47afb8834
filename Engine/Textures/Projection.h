// Turning environment pictures of one layout into another.
#pragma once

#include "Engine/Textures/Texture.h"

#include <memory>

namespace oxbeam {

// An equirectangular picture (longitude across, latitude upwards) shows the direction -z in its middle and up, y, along
// its top. Both functions keep directions: what it shows along a direction, the new picture shows there when it is read
// as meant; or `turn` degrees on, counterclockwise as seen from above.

// As an angular map; the map's own y is up. Small pictures get finer texels than their own: blending four of a map's runs
// across the grid of the picture's, and would make steps of its edges.
OXBEAM_API std::unique_ptr<Texture> toAngularMap(const Texture& equirectangular, float turn = 0.0f);
// As a vertical cross of 3 x 4 faces, as the package's cubic environment reads it.
OXBEAM_API std::unique_ptr<Texture> toVerticalCross(const Texture& equirectangular, float turn = 0.0f);

}  // namespace oxbeam
