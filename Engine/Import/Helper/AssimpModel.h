// A model as Assimp reads it, with its known faults worked around.
#pragma once

#include "Engine/Import/ModelFile.h"

namespace oxbeam {

// Throws std::runtime_error: no model. Malformed files can also end the process, or never come to an end.
Model readModel(const std::filesystem::path& file);

}  // namespace oxbeam
