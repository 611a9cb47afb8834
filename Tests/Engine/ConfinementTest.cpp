// What a process may still do that reads strangers' files: each case tries something in one, whatever library it is that
// would try it.
#include "Engine/Import/Helper/Confinement.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/RequestStream.h"
#include "Tests/Support/Processes.h"
#include "Tests/Support/SceneText.h"

#include <fcntl.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <functional>
#include <thread>

using namespace oxbeam::test;

namespace {

constexpr int CannotConfine = 200;

// The wait status of a process that tries it, which ends with errno, or 0 where that went well.
int outcome(const std::function<bool()>& attempt, const ImportLimits& limits = {}) {
    return statusOf([&] {
        signal(SIGSYS, SIG_DFL);
        shedInheritance();
        memfd_create("bytes", 0);  // PassedDescriptor, as from a host that has put a picture into it
        try {
            confine(limits, {scratch() / "granted"});
        } catch (const std::exception&) {
            return CannotConfine;
        }
        return attempt() ? 0 : errno;
    });
}

std::string inForce(const std::string& what) {
    for (const std::string& line : importReport(ModelProgram).confinement)
        if (line.starts_with(what + ": ")) return line.substr(what.size() + 2);
    return "nothing is said of it";
}

bool opens(const fs::path& file, int flags = O_RDONLY) { return open(file.c_str(), flags | O_CLOEXEC, 0600) >= 0; }

void prepareFiles() {
    fs::remove_all(scratch() / "granted");
    fs::create_directory(scratch() / "granted");
    writeFile("granted/inside", "inside");
    writeFile("outside", "outside");
    fs::create_symlink(scratch() / "outside", scratch() / "granted/link");
}

}  // namespace

TEST(Confinement, GrantsTheFilesThatAreReadAndNoOthers) {
    prepareFiles();
    EXPECT_EQ(outcome([] { return opens(scratch() / "granted/inside"); }), 0);
    EXPECT_EQ(outcome([] { return opens(PassedFile); }), 0);
    if (!inForce("Landlock").starts_with("in force")) GTEST_SKIP() << "Landlock is " << inForce("Landlock");
    for (const fs::path& file : {scratch() / "outside", scratch() / "granted/link", fs::path("/etc/passwd"),
                                 fs::path("/proc/self/environ"), fs::path("/dev/null")}) {
        EXPECT_TRUE(opens(file)) << file;
        const int status = outcome([&] { return opens(file); });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EACCES) << file << ' ' << status;
    }
}

TEST(Confinement, EndsWhatMakesACallThatReadingDoesNotTake) {
    if (Sanitized) GTEST_SKIP() << "a sanitizer calls what no reader calls";
    if (inForce("seccomp") != "in force") GTEST_SKIP() << "seccomp is " << inForce("seccomp");
    prepareFiles();
    const struct {
        const char* what;
        std::function<bool()> attempt;
        int signal;  // that ends it; 0: none does
    } cases[] = {
        {"threads and memory", [] { return std::thread([] { std::vector<char>(1u << 28, 'x'); }).join(), true; }, 0},
        {"a failed assertion", [] { return std::abort(), true; }, SIGABRT},
        {"a file to write to", [] { return !opens(scratch() / "granted/inside", O_WRONLY) && errno == EACCES; }, 0},
        {"a new file", [] { return !opens(scratch() / "granted/new", O_WRONLY | O_CREAT) && errno == EACCES; }, 0},
        {"a file less", [] { return unlink((scratch() / "granted/inside").c_str()) == 0; }, SIGSYS},
        {"what the host says next", [] { return read(STDIN_FILENO, std::array<char, 1>().data(), 1) >= 0; }, SIGSYS},
        {"the same by the other end", [] { return read(STDOUT_FILENO, std::array<char, 1>().data(), 1) >= 0; }, SIGSYS},
        {"a network", [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }, SIGSYS},
        {"a process", [] { return fork() >= 0; }, SIGSYS},
        {"a program", [] { return execl("/bin/true", "true", nullptr) == 0; }, SIGSYS},
        {"a signal", [] { return kill(getppid(), SIGCONT) == 0; }, SIGSYS},
        {"another's memory", [] { return ptrace(PTRACE_ATTACH, getppid(), nullptr, nullptr) == 0; }, SIGSYS},
        {"memory to run",
         [] { return mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED; },
         SIGSYS},
        {"a limit raised",
         [] {
             const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
             return setrlimit(RLIMIT_CPU, &none) == 0;
         },
         SIGSYS},
    };
    for (const auto& c : cases) {
        const int status = outcome(c.attempt);
        EXPECT_EQ(WIFSIGNALED(status) ? WTERMSIG(status) : 0, c.signal) << c.what << ", status " << status;
        EXPECT_TRUE(WIFSIGNALED(status) || status == 0) << c.what << ", status " << status;
    }
    EXPECT_EQ(contentOf("granted/inside"), "inside");
}

