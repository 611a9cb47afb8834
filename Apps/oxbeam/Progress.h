// What `oxbeam render` says while it works, on standard error.
#pragma once

#include "Engine/Render/Renderer.h"
#include "Engine/System/Stopwatch.h"

#include <string>

namespace oxbeam {

// A line that is redrawn in place on a terminal; elsewhere only finished steps are said, a line each.
class ProgressLine {
public:
    explicit ProgressLine(bool quiet);
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // How far the rendering is; redrawn a few times a second at most.
    void update(const Progress& progress);
    // The same of anything else: `what` is done by now, of a whole of 1.
    void update(double done, const std::string& what);
    // A step is done, and the next one begins.
    void step(const std::string& what);
    // Something is done of the one at work.
    void note(const std::string& what);
    // Takes the line away, for something else to be said.
    void clear();
    // So much of the work that begins was done before.
    void begin(double done);
    // So many frames are to be rendered from now on, each of which says how far it is.
    void expect(unsigned frames);
    void frameDone(const std::string& what);

private:
    bool isDue();
    void draw(double done, const std::string& what);

    bool m_quiet;
    bool m_terminal;
    bool m_drawn = false;
    double m_lastDrawn = -1.0, m_before = 0.0;
    Stopwatch m_rendering;
    unsigned m_frames = 0, m_framesDone = 0;  // of a sequence
};

}  // namespace oxbeam
