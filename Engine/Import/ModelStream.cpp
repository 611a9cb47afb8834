#include "Engine/Import/ModelStream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace oxbeam {

namespace {

constexpr std::uint32_t Magic = 0x314d784f, EndMark = 0x444e4521;
constexpr std::uint32_t IsModel = 1, IsFailure = 2;

// Both directions walk over a model alike, so that they cannot disagree.
class Writer {
public:
    std::vector<std::byte> bytes;

    template <class T>
    void plain(const T& value) {
        const auto* from = reinterpret_cast<const std::byte*>(&value);
        bytes.insert(bytes.end(), from, from + sizeof value);
    }
    template <class T>
    void list(const std::vector<T>& values) {
        plain(static_cast<std::uint64_t>(values.size()));
        const auto* from = reinterpret_cast<const std::byte*>(values.data());
        bytes.insert(bytes.end(), from, from + sizeof(T) * values.size());
    }
    void text(const std::string& value) { list(std::vector<char>(value.begin(), value.end())); }
    template <class T, class Each>
    void each(const std::vector<T>& values, Each each) {
        plain(static_cast<std::uint64_t>(values.size()));
        for (const T& value : values) each(*this, value);
    }
    bool good() const { return true; }
};

class Reader {
public:
    explicit Reader(const std::vector<std::byte>& bytes) : m_bytes(bytes) {}

    template <class T>
    void plain(T& value) {
        take(&value, 1, sizeof value);
    }
    template <class T>
    void list(std::vector<T>& values) {
        values.resize(length(sizeof(T)));
        take(values.data(), values.size(), sizeof(T));
    }
    void text(std::string& value) {
        value.resize(length(1));
        take(value.data(), value.size(), 1);
    }
    template <class T, class Each>
    void each(std::vector<T>& values, Each each) {
        // An entry takes a byte at the very least; it is made only when its turn comes.
        for (std::size_t left = length(1); left > 0 && m_good; --left) each(*this, values.emplace_back());
    }
    bool good() const { return m_good; }
    bool atEnd() const { return m_good && m_at == m_bytes.size(); }

private:
    std::size_t length(std::size_t elementSize) {
        std::uint64_t count = 0;
        plain(count);
        if (count > (m_bytes.size() - m_at) / elementSize) m_good = false;
        return m_good ? static_cast<std::size_t>(count) : 0;
    }
    void take(void* to, std::size_t count, std::size_t size) {
        if (!m_good || count > (m_bytes.size() - m_at) / size) {
            m_good = false;
            return;
        }
        if (count) std::memcpy(to, m_bytes.data() + m_at, count * size);
        m_at += count * size;
    }

