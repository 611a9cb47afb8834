#include "Engine/Import/ImportProcess.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

namespace oxbeam {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

ImportLimits ImportLimits::forFile(std::uintmax_t size) const {
    constexpr std::uintmax_t most = std::uintmax_t{1} << 40;  // beyond any file that could be read
    ImportLimits grown = *this;
    grown.seconds += static_cast<unsigned>(std::min(size, most) >> 21);
    grown.bytes += 16 * std::min(size, most);
    return grown;
}

static Error cannotStart(const std::string& program, const std::string& why) {
    return {ExitStatus::InputOutput, fmt::format("cannot start '{}': {}", program, why)};
}

// Beside the library, in a build tree as well as where it is installed.
static fs::path whereIs(const std::string& program) {
    const fs::path folder = engineLibrary().parent_path();
    for (const char* place : {".", "../bin", "../libexec/oxbeam"})
        if (fs::path found = folder / place / program; access(found.c_str(), X_OK) == 0) return found;
    throw cannotStart(program, fmt::format("it is neither in '{}' nor in '../bin' or '../libexec/oxbeam' beside it",
                                           folder.string()));
}

// Its standard input and output are the socket; what else it says goes nowhere. In a process group of its own: an
// interruption from the terminal is the host's to answer.
static pid_t spawn(const fs::path& program, int socket, const ImportLimits& limits) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, socket, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::string name = program.string(), seconds = std::to_string(limits.seconds), bytes = std::to_string(limits.bytes);
    const std::array<char*, 4> arguments = {name.data(), seconds.data(), bytes.data(), nullptr};
    pid_t child = -1;
    const int problem = posix_spawn(&child, name.c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (problem != 0) throw cannotStart(name, std::strerror(problem));
    return child;
}

ImportProcess::ImportProcess(const std::string& program, const ImportLimits& limits) : m_limits(limits) {
    const fs::path path = whereIs(program);
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw cannotStart(program, std::strerror(errno));
    m_socket = ends[0];
    try {
        m_pid = spawn(path, ends[1], limits);
    } catch (...) {
        close(ends[0]);
        close(ends[1]);
        throw;
    }
    close(ends[1]);
}

ImportProcess::~ImportProcess() {
    close(m_socket);
    if (m_ended) return;
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

void ImportProcess::fail(const std::string& why) const {
    throw Error(ExitStatus::BadScene, fmt::format("{} {}", m_what, why));
}

void ImportProcess::failAsTooSlow() const {
    fail(fmt::format("takes longer than {} s to read{}", m_limits.seconds, m_limits.advice));
}

// When its end of the socket is closed, it has ended or is about to.
void ImportProcess::failAsItEnded() {
    int status = 0;
    while (waitpid(m_pid, &status, WNOHANG) != m_pid) {
        if (Clock::now() > m_deadline) failAsTooSlow();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_ended = true;
    if (!WIFSIGNALED(status)) fail(fmt::format("ends its reader with status {}", WEXITSTATUS(status)));
    const int signal = WTERMSIG(status);
    if (signal == SIGXCPU) failAsTooSlow();
    // No file makes a library raise one of these.
    constexpr std::array outside = {SIGKILL, SIGTERM, SIGINT, SIGHUP, SIGQUIT};
    if (std::find(outside.begin(), outside.end(), signal) != outside.end())
        throw Error(ExitStatus::InputOutput, fmt::format("{} cannot be read: its reader was ended from outside ({})",
                                                         m_what, strsignal(signal)));
    fail(fmt::format("crashes its reader ({})", strsignal(signal)));
}

std::uint64_t ImportProcess::ask(const fs::path& file, std::string what) {
    m_what = std::move(what);
    m_deadline = Clock::now() + 3 * std::chrono::seconds(m_limits.seconds);
    const std::string name = file.empty() ? "" : fs::absolute(file).string();
    std::uint64_t length = name.size();
    const auto sent = [&](const void* data, std::size_t size) {
        return size == 0 || send(m_socket, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    };
    if (!sent(&length, sizeof length) || !sent(name.data(), name.size())) failAsItEnded();
    take(&length, sizeof length);
    if (length > m_limits.bytes)
        fail(fmt::format("takes more than {} MiB once it is read{}", m_limits.bytes >> 20, m_limits.advice));
    return length;
}

void ImportProcess::take(void* to, std::size_t size) {
    for (auto* at = static_cast<char*>(to); size > 0;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
        pollfd waiting{m_socket, POLLIN, 0};
        const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) failAsTooSlow();
        const ssize_t taken = recv(m_socket, at, size, 0);
        if (taken < 0 && errno == EINTR) continue;
        if (taken <= 0) failAsItEnded();
        at += taken;
        size -= static_cast<std::size_t>(taken);
    }
}

std::string ImportProcess::takeText(std::size_t size) {
    std::string text(size, '\0');
    take(text.data(), size);
    return text;
}

std::string importVersion(const std::string& program) try {
    ImportProcess process(program);
    return oneLine(process.takeText(process.ask("", fmt::format("the version of '{}'", program))));
} catch (const Error& e) {
    return e.what();
}

}  // namespace oxbeam
