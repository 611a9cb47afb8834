#include "Engine/Import/Helper/Materials.h"

#include <assimp/GltfMaterial.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace oxbeam {

namespace fs = std::filesystem;

static float number(const aiMaterial& m, const char* key, unsigned type, unsigned index, float otherwise) {
    ai_real value = otherwise;
    return m.Get(key, type, index, value) == aiReturn_SUCCESS ? value : otherwise;
}

static std::optional<R3> color(const aiMaterial& m, const char* key, unsigned type, unsigned index) {
    aiColor3D value;
    if (m.Get(key, type, index, value) != aiReturn_SUCCESS) return std::nullopt;
    return R3(value.r, value.g, value.b);
}

// ---- Textures

static std::string decodedUri(const std::string& name) {
    std::string text;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '%' || i + 2 >= name.size()) {
            text += name[i];
            continue;
        }
        text += static_cast<char>(std::strtol(name.substr(i + 1, 2).c_str(), nullptr, 16));
        i += 2;
    }
    return text;
}

// As it is named, as a name from Windows, as a URI; else a file of that name beside the model.
std::string MaterialReader::textureFile(const std::string& name) {
    std::string slashes = name;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    for (const std::string& candidate : {name, slashes, decodedUri(slashes), fs::path(slashes).filename().string(),
                                         decodedUri(fs::path(slashes).filename())})
        if (const auto file = candidate.empty() ? std::nullopt : m_folder.find(candidate))
            return file->lexically_relative(m_folder.folder()).string();
    if (m_missing.insert(name).second)
        m_warnings.push_back("texture '" + name + "' is not in the model's folder; rendered without it");
    return {};
}

static ModelTexture::Wrap wrapOf(int mode) {
    if (mode == aiTextureMapMode_Clamp || mode == aiTextureMapMode_Decal) return ModelTexture::Clamp;
    return mode == aiTextureMapMode_Mirror ? ModelTexture::Mirror : ModelTexture::Repeat;
}

ModelTexture MaterialReader::texture(const aiMaterial& material, std::initializer_list<aiTextureType> types) {
    ModelTexture result;
    for (const aiTextureType type : types) {
        aiString path;
        if (material.Get(AI_MATKEY_TEXTURE(type, 0), path) != aiReturn_SUCCESS || path.length == 0) continue;
        int wrap = aiTextureMapMode_Wrap;
        material.Get(AI_MATKEY_MAPPINGMODE_U(type, 0), wrap);
        result.wrap = wrapOf(wrap);
        if (const aiTexture* embedded = m_scene.GetEmbeddedTexture(path.C_Str())) {
            aiTexture** const all = m_scene.mTextures;
            result.image = static_cast<int>(std::find(all, all + m_scene.mNumTextures, embedded) - all);
        } else {
            result.file = textureFile(path.C_Str());
        }
        if (result.given()) break;
    }
    return result;
}

// ---- Materials

// A Phong highlight falls off as the mirrors of a rough surface are distributed (B. Walter et al., "Microfacet models for
// refraction through rough surfaces", 2007). Its colour is the programs' own measure: half of white stands for what a
// dielectric reflects. A material that has none is matte.
static void readHighlight(const aiMaterial& from, ModelMaterial& m) {
    const float exponent = number(from, AI_MATKEY_SHININESS, 16.0f);
    R3 own = color(from, AI_MATKEY_COLOR_SPECULAR).value_or(R3());
    own *= std::clamp(number(from, AI_MATKEY_SHININESS_STRENGTH, 1.0f), 0.0f, 1.0f);
    m.roughness = std::pow(2.0f / (std::clamp(exponent, 1.0f, 1e6f) + 2.0f), 0.25f);
    m.specular = exponent < 1.0f ? 0.0f : std::min(2.0f * Max(own), 1.0f);
    if (m.specular > 0.0f) m.specularColor = own / Max(own);
}

