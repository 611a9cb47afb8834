#include "Apps/view/RenderThread.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/view/Rendering.h"
#include "Engine/System/Stopwatch.h"

#include <algorithm>
#include <utility>

namespace oxbeam {

using Clock = std::chrono::steady_clock;

// Without a word from the window, what moved is taken to rest after this long.
static constexpr std::chrono::milliseconds Settling(120);

RenderThread::RenderThread() : m_thread([this] { run(); }) {}

RenderThread::~RenderThread() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
        if (m_loop) m_loop->cancel();
    }
    m_wake.notify_one();
    m_thread.join();
}

// ---- For the window

void RenderThread::post(Posted posted) {
    {
        const std::lock_guard lock(m_mutex);
        m_changes.push_back(std::move(posted));
        m_rest = false;
        if (m_mayCancel && !m_cancelled) {
            m_loop->cancel();
            m_cancelled = Clock::now();
        }
    }
    m_wake.notify_one();
}

void RenderThread::show(std::shared_ptr<Loaded> loaded, std::vector<Posted> changes) {
    {
        const std::lock_guard lock(m_mutex);
        m_scene = std::make_shared<SceneInfo>(loaded->info);
        m_next = Next{std::move(loaded), std::move(changes)};
        m_changes.clear();
        m_cancelled.reset();
        if (m_loop) m_loop->cancel();
    }
    m_wake.notify_one();
}

void RenderThread::change(Change change) { post({std::move(change), false}); }

void RenderThread::rebuild(Change change) { post({std::move(change), true}); }

void RenderThread::compare(std::vector<Posted> there, std::vector<Posted> back) {
    change([this, there = std::move(there), back = std::move(back)](Rendering&) {
        m_compared = Compared{there, back};
    });
}

void RenderThread::compareNoMore() {
    change([this](Rendering&) { m_compared.reset(); });
}

void RenderThread::atRest(Change use) {
    {
        const std::lock_guard lock(m_mutex);
        m_atRest.push_back(std::move(use));
    }
    m_wake.notify_one();
}

void RenderThread::rest() {
    {
        const std::lock_guard lock(m_mutex);
        m_rest = true;
    }
    m_wake.notify_one();
}

std::shared_ptr<const SceneInfo> RenderThread::scene() const {
    const std::lock_guard lock(m_mutex);
    return m_scene;
}

std::exception_ptr RenderThread::failure() const {
    const std::lock_guard lock(m_mutex);
    return m_failure;
}

void RenderThread::say(const std::string& message) {
    const std::lock_guard lock(m_mutex);
    m_messages.push_back(message);
}

std::vector<std::string> RenderThread::takeMessages() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_messages, {});
}

RenderThread::Pulse RenderThread::pulse() const {
    const std::lock_guard lock(m_mutex);
    return m_pulse;
}

// ---- The thread

// False: the end.
bool RenderThread::takeNext(Next& next) {
    std::unique_lock lock(m_mutex);
    m_wake.wait(lock, [&] { return m_ending || m_next; });
    if (m_ending) return false;
    next = std::move(*std::exchange(m_next, std::nullopt));
    return true;
}

// A scene that comes to nothing when its first frame begins leaves the picture of the one before.
void RenderThread::run() try {
    for (Next next; takeNext(next); next = {}) {
        try {
            render(next);
        } catch (const std::exception& e) {
            if (m_frame.number == 0) throw;
            say(e.what());
        }
    }
} catch (...) {
    const std::lock_guard lock(m_mutex);
    m_failure = std::current_exception();
}

void RenderThread::tell(const World& world, const Registry& registry) {
    auto info = std::make_shared<SceneInfo>(describe(world, registry));
    info->image = m_whole;
    const std::lock_guard lock(m_mutex);
    if (m_next) return;  // the window knows of another already
    info->file = m_scene->file;
    info->samples = m_scene->samples;
    info->framed = m_scene->framed;
    m_scene = std::move(info);
}

