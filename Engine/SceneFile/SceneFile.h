// Scenes from TOML files.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/SceneFile/ModelScene.h"
#include "Engine/World/World.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace oxbeam {

struct SceneFileOptions {
    // "PLACE.PARAM=VALUE", each laid over the file: "shader.table.shininess=64", "light.0.intensity=[1, 1, 1]". A value
    // that is no TOML is a text.
    std::vector<std::string> set = {};
    // One of the scene's named cameras; nothing for the unnamed one. Of a model, one of the file's, or "file" for the
    // first of them; nothing frames it.
    std::string camera = {};
    // For a model in place of a scene file.
    ModelSceneOptions model = {};
    // What reading each model may take.
    ImportLimits importing = {};
    // What stands in the scene may come, go and move after loading (SceneGeometry::changeable), for which the vertices of
    // what is placed once are kept a second time where its placement changes them.
    bool changeable = true;
    // "PLACE.PARAM=FROM..TO@EASE", each over all the time that there is: see World::animation. What it moves can move
    // whether or not all else can.
    std::vector<std::string> animate = {};
    // Plays this clip of every model that has it: its name, or its number from 0 on.
    std::string clip = {};
};

// Reads a scene, or makes one around a model, and loads its textures and models; the geometry is prepared but not
// built. Everything that is wrong with it goes to the diagnostics; where there were errors the world must not be
// rendered. Never throws for what a file contains.
OXBEAM_API std::unique_ptr<World> loadScene(const std::filesystem::path& file, const Registry& registry,
                                            Diagnostics& diagnostics, const SceneFileOptions& options = {});
// The same from the text of a scene file; `source` is what messages call it, and its paths are relative to `folder`.
OXBEAM_API std::unique_ptr<World> loadSceneText(const std::string& text, const std::string& source,
                                                const std::filesystem::path& folder, const Registry& registry,
                                                SceneAssets& assets, Diagnostics& diagnostics);

// Of toml++, which reads scene files.
OXBEAM_API std::string tomlVersion();

}  // namespace oxbeam
