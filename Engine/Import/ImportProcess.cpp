#include "Engine/Import/ImportProcess.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/RequestStream.h"
#include "Engine/System/Interruption.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <thread>

namespace oxbeam {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Bytes of them that this process and those that it starts may have.
static rlim_t addresses() {
    rlimit limit{};
    return getrlimit(RLIMIT_AS, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

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
    for (const char* place : {".", "../bin", "oxbeam"})
        if (fs::path found = folder / place / program; access(found.c_str(), X_OK) == 0) return found;
    throw cannotStart(program,
                      fmt::format("it is neither in '{}' nor in '../bin' or 'oxbeam' from there", folder.string()));
}

// Its standard input and output are the socket; what else it says goes nowhere. In a process group of its own: an
// interruption from the terminal is the host's to answer. What the host does at signals is not inherited.
static pid_t spawn(const fs::path& program, int socket, const ImportLimits& limits) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, socket, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
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
    kill(-m_pid, SIGKILL);  // it, and the one that it has read
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
    if (WIFSIGNALED(status)) failAsSignalled(WTERMSIG(status));
    constexpr int notLoaded = 127;  // the word of the dynamic linker
    const int ended = WEXITSTATUS(status);
    if (ended == ReaderShort || ended == notLoaded)
        failForTheMachine("there is not enough memory, or are not enough threads, for its reader");
    if (ended == ReaderHasNoProcess) failForTheMachine("this machine has no process to spare");
    fail(fmt::format("ends its reader with status {}", ended));
}

void ImportProcess::failForTheMachine(const std::string& why) const {
    throw Error(ExitStatus::InputOutput, fmt::format("{} cannot be read: {}", m_what, why));
}

void ImportProcess::failAsSignalled(int signal) const {
    if (signal == SIGXCPU) failAsTooSlow();
    if (signal == SIGSYS)
        fail(fmt::format("makes its reader ask the system for what no file needs ({})", strsignal(signal)));
    // No file makes a library raise one of these.
    constexpr std::array outside = {SIGKILL, SIGTERM, SIGINT, SIGHUP, SIGQUIT};
    if (std::find(outside.begin(), outside.end(), signal) != outside.end())
        failForTheMachine(fmt::format("its reader was ended from outside ({})", strsignal(signal)));
    if (addresses() < m_limits.bytes)  // few libraries take it well when there are no more
        failForTheMachine(fmt::format("its reader, which may use {} MiB of memory only, crashes ({})",
                                      addresses() >> 20, strsignal(signal)));
    fail(fmt::format("crashes its reader ({})", strsignal(signal)));
}

bool ImportProcess::sendRequest(std::uint64_t number, const std::string& name, int descriptor) const {
    std::uint64_t head[2] = {number, name.size()};
    iovec parts[] = {{head, sizeof head}, {const_cast<char*>(name.data()), name.size()}};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    msghdr message{};
    message.msg_iov = parts, message.msg_iovlen = 2;
    if (descriptor >= 0) {
        message.msg_control = control, message.msg_controllen = sizeof control;
        cmsghdr* passed = CMSG_FIRSTHDR(&message);
        passed->cmsg_level = SOL_SOCKET, passed->cmsg_type = SCM_RIGHTS, passed->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(passed), &descriptor, sizeof descriptor);
    }
    return sendmsg(m_socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof head + name.size());
}

std::uint64_t ImportProcess::ask(const fs::path& file, std::string what, const std::string& words, int descriptor) {
    m_what = std::move(what);
    return askFor(file.empty() ? "" : words + fs::absolute(file).string(), descriptor);
}

std::uint64_t ImportProcess::askFor(const std::string& name, int descriptor) {
    m_deadline = Clock::now() + 3 * std::chrono::seconds(m_limits.seconds);
    std::uint64_t number = 0;
    static_cast<void>(getrandom(&number, sizeof number, 0));  // never fails for so few bytes
    if (!sendRequest(number, name, descriptor)) failAsItEnded();
    std::uint64_t answered = 0, length = 0;
    take(&answered, sizeof answered);
    take(&length, sizeof length);
    if (answered != number) fail("cannot be read: its reader says what it was not asked for");
    if (length > m_limits.bytes)
        fail(fmt::format("takes more than {} MiB once it is read{}", m_limits.bytes >> 20, m_limits.advice));
    return length;
}

void ImportProcess::take(void* to, std::size_t size) {
    constexpr long lookUp = 100;  // milliseconds: a signal may be another thread's to notice
    for (auto* at = static_cast<char*>(to); size > 0;) {
        if (interrupted()) throw Interruption(fmt::format("stopped while reading {}", m_what));
        const long left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
        if (left <= 0) failAsTooSlow();
        pollfd waiting{m_socket, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(std::min(left, lookUp))) <= 0) continue;
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

std::string ImportProcess::version() { return takeText(askFor(VersionRequest)); }

ImportReport importReport(const std::string& program) try {
    ImportProcess process(program);
    std::istringstream text(process.takeText(process.ask("", fmt::format("what '{}' says of itself", program))));
    ImportReport report;
    std::getline(text, report.version);
    for (std::string line; std::getline(text, line);) report.confinement.push_back(line);
    return report;
} catch (const Error& e) {
    return {e.what(), {}};
}

}  // namespace oxbeam
