// The threads that a frame is rendered on.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace oxbeam {

class OXBEAM_API Workers {
public:
    // At most OxRenderingObject::MaxThreads. Denormals count as zero on all of them: a sum of light that fades out would
    // otherwise slow down a hundredfold.
    explicit Workers(unsigned threads);
    ~Workers();

    unsigned threads() const;
    // Calls work(thread, item) for every item below `items`, each thread id in 0 .. threads() - 1 being used by one
    // thread at a time. Returns when all are done; the first exception that an item throws is thrown on.
    void run(unsigned items, const std::function<void(unsigned thread, unsigned item)>& work);
    // Calls work on these threads, so that libraries that thread by themselves use them too.
    void within(const std::function<void()>& work);

private:
    struct Arena;
    std::unique_ptr<Arena> m_arena;
};

// Processors' worth of time that the control group of this process grants; nothing where there is no limit.
OXBEAM_API std::optional<double> processorQuota();
// Threads that this process may use: its processors, or the quota that its container sets where that is lower.
OXBEAM_API unsigned availableThreads();

// Of oneTBB, which schedules, as the library that is loaded says it.
OXBEAM_API std::string schedulerVersion();

}  // namespace oxbeam
