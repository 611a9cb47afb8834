// Programs that the command starts.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// The file of this program.
std::filesystem::path thisProgram();
// Where a program is on the path; throws Error(InputOutput), with where to get it, if nowhere.
std::filesystem::path requireProgram(const std::string& name, const std::string& from);

// In a process group of its own, so that what a terminal sends reaches it only through this process; it is asked to end
// where this process does, however.
class ChildProcess {
public:
    // What it prints is added to the file `log`. Throws Error(InputOutput) where it cannot be started.
    ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& words,
                 const std::filesystem::path& log);

    // Its status once it has ended, as a shell tells it: 128 and more where a signal ended it.
    std::optional<int> ended();
    int wait();
    // To it and all that it has started in its group.
    void signal(int number) const;

private:
    pid_t m_id = -1;
    std::optional<int> m_status;
};

// Runs it to its end; what it has printed on standard output, and its status.
struct Answer {
    int status = 0;
    std::string text;
};
Answer answerOf(const std::filesystem::path& program, const std::vector<std::string>& words,
                const std::filesystem::path& log);

// The last line of a log that says anything, or "".
std::string lastLineOf(const std::filesystem::path& log);

}  // namespace oxbeam
