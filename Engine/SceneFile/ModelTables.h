// What a [[model]] of a scene file brings along: the tables of its file's materials.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/SceneFile/TableReader.h"

#include <filesystem>
#include <string>

namespace oxbeam {

// What nobody gave a surface is of clay: no shade of a backdrop's grey.
ModelMaterial dressedInClay(ModelMaterial material);

// What `shaders` of a [[model]] calls a material: as the file does, or by its number where it has no name.
std::string materialKey(const Model& model, std::size_t number);

// Adds to the table of a [[model]], which stands in a file of that folder, what its file says: "texture" and "shader", each
// with tables by names, and "materials", the names of the shaders by the materials' numbers. Materials that `shaders`
// replaces are left out. What "shader" holds already is laid over what the file says. Leaves the table as it is where
// the file cannot be read, which is reported.
void addModelTables(toml::table& model, const std::string& path, const std::filesystem::path& folder,
                    const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics);

}  // namespace oxbeam
