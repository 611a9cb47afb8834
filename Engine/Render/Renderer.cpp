#include "Engine/Render/Renderer.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Host/ThreadRecord.h"
#include "Oxbeam/OxFunctions.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>
#include <vector>

namespace oxbeam {

R2 samplePlace(unsigned pass) {
    // Reciprocals of the plastic number and of its square, as fractions of 2^64.
    constexpr std::uint64_t a1 = 0xC13FA9A902A6328Full, a2 = 0x91E10DA5C79E7B1Dull, half = 1ull << 63;
    const auto place = [&](std::uint64_t a) { return static_cast<float>((half + a * pass) >> 40) * 0x1p-24f; };
    return {place(a1), place(a2)};
}

// The services that take no state answer from this world while it exists.
class CurrentWorld {
public:
    CurrentWorld(World& world) : m_lock(s_mutex) {
        m_context.scene = &world.geometry.scene();
        m_context.shaders = world.shaders;
        m_context.lights = world.lights;
        for (OxLight* light : world.lights) m_context.lightHandles.push_back(light);
        m_context.environment = world.environment;
        m_context.camera = world.camera;
        OxContext::current = &m_context;
        TextureList::current = &world.textures;
    }
    ~CurrentWorld() {
        OxContext::current = nullptr;
        TextureList::current = nullptr;
    }
    CurrentWorld(const CurrentWorld&) = delete;
    CurrentWorld& operator=(const CurrentWorld&) = delete;

private:
    static std::mutex s_mutex;
    std::scoped_lock<std::mutex> m_lock;
    OxContext m_context;
};

std::mutex CurrentWorld::s_mutex;

// ---- Between frames

static void aimCamera(World& world) {
    const View view = world.view ? *world.view : world.framingView();
    const float top = std::tan(0.5f * world.fov * 3.14159265f / 180.0f);
    const float right = top * static_cast<float>(world.image.width) / static_cast<float>(world.image.height);
    world.camera->InitCamera(view.position, view.lookAt, view.lookUp, world.image.width, world.image.height, -right,
                             right, -top, top, 1.0f);
}

// The environment comes before the surfaces: it may add lights to the list that they read.
static void newFrame(World& world) {
    world.renderingObject->m_rayEpsilon = world.epsilon();
    world.environment->m_ro = world.renderingObject;
    for (OxShader* shader : world.shaders) shader->m_ro = world.renderingObject;
    aimCamera(world);
    world.renderingObject->NewFrame();
    world.camera->NewFrame();
    world.environment->NewFrame();
    for (OxLight* light : world.lights) light->NewFrame();
    for (OxShader* shader : world.shaders) shader->NewFrame();
}

// ---- During a frame

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

// What all threads share while a frame is rendered.
class Frame {
public:
    Frame(World& world, Film& film, const RenderOptions& options)
        : m_world(world), m_film(film), m_options(options), m_tiles(world.image) {
        world.renderingObject->m_tilesPerFrame = m_tiles.count();
        for (unsigned tile = 0; tile < m_tiles.count(); ++tile)
            if (m_tiles.window(tile).overlaps(film.window())) m_wanted.push_back(tile);
    }

    // Renders all passes; false where it was stopped from outside.
    bool render(Workers& workers) {
        const auto items = static_cast<unsigned>(m_wanted.size());
        for (unsigned pass = 0; pass < m_options.samples && !stopped(); ++pass) {
            workers.run(items, [&](unsigned thread, unsigned item) {
                if (!stopped()) renderTile(thread, m_wanted[item], pass);
            });
            if (!stopped()) m_statistics.passes = pass + 1;
        }
        return m_statistics.passes == m_options.samples;
    }

