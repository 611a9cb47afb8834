#include "Engine/Import/Helper/GltfDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace oxbeam {

using nlohmann::json;

// ---- Lenient access: a file may hold anything anywhere

static const json& at(const json& object, const char* key) {
    static const json nothing;
    const auto found = object.is_object() ? object.find(key) : object.end();
    return object.is_object() && found != object.end() ? *found : nothing;
}

static const json& entry(const json& list, std::size_t number) {
    static const json nothing;
    return list.is_array() && number < list.size() ? list[number] : nothing;
}

static float number(const json& object, const char* key, float otherwise) {
    const json& value = at(object, key);
    return value.is_number() ? value.get<float>() : otherwise;
}

static float element(const json& list, std::size_t i, float otherwise) {
    const json& value = entry(list, i);
    return value.is_number() ? value.get<float>() : otherwise;
}

static R3 color(const json& object, const char* key, const R3& otherwise) {
    const json& list = at(object, key);
    return {element(list, 0, otherwise.x), element(list, 1, otherwise.y), element(list, 2, otherwise.z)};
}

static std::string text(const json& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

// ---- The file

static constexpr std::string_view GlbMagic = "glTF", JsonChunk = "JSON";
static constexpr std::size_t GlbHeader = 12, ChunkHeader = 8;

static std::uint32_t wordAt(const std::string& bytes, std::size_t place) {
    std::uint32_t word = 0;
    if (place + 4 <= bytes.size()) std::memcpy(&word, bytes.data() + place, 4);
    return word;
}

static void appendWord(std::string& bytes, std::size_t word) {
    const auto value = static_cast<std::uint32_t>(word);
    bytes.append(reinterpret_cast<const char*>(&value), 4);
}

// The importer's own parser descends once for every level, and would run out of stack.
static json parsed(std::string_view source) {
    constexpr int most = 100;
    const auto watch = [](int depth, json::parse_event_t, json&) {
        if (depth > most)
            throw std::runtime_error("its JSON is nested more than " + std::to_string(most) + " levels deep");
        return true;
    };
    return json::parse(source, watch, false);
}

std::optional<GltfDocument> GltfDocument::read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    GltfDocument document;
    std::string_view source = bytes;
    if (bytes.compare(0, 4, GlbMagic) == 0) {
        const std::size_t length = wordAt(bytes, GlbHeader), start = GlbHeader + ChunkHeader;
        if (bytes.size() < start || wordAt(bytes, 4) != 2 || bytes.compare(GlbHeader + 4, 4, JsonChunk) != 0 ||
            length > bytes.size() - start)
            return std::nullopt;
        document.m_binary = true;
        document.m_rest = bytes.substr(start + length);
        source = source.substr(start, length);
    }
    document.m_json = parsed(source);
    const json& version = at(at(document.m_json, "asset"), "version");
    if (document.m_json.is_discarded() || text(version).substr(0, 1) != "2") return std::nullopt;
    return document;
}

std::string GltfDocument::corrected() const {
    json copy = m_json;
    const auto each = [&](const char* list, const auto& use) {
        if (!copy.contains(list) || !copy[list].is_array()) return;
        for (std::size_t i = 0; i < copy[list].size(); ++i)
            if (copy[list][i].is_object()) use(copy[list][i], i);
    };
    each("materials", [](json& material, std::size_t i) { material["name"] = std::to_string(i); });
    each("cameras", [](json& camera, std::size_t) {
        if (camera.contains("perspective") && camera["perspective"].is_object())
            camera["perspective"]["aspectRatio"] = 1.0;
    });
    std::string source = copy.dump(-1, ' ', false, json::error_handler_t::replace);
    if (!m_binary) return source;
    source.resize((source.size() + 3) / 4 * 4, ' ');
    std::string bytes(GlbMagic);
    appendWord(bytes, 2);
    appendWord(bytes, GlbHeader + ChunkHeader + source.size() + m_rest.size());
    appendWord(bytes, source.size());
    return bytes.append(JsonChunk).append(source).append(m_rest);
}

