#include "Engine/Import/Helper/Confinement.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace oxbeam {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr bool Sanitized = true;  // they reserve terabytes of addresses, and call what no reader calls
#else
static constexpr bool Sanitized = false;
#endif

static std::string reason(int problem) { return std::string("not in force: ") + std::strerror(problem); }

void shedInheritance() {
    close_range(STDERR_FILENO + 1, ~0u, 0);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

// ---- Limits

// Whoever started the host may have set a lower one, which cannot be raised again. `grace` is what lies between the
// warning and the end.
static void limit(decltype(RLIMIT_AS) resource, rlim_t most, rlim_t grace = 0) {
    rlimit now{};
    getrlimit(resource, &now);
    const rlim_t hard = std::min(most + grace, now.rlim_max);
    const rlimit both{std::min({most, hard - std::min(grace, hard), now.rlim_cur}), hard};
    if (setrlimit(resource, &both) != 0)
        throw std::runtime_error(std::string("its reader cannot limit itself: ") + std::strerror(errno));
}

static std::string setLimits(const ImportLimits& limits) {
    limit(RLIMIT_CPU, limits.seconds, 1);  // the host watches the clock; this holds even where it cannot
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    if (!Sanitized) limit(RLIMIT_AS, limits.bytes);
    rlimit seconds{}, bytes{};
    getrlimit(RLIMIT_CPU, &seconds);
    getrlimit(RLIMIT_AS, &bytes);
    const std::string memory =
        bytes.rlim_cur == RLIM_INFINITY ? "any memory" : std::to_string(bytes.rlim_cur >> 20) + " MiB of memory";
    return std::to_string(seconds.rlim_cur) + " s of a processor, " + memory + ", nothing written";
}

// ---- Capabilities

static bool setCapabilities(std::uint32_t permitted, std::uint32_t effective) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const std::array<__user_cap_data_struct, 2> sets = {__user_cap_data_struct{effective, permitted, 0}, {}};
    return syscall(SYS_capset, &header, sets.data()) == 0;
}

static bool mayReadAll(const std::vector<fs::path>& files) {
    return std::all_of(files.begin(), files.end(), [](const fs::path& file) {
        const int opened = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (opened >= 0) close(opened);
        return opened >= 0 || errno != EACCES;
    });
}

// Where the administrator renders other people's files, that he may read them all is the one that is kept.
static std::string dropCapabilities(const std::vector<fs::path>& readable) {
    constexpr std::uint32_t readAll = 1u << CAP_DAC_READ_SEARCH;
    const bool isAdministrator = setCapabilities(readAll, 0);
    if (isAdministrator && !mayReadAll(readable) && setCapabilities(readAll, readAll)) return "only to read any file";
    return setCapabilities(0, 0) ? "none" : reason(errno);
}

// ---- Files: Landlock. Its system headers are those of the machine that this is built on; what is newer stands here.

namespace landlock {

constexpr unsigned AskVersion = 1, PathBeneath = 1;
constexpr std::uint64_t ReadFile = 1u << 2;

struct Ruleset {
    std::uint64_t files, network, scoped;  // the rights that are refused unless a rule grants them
};

struct __attribute__((packed)) Rule {
    std::uint64_t granted;
    std::int32_t beneath;
};

static Ruleset everything(long abi) {
    const unsigned files = abi >= 5 ? 16 : abi >= 3 ? 15 : abi >= 2 ? 14 : 13;
    return {(1u << files) - 1, abi >= 4 ? 3u : 0u, abi >= 6 ? 3u : 0u};
}

static void grant(int ruleset, const fs::path& file) {
    const int place = open(file.c_str(), O_PATH | O_CLOEXEC);
    if (place < 0) return;  // then there is nothing to read
    const Rule rule{ReadFile, place};
    syscall(SYS_landlock_add_rule, ruleset, PathBeneath, &rule, 0);
    close(place);
}

static std::string enforce(const std::vector<fs::path>& readable) {
    const long abi = syscall(SYS_landlock_create_ruleset, nullptr, 0, AskVersion);
    if (abi < 0 && errno == ENOSYS) return "not in force: this kernel has none";
    if (abi < 0 && errno == EOPNOTSUPP) return "not in force: this kernel was started without it";
    if (abi < 0) return reason(errno);
    const Ruleset all = everything(abi);
    const long ruleset = syscall(SYS_landlock_create_ruleset, &all, sizeof all, 0);
    if (ruleset < 0) return reason(errno);
    for (const fs::path& file : readable) grant(static_cast<int>(ruleset), file);
    const bool done = syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
    std::string said = done ? "in force, ABI " + std::to_string(abi) : reason(errno);
    close(static_cast<int>(ruleset));
    return said;
}

}  // namespace landlock

