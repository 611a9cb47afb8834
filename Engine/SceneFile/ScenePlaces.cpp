#include "Engine/SceneFile/ScenePlaces.h"

#include "Engine/SceneFile/SceneDocument.h"
#include "Engine/SceneFile/SceneFile.h"

#include <fmt/format.h>

namespace oxbeam {

namespace {

class PlaceFinder {
public:
    PlaceFinder(const toml::table& document, const Registry& registry) : m_document(document), m_registry(registry) {}

    std::vector<ScenePlace> find() {
        for (const SceneSection& section : sceneSections()) {
            const toml::node* node = m_document.get(section.name);
            if (section.form == SceneSection::List) {
                if (node && node->is_array()) addEntries(section, *node->as_array());
                if (node && node->is_array() && section.name == std::string_view("model")) addModels(*node->as_array());
                continue;
            }
            const toml::table* table = node ? node->as_table() : nullptr;
            if (section.form != SceneSection::Named) add(section.name, section, table);
            if (section.form != SceneSection::Table && table) addNamed(section, *table);
        }
        return std::move(m_places);
    }

private:
    void add(std::string path, const SceneSection& section, const toml::table* table) {
        const auto given = table ? (*table)["object"].value<std::string>() : std::nullopt;
        const std::string name = given ? *given : section.preset ? section.preset : "";
        m_places.push_back({{std::move(path), m_registry.find(name)}, section.keys});
    }

    void addNamed(const SceneSection& section, const toml::table& tables) {
        for (const auto& [key, node] : tables)
            if (node.is_table()) add(fmt::format("{}.{}", section.name, key.str()), section, node.as_table());
    }

    void addEntries(const SceneSection& section, const toml::array& entries) {
        for (std::size_t i = 0; i < entries.size(); ++i)
            add(fmt::format("{}.{}", section.name, i), section, entries.get(i)->as_table());
    }

    // The shaders of their files' materials.
    void addModels(const toml::array& models) {
        for (std::size_t i = 0; i < models.size(); ++i)
            if (const toml::table* shaders =
                    models[i].as_table() ? (*models[i].as_table())["shader"].as_table() : nullptr)
                for (const auto& [key, node] : *shaders)
                    if (node.is_table())
                        add(fmt::format("model.{}.shader.{}", i, key.str()), sceneSection("shader"), node.as_table());
    }

    const toml::table& m_document;
    const Registry& m_registry;
    std::vector<ScenePlace> m_places;
};

}  // namespace

std::vector<ScenePlace> scenePlaces(const std::filesystem::path& file, const Registry& registry,
                                    Diagnostics& diagnostics, const SceneFileOptions& options) {
    SceneAssets assets(options.importing);
    const auto document = readSceneOrModel(file, registry, assets, diagnostics, options);
    return document ? PlaceFinder(*document, registry).find() : std::vector<ScenePlace>();
}

}  // namespace oxbeam
