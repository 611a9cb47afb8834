#include "Engine/SceneFile/SceneAssets.h"

#include "Engine/System/Hash.h"
#include "Engine/System/InputFile.h"

#include <fmt/format.h>

#include <span>

namespace oxbeam {

namespace fs = std::filesystem;

// However a file is named, it is the same one.
static fs::path keyOf(const fs::path& file) { return fs::absolute(file).lexically_normal(); }

static std::uint64_t imageBytes(const Model& model) {
    std::uint64_t bytes = 0;
    for (const ModelImage& image : model.images) bytes += image.bytes.size();
    return bytes;
}

static std::uint64_t meshBytes(const Model& model) {
    std::uint64_t bytes = 0;
    for (const MeshData& mesh : model.meshes) bytes += bytesOfMesh(mesh);
    return bytes;
}

Model SceneAssets::readOnce(const fs::path& file) try {
    if (const auto bad = m_badModels.find(keyOf(file)); bad != m_badModels.end()) throw Error(bad->second);
    return readModel(file);
} catch (const Error& e) {
    m_badModels.emplace(keyOf(file), e);
    throw;
}

Model& SceneAssets::model(const fs::path& file) {
    const fs::path key = keyOf(file);
    const auto known = m_models.find(key);
    if (known != m_models.end()) return known->second;
    Model loaded = readOnce(file);
    m_modelMemory[key] = {MemoryUse::Models, imageBytes(loaded) + meshBytes(loaded),
                          fmt::format("model '{}'", file.string())};
    m_files[key] = loaded.hash;
    m_modelReader = loaded.reader;
    for (const std::string& name : loaded.files)
        if (const fs::path read = keyOf(key.parent_path() / name); inputFile(read).state == InputFile::Readable)
            m_files[read] = hashOfFile(read);
    return m_models.emplace(key, std::move(loaded)).first->second;
}

std::map<std::string, std::string> SceneAssets::readers() const {
    std::map<std::string, std::string> readers = {{"Assimp", m_modelReader},
                                                  {"OpenImageIO", m_textureReader.version()}};
    std::erase_if(readers, [](const auto& reader) { return reader.second.empty(); });
    return readers;
}

void SceneAssets::giveMeshesAway(const fs::path& file) {
    const fs::path key = keyOf(file);
    m_modelMemory[key].shrinkTo(imageBytes(m_models[key]));
}

// A picture is decoded where none of the same contents was.
template <class Read>
Texture SceneAssets::once(const Contents& contents, Read read) {
    const auto known = m_pictures.find(contents);
    return known != m_pictures.end() ? known->second : m_pictures.emplace(contents, read()).first->second;
}

Texture SceneAssets::readTexture(const fs::path& file) {
    checkTextureFile(file);
    const Contents contents{hashOfFile(keyOf(file)), fs::file_size(file)};
    Texture texture = once(contents, [&] { return *m_textureReader.read(file); });
    m_files[keyOf(file)] = contents.hash;
    return texture;
}

Texture SceneAssets::decode(const ModelImage& image, const std::string& name) {
    if (image.width == 0) return *m_textureReader.read(image.bytes, name);
    std::vector<std::uint8_t> upwards;
    requireMemory(MemoryUse::Textures, image.bytes.size(), name);
    upwards.reserve(image.bytes.size());
    const std::size_t row = std::size_t{4} * image.width;
    for (std::size_t y = image.height; y-- > 0;)
        upwards.insert(upwards.end(), image.bytes.begin() + static_cast<std::ptrdiff_t>(y * row),
                       image.bytes.begin() + static_cast<std::ptrdiff_t>((y + 1) * row));
    return {image.width, image.height, 4u, std::move(upwards), ColorSpace::SRGB};
}

Texture SceneAssets::load(const TextureSource& source) {
    if (source.image < 0) return readTexture(source.file);
    const Model& owner = model(source.file);
    const auto number = static_cast<std::size_t>(source.image);
    if (number >= owner.images.size())
        throw Error(ExitStatus::BadScene, fmt::format("model '{}' has no image {}; it has {}, numbered from 0",
                                                      source.file.string(), number, owner.images.size()));
    const ModelImage& image = owner.images[number];
    return once({hashOf(std::as_bytes(std::span(image.bytes))), image.bytes.size(), image.width, image.height},
                [&] { return decode(image, fmt::format("{}, image {}", source.file.string(), number)); });
}

std::unique_ptr<Texture> SceneAssets::texture(const TextureSource& source) {
    const std::pair key(keyOf(source.file), source.image);
    auto known = m_textures.find(key);
    if (known == m_textures.end()) known = m_textures.emplace(key, load(source)).first;
    auto texture = std::make_unique<Texture>(known->second);
    texture->colorSpace = source.space.value_or(texture->colorSpace);
    return texture;
}

}  // namespace oxbeam
