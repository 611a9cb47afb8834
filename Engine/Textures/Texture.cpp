#include "Engine/Textures/Texture.h"

#include "Engine/System/MemoryBudget.h"
#include "Engine/Textures/SRGB.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace oxbeam {

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint8_t> texels, ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Byte) {
    keep(std::move(texels));
}

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint16_t> texels,
                 ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Word) {
    keep(std::move(texels));
}

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<float> texels, ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Float) {
    mend(texels);
    keep(std::move(texels));
}

template <class T>
void Texture::keep(std::vector<T> texels) {
    struct Kept {
        MemoryCharge memory;
        std::vector<T> texels;
    };
    MemoryCharge memory(MemoryUse::Textures, texels.size() * sizeof(T),
                        fmt::format("a texture of {} x {} texels", m_width, m_height));
    const auto kept = std::make_shared<const Kept>(Kept{std::move(memory), std::move(texels)});
    m_texels = kept->texels.data();
    m_owner = kept;
    examine();
}

// One bad number would spread over every pixel that a reflection or a blur takes it to. The sun of a photographed sky is
// often beyond what half precision holds. Alpha is a share.
void Texture::mend(std::vector<float>& texels) {
    constexpr float most = 65504.0f;
    for (float& v : texels) {
        if (std::isfinite(v)) continue;
        v = std::isnan(v) ? 0.0f : std::copysign(most, v);
        ++m_mended;
    }
    if (m_channels % 2 == 0)
        for (std::size_t i = m_channels - 1; i < texels.size(); i += m_channels)
            texels[i] = std::clamp(texels[i], 0.0f, 1.0f);
}

std::size_t Texture::dropNegative() {
    if (m_storage != Storage::Float) return 0;
    const std::span<const float> all = floats();
    const auto negative = std::count_if(all.begin(), all.end(), [](float v) { return v < 0.0f; });
    if (negative > 0) clamp(0.0f, std::numeric_limits<float>::max());
    return static_cast<std::size_t>(negative);
}

void Texture::limit(float most) {
    if (m_storage == Storage::Float) clamp(std::numeric_limits<float>::lowest(), most);
}

std::span<const float> Texture::floats() const {
    return {static_cast<const float*>(m_texels), std::size_t{m_width} * m_height * m_channels};
}

// In texels of its own: others may share those that it has.
void Texture::clamp(float least, float most) {
    std::vector<float> texels(floats().begin(), floats().end());
    for (float& v : texels) v = std::clamp(v, least, most);
    keep(std::move(texels));
}

// Finds out once whether anything shines through, and whether the picture holds normals: unit vectors, most of them
// pointing outwards. 4096 texels spread over the picture are enough for the latter.
void Texture::examine() {
    const bool hasAlpha = m_channels == 2 || m_channels == 4;
    if (hasAlpha)
        for (unsigned y = 0; y < m_height && !m_hasTransparency; ++y)
            for (unsigned x = 0; x < m_width && !m_hasTransparency; ++x) m_hasTransparency = rawTexel(x, y).a < 1.0f;
    if (m_channels < 3) return;
    unsigned unit = 0;
    constexpr unsigned probes = 64;
    for (unsigned i = 0; i < probes * probes; ++i) {
        const R3 c = rawTexel(i % probes * m_width / probes, i / probes * m_height / probes).rgb();
        const R3 n = 2.0f * c - White;
        unit += n.z > 0.0f && std::fabs(Dot(n, n) - 1.0f) < 0.15f;
    }
    if (unit > probes * probes * 9 / 10) bumpKind = BumpKind::Normal;
}

// ---- Texels

// Linear values of all bytes or words of an sRGB picture.
template <unsigned Count>
static const float* sRGBTable() {
    static const auto table = [] {
        std::vector<float> values(Count);
        for (unsigned i = 0; i < Count; ++i)
            values[i] = sRGBToLinear(static_cast<float>(i) / static_cast<float>(Count - 1));
        return values;
    }();
    return table.data();
}

// The values of a picture as they are stored, and how their colours are decoded: by a table, by the formula, or not.
template <class T>
struct Texels {
    const T* values;
    const float* table;
    bool sRGB;
    float scale;
    std::size_t width, channels;

