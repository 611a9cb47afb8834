#include "Engine/SceneFile/ScenePlaces.h"

#include "Engine/SceneFile/SceneDocument.h"
#include "Engine/SceneFile/SceneFile.h"

#include <fmt/format.h>

namespace oxbeam {

namespace {

using Keys = std::vector<std::string>;

const Keys ImageKeys = {"width", "height", "samples"};
const Keys CameraKeys = {"object", "position", "lookAt", "lookUp", "fov", "focus"};
const Keys TextureKeys = {"file", "wrap", "filter", "model", "colorSpace", "projection", "bump", "bumpScale"};
const Keys MeshKeys = {"file",  "shape",  "segments",  "uvScale", "shader",   "name",
                       "scale", "rotate", "translate", "matrix",  "visibleTo"};
const Keys ObjectKeys = {"object"};

class PlaceFinder {
public:
    PlaceFinder(const toml::table& document, const Registry& registry) : m_document(document), m_registry(registry) {}

    std::vector<ScenePlace> find() {
        addSection("image", nullptr, ImageKeys);
        addSection("render", DefaultRenderingObject, ObjectKeys);
        addSection("environment", DefaultEnvironment, ObjectKeys);
        addSection("camera", DefaultCamera, CameraKeys);
        addNamed("camera", DefaultCamera, CameraKeys);
        addNamed("shader", nullptr, ObjectKeys);
        addNamed("texture", nullptr, TextureKeys);
        addEntries("light", ObjectKeys);
        addEntries("mesh", MeshKeys);
        return std::move(m_places);
    }

private:
    void add(std::string path, const toml::table* table, const char* preset, const Keys& keys) {
        const auto given = table ? (*table)["object"].value<std::string>() : std::nullopt;
        const std::string name = given.value_or(preset ? preset : "");
        m_places.push_back({std::move(path), m_registry.find(name), keys});
    }

    void addSection(const std::string& name, const char* preset, const Keys& keys) {
        add(name, m_document[name].as_table(), preset, keys);
    }

    void addNamed(const std::string& section, const char* preset, const Keys& keys) {
        if (const toml::table* tables = m_document[section].as_table())
            for (const auto& [key, node] : *tables)
                if (node.is_table()) add(fmt::format("{}.{}", section, key.str()), node.as_table(), preset, keys);
    }

    void addEntries(const std::string& section, const Keys& keys) {
        const toml::array* entries = m_document[section].as_array();
        for (std::size_t i = 0; entries && i < entries->size(); ++i)
            add(fmt::format("{}.{}", section, i), entries->get(i)->as_table(), nullptr, keys);
    }

    const toml::table& m_document;
    const Registry& m_registry;
    std::vector<ScenePlace> m_places;
};

}  // namespace

std::vector<ScenePlace> scenePlaces(const std::filesystem::path& file, const Registry& registry,
                                    Diagnostics& diagnostics, const std::vector<std::string>& set) {
    SceneAssets assets;
    SceneFileOptions options;
    options.set = set;
    const auto document = readSceneOrModel(file, registry, assets, diagnostics, options);
    return document ? PlaceFinder(*document, registry).find() : std::vector<ScenePlace>();
}

const ParameterDeclaration* parameterAt(const std::vector<ScenePlace>& places, std::string_view path) {
    const auto dot = path.rfind('.');
    if (dot == std::string_view::npos) return nullptr;
    const std::string_view place = path.substr(0, dot), parameter = path.substr(dot + 1);
    const auto matches = [&](const std::string& known) {
        return place.ends_with(".*") ? known.starts_with(place.substr(0, place.size() - 1)) : known == place;
    };
    for (const ScenePlace& candidate : places) {
        const bool here = candidate.object && matches(candidate.path);
        if (const ParameterDeclaration* found = here ? candidate.object->find(parameter) : nullptr) return found;
    }
    return nullptr;
}

}  // namespace oxbeam
