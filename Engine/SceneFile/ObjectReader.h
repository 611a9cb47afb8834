// The objects that the tables of a scene file name, with their parameters.
#pragma once

#include "Engine/SceneFile/TextureSection.h"

namespace oxbeam {

class ObjectReader {
public:
    ObjectReader(std::string file, const Registry& registry, TextureSection& textures, Diagnostics& diagnostics)
        : m_file(std::move(file)), m_registry(registry), m_textures(textures), m_diagnostics(diagnostics) {}

    // The object of a table, or its section's preset; nothing, and an error, where that is none for the section.
    const ObjectClass* classOf(TableReader& reader) const;
    // Everything in a table that is not the section's own.
    void writeParameters(TableReader& reader, const ObjectClass& object, OxLoadableObject& target) const;

    // Adds the shader of a table to the world; its number, or nothing where it is none.
    std::optional<unsigned> addShader(TableReader& reader, World& world) const;

private:
    std::string m_file;
    const Registry& m_registry;
    TextureSection& m_textures;
    Diagnostics& m_diagnostics;
};

}  // namespace oxbeam
