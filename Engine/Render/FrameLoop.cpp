#include "Engine/Render/FrameLoop.h"

#include "Engine/Render/Frame.h"

#include <exception>
#include <mutex>
#include <shared_mutex>

namespace oxbeam {

struct FrameLoop::Parts {
    World& world;
    Workers& workers;
    FrameOptions wanted;
    RenderOptions options;
    Matte matte{world.environment};
    std::optional<Session> session;
    mutable std::shared_mutex filmLock;
    std::atomic<bool> cancelled{false};
    std::atomic<unsigned> passes{0};
    std::optional<Film> film;
    std::optional<Frame> frame;

    Parts(World& w, Workers& threads, const FrameOptions& o) : world(w), workers(threads), wanted(o) {
        options.stop = &cancelled;
        options.filmLock = &filmLock;
    }

    void begin();
};

// The film is another before anybody can look at it, and the session's matte is one where the film keeps alphas.
void FrameLoop::Parts::begin() {
    frame.reset();
    workers.within([&] { world.geometry.build(); });
    const bool hadAlpha = film && film->hasAlpha();
    const Window whole{0, 0, world.image.width, world.image.height};
    Film blank(wanted.crop.value_or(whole), wanted.aovs, wanted.alpha);
    {
        const std::unique_lock lock(filmLock);
        film.emplace(std::move(blank));
        passes = 0;
    }
    options.packets = wanted.packets;
    if (session && hadAlpha == wanted.alpha) {
        session->newFrame();
    } else {
        session.reset();
        session.emplace(world, nullptr, wanted.alpha ? &matte : nullptr);
    }
    frame.emplace(world, *session, wanted.alpha ? &matte : nullptr, *film, options);
}

FrameLoop::FrameLoop(World& world, Workers& workers, const FrameOptions& options) {
    requireRecords(workers);
    m_parts = std::make_unique<Parts>(world, workers, options);
    m_parts->begin();
}

FrameLoop::~FrameLoop() = default;

void FrameLoop::restart() { m_parts->begin(); }

void FrameLoop::restart(const FrameOptions& options) {
    m_parts->wanted = options;
    m_parts->begin();
}

bool FrameLoop::step() {
    const bool whole = m_parts->frame->renderPass(m_parts->workers, m_parts->passes);
    if (m_parts->frame->failure()) std::rethrow_exception(m_parts->frame->failure());
    if (whole) ++m_parts->passes;
    return !m_parts->cancelled.exchange(false) || whole;
}

void FrameLoop::cancel() { m_parts->cancelled = true; }

unsigned FrameLoop::passes() const { return m_parts->passes; }

Film FrameLoop::seen() const {
    const std::unique_lock lock(m_parts->filmLock);
    return m_parts->film->copy();
}

const Film& FrameLoop::film() const { return *m_parts->film; }

const RenderStatistics& FrameLoop::statistics() const { return m_parts->frame->statistics(); }

}  // namespace oxbeam
