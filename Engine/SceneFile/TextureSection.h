// The [texture] tables of a scene file.
#pragma once

#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/SceneFile/TableReader.h"
#include "Engine/World/World.h"

#include <string>

namespace oxbeam {

class TextureSection {
public:
    // Names stand in a scope of the world's.
    TextureSection(std::filesystem::path folder, SceneAssets& assets, World& world, Diagnostics& diagnostics,
                   std::string scope = {})
        : m_folder(std::move(folder)), m_assets(assets), m_world(world), m_diagnostics(diagnostics),
          m_scope(std::move(scope)) {}

    // One table.
    void read(const std::string& name, TableReader& reader);

private:
    std::filesystem::path m_folder;
    SceneAssets& m_assets;
    World& m_world;
    Diagnostics& m_diagnostics;
    std::string m_scope;
};

}  // namespace oxbeam
