// A picture that is rendered step by step, by a program that changes the world in between: viewers, notebooks, farms.
#pragma once

#include "Engine/Render/Renderer.h"

#include <memory>
#include <optional>

namespace oxbeam {

struct FrameOptions {
    std::optional<Window> crop;  // as in RenderOptions, all of them
    bool packets = false;
    bool aovs = false;
    bool alpha = false;
};

// While it exists, its world has the process' one session, and one thread makes, steps and ends both; `cancel`, `seen` and
// `passes` are for any thread. After as many steps the film has the bits that `render` gives for as many samples of a
// scene that was loaded as the world is now. What changes is told in World.h; between a change and the next `restart`
// nothing may be stepped.
class OXBEAM_API FrameLoop {
public:
    // Begins a frame; builds the geometry if that is yet to be done. World and workers must outlive it. Throws what
    // `render` does, and std::logic_error where this thread has a session already.
    FrameLoop(World& world, Workers& workers, const FrameOptions& options = {});
    ~FrameLoop();
    FrameLoop(const FrameLoop&) = delete;
    FrameLoop& operator=(const FrameLoop&) = delete;

    // Begins a frame with the world as it is now, and with a blank film of its size. Brings the structure that rays are
    // traced through up to date, which costs what the changes cost; else all but nothing.
    void restart();
    void restart(const FrameOptions& options);

    // Renders one pass more, or the rest of one that was cancelled. False: it was cancelled; what was done of it is in the
    // film, in whole tiles. Throws what a package or the machine ended it with; the film holds what was done before.
    bool step();
    // Ends the step under way, or else the next one, within the time of sixteen pixels.
    void cancel();

    // Complete passes.
    unsigned passes() const;
    // A copy of the film as it is now; tiles are whole in it, but have not all been through as many passes while a step is
    // under way. Holds up the threads that render for as long as copying takes. Throws Error(InputOutput) beyond the
    // memory limit.
    Film seen() const;
    // The film itself, and what has been counted since the frame began; for the thread that steps.
    const Film& film() const;
    const RenderStatistics& statistics() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

}  // namespace oxbeam
