// The text of a scene file with what was set on the command line laid over it.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/SceneFile/TableReader.h"

#include <filesystem>

namespace oxbeam {

// Nothing where the file cannot be read or is not TOML; the diagnostics say why.
// Every [[model]] has the tables of its file's materials.
std::optional<toml::table> readSceneDocument(const std::filesystem::path& file, const std::vector<std::string>& set,
                                             const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics);
// The same from a text; `source` is what messages call it, and its paths are relative to `folder`. In what is set,
// "shader.*.samples=64" stands for all shaders whose objects have the parameter, those of models among them.
std::optional<toml::table> parseSceneDocument(const std::string& text, const std::string& source,
                                              const std::filesystem::path& folder, const std::vector<std::string>& set,
                                              const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics);
// The same for whatever stands in place of a scene file; of a model, the scene that is made around it.
std::optional<toml::table> readSceneOrModel(const std::filesystem::path& file, const Registry& registry,
                                            SceneAssets& assets, Diagnostics& diagnostics,
                                            const SceneFileOptions& options);

// Lays one table over another that stands at `path`, moving what it holds. What it calls a shader or a texture must be one
// there already.
void layOver(toml::table& under, toml::table& over, const std::string& path, Diagnostics& diagnostics);

}  // namespace oxbeam
