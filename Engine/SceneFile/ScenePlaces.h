// The places of a scene file at which parameters can be set, as `--set` names them.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/World/Places.h"

#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

// Also places without objects: "image", "texture.wood", "mesh.0".
struct ScenePlace : Place {
    std::vector<std::string> keys;  // that the scene itself knows there, beside the object's parameters
};

// Reads no more than the scene file itself, and models that bring materials along, with the options' settings laid over
// it; empty where that cannot be read.
OXBEAM_API std::vector<ScenePlace> scenePlaces(const std::filesystem::path& file, const Registry& registry,
                                               Diagnostics& diagnostics, const SceneFileOptions& options = {});

}  // namespace oxbeam
