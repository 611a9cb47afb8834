// Scene files that nobody would write: whatever a file holds, loading it ends with a world that can be built, or with
// errors that can be shown.
#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/System/Workers.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

using namespace oxbeam;
namespace fs = std::filesystem;

namespace {

// The files that a scene names are made up here: none is opened, and those with "no" in their name do not exist. All
// pictures are tiny: to lay one out anew as surroundings would take most of the time.
class MadeUpAssets final : public SceneAssets {
    static void check(const fs::path& file) {
        if (file.filename().string().find("no") != std::string::npos)
            throw Error(ExitStatus::BadScene, "'" + file.string() + "' does not exist");
    }

    void expectPictures() override {}

    Model readModel(const fs::path& file) override {
        check(file);
        Model model;
        model.meshes.resize(2);
        for (MeshData& mesh : model.meshes) {
            mesh.positions = {R3(0, 0, 0), R3(1, 0, 0), R3(0, 1, 0)};
            mesh.indices = {0, 1, 2, 2, 1, 7};
        }
        model.meshMaterials = {0, 1};
        model.materials.resize(2);
        model.parts = {{0, Matrix()}, {1, Matrix()}, {1, TranslationMatrix(R3(0, 0, 1))}};
        model.images = {{1, 2, std::vector<std::uint8_t>(8, 100)}};
        return model;
    }

    Texture readTexture(const fs::path& file) override {
        check(file);
        return picture();
    }

    std::unique_ptr<Texture> studio() override { return std::make_unique<Texture>(picture()); }

    static Texture picture() {
        return {2, 1, 4, std::vector<std::uint8_t>{0, 1, 2, 3, 250, 251, 252, 253}, ColorSpace::SRGB};
    }
};

const Registry& registry() {
    static const auto loaded = [] {
        auto made = std::make_unique<Registry>();
        made->loadPackages(defaultPackageFolders());
        return made;
    }();
    return *loaded;
}

void require(bool condition, const std::string& message) {
    if (condition) return;
    std::cerr << message << '\n';
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (const BrokenPackage& broken : registry().broken()) std::cerr << broken.why << '\n';
    require(registry().find("KelPhong"), "the package is not beside the program, or does not load");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MadeUpAssets assets;
    Diagnostics diagnostics;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto world = loadSceneText(text, "scene.toml", "folder", registry(), assets, diagnostics);
    for (const Diagnostic& d : diagnostics.sorted()) {
        const std::string line = d.text();
        require(line.starts_with("scene.toml:"), "a message without a place: " + line);
        require(std::none_of(line.begin(), line.end(), [](unsigned char c) { return c < 32 || c == 127; }),
                "a message that is not one line: " + line);
    }
    constexpr std::size_t quicklyBuilt = 20'000;
    if (!diagnostics.hasErrors() && world->geometry.triangles() < quicklyBuilt)
        Workers(1).within([&] { world->geometry.build(); });  // more would mostly wait for each other
    return 0;
}
