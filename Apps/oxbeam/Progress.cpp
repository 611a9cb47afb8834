#include "Apps/oxbeam/Progress.h"

#include "Engine/Diagnostics/Diagnostics.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cmath>
#include <iostream>

namespace oxbeam {

ProgressLine::ProgressLine(bool quiet) : m_quiet(quiet), m_terminal(isatty(STDERR_FILENO)) {}

static std::string clockTime(double seconds) {
    const long s = std::lround(seconds);
    return s < 3600 ? fmt::format("{}:{:02}", s / 60, s % 60)
                    : fmt::format("{}:{:02}:{:02}", s / 3600, s / 60 % 60, s % 60);
}

void ProgressLine::update(const Progress& progress) {
    const double elapsed = m_rendering.seconds();
    if (m_quiet || !m_terminal || elapsed - m_lastDrawn < 0.2) return;
    m_lastDrawn = elapsed;
    m_drawn = true;
    const double remaining = elapsed * (1.0 - progress.done) / progress.done;
    std::cerr << fmt::format("\r\x1b[K{:5.1f}%  {} elapsed, {} to go, {:.2f} million rays/s", 100.0 * progress.done,
                             clockTime(elapsed), clockTime(remaining),
                             1e-6 * static_cast<double>(progress.rays) / elapsed)
              << std::flush;
}

void ProgressLine::step(const std::string& what) {
    if (m_quiet) return;
    if (m_drawn) std::cerr << "\r\x1b[K";
    m_drawn = false;
    std::cerr << oneLine(what) << std::endl;
    m_rendering = Stopwatch();
}

}  // namespace oxbeam
