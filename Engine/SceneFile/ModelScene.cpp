#include "Engine/SceneFile/ModelScene.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/MaterialTable.h"
#include "Engine/SceneFile/ModelView.h"
#include "Engine/SceneFile/SceneText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

namespace fs = std::filesystem;

bool isSceneFile(const fs::path& file) {
    const std::string ending = file.extension().string();
    return ending.empty() || ending == ".toml";
}

namespace {

constexpr float FieldOfView = 30.0f;
constexpr float Ambient = 0.12f;  // of all materials, see their table
constexpr R3 Backdrop(0.42f, 0.43f, 0.45f);

R3 grey(float value) { return White * value; }

// The axis of the file that is up turned upwards, and models of extreme size brought to where single precision and the
// parameters' bounds are at ease.
struct Placement {
    Model::Axis up = Model::Y;
    float scale = 1.0f;

    Matrix matrix() const {
        Matrix m = ScaleMatrix(grey(scale));
        if (up == Model::Z) std::swap(m.m[1], m.m[2]), m.m[2][1] = -m.m[2][1];
        if (up == Model::X) std::swap(m.m[0], m.m[1]), m.m[0][1] = -m.m[0][1];
        return m;
    }
};

// One model's scene, section by section.
class ModelSceneWriter {
public:
    ModelSceneWriter(const fs::path& file, const fs::path& folder, const ModelSceneOptions& options,
                     const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics)
        : m_file(file), m_folder(folder), m_options(options), m_assets(assets), m_diagnostics(diagnostics),
          m_model(assets.model(file)), m_text(registry), m_registry(registry),
          m_image(options.size.value_or(ImageSize())) {}

    std::string write();

private:
    void place();
    void chooseView();
    void writeRender();
    void writeCameras();
    void writeEnvironment();
    void writeLights();
    void light(const std::string& about, const std::string& object, const SceneText::Values& values);
    void writeStudioLights();
    void writeOwnLights();
    void writeEnvironmentLight();
    void writeShaders();
    std::string writeOverride();
    std::string writeShader(const ModelMaterial& material, std::size_t number);
    std::string texture(const ModelTexture& from, const std::string& name, SceneText::Values values, ColorSpace space,
                        bool colors);
    const Texture* picture(const ModelTexture& from, std::optional<ColorSpace> space);
    void takeMeans(ModelMaterial& material);
    void writeMeshes();
    void warn(const std::string& message) { m_diagnostics.warning({m_file.string(), 0, 0}, message); }
    std::string relative(const fs::path& path) const {
        return fs::absolute(path).lexically_normal().lexically_proximate(fs::absolute(m_folder).lexically_normal());
    }

