// The [texture] tables of a scene file.
#pragma once

#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/SceneFile/TableReader.h"
#include "Engine/World/World.h"

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace oxbeam {

class TextureSection {
public:
    // Names that are unknown here are looked for in `outer`.
    TextureSection(std::filesystem::path folder, SceneAssets& assets, World& world, Diagnostics& diagnostics,
                   TextureSection* outer = nullptr)
        : m_folder(std::move(folder)), m_assets(assets), m_world(world), m_diagnostics(diagnostics), m_outer(outer) {}

    // One table.
    void read(const std::string& name, TableReader& reader);
    // A name for a texture that the world has already.
    void adopt(const std::string& name, int id);
    // In the world, laid out as an object of that name reads it; nothing where no such texture is defined.
    std::optional<int> idFor(const std::string& name, const std::string& object);
    const std::vector<std::string>& names() const { return m_names; }

private:
    // How an environment picture is laid out for those who read it.
    enum class Layout { AsItIs, AngularMap, VerticalCross };
    static Layout layoutFor(const std::string& object);

    std::filesystem::path m_folder;
    SceneAssets& m_assets;
    World& m_world;
    Diagnostics& m_diagnostics;
    TextureSection* m_outer;
    std::map<std::string, int> m_ids;
    std::vector<std::string> m_names;
    std::map<std::string, float> m_equirectangular;  // those whose picture is laid out like that; their turn
    std::map<std::string, float> m_brightest;        // of those who show it, by the texture
    std::map<std::tuple<std::string, Layout, bool>, int> m_converted;  // what they were turned into; whether limited
};

}  // namespace oxbeam
