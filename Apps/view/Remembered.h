// What the viewer remembers from one time to the next, in the user's state folder: XDG_STATE_HOME, or ~/.local/state.
#pragma once

#include <filesystem>
#include <future>
#include <string>
#include <vector>

namespace oxbeam {

class Remembered {
public:
    // What cannot be read is nothing.
    Remembered();

    // Files that were opened, the last first, each by its whole path; those that are gone are left out.
    const std::vector<std::string>& files() const { return m_files; }
    void opened(const std::string& file);
    // The hint has been shown, and is not needed any more.
    bool knowsHint() const { return m_knowsHint; }
    void learnHint();

private:
    // Beside all else: discs take their time. Where it cannot be done, nothing is remembered, and nobody minds.
    void write();

    std::filesystem::path m_file;
    std::vector<std::string> m_files;
    bool m_knowsHint = false;
    std::future<void> m_writing;
};

}  // namespace oxbeam
