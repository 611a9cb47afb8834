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
    const double done = m_frames ? (m_framesDone + progress.done) / m_frames : progress.done;
    const std::string frame = m_frames ? fmt::format("frame {} of {}  ", m_framesDone + 1, m_frames) : "";
    const std::string speed =
        m_frames ? "" : fmt::format(", {:.2f} million rays/s", 1e-6 * static_cast<double>(progress.rays) / elapsed);
    std::cerr << fmt::format("\r\x1b[K{}{:5.1f}%  {} elapsed, {} to go{}", frame, 100.0 * done, clockTime(elapsed),
                             clockTime(elapsed * (1.0 - done) / done), speed)
              << std::flush;
}

void ProgressLine::expect(unsigned frames) {
    m_frames = frames;
    m_rendering = Stopwatch();
}

void ProgressLine::frameDone(const std::string& what) {
    const Stopwatch begun = m_rendering;
    ++m_framesDone;
    const double left = begun.seconds() * (m_frames - m_framesDone) / m_framesDone;
    step(m_framesDone < m_frames ? fmt::format("{}, {} to go", what, clockTime(left)) : what);
    m_rendering = begun;  // all of them are one work
}

void ProgressLine::step(const std::string& what) {
    if (m_quiet) return;
    if (m_drawn) std::cerr << "\r\x1b[K";
    m_drawn = false;
    std::cerr << oneLine(what) << std::endl;
    m_rendering = Stopwatch();
}

}  // namespace oxbeam
