#include "Apps/view/FileChooser.h"

#include <SDL_scancode.h>
#include <imgui.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

static bool ends(const fs::path& file, const std::set<std::string>& endings) {
    std::string ending = file.extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return endings.contains(ending);
}

bool isLightPicture(const fs::path& file) { return ends(file, {".hdr", ".exr"}); }

bool isPicture(const fs::path& file) {
    return isLightPicture(file) ||
           ends(file, {".png", ".jpg", ".jpeg", ".webp", ".tif", ".tiff", ".bmp", ".tga", ".gif"});
}

bool isSceneOrModel(const fs::path& file) {
    return ends(file, {".toml", ".glb", ".gltf", ".obj", ".ply", ".stl", ".fbx", ".dae", ".3ds", ".off", ".x3d",
                       ".blend", ".lwo", ".ase", ".ac", ".x", ".ifc", ".dxf"});
}

void FileChooser::open(std::string title, const fs::path& folder, Kind kind,
                       std::function<void(const fs::path&)> chosen, std::vector<std::string> first) {
    m_first = std::move(first);
    m_title = std::move(title);
    m_kind = kind;
    m_chosen = std::move(chosen);
    m_typed.clear();
    m_open = true;
    enter(folder);
}

void FileChooser::enter(const fs::path& folder) {
    std::error_code none;
    m_folder = fs::absolute(folder.empty() ? "." : folder, none).lexically_normal();
    m_folders.clear();
    m_files.clear();
    for (const auto& entry : fs::directory_iterator(m_folder, fs::directory_options::skip_permission_denied, none)) {
        const fs::path name = entry.path().filename();
        if (name.string().starts_with('.')) continue;
        if (entry.is_directory(none))
            m_folders.push_back(name);
        else if (m_kind(name))
            m_files.push_back(name);
    }
    std::sort(m_folders.begin(), m_folders.end());
    std::sort(m_files.begin(), m_files.end());
}

void FileChooser::choose(const fs::path& file) {
    m_open = false;
    ImGui::CloseCurrentPopup();
    std::exchange(m_chosen, nullptr)(file);
}

// Entering a folder makes others of the lists.
void FileChooser::drawList() {
    std::optional<fs::path> folder, file;
    for (const std::string& path : m_first)
        if (ImGui::Selectable(path.c_str(), false, ImGuiSelectableFlags_DontClosePopups)) file = path;
    if (!m_first.empty()) ImGui::Separator();
    if (m_folder.has_parent_path() && ImGui::Selectable("..", false, ImGuiSelectableFlags_DontClosePopups))
        folder = m_folder.parent_path();
    for (const fs::path& name : m_folders)
        if (ImGui::Selectable((name.string() + "/").c_str(), false, ImGuiSelectableFlags_DontClosePopups))
            folder = m_folder / name;
    for (const fs::path& name : m_files)
        if (ImGui::Selectable(name.c_str(), false, ImGuiSelectableFlags_DontClosePopups)) file = m_folder / name;
    if (folder) m_first.clear(), enter(*folder);
    if (file) choose(*file);
}

void FileChooser::draw() {
    if (!m_open) return;
    ImGui::OpenPopup(m_title.c_str());
    const float unit = ImGui::GetFontSize();
    const ImVec2 whole = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowSize({std::min(34.0f * unit, whole.x), std::min(26.0f * unit, whole.y)}, ImGuiCond_Appearing);
    if (!ImGui::BeginPopupModal(m_title.c_str(), nullptr, ImGuiWindowFlags_NoSavedSettings)) return;
    ImGui::TextUnformatted(m_folder.c_str());
    ImGui::SetNextItemWidth(-1.0f);
    if (ImGui::IsWindowAppearing()) ImGui::SetKeyboardFocusHere();
    if (ImGui::InputTextWithHint("##path", "or type a path", &m_typed, ImGuiInputTextFlags_EnterReturnsTrue)) {
        const fs::path typed = m_folder / m_typed;
        std::error_code none;
        if (fs::is_directory(typed, none))
            enter(typed), m_typed.clear();
        else if (!m_typed.empty())
            choose(typed);
    }
    ImGui::BeginChild("list", {0.0f, -2.0f * unit}, true);
    if (m_open) drawList();
    ImGui::EndChild();
    if (ImGui::Button("Cancel") || ImGui::IsKeyPressed(SDL_SCANCODE_ESCAPE)) m_open = false, ImGui::CloseCurrentPopup();
    ImGui::EndPopup();
}

}  // namespace oxbeam
