// Files of the tests, scenes written as text, and what is said about them.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Tests/Support/TestWorld.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

namespace oxbeam::test {

using testing::AllOf, testing::AnyOf, testing::Contains, testing::ContainsRegex, testing::ElementsAre,
    testing::ElementsAreArray, testing::FloatNear, testing::HasSubstr, testing::IsEmpty, testing::Not,
    testing::Pointwise, testing::StartsWith, testing::UnorderedElementsAre;

// Under a sanitizer: what is counted of memory and threads means nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool Sanitized = true;
#else
inline constexpr bool Sanitized = false;
#endif

inline fs::path writeFile(const std::string& name, const std::string& text) {
    const fs::path file = scratch() / name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

// Of a file in the scratch folder, unless its path is absolute.
inline std::string contentOf(const fs::path& file) {
    std::ifstream stream(scratch() / file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Two texels, black and white, in "wood.png".
inline void makePicture() {
    if (!fs::exists(scratch() / "wood.png")) writeImage(scratch() / "wood.png", 2, 1, {Black, White});
}

// A message without the folder that the test's files are in.
inline std::string withoutFolder(std::string text, const fs::path& folder = scratch()) {
    const std::string prefix = folder.string() + "/";
    for (auto at = text.find(prefix); at != std::string::npos; at = text.find(prefix)) text.erase(at, prefix.size());
    return text;
}

// The message with which something fails.
template <class F>
std::string failure(ExitStatus status, F&& act) {
    try {
        act();
    } catch (const Error& e) {
        EXPECT_EQ(e.status(), status);
        return withoutFolder(e.what());
    }
    return "nothing failed";
}

struct LoadedScene {
    std::unique_ptr<World> world;
    std::vector<std::string> said;  // the diagnostics' texts, sorted
};

inline LoadedScene loadFile(const fs::path& file, const SceneFileOptions& options = {},
                            const Registry& objects = registry()) {
    Diagnostics diagnostics;
    LoadedScene loaded{loadScene(file, objects, diagnostics, options), {}};
    for (const Diagnostic& d : diagnostics.sorted()) loaded.said.push_back(withoutFolder(d.text()));
    return loaded;
}

inline LoadedScene loadText(const std::string& toml, const std::vector<std::string>& set = {},
                            const Registry& objects = registry(), const std::string& camera = {}) {
    return loadFile(writeFile("scene.toml", toml), {set, camera}, objects);
}

}  // namespace oxbeam::test
