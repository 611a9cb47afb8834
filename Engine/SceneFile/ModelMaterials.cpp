#include "Engine/SceneFile/ModelMaterials.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/MaterialTable.h"

#include <fmt/format.h>

namespace oxbeam {

std::string relativeTo(const std::filesystem::path& folder, const std::filesystem::path& path) {
    using std::filesystem::absolute;
    return absolute(path).lexically_normal().lexically_proximate(absolute(folder).lexically_normal());
}

const Texture* ModelMaterials::picture(const ModelTexture& from, std::optional<ColorSpace> space) {
    TextureSource source;
    source.file = m_folder / relativeTo(m_folder, from.image >= 0 ? m_file : m_file.parent_path() / from.file);
    source.image = from.image;
    source.space = space;
    try {
        return &m_assets.keepTexture(source);
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        m_diagnostics.warning({m_file.string(), 0, 0}, fmt::format("{}; rendered without it", e.what()));
        return nullptr;
    }
}

// Name of a texture in the scene; nothing where there is none, or none that can be read. `values` go with the picture,
// `own` make a texture even without one.
std::string ModelMaterials::texture(const ModelTexture& from, const std::string& name, SceneText::Values values,
                                    ColorSpace space, SceneText::Values own) {
    const bool linear = space == ColorSpace::Linear;
    const bool there = from.given() && picture(from, linear ? std::optional(space) : std::nullopt);
    if (!there && own.empty()) return {};
    static const char* const wraps[] = {"", "\"clamp\"", "\"mirror\""};
    SceneText::Values all;
    if (there) {
        all.emplace_back("file",
                         tomlValue(relativeTo(m_folder, from.image >= 0 ? m_file : m_file.parent_path() / from.file)));
        all.emplace_back("image", from.image >= 0 ? std::to_string(from.image) : "");
        all.emplace_back("wrap", wraps[from.wrap]);
        all.emplace_back("colorSpace", linear ? "\"linear\"" : "");
        all.insert(all.end(), values.begin(), values.end());
    }
    all.insert(all.end(), own.begin(), own.end());
    std::string contents;
    for (const auto& [key, value] : all) contents += fmt::format("{}={}\n", key, value);
    std::string& known = m_textures[contents];
    if (known.empty()) {
        known = m_text.name("texture", name, "texture");
        m_text.table(fmt::format("[texture.{}]", known), all);
    }
    return known;
}

// Where a picture drives what no object takes from a picture, its mean must do.
void ModelMaterials::takeMeans(ModelMaterial& m) {
    if (const Texture* p = m.metalRoughTexture.given() ? picture(m.metalRoughTexture, ColorSpace::Linear) : nullptr) {
        const R3 mean = p->rawMean();
        m.metallic *= mean.z;
        m.roughness *= mean.y;
    }
    if (Max(m.emissive) <= 0.0f || !m.emissiveTexture.given()) return;
    if (const Texture* p = picture(m.emissiveTexture, std::nullopt)) m.emissive *= p->rawMean() * p->rawMean();
}

std::string ModelMaterials::write(const ModelMaterial& original, std::size_t number) {
    ModelMaterial material = original;
    takeMeans(material);
    std::string name = m_text.name("shader", material.name, fmt::format("material{}", number));
    static const char* const alphas[] = {"\"ignore\"", "\"mask\"", ""};  // by mode
    const bool masked = material.alphaMode == ModelMaterial::Mask;
    Surface surface{material, {}, {}, material.baseColor, m_highlights, m_size, m_scale};
    surface.texture = texture(
        material.texture, name,
        {{"alpha", alphas[material.alphaMode]}, {"alphaCutoff", masked ? tomlValue(material.alphaCutoff) : ""}},
        ColorSpace::SRGB, material.vertexColors ? SceneText::Values{{"vertexColors", "true"}} : SceneText::Values());
    if (material.texture.given() && !surface.texture.empty())
        if (const Texture* p = picture(material.texture, std::nullopt)) {
            const R3 mean = p->rawMean();
            surface.color *= mean * mean;  // about what decoding sRGB does
        }
    const float roughness = roughnessOfBumps(surface);
    surface.bumpMap =
        texture(material.bumpMap, fmt::format("{}-bumps", name),
                {{"bump", material.bumpIsNormal ? "\"normal\"" : "\"height\""},
                 {"bumpScale", material.bumpScale != 1.0f ? tomlValue(material.bumpScale) : ""}},
                ColorSpace::Linear,
                roughness > 0.0f ? SceneText::Values{{"roughness", tomlValue(roughness)}} : SceneText::Values());
    const ShaderTable table = shaderFor(surface);
    m_text.comment(fmt::format("Material {} of the file: '{}'", number, material.name));
    m_text.object(fmt::format("[shader.{}]", name), table.object, table.parameters);
    return name;
}

}  // namespace oxbeam
