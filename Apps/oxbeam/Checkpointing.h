// Saving a rendering while it goes on, and going on from what was saved.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Engine/Output/Checkpoint.h"
#include "Engine/Render/Renderer.h"
#include "Engine/System/Stopwatch.h"

#include <functional>
#include <optional>
#include <string>

namespace oxbeam {

class Checkpointing {
public:
    // All must outlive it. Without --checkpoint it does nothing.
    Checkpointing(const RenderCommand& command, const World& world, const Inputs& inputs)
        : m_command(command), m_world(world), m_inputs(inputs) {}

    // What --resume goes on from; nothing without it. Throws Error where that cannot be.
    std::optional<Begun> begun(const RenderOptions& options);
    // What a checkpoint holds, to go on from it. Throws Error where that cannot be.
    Begun begunIn(Checkpoint& checkpoint, const RenderOptions& options) const;
    // It goes on from this one.
    void follow(const Checkpoint& checkpoint) { m_before = checkpoint.number("oxbeam:renderTime"); }
    // Has the rendering save itself. When that fails it is warned of, once until it works again.
    void attachTo(RenderOptions& options);
    // The rendering begins.
    void start() { m_clock = Stopwatch(); }
    // When it has ended.
    bool save(const Film& film, const RenderStatistics& counted);
    // What stands in the checkpoint's header beside the rest.
    std::function<void(Attributes&, const RenderStatistics& counted)> addTo;

    // Time that went into the picture, also before it was resumed.
    double seconds() const { return m_before + m_clock.seconds(); }

private:
    void warn(const char* message);

    const RenderCommand& m_command;
    const World& m_world;
    const Inputs& m_inputs;
    Stopwatch m_clock;
    double m_before = 0.0;
    bool m_failing = false;
};

}  // namespace oxbeam
