#include "Engine/Import/ModelStream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace oxbeam {

namespace {

constexpr std::uint32_t Magic = 0x314d784f, EndMark = 0x444e4521;
constexpr std::uint32_t IsModel = 1, IsFailure = 2;

// Small values are passed on together; arrays go from where they are and to where they stay.
constexpr std::size_t BufferSize = std::size_t{1} << 16;

// Both directions walk over a model alike, so that they cannot disagree.
class Writer {
public:
    explicit Writer(const ModelSink& sink) : m_sink(sink) {}

    template <class T>
    void plain(const T& value) {
        put(&value, sizeof value);
    }
    template <class T>
    void list(const std::vector<T>& values) {
        plain(static_cast<std::uint64_t>(values.size()));
        put(values.data(), sizeof(T) * values.size());
    }
    void text(const std::string& value) {
        plain(static_cast<std::uint64_t>(value.size()));
        put(value.data(), value.size());
    }
    template <class T, class Each>
    void each(const std::vector<T>& values, Each each) {
        plain(static_cast<std::uint64_t>(values.size()));
        for (const T& value : values) each(*this, value);
    }
    void flush() {
        if (!m_buffer.empty()) m_sink(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
    }

private:
    void put(const void* data, std::size_t size) {
        if (m_buffer.size() + size > BufferSize) flush();
        const auto* from = static_cast<const std::byte*>(data);
        if (size > BufferSize)
            m_sink(from, size);
        else
            m_buffer.insert(m_buffer.end(), from, from + size);
    }

    const ModelSink& m_sink;
    std::vector<std::byte> m_buffer;
};

class Reader {
public:
    Reader(std::uint64_t size, const ModelSource& source) : m_source(source), m_left(size) {}

    template <class T>
    void plain(T& value) {
        take(&value, sizeof value);
    }
    // Grows as it arrives: a length that is a lie costs no memory.
    template <class T>
    void list(std::vector<T>& values) {
        constexpr std::size_t step = std::max<std::size_t>(1, (std::size_t{1} << 22) / sizeof(T));
        const std::size_t count = length(sizeof(T));
        values.reserve(count);
        while (values.size() < count && m_good) {
            const std::size_t before = values.size();
            values.resize(std::min(count, before + step));
            take(values.data() + before, sizeof(T) * (values.size() - before));
        }
    }
    void text(std::string& value) {
        value.resize(length(1));
        take(value.data(), value.size());
    }
    template <class T, class Each>
    void each(std::vector<T>& values, Each each) {
        // An entry takes a byte at the very least; it is made only when its turn comes.
        for (std::size_t left = length(1); left > 0 && m_good; --left) each(*this, values.emplace_back());
    }
    bool atEnd() const { return m_good && available() == 0; }

private:
    std::uint64_t available() const { return m_left + m_buffer.size() - m_at; }
    std::size_t length(std::size_t elementSize) {
        std::uint64_t count = 0;
        plain(count);
        if (count > available() / elementSize) m_good = false;
        return m_good ? static_cast<std::size_t>(count) : 0;
    }
    void take(void* to, std::size_t size) {
        if (!m_good || size > available()) {
            m_good = false;
            return;
        }
        for (auto* at = static_cast<std::byte*>(to); size > 0;) {
            if (m_at == m_buffer.size() && size >= BufferSize) return fetch(at, size);
            if (m_at == m_buffer.size()) refill();
            const std::size_t now = std::min(size, m_buffer.size() - m_at);
            std::memcpy(at, m_buffer.data() + m_at, now);
            at += now, m_at += now, size -= now;
        }
    }
    void refill() {
        m_buffer.resize(std::min<std::uint64_t>(BufferSize, m_left));
        m_at = 0;
        fetch(m_buffer.data(), m_buffer.size());
    }
    void fetch(void* to, std::size_t size) {
        m_source(to, size);
        m_left -= size;
    }