    float color(T value) const {
        if (table) return table[static_cast<std::size_t>(value)];
        return sRGB ? sRGBToLinear(static_cast<float>(value)) : static_cast<float>(value) * scale;
    }

    RGBAFloat operator()(unsigned x, unsigned y) const {
        const T* t = values + (y * width + x) * channels;
        const bool grey = channels < 3;
        const float r = color(t[0]), g = grey ? r : color(t[1]), b = grey ? r : color(t[2]);
        return {r, g, b, channels % 2 == 1 ? 1.0f : static_cast<float>(t[channels - 1]) * scale};
    }
};

template <class Use>
RGBAFloat Texture::withTexels(Meaning meaning, Use use) const {
    const bool decode = meaning == Meaning::Color && colorSpace == ColorSpace::SRGB;
    switch (m_storage) {
    case Storage::Byte:
        return use(Texels<std::uint8_t>{static_cast<const std::uint8_t*>(m_texels), decode ? sRGBTable<256>() : nullptr,
                                        false, 1.0f / 255.0f, m_width, m_channels});
    case Storage::Word:
        return use(Texels<std::uint16_t>{static_cast<const std::uint16_t*>(m_texels),
                                         decode ? sRGBTable<65536>() : nullptr, false, 1.0f / 65535.0f, m_width,
                                         m_channels});
    default: return use(Texels<float>{static_cast<const float*>(m_texels), nullptr, decode, 1.0f, m_width, m_channels});
    }
}

RGBAFloat Texture::rawTexel(unsigned x, unsigned y) const {
    return withTexels(Meaning::Raw, [&](const auto& texel) { return texel(x, y); });
}

// ---- Coordinates

// Brings a coordinate into [0, 1] as a wrap mode says. One that is not finite counts as the middle: that is where the
// formulas of environment maps have their pole.
static float wrapped(float s, unsigned mode) {
    if (!std::isfinite(s)) return 0.5f;
    if (mode == OX_GL_CLAMP_TO_EDGE) return std::clamp(s, 0.0f, 1.0f);
    if (mode == OX_GL_MIRRORED_REPEAT) return std::fabs(s - 2.0f * std::floor(0.5f * s + 0.5f));
    return s - std::floor(s);
}

// The two texels of a row (or column) of n that a coordinate lies between, and how far it is from the first to the
// second. Texels are centred at half places; over the edge, a repeated picture goes on at the other end.
struct Taps {
    unsigned first, second;
    float way;

    Taps(float s, unsigned n, unsigned mode) {
        const float x = wrapped(s, mode) * static_cast<float>(n) - 0.5f;
        const float below = std::floor(x);
        way = x - below;
        const bool repeat = mode != OX_GL_CLAMP_TO_EDGE && mode != OX_GL_MIRRORED_REPEAT;
        const int i = static_cast<int>(below), last = static_cast<int>(n) - 1;
        first = static_cast<unsigned>(i < 0 ? (repeat ? last : 0) : i);
        second = static_cast<unsigned>(i < last ? i + 1 : repeat ? 0 : last);
    }
};

static unsigned nearest(float s, unsigned n, unsigned mode) {
    return std::min(static_cast<unsigned>(wrapped(s, mode) * static_cast<float>(n)), n - 1);
}

static RGBAFloat mix(const RGBAFloat& a, const RGBAFloat& b, float rest, float way) {
    return {rest * a.r + way * b.r, rest * a.g + way * b.g, rest * a.b + way * b.b, rest * a.a + way * b.a};
}

