#include "Engine/Import/Helper/ModelFolder.h"

#include <assimp/MemoryIOWrapper.h>

#include <algorithm>
#include <string_view>

namespace oxbeam {

namespace fs = std::filesystem;

ModelFolder::ModelFolder(const fs::path& model)
    : m_folder(fs::canonical(fs::absolute(model).parent_path())), m_model(fs::canonical(model)) {}

std::optional<fs::path> ModelFolder::find(const std::string& name) const {
    std::error_code problem;
    const fs::path real = fs::canonical(m_folder / name, problem);
    if (problem || !fs::is_regular_file(real, problem)) return std::nullopt;
    const auto [end, rest] = std::mismatch(m_folder.begin(), m_folder.end(), real.begin(), real.end());
    if (end != m_folder.end() && real != m_model) return std::nullopt;
    return real;
}

bool ModelFolder::Exists(const char* name) const { return find(name).has_value(); }

Assimp::IOStream* ModelFolder::Open(const char* name, const char* mode) {
    const auto file = find(name);
    if (!file || std::string_view(mode).find_first_of("wa+") != std::string_view::npos) return nullptr;
    if (m_replacement && *file == m_model) {
        const std::string& text = *m_replacement;
        return new Assimp::MemoryIOStream(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    if (*file != m_model) m_opened.insert(file->lexically_relative(m_folder).string());
    const std::string path = file->string();
    return DefaultIOSystem::Open(path.c_str(), mode);
}

}  // namespace oxbeam
