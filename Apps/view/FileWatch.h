// Notices that files have changed, whoever has written them and however: most editors write beside and rename.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace oxbeam {

class FileWatch {
public:
    FileWatch();
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // From now on these files, and the packages in these folders, whether they are there yet or not.
    void watch(const std::vector<std::filesystem::path>& files, const std::vector<std::filesystem::path>& packages);
    // From now on all else in the files' folders too: the cause of a fault may be a file that nobody could read.
    void watchAll() { m_all = true; }

    struct Changes {
        std::set<std::filesystem::path> files;
        bool packages = false;

        bool empty() const { return files.empty() && !packages; }
    };
    // What has changed since the last call, once nothing more has for a moment: who writes does so in pieces. Never waits.
    Changes take();

private:
    void addFolder(const std::filesystem::path& folder);
    void readEvents();
    void note(const std::filesystem::path& folder, const std::string& name, bool written);

    using Clock = std::chrono::steady_clock;
    int m_events = -1;  // of the system; -1: it has none to spare, and nothing is noticed
    bool m_all = false;
    std::map<std::filesystem::path, std::set<std::filesystem::path>> m_names;  // of a file: what it is known as
    std::set<std::filesystem::path> m_packages;
    std::map<int, std::filesystem::path> m_folders;
    std::set<std::filesystem::path> m_missing;  // folders
    Changes m_changes;
    std::set<std::filesystem::path> m_unfinished;  // somebody writes them, and has not closed them yet
    Clock::time_point m_last, m_tried;
};

}  // namespace oxbeam
