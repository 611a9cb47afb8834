// Writing files that are whole or not there.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Oxbeam/OxTypes.h"

#include <filesystem>
#include <span>
#include <string>

namespace oxbeam {

// "cannot write" a file, and why.
OXBEAM_API Error cannotWrite(const std::filesystem::path& file, const std::string& why);

// Writes a temporary file beside the target, reads it back and then renames it, so that an old file stays whole until
// the new one is. Throws what cannotWrite makes.
OXBEAM_API void storeFile(const std::filesystem::path& file, std::span<const unsigned char> bytes);

}  // namespace oxbeam
