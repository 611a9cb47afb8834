// What a file says to do in the viewer, a step to a line; Docs/viewer.md has the language.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Stopwatch.h"

#include <SDL.h>

#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace oxbeam {

class Viewer;

class Script {
public:
    // Throws Error: it cannot be read, or has steps that there are not.
    explicit Script(const std::string& file);

    // Goes on as far as it can before the next frame; false: it is over. Throws Error(Incomplete) where something is not as
    // it expects, and for what does not come in time.
    bool step(Viewer& viewer);

private:
    struct Line {
        unsigned number;
        std::vector<std::string> words;
    };

    [[noreturn]] void fail(const std::string& what) const;
    bool perform(Viewer& viewer, const Line& line);
    bool wait(const Viewer& viewer, const Line& line);
    // What is not as the line has it; nothing where all is.
    std::string complaint(const Viewer& viewer, const Line& line) const;
    void point(Viewer& viewer, const Line& line);
    void slide(Viewer& viewer, const Line& line);
    void change(Viewer& viewer, const Line& line);
    void random(unsigned events);
    void report(const Viewer& viewer) const;
    void measure(const Viewer& viewer);
    const std::string& word(const Line& line, std::size_t i) const;
    float number(const Line& line, std::size_t i) const;

    // Events that are still to come, one for each frame.
    void later(const SDL_Event& event) { m_events.push_back(event); }
    void pointer(float x, float y);
    void button(bool down, Uint8 which, Uint8 clicks = 1);
    void key(const std::string& name, bool down);

    std::string m_file;
    std::vector<Line> m_lines;
    std::size_t m_next = 0;
    std::deque<SDL_Event> m_events;
    bool m_paced = false;  // they come as those of a hand do, sixty a second
    Stopwatch m_running, m_waiting, m_sinceEvent;
    double m_timeout = 60.0;
    int m_settling = 0;  // frames until the interface has drawn what events did
    SDL_MouseMotionEvent m_pointer{};
    std::mt19937 m_random;
    // When measuring began
    Stopwatch m_measuring;
    std::uint64_t m_updates = 0;
    std::size_t m_cancelled = 0;
};

}  // namespace oxbeam