// ---- System calls: seccomp

namespace {

class Filter {
public:
    Filter() : m_context(seccomp_init(SCMP_ACT_KILL_PROCESS), seccomp_release) {}

    template <class... Conditions>
    void rule(std::uint32_t action, std::initializer_list<int> calls, Conditions... conditions) {
        for (const int call : calls)
            keep(seccomp_rule_add(m_context.get(), action, call, sizeof...(conditions), conditions...));
    }
    template <class... Conditions>
    void allow(std::initializer_list<int> calls, Conditions... conditions) {
        rule(SCMP_ACT_ALLOW, calls, conditions...);
    }
    // As the system says it.
    std::string load() {
        if (m_context) keep(seccomp_attr_set(m_context.get(), SCMP_FLTATR_API_SYSRAWRC, 1));
        if (m_context) keep(seccomp_load(m_context.get()));
        return !m_context ? reason(ENOMEM) : m_problem == 0 ? "in force" : reason(-m_problem);
    }

private:
    void keep(int result) {
        if (m_problem == 0) m_problem = result;
    }

    std::unique_ptr<void, decltype(&seccomp_release)> m_context;
    int m_problem = 0;
};

}  // namespace

static void allowFiles(Filter& f) {
    constexpr unsigned writing = O_ACCMODE | O_CREAT | O_TRUNC;
    f.allow({SCMP_SYS(openat)}, SCMP_A2_32(SCMP_CMP_MASKED_EQ, writing, O_RDONLY));
    f.rule(SCMP_ACT_ERRNO(EACCES), {SCMP_SYS(openat)}, SCMP_A2_32(SCMP_CMP_MASKED_EQ, O_WRONLY, O_WRONLY));
    f.rule(SCMP_ACT_ERRNO(EACCES), {SCMP_SYS(openat)}, SCMP_A2_32(SCMP_CMP_MASKED_EQ, O_RDWR, O_RDWR));
    f.allow({SCMP_SYS(open)}, SCMP_A1_32(SCMP_CMP_MASKED_EQ, writing, O_RDONLY));
    // Not from the host: what it asks next is not for this process to know.
    f.allow({SCMP_SYS(read), SCMP_SYS(readv)}, SCMP_A0_32(SCMP_CMP_GT, static_cast<unsigned>(STDERR_FILENO)));
    f.allow({SCMP_SYS(pread64), SCMP_SYS(lseek), SCMP_SYS(close), SCMP_SYS(fstat), SCMP_SYS(newfstatat), SCMP_SYS(stat),
             SCMP_SYS(lstat), SCMP_SYS(statx), SCMP_SYS(statfs), SCMP_SYS(fstatfs), SCMP_SYS(access),
             SCMP_SYS(faccessat), SCMP_SYS(faccessat2), SCMP_SYS(readlink), SCMP_SYS(readlinkat), SCMP_SYS(getcwd),
             SCMP_SYS(getdents64), SCMP_SYS(fadvise64)});
    for (const int place : {STDOUT_FILENO, STDERR_FILENO})
        f.allow({SCMP_SYS(write), SCMP_SYS(writev)}, SCMP_A0_32(SCMP_CMP_EQ, static_cast<unsigned>(place)));
    for (const int question : {F_GETFD, F_SETFD, F_GETFL})
        f.allow({SCMP_SYS(fcntl)}, SCMP_A1_32(SCMP_CMP_EQ, static_cast<unsigned>(question)));
    f.rule(SCMP_ACT_ERRNO(ENOTTY), {SCMP_SYS(ioctl)});
}

