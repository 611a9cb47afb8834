#include "Engine/Import/Helper/Requests.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace oxbeam {

static void limit(decltype(RLIMIT_AS) resource, rlim_t soft, rlim_t hard) {
    const rlimit both{soft, hard};
    setrlimit(resource, &both);
}

static void limitMyself([[maybe_unused]] rlim_t bytes) {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these reserve terabytes of addresses
    limit(RLIMIT_AS, bytes, bytes);
#endif
    limit(RLIMIT_CORE, 0, 0);
    limit(RLIMIT_FSIZE, 0, 0);
}

// The host watches the clock; this holds even where it cannot.
static void limitNextFile(rlim_t seconds) {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    limit(RLIMIT_CPU, static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 1 + seconds, RLIM_INFINITY);
}

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

static std::optional<std::string> nextRequest() {
    std::uint64_t length = 0;
    if (!transfer(::read, STDIN_FILENO, reinterpret_cast<char*>(&length), sizeof length)) return std::nullopt;
    std::string name(static_cast<std::size_t>(length), '\0');
    return transfer(::read, STDIN_FILENO, name.data(), name.size()) ? std::optional(name) : std::nullopt;
}

static bool answer(const Answer& pass) {
    std::uint64_t length = 0;
    pass([&](const void*, std::size_t size) { length += size; });
    bool good = transfer(::write, STDOUT_FILENO, reinterpret_cast<const char*>(&length), sizeof length);
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

static Answer readWith(const FileReader& reader, const std::string& file, std::size_t bytes) {
    try {
        return reader.read(file);
    } catch (const std::bad_alloc&) {
        return reader.failure("it takes more than " + std::to_string(bytes >> 20) + " MiB of memory" +
                              reader.ifTooLarge);
    } catch (const std::exception& e) {
        return reader.failure(*e.what() ? e.what() : "its reader gives no reason");
    }
}

int serveRequests(int argc, char** argv, const FileReader& reader) {
    if (argc == 2 && std::string_view(argv[1]) == "--version") return std::puts(reader.version.c_str()) < 0;
    if (argc != 3 || isatty(STDOUT_FILENO)) {
        std::fprintf(stderr, "usage: %s --version\nAll else is between this program and the Oxbeam library.\n",
                     argc ? argv[0] : "");
        return 2;
    }
    const rlim_t seconds = std::strtoul(argv[1], nullptr, 10), bytes = std::strtoul(argv[2], nullptr, 10);
    limitMyself(bytes);
    bool good = true;
    while (good) {
        limitNextFile(seconds);
        const auto file = nextRequest();
        if (!file) break;
        const auto version = [&](const AnswerSink& sink) { sink(reader.version.data(), reader.version.size()); };
        good = answer(file->empty() ? version : readWith(reader, *file, bytes));
    }
    _exit(good ? 0 : 5);  // what a malformed file has done to the heap must not matter now
}

}  // namespace oxbeam
