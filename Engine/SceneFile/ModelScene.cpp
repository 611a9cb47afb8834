#include "Engine/SceneFile/ModelScene.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/MaterialTable.h"
#include "Engine/SceneFile/ModelLights.h"
#include "Engine/SceneFile/ModelMaterials.h"
#include "Engine/SceneFile/ModelTables.h"
#include "Engine/SceneFile/ModelView.h"
#include "Engine/SceneFile/SceneText.h"
#include "Engine/SceneFile/UpAxis.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace oxbeam {

namespace fs = std::filesystem;

bool isSceneFile(const fs::path& file) {
    const std::string ending = file.extension().string();
    return ending.empty() || ending == ".toml";
}

namespace {

constexpr float FieldOfView = 30.0f;
constexpr float Ambient = 0.12f;         // of all materials, see their table
constexpr float BrightestShown = 25.0f;  // a lamp is still white in what reflects 4%
constexpr R3 Backdrop(0.42f, 0.43f, 0.45f);

// The axis of the file that is up turned upwards, and models of extreme size brought to where single precision and the
// parameters' bounds are at ease.
struct Placement {
    Model::Axis up = Model::Y;
    float scale = 1.0f;

    Matrix matrix() const { return ScaleMatrix(scale * White) * turnUp(up); }
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
    void placeCameras();
    const ModelCamera* chosenCamera();
    ViewAngles direction();
    void chooseView();
    void writeRender();
    void writeCameras();
    void chooseBackdrop();
    void writeEnvironment();
    bool catchesShadows() const;
    void writeGroundShader();
    void writeLights();
    void writeShaders();
    std::string writeOverride(ModelMaterials& materials);
    ModelTexture painted() const;
    ModelMaterial dressed(ModelMaterial material) const;
    bool wantsCoordinates() const;
    std::pair<std::string, std::string> shadersByMaterial() const;
    void writeMeshes();
    void warn(const std::string& message) { m_diagnostics.warning({m_file.string(), 0, 0}, message); }

    fs::path m_file, m_folder;
    const ModelSceneOptions& m_options;
    SceneAssets& m_assets;
    Diagnostics& m_diagnostics;
    Model& m_model;
    SceneText m_text;
    const Registry& m_registry;
    ImageSize m_image;
    Placement m_placement;
    VisiblePoints m_points;
    Bounds m_bounds;
    float m_size = 1.0f;  // the bounds' diagonal
    View m_view;
    float m_fov = FieldOfView;
    std::optional<R3> m_backdrop;  // behind the model, of one colour; nothing: the surroundings
    bool m_ground = true;
    float m_groundLight = 0.0f;  // what arrives on it from all lights
    std::vector<std::string> m_shaders;
    std::vector<std::string> m_cameras;  // the file's, by the scene's names
};

// ---- Geometry

void ModelSceneWriter::place() {
    m_placement.up = m_options.up.value_or(m_model.up);
    m_points = VisiblePoints(m_model, m_placement.matrix());
    const auto measure = [&] {
        m_bounds = Bounds();
        m_points.each([&](const R3& p) { m_bounds.add(p); });
        m_size = m_bounds.empty ? 0.0f : 2.0f * m_bounds.radius();
    };
    measure();
    if (!(m_size > 0.0f))
        throw Error(ExitStatus::BadScene,
                    fmt::format("model '{}' has no triangle that could be seen", m_file.string()));
    if (m_size < 1e-2f || m_size > 1e4f) {
        m_placement.scale = std::pow(10.0f, -std::round(std::log10(m_size)));
        m_points.scale(m_placement.scale);
        measure();
    }
}

// Where the file's cameras are in the scene, and what they are called there.
void ModelSceneWriter::placeCameras() {
    const Matrix toScene = m_placement.matrix();
    for (std::size_t i = 0; i < m_model.cameras.size(); ++i) {
        ModelCamera& camera = m_model.cameras[i];
        camera.position = TransformPoint(toScene, camera.position);
        camera.lookAt = TransformPoint(toScene, camera.lookAt);
        camera.lookUp = Normalize(TransformVector(toScene, camera.lookUp));
        m_cameras.push_back(m_text.name("camera", camera.name, fmt::format("camera{}", i)));
    }
}

// The one that is asked for, by its name in the file or in the scene; or null for none. A camera may be called "file".
const ModelCamera* ModelSceneWriter::chosenCamera() {
    const std::string& wanted = m_options.view.camera;
    const std::vector<ModelCamera>& all = m_model.cameras;
    if (wanted.empty()) {
        if (!all.empty())
            m_diagnostics.note({m_file.string(), 0, 0},
                               fmt::format("all of it is framed; it has {} of its own: {}; --camera NAME looks through "
                                           "one, --camera file through the first",
                                           all.size() == 1 ? "a camera" : "cameras", fmt::join(m_cameras, ", ")));
        return nullptr;
    }
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].name == wanted || m_cameras[i] == wanted) return &all[i];
    if (wanted == "file" && !all.empty()) return &all.front();
    throw Error(ExitStatus::BadScene, all.empty()
                                          ? fmt::format("--camera {}: the model has no cameras", wanted)
                                          : fmt::format("the model has no camera '{}'; it has {}{}", wanted,
                                                        fmt::join(m_cameras, ", "), didYouMean(wanted, m_cameras)));
}