    const std::vector<std::byte>& m_bytes;
    std::size_t m_at = 0;
    bool m_good = true;
};

template <class Stream, class Texture>
void passTexture(Stream& s, Texture& t) {
    s.text(t.file);
    s.plain(t.image);
    s.plain(t.wrap);
}

template <class Stream, class Material>
void passMaterial(Stream& s, Material& m) {
    s.text(m.name);
    for (auto* value : {&m.opacity, &m.alphaCutoff, &m.specular, &m.reflectivity, &m.metallic, &m.roughness,
                        &m.clearCoat, &m.transmission, &m.ior, &m.thickness, &m.attenuationDistance, &m.bumpScale})
        s.plain(*value);
    for (auto* value : {&m.baseColor, &m.emissive, &m.specularColor, &m.attenuationColor}) s.plain(*value);
    s.plain(m.alphaMode);
    std::uint8_t flags =
        static_cast<std::uint8_t>((m.bumpIsNormal ? 1 : 0) | (m.vertexColors ? 2 : 0) | (m.given ? 4 : 0));
    s.plain(flags);
    if constexpr (!std::is_const_v<Material>) {
        m.bumpIsNormal = flags & 1;
        m.vertexColors = flags & 2;
        m.given = flags & 4;
    }
    for (auto* texture : {&m.texture, &m.bumpMap, &m.emissiveTexture, &m.metalRoughTexture}) passTexture(s, *texture);
}

template <class Stream, class AnyModel>
void passModel(Stream& s, AnyModel& model) {
    s.each(model.meshes, [](auto& t, auto& mesh) {
        t.text(mesh.name);
        t.list(mesh.positions);
        t.list(mesh.normals);
        t.list(mesh.texCoords);
        t.list(mesh.colors);
        t.list(mesh.indices);
    });
    s.list(model.meshMaterials);
    s.each(model.parts, [](auto& t, auto& part) {
        t.plain(part.mesh);
        t.plain(part.meshToModel);
    });
    s.each(model.materials, [](auto& t, auto& material) { passMaterial(t, material); });
    s.each(model.images, [](auto& t, auto& image) {
        t.plain(image.width);
        t.plain(image.height);
        t.list(image.bytes);
    });
    s.each(model.cameras, [](auto& t, auto& camera) {
        t.text(camera.name);
        for (auto* value : {&camera.position, &camera.lookAt, &camera.lookUp}) t.plain(*value);
        t.plain(camera.fov);
    });
    s.each(model.lights, [](auto& t, auto& light) {
        t.text(light.name);
        t.plain(light.kind);
        for (auto* value : {&light.position, &light.direction, &light.intensity}) t.plain(*value);
        t.plain(light.attenuation);
        t.plain(light.innerAngle);
        t.plain(light.outerAngle);
    });
    s.each(model.warnings, [](auto& t, auto& text) { t.text(text); });
    s.plain(model.up);
}

// ---- What came back, checked

// Enumerations arrive as whatever number was in the stream.
template <class Enumeration>
bool within(const Enumeration& value, unsigned most) {
    unsigned number;
    std::memcpy(&number, &value, sizeof number);
    return number <= most;
}

bool consistent(const MeshData& mesh) {
    const auto whole = [&](std::size_t size) { return size == 0 || size == mesh.positions.size(); };
    return whole(mesh.normals.size()) && whole(mesh.texCoords.size()) && whole(mesh.colors.size()) &&
           mesh.indices.size() % 3 == 0 && mesh.positions.size() <= 0xffffffffu;
}

bool consistent(const ModelTexture& texture, const Model& model) {
    return texture.image >= -1 && texture.image < static_cast<int>(model.images.size()) &&
           within(texture.wrap, ModelTexture::Mirror);
}

bool consistent(const ModelImage& image) {
    const std::size_t texels = std::size_t{image.width} * image.height;
    return (image.width == 0) == (image.height == 0) && (texels == 0 || image.bytes.size() == 4 * texels);
}

bool consistent(const Model& model) {
    const auto all = [](const auto& list, const auto& good) { return std::all_of(list.begin(), list.end(), good); };
    return model.meshMaterials.size() == model.meshes.size() && !model.materials.empty() &&
           within(model.up, Model::Z) && all(model.meshes, [](const MeshData& m) { return consistent(m); }) &&
           all(model.meshMaterials, [&](unsigned m) { return m < model.materials.size(); }) &&
           all(model.parts, [&](const ModelPart& p) { return p.mesh < model.meshes.size(); }) &&
           all(model.images, [](const ModelImage& i) { return consistent(i); }) &&
           all(model.materials,
               [&](const ModelMaterial& m) {
                   return within(m.alphaMode, ModelMaterial::Blend) && consistent(m.texture, model) &&
                          consistent(m.bumpMap, model) && consistent(m.emissiveTexture, model) &&
                          consistent(m.metalRoughTexture, model);
               }) &&
           all(model.lights, [](const ModelLight& l) { return within(l.kind, ModelLight::Spot); });
}

void mend(float& value, float least, float most, float otherwise) {
    value = std::isfinite(value) ? std::clamp(value, least, most) : otherwise;
}

void mend(R3& color, float most, const R3& otherwise) {
    for (unsigned i = 0; i < 3; ++i) mend(color[i], 0.0f, most, otherwise[i]);
}

void mend(ModelMaterial& m) {
    const ModelMaterial plain;
    for (float* share :
         {&m.opacity, &m.specular, &m.reflectivity, &m.metallic, &m.roughness, &m.clearCoat, &m.transmission})
        mend(*share, 0.0f, 1.0f, 0.0f);
    mend(m.alphaCutoff, 0.0f, 1.0f, 0.5f);
    mend(m.ior, 1.0f, 10.0f, plain.ior);
    mend(m.thickness, 0.0f, 1e18f, 0.0f);
    mend(m.attenuationDistance, 0.0f, 1e18f, 0.0f);
    mend(m.bumpScale, -100.0f, 100.0f, 1.0f);
    mend(m.baseColor, 1.0f, plain.baseColor);
    mend(m.emissive, 1000.0f, plain.emissive);
    mend(m.specularColor, 100.0f, plain.specularColor);
    mend(m.attenuationColor, 1.0f, plain.attenuationColor);
}

bool usable(const ModelCamera& c) {
    return IsFinite(c.position) && IsFinite(c.lookAt) && Length(c.lookAt - c.position) > 0.0f &&
           Length(Cross(Normalize(c.lookAt - c.position), c.lookUp)) > 1e-3f && c.fov > 0.01f && c.fov < 179.0f;
}

bool usable(const ModelLight& l) {
    bool good = IsFinite(l.position) && IsFinite(l.intensity) && Max(l.intensity) > 0.0f;
    for (const float a : l.attenuation) good = good && std::isfinite(a) && a >= 0.0f;
    if (l.kind != ModelLight::Point) good = good && IsFinite(l.direction) && Length(l.direction) > 0.0f;
    if (l.kind == ModelLight::Spot)
        good = good && l.innerAngle >= 0.0f && l.outerAngle > l.innerAngle && l.outerAngle < 1.5707f;
    return good;
}

template <class T>
void keepUsable(std::vector<T>& list, const char* kind, std::vector<std::string>& warnings) {
    const auto bad = std::erase_if(list, [](const T& entry) { return !usable(entry); });
    if (bad) warnings.push_back(std::to_string(bad) + " " + kind + "(s) without sensible numbers were left out");
}

}  // namespace

