#include "Engine/SceneFile/ModelSection.h"

#include "Engine/SceneFile/ModelTables.h"

#include <fmt/format.h>

#include <sstream>

namespace oxbeam {

static std::vector<std::string> namesOf(const MeshSection::Shaders& shaders) {
    std::vector<std::string> names;
    for (const auto& [name, number] : shaders) names.push_back(name);
    return names;
}

// Many models, and many placements of one, have the same textures.
void ModelSection::readTexture(TextureSection& textures, const std::string& scope, const std::string& name,
                               TableReader& reader, const toml::table& table) {
    std::ostringstream contents;
    contents << table;
    const auto [known, isNew] = m_loaded.try_emplace(contents.str());
    if (isNew) textures.read(name, reader);
    TextureNames& names = m_world.textureNames;
    if (isNew)
        known->second = *names.find(scope, name);
    else
        names.define(scope, name) = known->second;
}

MeshSection::Shaders ModelSection::readShaders(TableReader& reader, const std::string& place, const Tables& tables) {
    TextureSection textures(m_folder, m_assets, m_world, m_diagnostics, place);
    const auto eachOf = [&](const char* section, const auto& use) {
        const auto found = tables.find(section);
        if (found == tables.end()) return;
        for (const auto& [key, node] : *found->second) {
            const toml::table* table = node.as_table();
            if (!table) {
                m_diagnostics.error(locationOf(node.source()),
                                    fmt::format("{}: '{}.{}' must be a table", reader.label(), section, key.str()));
                continue;
            }
            TableReader own(*table, sceneSection(section),
                            fmt::format("{}, {} '{}'", reader.label(), section, key.str()), m_diagnostics,
                            reader.where().file);
            use(std::string(key.str()), own, *table);
        }
    };
    eachOf("texture", [&](const std::string& name, TableReader& own, const toml::table& table) {
        readTexture(textures, place, name, own, table);
    });
    MeshSection::Shaders shaders;
    eachOf("shader", [&](const std::string& name, TableReader& own, const toml::table& table) {
        // What stands in the scene's own file is set over what the model's says.
        const ObjectReader objects(locationOf(table.source()).file, m_registry, m_world, m_diagnostics);
        shaders[name] = objects.addShader(own, fmt::format("{}.shader.{}", place, name));
    });
    return shaders;
}

// Numbers of the world's shaders; nothing where one of them is missing.
std::vector<unsigned> ModelSection::byMaterial(TableReader& reader, const Model& model, const Tables& tables,
                                               const MeshSection::Shaders& own) {
    static const toml::table none;
    const auto replaced = tables.find("shaders");
    const toml::table& instead = replaced == tables.end() ? none : *replaced->second;
    std::vector<std::string> materials;
    for (std::size_t i = 0; i < model.materials.size(); ++i) materials.push_back(materialKey(model, i));
    bool good = true;
    const auto fail = [&](const SourceLocation& where, const std::string& message) {
        m_diagnostics.error(where, fmt::format("{}: {}", reader.label(), message));
        good = false;
    };
    for (const auto& [key, node] : instead) {
        if (!std::count(materials.begin(), materials.end(), key.str()))
            fail(locationOf(key.source()),
                 fmt::format("its file has no material '{}'{}", key.str(), didYouMean(key.str(), materials)));
        else if (!node.is_string())
            fail(locationOf(node.source()), fmt::format("'shaders.{}' must be the name of a shader", key.str()));
        else if (!m_shaders.contains(**node.as_string()))
            fail(locationOf(node.source()), fmt::format("no shader '{}' is defined{}", **node.as_string(),
                                                        didYouMean(**node.as_string(), namesOf(m_shaders))));
    }
    if (!good) return {};
    std::vector<unsigned> numbers;
    for (std::size_t i = 0; i < materials.size(); ++i) {
        const auto name = instead[materials[i]].value<std::string>();
        const auto mine = (*tables.at("materials"))[std::to_string(i)].value<std::string>();
        const MeshSection::Shaders& shaders = name ? m_shaders : own;
        const auto found = shaders.find(name ? *name : mine.value_or(""));
        if (found != shaders.end() && found->second) numbers.push_back(*found->second);
    }
    return numbers.size() == materials.size() ? numbers : std::vector<unsigned>();
}

void ModelSection::read(TableReader& reader) {
    const std::string place = fmt::format("model.{}", m_read++);
    Tables tables;
    for (const auto& [name, table] : reader.tables()) {
        static const std::vector<std::string> known = {"shader", "shaders", "texture", "materials"};
        tables[name] = table;
        if (!std::count(known.begin(), known.end(), name))
            reader.error(name, fmt::format("has no table '{}'{}", name, didYouMean(name, known)));
    }
    if (reader.has("shaders") && !tables.contains("shaders"))
        reader.error("shaders", "'shaders' must be a table, as { \"Material\" = \"shader\" }");
    const auto file = reader.fileName("file");
    if (!reader.has("file")) reader.error("file", "has no 'file'");
    if (!file || !tables.contains("materials")) return;  // which was said when it was looked into
    const std::filesystem::path path = m_folder / *file;
    const Model& model = m_assets.model(path);
    reader.flag("highlights");
    const MeshSection::Shaders own = readShaders(reader, place, tables);
    const std::vector<unsigned> shaders = byMaterial(reader, model, tables, own);
    m_meshes.place(reader, place, m_meshes.fileParts(reader, path, false), shaders, model.up);
}

}  // namespace oxbeam
