// The frame loop: passes over tiles, on all threads.
#pragma once

#include "Engine/Render/Film.h"
#include "Engine/System/Workers.h"
#include "Engine/World/World.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

namespace oxbeam {

struct RayCounts {
    std::uint64_t primary = 0, shadow = 0, transparency = 0, refraction = 0, reflection = 0, other = 0;

    std::uint64_t total() const { return primary + shadow + transparency + refraction + reflection + other; }
};

struct RenderStatistics {
    RayCounts rays;
    std::uint64_t refusedRays = 0;  // that no hit can be found for: not finite, or absurdly far out
    std::uint64_t badSamples = 0;   // shaded to NaN or infinity, and counted as black
    // Of those, the ones whose primary rays saw an object of this class.
    std::map<std::string, std::uint64_t> badSamplesOf;
    std::uint64_t overflowedPixels = 0;  // of which a sum did not fit a float, and was limited to what does
    unsigned passes = 0;                 // complete ones, also those that were rendered before it went on
    std::string packetsRefused;          // why no packets were traced although they were asked for, else empty
};

// Done so far of what is to be done, a whole of 1.
struct Progress {
    double done = 0.0;
    std::uint64_t rays = 0;
};

struct RenderResult;

struct RenderOptions {
    unsigned samples = 1;                           // passes
    std::optional<Window> crop;                     // pixels outside are not kept; those inside are as without it
    bool packets = false;                           // primary rays four at a time where objects offer it
    bool aovs = false;                              // the film keeps AOVs
    bool alpha = false;                             // it keeps alphas, and colours without the environment behind them
    std::optional<double> seconds;                  // only as many whole passes as fit, one at least
    Intersector* intersector = nullptr;             // traces in the geometry's stead, to watch what is traced
    const std::atomic<bool>* stop = nullptr;        // set from outside to end early
    std::function<void(const Progress&)> progress;  // called now and then, by one thread at a time
    // Called while no thread renders, with what has been counted since this rendering began, ...
    std::function<void(const Film&, const RenderStatistics&)> save;
    double saveEvery = 60.0;  // ... with this many seconds in between
    // Called where a package ends the process by exit(), before that does: with what would be the result had it thrown, on
    // a thread of its own, while no other renders any more.
    std::function<void(const RenderResult&)> ended;
    std::vector<std::uint64_t>* tileRays = nullptr;  // counts the rays of every tile of the picture, row by row
    std::shared_mutex* filmLock = nullptr;  // held for good by who looks at the film; tiles wait for it to be kept
};

// State of the random numbers that are the whole process' (drand48): those of packages that keep none of their own.
using RandomState = std::array<unsigned short, 3>;

OXBEAM_API RandomState randomState();

// A rendering that ended early, to go on from. The film may hold a part of a pass: whole tiles of it.
struct Begun {
    Film film;
    RandomState random{};
};

struct RenderResult {
    Film film;
    RenderStatistics statistics;
    bool complete = true;  // false: stopped from outside, or by a failure
    // What a package or the machine ended the rendering with, an exception, or null. The film holds what was rendered
    // before, to be saved.
    std::exception_ptr failure = nullptr;
};

// Renders a world whose geometry is built. One rendering at a time in a process, since packages ask for the scene
// without saying which. Throws Error(Usage) for more threads than packages keep records for.
//
// Every tile of every pass draws its own random numbers and a pixel's samples are summed in the order of the passes,
// so that the picture does not depend on the number of threads.
OXBEAM_API RenderResult render(World& world, Workers& workers, const RenderOptions& options);
// Goes on from where another rendering of the same world with the same crop, packets, AOVs and alpha ended, and ends with the
// very bits of one that did not stop; also where more passes are wanted now than were then. Random numbers of the whole
// process repeat on one thread only, as without stopping.
OXBEAM_API RenderResult render(World& world, Workers& workers, const RenderOptions& options, Begun begun);

// Place in the pixel of a pass's sample, in [0, 1), before the world's filter moves it: the additive recurrence whose points keep apart best in two
// dimensions (M. Roberts, "The unreasonable effectiveness of quasirandom sequences", 2018), from the centre on.
OXBEAM_API R2 samplePlace(unsigned pass);

// Side of a tile, in pixels.
inline constexpr unsigned TileSize = 16;

}  // namespace oxbeam
