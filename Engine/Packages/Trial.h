// Tries code of others in a process of its own first: there it may hang, crash or end the process.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace oxbeam {

// What a trial may take. A machine that is busy with much else must not fail good code: the first is the time of a
// processor, the second passes by the clock.
struct TrialLimits {
    unsigned processorSeconds = 2;
    unsigned seconds = 20;
    std::size_t bytes = std::size_t{4} << 30;  // of memory that can be written to
};

struct TrialOutcome {
    enum State { Ended, Failed, Hung, Crashed, Exited, NotTried } state = Ended;
    std::string step;                  // the last one that was told
    std::string why;                   // Failed: what was thrown. Crashed: the signal. Exited: the status
    std::vector<std::string> reports;  // that the work handed back until then
};

// Where the work tells what it does next.
using TrialSteps = std::function<void(const std::string& step)>;

// From within the work: hands a text back.
OXBEAM_API void reportFromTrial(const std::string& text);

// Does the work in a copy of this process that then ends, whatever the work has done; nothing of it is left but the
// outcome, and what it prints goes nowhere. NotTried: the machine has no process to spare, or is short of memory. Of the
// threads of this process the copy has only the calling one.
OXBEAM_API TrialOutcome tryOut(const std::function<void(const TrialSteps&)>& work, const TrialLimits& limits = {});

}  // namespace oxbeam
