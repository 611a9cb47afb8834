// The files that a scene is made of, each read once.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ModelFile.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/Textures/Studio.h"
#include "Engine/Textures/TextureFile.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace oxbeam {

// A picture file, or an image within a model file.
struct TextureSource {
    std::filesystem::path file;
    int image = -1;
    std::optional<ColorSpace> space;  // none: as the file says
};

class OXBEAM_API SceneAssets {
public:
    explicit SceneAssets(ImportLimits limits = {}) : m_limits(std::move(limits)) {}
    virtual ~SceneAssets() = default;

    // There will be pictures to read: what reads them starts, beside what else there is to do.
    virtual void expectPictures() { m_textureReader.start(); }
    // Both throw Error where the file is no good.
    Model& model(const std::filesystem::path& file);
    // Its meshes are about to go to somebody who charges for their memory.
    void giveMeshesAway(const std::filesystem::path& file);
    // Shares its texels with all that hold the same picture, under whatever name and in whatever colour space.
    std::unique_ptr<Texture> texture(const TextureSource& source);
    // The surroundings that no file is needed for.
    virtual std::unique_ptr<Texture> studio() { return studioPicture(); }

    // What was read so far, with hashes: of a model all that its reader made of it and of the files that it refers to.
    const std::map<std::filesystem::path, std::uint64_t>& files() const { return m_files; }
    // The libraries that read them, with their versions.
    std::map<std::string, std::string> readers() const;

protected:
    // What reads a file that is met for the first time; for programs whose files are elsewhere than in the file system.
    virtual Model readModel(const std::filesystem::path& file) { return loadModel(file, m_limits); }
    virtual Texture readTexture(const std::filesystem::path& file);

private:
    Model readOnce(const std::filesystem::path& file);
    // What tells pictures apart: two files or images that are alike byte by byte are one.
    struct Contents {
        std::uint64_t hash = 0, bytes = 0;
        unsigned width = 0, height = 0;  // as in ModelImage

        auto operator<=>(const Contents&) const = default;
    };

    Texture load(const TextureSource& source);
    Texture decode(const ModelImage& image, const std::string& name);
    template <class Read>
    Texture once(const Contents& contents, Read read);

    ImportLimits m_limits;  // of a model
    TextureReader m_textureReader;
    std::map<std::filesystem::path, std::uint64_t> m_files;
    std::string m_modelReader;  // version
    std::map<std::filesystem::path, Model> m_models;
    std::map<std::filesystem::path, Error> m_badModels;           // each is read once, however often it is asked for
    std::map<std::filesystem::path, MemoryCharge> m_modelMemory;  // of images and meshes
    // Colour spaces are those that the files say.
    std::map<std::pair<std::filesystem::path, int>, Texture> m_textures;
    std::map<Contents, Texture> m_pictures;
};

}  // namespace oxbeam