// Colours and factors as most formats have them: after Phong.
static void readPhong(const aiMaterial& from, ModelMaterial& m) {
    if (const auto c = color(from, AI_MATKEY_COLOR_DIFFUSE)) m.baseColor = *c;
    if (const auto c = color(from, AI_MATKEY_BASE_COLOR)) m.baseColor = *c;
    m.emissive = color(from, AI_MATKEY_COLOR_EMISSIVE).value_or(R3());
    m.opacity = number(from, AI_MATKEY_OPACITY, 1.0f);
    // A factor of a colour, which many exporters leave black.
    m.reflectivity = number(from, AI_MATKEY_REFLECTIVITY, 0.0f) *
                     Max(color(from, AI_MATKEY_COLOR_REFLECTIVE).value_or(R3(1.0f, 1.0f, 1.0f)));
    m.metallic = number(from, AI_MATKEY_METALLIC_FACTOR, 0.0f);
    m.clearCoat = number(from, AI_MATKEY_CLEARCOAT_FACTOR, 0.0f);
    m.transmission = number(from, AI_MATKEY_TRANSMISSION_FACTOR, 0.0f);
    m.ior = number(from, AI_MATKEY_REFRACTI, 1.5f);
    if (m.ior <= 1.0f) m.ior = 1.5f;
    m.roughness = number(from, AI_MATKEY_ROUGHNESS_FACTOR, -1.0f);
    if (m.roughness < 0.0f) readHighlight(from, m);
}

std::optional<std::size_t> MaterialReader::gltfNumber(unsigned number) const {
    aiString name;
    if (!m_gltf || m_scene.mMaterials[number]->Get(AI_MATKEY_NAME, name) != aiReturn_SUCCESS) return std::nullopt;
    return GltfDocument::materialNumber(name.C_Str());
}

ModelMaterial MaterialReader::read(unsigned number) {
    const aiMaterial& from = *m_scene.mMaterials[number];
    ModelMaterial m;
    aiString name;
    if (from.Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS) m.name = name.C_Str();
    readPhong(from, m);
    m.texture = texture(from, {aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE});
    m.bumpMap = texture(from, {aiTextureType_NORMALS, aiTextureType_NORMAL_CAMERA});
    m.bumpIsNormal = m.bumpMap.given();
    if (!m.bumpIsNormal) m.bumpMap = texture(from, {aiTextureType_HEIGHT});
    m.emissiveTexture = texture(from, {aiTextureType_EMISSIVE, aiTextureType_EMISSION_COLOR});
    if (const auto own = gltfNumber(number)) {
        m_gltf->complete(m, *own);
        m.given = true;
        m.metalRoughTexture = texture(from, {aiTextureType_METALNESS, aiTextureType_UNKNOWN});
        return m;
    }
    // What importers make up, which some name, and others leave at their grey where a library of materials is missing.
    const bool unnamed = m.name.empty() || m.name == AI_DEFAULT_MATERIAL_NAME;
    const bool untouched = m.specular <= 0.0f && m.baseColor == R3(0.6f, 0.6f, 0.6f);
    m.given = m.texture.given() || !(unnamed || untouched);
    // Exporters that mean "no colour of its own" write black, and those that know no transparency an opacity of 0.
    if (m.texture.given() && Max(m.baseColor) <= 0.0f) m.baseColor = R3(1.0f, 1.0f, 1.0f);
    if (m.opacity <= 0.0f) {
        m_warnings.push_back("material '" + m.name + "' is wholly transparent; taken as opaque");
        m.opacity = 1.0f;
    }
    return m;
}

unsigned MaterialReader::coordinateSet(unsigned number) const {
    if (const auto own = gltfNumber(number)) return m_gltf->coordinateSet(*own);
    int set = 0;
    m_scene.mMaterials[number]->Get(AI_MATKEY_UVWSRC(aiTextureType_DIFFUSE, 0), set);
    return set > 0 && set < AI_MAX_NUMBER_OF_TEXTURECOORDS ? static_cast<unsigned>(set) : 0;
}

Matrix MaterialReader::coordinateTransform(unsigned number) const {
    Matrix upwards = ScaleMatrix(R3(1.0f, -1.0f, 1.0f));
    upwards.m[1][3] = 1.0f;
    if (const auto own = gltfNumber(number)) return upwards * m_gltf->coordinateTransform(*own) * upwards;
    aiUVTransform t;
    if (m_scene.mMaterials[number]->Get(AI_MATKEY_UVTRANSFORM(aiTextureType_DIFFUSE, 0), t) != aiReturn_SUCCESS)
        return {};
    // Turned about the picture's middle.
    const R3 middle(0.5f, 0.5f, 0.0f);
    return TranslationMatrix(R3(t.mTranslation.x, t.mTranslation.y, 0.0f)) * TranslationMatrix(middle) *
           RotationMatrix(2, t.mRotation) * TranslationMatrix(-middle) *
           ScaleMatrix(R3(t.mScaling.x, t.mScaling.y, 1.0f));
}

}  // namespace oxbeam
