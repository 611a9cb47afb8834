#include "Apps/oxbeam/ChildProcess.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>

namespace oxbeam {

namespace fs = std::filesystem;

fs::path thisProgram() { return fs::read_symlink("/proc/self/exe"); }

fs::path requireProgram(const std::string& name, const std::string& from) {
    if (fs::path file = programOnPath(name); !file.empty()) return file;
    throw Error(ExitStatus::InputOutput, fmt::format("there is no program '{}' on the path; {} has it", name, from));
}

// Between fork and exec only what a signal handler may do as well. `out` of -1: as the log.
static pid_t start(const fs::path& program, const std::vector<std::string>& words, const fs::path& log, int out) {
    std::vector<std::string> all = {program};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> argv;
    argv.reserve(all.size() + 1);
    for (std::string& word : all) argv.push_back(word.data());
    argv.push_back(nullptr);
    const int to = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (to < 0)
        throw Error(ExitStatus::InputOutput, fmt::format("cannot write '{}': {}", log.string(), strerror(errno)));
    const pid_t parent = getpid(), child = fork();
    if (child == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(out < 0 ? to : out, STDOUT_FILENO);
        dup2(to, STDERR_FILENO);
        if (getppid() == parent) execv(argv[0], argv.data());
        _exit(127);
    }
    close(to);
    if (child < 0)
        throw Error(ExitStatus::InputOutput, fmt::format("cannot start '{}': {}", program.string(), strerror(errno)));
    setpgid(child, child);  // whoever of both comes first
    return child;
}

static int shellStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

ChildProcess::ChildProcess(const fs::path& program, const std::vector<std::string>& words, const fs::path& log)
    : m_id(start(program, words, log, -1)) {}

std::optional<int> ChildProcess::ended() {
    int status = 0;
    if (!m_status && waitpid(m_id, &status, WNOHANG) == m_id) m_status = shellStatus(status);
    return m_status;
}

int ChildProcess::wait() {
    int status = 0;
    while (!m_status)
        if (waitpid(m_id, &status, 0) == m_id) m_status = shellStatus(status);
    return *m_status;
}

void ChildProcess::signal(int number) const {
    if (!m_status) kill(-m_id, number);
}

Answer answerOf(const fs::path& program, const std::vector<std::string>& words, const fs::path& log) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw Error(ExitStatus::InputOutput, std::string("no pipe: ") + strerror(errno));
    const pid_t child = start(program, words, log, ends[1]);
    close(ends[1]);
    Answer answer;
    char some[4096];
    for (ssize_t size; (size = read(ends[0], some, sizeof some)) > 0 || (size < 0 && errno == EINTR);)
        if (size > 0) answer.text.append(some, static_cast<std::size_t>(size));
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) != child) {
    }
    answer.status = shellStatus(status);
    return answer;
}

std::string lastLineOf(const fs::path& log) {
    std::ifstream stream(log);
    std::string last;
    for (std::string line; std::getline(stream, line);)
        if (!line.empty()) last = line;
    return last;
}

}  // namespace oxbeam
