#include "Engine/SceneFile/SceneFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/SceneFile/MeshSection.h"
#include "Engine/SceneFile/SceneDocument.h"
#include "Engine/SceneFile/ScenePlaces.h"
#include "Engine/Textures/Projection.h"
#include "Engine/Textures/Studio.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <variant>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

// How an environment picture is laid out for those who read it.
enum class Layout { AsItIs, AngularMap, VerticalCross };

// Objects do not say what they read; these are known.
Layout layoutFor(const std::string& object) {
    static const std::map<std::string, Layout> known = {{"KelEnvironment", Layout::AngularMap},
                                                        {"KelEnvMapLight", Layout::AngularMap},
                                                        {"KelCubicEnvironment", Layout::VerticalCross}};
    const auto found = known.find(object);
    return found == known.end() ? Layout::AsItIs : found->second;
}

// Reads one scene into a world, section by section; what later sections refer to comes first.
class SceneLoader {
public:
    SceneLoader(const std::string& source, const fs::path& folder, const toml::table& document,
                const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics, World& world)
        : m_file(source), m_folder(folder), m_document(document), m_registry(registry), m_diagnostics(diagnostics),
          m_world(world), m_assets(assets), m_meshes(m_folder, m_shaders, assets, world, diagnostics) {}

    void load(const std::string& camera) {
        readTextures();
        readShaders();
        readRender();
        readImage();
        readCameras(camera);
        readEnvironment();
        readLights();
        eachEntry("mesh", [&](TableReader& reader) { m_meshes.read(reader); });
        reportUnknownSections();
        m_world.geometry.prepare();
        focusCamera();
        m_meshes.reportDroppedTriangles();
    }

private:
    using Kinds = std::vector<ObjectKind>;

    void readTextures();
    void readTexture(const std::string& name, TableReader& reader);
    void readShaders();
    void readRender();
    void readImage();
    void readCameras(const std::string& chosen);
    OxCamera* readCamera(TableReader& reader, bool chosen);
    std::optional<View> viewOf(TableReader& reader);
    void focusCamera();
    void readEnvironment();
    void readLights();
    void reportUnknownSections();

    const toml::table* section(std::string_view name);
    // Of a section that need not be there.
    TableReader readerOf(const std::string& name);
    // The tables of a section by their names, or of a list of tables by their numbers.
    void eachNamed(std::string_view section, const std::function<void(const std::string&, TableReader&)>& use);
    void eachEntry(std::string_view section, const std::function<void(TableReader&)>& use);
    void wrongSection(const toml::node& node, const std::string& what, const std::string& expected);

    const ObjectClass* objectOf(TableReader& reader, const Kinds& kinds, const std::string& preset = {});
    void writeParameters(TableReader& reader, const ObjectClass& object, OxLoadableObject& target);
    // Id of a texture by name, in the layout that an object reads.
    std::optional<int> textureFor(const std::string& name, const ObjectClass& object);

    std::string m_file;
    fs::path m_folder;
    const toml::table& m_document;
    const Registry& m_registry;
    Diagnostics& m_diagnostics;
    World& m_world;
    std::set<std::string, std::less<>> m_sections;
    std::map<std::string, int> m_textures;
    std::vector<std::string> m_textureNames;
    std::set<std::string> m_equirectangular;                    // textures whose picture is laid out like that
    std::map<std::pair<std::string, Layout>, int> m_converted;  // and what they were turned into
    std::optional<std::variant<R3, std::string>> m_focus;       // of the camera: a point, or a mesh's name
    SourceLocation m_focusPlace;
    std::string m_focusLabel;  // of the camera, for messages
    MeshSection::Shaders m_shaders;
    SceneAssets& m_assets;
    MeshSection m_meshes;
};

// ---- Sections

void SceneLoader::wrongSection(const toml::node& node, const std::string& what, const std::string& expected) {
    m_diagnostics.error(locationOf(node.source()), fmt::format("'{}' must be {}", what, expected));
}

const toml::table* SceneLoader::section(std::string_view name) {
    m_sections.emplace(name);
    const toml::node* node = m_document.get(name);
    if (node && !node->is_table()) wrongSection(*node, std::string(name), fmt::format("a table: [{}]", name));
    return node ? node->as_table() : nullptr;
}

