#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/Interruption.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>

namespace oxbeam {

static std::atomic<bool> s_stop{false};
static std::atomic<int> s_signal{0};
static std::atomic<int> s_worthWaitingFor{0};

// What hangs is not waited for longer than this, in seconds.
static constexpr unsigned Grace = 1;

// The first signal ends the rendering after the tiles at work, and all else after the grace. One that comes a second or
// more after it ends the process at once; what comes together is one wish, as of a terminal or a watchdog that signals
// the process and then its group. Standard error that nobody reads any more is met anew with every message.
static void onSignal(int number) {
    static std::atomic<std::time_t> first{0};
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (s_stop && number != SIGPIPE && now.tv_sec - first > 1) {
        std::signal(number, SIG_DFL);
        std::raise(number);
    }
    if (s_stop) return;
    first = now.tv_sec;
    s_signal = number;
    s_stop = true;
    if (s_worthWaitingFor == 0) alarm(Grace);
}

static void onAlarm(int) { _exit(static_cast<int>(stoppedStatus())); }

void stopOnSignals() {
    interruptBy(s_stop);
    std::signal(SIGALRM, onAlarm);
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &alarms, nullptr);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) std::signal(number, onSignal);
    if (std::signal(SIGHUP, onSignal) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
}

WorthWaitingFor::WorthWaitingFor() {
    ++s_worthWaitingFor;
    alarm(0);
}

WorthWaitingFor::~WorthWaitingFor() {
    if (--s_worthWaitingFor == 0 && s_stop) alarm(Grace);
}

const std::atomic<bool>& stopFlag() { return s_stop; }

bool stopWanted() { return s_stop; }

ExitStatus stoppedStatus() { return s_signal == SIGINT ? ExitStatus::Interrupted : ExitStatus::Incomplete; }

ExitStatus leave(ExitStatus status) {
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    _exit(static_cast<int>(status));
#endif
    return status;
}

}  // namespace oxbeam
