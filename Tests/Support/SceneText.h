// Scenes written as text, and what the loader says about them.
#pragma once

#include "Engine/Output/ImageFile.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Tests/Support/TestWorld.h"

#include <fstream>

namespace oxbeam::test {

inline std::filesystem::path writeFile(const std::string& name, const std::string& text) {
    const std::filesystem::path file = scratch() / name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

// Two texels, black and white, in "wood.png".
inline void makePicture() {
    static const bool made = (writeImage(scratch() / "wood.png", 2, 1, {Black, White}), true);
    static_cast<void>(made);
}

// A message without the folder that the test's files are in.
inline std::string withoutFolder(std::string text, const std::filesystem::path& folder = scratch()) {
    const std::string prefix = folder.string() + "/";
    for (auto at = text.find(prefix); at != std::string::npos; at = text.find(prefix)) text.erase(at, prefix.size());
    return text;
}

struct LoadedScene {
    std::unique_ptr<World> world;
    std::vector<std::string> said;  // the diagnostics' texts, sorted
};

inline LoadedScene loadFile(const std::filesystem::path& file, const std::vector<std::string>& set = {},
                            const Registry& objects = registry()) {
    Diagnostics diagnostics;
    LoadedScene loaded;
    SceneFileOptions options;
    options.set = set;
    loaded.world = loadScene(file, objects, diagnostics, options);
    for (const Diagnostic& d : diagnostics.sorted()) loaded.said.push_back(withoutFolder(d.text()));
    return loaded;
}

inline LoadedScene loadText(const std::string& toml, const std::vector<std::string>& set = {},
                            const Registry& objects = registry()) {
    return loadFile(writeFile("scene.toml", toml), set, objects);
}

}  // namespace oxbeam::test