    const ModelSource& m_source;
    std::uint64_t m_left;  // that the source still has
    std::vector<std::byte> m_buffer;
    std::size_t m_at = 0;  // in the buffer
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

template <class Stream, class Flag>
void passFlag(Stream& s, Flag& flag) {
    std::uint8_t byte = flag;
    s.plain(byte);
    if constexpr (!std::is_const_v<Flag>) flag = byte != 0;
}

template <class Stream, class Clip>
void passClip(Stream& s, Clip& clip) {
    s.text(clip.name);
    s.plain(clip.seconds);
    passFlag(s, clip.straightened);
    s.each(clip.channels, [](auto& t, auto& channel) {
        t.plain(channel.node);
        const auto keys = [&](auto& of) {
            t.list(of.times);
            t.list(of.values);
        };
        keys(channel.translation);
        keys(channel.rotation);
        keys(channel.scale);
    });
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
        t.plain(part.node);
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
    s.each(model.nodes, [](auto& t, auto& node) {
        t.plain(node.parent);
        t.plain(node.toParent);
    });
    s.each(model.clips, [](auto& t, auto& clip) { passClip(t, clip); });
    passFlag(s, model.deforms);
    for (auto* texts : {&model.warnings, &model.files}) s.each(*texts, [](auto& t, auto& text) { t.text(text); });
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

// Parents stand before their children, so that there are no circles.
bool consistent(const std::vector<ModelNode>& nodes) {
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes[i].parent < -1 || nodes[i].parent >= static_cast<std::int64_t>(i)) return false;
    return true;
}

bool consistent(const NodeClip& clip, const Model& model) {
    const auto whole = [](const auto& keys) { return !keys.times.empty() && keys.times.size() == keys.values.size(); };
    return std::all_of(clip.channels.begin(), clip.channels.end(), [&](const NodeChannel& c) {
        return c.node < model.nodes.size() && whole(c.translation) && whole(c.rotation) && whole(c.scale);
    });
}

bool consistent(const Model& model) {
    const auto all = [](const auto& list, const auto& good) { return std::all_of(list.begin(), list.end(), good); };
    return model.meshMaterials.size() == model.meshes.size() && !model.materials.empty() &&
           within(model.up, Model::MinusZ) && all(model.meshes, [](const MeshData& m) { return consistent(m); }) &&
           all(model.meshMaterials, [&](unsigned m) { return m < model.materials.size(); }) &&
           all(model.parts,
               [&](const ModelPart& p) {
                   const bool known = model.nodes.empty()
                                          ? p.node == -1
                                          : p.node >= 0 && static_cast<std::size_t>(p.node) < model.nodes.size();
                   return p.mesh < model.meshes.size() && known;
               }) &&
           consistent(model.nodes) && (model.clips.empty() || !model.nodes.empty()) &&
           all(model.clips, [&](const NodeClip& c) { return consistent(c, model); }) &&
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

bool isUnit(const Quaternion& q) { return std::fabs(Dot(q, q) - 1.0) < 1e-3; }

bool usable(const NodeClip& clip) {
    const auto good = [](const auto& keys, const auto& isGood) {
        return std::all_of(keys.times.begin(), keys.times.end(), [](float t) { return std::isfinite(t); }) &&
               std::is_sorted(keys.times.begin(), keys.times.end()) &&
               std::all_of(keys.values.begin(), keys.values.end(), isGood);
    };
    const auto finite = [](const R3& v) { return IsFinite(v); };
    return clip.seconds >= 0.0f && clip.seconds <= 1e6f &&
           std::all_of(clip.channels.begin(), clip.channels.end(), [&](const NodeChannel& c) {
               return good(c.translation, finite) && good(c.rotation, isUnit) && good(c.scale, finite);
           });
}

template <class T>
void keepUsable(std::vector<T>& list, const char* kind, std::vector<std::string>& warnings) {
    const auto bad = std::erase_if(list, [](const T& entry) { return !usable(entry); });
    if (bad) warnings.push_back(std::to_string(bad) + " " + kind + "(s) without sensible numbers were left out");
}

}  // namespace

static void framed(std::uint32_t kind, const ModelSink& sink, const auto& content) {
    Writer writer(sink);
    writer.plain(Magic);
    writer.plain(kind);
    content(writer);
    writer.plain(EndMark);
    writer.flush();
}

void encodeModel(const Model& model, const ModelSink& sink) {
    framed(IsModel, sink, [&](Writer& w) { passModel(w, model); });
}

void encodeFailure(const std::string& why, const ModelSink& sink) {
    framed(IsFailure, sink, [&](Writer& w) { w.text(why); });
}

std::optional<ModelOrFailure> decodeModel(std::uint64_t size, const ModelSource& source) {
    ModelOrFailure result;
    Model& model = result.model;
    Reader reader(size, source);
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
    keepUsable(model.clips, "clip", model.warnings);
    return result;
}

}  // namespace oxbeam
