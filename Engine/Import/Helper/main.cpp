// `oxbeam-import MODEL` reads a model file and writes it as bytes to standard output. A program of its own, started by
// the library: malformed files make the importer crash, hang or swell.
#include "Engine/Import/Helper/AssimpModel.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/ModelStream.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

using namespace oxbeam;

static void limit(decltype(RLIMIT_AS) resource, rlim_t most) {
    const rlimit both{most, most};
    setrlimit(resource, &both);
}

// The host watches the clock; these hold even where it cannot.
static void limitMyself() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these reserve terabytes of addresses
    limit(RLIMIT_AS, ImportBytes);
#endif
    limit(RLIMIT_CPU, ImportSeconds);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
}

static bool writeAll(const std::vector<std::byte>& bytes) {
    for (std::size_t written = 0; written < bytes.size();) {
        const ssize_t size = write(STDOUT_FILENO, bytes.data() + written, bytes.size() - written);
        if (size < 0 && errno != EINTR) return false;
        if (size > 0) written += static_cast<std::size_t>(size);
    }
    return true;
}

static std::vector<std::byte> import(const char* file) {
    try {
        return encodeModel(readModel(file));
    } catch (const std::bad_alloc&) {
        return encodeFailure("it takes more than 4 GiB of memory");
    } catch (const std::exception& e) {
        return encodeFailure(*e.what() ? e.what() : "the importer gives no reason");
    }
}

int main(int argc, char** argv) {
    if (argc != 2 || isatty(STDOUT_FILENO)) {
        std::fputs("usage: oxbeam-import MODEL, with standard output to a pipe; started by the Oxbeam library\n",
                   stderr);
        return 2;
    }
    limitMyself();
    const bool written = writeAll(import(argv[1]));
    _exit(written ? 0 : 5);  // what a malformed file has done to the heap must not matter now
}
