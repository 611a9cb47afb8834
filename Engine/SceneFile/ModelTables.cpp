#include "Engine/SceneFile/ModelTables.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/MeshSection.h"
#include "Engine/SceneFile/ModelMaterials.h"
#include "Engine/SceneFile/ModelView.h"
#include "Engine/SceneFile/SceneDocument.h"
#include "Engine/SceneFile/SceneText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

namespace fs = std::filesystem;

ModelMaterial dressedInClay(ModelMaterial material) {
    constexpr R3 clay(0.72f, 0.38f, 0.22f);
    if (material.given) return material;
    material.baseColor = material.vertexColors ? White : clay;
    material.roughness = 0.45f;
    material.specular = 1.0f;
    return material;
}

std::string materialKey(const Model& model, std::size_t number) {
    const std::string& name = model.materials[number].name;
    return name.empty() ? fmt::format("material{}", number) : name;
}

// How many times as large a placement makes lengths; the mean where it stretches them.
static float scaleOf(TableReader& reader, const Matrix& placement) {
    if (!reader.has("matrix") && !reader.isList("scale")) return reader.number("scale").value_or(1.0f);
    return std::cbrt(std::fabs(Determinant(placement)));
}

static toml::table tablesOf(TableReader& reader, const fs::path& file, const fs::path& folder, const Model& model,
                            const toml::table* replaced, const Registry& registry, SceneAssets& assets,
                            Diagnostics& diagnostics) {
    const Matrix placement = MeshSection::placementOf(reader, model.up).matrix;
    Bounds bounds;
    VisiblePoints(model, placement).each([&](const R3& p) { bounds.add(p); });
    const float size = bounds.empty ? 0.0f : 2.0f * bounds.radius();
    SceneText text(registry);
    ModelMaterials materials(text, file, folder, size, scaleOf(reader, placement),
                             reader.flag("highlights").value_or(true), assets, diagnostics);
    toml::table names;
    for (std::size_t i = 0; i < model.materials.size(); ++i)
        if (!replaced || !replaced->contains(materialKey(model, i)))
            names.insert(std::to_string(i), materials.write(dressedInClay(model.materials[i]), i));
    toml::table tables = toml::parse(text.text(), fmt::format("{} as a scene", file.string()));
    tables.insert("materials", std::move(names));
    return tables;
}

// What comes from the file cannot be said in the scene.
static void checkOwnKeys(const toml::table& model, const std::string& label, Diagnostics& diagnostics) {
    for (const char* made : {"texture", "materials"})
        if (const toml::node* node = model.get(made))
            diagnostics.error(locationOf(node->source()), fmt::format("{} has no key '{}'", label, made));
    if (const toml::node* shader = model.get("shader"); shader && !shader->is_table())
        diagnostics.error(locationOf(shader->source()),
                          fmt::format("{}: 'shader' must be a table for a material: [model.shader.NAME]", label));
}

// Where the scene takes another object for a material, that has of what the file says only what it knows.
static void keepWhatIsKnown(toml::table& shaders, const toml::table& own, const Registry& registry) {
    for (auto&& [name, node] : shaders) {
        const auto chosen = own[name]["object"].value<std::string>();
        const ObjectClass* object = chosen ? registry.find(*chosen) : nullptr;
        toml::table* table = object ? node.as_table() : nullptr;
        if (!table) continue;
        std::vector<std::string> foreign;
        for (const auto& [key, value] : *table)
            if (key != "object" && !object->find(std::string(key.str()))) foreign.emplace_back(key.str());
        for (const std::string& key : foreign) table->erase(key);
    }
}

void addModelTables(toml::table& model, const std::string& path, const fs::path& here, const Registry& registry,
                    SceneAssets& assets, Diagnostics& diagnostics) {
    const fs::path folder = here.empty() ? fs::path(".") : here;
    std::string label = path;
    std::replace(label.begin(), label.end(), '.', ' ');
    checkOwnKeys(model, label, diagnostics);
    Diagnostics later;  // what is wrong with its keys is said where they are read
    TableReader reader(model, sceneSection("model"), path, later);
    const auto name = reader.fileName("file");
    if (!name) return;
    const fs::path file = fs::absolute(folder / *name);
    try {
        toml::table tables = tablesOf(reader, file, folder, assets.model(file), model["shaders"].as_table(), registry,
                                      assets, diagnostics);
        toml::table own;
        if (toml::table* given = model["shader"].as_table()) own = std::move(*given);
        if (!tables.contains("shader")) tables.insert("shader", toml::table());
        toml::table& shaders = *tables["shader"].as_table();
        keepWhatIsKnown(shaders, own, registry);
        layOver(shaders, own, path + ".shader", diagnostics);
        for (auto&& [key, table] : tables) model.insert_or_assign(key, std::move(table));
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        diagnostics.error(reader.where("file"), e.what());
    } catch (const toml::parse_error& e) {  // a name in it that is no text
        diagnostics.error(reader.where("file"), fmt::format("what its file says is no TOML: {}", e.description()));
    }
}

}  // namespace oxbeam
