#include "Engine/Textures/Texture.h"

#include "Engine/System/MemoryBudget.h"
#include "Engine/Textures/SRGB.h"
#include "Primitives/ISSEVec4.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

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

template <class T>
static const float* decodedValues() {
    if constexpr (std::is_same_v<T, float>)
        return nullptr;
    else
        return sRGBTable<1u + std::numeric_limits<T>::max()>();
}

// The two texels of a row (or column) that a look-up lies between, and their weights.
struct Texture::Taps {
    unsigned first, second;
    float rest, way;  // of the first, and of the second

    // Of a place in a row of n texels, which are centred at half places; over the edge, a repeated picture goes on at
    // the other end.
    static Taps at(float s, unsigned n, unsigned mode);
};

// How a picture is read, for each way in which its numbers are stored: chosen when it is made, not at each texel.
struct Texture::Access {
    RGBAFloat (*texel)(const Texture& picture, unsigned x, unsigned y);
    RGBAFloat (*blend)(const Texture& picture, const Taps& x, const Taps& y);
    float (*alpha)(const Texture& picture, const Taps& x, const Taps& y);   // of the blend
    float (*height)(const Texture& picture, const Taps& x, const Taps& y);  // mean of the blend's colour
    R3 (*mean)(const Texture& picture, unsigned x0, unsigned y0, unsigned x1, unsigned y1);
};

static float weighted(float rest, float a, float way, float b) { return rest * a + way * b; }

static sse_t weighted(float rest, sse_t a, float way, sse_t b) {
    return _mm_add_ps(_mm_mul_ps(_mm_set1_ps(rest), a), _mm_mul_ps(_mm_set1_ps(way), b));
}

template <class T, unsigned Channels, bool Decode>
struct Texture::Texels {
    static constexpr bool Grey = Channels < 3, HasAlpha = Channels % 2 == 0;

    static const T* at(const Texture& picture, unsigned x, unsigned y) {
        return static_cast<const T*>(picture.m_texels) + (std::size_t{y} * picture.m_width + x) * Channels;
    }
    static float scaled(T value) {
        if constexpr (std::is_same_v<T, float>)
            return value;
        else
            return static_cast<float>(value) * (1.0f / static_cast<float>(std::numeric_limits<T>::max()));
    }
    static float color([[maybe_unused]] const Texture& picture, T value) {
        if constexpr (!Decode)
            return scaled(value);
        else if constexpr (std::is_same_v<T, float>)
            return sRGBToLinear(value);
        else
            return picture.m_decoded[value];
    }
    // What each reads of a texel: all of it, its alpha, and the one number of a grey one.
    struct All {
        static sse_t of(const Texture& picture, const T* t) {
            const float r = color(picture, t[0]), g = Grey ? r : color(picture, t[Grey ? 0 : 1]);
            return _mm_setr_ps(r, g, Grey ? r : color(picture, t[Grey ? 0 : 2]), Alpha::of(picture, t));
        }
    };
    struct Alpha {
        static float of(const Texture&, const T* t) { return HasAlpha ? scaled(t[Channels - 1]) : 1.0f; }
    };
    struct First {
        static float of(const Texture& picture, const T* t) { return color(picture, t[0]); }
    };

    template <class Read>
    static auto blended(const Texture& picture, const Taps& x, const Taps& y) {
        const auto row = [&](unsigned number) {
            return weighted(x.rest, Read::of(picture, at(picture, x.first, number)), x.way,
                            Read::of(picture, at(picture, x.second, number)));
        };
        return weighted(y.rest, row(y.first), y.way, row(y.second));
    }
    static RGBAFloat toColor(sse_t v) { return {v[0], v[1], v[2], v[3]}; }

    static RGBAFloat texel(const Texture& picture, unsigned x, unsigned y) {
        return toColor(All::of(picture, at(picture, x, y)));
    }
    static RGBAFloat blend(const Texture& picture, const Taps& x, const Taps& y) {
        return toColor(blended<All>(picture, x, y));
    }
    static float alpha(const Texture& picture, const Taps& x, const Taps& y) { return blended<Alpha>(picture, x, y); }
    static float height(const Texture& picture, const Taps& x, const Taps& y) {
        if constexpr (!Grey) return Avg(blend(picture, x, y).rgb());
        const float grey = blended<First>(picture, x, y);
        return Avg(R3(grey, grey, grey));
    }
    static R3 mean(const Texture& picture, unsigned x0, unsigned y0, unsigned x1, unsigned y1) {
        double r = 0.0, g = 0.0, b = 0.0;
        for (unsigned y = y0; y < y1; ++y)
            for (unsigned x = x0; x < x1; ++x) {
                const RGBAFloat c = texel(picture, x, y);
                r += double{c.r}, g += double{c.g}, b += double{c.b};
            }
        const double share = 1.0 / (static_cast<double>(x1 - x0) * static_cast<double>(y1 - y0));
        return {static_cast<float>(r * share), static_cast<float>(g * share), static_cast<float>(b * share)};
    }
    static constexpr Access access = {texel, blend, alpha, height, mean};
};

