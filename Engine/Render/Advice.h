// What is probably wrong with a picture that shows nothing, and why.
#pragma once

#include "Engine/Render/Film.h"
#include "Engine/World/World.h"

#include <functional>
#include <optional>
#include <string>

namespace oxbeam {

// All of it needs built geometry, and looks at the picture through a pinhole wherever the camera really is one.

// Nothing, unless the eye is inside a closed surface, so that the picture shows no more than its inner side.
OXBEAM_API std::optional<std::string> adviceOnEye(const World& world);

// Nothing, unless the picture, or all that it shows of the scene's surfaces but for an endless ground, is black, or more
// than half of it is clipped to white; with the likeliest cause. `shown` is what a display gets of a pixel; without it
// nothing clips.
OXBEAM_API std::optional<std::string> adviceOnPicture(World& world, const Film& film,
                                                      const std::function<R3(const R3&)>& shown);

}  // namespace oxbeam