// No memory that can be run: nothing is loaded any more.
static void allowMemory(Filter& f) {
    f.allow({SCMP_SYS(mmap), SCMP_SYS(mprotect)}, SCMP_A2_32(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    f.allow({SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise), SCMP_SYS(brk), SCMP_SYS(mincore)});
}

static void allowThreads(Filter& f) {
    f.allow({SCMP_SYS(clone)}, SCMP_A0_32(SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD));
    f.rule(SCMP_ACT_ERRNO(ENOSYS), {SCMP_SYS(clone3)});  // its flags lie in memory; the C library falls back
    f.allow({SCMP_SYS(futex), SCMP_SYS(set_robust_list), SCMP_SYS(rseq), SCMP_SYS(set_tid_address),
             SCMP_SYS(sched_yield), SCMP_SYS(sched_getaffinity), SCMP_SYS(sched_getparam), SCMP_SYS(sched_getscheduler),
             SCMP_SYS(membarrier), SCMP_SYS(exit), SCMP_SYS(exit_group)});
    f.allow({SCMP_SYS(prctl)}, SCMP_A0_32(SCMP_CMP_EQ, PR_SET_NAME));
}

// Signals, as a failed assertion raises one, reach nobody else.
static void allowQuestions(Filter& f) {
    f.allow({SCMP_SYS(rt_sigaction),
             SCMP_SYS(rt_sigprocmask),
             SCMP_SYS(rt_sigreturn),
             SCMP_SYS(sigaltstack),
             SCMP_SYS(restart_syscall),
             SCMP_SYS(getpid),
             SCMP_SYS(gettid),
             SCMP_SYS(getuid),
             SCMP_SYS(geteuid),
             SCMP_SYS(getgid),
             SCMP_SYS(getegid),
             SCMP_SYS(clock_gettime),
             SCMP_SYS(clock_getres),
             SCMP_SYS(clock_nanosleep),
             SCMP_SYS(nanosleep),
             SCMP_SYS(gettimeofday),
             SCMP_SYS(time),
             SCMP_SYS(times),
             SCMP_SYS(getrusage),
             SCMP_SYS(getrlimit),
             SCMP_SYS(sysinfo),
             SCMP_SYS(uname),
             SCMP_SYS(getrandom),
             SCMP_SYS(getcpu)});
    f.allow({SCMP_SYS(prlimit64)}, SCMP_A2_64(SCMP_CMP_EQ, 0));
    f.allow({SCMP_SYS(tgkill)}, SCMP_A0_32(SCMP_CMP_EQ, static_cast<unsigned>(getpid())));
}

// All that reading takes, found by trying it on what there is to read; any other call ends the process.
static std::string filterCalls() {
    if (Sanitized) return "not in force: built with a sanitizer, which calls what no reader calls";
    Filter filter;
    allowFiles(filter);
    allowMemory(filter);
    allowThreads(filter);
    allowQuestions(filter);
    return filter.load();
}

std::vector<std::string> confine(const ImportLimits& limits, const std::vector<fs::path>& readable) {
    std::vector<std::string> said;
    said.push_back("limits: " + setLimits(limits));
    said.push_back("capabilities: " + dropCapabilities(readable));
    said.push_back("Landlock: " + landlock::enforce(readable));
    said.push_back("seccomp: " + filterCalls());
    return said;
}

}  // namespace oxbeam
