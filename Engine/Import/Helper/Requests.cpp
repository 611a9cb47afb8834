#include "Engine/Import/Helper/Requests.h"

#include "Engine/Import/Helper/Confinement.h"
#include "Engine/Import/RequestStream.h"
#include "Engine/System/LastWords.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

// A library's thread that cannot be had, perhaps while it is loaded.
[[gnu::section(".preinit_array"), gnu::used]] static void (*const speakLast)() = [] {
    std::set_terminate([] { oxbeam::endForLackOf("", oxbeam::ReaderShort); });
};

#if defined(__SANITIZE_THREAD__)
// Libraries start threads in the process that forks; they are idle, and none of them is needed after it.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() { return "die_after_fork=0"; }
#endif

namespace oxbeam {

// ---- Requests and answers

// All of it, or false.
template <class Byte, class Transfer>
static bool transfer(Transfer move, int descriptor, Byte* data, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
        const ssize_t moved = move(descriptor, data + done, size - done);
        if (moved == 0 || (moved < 0 && errno != EINTR)) return false;
        if (moved > 0) done += static_cast<std::size_t>(moved);
    }
    return true;
}

// The descriptor that may come with the first bytes gets the number that both sides agree upon.
static ssize_t receive(int socket, char* data, std::size_t size) {
    iovec bytes{data, size};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &bytes, message.msg_iovlen = 1;
    message.msg_control = control, message.msg_controllen = sizeof control;
    const ssize_t received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* passed = received > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    int descriptor = -1;
    if (passed && passed->cmsg_type == SCM_RIGHTS) std::memcpy(&descriptor, CMSG_DATA(passed), sizeof descriptor);
    if (descriptor >= 0 && descriptor != PassedDescriptor) {
        dup2(descriptor, PassedDescriptor);
        close(descriptor);
    }
    return received;
}

struct Request {
    std::uint64_t number = 0;
    std::string file;
};

static std::optional<Request> nextRequest() {
    std::uint64_t head[2] = {};  // number and length
    if (!transfer(receive, STDIN_FILENO, reinterpret_cast<char*>(head), sizeof head)) return std::nullopt;
    Request request{head[0], std::string(static_cast<std::size_t>(head[1]), '\0')};
    const bool whole = transfer(::read, STDIN_FILENO, request.file.data(), request.file.size());
    return whole ? std::optional(request) : std::nullopt;
}

static bool answer(std::uint64_t number, const Answer& pass) {
    std::uint64_t head[2] = {number, 0};
    pass([&](const void*, std::size_t size) { head[1] += size; });
    bool good = transfer(::write, STDOUT_FILENO, reinterpret_cast<const char*>(head), sizeof head);
    pass([&](const void* data, std::size_t size) {
        good = good && transfer(::write, STDOUT_FILENO, static_cast<const char*>(data), size);
    });
    return good;
}

Answer answerOf(std::vector<std::byte> bytes) {
    return [kept = std::make_shared<const std::vector<std::byte>>(std::move(bytes))](const AnswerSink& sink) {
        sink(kept->data(), kept->size());
    };
}

// ---- The process that reads a file

// The library's version, and how such a process is confined.
static std::string report(const FileReader& reader, const ImportLimits& limits) try {
    std::string text = reader.version;
    for (const std::string& line : confine(limits, {})) text += '\n' + line;
    return text;
} catch (const std::exception& e) {
    return reader.version + '\n' + e.what();
}

// Where there was less memory to be had before, the limit on it could not be set.
static bool limitedFromOutside(rlim_t bytes) {
    rlimit inForce{};
    return getrlimit(RLIMIT_AS, &inForce) == 0 && inForce.rlim_cur < bytes;
}

// Libraries make texts of what they catch.
static bool isLack(const std::exception& e) {
    const std::string_view what = e.what();
    return dynamic_cast<const std::system_error*>(&e) || what.find("alloc") != what.npos ||
           what.find("memory") != what.npos;
}

