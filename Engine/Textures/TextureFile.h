// Textures from picture files: whatever OpenImageIO reads, among them PNG, JPEG, EXR, HDR, WebP and TIFF.
#pragma once

#include "Engine/Textures/Texture.h"

#include <filesystem>
#include <memory>
#include <optional>

namespace oxbeam {

class ImportProcess;

// Decodes pictures in a process of its own, which malformed ones may crash, hang or swell; it takes one after the other.
// Bytes and words are taken as sRGB unless the file says otherwise, floats as linear; `space` overrides both. Throws
// Error(BadScene): the file is missing, no regular file, no picture, cut off, or absurdly large, or decoding it took too
// much; and Error(InputOutput) where the system refuses to read it.
class OXBEAM_API TextureReader {
public:
    TextureReader();
    ~TextureReader();

    std::unique_ptr<Texture> read(const std::filesystem::path& file, std::optional<ColorSpace> space = std::nullopt);
    // The same from the bytes of such a file; `name` is for messages.
    std::unique_ptr<Texture> read(const std::vector<std::uint8_t>& bytes, const std::string& name,
                                  std::optional<ColorSpace> space = std::nullopt);

private:
    std::unique_ptr<Texture> decode(const std::filesystem::path& file, const std::string& name,
                                    std::optional<ColorSpace> space);

    std::unique_ptr<ImportProcess> m_process;  // none before the first picture, and after one that was no good
};

// A single one.
OXBEAM_API std::unique_ptr<Texture> loadTexture(const std::filesystem::path& file,
                                                std::optional<ColorSpace> space = std::nullopt);

}  // namespace oxbeam
