// A scene around a model that nobody prepared: the text of a scene file.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/ModelView.h"
#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/World/World.h"

#include <filesystem>
#include <string>

namespace oxbeam {

struct ModelSceneOptions {
    std::string shader;            // a registered surface instead of every material; or nothing
    std::string environment;       // an equirectangular picture to light it with; or nothing for a studio
    float environmentTurn = 0.0f;  // degrees, counterclockwise as seen from above
    std::string background;        // "environment", "transparent", "r,g,b"; or nothing for what goes with the light
    ViewChoice view;
    bool keepMaterials = false;     // the scene names the file's materials instead of writing them out
    bool ground = true;             // catches the shadow
    std::optional<ImageSize> size;  // of the picture that it is framed for
    std::optional<R3> color;        // of all surfaces, 0 to 1, instead of the file's
    std::string texture;            // a picture for all surfaces, which the colour modulates; or nothing
    std::optional<Model::Axis> up;  // instead of the one that the file or its format says
};

// Whether a file is taken for a scene and not for a model: it ends in .toml, or in nothing.
OXBEAM_API bool isSceneFile(const std::filesystem::path& file);

// Commented, with every shader, light and camera. Paths in it are relative to `folder`. What is missing or left out is
// warned of. The files that it names are loaded into `assets`. Throws Error: the model is none, or an option is wrong.
OXBEAM_API std::string describeModelScene(const std::filesystem::path& model, const std::filesystem::path& folder,
                                          const ModelSceneOptions& options, const Registry& registry,
                                          SceneAssets& assets, Diagnostics& diagnostics);

}  // namespace oxbeam
