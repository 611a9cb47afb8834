#include "Engine/SceneFile/SceneFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/AnimationSection.h"
#include "Engine/SceneFile/CameraSection.h"
#include "Engine/SceneFile/MeshSection.h"
#include "Engine/SceneFile/ModelSection.h"
#include "Engine/SceneFile/SceneDocument.h"
#include "Engine/SceneFile/SectionReader.h"
#include "Engine/System/InputFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

template <class Use>
void eachFile(const toml::node* tables, Use use) {
    const auto look = [&](const toml::node& entry) {
        const toml::table* table = entry.as_table();
        const auto file = table ? (*table)["file"].value<std::string>() : std::nullopt;
        if (file) use(*file);
    };
    if (const toml::array* list = tables ? tables->as_array() : nullptr)
        for (const toml::node& entry : *list) look(entry);
    if (const toml::table* named = tables ? tables->as_table() : nullptr)
        for (const auto& [name, entry] : *named) look(entry);
}

// Whether the beginning of a model's file speaks of pictures, or of files that do. A guess: where it is wrong, what reads
// pictures starts for nothing, or later.
bool speaksOfPictures(const fs::path& file) {
    if (inputFile(file).state != InputFile::Readable) return false;
    std::string begins(std::size_t{1} << 20, '\0');
    std::ifstream stream(file, std::ios::binary);
    stream.read(begins.data(), static_cast<std::streamsize>(begins.size()));
    begins.resize(static_cast<std::size_t>(stream.gcount()));
    constexpr std::array words = {"\"images\"", "mtllib", "exture", ".png", ".jpg", ".jpeg", ".PNG", ".JPG"};
    return std::ranges::any_of(words, [&](const char* word) { return begins.find(word) != begins.npos; });
}

// Pictures are what a scene needs first, and what reads them takes a tenth of a second to start: in the meantime, models
// are read.
void readModelsAhead(const toml::table& document, const fs::path& folder, SceneAssets& assets) {
    bool pictures = false;
    eachFile(document.get("texture"), [&](const std::string&) { pictures = true; });
    if (!pictures) return;
    assets.expectPictures();
    eachFile(document.get("mesh"), [&](const std::string& file) {
        try {
            assets.model(folder / file);
        } catch (const Error&) {
            // Which is said where its turn comes.
        }
    });
}

// Reads one scene into a world, section by section; what later sections refer to comes first.
class SceneLoader {
public:
    SceneLoader(const std::string& source, const fs::path& folder, const toml::table& document,
                const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics, World& world,
                const SceneFileOptions& options)
        : m_world(world), m_diagnostics(diagnostics), m_sections(source, document, diagnostics),
          m_textures(folder, assets, world, diagnostics), m_objects(source, registry, world, diagnostics),
          m_camera(source, m_objects, world, diagnostics), m_animation(document, options.animate),
          m_meshes(folder, m_shaders, assets, world, diagnostics, {m_animation.moved(), options.clip}),
          m_models(folder, registry, m_shaders, m_meshes, assets, world, diagnostics) {}

    void load(const std::string& camera) {
        m_sections.eachNamed("texture", [&](const auto& name, TableReader& reader) { m_textures.read(name, reader); });
        readShaders();
        readRender();
        readImage();
        TableReader cameras = m_sections.table("camera");
        m_camera.read(cameras, camera);
        readEnvironment();
        readLights();
        m_sections.eachEntry("model", [&](TableReader& reader) { m_models.read(reader); });
        m_sections.eachEntry("mesh", [&](TableReader& reader) { m_meshes.read(reader); });
        m_sections.reportUnknown();
        m_meshes.placeGrounds();
        m_world.geometry.prepare();
        m_camera.focus(m_meshes.named());
        m_meshes.reportDroppedTriangles();
        m_meshes.requireClip();
        m_animation.read(m_sections, m_world, m_diagnostics);
        if (!m_world.animation.empty()) holdView();
    }

private:
    void holdView();
    void readShaders();
    void readRender();
    void readImage();
    void readEnvironment();
    void readLights();

    World& m_world;
    Diagnostics& m_diagnostics;
    SectionReader m_sections;
    TextureSection m_textures;
    ObjectReader m_objects;
    CameraSection m_camera;
    AnimationSection m_animation;
    MeshSection::Shaders m_shaders;
    MeshSection m_meshes;
    ModelSection m_models;
};

// What is framed stays so while things move.
void SceneLoader::holdView() {
    Bounds bounds;
    for (unsigned i = 0; i < m_world.geometry.instanceCount(); ++i)
        if (!m_world.geometry.isEndless(i)) bounds.add(m_world.geometry.instanceBounds(i));
    const View framing = m_world.framingView(bounds);
    if (!m_world.view) m_world.view = framing;
    for (auto& [place, own] : m_world.cameraViews)
        if (!own.view) own.view = framing;
}

