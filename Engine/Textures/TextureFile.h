// Textures from picture files: whatever OpenImageIO reads, among them PNG, JPEG, EXR, HDR, WebP and TIFF.
#pragma once

#include "Engine/Textures/Texture.h"

#include <filesystem>
#include <memory>
#include <optional>

namespace oxbeam {

// Decodes a picture. Bytes and words are taken as sRGB unless the file says otherwise, floats as linear; `space`
// overrides both. Throws Error(BadScene): the file is missing, no regular file, no picture, cut off, or absurdly large.
OXBEAM_API std::unique_ptr<Texture> loadTexture(const std::filesystem::path& file,
                                                std::optional<ColorSpace> space = std::nullopt);
// The same from the bytes of such a file; `name` is for messages.
OXBEAM_API std::unique_ptr<Texture> loadTexture(const std::vector<std::uint8_t>& bytes, const std::string& name,
                                                std::optional<ColorSpace> space = std::nullopt);

}  // namespace oxbeam
