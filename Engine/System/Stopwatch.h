// Seconds since a moment.
#pragma once

#include <chrono>

namespace oxbeam {

class Stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_start = Clock::now();
};

}  // namespace oxbeam