// A thread that cannot be had is the machine's lack, unless the file has taken what its stack would need.
static bool isLackOfThreads(const std::exception& e) {
    const auto* system = dynamic_cast<const std::system_error*>(&e);
    if (!system || system->code() != std::errc::resource_unavailable_try_again) return false;
    constexpr std::size_t stack = std::size_t{8} << 20;
    void* room = mmap(nullptr, stack, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return room != MAP_FAILED && munmap(room, stack) == 0;
}

static Answer readWith(const FileReader& reader, const std::string& file, const ImportLimits& limits) {
    try {
        confine(limits, reader.needs(file));
        return reader.read(file);
    } catch (const std::bad_alloc&) {
        if (limitedFromOutside(limits.bytes)) _exit(ReaderShort);
        return reader.failure("it takes more than " + std::to_string(limits.bytes >> 20) + " MiB of memory" +
                              reader.ifTooLarge);
    } catch (const std::exception& e) {
        if (isLackOfThreads(e) || (limitedFromOutside(limits.bytes) && isLack(e))) _exit(ReaderShort);
        return reader.failure(*e.what() ? e.what() : "its reader gives no reason");
    }
}

// A copy of the process that waits, as it was before the first file: no file can do anything to the next one. What a
// malformed file has done to the heap must not matter when it ends.
[[noreturn]] static void serveOne(const FileReader& reader, const Request& request, const ImportLimits& limits) {
    bool good = false;
    if (request.file.empty()) {
        const std::string text = report(reader, limits);
        good = answer(request.number, [&](const AnswerSink& sink) { sink(text.data(), text.size()); });
    } else {
        good = answer(request.number, readWith(reader, request.file, limits));
    }
    _exit(good ? 0 : ReaderFailed);
}

// ---- The process that waits: it sees names, but not a byte of a file nor of an answer

static void endAs(int status) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
    if (WIFEXITED(status)) _exit(WEXITSTATUS(status));
    const int signal = WTERMSIG(status);
    std::signal(signal, SIG_DFL);
    kill(getpid(), signal);  // the host sees what became of the child
    _exit(ReaderFailed);
}

// Until it ends, or the host does: then it is ended.
static void waitFor(pid_t child, const sigset_t& open) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        pollfd host{STDIN_FILENO, POLLRDHUP, 0};
        if (ppoll(&host, 1, nullptr, &open) <= 0) continue;
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        _exit(0);
    }
    endAs(status);
}

static void serve(const FileReader& reader, const ImportLimits& limits) {
    // A child's end interrupts nothing but the wait for it.
    sigset_t open, blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    std::signal(SIGCHLD, [](int) {});
    sigprocmask(SIG_BLOCK, &blocked, &open);
    const pid_t self = getpid();
    while (const auto request = nextRequest()) {
        if (request->file == VersionRequest) {
            const auto version = [&](const AnswerSink& sink) { sink(reader.version.data(), reader.version.size()); };
            if (!answer(request->number, version)) _exit(ReaderFailed);
            continue;
        }
        const pid_t child = fork();
        if (child < 0) _exit(ReaderHasNoProcess);
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != self) _exit(ReaderFailed);
            sigprocmask(SIG_SETMASK, &open, nullptr);
            serveOne(reader, *request, limits);
        }
        close(PassedDescriptor);
        waitFor(child, open);
    }
}

int serveRequests(int argc, char** argv, const FileReader& reader) {
    if (argc == 2 && std::string_view(argv[1]) == "--version") return std::puts(reader.version.c_str()) < 0;
    if (argc != 3 || isatty(STDOUT_FILENO)) {
        std::fprintf(stderr, "usage: %s --version\nAll else is between this program and the Oxbeam library.\n",
                     argc ? argv[0] : "");
        return 2;
    }
    shedInheritance();
    ImportLimits limits;
    limits.seconds = static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10));
    limits.bytes = std::strtoul(argv[2], nullptr, 10);
    serve(reader, limits);
    _exit(0);
}

}  // namespace oxbeam
