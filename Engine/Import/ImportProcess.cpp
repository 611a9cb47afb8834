#include "Engine/Import/ImportProcess.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

namespace oxbeam {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Beside the library, in a build tree as well as where it is installed.
static fs::path helperProgram() {
    const fs::path folder = engineLibrary().parent_path();
    for (const char* place : {"oxbeam-import", "../bin/oxbeam-import", "../libexec/oxbeam/oxbeam-import"})
        if (fs::path program = folder / place; access(program.c_str(), X_OK) == 0) return program;
    throw Error(ExitStatus::InputOutput, fmt::format("models are read by the program 'oxbeam-import', which is neither "
                                                     "in '{}' nor in '../bin' or '../libexec/oxbeam' beside it",
                                                     folder.string()));
}

static std::string tooSlow() { return fmt::format("takes longer than {} s to read", ImportSeconds); }

namespace {

struct Descriptor {
    int number = -1;

    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }
    void close() {
        if (number >= 0) ::close(number);
        number = -1;
    }
};

// A child that does not outlive this object.
class Child {
public:
    // Its standard output goes to `output`, everything else it says nowhere. In a process group of its own: an
    // interruption from the terminal is the host's to answer.
    Child(const fs::path& program, const fs::path& file, int output) {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        std::string name = program.string(), argument = file.string();
        const std::array<char*, 3> arguments = {name.data(), argument.data(), nullptr};
        const int problem = posix_spawn(&m_pid, name.c_str(), &actions, &attributes, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        if (problem != 0)
            throw Error(ExitStatus::InputOutput, fmt::format("cannot start '{}': {}", name, std::strerror(problem)));
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (m_ended) return;
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }

    // How it ended, if not well. To be asked when its output has ended, and with it, as a rule, the process.
    std::string wait(Clock::time_point deadline) {
        int status = 0;
        while (waitpid(m_pid, &status, WNOHANG) != m_pid) {
            if (Clock::now() > deadline) return tooSlow();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        m_ended = true;
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU) return tooSlow();
        if (WIFSIGNALED(status)) return fmt::format("crashes its reader ({})", strsignal(WTERMSIG(status)));
        return WEXITSTATUS(status) == 0 ? "" : fmt::format("ends its reader with status {}", WEXITSTATUS(status));
    }

private:
    pid_t m_pid = -1;
    bool m_ended = false;
};

}  // namespace

ImportOutcome runImport(const fs::path& file) {
    const fs::path program = helperProgram();
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw Error(ExitStatus::InputOutput, fmt::format("cannot make a pipe: {}", std::strerror(errno)));
    Descriptor input, output;
    input.number = ends[0], output.number = ends[1];
    Child child(program, file, output.number);
    output.close();

    ImportOutcome outcome;
    std::vector<std::byte> chunk(std::size_t{1} << 18);
    const auto deadline = Clock::now() + std::chrono::seconds(ImportSeconds);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{input.number, POLLIN, 0};
        const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) {
            outcome.failure = tooSlow();
            return outcome;
        }
        const ssize_t size = read(input.number, chunk.data(), chunk.size());
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) break;
        if (outcome.bytes.size() + static_cast<std::size_t>(size) > ImportBytes) {
            outcome.failure = "holds more than 4 GiB";
            return outcome;
        }
        outcome.bytes.insert(outcome.bytes.end(), chunk.begin(), chunk.begin() + size);
    }
    outcome.failure = child.wait(deadline);
    return outcome;
}

}  // namespace oxbeam
