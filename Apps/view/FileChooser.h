// Chooses a file: folders, and the files in them that are of some kind.
#pragma once

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace oxbeam {

// By their extensions, in small letters.
bool isPicture(const std::filesystem::path& file);
// Whose light goes beyond white: what is around a scene, rather than on a surface.
bool isLightPicture(const std::filesystem::path& file);
bool isSceneOrModel(const std::filesystem::path& file);

class FileChooser {
public:
    using Kind = bool (*)(const std::filesystem::path& file);

    // Begins in a folder, with files of other folders before all; `chosen` is called with the file, if there is to be one.
    void open(std::string title, const std::filesystem::path& folder, Kind kind,
              std::function<void(const std::filesystem::path&)> chosen, std::vector<std::string> first = {});
    bool isOpen() const { return m_open; }
    void draw();

private:
    void enter(const std::filesystem::path& folder);
    void choose(const std::filesystem::path& file);
    void drawList();

    bool m_open = false;
    std::string m_title, m_typed;
    std::filesystem::path m_folder;
    std::vector<std::string> m_first;
    std::vector<std::filesystem::path> m_folders, m_files;
    Kind m_kind = nullptr;
    std::function<void(const std::filesystem::path&)> m_chosen;
};

}  // namespace oxbeam
