#include "Engine/SceneFile/SceneAssets.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Hash.h"
#include "Engine/System/InputFile.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

namespace fs = std::filesystem;

// However a file is named, it is the same one.
static fs::path keyOf(const fs::path& file) { return fs::absolute(file).lexically_normal(); }

Model& SceneAssets::model(const fs::path& file) {
    const fs::path key = keyOf(file);
    const auto known = m_models.find(key);
    if (known != m_models.end()) return known->second;
    Model& loaded = m_models.emplace(key, readModel(file)).first->second;
    m_files[key] = loaded.hash;
    for (const std::string& name : loaded.files)
        if (const fs::path read = keyOf(key.parent_path() / name); inputFile(read).state == InputFile::Readable)
            m_files[read] = hashOfFile(read);
    return loaded;
}

std::unique_ptr<Texture> SceneAssets::readTexture(const fs::path& file, std::optional<ColorSpace> space) {
    auto loaded = m_textureReader.read(file, space);
    m_files[keyOf(file)] = hashOfFile(keyOf(file));
    return loaded;
}

std::unique_ptr<Texture> SceneAssets::fromImage(const ModelImage& image, const std::string& name,
                                                std::optional<ColorSpace> space) {
    if (image.width == 0) return m_textureReader.read(image.bytes, name, space);
    std::vector<std::uint8_t> upwards;
    const std::size_t row = std::size_t{4} * image.width;
    for (std::size_t y = image.height; y-- > 0;)
        upwards.insert(upwards.end(), image.bytes.begin() + static_cast<std::ptrdiff_t>(y * row),
                       image.bytes.begin() + static_cast<std::ptrdiff_t>((y + 1) * row));
    return std::make_unique<Texture>(image.width, image.height, 4u, std::move(upwards),
                                     space.value_or(ColorSpace::SRGB));
}

std::unique_ptr<Texture> SceneAssets::texture(const TextureSource& source) {
    TextureSource key = source;
    key.file = keyOf(source.file);
    if (const auto kept = m_textures.find(key); kept != m_textures.end() && kept->second)
        return std::move(kept->second);
    if (source.image < 0) return readTexture(source.file, source.space);
    const Model& owner = model(source.file);
    const auto number = static_cast<std::size_t>(source.image);
    if (number >= owner.images.size())
        throw Error(ExitStatus::BadScene, fmt::format("model '{}' has no image {}; it has {}, numbered from 0",
                                                      source.file.string(), number, owner.images.size()));
    return fromImage(owner.images[number], fmt::format("{}, image {}", source.file.string(), number), source.space);
}

const Texture& SceneAssets::keepTexture(const TextureSource& source) {
    TextureSource key = source;
    key.file = keyOf(source.file);
    auto& kept = m_textures[key];
    if (!kept) kept = texture(source);
    return *kept;
}

}  // namespace oxbeam
