#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/Interruption.h"

#include <atomic>
#include <csignal>
#include <ctime>

namespace oxbeam {

static std::atomic<bool> s_stop{false};
static std::atomic<int> s_signal{0};

// The first signal ends the rendering after the tiles at work. One that comes a second or more after it ends the process
// at once; what comes together is one wish, as of a terminal or a watchdog that signals the process and then its group.
static void onSignal(int number) {
    static std::atomic<std::time_t> first{0};
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (s_stop && now.tv_sec - first > 1) {
        std::signal(number, SIG_DFL);
        std::raise(number);
    }
    if (s_stop) return;
    first = now.tv_sec;
    s_signal = number;
    s_stop = true;
}

void stopOnSignals() {
    interruptBy(s_stop);
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that gets too large is an error like any other
}

const std::atomic<bool>& stopFlag() { return s_stop; }

bool stopWanted() { return s_stop; }

ExitStatus stoppedStatus() { return s_signal == SIGINT ? ExitStatus::Interrupted : ExitStatus::Incomplete; }

}  // namespace oxbeam
