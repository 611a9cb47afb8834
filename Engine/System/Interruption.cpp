#include "Engine/System/Interruption.h"

namespace oxbeam {

static std::atomic<const std::atomic<bool>*> s_stop{nullptr};

void interruptBy(const std::atomic<bool>& stop) { s_stop = &stop; }

bool interrupted() {
    const std::atomic<bool>* stop = s_stop;
    return stop && *stop;
}

}  // namespace oxbeam
