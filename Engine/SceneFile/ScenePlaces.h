// The places of a scene file at which parameters can be set, as `--set` names them.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/SceneFile.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

struct ScenePlace {
    std::string path;                     // "shader.table", "light.0", "camera", ...
    const ObjectClass* object = nullptr;  // null: none, or one that no package offers
    std::vector<std::string> keys;        // that the scene itself knows there, beside the object's parameters
};

// Reads no more than the scene file itself, and models that bring materials along, with the options' settings laid over
// it; empty where that cannot be read.
OXBEAM_API std::vector<ScenePlace> scenePlaces(const std::filesystem::path& file, const Registry& registry,
                                               Diagnostics& diagnostics, const SceneFileOptions& options = {});

// The declaration behind "shader.table.shininess" or, of all shaders together, "shader.*.shininess"; null where there
// is none.
OXBEAM_API const ParameterDeclaration* parameterAt(const std::vector<ScenePlace>& places, std::string_view path);

}  // namespace oxbeam