static std::vector<std::byte> framed(std::uint32_t kind, const auto& content) {
    Writer writer;
    writer.plain(Magic);
    writer.plain(kind);
    content(writer);
    writer.plain(EndMark);
    return std::move(writer.bytes);
}

std::vector<std::byte> encodeModel(const Model& model) {
    return framed(IsModel, [&](Writer& w) { passModel(w, model); });
}

std::vector<std::byte> encodeFailure(const std::string& why) {
    return framed(IsFailure, [&](Writer& w) { w.text(why); });
}

std::optional<ModelOrFailure> decodeModel(const std::vector<std::byte>& bytes) {
    ModelOrFailure result;
    Model& model = result.model;
    Reader reader(bytes);
    std::uint32_t magic = 0, kind = 0, end = 0;
    reader.plain(magic);
    reader.plain(kind);
    if (kind == IsModel)
        passModel(reader, model);
    else
        reader.text(result.failure);
    reader.plain(end);
    if (magic != Magic || end != EndMark || !reader.atEnd()) return std::nullopt;
    if (kind == IsFailure) return result.failure.empty() ? std::nullopt : std::optional(std::move(result));
    if (kind != IsModel || !consistent(model)) return std::nullopt;
    for (ModelMaterial& material : model.materials) mend(material);
    keepUsable(model.cameras, "camera", model.warnings);
    keepUsable(model.lights, "light", model.warnings);
    return result;
}

}  // namespace oxbeam
