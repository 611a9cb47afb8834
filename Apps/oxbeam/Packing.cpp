#include "Apps/oxbeam/Packing.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

namespace oxbeam {

namespace fs = std::filesystem;

static fs::path commonFolder(const fs::path& one, const fs::path& other) {
    const auto ends = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    fs::path common;
    for (auto name = one.begin(); name != ends.first; ++name) common /= *name;
    return common;
}

// Names stand in quotation marks of either kind.
static std::string withRelativeNames(std::string text, const std::map<fs::path, std::uint64_t>& files,
                                     const fs::path& folder) {
    for (const auto& [file, hash] : files)
        for (const char mark : {'"', '\''}) {
            const std::string absolute = mark + file.string() + mark;
            const std::string relative = mark + file.lexically_relative(folder).string() + mark;
            for (std::size_t at = 0; (at = text.find(absolute, at)) != text.npos; at += relative.size())
                text.replace(at, absolute.size(), relative);
        }
    return text;
}

static void copyScene(const fs::path& scene, const std::map<fs::path, std::uint64_t>& files, const fs::path& to) {
    std::ifstream stream(scene, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    storeFile(to, withRelativeNames(text, files, scene.parent_path()));
}

std::map<fs::path, fs::path> packFiles(const fs::path& scene, const std::map<fs::path, std::uint64_t>& files,
                                       const fs::path& folder) try {
    fs::path common = scene.parent_path();
    for (const auto& [file, hash] : files) common = commonFolder(common, file.parent_path());
    std::map<fs::path, fs::path> places;
    const auto place = [&](const fs::path& file) {
        fs::path to = places[file] = folder / file.lexically_relative(common);
        fs::create_directories(to.parent_path());
        return to;
    };
    for (const auto& [file, hash] : files)
        if (file != scene) fs::copy_file(file, place(file));
    if (isSceneFile(scene))
        copyScene(scene, files, place(scene));
    else
        fs::copy_file(scene, place(scene));
    return places;
} catch (const fs::filesystem_error& e) {
    throw Error(ExitStatus::InputOutput, fmt::format("cannot pack the scene: {}", e.what()));
}

}  // namespace oxbeam
