#include "Engine/Packages/Trial.h"

#include "Engine/System/Sanitizers.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

namespace oxbeam {

namespace {

using Clock = std::chrono::steady_clock;

// Each message is a letter and a text that ends with a zero.
enum Word : char { Step = 's', Report = 'r', Done = 'd', Thrown = 't', Short = 'm' };

int s_words = -1;  // of the child: where they go

void say(Word word, const std::string& text = {}) {
    const std::string message = static_cast<char>(word) + text + '\0';
    static_cast<void>(write(s_words, message.data(), message.size()) < 0);
}

// The exception on its way, whatever it is.
void sayThrown() {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        say(Short);
    } catch (const std::exception& e) {
        say(Thrown, e.what());
    } catch (...) {
        say(Thrown, "an exception of a type of its own");
    }
}

void limitChild(const TrialLimits& limits) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM, SIGTERM, SIGINT, SIGHUP, SIGXCPU})
        std::signal(number, SIG_DFL);
    const rlimit none{0, 0}, seconds{limits.processorSeconds, limits.processorSeconds + 1};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_CPU, &seconds);
#ifndef OXBEAM_SANITIZED
    rlimit bytes{};
    getrlimit(RLIMIT_DATA, &bytes);
    bytes.rlim_cur = std::min(bytes.rlim_cur, rlim_t{limits.bytes});
    setrlimit(RLIMIT_DATA, &bytes);
#endif
    const int nowhere = open("/dev/null", O_RDWR);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, stream);
}

[[noreturn]] void runChild(const std::function<void(const TrialSteps&)>& work, const TrialLimits& limits) {
    limitChild(limits);
    // Where an exception cannot be caught, as out of a function that promises to throw none.
    std::set_terminate([] {
        if (std::current_exception()) sayThrown();
        _exit(0);
    });
    // Where the work ends the process, nothing of this one is taken down.
    on_exit([](int status, void*) { _exit(status); }, nullptr);
    try {
        work([](const std::string& step) { say(Step, step); });
        say(Done);
    } catch (...) {
        sayThrown();
    }
    _exit(0);
}

// Takes what the child says; false where that goes on for too long.
bool listen(int words, const TrialLimits& limits, std::string& all) {
    const auto deadline = Clock::now() + std::chrono::seconds(limits.seconds);
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd waiting{words, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(left)) <= 0) continue;
        std::array<char, 4096> part;
        const ssize_t taken = ::read(words, part.data(), part.size());
        if (taken < 0 && errno == EINTR) continue;
        if (taken <= 0) return true;
        all.append(part.data(), static_cast<std::size_t>(taken));
    }
}

TrialOutcome outcomeOf(const std::string& words, int status) {
    TrialOutcome outcome{TrialOutcome::Exited, {}, std::to_string(WEXITSTATUS(status)), {}};
    const auto ended = [&](TrialOutcome::State state, const std::string& why = {}) {
        outcome.state = state;
        outcome.why = why;
        return outcome;
    };
    for (std::size_t at = 0; at < words.size(); at = words.find('\0', at) + 1) {
        const std::string text = words.c_str() + at + 1;
        switch (words[at]) {
        case Step: outcome.step = text; break;
        case Report: outcome.reports.push_back(text); break;
        case Done: return ended(TrialOutcome::Ended);
        case Thrown: return ended(TrialOutcome::Failed, text);
        case Short: return ended(TrialOutcome::NotTried);
        default: break;
        }
    }
    if (!WIFSIGNALED(status)) return outcome;
    const int signal = WTERMSIG(status);
    if (signal == SIGXCPU || signal == SIGKILL) return ended(TrialOutcome::Hung);
    return ended(TrialOutcome::Crashed, strsignal(signal));
}

// `inTime`: it has not taken more of the clock than it may.
TrialOutcome tryOnce(const std::function<void(const TrialSteps&)>& work, const TrialLimits& limits, bool& inTime) {
    inTime = true;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return {TrialOutcome::NotTried, {}, {}, {}};
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        s_words = ends[1];
        runChild(work, limits);
    }
    close(ends[1]);
    std::string words;
    inTime = child <= 0 || listen(ends[0], limits, words);
    close(ends[0]);
    if (child < 0) return {TrialOutcome::NotTried, {}, {}, {}};
    // It, and what it has started; after its last word it has nothing left to do.
    kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return outcomeOf(words, inTime ? status : SIGKILL);
}

}  // namespace

void reportFromTrial(const std::string& text) { say(Report, text); }

TrialOutcome tryOut(const std::function<void(const TrialSteps&)>& work, const TrialLimits& limits) {
    bool inTime = true;
#ifdef OXBEAM_SANITIZED
    // A sanitizer's memory is locked for ever in the copy of a process of which another thread was asking for some just then.
    TrialLimits brief = limits;
    brief.seconds = std::min(limits.seconds, 4u);
    for (unsigned i = 0; i < 4; ++i)
        if (TrialOutcome outcome = tryOnce(work, brief, inTime); inTime) return outcome;
#endif
    return tryOnce(work, limits, inTime);
}

}  // namespace oxbeam