RGBAFloat Texture::sample(Meaning meaning, float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const {
    if (filter == OX_GL_NEAREST)
        return withTexels(
            meaning, [&](const auto& texel) { return texel(nearest(s, m_width, wrapS), nearest(t, m_height, wrapT)); });
    const Taps x(s, m_width, wrapS), y(t, m_height, wrapT);
    const float restX = 1.0f - x.way, restY = 1.0f - y.way;
    return withTexels(meaning, [&](const auto& texel) {
        return mix(mix(texel(x.first, y.first), texel(x.second, y.first), restX, x.way),
                   mix(texel(x.first, y.second), texel(x.second, y.second), restX, x.way), restY, y.way);
    });
}

// Number of a texel that a column or row outside 0 .. n - 1 stands for.
static unsigned wrappedTexel(Oxint i, unsigned n, unsigned mode) {
    const auto size = static_cast<Oxint>(n);
    if (mode == OX_GL_CLAMP_TO_EDGE) return static_cast<unsigned>(std::clamp(i, 0, size - 1));
    const bool mirrored = mode == OX_GL_MIRRORED_REPEAT;
    const Oxint period = mirrored ? 2 * size : size, at = (i % period + period) % period;
    return static_cast<unsigned>(at < size ? at : period - 1 - at);
}

RGBAFloat Texture::texelBlend(Oxint x0, Oxint y0, Oxint x1, Oxint y1, float rx, float rx1, float ry,
                              Oxuint filter) const {
    const auto column = [&](Oxint x) { return wrappedTexel(x, m_width, static_cast<unsigned>(m_wrapS)); };
    const auto row = [&](Oxint y) { return wrappedTexel(y, m_height, static_cast<unsigned>(m_wrapT)); };
    return withTexels(Meaning::Color, [&](const auto& texel) {
        if (filter == 1) return texel(column(x0), row(y0));
        return mix(mix(texel(column(x0), row(y0)), texel(column(x1), row(y0)), rx1, rx),
                   mix(texel(column(x0), row(y1)), texel(column(x1), row(y1)), rx1, rx), 1.0f - ry, ry);
    });
}

RGBAFloat Texture::lookUp(float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const {
    RGBAFloat texel = sample(Meaning::Color, s, t, wrapS, wrapT, filter);
    if (m_alphaThreshold) texel.a = texel.a >= *m_alphaThreshold ? 1.0f : 0.0f;
    return texel;
}

void Texture::thresholdAlpha(float least) {
    m_alphaThreshold = least;
    m_hasTransparency = m_hasTransparency && least > 0.0f;
}

R3 Texture::mean(unsigned x0, unsigned y0, unsigned x1, unsigned y1) const {
    const RGBAFloat mean = withTexels(Meaning::Color, [&](const auto& texel) {
        double r = 0.0, g = 0.0, b = 0.0;
        for (unsigned y = y0; y < y1; ++y)
            for (unsigned x = x0; x < x1; ++x) {
                const RGBAFloat c = texel(x, y);
                r += double{c.r}, g += double{c.g}, b += double{c.b};
            }
        const double share = 1.0 / (static_cast<double>(x1 - x0) * static_cast<double>(y1 - y0));
        return RGBAFloat{static_cast<float>(r * share), static_cast<float>(g * share), static_cast<float>(b * share),
                         1.0f};
    });
    return mean.rgb();
}

R3 Texture::rawMean() const {
    constexpr unsigned probes = 64;
    R3 sum;
    for (unsigned i = 0; i < probes * probes; ++i)
        sum += rawTexel(i % probes * m_width / probes, i / probes * m_height / probes).rgb();
    return sum / static_cast<float>(probes * probes);
}

// Heights give their slope by central differences over one texel to either side.
R3 Texture::tangentNormal(float s, float t) const {
    const auto raw = [&](float u, float v) {
        return sample(Meaning::Raw, u, v, static_cast<unsigned>(m_wrapS), static_cast<unsigned>(m_wrapT),
                      static_cast<unsigned>(filterMode))
            .rgb();
    };
    if (bumpKind == BumpKind::Normal) {
        const R3 n = 2.0f * raw(s, t) - White;
        return Normalize(R3(n.x * bumpScale, n.y * bumpScale, n.z));
    }
    const float ds = 1.0f / static_cast<float>(m_width), dt = 1.0f / static_cast<float>(m_height);
    const float rise = 0.02f * bumpScale;
    const float slopeS = rise * (Avg(raw(s + ds, t)) - Avg(raw(s - ds, t))) / (2.0f * ds);
    const float slopeT = rise * (Avg(raw(s, t + dt)) - Avg(raw(s, t - dt))) / (2.0f * dt);
    return Normalize(R3(-slopeS, -slopeT, 1.0f));
}

}  // namespace oxbeam
