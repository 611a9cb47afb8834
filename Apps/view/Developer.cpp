#include "Apps/view/Developer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace oxbeam {

// Between two looks at a film while a pass is under way.
static constexpr std::chrono::milliseconds Period(150);

const std::vector<std::string>& showsNames() {
    static const std::vector<std::string> names = {"color", "depth", "normal", "albedo", "object"};
    return names;
}

Developer::Developer() : m_thread([this] { run(); }) {}

Developer::~Developer() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void Developer::setLook(const Look& look) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_look == look) return;
        m_look = look;
        m_lookChanged = true;
    }
    m_wake.notify_one();
}

std::shared_ptr<const Shown> Developer::latest(bool other) const {
    const std::lock_guard lock(m_mutex);
    return m_latest[other];
}

void Developer::lookAway() {
    const std::lock_guard lock(m_frameMutex);
    m_loop = nullptr;
}

void Developer::passDone() {
    {
        const std::lock_guard lock(m_mutex);
        m_due = true;
    }
    m_wake.notify_one();
}

void Developer::give(Film film, const FrameInfo& frame) {
    Taken given(std::in_place, std::move(film), frame);
    {
        const std::lock_guard lock(m_mutex);
        m_given[frame.other].swap(given);  // nobody waits until the one before has been given back to the system
    }
    m_wake.notify_one();
}

// ---- What a display shows

namespace {

// 8 bits of sRGB (IEC 61966-2-1) by the square root of the light, which spreads the dark steps out.
class Encoding {
public:
    Encoding() {
        for (unsigned i = 0; i <= Steps; ++i) {
            const double root = i / double{Steps}, light = root * root;
            const double value = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1.0 / 2.4) - 0.055;
            m_values[i] = static_cast<std::uint8_t>(std::lround(255.0 * value));
        }
    }
    std::uint8_t operator()(float light) const {
        const float root = std::sqrt(std::clamp(light, 0.0f, 1.0f));  // NaN does not get into films
        return m_values[static_cast<unsigned>(std::lrint(root * Steps))];
    }

private:
    static constexpr unsigned Steps = 4096;
    std::array<std::uint8_t, Steps + 1> m_values;
};

// What a pixel of a layer looks like, linear.
class LayerColors {
public:
    LayerColors(const Film& film, const Look& look, bool other)
        : m_film(film), m_look(look), m_tone(other ? look.otherTone : look.tone) {
        if (look.shows != Shows::Depth) return;
        for (const AovSample& sample : film.aovSums())
            if (std::isfinite(sample.depth)) {
                m_near = std::min(m_near, sample.depth);
                m_far = std::max(m_far, sample.depth);
            }
    }
    R3 operator()(std::size_t i) const {
        const AovSample& aov = m_film.aovSums()[i];
        switch (m_look.shows) {
        case Shows::Color: return toned(m_film.sums()[i].sum * m_film.share(i), m_tone);
        case Shows::Depth: return depth(aov.depth);
        case Shows::Normal: return aov.object ? 0.5f * (m_film.share(i) * aov.normal + White) : Black;
        case Shows::Albedo: return m_film.share(i) * aov.albedo;
        case Shows::Object: return ofObject(aov.object);
        }
        return Black;
    }

private:
    R3 depth(float value) const {
        if (!std::isfinite(value)) return Black;
        return (1.0f - 0.95f * (value - m_near) / std::max(m_far - m_near, 1e-20f)) * White;
    }
    // Neighbouring numbers look unlike each other: hues by the golden ratio.
    static R3 ofObject(unsigned object) {
        if (!object) return Black;
        const float hue = 6.0f * std::fmod(static_cast<float>(object) * 0.61803399f, 1.0f);
        const auto channel = [&](float shift) {
            return std::clamp(std::fabs(std::fmod(hue + shift, 6.0f) - 3.0f) - 1.0f, 0.1f, 0.9f);
        };
        return {channel(0.0f), channel(4.0f), channel(2.0f)};
    }