void SceneLoader::readShaders() {
    m_sections.eachNamed("shader", [&](const std::string& name, TableReader& reader) {
        m_shaders[name] = m_objects.addShader(reader, fmt::format("shader.{}", name));
    });
}

void SceneLoader::readRender() {
    TableReader reader = m_sections.table("render");
    const ObjectClass* object = m_objects.classOf(reader);
    if (!object) return;
    OxRenderingObject& ro = m_world.setRenderingObject(*object);
    // A scene without shadows looks wrong, and nothing in it tells why; the object's own default stays as it is.
    Diagnostics unsaid;  // where it means something else there
    m_world.places.write("render", "receiveShadow", {}, {true, {}}, unsaid);
    m_objects.setParameters(reader, "render");
    if (reader.has("rayEpsilon") && !(ro.m_rayEpsilon > 0.0f))
        reader.error("rayEpsilon", "'rayEpsilon' must be positive");
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
    TableReader reader = m_sections.table("image");
    if (const auto width = reader.count("width", 1, MaxImageSide)) m_world.image.width = *width;
    if (const auto height = reader.count("height", 1, MaxImageSide)) m_world.image.height = *height;
    const auto samples = reader.count("samples", 1, MaxSamples);
    if (samples && m_world.renderingObject) m_world.renderingObject->m_samplesPerPixel = static_cast<Oxint>(*samples);
    if (const auto exposure = reader.number("exposure", -MostExposure, MostExposure)) m_world.tone.exposure = *exposure;
    if (const auto curve = reader.word("tone", toneCurveNames())) m_world.tone.curve = static_cast<ToneCurve>(*curve);
    if (const auto background = reader.word("background", backgroundNames()))
        m_world.transparentBackground = *background == 1;
    if (const auto kind = reader.word("filter", pixelFilterNames()))
        m_world.filter.kind = static_cast<PixelFilter::Kind>(*kind);
    m_world.filter.width =
        reader.number("filterWidth", LeastFilterWidth, MostFilterWidth).value_or(usualWidth(m_world.filter.kind));
    reader.finish();
}

void SceneLoader::readEnvironment() {
    TableReader reader = m_sections.table("environment");
    const ObjectClass* object = m_objects.classOf(reader);
    if (!object) return;
    m_world.setEnvironment(*object);
    m_objects.setParameters(reader, "environment");
}

void SceneLoader::readLights() {
    m_sections.eachEntry("light", [&](TableReader& reader) {
        const ObjectClass* object = m_objects.classOf(reader);
        if (!object) return;
        m_objects.setParameters(reader, m_world.places.placeOf(&m_world.addLight(*object)));
    });
}

}  // namespace

// What messages call the scene.
static std::string sourceOf(const fs::path& file) {
    return isSceneFile(file) ? file.string() : file.string() + " as a scene";
}

std::optional<toml::table> readSceneOrModel(const fs::path& file, const Registry& registry, SceneAssets& assets,
                                            Diagnostics& diagnostics, const SceneFileOptions& options) {
    if (isSceneFile(file)) return readSceneDocument(file, options.set, registry, assets, diagnostics);
    try {
        ModelSceneOptions model = options.model;
        model.view.camera = options.camera;
        const std::string text = describeModelScene(file, file.parent_path(), model, registry, assets, diagnostics);
        return parseSceneDocument(text, sourceOf(file), file.parent_path(), options.set, registry, assets, diagnostics);
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        diagnostics.error({file.string(), 0, 0}, e.what());
        return std::nullopt;
    }
}

std::unique_ptr<World> loadScene(const fs::path& file, const Registry& registry, Diagnostics& diagnostics,
                                 const SceneFileOptions& options) {
    auto world = std::make_unique<World>();
    world->geometry.changeable = options.changeable;
    SceneAssets assets(options.importing);
    if (!isSceneFile(file) && speaksOfPictures(file)) assets.expectPictures();
    if (const auto document = readSceneOrModel(file, registry, assets, diagnostics, options)) {
        readModelsAhead(*document, file.parent_path(), assets);
        SceneLoader(sourceOf(file), file.parent_path(), *document, registry, assets, diagnostics, *world, options)
            .load(isSceneFile(file) ? options.camera : std::string());  // a model's scene is made for the chosen one
    }
    world->files = assets.files();
    world->readers = assets.readers();
    return world;
}

std::unique_ptr<World> loadSceneText(const std::string& text, const std::string& source, const fs::path& folder,
                                     const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics) {
    auto world = std::make_unique<World>();
    if (const auto document = parseSceneDocument(text, source, folder, {}, registry, assets, diagnostics)) {
        readModelsAhead(*document, folder, assets);
        SceneLoader(source, folder, *document, registry, assets, diagnostics, *world, {}).load({});
    }
    return world;
}

std::string tomlVersion() { return fmt::format("{}.{}.{}", TOML_LIB_MAJOR, TOML_LIB_MINOR, TOML_LIB_PATCH); }

}  // namespace oxbeam