// A flat model's edge is shown to those only who ask for that very direction.
ViewAngles ModelSceneWriter::direction() {
    const ViewAngles wanted = anglesOf(m_options.view);
    if (m_options.view.azimuth || m_options.view.elevation || !edgeOn(m_points, wanted)) return wanted;
    const std::string name = m_options.view.name.empty() ? viewNames().front() : m_options.view.name;
    for (const std::string& other : viewNames()) {
        const ViewAngles better = anglesOf({other, {}, {}, 1.0f, {}});
        if (edgeOn(m_points, better)) continue;
        warn(
            fmt::format("the model is flat and would be seen from its edge; shown from {} instead of {}", other, name));
        return better;
    }
    return wanted;
}

void ModelSceneWriter::chooseView() {
    placeCameras();
    if (const ModelCamera* camera = chosenCamera()) {
        m_view = {camera->position, camera->lookAt, camera->lookUp};
        m_fov = camera->fov;
        if (!sees(m_view, m_fov, m_image, m_points)) warn(fmt::format("its camera '{}' does not see it", camera->name));
    } else {
        m_view = frame(m_points, direction(), m_fov, m_image);
    }
    m_fov = zoomed(m_fov, m_options.view.zoom);
}

// ---- Sections

void ModelSceneWriter::writeRender() {
    m_text.table("[image]", {{"width", std::to_string(m_image.width)},
                             {"height", std::to_string(m_image.height)},
                             {"samples", "16"},
                             {"tone", "\"neutral\""},
                             {"background", m_options.background == backgroundNames()[1] ? "\"transparent\"" : ""}});
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
        m_text.comment(fmt::format("The file's camera '{}': oxbeam render --camera {}", own.name, m_cameras[i]));
        camera(fmt::format("[camera.{}]", m_cameras[i]), {own.position, own.lookAt, own.lookUp}, own.fov);
    }
}

// What is seen behind the model: what was asked for, else the photograph that lights it or a plain backdrop.
void ModelSceneWriter::chooseBackdrop() {
    const std::string& asked = m_options.background;
    if (asked.empty() && m_options.environment.empty()) m_backdrop = Backdrop;
    if (asked.empty() || asked == "environment" || asked == "transparent") return;
    R3 color;
    char rest;
    if (std::sscanf(asked.c_str(), "%f,%f,%f%c", &color.x, &color.y, &color.z, &rest) != 3 || !IsFinite(color) ||
        std::min({color.x, color.y, color.z}) < 0.0f || Max(color) > 1.0f)
        throw Error(ExitStatus::Usage, fmt::format("--background {}: expected environment, transparent or r,g,b, each "
                                                   "from 0 to 1",
                                                   asked));
    m_backdrop = color;
}

void ModelSceneWriter::writeEnvironment() {
    SceneText::Values picture = {{"generate", "\"studio\""}};
    if (!m_options.environment.empty())
        picture = {{"file", tomlValue(relativeTo(m_folder, m_options.environment))},
                   {"projection", "\"equirectangular\""},
                   {"brightest", tomlValue(BrightestShown)}};
    if (m_options.environmentTurn != 0.0f) picture.emplace_back("rotate", tomlValue(m_options.environmentTurn));
    SceneText::Values values = {{"texture", "\"surroundings\""}};
    if (m_backdrop)
        values.insert(
            values.end(),
            {{"visibleForDirect", "false"}, {"visibleForTransparency", "false"}, {"color", tomlValue(*m_backdrop)}});
    m_text.comment(m_options.environment.empty() ? "Reflections show a studio." : "A photograph lights the model.");
    m_text.name("texture", "surroundings", "");  // no material's
    m_text.table("[texture.surroundings]", picture);
    m_text.comment(m_backdrop ? "Behind the model there is a plain backdrop." : "It is seen behind the model, too.");
    m_text.object("[environment]", "KelEnvironment", values);
}

