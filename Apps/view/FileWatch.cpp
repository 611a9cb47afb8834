#include "Apps/view/FileWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

// Without an event for so long, whoever writes is taken to be done; with a file that is still open, for as long as that.
static constexpr std::chrono::milliseconds Quiet(60), Patience(1000);
// How often folders are looked for that are not there.
static constexpr std::chrono::milliseconds Retry(200);

FileWatch::FileWatch() : m_events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FileWatch::~FileWatch() {
    if (m_events >= 0) close(m_events);
}

static fs::path keyOf(const fs::path& file) { return fs::absolute(file).lexically_normal(); }

// A link's target counts as much as the link.
void FileWatch::watch(const std::vector<fs::path>& files, const std::vector<fs::path>& packages) {
    m_all = false;
    m_names.clear();
    m_packages.clear();
    std::set<fs::path> folders;
    for (const fs::path& file : files) {
        std::error_code none;
        const fs::path key = keyOf(file), target = fs::canonical(key, none);
        for (const fs::path& name : {key, none ? key : target}) {
            m_names[name].insert(key);
            folders.insert(name.parent_path());
        }
    }
    for (const fs::path& folder : packages) m_packages.insert(keyOf(folder));
    folders.insert(m_packages.begin(), m_packages.end());
    m_missing.clear();
    for (auto it = m_folders.begin(); it != m_folders.end();) {
        const bool wanted = folders.erase(it->second) > 0;
        if (!wanted) inotify_rm_watch(m_events, it->first);
        it = wanted ? std::next(it) : m_folders.erase(it);
    }
    for (const fs::path& folder : folders) addFolder(folder);
}

void FileWatch::addFolder(const fs::path& folder) {
    constexpr std::uint32_t mask =
        IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_ONLYDIR;
    const int watch = inotify_add_watch(m_events, folder.c_str(), mask);
    if (watch >= 0)
        m_folders[watch] = folder;
    else
        m_missing.insert(folder);
}

static bool isPackage(const std::string& name) { return name.starts_with("lib") && name.ends_with(".so"); }

void FileWatch::note(const fs::path& folder, const std::string& name, bool written) {
    const auto known = m_names.find(folder / name);
    const bool package = m_packages.contains(folder) && isPackage(name);
    if (known != m_names.end())
        m_changes.files.insert(known->second.begin(), known->second.end());
    else if (m_all && !package)
        m_changes.files.insert(folder / name);
    m_changes.packages = m_changes.packages || package;
    if (known == m_names.end() && !package && !m_all) return;
    m_last = Clock::now();
    if (written)
        m_unfinished.erase(folder / name);
    else
        m_unfinished.insert(folder / name);
}

void FileWatch::readEvents() {
    alignas(inotify_event) std::array<char, 1u << 14> buffer;
    for (ssize_t size = 0; (size = read(m_events, buffer.data(), buffer.size())) > 0;)
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, &buffer[at], sizeof event);
            const auto folder = m_folders.find(event.wd);
            if (folder != m_folders.end() && event.len > 0)
                note(folder->second, &buffer[at + sizeof event], !(event.mask & IN_MODIFY));
            if (folder != m_folders.end() && event.mask & IN_IGNORED) {  // it has gone
                m_missing.insert(folder->second);
                m_folders.erase(folder);
            }
            at += sizeof event + event.len;
        }
}

// A folder that has come may hold anything.
FileWatch::Changes FileWatch::take() {
    if (m_events < 0) return {};
    readEvents();
    const auto now = Clock::now();
    if (!m_missing.empty() && now - m_tried > Retry) {
        m_tried = now;
        for (const fs::path& folder : std::exchange(m_missing, {})) {
            addFolder(folder);
            if (m_missing.contains(folder)) continue;
            std::error_code none;
            for (const auto& entry : fs::directory_iterator(folder, none)) note(folder, entry.path().filename(), true);
        }
    }
    if (m_changes.empty() || now - m_last < (m_unfinished.empty() ? Quiet : Patience)) return {};
    m_unfinished.clear();
    return std::exchange(m_changes, {});
}

}  // namespace oxbeam
