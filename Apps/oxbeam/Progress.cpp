#include "Apps/oxbeam/Progress.h"

#include "Engine/Diagnostics/Diagnostics.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cmath>
#include <iostream>
#include <utility>

namespace oxbeam {

ProgressLine::ProgressLine(bool quiet) : m_quiet(quiet), m_terminal(isatty(STDERR_FILENO)) {}

static std::string clockTime(double seconds) {
    const long s = std::lround(seconds);
    return s < 3600 ? fmt::format("{}:{:02}", s / 60, s % 60)
                    : fmt::format("{}:{:02}:{:02}", s / 3600, s / 60 % 60, s % 60);
}

bool ProgressLine::isDue() {
    const double elapsed = m_rendering.seconds();
    if (m_quiet || !m_terminal || elapsed - m_lastDrawn < 0.2) return false;
    m_lastDrawn = elapsed;
    return true;
}

void ProgressLine::draw(double done, const std::string& what) {
    m_drawn = true;
    const double elapsed = m_rendering.seconds();
    const double gained = done - m_before;
    const std::string remaining = gained > 0.0 ? clockTime(elapsed * (1.0 - done) / gained) : "?";
    std::cerr << fmt::format("\r\x1b[K{:5.1f}%  {} elapsed, {} to go, {}", 100.0 * done, clockTime(elapsed), remaining,
                             what)
              << std::flush;
}

void ProgressLine::update(const Progress& progress) {
    if (!isDue()) return;
    if (m_frames)
        draw((m_framesDone + progress.done) / m_frames, fmt::format("frame {} of {}", m_framesDone + 1, m_frames));
    else
        draw(progress.done,
             fmt::format("{:.2f} million rays/s", 1e-6 * static_cast<double>(progress.rays) / m_rendering.seconds()));
}

void ProgressLine::update(double done, const std::string& what) {
    if (isDue()) draw(done, what);
}

void ProgressLine::expect(unsigned frames) {
    m_frames = frames;
    begin(0.0);
}

void ProgressLine::frameDone(const std::string& what) {
    ++m_framesDone;
    const double left = m_rendering.seconds() * (m_frames - m_framesDone) / m_framesDone;
    note(m_framesDone < m_frames ? fmt::format("{}, {} to go", what, clockTime(left)) : what);
}

void ProgressLine::step(const std::string& what) {
    note(what);
    begin(0.0);
}

void ProgressLine::note(const std::string& what) {
    if (m_quiet) return;
    clear();
    std::cerr << oneLine(what) << std::endl;
}

void ProgressLine::clear() {
    if (std::exchange(m_drawn, false)) std::cerr << "\r\x1b[K" << std::flush;
}

void ProgressLine::begin(double done) {
    m_before = done;
    m_rendering = Stopwatch();
    m_lastDrawn = -1.0;
}

}  // namespace oxbeam
