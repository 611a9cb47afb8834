// The text of a scene file with what was set on the command line laid over it.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/SceneFile/TableReader.h"

#include <filesystem>

namespace oxbeam {

// Nothing where the file cannot be read or is not TOML; the diagnostics say why.
std::optional<toml::table> readSceneDocument(const std::filesystem::path& file, const std::vector<std::string>& set,
                                             const Registry& registry, Diagnostics& diagnostics);
// The same from a text; `source` is what messages call it. In what is set, "shader.*.samples=64" stands for all shaders
// whose objects have the parameter.
std::optional<toml::table> parseSceneDocument(const std::string& text, const std::string& source,
                                              const std::vector<std::string>& set, const Registry& registry,
                                              Diagnostics& diagnostics);
// The same for whatever stands in place of a scene file; of a model, the scene that is made around it.
std::optional<toml::table> readSceneOrModel(const std::filesystem::path& file, const Registry& registry,
                                            SceneAssets& assets, Diagnostics& diagnostics,
                                            const SceneFileOptions& options);

}  // namespace oxbeam
