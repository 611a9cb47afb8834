#include "Engine/Import/Helper/Requests.h"

#include "Engine/Import/ImportProcess.h"
#include "Engine/System/LastWords.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>

// A library's thread that cannot be had, perhaps while it is loaded.
[[gnu::section(".preinit_array"), gnu::used]] static void (*const speakLast)() = [] {
    std::set_terminate([] { oxbeam::endForLackOf("", oxbeam::ReaderShort); });
};

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

static bool answer(const void* data, std::size_t size) {
    const std::uint64_t length = size;
    return transfer(::write, STDOUT_FILENO, reinterpret_cast<const char*>(&length), sizeof length) &&
           transfer(::write, STDOUT_FILENO, static_cast<const char*>(data), size);
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

static std::vector<std::byte> readWith(const FileReader& reader, const std::string& file, std::size_t bytes) {
    try {
        return reader.read(file);
    } catch (const std::bad_alloc&) {
        if (limitedFromOutside(bytes)) _exit(ReaderShort);
        return reader.failure("it takes more than " + std::to_string(bytes >> 20) + " MiB of memory");
    } catch (const std::exception& e) {
        if (limitedFromOutside(bytes) && isLack(e)) _exit(ReaderShort);
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
        if (file->empty()) {
            good = answer(reader.version.data(), reader.version.size());
        } else {
            const std::vector<std::byte> result = readWith(reader, *file, bytes);
            good = answer(result.data(), result.size());
        }
    }
    _exit(good ? 0 : 5);  // what a malformed file has done to the heap must not matter now
}

}  // namespace oxbeam