    const Film& m_film;
    const Look& m_look;
    const Tone& m_tone;
    float m_near = std::numeric_limits<float>::infinity(), m_far = 0.0f;
};

}  // namespace

// Where there is no sample yet, the coarse picture of the frame before is still seen.
static const std::uint8_t* standIn(const Shown* coarse, const Film& film, std::size_t i) {
    if (!coarse || film.sums()[i].samples > 0) return nullptr;
    const unsigned w = film.window().width(), h = film.window().height();
    const std::size_t x = i % w * coarse->width / w, y = i / w * coarse->height / h;
    return &coarse->rgba[4 * (y * coarse->width + x)];
}

void Developer::develop(std::shared_ptr<const Film> film, const FrameInfo& frame, const Look& look) {
    static const Encoding encode;
    const auto shown = std::make_shared<Shown>();
    shown->frame = frame;
    shown->passes = film->passes();
    shown->width = film->window().width();
    shown->height = film->window().height();
    shown->rgba.resize(4 * film->window().size());
    shown->serial = ++m_serial;
    const LayerColors colors(*film, look, frame.other);
    for (std::size_t i = 0; i < film->window().size(); ++i) {
        std::uint8_t* to = &shown->rgba[4 * i];
        if (const std::uint8_t* coarse = standIn(m_coarse[frame.other].get(), *film, i)) {
            std::copy_n(coarse, 4, to);
        } else {
            const R3 color = colors(i);
            to[0] = encode(color.x), to[1] = encode(color.y), to[2] = encode(color.z), to[3] = 255;
        }
        for (unsigned c = 0; c < 3; ++c) ++shown->histogram[c][to[c] / 2];
    }
    shown->film = std::move(film);
    if (shown->passes > 0) m_coarse[frame.other] = shown;
    std::shared_ptr<const Shown> latest = shown;
    {
        const std::lock_guard lock(m_mutex);
        m_latest[frame.other].swap(latest);
    }
    m_retired.push_back(std::move(latest));
}

// Of a frame's first pass what there is so far; later, a film that has a pass more. One of which nothing is known yet is
// not shown: the picture before it says more.
Developer::Taken Developer::takeFilm(bool evenTheSame) {
    const std::lock_guard lock(m_frameMutex);
    if (!m_loop) return std::nullopt;
    const unsigned passes = m_loop->passes();
    if (m_frame.number == m_takenFrame && passes > 0 && passes == m_takenPasses && !evenTheSame) return std::nullopt;
    try {
        Film film = m_loop->seen();
        if (film.begunPasses() == 0) return std::nullopt;
        return std::pair(std::move(film), m_frame);
    } catch (const std::exception&) {  // no memory for a copy: what is shown stays
        return std::nullopt;
    }
}

// What a display has shown is to be shown otherwise, although its film is no more.
void Developer::redevelop(bool other, const Look& look) {
    if (const auto shown = latest(other)) develop(shown->film, shown->frame, look);
}

void Developer::take(Taken taken, const Look& look) {
    if (!taken) return;
    auto& [film, frame] = *taken;
    m_takenFrame = frame.number;
    m_takenPasses = film.passes();
    develop(std::make_shared<const Film>(std::move(film)), frame, look);
}

void Developer::run() {
    for (;;) {
        bool lookChanged = false;
        Look look;
        std::array<Taken, 2> given;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait_for(lock, Period,
                            [&] { return m_ending || m_due || m_lookChanged || m_given[0] || m_given[1]; });
            if (m_ending) return;
            m_due = false;
            lookChanged = std::exchange(m_lookChanged, false);
            look = m_look;
            given.swap(m_given);
        }
        const bool any = given[0] || given[1];
        for (Taken& taken : given) take(std::move(taken), look);
        Taken grown;
        if (!any || lookChanged) grown = takeFilm(lookChanged);
        if (lookChanged)
            for (const bool other : {false, true})
                if (!grown || grown->second.other != other) redevelop(other, look);
        take(std::move(grown), look);
        std::erase_if(m_retired, [](const auto& shown) { return shown.use_count() <= 1; });
    }
}

}  // namespace oxbeam
