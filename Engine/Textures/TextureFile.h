// Textures from picture files: whatever OpenImageIO reads, among them PNG, JPEG, EXR, HDR, WebP and TIFF.
#pragma once

#include "Engine/Textures/Texture.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace oxbeam {

// Before anybody opens it, since a pipe or a device would never end: throws Error(BadScene) where it is no regular file
// that can be read.
OXBEAM_API void checkTextureFile(const std::filesystem::path& file);

class ImportProcess;
struct PictureHeader;

// Decodes pictures in a process of its own, which malformed ones may crash, hang or swell; it takes one after the other.
// That process only waits: each picture is decoded by a copy that it makes of itself, confined to that picture's file, so
// that none can do anything to the next one.
// Bytes and words are taken as sRGB unless the file says otherwise, floats as linear; `space` overrides both. Throws
// Error(BadScene): the file is missing, no regular file, no picture, cut off, or absurdly large, or decoding it took too
// much. Throws Error(InputOutput) where it would take more memory than the limit allows, before it does, or the system
// refuses to read it.
class OXBEAM_API TextureReader {
public:
    TextureReader();
    ~TextureReader();

    // There will be a picture: the process starts, which takes it a tenth of a second, beside what else there is to do.
    void start();

    std::unique_ptr<Texture> read(const std::filesystem::path& file, std::optional<ColorSpace> space = std::nullopt);
    // The same from the bytes of such a file; `name` is for messages.
    std::unique_ptr<Texture> read(const std::vector<std::uint8_t>& bytes, const std::string& name,
                                  std::optional<ColorSpace> space = std::nullopt);

    // One that is larger than so many texels is shrunk to about as many, in linear light and as it comes in, so that it
    // is never in memory here: the least size of its shape, of whole blocks, that is not smaller along the side that is
    // larger by this measure. Opaque then.
    std::unique_ptr<Texture> readReduced(const std::filesystem::path& file, unsigned width, unsigned height);

    // Version of OpenImageIO; nothing before the first picture.
    const std::string& version() const { return m_version; }

private:
    // Makes a texture of what is behind the header; the text names picture and size.
    using Taker = std::function<std::unique_ptr<Texture>(ImportProcess&, const PictureHeader&, const std::string&)>;
    std::unique_ptr<Texture> decode(const std::filesystem::path& file, const std::string& name, const Taker& take,
                                    int descriptor = -1);

    std::unique_ptr<ImportProcess> m_process;  // none before the first picture, and after one that was no good
    std::string m_version;
};

// A single one.
OXBEAM_API std::unique_ptr<Texture> loadTexture(const std::filesystem::path& file,
                                                std::optional<ColorSpace> space = std::nullopt);

}  // namespace oxbeam
