// Looking at processes from outside.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace oxbeam::test {

// The first that begins so, or nothing.
inline std::string lineOf(const std::filesystem::path& file, const std::string& start) {
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(start)) return line;
    return "";
}

inline std::filesystem::path procOf(pid_t process) { return "/proc/" + std::to_string(process); }

// Those that its main thread has started.
inline std::vector<pid_t> childrenOf(pid_t parent) {
    std::ifstream children(procOf(parent) / "task" / std::to_string(parent) / "children");
    return {std::istream_iterator<pid_t>(children), {}};
}

// The first of them, or 0.
inline pid_t childOf(pid_t parent) {
    const std::vector<pid_t> children = childrenOf(parent);
    return children.empty() ? 0 : children.front();
}

// One that has ended counts as gone although nobody has asked for its status.
inline bool isGone(pid_t process) {
    const std::string state = lineOf(procOf(process) / "status", "State");
    return state.empty() || state.find("zombie") != std::string::npos;
}

// The wait status of a process that ends with what it makes of `act`.
template <class F>
int statusOf(F&& act) {
    const pid_t child = fork();
    if (child == 0) _exit(act());
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

}  // namespace oxbeam::test
