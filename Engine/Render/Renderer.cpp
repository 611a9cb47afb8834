#include "Engine/Render/Renderer.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Host/KnownHit.h"
#include "Engine/Packages/Watch.h"
#include "Engine/Render/Frame.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <numeric>
#include <thread>
#include <typeinfo>

namespace oxbeam {

R2 samplePlace(unsigned pass) {
    // Reciprocals of the plastic number and of its square, as fractions of 2^64.
    constexpr std::uint64_t a1 = 0xC13FA9A902A6328Full, a2 = 0x91E10DA5C79E7B1Dull, half = 1ull << 63;
    const auto place = [&](std::uint64_t a) { return static_cast<float>((half + a * pass) >> 40) * 0x1p-24f; };
    return {place(a1), place(a2)};
}

// Zeros are only set to learn what was there.
RandomState randomState() {
    RandomState zeros{}, state;
    std::copy_n(seed48(zeros.data()), state.size(), state.begin());
    seed48(RandomState(state).data());
    return state;
}

// ---- Passes

void requireRecords(const Workers& workers) {
    if (workers.threads() > OxRenderingObject::MaxThreads)
        throw Error(ExitStatus::Usage, fmt::format("{} threads; packages keep records for at most {}",
                                                   workers.threads(), OxRenderingObject::MaxThreads));
}

Frame::Frame(World& world, const Session& session, Matte* matte, Film& film, const RenderOptions& options)
    : m_world(world), m_session(session), m_matte(matte), m_film(film), m_options(options), m_tiles(world.image) {
    if (film.hasAovs()) m_aovs.emplace(world);
    if (options.packets) m_packets.emplace(world, session, m_aovs ? &*m_aovs : nullptr);
    m_statistics.packetsRefused = !m_packets ? "" : matte ? "packets tell no alpha" : m_packets->whyNot();
    if (!m_statistics.packetsRefused.empty()) m_packets.reset();
    if (typeid(*world.camera) == typeid(OxPerspectiveCamera))
        m_blocks.emplace(static_cast<const OxPerspectiveCamera&>(*world.camera), session);
    if (m_blocks && !m_ahead.emplace(session).any()) m_ahead.reset();
    world.renderingObject->m_tilesPerFrame = m_tiles.count();
    for (unsigned tile = 0; tile < m_tiles.count(); ++tile)
        if (m_tiles.window(tile).overlaps(film.window())) m_wanted.push_back(tile);
    if (options.tileRays) options.tileRays->resize(m_tiles.count());
}

bool Frame::render(Workers& workers) {
    unsigned pass = m_film.passes();
    m_begun = pass * m_wanted.size();
    for (const unsigned tile : m_wanted) m_begun += isDone(tile, pass);
    double longest = 0.0;
    const auto fits = [&] { return longest == 0.0 || m_clock.seconds() + longest <= *m_options.seconds; };
    for (; pass < m_options.samples && !stopped() && (!m_options.seconds || fits()); ++pass) {
        const double start = m_clock.seconds();
        renderPass(workers, pass);
        longest = std::max(longest, m_clock.seconds() - start);
    }
    sumUp();
    return !m_failed && (m_statistics.passes >= m_options.samples || (m_options.seconds && !stopped()));
}

void Frame::sumUp() {
    m_statistics.passes = m_film.passes();
    m_statistics.overflowedPixels = m_film.overflowed();
}

// The pixels of a tile are as far as its first one that is kept.
bool Frame::isDone(unsigned tile, unsigned pass) const {
    const Window seen = m_tiles.window(tile).shared(m_film.window());
    return m_film.samplesAt(seen.x0, seen.y0) > pass;
}

// Goes over the tiles again after each pause. At least one is done in between, since one has to be for a pause.
bool Frame::renderPass(Workers& workers, unsigned pass) {
    const auto items = static_cast<unsigned>(m_wanted.size());
    m_place = m_world.filter.place(samplePlace(pass));
    m_alone = workers.threads() == 1;
    if (m_aovs) m_tileAovs.resize(workers.threads());
    while (true) {
        m_pause = false;
        workers.run(items, [&](unsigned thread, unsigned item) {
            if (!m_pause && !stopped() && !isDone(m_wanted[item], pass)) tryTile(thread, m_wanted[item], pass);
        });
        if (!m_pause || stopped()) return !stopped();
        sumUp();
        m_options.save(m_film, m_statistics);
        m_saved = m_clock.seconds();
    }
}

// Where a tile fails, those at work are finished, and it is as if it had not begun.
void Frame::tryTile(unsigned thread, unsigned tile, unsigned pass) {
    ++m_atWork;
    try {
        watchPackages([&] { renderTile(thread, tile, pass); });
    } catch (...) {
        fail(std::current_exception());
    }
    --m_atWork;
}

void Frame::fail(const std::exception_ptr& failure) {
    const std::scoped_lock lock(m_mutex);
    if (!m_failure) m_failure = failure;
    m_failed = true;
}

bool Frame::abandon(const Error& why, const std::atomic<unsigned>& held) {
    fail(std::make_exception_ptr(why));
    constexpr double patience = 10.0;  // seconds, for a row of a tile
    const Stopwatch waiting;
    while (m_atWork > held) {
        if (waiting.seconds() > patience) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    sumUp();
    return true;
}

// A tile is rendered whole even where the film keeps a part of it: its pixels share a sequence of random numbers. One that
// was stopped in the middle is as if it had not been begun.
void Frame::renderTile(unsigned thread, unsigned tile, unsigned pass) {
    ThreadRecord& record = ThreadRecord::mine();
    record = ThreadRecord{};
    record.sampleIndex = pass;
    std::optional<RandomState> random;
    if (m_alone) random = randomState();
    m_world.renderingObject->initTile(thread, tile);
    const PrimarySample sample{thread, pass, m_place};
    const Window window = m_tiles.window(tile);
    TileSamples samples;
    if (!sampleTile(sample, window, samples)) {
        if (random) seed48(random->data());
        return;
    }
    std::shared_lock<std::shared_mutex> lock;
    if (m_options.filmLock) lock = std::shared_lock(*m_options.filmLock);
    if (m_aovs) keepAovs(window, m_tileAovs[thread]);
    if (m_matte) keepAlphas(window, samples.alphas);
    finishTile(tile, record, keep(window, samples.colors));
}

// False where it was stopped.
bool Frame::sampleTile(const PrimarySample& sample, const Window& window, TileSamples& samples) {
    if (m_packets) return samplePackets(sample, window, samples);
    if (m_blocks) return sampleBlocks(sample, window, samples);
    for (unsigned y = window.y0; y < window.y1; ++y) {
        if (stopped()) return false;
        for (unsigned x = window.x0; x < window.x1; ++x) samplePixel(sample, x, y, samples);
    }
    return true;
}

namespace {

// What a thread's services know ahead, as long as this lives.
class Foreknowledge {
public:
    Foreknowledge() = default;
    ~Foreknowledge() { m_record.shadows = nullptr, m_record.hit = nullptr; }
    Foreknowledge(const Foreknowledge&) = delete;
    Foreknowledge& operator=(const Foreknowledge&) = delete;

    void of(ShadowAnswers& pixel) const { m_record.shadows = &pixel; }
    void of(const OxState& state, const KnownHit& known) const { m_record.hit = state.hit.tri >= 0 ? &known : nullptr; }

private:
    ThreadRecord& m_record = ThreadRecord::mine();
};

}  // namespace

// All rays of two rows are shot before the first is shaded: the kernel's code and the shaders' then run each at a
// stretch, with what the processor has learnt of their branches still there.
bool Frame::sampleBlocks(const PrimarySample& sample, const Window& window, TileSamples& samples) {
    PixelBlocks::Rows rows;
    ShadowsAhead::Answers answers;
    ShadowsAhead::Traced traced{};
    std::array<KnownHit, TileSize> known;
    const Foreknowledge use;
    for (unsigned y = window.y0; y < window.y1; ++y) {
        if (stopped()) return false;
        if (y % 2 == 0) m_blocks->shoot(sample.place, window, y, rows);
        if (y % 2 == 0 && m_ahead) m_ahead->trace(rows, window.width(), std::min(window.y1 - y, 2u), traced, answers);
        if (m_aovs)
            m_aovs->sample(std::span(rows[y % 2]).first(window.width()), &aovsAt(sample.thread, window.x0, y),
                           known.data());
        for (unsigned x = window.x0; x < window.x1; ++x) {
            OxState& state = rows[y % 2][x - window.x0];
            m_session.attachRecord(state, sample.thread, sample.pass);
            if (m_ahead) use.of(answers[y % 2][x - window.x0]);
            if (m_aovs) use.of(state, known[x - window.x0]);
            shadeSample(state, sample, x, y, samples);
        }
    }
    return true;
}

// Packets are of two by two pixels; where a side of the picture is odd, its last pixels are sampled one by one.
bool Frame::samplePackets(const PrimarySample& sample, const Window& window, TileSamples& samples) {
    const unsigned right = window.x1 & ~1u, bottom = window.y1 & ~1u;
    for (unsigned y = window.y0; y < bottom; y += 2) {
        if (stopped()) return false;
        samplePackets(sample, window, y, samples.colors);
    }
    for (unsigned y = window.y0; y < window.y1; ++y)
        for (unsigned x = y < bottom ? right : window.x0; x < window.x1; ++x) samplePixel(sample, x, y, samples);
    return true;
}

// In one go, since the film's memory is far away by then. Answers the number of bad samples, which are kept as black.
std::uint64_t Frame::keep(const Window& window, const TileColors& colors) {
    std::uint64_t bad = 0;
    const Window seen = window.shared(m_film.window());
    for (unsigned y = seen.y0; y < seen.y1; ++y)
        for (unsigned x = seen.x0; x < seen.x1; ++x) {
            const R3& color = colors[pixelOfTile(x, y)];
            const bool good = IsFinite(color);
            m_film.add(x, y, good ? color : Black);
            bad += !good;
        }
    return bad;
}

void Frame::keepAlphas(const Window& window, const TileAlphas& alphas) {
    const Window seen = window.shared(m_film.window());
    for (unsigned y = seen.y0; y < seen.y1; ++y)
        for (unsigned x = seen.x0; x < seen.x1; ++x) m_film.addAlpha(x, y, alphas[pixelOfTile(x, y)]);
}

// A pixel whose ray the camera makes by itself, in its turn: it may draw random numbers.
void Frame::samplePixel(const PrimarySample& sample, unsigned x, unsigned y, TileSamples& samples) {
    OxState state = m_session.primaryState(sample.thread, sample.pass);
    const float pattern[2] = {sample.place.x, sample.place.y};
    if (m_world.camera->InitPrimaryRay(&state, static_cast<int>(x), static_cast<int>(y), pattern)) {
        oxsShootRay(&state);
        if (!m_aovs) return shadeSample(state, sample, x, y, samples);
        KnownHit known;
        const Foreknowledge use;
        m_aovs->sample(state, aovsAt(sample.thread, x, y), known);
        use.of(state, known);
        return shadeSample(state, sample, x, y, samples);
    }
    if (m_aovs) aovsAt(sample.thread, x, y) = AovSample();
    samples.colors[pixelOfTile(x, y)] = Black;
    samples.alphas[pixelOfTile(x, y)] = 1.0f;
}

// The colour along a primary ray that has been shot.
void Frame::shadeSample(OxState& state, const PrimarySample& sample, unsigned x, unsigned y, TileSamples& samples) {
    ThreadRecord::mine().pixel = y << 16 | x;
    R3& color = samples.colors[pixelOfTile(x, y)];
    if (m_matte) {
        const Matte::Sample taken = m_matte->shade(state, m_session, sample);
        color = taken.color;
        samples.alphas[pixelOfTile(x, y)] = taken.alpha;
    } else {
        color = Session::shade(state);
    }
    if (!IsFinite(color)) [[unlikely]]
        noteBad(state);
}

void Frame::noteBad(const OxState& state) {
    const OxShader& shader = state.hit.tri >= 0 ? *oxsGetShader(&state) : *m_world.environment;
    const std::string name = watchedName(shader);
    const std::scoped_lock lock(m_mutex);
    ++m_statistics.badSamplesOf[name];
}

// Packets of the rows y and y + 1.
void Frame::samplePackets(const PrimarySample& sample, const Window& window, unsigned y, TileColors& colors) {
    static_assert(TileSize <= 2 * PacketPath::MostPackets);
    std::array<PacketPath::Block<R3>, TileSize / 2> blocks;
    std::optional<std::array<PacketPath::Block<AovSample>, TileSize / 2>> aovs;
    if (m_aovs) aovs.emplace();
    const unsigned count = (window.x1 - window.x0) / 2;
    m_packets->trace(sample, window.x0, y, count, blocks.data(), aovs ? aovs->data() : nullptr);
    for (unsigned k = 0; k < count; ++k)
        for (unsigned i = 0; i < 4; ++i) {
            const unsigned column = window.x0 + 2 * k + i % 2, row = y + i / 2;
            colors[pixelOfTile(column, row)] = blocks[k][i];
            if (aovs) aovsAt(sample.thread, column, row) = (*aovs)[k][i];
        }
}

AovSample& Frame::aovsAt(unsigned thread, unsigned x, unsigned y) { return m_tileAovs[thread][pixelOfTile(x, y)]; }

void Frame::keepAovs(const Window& window, const TileAovs& aovs) {
    const Window seen = window.shared(m_film.window());
    for (unsigned y = seen.y0; y < seen.y1; ++y)
        m_film.addAovs(seen.x0, y, std::span(aovs).subspan(pixelOfTile(seen.x0, y), seen.width()));
}

void Frame::finishTile(unsigned tile, const ThreadRecord& record, std::uint64_t badSamples) {
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
    if (m_options.tileRays)
        (*m_options.tileRays)[tile] += std::accumulate(record.rays.begin(), record.rays.end(), std::uint64_t{0});
    ++m_finished;
    if (m_options.save && m_clock.seconds() - m_saved >= m_options.saveEvery) m_pause = true;
    if (!m_options.progress) return;
    const double all = static_cast<double>(m_wanted.size()) * m_options.samples - static_cast<double>(m_begun);
    double done = static_cast<double>(m_finished) / all;
    if (m_options.seconds) done = std::clamp(m_clock.seconds() / *m_options.seconds, done, 1.0);
    m_options.progress({done, rays.total()});
}

// What a package makes once, by the random numbers that are there at that time, it makes in the first pass. In a new
// process it has to make it again, from the same numbers.
static void repeatFirstPass(World& world, const Session& session, Matte* matte, Workers& workers,
                            const RenderOptions& options, const Window& window) {
    Film film(window, false, matte);
    RenderOptions first;
    first.packets = options.packets;
    first.stop = options.stop;
    Frame frame(world, session, matte, film, first);
    frame.render(workers);
    if (frame.failure()) std::rethrow_exception(frame.failure());
}

RenderResult render(World& world, Workers& workers, const RenderOptions& options) {
    const Window whole{0, 0, world.image.width, world.image.height};
    return render(world, workers, options,
                  {Film(options.crop.value_or(whole), options.aovs, options.alpha), randomState()});
}

RenderResult render(World& world, Workers& workers, const RenderOptions& options, Begun begun) {
    requireRecords(workers);
    Matte standIn(world.environment);
    Matte* const matte = begun.film.hasAlpha() ? &standIn : nullptr;
    const Session session(world, options.intersector, matte);
    if (begun.random != randomState()) {
        repeatFirstPass(world, session, matte, workers, options, begun.film.window());
        seed48(begun.random.data());
    }
    RenderResult result{std::move(begun.film), {}, true};
    Frame frame(world, session, matte, result.film, options);
    const auto conclude = [&](bool complete) {
        result.complete = complete;
        result.statistics = frame.statistics();
        result.failure = frame.failure();
    };
    std::optional<ExitRescue> rescue;
    if (options.ended)
        rescue.emplace(workers.threads(), [&](const Error& why, const std::atomic<unsigned>& held) {
            if (!frame.abandon(why, held)) return;
            conclude(false);
            options.ended(result);
        });
    conclude(frame.render(workers));
    return result;
}

}  // namespace oxbeam
