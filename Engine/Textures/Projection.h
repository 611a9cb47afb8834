// Turning environment pictures of one layout into another.
#pragma once

#include "Engine/Textures/Texture.h"

#include <memory>

namespace oxbeam {

// An equirectangular picture (longitude across, latitude upwards) shows the direction -z in its middle and up, y, along
// its top. Both functions keep directions: what it shows along a direction, the new picture shows there when it is read
// as meant.

// As an angular map, a square of as many texels a side as the picture is high, times two; the map's own y is up.
OXBEAM_API std::unique_ptr<Texture> toAngularMap(const Texture& equirectangular);
// As a vertical cross of 3 x 4 faces, as the package's cubic environment reads it.
OXBEAM_API std::unique_ptr<Texture> toVerticalCross(const Texture& equirectangular);

}  // namespace oxbeam
