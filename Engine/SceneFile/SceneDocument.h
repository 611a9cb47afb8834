// The text of a scene file with what was set on the command line laid over it.
#pragma once

#include "Engine/SceneFile/TableReader.h"

#include <filesystem>

namespace oxbeam {

// Nothing where the file cannot be read or is not TOML; the diagnostics say why.
std::optional<toml::table> readSceneDocument(const std::filesystem::path& file, const std::vector<std::string>& set,
                                             Diagnostics& diagnostics);

}  // namespace oxbeam
