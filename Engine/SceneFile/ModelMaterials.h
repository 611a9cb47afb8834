// The shaders and textures of a scene around a model.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/SceneFile/SceneText.h"

#include <map>
#include <optional>
#include <string>

namespace oxbeam {

// A path as a scene file in a folder has it.
std::string relativeTo(const std::filesystem::path& folder, const std::filesystem::path& path);

class ModelMaterials {
public:
    // `size` is that of the model in the scene, to which it is scaled by `scale`; `highlights`: see Surface.
    ModelMaterials(SceneText& text, std::filesystem::path model, std::filesystem::path folder, float size, float scale,
                   bool highlights, SceneAssets& assets, Diagnostics& diagnostics)
        : m_text(text), m_file(std::move(model)), m_folder(std::move(folder)), m_size(size), m_scale(scale),
          m_highlights(highlights), m_assets(assets), m_diagnostics(diagnostics) {}

    // Name of the shader for the material of that number.
    std::string write(const ModelMaterial& material, std::size_t number);
    // Name of a texture of its own with that picture, of colours.
    std::string writeTexture(const ModelTexture& picture) {
        return texture(picture, "picture", {}, ColorSpace::SRGB, {});
    }

private:
    std::string texture(const ModelTexture& from, const std::string& name, SceneText::Values values, ColorSpace space,
                        SceneText::Values own);
    const Texture* picture(const ModelTexture& from, std::optional<ColorSpace> space);
    void takeMeans(ModelMaterial& material);

    SceneText& m_text;
    std::filesystem::path m_file, m_folder;
    float m_size, m_scale;
    bool m_highlights;
    SceneAssets& m_assets;
    Diagnostics& m_diagnostics;
    std::map<std::string, std::string> m_textures;  // names by what stands in their tables
};

}  // namespace oxbeam