    const RenderStatistics& statistics() const { return m_statistics; }

private:
    bool stopped() const { return m_options.stop && m_options.stop->load(std::memory_order_relaxed); }
    void renderTile(unsigned thread, unsigned tile, unsigned pass);
    R3 samplePixel(unsigned thread, unsigned x, unsigned y, unsigned pass, const R2& place) const;
    void finishTile(const ThreadRecord& record, std::uint64_t badSamples);

    World& m_world;
    Film& m_film;
    const RenderOptions& m_options;
    Tiles m_tiles;
    std::vector<unsigned> m_wanted;  // tiles that the film sees

    std::mutex m_mutex;  // of all that follows
    RenderStatistics m_statistics;
    std::size_t m_finished = 0;
};

// A tile is rendered whole even where the film keeps a part of it: its pixels share a sequence of random numbers.
void Frame::renderTile(unsigned thread, unsigned tile, unsigned pass) {
    ThreadRecord& record = ThreadRecord::mine();
    record = ThreadRecord{};
    record.sampleIndex = pass;
    m_world.renderingObject->initTile(thread, tile);
    const R2 place = samplePlace(pass);
    const Window window = m_tiles.window(tile);
    std::uint64_t badSamples = 0;
    for (unsigned y = window.y0; y < window.y1; ++y)
        for (unsigned x = window.x0; x < window.x1; ++x) {
            R3 color = samplePixel(thread, x, y, pass, place);
            if (!m_film.window().contains(x, y)) continue;
            if (!IsFinite(color)) {
                color = Black;
                ++badSamples;
            }
            m_film.add(x, y, color);
        }
    finishTile(record, badSamples);
}

R3 Frame::samplePixel(unsigned thread, unsigned x, unsigned y, unsigned pass, const R2& place) const {
    OxState state;
    state.intersector = &m_world.geometry.intersector();
    state.scene = &m_world.geometry.scene();
    state.m_ro = m_world.renderingObject;
    state.ray.visibilityMask = RAY_PRIMARY;
    m_world.renderingObject->initRay(state, pass, thread);
    const float pattern[2] = {place.x, place.y};
    if (!m_world.camera->InitPrimaryRay(&state, static_cast<int>(x), static_cast<int>(y), pattern)) return Black;
    if (oxsShootRay(&state))
        oxsGetShader(&state)->Shade(&state);
    else
        oxsShadeEnvironment(&state);
    return state.color;
}

void Frame::finishTile(const ThreadRecord& record, std::uint64_t badSamples) {
    const std::scoped_lock lock(m_mutex);
    RayCounts& rays = m_statistics.rays;
    const auto total = [&](RayKind kind) { return record.rays[static_cast<unsigned>(std::countr_zero(+kind))]; };
    rays.primary += total(RAY_PRIMARY);
    rays.shadow += total(RAY_SHADOW);
    rays.transparency += total(RAY_TRANSPARENCY);
    rays.refraction += total(RAY_REFRACTION);
    rays.reflection += total(RAY_REFLECTION);
    for (unsigned bit = 5; bit < record.rays.size(); ++bit) rays.other += record.rays[bit];
    m_statistics.refusedRays += record.refusedRays;
    m_statistics.badSamples += badSamples;
    ++m_finished;
    if (!m_options.progress) return;
    const double all = static_cast<double>(m_wanted.size()) * m_options.samples;
    m_options.progress({static_cast<double>(m_finished) / all, rays.total()});
}

RenderResult render(World& world, Workers& workers, const RenderOptions& options) {
    if (workers.threads() > OxRenderingObject::MaxThreads)
        throw Error(ExitStatus::Usage, fmt::format("{} threads; packages keep records for at most {}", workers.threads(),
                                                   OxRenderingObject::MaxThreads));
    const CurrentWorld current(world);
    newFrame(world);
    RenderResult result{Film(options.crop.value_or(Window{0, 0, world.image.width, world.image.height})), {}, true};
    Frame frame(world, result.film, options);
    result.complete = frame.render(workers);
    result.statistics = frame.statistics();
    return result;
}

}  // namespace oxbeam
