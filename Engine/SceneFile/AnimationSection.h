// The [[animation]] tables of a scene file, and what the command line animates.
#pragma once

#include "Engine/SceneFile/SectionReader.h"
#include "Engine/World/World.h"

#include <set>
#include <string>
#include <vector>

namespace oxbeam {

class AnimationSection {
public:
    // `settings` are "PLACE.PARAM=FROM..TO" or "PLACE.PARAM=FROM..TO@EASE", over all the time that there is.
    AnimationSection(const toml::table& document, const std::vector<std::string>& settings);

    // Places of meshes and models that are moved, "mesh.0".
    const std::set<std::string>& moved() const { return m_moved; }
    // When everything is in the world.
    void read(SectionReader& sections, World& world, Diagnostics& diagnostics) const;

private:
    void readTable(TableReader& reader, World& world, Diagnostics& diagnostics) const;

    std::vector<std::string> m_settings;
    std::set<std::string> m_moved;
};

}  // namespace oxbeam
