// Surroundings that need no picture file: a photographer's studio.
#pragma once

#include "Engine/Textures/Texture.h"

#include <memory>

namespace oxbeam {

// An equirectangular picture: soft boxes overhead, to the left and to the right, a strip behind, over walls that darken
// downwards. What reflects or refracts shows its shape by them.
OXBEAM_API std::unique_ptr<Texture> studioPicture();

}  // namespace oxbeam