// The studio's ground is lit like the model; a photograph and a colour of one's own are left as they are, but for the
// model's shadow.
bool ModelSceneWriter::catchesShadows() const {
    return !m_options.environment.empty() || !m_options.background.empty();
}

void ModelSceneWriter::writeLights() {
    ModelLights lights(m_text, m_model, m_placement.matrix(), m_placement.scale, m_bounds.center(), m_view, Ambient);
    const bool studio = m_options.environment.empty();
    TextureSource source;
    if (!studio) source.file = m_folder / relativeTo(m_folder, m_options.environment);
    const std::unique_ptr<Texture> surroundings = studio ? m_assets.studio() : m_assets.texture(source);
    if (samplesManyLights(m_options.shader)) {
        lights.writeManyLights(*surroundings);
    } else {
        if (!studio) lights.writeSurroundings(*surroundings);
        if (!m_model.lights.empty()) lights.writeOwn();
        if (studio) lights.writeStudio();
    }
    m_groundLight = lights.onGround();
}

// ---- Shaders

std::string ModelSceneWriter::writeOverride(ModelMaterials& materials) {
    const ObjectClass* object = m_registry.find(m_options.shader);
    const std::vector<ObjectKind> surfaces = {ObjectKind::Surface, ObjectKind::Shader};
    if (m_options.shader == "KelCubicEnvironment")  // which no document of its own says
        throw Error(ExitStatus::Usage, "--shader KelCubicEnvironment: that is an environment, not a surface");
    if (m_registry.brokenFor(m_options.shader))
        throw Error(ExitStatus::BadPackage,
                    fmt::format("--shader {}: {}", m_options.shader, m_registry.whyMissing(m_options.shader)));
    if (!object || !std::count(surfaces.begin(), surfaces.end(), object->kind))
        throw Error(ExitStatus::Usage, fmt::format("--shader {}: no package offers such a surface{}", m_options.shader,
                                                   didYouMean(m_options.shader, m_registry.names(surfaces))));
    SceneText::Values values = overrideFor(*object, m_size).parameters;
    const auto set = [&](const char* option, const char* parameter, const std::string& value) {
        if (!object->find(parameter))
            throw Error(ExitStatus::Usage, fmt::format("{}: {} has no '{}'", option, m_options.shader, parameter));
        std::erase_if(values, [&](const auto& v) { return v.first == parameter; });
        values.emplace_back(parameter, value);
    };
    if (m_options.color) set("--color", "diffuseColor", tomlValue(*m_options.color));
    if (!m_options.texture.empty()) {
        if (!m_options.color) set("--texture", "diffuseColor", tomlValue(White));
        set("--texture", object->find("texture") ? "texture" : "texture0",
            tomlValue(materials.writeTexture(painted())));
    }
    m_text.comment("Instead of the file's materials");
    m_text.object("[shader.model]", m_options.shader, values);
    return m_text.name("shader", "model", "model");
}

ModelTexture ModelSceneWriter::painted() const {
    ModelTexture texture;
    if (!m_options.texture.empty()) texture.file = fs::absolute(m_options.texture).string();
    return texture;
}

// What the options say holds for all.
ModelMaterial ModelSceneWriter::dressed(ModelMaterial material) const {
    material = dressedInClay(std::move(material));
    if (!m_options.color && m_options.texture.empty()) return material;
    material.texture = painted();
    material.baseColor = m_options.color.value_or(White);
    material.vertexColors = false;
    return material;
}

void ModelSceneWriter::writeShaders() {
    ModelMaterials materials(m_text, m_file, m_folder, m_size, m_placement.scale, !m_model.lights.empty(), m_assets,
                             m_diagnostics);
    if (!m_options.texture.empty()) m_assets.texture({fs::absolute(m_options.texture), -1, {}});  // or an error
    if (!m_options.shader.empty())
        m_shaders.push_back(writeOverride(materials));
    else if (!m_options.keepMaterials)
        for (std::size_t i = 0; i < m_model.materials.size(); ++i)
            m_shaders.push_back(materials.write(dressed(m_model.materials[i]), i));
    if (m_ground) writeGroundShader();
}