    fs::path m_file, m_folder;
    const ModelSceneOptions& m_options;
    SceneAssets& m_assets;
    Diagnostics& m_diagnostics;
    Model& m_model;
    SceneText m_text;
    const Registry& m_registry;
    ImageSize m_image;
    Placement m_placement;
    std::vector<R3> m_points;
    Bounds m_bounds;
    float m_size = 1.0f;  // the bounds' diagonal
    View m_view;
    float m_fov = FieldOfView;
    bool m_ground = true;
    float m_groundLight = Ambient;  // what arrives on it from all lights
    std::vector<std::string> m_shaders;
    std::map<std::string, std::string> m_textures;  // names by what stands in their tables
};

// ---- Geometry

void ModelSceneWriter::place() {
    m_placement.up = m_model.up;
    m_points = visiblePoints(m_model, m_placement.matrix());
    const auto measure = [&] {
        m_bounds = Bounds();
        for (const R3& p : m_points) m_bounds.add(p);
        m_size = m_bounds.empty ? 0.0f : 2.0f * m_bounds.radius();
    };
    measure();
    if (!(m_size > 0.0f))
        throw Error(ExitStatus::BadScene,
                    fmt::format("model '{}' has no triangle that could be seen", m_file.string()));
    if (m_size < 1e-2f || m_size > 1e4f) {
        m_placement.scale = std::pow(10.0f, -std::round(std::log10(m_size)));
        for (R3& p : m_points) p = m_placement.scale * p;
        measure();
    }
}

void ModelSceneWriter::chooseView() {
    std::string name = m_options.view.empty() ? ViewNames.front() : m_options.view;
    if (edgeOn(m_points, name)) {
        const auto better = std::find_if(ViewNames.begin(), ViewNames.end(),
                                         [&](const std::string& other) { return !edgeOn(m_points, other); });
        if (better != ViewNames.end()) {
            warn(fmt::format("the model is flat and would be seen from its edge; shown from {} instead of {}", *better,
                             name));
            name = *better;
        }
    }
    m_view = frame(m_points, name, m_fov, m_image);
    const Matrix toScene = m_placement.matrix();
    for (ModelCamera& camera : m_model.cameras) {
        camera.position = TransformPoint(toScene, camera.position);
        camera.lookAt = TransformPoint(toScene, camera.lookAt);
        camera.lookUp = Normalize(TransformVector(toScene, camera.lookUp));
    }
    if (!m_options.view.empty() || m_model.cameras.empty()) return;
    for (const ModelCamera& camera : m_model.cameras) {
        const View view{camera.position, camera.lookAt, camera.lookUp};
        if (!sees(view, camera.fov, m_image, m_points)) continue;
        m_view = view;
        m_fov = camera.fov;
        return;
    }
    warn("none of the file's cameras sees the model; all of it is framed");
}

// ---- Sections

void ModelSceneWriter::writeRender() {
    m_text.table(
        "[image]",
        {{"width", std::to_string(m_image.width)}, {"height", std::to_string(m_image.height)}, {"samples", "16"}});
    // A light with a place of its own would be jittered by a length that no model's size is known to suit.
    const bool soft = std::all_of(m_model.lights.begin(), m_model.lights.end(),
                                  [](const ModelLight& l) { return l.kind == ModelLight::Directional; });
    const float reach = std::max(m_size, Length(m_bounds.center()) + 0.5f * m_size);
    m_text.object("[render]", "Kel",
                  {{"receiveShadow", "true"},
                   {"fuzzyLights", soft ? "true" : "false"},
                   {"recursionLimit", "12"},
                   {"reflectiveAccuracy", "0.03"},
                   {"refractiveAccuracy", "0.03"},
                   {"transparentAccuracy", "0.03"},
                   {"rayEpsilon", tomlValue(2e-5f * reach)}});
}

void ModelSceneWriter::writeCameras() {
    const auto camera = [&](const std::string& header, const View& view, float fov) {
        m_text.object(header, "OxPerspectiveCamera",
                      {{"position", tomlValue(view.position)},
                       {"lookAt", tomlValue(view.lookAt)},
                       {"lookUp", tomlValue(view.lookUp)},
                       {"fov", tomlValue(fov)}});
    };
    camera("[camera]", m_view, m_fov);
    for (std::size_t i = 0; i < m_model.cameras.size(); ++i) {
        const ModelCamera& own = m_model.cameras[i];
        const std::string name = m_text.name("camera", own.name, fmt::format("camera{}", i));
        m_text.comment(fmt::format("The file's camera '{}': oxbeam render --camera {}", own.name, name));
        camera(fmt::format("[camera.{}]", name), {own.position, own.lookAt, own.lookUp}, own.fov);
    }
}

void ModelSceneWriter::writeEnvironment() {
    if (!m_options.environment.empty()) {
        m_text.comment("Surroundings that light the model and show in it.");
        m_text.table("[texture.surroundings]", {{"file", tomlValue(relative(m_options.environment))},
                                                {"projection", tomlValue(std::string("equirectangular"))}});
        m_text.object("[environment]", "KelEnvironment", {{"texture", "\"surroundings\""}});
        return;
    }
    m_text.comment("Reflections show a studio; behind the model there is a plain backdrop.");
    m_text.table("[texture.surroundings]", {{"generate", "\"studio\""}});
    m_text.object("[environment]", "KelEnvironment",
                  {{"texture", "\"surroundings\""},
                   {"visibleForDirect", "false"},
                   {"visibleForTransparency", "false"},
                   {"color", tomlValue(Backdrop)}});
}

// ---- Lights

void ModelSceneWriter::light(const std::string& about, const std::string& object, const SceneText::Values& values) {
    m_text.comment(about);
    m_text.object("[[light]]", object, values);
}

// Mean cosine to the vertical of a light from above whose direction is jittered over a square.
float jitteredCosine(float extent) {
    constexpr int steps = 32;
    float sum = 0.0f;
    for (int i = 0; i < steps * steps; ++i) {
        const int column = i % steps, row = i / steps;
        const float x = extent * ((static_cast<float>(column) + 0.5f) / steps - 0.5f);
        const float y = extent * ((static_cast<float>(row) + 0.5f) / steps - 0.5f);
        sum += 1.0f / std::sqrt(1.0f + x * x + y * y);
    }
    return sum / static_cast<float>(steps * steps);
}

// A key light from behind the viewer's left shoulder, the ceiling, and a weak light from the viewer.
void ModelSceneWriter::writeStudioLights() {
    const R3 forward = Normalize(m_view.lookAt - m_view.position), right = Normalize(Cross(forward, m_view.lookUp));
    R3 back = Cross(right, R3(0.0f, 1.0f, 0.0f));  // level
    if (Length(back) < 0.1f) back = R3(0.0f, 0.0f, 1.0f);
    const bool own = !m_model.lights.empty();
    if (!own) {
        const R3 key = Normalize(R3(0.0f, -1.0f, 0.0f) + 0.6f * right - 0.65f * Normalize(back));
        light(
            "Key light", "KelDirectionalLight",
            {{"direction", tomlValue(key)}, {"intensity", tomlValue(R3(0.56f, 0.54f, 0.51f))}, {"fuzzyness", "0.12"}});
        m_groundLight += 0.54f * -key.y;
    }
    constexpr float extent = 2.0f;
    const float ceiling = own ? 0.18f : 0.28f, fill = own ? 0.05f : 0.1f;
    light(
        "Ceiling", "KelDirectionalLight",
        {{"direction", "[0.0, -1.0, 0.0]"}, {"intensity", tomlValue(grey(ceiling))}, {"fuzzyness", tomlValue(extent)}});
    light("Fill from the viewer", "KelDirectionalLight",
          {{"direction", tomlValue(forward)}, {"intensity", tomlValue(grey(fill))}, {"castShadow", "0"}});
    m_groundLight += ceiling * jitteredCosine(extent) + fill * std::fabs(forward.y);
}

// Formats agree on no unit of light: all are scaled alike, so that what arrives in the middle of the model is right.
void ModelSceneWriter::writeOwnLights() {
    const Matrix toScene = m_placement.matrix();
    const auto loss = [&](const ModelLight& l) {
        const float d = Length(m_bounds.center() - TransformPoint(toScene, l.position)) / m_placement.scale;
        return l.kind == ModelLight::Directional
                   ? 1.0f
                   : std::max(l.attenuation[0] + d * l.attenuation[1] + d * d * l.attenuation[2], 1e-12f);
    };
    float arriving = 0.0f;
    for (const ModelLight& l : m_model.lights) arriving += Max(l.intensity) / loss(l);
    const float factor = arriving > 0.0f && std::isfinite(arriving) ? 0.75f / arriving : 1.0f;
    for (const ModelLight& l : m_model.lights) {
        const float own = loss(l), s = m_placement.scale;
        SceneText::Values values = {{"intensity", tomlValue(l.intensity * (factor / own))}};
        if (l.kind != ModelLight::Point)
            values.emplace_back("direction", tomlValue(Normalize(TransformVector(toScene, l.direction))));
        if (l.kind != ModelLight::Directional) {
            values.emplace_back("position", tomlValue(TransformPoint(toScene, l.position)));
            values.emplace_back("atten0", tomlValue(l.attenuation[0] / own));
            values.emplace_back("atten1", tomlValue(l.attenuation[1] / own / s));
            values.emplace_back("atten2", tomlValue(l.attenuation[2] / own / (s * s)));
        }
        if (l.kind == ModelLight::Spot) {
            values.emplace_back("minAngle", tomlValue(l.innerAngle));
            values.emplace_back("maxAngle", tomlValue(l.outerAngle));
        }
        static const char* const objects[] = {"KelDirectionalLight", "KelPointLight", "KelSpotLight"};
        light(fmt::format("The file's light '{}', scaled by {:g}", l.name, factor / own), objects[l.kind], values);
    }
    m_groundLight += 0.4f;
}

// Mean over the upper half of the picture, every direction counting alike.
float skyBrightness(const Texture& picture) {
    constexpr unsigned side = 64;
    float sum = 0.0f, weights = 0.0f;
    for (unsigned i = 0; i < side * side; ++i) {
        const unsigned column = i % side, row = i / side;
        const float t = 0.5f + 0.5f * (static_cast<float>(row) + 0.5f) / side;
        const float weight = std::cos(3.14159265f * (t - 0.5f));
        sum += weight * Avg(picture.lookUp((static_cast<float>(column) + 0.5f) / side, t).rgb());
        weights += weight;
    }
    return sum / weights;
}

// Strong enough that a white surface that all of the sky reaches is nearly white.
void ModelSceneWriter::writeEnvironmentLight() {
    TextureSource source;
    source.file = m_folder / relative(m_options.environment);
    const float brightness = std::max(skyBrightness(m_assets.keepTexture(source)), 1e-6f);
    light("Light from the surroundings", "KelEnvMapLight",
          {{"texture", "\"surroundings\""}, {"numLights", "24"}, {"intensity", tomlValue(grey(0.26f / brightness))}});
    m_groundLight = 1.0f;
}

void ModelSceneWriter::writeLights() {
    if (!m_options.environment.empty()) writeEnvironmentLight();
    if (!m_model.lights.empty()) writeOwnLights();
    if (m_options.environment.empty()) writeStudioLights();
}

// ---- Shaders and textures

const Texture* ModelSceneWriter::picture(const ModelTexture& from, std::optional<ColorSpace> space) {
    TextureSource source;
    source.file = m_folder / relative(from.image >= 0 ? m_file : m_file.parent_path() / from.file);
    source.image = from.image;
    source.space = space;
    try {
        return &m_assets.keepTexture(source);
    } catch (const Error& e) {
        warn(fmt::format("{}; rendered without it", e.what()));
        return nullptr;
    }
}

// Name of a texture in the scene; nothing where there is none, or none that can be read.
std::string ModelSceneWriter::texture(const ModelTexture& from, const std::string& name, SceneText::Values values,
                                      ColorSpace space, bool colors) {
    const bool linear = space == ColorSpace::Linear;
    const bool there = from.given() && picture(from, linear ? std::optional(space) : std::nullopt);
    if (!there && !colors) return {};
    static const char* const wraps[] = {"", "\"clamp\"", "\"mirror\""};
    SceneText::Values all;
    if (there) {
        all.emplace_back("file", tomlValue(relative(from.image >= 0 ? m_file : m_file.parent_path() / from.file)));
        all.emplace_back("image", from.image >= 0 ? std::to_string(from.image) : "");
        all.emplace_back("wrap", wraps[from.wrap]);
        all.emplace_back("colorSpace", linear ? "\"linear\"" : "");
        all.insert(all.end(), values.begin(), values.end());
    }
    if (colors) all.emplace_back("vertexColors", "true");
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
void ModelSceneWriter::takeMeans(ModelMaterial& m) {
    if (const Texture* p = m.metalRoughTexture.given() ? picture(m.metalRoughTexture, ColorSpace::Linear) : nullptr) {
        const R3 mean = p->rawMean();
        m.metallic *= mean.z;
        m.roughness *= mean.y;
    }
    if (Max(m.emissive) <= 0.0f || !m.emissiveTexture.given()) return;
    if (const Texture* p = picture(m.emissiveTexture, std::nullopt)) m.emissive *= p->rawMean() * p->rawMean();
}

std::string ModelSceneWriter::writeShader(const ModelMaterial& original, std::size_t number) {
    ModelMaterial material = original;
    takeMeans(material);
    std::string name = m_text.name("shader", material.name, fmt::format("material{}", number));
    static const char* const alphas[] = {"\"ignore\"", "\"mask\"", ""};  // by mode
    const bool masked = material.alphaMode == ModelMaterial::Mask;
    Surface surface{material, {}, {}, material.baseColor, m_size, m_placement.scale};
    surface.texture =
        texture(material.texture, name,
                {{"alpha", alphas[material.alphaMode]}, {"alphaCutoff", masked ? tomlValue(material.alphaCutoff) : ""}},
                ColorSpace::SRGB, material.vertexColors);
    surface.bumpMap = texture(material.bumpMap, fmt::format("{}-bumps", name),
                              {{"bump", material.bumpIsNormal ? "\"normal\"" : "\"height\""},
                               {"bumpScale", material.bumpScale != 1.0f ? tomlValue(material.bumpScale) : ""}},
                              ColorSpace::Linear, false);
    if (material.texture.given() && !surface.texture.empty())
        if (const Texture* p = picture(material.texture, std::nullopt)) {
            const R3 mean = p->rawMean();
            surface.color *= mean * mean;  // about what decoding sRGB does
        }
    const ShaderTable table = shaderFor(surface);
    m_text.comment(fmt::format("Material {} of the file: '{}'", number, material.name));
    m_text.object(fmt::format("[shader.{}]", name), table.object, table.parameters);
    return name;
}

// Lengths among an object's parameters follow the size of the model.
std::string ModelSceneWriter::writeOverride() {
    const ObjectClass* object = m_registry.find(m_options.shader);
    const std::vector<ObjectKind> surfaces = {ObjectKind::Surface, ObjectKind::Shader};
    if (!object || !std::count(surfaces.begin(), surfaces.end(), object->kind))
        throw Error(ExitStatus::Usage, fmt::format("--shader {}: no package offers such a surface{}", m_options.shader,
                                                   didYouMean(m_options.shader, m_registry.names(surfaces))));
    SceneText::Values values;
    const auto set = [&](const char* parameter, const std::string& value) {
        if (object->find(parameter)) values.emplace_back(parameter, value);
    };
    set("diffuseColor", tomlValue(grey(0.8f)));
    set("maxDistance", tomlValue(object->find("scaleDistance") ? m_size : 0.4f * m_size));
    set("scaleDistance", tomlValue(1.2f / m_size));
    m_text.comment("Instead of the file's materials");
    m_text.object("[shader.model]", m_options.shader, values);
    return m_text.name("shader", "model", "model");
}

void ModelSceneWriter::writeShaders() {
    if (!m_options.shader.empty()) {
        m_shaders.push_back(writeOverride());
    } else {
        for (std::size_t i = 0; i < m_model.materials.size(); ++i)
            m_shaders.push_back(writeShader(m_model.materials[i], i));
    }
    if (!m_ground) return;
    const R3 color = Backdrop / m_groundLight;
    m_shaders.push_back(m_text.name("shader", "ground", "ground"));
    m_text.comment("As bright, where it is in no shadow, as the backdrop");
    m_text.object(fmt::format("[shader.{}]", m_shaders.back()), "KelPhong",
                  {{"diffuseColor", tomlValue(color)}, {"ambientIntensity", tomlValue(Ambient)}});
}

// ---- Meshes

void ModelSceneWriter::writeMeshes() {
    const std::string scale = m_placement.scale == 1.0f ? "" : tomlValue(m_placement.scale);
    static const char* const axes[] = {"\"x\"", "", "\"z\""};
    SceneText::Values values = {{"file", tomlValue(relative(m_file))}, {"up", axes[m_placement.up]}, {"scale", scale}};
    const std::size_t own = m_shaders.size() - (m_ground ? 1 : 0);
    if (own == 1) {
        values.emplace_back("shader", tomlValue(m_shaders[0]));
    } else {
        std::string list = "[  # by the numbers of the file's materials\n";
        for (std::size_t i = 0; i < own; ++i) list += fmt::format("    {},\n", tomlValue(m_shaders[i]));
        values.emplace_back("shaders", fmt::format("{}]", list));
    }
    m_text.table("[[mesh]]", values);
    if (!m_ground) return;
    const R3 middle = m_bounds.center();
    m_text.comment("The ground, a hair below the model");
    m_text.table("[[mesh]]", {{"shape", "\"plane\""},
                              {"shader", tomlValue(m_shaders.back())},
                              {"scale", tomlValue(30.0f * m_size)},
                              {"translate", tomlValue(R3(middle.x, m_bounds.lower.y - 2e-4f * m_size, middle.z))}});
}

std::string ModelSceneWriter::write() {
    for (const std::string& warning : m_model.warnings) warn(warning);
    m_model.warnings.clear();
    place();
    chooseView();
    m_ground = m_options.ground && m_view.position.y > m_bounds.lower.y;  // from below it would hide the model
    m_text.comment(fmt::format("The scene that oxbeam makes around '{}'.", m_file.filename().string()));
    m_text.comment("What stands in comments after an object's keys are its other parameters with their defaults.");
    writeRender();
    writeCameras();
    writeEnvironment();
    writeLights();
    writeShaders();
    writeMeshes();
    return m_text.text();
}

}  // namespace

std::string describeModelScene(const fs::path& model, const fs::path& folder, const ModelSceneOptions& options,
                               const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics) {
    if (!options.view.empty() && !std::count(ViewNames.begin(), ViewNames.end(), options.view))
        throw Error(ExitStatus::Usage, fmt::format("--view {}: expected one of {}{}", options.view,
                                                   fmt::join(ViewNames, ", "), didYouMean(options.view, ViewNames)));
    const fs::path from = folder.empty() ? fs::path(".") : folder;
    return ModelSceneWriter(fs::absolute(model), from, options, registry, assets, diagnostics).write();
}

}  // namespace oxbeam
