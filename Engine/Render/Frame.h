// What all threads share while a frame is rendered. For the frame loops alone.
#pragma once

#include "Engine/Render/Aovs.h"
#include "Engine/Render/Matte.h"
#include "Engine/Render/PacketPath.h"
#include "Engine/Render/PixelBlocks.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/Session.h"
#include "Engine/Render/ShadowsAhead.h"
#include "Engine/System/Stopwatch.h"
#include "Engine/System/ThreadRecord.h"

#include <array>
#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <vector>

namespace oxbeam {

struct Tiles {
    unsigned across, down;
    ImageSize image;

    explicit Tiles(const ImageSize& size)
        : across((size.width + TileSize - 1) / TileSize), down((size.height + TileSize - 1) / TileSize), image(size) {}

    unsigned count() const { return across * down; }
    Window window(unsigned tile) const {
        const unsigned x = tile % across * TileSize, y = tile / across * TileSize;
        return {x, y, std::min(x + TileSize, image.width), std::min(y + TileSize, image.height)};
    }
};

// By pixel of a tile, row by row; see pixelOfTile.
using TileColors = std::array<R3, TileSize * TileSize>;
using TileAlphas = std::array<float, TileSize * TileSize>;
using TileAovs = std::array<AovSample, TileSize * TileSize>;

struct TileSamples {
    TileColors colors;
    TileAlphas alphas;  // where the film keeps them
};

// Tiles begin at multiples of their side.
inline std::size_t pixelOfTile(unsigned x, unsigned y) { return std::size_t{y % TileSize} * TileSize + x % TileSize; }

// Throws Error(Usage) for more threads than packages keep records for.
void requireRecords(const Workers& workers);

class Frame {
public:
    // A film with alphas needs a matte, which stands in for the environment of the session.
    Frame(World& world, const Session& session, Matte* matte, Film& film, const RenderOptions& options);

    // Renders all passes; false where it was stopped from outside.
    bool render(Workers& workers);
    // Renders what is yet to be done of a pass; false where it was stopped from outside. Tiles that were begun then are
    // not kept.
    bool renderPass(Workers& workers, unsigned pass);

    // From a thread that does not render, in the midst of it: ends it as if a package had thrown. False where the threads do
    // not come back, but for so many that are held; the film is theirs then.
    bool abandon(const Error& why, const std::atomic<unsigned>& held);

    const RenderStatistics& statistics() const { return m_statistics; }
    // What a package or the machine ended it with, or null.
    const std::exception_ptr& failure() const { return m_failure; }

private:
    bool isDone(unsigned tile, unsigned pass) const;
    bool stopped() const {
        return m_failed.load(std::memory_order_relaxed) ||
               (m_options.stop && m_options.stop->load(std::memory_order_relaxed));
    }
    void tryTile(unsigned thread, unsigned tile, unsigned pass);
    void fail(const std::exception_ptr& failure);
    void sumUp();
    void noteBad(const OxState& state);
    void renderTile(unsigned thread, unsigned tile, unsigned pass);
    bool sampleTile(const PrimarySample& sample, const Window& window, TileSamples& samples);
    bool sampleBlocks(const PrimarySample& sample, const Window& window, TileSamples& samples);
    bool samplePackets(const PrimarySample& sample, const Window& window, TileSamples& samples);
    void samplePackets(const PrimarySample& sample, const Window& window, unsigned y, TileColors& colors);
    void samplePixel(const PrimarySample& sample, unsigned x, unsigned y, TileSamples& samples);
    void shadeSample(OxState& state, const PrimarySample& sample, unsigned x, unsigned y, TileSamples& samples);
    AovSample& aovsAt(unsigned thread, unsigned x, unsigned y);
    std::uint64_t keep(const Window& window, const TileColors& colors);
    void keepAlphas(const Window& window, const TileAlphas& alphas);
    void keepAovs(const Window& window, const TileAovs& aovs);
    void finishTile(unsigned tile, const ThreadRecord& record, std::uint64_t badSamples);

    World& m_world;
    const Session& m_session;
    Matte* m_matte;  // or null
    Film& m_film;
    const RenderOptions& m_options;
    Tiles m_tiles;
    std::vector<unsigned> m_wanted;  // tiles that the film sees
    std::optional<AovSampler> m_aovs;
    std::vector<TileAovs> m_tileAovs;  // by thread
    bool m_alone = false;              // one thread renders
    std::optional<PacketPath> m_packets;
    std::optional<PixelBlocks> m_blocks;  // where the camera is exactly the host's own
    std::optional<ShadowsAhead> m_ahead;  // where it has something to trace for such blocks
    std::size_t m_begun = 0;              // tiles of all passes that were done before
    R2 m_place;                           // in the pixel, of the pass' samples
    std::atomic<bool> m_pause{false};     // no thread begins a tile: the film is to be saved
    std::atomic<bool> m_failed{false};
    std::atomic<unsigned> m_atWork{0};  // threads at a tile
    Stopwatch m_clock;

    std::mutex m_mutex;            // of all that follows
    std::exception_ptr m_failure;  // the first
    RenderStatistics m_statistics;
    std::size_t m_finished = 0;
    double m_saved = 0.0;  // when that was last
};

}  // namespace oxbeam
