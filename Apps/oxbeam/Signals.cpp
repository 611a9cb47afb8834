#include "Apps/oxbeam/RenderSteps.h"

#include <atomic>
#include <csignal>

namespace oxbeam {

static std::atomic<bool> s_stop{false};
static std::atomic<int> s_signal{0};

// The first signal ends the rendering after the tiles at work; a second one ends the process at once.
static void onSignal(int number) {
    s_stop = true;
    s_signal = number;
    std::signal(number, SIG_DFL);
}

void stopOnSignals() {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that gets too large is an error like any other
}

const std::atomic<bool>& stopFlag() { return s_stop; }

bool stopWanted() { return s_stop; }

ExitStatus stoppedStatus() { return s_signal == SIGINT ? ExitStatus::Interrupted : ExitStatus::Incomplete; }

}  // namespace oxbeam
