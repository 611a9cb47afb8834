#include "Apps/view/Remembered.h"

#include "Engine/System/StoredFile.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

static constexpr std::size_t Most = 12;

// The XDG base directories' own rules have relative paths ignored.
static fs::path stateFolder() {
    const char *state = std::getenv("XDG_STATE_HOME"), *home = std::getenv("HOME");
    if (state && fs::path(state).is_absolute()) return fs::path(state) / "oxbeam";
    return home && *home ? fs::path(home) / ".local/state/oxbeam" : fs::path();
}

Remembered::Remembered() : m_file(stateFolder().empty() ? fs::path() : stateFolder() / "viewer.json") {
    std::ifstream stream(m_file);
    const auto json = nlohmann::json::parse(stream, nullptr, false);
    if (!json.is_object()) return;
    if (const auto knows = json.find("knowsHint"); knows != json.end() && knows->is_boolean()) m_knowsHint = *knows;
    const auto files = json.find("files");
    if (files == json.end() || !files->is_array()) return;
    std::error_code none;
    for (const auto& file : *files)
        if (file.is_string() && m_files.size() < Most && fs::is_regular_file(file.get<std::string>(), none))
            m_files.push_back(file);
}

void Remembered::opened(const std::string& file) {
    const std::string path = fs::absolute(file).lexically_normal().string();
    if (!m_files.empty() && m_files.front() == path) return;
    std::erase(m_files, path);
    m_files.insert(m_files.begin(), path);
    if (m_files.size() > Most) m_files.resize(Most);
    write();
}

void Remembered::learnHint() {
    if (m_knowsHint) return;
    m_knowsHint = true;
    write();
}

static void store(const fs::path& file, const std::string& text) {
    std::error_code none;
    fs::create_directories(file.parent_path(), none);
    try {
        storeFile(file, text);
    } catch (const Error&) {
    }
}

void Remembered::write() {
    if (m_file.empty()) return;
    const nlohmann::ordered_json json = {{"knowsHint", m_knowsHint}, {"files", m_files}};
    std::string text = json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    m_writing = std::async(std::launch::async,
                           [file = m_file, text = std::move(text), before = std::move(m_writing)]() mutable {
                               if (before.valid()) before.wait();
                               store(file, text);
                           });
}

}  // namespace oxbeam