TableReader SceneLoader::readerOf(const std::string& name) {
    static const toml::table none;
    const toml::table* table = section(name);
    return {table ? *table : none, name, m_diagnostics, m_file};
}

void SceneLoader::eachNamed(std::string_view name, const std::function<void(const std::string&, TableReader&)>& use) {
    const toml::table* tables = section(name);
    if (!tables) return;
    for (const auto& [key, node] : *tables) {
        const std::string own(key.str());
        if (!node.is_table()) {
            wrongSection(node, fmt::format("{}.{}", name, own), fmt::format("a table: [{}.{}]", name, own));
            continue;
        }
        TableReader reader(*node.as_table(), fmt::format("{} '{}'", name, own), m_diagnostics);
        use(own, reader);
    }
}

void SceneLoader::eachEntry(std::string_view name, const std::function<void(TableReader&)>& use) {
    m_sections.emplace(name);
    const toml::node* node = m_document.get(name);
    if (!node) return;
    const toml::array* entries = node->as_array();
    const bool tables = entries && std::all_of(entries->begin(), entries->end(), [](auto& e) { return e.is_table(); });
    if (!tables) return wrongSection(*node, std::string(name), fmt::format("a list of tables: [[{}]]", name));
    unsigned number = 0;
    for (const toml::node& entry : *entries) {
        TableReader reader(*entry.as_table(), fmt::format("{} {}", name, number++), m_diagnostics);
        use(reader);
    }
}

void SceneLoader::reportUnknownSections() {
    for (const auto& [key, node] : m_document)
        if (!m_sections.contains(key.str()))
            m_diagnostics.error(locationOf(key.source()),
                                fmt::format("a scene has no '{}'{}", key.str(),
                                            didYouMean(key.str(), {m_sections.begin(), m_sections.end()})));
}

// ---- Objects

// "a light", "an environment"
static std::string oneOf(ObjectKind kind) {
    const std::string name = kindName(kind);
    return fmt::format("{} {}", std::string_view("aeiou").find(name[0]) == std::string_view::npos ? "a" : "an", name);
}

const ObjectClass* SceneLoader::objectOf(TableReader& reader, const Kinds& kinds, const std::string& preset) {
    const auto given = reader.text("object");
    if (!given && (preset.empty() || reader.has("object"))) {
        if (!reader.has("object"))
            reader.error("object", fmt::format("has no 'object'; expected the name of {}", oneOf(kinds.front())));
        return nullptr;
    }
    const std::string name = given.value_or(preset);
    const ObjectClass* object = m_registry.find(name);
    if (!object) {
        reader.error("object", fmt::format("no package offers an object '{}'{}", name,
                                           didYouMean(name, m_registry.names(kinds))));
        return nullptr;
    }
    if (!std::count(kinds.begin(), kinds.end(), object->kind)) {
        reader.error("object", fmt::format("'{}' is {}; expected {}{}", name, oneOf(object->kind), oneOf(kinds.front()),
                                           didYouMean(name, m_registry.names(kinds))));
        return nullptr;
    }
    return object;
}

void SceneLoader::writeParameters(TableReader& reader, const ObjectClass& object, OxLoadableObject& target) {
    const auto textures = [&](const std::string& name) { return textureFor(name, object); };
    ParameterWriter writer(object, reader.label(), m_diagnostics, textures, m_textureNames);
    // What was set over the file comes last: the file may know the same parameter by another of its names.
    for (const bool setOver : {false, true})
        reader.rest([&](const std::string& key, const SourceLocation& at, const toml::node& node) {
            if ((locationOf(node.source()).file != m_file) != setOver) return;
            const std::string about = fmt::format("parameter '{}' of {} ({})", key, reader.label(), object.name);
            if (const auto value = parameterValue(node, about, m_diagnostics)) writer.write(target, key, at, *value);
        });
}