// What goes wrong with it is said; answers whether nothing did.
bool RenderThread::attempt(const std::function<void()>& what) {
    try {
        what();
        return true;
    } catch (const std::exception& e) {
        say(e.what());
    } catch (...) {
        say("an exception of a type of a package's own");
    }
    return false;
}

// Answers whether there was a change. What waits for a full pass has to be asked for.
bool RenderThread::takeChanges(Rendering& rendering, bool atRest) {
    std::vector<Posted> changes;
    std::deque<Change> uses;
    {
        const std::lock_guard lock(m_mutex);
        if (m_next) return false;
        changes.swap(m_changes);
        if (atRest && changes.empty()) uses.swap(m_atRest);
        if (m_cancelled) {
            const std::chrono::duration<double> took = Clock::now() - *std::exchange(m_cancelled, std::nullopt);
            if (m_pulse.cancelling.size() >= 1000) m_pulse.cancelling.erase(m_pulse.cancelling.begin());
            m_pulse.cancelling.push_back(took.count());
        }
    }
    for (const Change& use : uses) attempt([&] { use(rendering); });
    return apply(rendering, changes);
}

// Answers whether there were any. They see the picture's full size, which the coarse one hides.
bool RenderThread::apply(Rendering& rendering, const std::vector<Posted>& changes) {
    if (changes.empty()) return false;
    rendering.world.image = m_whole;
    if (m_other) turn(rendering);
    bool rebuilt = false;
    for (const Posted& posted : changes) {
        attempt([&] { posted.change(rendering); });
        rebuilt = rebuilt || posted.rebuilds;
    }
    m_whole = rendering.world.image;
    if (rebuilt) tell(rendering.world, rendering.registry);
    return true;
}

void RenderThread::begin(FrameLoop& loop, World& world, unsigned divider, unsigned samples) {
    world.image = Pacer::divided(m_whole, divider);
    const FrameInfo frame{m_whole, divider, samples, world.viewInForce(), world.fov, m_frame.number + 1, m_other};
    m_developer.look(loop, frame, [&] { m_failed = !attempt([&] { loop.restart(); }); });
    m_frame = frame;
    m_seconds = 0.0;
    notePulse(loop);
}

void RenderThread::notePulse(const FrameLoop& loop) {
    const unsigned passes = loop.passes();
    const auto rays = static_cast<double>(loop.statistics().rays.total());
    const std::lock_guard lock(m_mutex);
    m_pulse.divider = m_frame.divider;
    if (m_frame.divider > 1) m_pulse.moving = m_frame.divider;
    m_pulse.passes = passes;
    m_pulse.samples = m_frame.samples;
    m_pulse.done = m_frame.divider == 1 && passes >= m_frame.samples;
    if (m_seconds > 0.0) m_pulse.raysPerSecond = rays / m_seconds;
    m_pulse.secondsLeft = passes ? m_seconds / passes * (m_frame.samples - passes) : 0.0;
}

// While something moves, each picture is let through: changes come faster than pictures do.
void RenderThread::step(FrameLoop& loop) {
    const bool coarse = m_frame.divider > 1;
    {
        const std::lock_guard lock(m_mutex);
        if (m_ending || m_next || (!m_moving && !m_changes.empty())) return;
        m_mayCancel = !m_moving;
    }
    const Stopwatch clock;
    bool whole = false;
    m_failed = !attempt([&] { whole = loop.step(); });
    const double seconds = clock.seconds();
    m_seconds += seconds;
    {
        const std::lock_guard lock(m_mutex);
        m_mayCancel = false;
        if (whole && loop.passes() == 1) ++(coarse ? m_pulse.coarsePictures : m_pulse.pictures);
    }
    if (!whole) return;
    if (loop.passes() == 1) m_pacer.measured(m_frame.divider, seconds);
    if (std::exchange(m_moving, false))
        m_developer.give(loop.film().copy(), m_frame);
    else
        m_developer.passDone();
    notePulse(loop);
}

// ---- Comparing