// As in containers that grant neither.
TEST(Confinement, GoesOnWhereTheSystemOffersLittle) {
    prepareFiles();
    const int status = statusOf([] {
        const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(landlock_create_ruleset), 0);
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(seccomp), 0);
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(prctl), 1, SCMP_A0_32(SCMP_CMP_EQ, PR_SET_SECCOMP, 0));
        if (seccomp_load(filter) != 0) return 2;
        shedInheritance();
        const std::vector<std::string> said = confine({}, {scratch() / "granted"});
        const bool honest = said.at(2) == "Landlock: not in force: this kernel has none" &&
                            said.at(3).starts_with("seccomp: not in force: ");
        return honest && opens(scratch() / "granted/inside") ? 0 : 1;
    });
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) GTEST_SKIP() << "seccomp is " << inForce("seccomp");
    EXPECT_EQ(status, 0);
}

TEST(Confinement, KeepsItsTimeUnderAnotherHardLimit) {
    ImportLimits limits;
    limits.seconds = 1;
    for (const rlim_t hard : {rlim_t{60}, rlim_t{2}}) {
        rusage before{}, after{};
        getrusage(RUSAGE_CHILDREN, &before);
        const int status = statusOf([&] {
            const rlimit both{hard, hard};
            setrlimit(RLIMIT_CPU, &both);
            const auto spin = [] {
                for (volatile bool on = true; on;) {
                }
                return true;
            };
            return WTERMSIG(outcome(spin, limits));
        });
        getrusage(RUSAGE_CHILDREN, &after);
        EXPECT_EQ(WEXITSTATUS(status), SIGXCPU) << hard;
        EXPECT_LE(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 2) << hard;
    }
}

// A reader is kept at its file by a pipe that nobody writes to.
TEST(ImportProcess, ReadsWithNothingButItsSocket) {
    const fs::path file = scratch() / "held.gltf";
    mkfifo(file.c_str(), 0600);
    const int inherited = dup(STDERR_FILENO);  // would go on into every program that is started
    ImportProcess process(ModelProgram);
    std::thread host([&] { failure(ExitStatus::InputOutput, [&] { process.ask(file, "model 'm'"); }); });
    pid_t reader = 0;
    const auto ready = [&] {
        reader = childOf(process.id());
        return reader && lineOf(procOf(reader) / "status", "State").ends_with("(sleeping)");
    };
    for (int i = 0; i < 1000 && !ready(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const fs::path proc = procOf(reader);
    EXPECT_THAT(lineOf(proc / "status", "NoNewPrivs"), HasSubstr("1"));
    for (const char* set : {"CapPrm", "CapEff", "CapInh"})
        EXPECT_THAT(lineOf(proc / "status", set), HasSubstr("0000000000000000"));
    EXPECT_THAT(lineOf(proc / "status", "Seccomp:"), HasSubstr(inForce("seccomp") == "in force" ? "2" : "0"));
    EXPECT_THAT(lineOf(proc / "limits", "Max cpu time"), HasSubstr("20                   21"));
    if (!Sanitized) {
        EXPECT_EQ(lineOf(proc / "status", "Threads"), "Threads:\t1");
    }
    for (const fs::path& owner : {proc, procOf(process.id())}) {
        struct stat status {};
        ASSERT_EQ(stat((owner / "fd").c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, 0u) << "nobody else may look into it";
        if (geteuid() != 0) continue;
        std::error_code none;
        for (const auto& entry : fs::directory_iterator(owner / "fd"))
            EXPECT_LE(std::stoi(entry.path().filename()), STDERR_FILENO) << fs::read_symlink(entry.path(), none);
    }
    kill(reader, SIGKILL);
    host.join();
    close(inherited);
}

// A file that has taken over its reader could have it answer for the next one, too.
TEST(ImportProcess, NoFileAnswersForTheNextOne) {
    writeFile("twice", R"(#!/usr/bin/env python3
import os, struct
while head := os.read(0, 16):
    number, length = struct.unpack("QQ", head)
    os.read(0, length)
    os.write(1, 2 * (struct.pack("QQ", number, 4) + b"mine"))
)");
    fs::permissions(scratch() / "twice", fs::perms::owner_all);
    ImportProcess process((scratch() / "twice").string());
    ASSERT_EQ(process.ask("one", "model 'one'"), 4u);
    EXPECT_EQ(process.takeText(4), "mine");
    EXPECT_THAT(failure(ExitStatus::BadScene, [&] { process.ask("two", "model 'two'"); }),
                HasSubstr("its reader says what it was not asked for"));
}