std::optional<int> SceneLoader::textureFor(const std::string& name, const ObjectClass& object) {
    const auto found = m_textures.find(name);
    if (found == m_textures.end()) return std::nullopt;
    const Layout layout = layoutFor(object.name);
    if (found->second == Ox_NOTEXTURE || layout == Layout::AsItIs || !m_equirectangular.contains(name))
        return found->second;
    const auto [entry, isNew] = m_converted.try_emplace({name, layout}, Ox_NOTEXTURE);
    if (isNew) {
        const auto& picture = static_cast<const Texture&>(*m_world.textures.ByID(found->second));
        entry->second =
            m_world.textures.add(layout == Layout::AngularMap ? toAngularMap(picture) : toVerticalCross(picture));
    }
    return entry->second;
}

void SceneLoader::readTextures() {
    eachNamed("texture", [&](const std::string& name, TableReader& reader) {
        m_textureNames.push_back(name);
        m_textures[name] = Ox_NOTEXTURE;  // until it is loaded: defined, if wrongly
        readTexture(name, reader);
    });
}

static std::unique_ptr<Texture> whiteTexel() {
    return std::make_unique<Texture>(1u, 1u, 3u, std::vector<std::uint8_t>{255, 255, 255}, ColorSpace::Linear);
}

void SceneLoader::readTexture(const std::string& name, TableReader& reader) {
    static const Oxuint wraps[] = {OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_MIRRORED_REPEAT};
    static const Oxuint filters[] = {OX_GL_LINEAR, OX_GL_NEAREST};
    static const Oxuint models[] = {OX_GL_MODULATE, OX_GL_REPLACE, OX_GL_ADD, OX_GL_DECAL};
    const auto file = reader.text("file");
    const auto wrap = reader.word("wrap", {"repeat", "clamp", "mirror"});
    const auto filter = reader.word("filter", {"linear", "nearest"});
    const auto model = reader.word("model", {"modulate", "replace", "add", "decal"});
    const auto space = reader.word("colorSpace", {"linear", "srgb"});
    const auto bump = reader.word("bump", {"height", "normal"});
    const auto bumpScale = reader.number("bumpScale");
    const auto image = reader.count("image", 0, 1u << 20);
    const auto alpha = reader.word("alpha", {"blend", "mask", "ignore"});
    const auto cutoff = reader.number("alphaCutoff");
    const bool vertexColors = reader.flag("vertexColors").value_or(false);
    const auto generated = reader.word("generate", {"studio"});
    if (generated || reader.word("projection", {"equirectangular"})) m_equirectangular.insert(name);
    reader.finish();
    if (!file && !reader.has("file") && !vertexColors && !generated) reader.error("file", "has no 'file'");
    if (image && !file) reader.error("image", "'image' is for the images within a model's 'file'");
    if (!file && !vertexColors && !generated) return;
    try {
        TextureSource source;
        if (file) source.file = m_folder / *file;
        if (image) source.image = static_cast<int>(*image);
        if (space) source.space = *space == 0 ? ColorSpace::Linear : ColorSpace::SRGB;
        auto texture = file ? m_assets.texture(source) : generated ? studioPicture() : whiteTexel();
        texture->withVertexColors = vertexColors;
        if (alpha == 1u) texture->thresholdAlpha(cutoff.value_or(0.5f));
        if (alpha == 2u) texture->thresholdAlpha(0.0f);
        texture->m_wrapS = texture->m_wrapT = static_cast<Oxint>(wraps[wrap.value_or(0)]);
        texture->filterMode = static_cast<Oxint>(filters[filter.value_or(0)]);
        texture->textureModel = models[model.value_or(0)];
        if (bump) texture->bumpKind = *bump == 0 ? BumpKind::Height : BumpKind::Normal;
        texture->bumpScale = bumpScale.value_or(1.0f);
        m_textures[name] = m_world.textures.add(std::move(texture));
    } catch (const Error& e) {
        m_diagnostics.error(reader.where("file"), e.what());
    }
}

void SceneLoader::readShaders() {
    eachNamed("shader", [&](const std::string& name, TableReader& reader) {
        m_shaders[name] = std::nullopt;
        const ObjectClass* object = objectOf(reader, {ObjectKind::Surface, ObjectKind::Shader});
        if (!object) return;
        OxShader& shader = m_world.addShader(*object);
        m_shaders[name] = static_cast<unsigned>(m_world.shaders.size()) - 1;
        writeParameters(reader, *object, shader);
    });
}