template <class T>
struct Texture::AccessOf {
    static const Access* of(unsigned channels, Meaning meaning) {
        static constexpr const Access* all[4][2] = {{&Texels<T, 1, false>::access, &Texels<T, 1, true>::access},
                                                    {&Texels<T, 2, false>::access, &Texels<T, 2, true>::access},
                                                    {&Texels<T, 3, false>::access, &Texels<T, 3, true>::access},
                                                    {&Texels<T, 4, false>::access, &Texels<T, 4, true>::access}};
        return all[channels - 1][static_cast<std::size_t>(meaning)];
    }
};

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
    m_decoded = decodedValues<T>();
    for (const Meaning meaning : {Meaning::Raw, Meaning::Color})
        m_access[static_cast<std::size_t>(meaning)] = AccessOf<T>::of(m_channels, meaning);
    examine();
}

// Only colours are decoded, and only those that are encoded.
const Texture::Access& Texture::access(Meaning meaning) const {
    const bool decode = meaning == Meaning::Color && colorSpace == ColorSpace::SRGB;
    return *m_access[decode];
}

RGBAFloat Texture::rawTexel(unsigned x, unsigned y) const { return access(Meaning::Raw).texel(*this, x, y); }

// ---- Coordinates

// Brings a coordinate into [0, 1] as a wrap mode says. One that is not finite counts as the middle: that is where the
// formulas of environment maps have their pole.
static float wrapped(float s, unsigned mode) {
    if (!std::isfinite(s)) return 0.5f;
    if (mode == OX_GL_CLAMP_TO_EDGE) return std::clamp(s, 0.0f, 1.0f);
    if (mode == OX_GL_MIRRORED_REPEAT) return std::fabs(s - 2.0f * std::floor(0.5f * s + 0.5f));
    return s - std::floor(s);
}

Texture::Taps Texture::Taps::at(float s, unsigned n, unsigned mode) {
    const float x = wrapped(s, mode) * static_cast<float>(n) - 0.5f;
    const float below = std::floor(x), way = x - below;
    const bool repeat = mode != OX_GL_CLAMP_TO_EDGE && mode != OX_GL_MIRRORED_REPEAT;
    const int i = static_cast<int>(below), last = static_cast<int>(n) - 1;
    return {static_cast<unsigned>(i < 0 ? (repeat ? last : 0) : i),
            static_cast<unsigned>(i < last ? i + 1
                                  : repeat ? 0
                                           : last),
            1.0f - way, way};
}

static unsigned nearest(float s, unsigned n, unsigned mode) {
    return std::min(static_cast<unsigned>(wrapped(s, mode) * static_cast<float>(n)), n - 1);
}

// The nearest texel counts whole, as one that lies exactly there.
template <class Look>
auto Texture::sample(Look look, Meaning meaning, float s, float t, unsigned wrapS, unsigned wrapT,
                     unsigned filter) const {
    if (filter == OX_GL_NEAREST) {
        const unsigned x = nearest(s, m_width, wrapS), y = nearest(t, m_height, wrapT);
        return (access(meaning).*look)(*this, {x, x, 1.0f, 0.0f}, {y, y, 1.0f, 0.0f});
    }
    return (access(meaning).*look)(*this, Taps::at(s, m_width, wrapS), Taps::at(t, m_height, wrapT));
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
    if (filter == 1) return access(Meaning::Color).texel(*this, column(x0), row(y0));
    return access(Meaning::Color).blend(*this, {column(x0), column(x1), rx1, rx}, {row(y0), row(y1), 1.0f - ry, ry});
}

float Texture::thresholded(float alpha) const {
    if (!m_alphaThreshold) return alpha;
    return alpha >= *m_alphaThreshold ? 1.0f : 0.0f;
}

RGBAFloat Texture::lookUp(float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const {
    RGBAFloat texel = sample(&Access::blend, Meaning::Color, s, t, wrapS, wrapT, filter);
    texel.a = thresholded(texel.a);
    return texel;
}

float Texture::alphaAt(float s, float t) const {
    return thresholded(sample(&Access::alpha, Meaning::Color, s, t, static_cast<unsigned>(m_wrapS),
                              static_cast<unsigned>(m_wrapT), static_cast<unsigned>(filterMode)));
}

void Texture::thresholdAlpha(float least) {
    m_alphaThreshold = least;
    m_hasTransparency = m_hasTransparency && least > 0.0f;
}

R3 Texture::mean(unsigned x0, unsigned y0, unsigned x1, unsigned y1) const {
    return access(Meaning::Color).mean(*this, x0, y0, x1, y1);
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
    const auto raw = [&](auto look, float u, float v) {
        return sample(look, Meaning::Raw, u, v, static_cast<unsigned>(m_wrapS), static_cast<unsigned>(m_wrapT),
                      static_cast<unsigned>(filterMode));
    };
    if (bumpKind == BumpKind::Normal) {
        const R3 n = 2.0f * raw(&Access::blend, s, t).rgb() - White;
        return Normalize(R3(n.x * bumpScale, n.y * bumpScale, n.z));
    }
    const auto height = [&](float u, float v) { return raw(&Access::height, u, v); };
    const float ds = 1.0f / static_cast<float>(m_width), dt = 1.0f / static_cast<float>(m_height);
    const float rise = 0.02f * bumpScale;
    const float slopeS = rise * (height(s + ds, t) - height(s - ds, t)) / (2.0f * ds);
    const float slopeT = rise * (height(s, t + dt) - height(s, t - dt)) / (2.0f * dt);
    return Normalize(R3(-slopeS, -slopeT, 1.0f));
}

}  // namespace oxbeam
