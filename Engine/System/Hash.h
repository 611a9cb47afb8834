// Fingerprints of contents: to notice changes, not to resist forgery.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

namespace oxbeam {

// XXH64; what is hashed in parts hands the hash of the parts before on.
OXBEAM_API std::uint64_t hashOf(std::span<const std::byte> bytes, std::uint64_t before = 0);
OXBEAM_API std::uint64_t hashOf(std::string_view text);
// Throws Error(InputOutput) where the file cannot be read.
OXBEAM_API std::uint64_t hashOfFile(const std::filesystem::path& file);

}  // namespace oxbeam
