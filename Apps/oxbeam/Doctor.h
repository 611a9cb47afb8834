// `oxbeam doctor`: what the command runs on, and what it finds.
#pragma once

#include "Engine/Diagnostics/Error.h"

#include <filesystem>
#include <vector>

namespace oxbeam {

// Goes on where a package does not load, and says so in the exit status.
ExitStatus runDoctor(const std::vector<std::filesystem::path>& packageFolders);

}  // namespace oxbeam