void SceneLoader::readRender() {
    TableReader reader = readerOf("render");
    const ObjectClass* object = objectOf(reader, {ObjectKind::RenderingObject}, DefaultRenderingObject);
    if (!object) return;
    OxRenderingObject& ro = m_world.setRenderingObject(*object);
    writeParameters(reader, *object, ro);
    if (reader.has("rayEpsilon")) {
        if (ro.m_rayEpsilon > 0.0f)
            m_world.rayEpsilon = ro.m_rayEpsilon;
        else
            reader.error("rayEpsilon", "'rayEpsilon' must be positive");
    }
    if (ro.m_recursionLimit > MaxRecursionLimit)
        reader.error("recursionLimit",
                     fmt::format("'recursionLimit' must be from 0 to {}; deeper rays would run out of "
                                 "stack",
                                 MaxRecursionLimit));
    if (ro.m_samplesPerPixel < 1) reader.error("samplesPerPixel", "'samplesPerPixel' must be at least 1");
    if (ro.m_numThreads < 0 || ro.m_numThreads > static_cast<Oxint>(OxRenderingObject::MaxThreads))
        reader.error("numThreads", fmt::format("'numThreads' must be from 1 to {}, or 0 for every processor",
                                               OxRenderingObject::MaxThreads));
}

void SceneLoader::readImage() {
    const toml::table* table = section("image");
    if (!table) return;
    TableReader reader(*table, "image", m_diagnostics);
    if (const auto width = reader.count("width", 1, MaxImageSide)) m_world.image.width = *width;
    if (const auto height = reader.count("height", 1, MaxImageSide)) m_world.image.height = *height;
    const auto samples = reader.count("samples", 1, MaxSamples);
    if (samples && m_world.renderingObject) m_world.renderingObject->m_samplesPerPixel = static_cast<Oxint>(*samples);
    reader.finish();
}

// [camera] is the camera, and the tables within it are others to choose from.
void SceneLoader::readCameras(const std::string& chosen) {
    TableReader reader = readerOf("camera");
    const auto others = reader.tables();
    OxCamera* camera = readCamera(reader, chosen.empty());
    std::vector<std::string> names;
    for (const auto& [name, table] : others) {
        names.push_back(name);
        TableReader other(*table, fmt::format("camera '{}'", name), m_diagnostics, m_file);
        if (OxCamera* made = readCamera(other, name == chosen); name == chosen) camera = made;
    }
    m_world.camera = camera;
    if (!chosen.empty() && !std::count(names.begin(), names.end(), chosen))
        m_diagnostics.error({m_file, 0, 0},
                            fmt::format("the scene has no camera '{}'{}", chosen, didYouMean(chosen, names)));
}

// Position and aim belong to every camera; all other keys are the object's parameters.
OxCamera* SceneLoader::readCamera(TableReader& reader, bool chosen) {
    const auto view = viewOf(reader);
    const auto fov = reader.number("fov");
    if (fov && !(*fov > 0.0f && *fov < 180.0f)) reader.error("fov", "'fov' must lie between 0 and 180 degrees");
    std::optional<std::variant<R3, std::string>> focus;
    if (reader.isList("focus")) {
        if (const auto point = reader.vector("focus")) focus = *point;
    } else if (const auto mesh = reader.text("focus")) {
        focus = *mesh;
    }
    if (chosen) {
        m_world.view = view;
        m_world.fov = fov.value_or(m_world.fov);
        m_focus = focus;
        m_focusPlace = reader.where("focus");
        m_focusLabel = reader.label();
    }
    const ObjectClass* object = objectOf(reader, {ObjectKind::Camera}, DefaultCamera);
    if (!object) return nullptr;
    auto& camera = dynamic_cast<OxCamera&>(m_world.make(*object));
    writeParameters(reader, *object, camera);
    return &camera;
}

