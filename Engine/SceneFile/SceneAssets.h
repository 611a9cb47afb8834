// The files that a scene is made of, each read once.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Textures/TextureFile.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>

namespace oxbeam {

// A picture file, or an image within a model file.
struct TextureSource {
    std::filesystem::path file;
    int image = -1;
    std::optional<ColorSpace> space;  // none: as the file says

    auto operator<=>(const TextureSource&) const = default;
};

class OXBEAM_API SceneAssets {
public:
    explicit SceneAssets(ImportLimits limits = {}) : m_limits(std::move(limits)) {}
    virtual ~SceneAssets() = default;

    // Both throw Error where the file is no good.
    Model& model(const std::filesystem::path& file);
    // Gives away the one that was kept, if there is one.
    std::unique_ptr<Texture> texture(const TextureSource& source);
    // Loads a texture to look at now and to give away later.
    const Texture& keepTexture(const TextureSource& source);

    // What was read so far, with hashes: of a model all that its reader made of it and of the files that it refers to.
    const std::map<std::filesystem::path, std::uint64_t>& files() const { return m_files; }

protected:
    // What reads a file that is met for the first time; for programs whose files are elsewhere than in the file system.
    virtual Model readModel(const std::filesystem::path& file) { return loadModel(file, m_limits); }
    virtual std::unique_ptr<Texture> readTexture(const std::filesystem::path& file, std::optional<ColorSpace> space);

private:
    std::unique_ptr<Texture> fromImage(const ModelImage& image, const std::string& name,
                                       std::optional<ColorSpace> space);

    ImportLimits m_limits;  // of a model
    TextureReader m_textureReader;
    std::map<std::filesystem::path, std::uint64_t> m_files;
    std::map<std::filesystem::path, Model> m_models;
    std::map<TextureSource, std::unique_ptr<Texture>> m_textures;
};

}  // namespace oxbeam