void ModelSceneWriter::writeGroundShader() {
    m_shaders.push_back(m_text.name("shader", "ground", "ground"));
    const std::string header = fmt::format("[shader.{}]", m_shaders.back());
    if (catchesShadows()) {
        m_text.comment("Not seen, but for the shadows on it");
        m_text.object(header, "OxShadowCatcher", {{"shadowIntensity", tomlValue(1.0f - Ambient)}});
        return;
    }
    m_text.comment("As bright, where it is in no shadow, as the backdrop");
    SceneText::Values values = {{"diffuseColor", tomlValue(Backdrop / m_groundLight)},
                                {"ambientIntensity", tomlValue(Ambient)}};
    const bool many = samplesManyLights(m_options.shader);  // which no other surface could bear
    if (many) values.emplace_back("specularColor", tomlValue(Black));
    m_text.object(header, many ? m_options.shader : "KelPhong", values);
}

// ---- Meshes

bool ModelSceneWriter::wantsCoordinates() const {
    return !m_options.texture.empty() && std::any_of(m_model.meshes.begin(), m_model.meshes.end(),
                                                     [](const MeshData& mesh) { return mesh.texCoords.empty(); });
}

std::pair<std::string, std::string> ModelSceneWriter::shadersByMaterial() const {
    const std::size_t own = m_shaders.size() - (m_ground ? 1 : 0);
    if (own == 1) return {"shader", tomlValue(m_shaders[0])};
    std::string list = "[  # by the numbers of the file's materials\n";
    for (std::size_t i = 0; i < own; ++i) list += fmt::format("    {},\n", tomlValue(m_shaders[i]));
    return {"shaders", list + "]"};
}

void ModelSceneWriter::writeMeshes() {
    const std::string scale = m_placement.scale == 1.0f ? "" : tomlValue(m_placement.scale);
    const std::string up = tomlValue(AxisNames[m_placement.up]);
    SceneText::Values values = {{"file", tomlValue(relativeTo(m_folder, m_file))},
                                {"up", m_placement.up == Model::Y ? "" : up},
                                {"scale", scale}};
    if (m_options.shader == "KelDbgObjectID") values.emplace_back("ids", "\"distinct\"");
    if (m_options.keepMaterials) {
        values[1].second = up;  // whatever the file says
        values.emplace_back("highlights", m_model.lights.empty() ? "false" : "");
        m_text.comment("With the materials of its file; shaders = { \"Material\" = \"mine\" } replaces some of them");
        m_text.table("[[model]]", values);
    } else {
        values.emplace_back("coordinates", wantsCoordinates() ? "\"box\"" : "");
        values.push_back(shadersByMaterial());
        m_text.table("[[mesh]]", values);
    }
    if (!m_ground) return;
    const R3 middle = m_bounds.center();
    m_text.comment("The ground, a hair below the model");
    SceneText::Values ground = {{"shape", "\"ground\""},
                                {"shader", tomlValue(m_shaders.back())},
                                {"translate", tomlValue(R3(middle.x, m_bounds.lower.y - 2e-4f * m_size, middle.z))}};
    // Light comes from below as well, and reflections show the surroundings themselves.
    if (catchesShadows()) ground.emplace_back("visibleTo", "[\"primary\", \"transparency\", \"refraction\"]");
    m_text.table("[[mesh]]", ground);
}

std::string ModelSceneWriter::write() {
    for (const std::string& warning : m_model.warnings) warn(warning);
    m_model.warnings.clear();
    place();
    chooseView();
    chooseBackdrop();
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
    checkView(options.view);
    if (options.keepMaterials && (!options.shader.empty() || options.color || !options.texture.empty()))
        throw Error(ExitStatus::Usage,
                    fmt::format("--keep-materials and {} contradict each other", !options.shader.empty() ? "--shader"
                                                                                 : options.color         ? "--color"
                                                                                                 : "--texture"));
    const fs::path from = folder.empty() ? fs::path(".") : folder;
    return ModelSceneWriter(fs::absolute(model), from, options, registry, assets, diagnostics).write();
}

}  // namespace oxbeam