std::optional<View> SceneLoader::viewOf(TableReader& reader) {
    const auto position = reader.vector("position"), lookAt = reader.vector("lookAt"), lookUp = reader.vector("lookUp");
    if (!position || !lookAt) {
        if (reader.has("position") != reader.has("lookAt"))
            reader.error(position ? "position" : "lookAt",
                         "has only one of 'position' and 'lookAt'; expected both, or none to frame the whole scene");
        return std::nullopt;
    }
    const View view{*position, *lookAt, lookUp.value_or(View().lookUp)};
    const R3 forward = view.lookAt - view.position, right = Cross(forward, view.lookUp);
    if (!(Length(forward) > 0.0f))
        reader.error("lookAt", "'lookAt' is where the camera is; it must lie away from 'position'");
    else if (!(Length(right) > 1e-6f * Length(forward) * Length(view.lookUp)))
        reader.error("lookUp", "'lookUp' must not point along the way the camera looks");
    return view;
}

// Sets the focal distance to where a point, or the middle of a mesh, is along the way that the camera looks.
void SceneLoader::focusCamera() {
    if (!m_focus || !m_world.camera) return;
    R3 point;
    if (const auto* name = std::get_if<std::string>(&*m_focus)) {
        const auto found = m_meshes.named().find(*name);
        if (found == m_meshes.named().end()) {
            std::vector<std::string> names;
            for (const auto& [known, instances] : m_meshes.named()) names.push_back(known);
            return m_diagnostics.error(m_focusPlace, fmt::format("{}: 'focus' names mesh '{}', which is not defined{}",
                                                                 m_focusLabel, *name, didYouMean(*name, names)));
        }
        Bounds bounds;
        for (const unsigned instance : found->second) bounds.add(m_world.geometry.instanceBounds(instance));
        point = bounds.center();
    } else {
        point = std::get<R3>(*m_focus);
    }
    if (!m_world.view)
        return m_diagnostics.error(m_focusPlace, m_focusLabel + ": 'focus' needs 'position' and 'lookAt'");
    const float distance =
        Dot(point - m_world.view->position, Normalize(m_world.view->lookAt - m_world.view->position));
    if (!(distance > 0.0f)) return m_diagnostics.error(m_focusPlace, m_focusLabel + ": 'focus' lies behind the camera");
    m_world.camera->setFocalDistance(distance);
}

void SceneLoader::readEnvironment() {
    TableReader reader = readerOf("environment");
    if (const auto* object = objectOf(reader, {ObjectKind::Environment, ObjectKind::Shader}, DefaultEnvironment))
        writeParameters(reader, *object, m_world.setEnvironment(*object));
}

void SceneLoader::readLights() {
    eachEntry("light", [&](TableReader& reader) {
        if (const ObjectClass* object = objectOf(reader, {ObjectKind::Light}))
            writeParameters(reader, *object, m_world.addLight(*object));
    });
}

}  // namespace

// What messages call the scene.
static std::string sourceOf(const fs::path& file) {
    return isSceneFile(file) ? file.string() : file.string() + " as a scene";
}

std::optional<toml::table> readSceneOrModel(const fs::path& file, const Registry& registry, SceneAssets& assets,
                                            Diagnostics& diagnostics, const SceneFileOptions& options) {
    if (isSceneFile(file)) return readSceneDocument(file, options.set, registry, diagnostics);
    try {
        const std::string text =
            describeModelScene(file, file.parent_path(), options.model, registry, assets, diagnostics);
        return parseSceneDocument(text, sourceOf(file), options.set, registry, diagnostics);
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        diagnostics.error({file.string(), 0, 0}, e.what());
        return std::nullopt;
    }
}

std::unique_ptr<World> loadScene(const fs::path& file, const Registry& registry, Diagnostics& diagnostics,
                                 const SceneFileOptions& options) {
    auto world = std::make_unique<World>();
    SceneAssets assets;
    if (const auto document = readSceneOrModel(file, registry, assets, diagnostics, options))
        SceneLoader(sourceOf(file), file.parent_path(), *document, registry, assets, diagnostics, *world)
            .load(options.camera);
    world->files = assets.files();
    return world;
}

}  // namespace oxbeam