std::optional<std::size_t> GltfDocument::materialNumber(const std::string& name) {
    if (name.empty() || name.size() > 9 || name.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return std::stoul(name);
}

// ---- Materials

static void completeFactors(ModelMaterial& m, const json& material) {
    const json& pbr = at(material, "pbrMetallicRoughness");
    m.baseColor = color(pbr, "baseColorFactor", R3(1.0f, 1.0f, 1.0f));
    m.opacity = element(at(pbr, "baseColorFactor"), 3, 1.0f);
    m.metallic = number(pbr, "metallicFactor", 1.0f);
    m.roughness = number(pbr, "roughnessFactor", 1.0f);
    m.emissive = color(material, "emissiveFactor", R3());
    m.bumpScale = number(at(material, "normalTexture"), "scale", 1.0f);
    const std::string mode = text(at(material, "alphaMode"));
    m.alphaMode = mode == "BLEND" ? ModelMaterial::Blend : mode == "MASK" ? ModelMaterial::Mask : ModelMaterial::Opaque;
    m.alphaCutoff = number(material, "alphaCutoff", 0.5f);
    if (m.alphaMode == ModelMaterial::Opaque) m.opacity = 1.0f;
}

static void completeExtensions(ModelMaterial& m, const json& extensions) {
    m.clearCoat = number(at(extensions, "KHR_materials_clearcoat"), "clearcoatFactor", 0.0f);
    m.transmission = number(at(extensions, "KHR_materials_transmission"), "transmissionFactor", 0.0f);
    const json& volume = at(extensions, "KHR_materials_volume");
    m.thickness = number(volume, "thicknessFactor", 0.0f);
    m.attenuationColor = color(volume, "attenuationColor", R3(1.0f, 1.0f, 1.0f));
    m.attenuationDistance = number(volume, "attenuationDistance", 0.0f);
    m.emissive *= number(at(extensions, "KHR_materials_emissive_strength"), "emissiveStrength", 1.0f);
    const json& old = at(extensions, "KHR_materials_pbrSpecularGlossiness");
    if (!old.is_object()) return;
    m.baseColor = color(old, "diffuseFactor", R3(1.0f, 1.0f, 1.0f));
    m.opacity = m.alphaMode == ModelMaterial::Opaque ? 1.0f : element(at(old, "diffuseFactor"), 3, 1.0f);
    m.metallic = 0.0f;
    const bool pictured = at(old, "specularGlossinessTexture").is_object();  // which nobody here looks into
    m.roughness = pictured ? 0.5f : 1.0f - number(old, "glossinessFactor", 1.0f);
}

// What a dielectric reflects.
static void completeSpecular(ModelMaterial& m, const json& extensions) {
    const json& specular = at(extensions, "KHR_materials_specular");
    m.specular = number(specular, "specularFactor", 1.0f);
    m.specularColor = color(specular, "specularColorFactor", R3(1.0f, 1.0f, 1.0f));
    m.ior = number(at(extensions, "KHR_materials_ior"), "ior", 1.5f);
    if (at(extensions, "KHR_materials_unlit").is_object()) m.specular = 0.0f;
    const json& old = at(extensions, "KHR_materials_pbrSpecularGlossiness");
    // These two say directly how much is reflected straight on, not as a multiple of the 4% of an index of 1.5.
    const bool direct = old.is_object() && !at(old, "specularGlossinessTexture").is_object();
    if (direct) m.specularColor = color(old, "specularFactor", R3(1.0f, 1.0f, 1.0f));
    if (!direct && m.ior != 0.0f) return;
    m.ior = 1.5f;
    m.specularColor *= 25.0f;
}

void GltfDocument::complete(ModelMaterial& m, std::size_t number) const {
    const json& material = entry(at(m_json, "materials"), number);
    if (!material.is_object()) return;
    m.name = text(at(material, "name"));
    completeFactors(m, material);
    completeExtensions(m, at(material, "extensions"));
    completeSpecular(m, at(material, "extensions"));
}

// ---- Texture coordinates. One set serves a mesh: that of its colours, or else of its bumps.

const json* GltfDocument::mappedTexture(std::size_t number) const {
    const json& material = entry(at(m_json, "materials"), number);
    const json& old = at(at(material, "extensions"), "KHR_materials_pbrSpecularGlossiness");
    for (const json* texture : {&at(at(material, "pbrMetallicRoughness"), "baseColorTexture"),
                                &at(old, "diffuseTexture"), &at(material, "normalTexture")})
        if (texture->is_object()) return texture;
    return nullptr;
}

unsigned GltfDocument::coordinateSet(std::size_t material) const {
    const json* texture = mappedTexture(material);
    if (!texture) return 0;
    const json& transform = at(at(*texture, "extensions"), "KHR_texture_transform");
    const float set = number(transform, "texCoord", number(*texture, "texCoord", 0.0f));
    return set > 0.0f && set < 8.0f ? static_cast<unsigned>(set) : 0;
}

Matrix GltfDocument::coordinateTransform(std::size_t material) const {
    const json* texture = mappedTexture(material);
    if (!texture) return {};
    const json& transform = at(at(*texture, "extensions"), "KHR_texture_transform");
    const json &offset = at(transform, "offset"), &scale = at(transform, "scale");
    const Matrix moved = TranslationMatrix(R3(element(offset, 0, 0.0f), element(offset, 1, 0.0f), 0.0f));
    // Counter-clockwise with t downwards is clockwise about z.
    const Matrix turned = RotationMatrix(2, -number(transform, "rotation", 0.0f));
    return moved * turned * ScaleMatrix(R3(element(scale, 0, 1.0f), element(scale, 1, 1.0f), 1.0f));
}

bool GltfDocument::isStraight(std::size_t animation) const {
    const json& samplers = at(entry(at(m_json, "animations"), animation), "samplers");
    return !samplers.is_array() || std::ranges::all_of(samplers, [](const json& sampler) {
        const std::string how = text(at(sampler, "interpolation"));
        return how.empty() || how == "LINEAR";
    });
}

std::vector<std::string> GltfDocument::unknownRequiredExtensions() const {
    static const std::vector<std::string> known = {"KHR_draco_mesh_compression", "KHR_lights_punctual",
                                                   "KHR_materials_clearcoat",    "KHR_materials_emissive_strength",
                                                   "KHR_materials_ior",          "KHR_materials_pbrSpecularGlossiness",
                                                   "KHR_materials_specular",     "KHR_materials_transmission",
                                                   "KHR_materials_unlit",        "KHR_materials_volume",
                                                   "KHR_texture_transform"};
    std::vector<std::string> unknown;
    const json& required = at(m_json, "extensionsRequired");
    if (required.is_array())
        for (const json& name : required)
            if (!std::count(known.begin(), known.end(), text(name))) unknown.push_back(text(name));
    return unknown;
}

}  // namespace oxbeam
