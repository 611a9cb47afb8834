// The [[model]] tables of a scene file, with what their files brought along.
#pragma once

#include "Engine/SceneFile/MeshSection.h"
#include "Engine/SceneFile/ObjectReader.h"
#include "Engine/SceneFile/TextureSection.h"

#include <map>
#include <string>
#include <vector>

namespace oxbeam {

class ModelSection {
public:
    // Shaders and textures of the models see those of the scene, but not the other way round.
    ModelSection(std::filesystem::path folder, const Registry& registry, const MeshSection::Shaders& shaders,
                 MeshSection& meshes, SceneAssets& assets, World& world, Diagnostics& diagnostics)
        : m_folder(std::move(folder)), m_registry(registry), m_shaders(shaders), m_meshes(meshes), m_assets(assets),
          m_world(world), m_diagnostics(diagnostics) {}

    // One table.
    void read(TableReader& reader);

private:
    using Tables = std::map<std::string, const toml::table*>;

    MeshSection::Shaders readShaders(TableReader& reader, const std::string& place, const Tables& tables);
    void readTexture(TextureSection& textures, const std::string& scope, const std::string& name, TableReader& reader,
                     const toml::table& table);
    std::vector<unsigned> byMaterial(TableReader& reader, const Model& model, const Tables& tables,
                                     const MeshSection::Shaders& own);

    std::filesystem::path m_folder;
    const Registry& m_registry;
    const MeshSection::Shaders& m_shaders;
    MeshSection& m_meshes;
    SceneAssets& m_assets;
    World& m_world;
    Diagnostics& m_diagnostics;
    unsigned m_read = 0;                                  // tables
    std::map<std::string, TextureNames::Named> m_loaded;  // by what stands in their tables
};

}  // namespace oxbeam
