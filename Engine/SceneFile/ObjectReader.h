// The objects that the tables of a scene file name, with their parameters.
#pragma once

#include "Engine/SceneFile/TableReader.h"
#include "Engine/World/World.h"

namespace oxbeam {

class ObjectReader {
public:
    ObjectReader(std::string file, const Registry& registry, World& world, Diagnostics& diagnostics)
        : m_file(std::move(file)), m_registry(registry), m_world(world), m_diagnostics(diagnostics) {}

    // The object of a table, or its section's preset; nothing, and an error, where that is none for the section.
    const ObjectClass* classOf(TableReader& reader) const;
    // Sets at a place, where the object stands already, everything in a table that is not the section's own.
    void setParameters(TableReader& reader, const std::string& place) const;

    // Adds the shader of a table to the world; its number, or nothing where it is none.
    std::optional<unsigned> addShader(TableReader& reader, const std::string& place) const;

private:
    std::string m_file;
    const Registry& m_registry;
    World& m_world;
    Diagnostics& m_diagnostics;
};

}  // namespace oxbeam