unsigned RenderThread::passesWanted() const {
    return m_frame.divider > 1 || (m_compared && m_firstPasses) ? 1 : m_frame.samples;
}

// To the other of the two that are compared.
void RenderThread::turn(Rendering& rendering) {
    for (const Posted& posted : m_other ? m_compared->back : m_compared->there)
        attempt([&] { posted.change(rendering); });
    m_other = !m_other;
}

// Where the one has its passes, and the other is to have some: coarse pictures in turn, however many changes wait.
bool RenderThread::takeTurns(FrameLoop& loop, Rendering& rendering) {
    const bool coarse = m_frame.divider > 1, again = m_other && !coarse && m_firstPasses;
    if (!m_compared || m_failed || loop.passes() < passesWanted() || (m_other && !again)) return false;
    if (!coarse) m_developer.give(loop.film().copy(), m_frame);
    if (again) m_firstPasses = false;
    turn(rendering);
    m_moving = coarse;
    begin(loop, rendering.world, m_frame.divider, m_frame.samples);
    return true;
}

bool RenderThread::isAskedForFilm() const {
    const std::lock_guard lock(m_mutex);
    return !m_atRest.empty();
}

// For the next change or the end; answers whether what moved has come to rest instead.
bool RenderThread::waitForMore(bool coarse) {
    std::unique_lock lock(m_mutex);
    const auto more = [&] { return m_ending || m_next || !m_changes.empty() || (coarse ? m_rest : !m_atRest.empty()); };
    if (coarse)
        m_wake.wait_for(lock, Settling, more);
    else
        m_wake.wait(lock, more);
    return coarse && !m_ending && !m_next && m_changes.empty();
}

// Other threads know of a loop as long as it is there.
struct RenderThread::Using {
    Using(RenderThread& user, FrameLoop& loop) : thread(user) {
        const std::lock_guard lock(thread.m_mutex);
        thread.m_loop = &loop;
    }
    ~Using() {
        thread.m_developer.lookAway();
        const std::lock_guard lock(thread.m_mutex);
        thread.m_loop = nullptr;
    }
    Using(const Using&) = delete;
    Using& operator=(const Using&) = delete;

    RenderThread& thread;
};

// Of what is rendered now.
bool RenderThread::ending() const {
    const std::lock_guard lock(m_mutex);
    return m_ending || m_next;
}

void RenderThread::render(Next& next) {
    World& world = *next.loaded->world;
    Workers workers(next.loaded->threads);
    m_whole = world.image;
    m_moving = true;
    m_compared.reset();
    m_other = false;
    m_pacer = {};
    m_frame.samples = next.loaded->info.samples;
    world.image = Pacer::divided(m_whole, Pacer::coarsest(m_whole));
    FrameLoop loop(world, workers, {std::nullopt, false, true, world.transparentBackground});
    const Using use(*this, loop);
    Rendering rendering{world, loop, *next.loaded->registry};
    world.image = m_whole;
    apply(rendering, next.changes);
    begin(loop, world, m_pacer.divider(m_whole), m_frame.samples);
    while (!ending()) {
        const bool coarse = m_frame.divider > 1;
        rendering.seconds = m_seconds;
        if (coarse && takeTurns(loop, rendering)) continue;
        if (takeChanges(rendering, m_failed || (!coarse && !m_other && loop.passes() > 0))) {
            m_moving = true;
            begin(loop, world, m_pacer.divider(m_whole), m_frame.samples);
        } else if (!m_failed && loop.passes() < passesWanted()) {
            step(loop);
        } else if (takeTurns(loop, rendering)) {
            continue;
        } else if (m_other && !coarse && isAskedForFilm()) {  // of which there is only the other's any more
            turn(rendering);
            begin(loop, world, 1, m_frame.samples);
        } else if (waitForMore(coarse)) {
            if (m_other) turn(rendering);
            m_moving = false;
            m_firstPasses = true;
            begin(loop, world, 1, m_frame.samples);
        }
    }
}

}  // namespace oxbeam
