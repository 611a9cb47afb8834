// Carrying a scene to where its files are not.
#pragma once

#include "Apps/oxbeam/Commands.h"

#include <cstdint>
#include <filesystem>
#include <map>

namespace oxbeam {

// Copies files, which are named by absolute paths, below a folder, each standing to each other as before; a scene file
// that names some of them by absolute paths does so relative to itself then. Answers where each is now. Throws
// Error(InputOutput).
std::map<std::filesystem::path, std::filesystem::path>
packFiles(const std::filesystem::path& scene, const std::map<std::filesystem::path, std::uint64_t>& files,
          const std::filesystem::path& folder);

}  // namespace oxbeam
