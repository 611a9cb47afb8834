// The frame loop: passes over tiles, on all threads.
#pragma once

#include "Engine/Render/Film.h"
#include "Engine/Render/Workers.h"
#include "Engine/World.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace oxbeam {

struct RayCounts {
    std::uint64_t primary = 0, shadow = 0, transparency = 0, refraction = 0, reflection = 0, other = 0;

    std::uint64_t total() const { return primary + shadow + transparency + refraction + reflection + other; }
};

struct RenderStatistics {
    RayCounts rays;
    std::uint64_t refusedRays = 0;  // that no hit can be found for: not finite, or absurdly far out
    std::uint64_t badSamples = 0;   // shaded to NaN or infinity, and counted as black
    unsigned passes = 0;            // complete ones
    std::string packetsRefused;     // why no packets were traced although they were asked for, else empty
};

// Done so far, of a whole of 1.
struct Progress {
    double done = 0.0;
    std::uint64_t rays = 0;
};

struct RenderOptions {
    unsigned samples = 1;                           // passes
    std::optional<Window> crop;                     // pixels outside are not kept; those inside are as without it
    bool packets = false;                           // primary rays four at a time where objects offer it
    Intersector* intersector = nullptr;             // traces in the geometry's stead, to watch what is traced
    const std::atomic<bool>* stop = nullptr;        // set from outside to end early
    std::function<void(const Progress&)> progress;  // called now and then, by one thread at a time
};

struct RenderResult {
    Film film;
    RenderStatistics statistics;
    bool complete = true;  // false: stopped from outside
};

// Renders a world whose geometry is built. One rendering at a time in a process, since packages ask for the scene
// without saying which. Throws Error(Usage) for more threads than packages keep records for.
//
// Every tile of every pass draws its own random numbers and a pixel's samples are summed in the order of the passes,
// so that the picture does not depend on the number of threads.
OXBEAM_API RenderResult render(World& world, Workers& workers, const RenderOptions& options);

// Place in the pixel of a pass's sample, in [0, 1): the additive recurrence whose points keep apart best in two
// dimensions (M. Roberts, "The unreasonable effectiveness of quasirandom sequences", 2018), from the centre on.
OXBEAM_API R2 samplePlace(unsigned pass);

// Side of a tile, in pixels.
inline constexpr unsigned TileSize = 16;

}  // namespace oxbeam
