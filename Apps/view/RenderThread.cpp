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

RenderThread::RenderThread(const ViewCommand& command)
    : m_file(command.render.scene), m_thread([this, command] { run(command); }) {}

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

void RenderThread::change(Change change) { post({std::move(change), false}); }

void RenderThread::rebuild(Change change) { post({std::move(change), true}); }

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

void RenderThread::run(const ViewCommand& command) try {
    Registry registry;
    registry.loadPackages(packageFolders(command));
    const Prepared prepared = prepare(command.render, registry);
    if (!prepared.world) throw Error(ExitStatus::BadScene, "");  // everything has been said
    render(*prepared.world, registry, prepared.threads, prepared.options.samples);
} catch (...) {
    m_developer.lookAway();
    const std::lock_guard lock(m_mutex);
    m_loop = nullptr;
    m_failure = std::current_exception();
}

void RenderThread::tell(const World& world, const Registry& registry, unsigned samples) {
    auto info = std::make_shared<SceneInfo>(describe(world, registry));
    info->file = m_file;
    info->image = m_whole;
    info->samples = samples;
    const std::lock_guard lock(m_mutex);
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
    std::deque<Posted> changes;
    std::deque<Change> uses;
    {
        const std::lock_guard lock(m_mutex);
        changes.swap(m_changes);
        if (atRest && changes.empty()) uses.swap(m_atRest);
        if (m_cancelled) {
            const std::chrono::duration<double> took = Clock::now() - *std::exchange(m_cancelled, std::nullopt);
            if (m_pulse.cancelling.size() >= 1000) m_pulse.cancelling.erase(m_pulse.cancelling.begin());
            m_pulse.cancelling.push_back(took.count());
        }
    }
    for (const Change& use : uses) attempt([&] { use(rendering); });
    if (changes.empty()) return false;
    // Changes see the picture's full size, which the coarse one hides.
    rendering.world.image = m_whole;
    bool rebuilt = false;
    for (const Posted& posted : changes) {
        attempt([&] { posted.change(rendering); });
        rebuilt = rebuilt || posted.rebuilds;
    }
    m_whole = rendering.world.image;
    if (rebuilt) tell(rendering.world, rendering.registry, m_frame.samples);
    return true;
}

void RenderThread::begin(FrameLoop& loop, World& world, unsigned divider, unsigned samples) {
    world.image = Pacer::divided(m_whole, divider);
    const FrameInfo frame{m_whole, divider, samples, world.viewInForce(), world.fov, m_frame.number + 1};
    m_developer.look(loop, frame, [&] { m_failed = !attempt([&] { loop.restart(); }); });
    m_frame = frame;
    m_seconds = 0.0;
    notePulse(loop);
}

void RenderThread::notePulse(const FrameLoop& loop) {
    const unsigned passes = loop.passes();
    const std::lock_guard lock(m_mutex);
    m_pulse.divider = m_frame.divider;
    m_pulse.passes = passes;
    m_pulse.samples = m_frame.samples;
    m_pulse.done = m_frame.divider == 1 && passes >= m_frame.samples;
    if (m_seconds > 0.0) m_pulse.raysPerSecond = static_cast<double>(loop.statistics().rays.total()) / m_seconds;
    m_pulse.secondsLeft = passes ? m_seconds / passes * (m_frame.samples - passes) : 0.0;
}

// While something moves, each picture is let through: changes come faster than pictures do.
void RenderThread::step(FrameLoop& loop) {
    const bool coarse = m_frame.divider > 1;
    {
        const std::lock_guard lock(m_mutex);
        if (m_ending || (!m_moving && !m_changes.empty())) return;
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

// For the next change or the end; answers whether what moved has come to rest instead.
bool RenderThread::waitForMore(bool coarse) {
    std::unique_lock lock(m_mutex);
    const auto more = [&] { return m_ending || !m_changes.empty() || (coarse ? m_rest : !m_atRest.empty()); };
    if (coarse)
        m_wake.wait_for(lock, Settling, more);
    else
        m_wake.wait(lock, more);
    return coarse && !m_ending && m_changes.empty();
}

bool RenderThread::ending() const {
    const std::lock_guard lock(m_mutex);
    return m_ending;
}

void RenderThread::render(World& world, const Registry& registry, unsigned threads, unsigned samples) {
    Workers workers(threads);
    m_whole = world.image;
    m_frame.samples = samples;
    world.image = Pacer::divided(m_whole, Pacer::coarsest(m_whole));
    FrameLoop loop(world, workers, {std::nullopt, false, true, world.transparentBackground});
    {
        const std::lock_guard lock(m_mutex);
        m_loop = &loop;
    }
    world.image = m_whole;
    tell(world, registry, samples);
    Rendering rendering{world, loop, registry};
    begin(loop, world, m_pacer.divider(m_whole), samples);
    while (!ending()) {
        const bool coarse = m_frame.divider > 1;
        rendering.seconds = m_seconds;
        if (takeChanges(rendering, m_failed || (!coarse && loop.passes() > 0))) {
            m_moving = true;
            begin(loop, world, m_pacer.divider(m_whole), m_frame.samples);
        } else if (!m_failed && loop.passes() < (coarse ? 1 : m_frame.samples)) {
            step(loop);
        } else if (waitForMore(coarse)) {
            m_moving = false;
            begin(loop, world, 1, m_frame.samples);
        }
    }
    m_developer.lookAway();
    const std::lock_guard lock(m_mutex);
    m_loop = nullptr;
}

}  // namespace oxbeam
