// `oxbeam doctor`: what the command runs on, and what it finds.
#pragma once

#include "Engine/Packages/Registry.h"

#include <filesystem>
#include <vector>

namespace oxbeam {

// Says in the exit status where a package is broken. The folders are those that the registry's were looked for in.
ExitStatus runDoctor(const std::vector<std::filesystem::path>& packageFolders, const Registry& registry);

}  // namespace oxbeam
