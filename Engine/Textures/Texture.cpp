#include "Engine/Textures/Texture.h"

#include <OpenImageIO/color.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace oxbeam {

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint8_t> texels, ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Byte),
      m_bytes(std::move(texels)) {
    examine();
}

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint16_t> texels,
                 ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Word),
      m_words(std::move(texels)) {
    examine();
}

Texture::Texture(unsigned width, unsigned height, unsigned channels, std::vector<float> texels, ColorSpace space)
    : colorSpace(space), m_width(width), m_height(height), m_channels(channels), m_storage(Storage::Float),
      m_floats(std::move(texels)) {
    examine();
}

// Finds out once whether anything shines through, and whether the picture holds normals: unit vectors, most of them
// pointing outwards. 4096 texels spread over the picture are enough for the latter.
void Texture::examine() {
    const bool hasAlpha = m_channels == 2 || m_channels == 4;
    if (hasAlpha)
        for (unsigned y = 0; y < m_height && !m_hasTransparency; ++y)
            for (unsigned x = 0; x < m_width && !m_hasTransparency; ++x)
                m_hasTransparency = texel<Meaning::Raw>(x, y).a < 1.0f;
    if (m_channels < 3) return;
    unsigned unit = 0;
    constexpr unsigned probes = 64;
    for (unsigned i = 0; i < probes * probes; ++i) {
        const R3 c = texel<Meaning::Raw>(i % probes * m_width / probes, i / probes * m_height / probes).rgb();
        const R3 n = 2.0f * c - White;
        unit += n.z > 0.0f && std::fabs(Dot(n, n) - 1.0f) < 0.15f;
    }
    if (unit > probes * probes * 9 / 10) bumpKind = BumpKind::Normal;
}

// ---- One texel

// Linear values of all bytes or words of an sRGB picture.
template <unsigned Count>
static const float* sRGBTable() {
    static const auto table = [] {
        std::vector<float> values(Count);
        for (unsigned i = 0; i < Count; ++i)
            values[i] = OIIO::sRGB_to_linear(static_cast<float>(i) / static_cast<float>(Count - 1));
        return values;
    }();
    return table.data();
}

template <class T, class ToFloat>
static RGBAFloat unpack(const T* texel, unsigned channels, ToFloat color, ToFloat alpha) {
    switch (channels) {
    case 1: {
        const float grey = color(texel[0]);
        return {grey, grey, grey, 1.0f};
    }
    case 2: {
        const float grey = color(texel[0]);
        return {grey, grey, grey, alpha(texel[1])};
    }
    case 3: return {color(texel[0]), color(texel[1]), color(texel[2]), 1.0f};
    default: return {color(texel[0]), color(texel[1]), color(texel[2]), alpha(texel[3])};
    }
}

// Decodes by a table, or plainly where there is none.
template <class T>
struct Decode {
    const float* table;
    float scale;

    float operator()(T value) const { return table ? table[value] : static_cast<float>(value) * scale; }
};

template <Texture::Meaning M>
RGBAFloat Texture::texel(unsigned x, unsigned y) const {
    const std::size_t at = (static_cast<std::size_t>(y) * m_width + x) * m_channels;
    const bool decode = M == Meaning::Color && colorSpace == ColorSpace::SRGB;
    switch (m_storage) {
    case Storage::Byte: {
        constexpr float scale = 1.0f / 255.0f;
        const Decode<std::uint8_t> color{decode ? sRGBTable<256>() : nullptr, scale}, alpha{nullptr, scale};
        return unpack(&m_bytes[at], m_channels, color, alpha);
    }
    case Storage::Word: {
        constexpr float scale = 1.0f / 65535.0f;
        const Decode<std::uint16_t> color{decode ? sRGBTable<65536>() : nullptr, scale}, alpha{nullptr, scale};
        return unpack(&m_words[at], m_channels, color, alpha);
    }
    default: {
        const auto color = +[](float v) { return v; };
        const auto sRGB = +[](float v) { return OIIO::sRGB_to_linear(v); };
        return unpack(&m_floats[at], m_channels, decode ? sRGB : color, color);
    }
    }
}

// ---- Coordinates

// Index of the texel that a wrap mode puts at place i of a row (or column) of n.
static unsigned wrapped(int i, unsigned n, unsigned mode) {
    const int size = static_cast<int>(n);
    if (mode == OX_GL_CLAMP_TO_EDGE) return static_cast<unsigned>(std::clamp(i, 0, size - 1));
    if (mode == OX_GL_MIRRORED_REPEAT) {
        int j = i % (2 * size);
        if (j < 0) j += 2 * size;
        return static_cast<unsigned>(j < size ? j : 2 * size - 1 - j);
    }
    const int j = i % size;
    return static_cast<unsigned>(j < 0 ? j + size : j);
}

// Far coordinates wrap where floats still tell texels apart; those that are not finite have no place at all.
static float bounded(float s) { return std::fabs(s) < 1e5f ? s : std::isfinite(s) ? std::fmod(s, 2.0f) : 0.0f; }

template <Texture::Meaning M>
RGBAFloat Texture::sample(float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const {
    const float x = bounded(s) * static_cast<float>(m_width), y = bounded(t) * static_cast<float>(m_height);
    if (filter == OX_GL_NEAREST)
        return texel<M>(wrapped(static_cast<int>(std::floor(x)), m_width, wrapS),
                        wrapped(static_cast<int>(std::floor(y)), m_height, wrapT));
    // Texels are centred at half places.
    const float fx = std::floor(x - 0.5f), fy = std::floor(y - 0.5f);
    const float rx = x - 0.5f - fx, ry = y - 0.5f - fy;
    const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
    const unsigned x0 = wrapped(ix, m_width, wrapS), x1 = wrapped(ix + 1, m_width, wrapS);
    const unsigned y0 = wrapped(iy, m_height, wrapT), y1 = wrapped(iy + 1, m_height, wrapT);
    const RGBAFloat a = texel<M>(x0, y0), b = texel<M>(x1, y0), c = texel<M>(x0, y1), d = texel<M>(x1, y1);
    const auto blend = [&](float p, float q, float r, float v) {
        return (1.0f - ry) * ((1.0f - rx) * p + rx * q) + ry * ((1.0f - rx) * r + rx * v);
    };
    return {blend(a.r, b.r, c.r, d.r), blend(a.g, b.g, c.g, d.g), blend(a.b, b.b, c.b, d.b), blend(a.a, b.a, c.a, d.a)};
}

RGBAFloat Texture::lookUp(float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const {
    return sample<Meaning::Color>(s, t, wrapS, wrapT, filter);
}

// Heights give their slope by central differences over one texel to either side.
R3 Texture::tangentNormal(float s, float t) const {
    const auto raw = [&](float u, float v) {
        return sample<Meaning::Raw>(u, v, static_cast<unsigned>(m_wrapS), static_cast<unsigned>(m_wrapT),
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
