// A picture in memory, and looking it up. Safe from any number of threads: look-ups only read.
#pragma once

#include "Oxbeam/OxTexture.h"
#include "Primitives/Vec.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace oxbeam {

// What the numbers of a picture mean.
enum class ColorSpace { Linear, SRGB };

// Whether a picture used as a bump map holds heights or normals.
enum class BumpKind { Height, Normal };

// Copies share the texels; what is done with them each has for itself.
class OXBEAM_API Texture : public TextureObject {
public:
    ColorSpace colorSpace = ColorSpace::Linear;
    BumpKind bumpKind =
        BumpKind::Height;  // Normal where most of the picture looks like unit vectors, as found on creation
    // Strength as a bump map. Heights: white rises above black by this times 2% of the picture's width. Normals: factor
    // on their slope.
    float bumpScale = 1.0f;
    // As a bump map: the surface consists of mirrors too small to be seen, whose slopes spread by this, 0 to 1, squared.
    float roughness = 0.0f;
    bool withVertexColors = false;  // where it is applied to a surface, the mesh's own colours modulate it

    // Texels row by row from the bottom up, `channels` values each: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA (alpha not
    // premultiplied). Bytes and words stand for 0 to 1. Their memory is charged: Error(InputOutput) beyond the limit.
    Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint8_t> texels, ColorSpace space);
    Texture(unsigned width, unsigned height, unsigned channels, std::vector<std::uint16_t> texels, ColorSpace space);
    Texture(unsigned width, unsigned height, unsigned channels, std::vector<float> texels, ColorSpace space);

    unsigned width() const override { return m_width; }
    unsigned height() const override { return m_height; }
    RGBAFloat texelBlend(Oxint x0, Oxint y0, Oxint x1, Oxint y1, float rx, float rx1, float ry,
                         Oxuint filter) const override;
    bool hasTransparency() const override { return m_hasTransparency; }

    // Linear colour and alpha at (s, t), the left bottom corner of the picture being (0, 0), with the texture's own
    // filter and wrap modes or with others. Coordinates that are not finite count as 0.5.
    RGBAFloat lookUp(float s, float t) const {
        return lookUp(s, t, static_cast<unsigned>(m_wrapS), static_cast<unsigned>(m_wrapT),
                      static_cast<unsigned>(filterMode));
    }
    RGBAFloat lookUp(float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const;
    // The alpha of the first.
    float alphaAt(float s, float t) const;
    // Makes alpha 1 where it is at least this, and 0 elsewhere; 0 makes all of the picture opaque.
    void thresholdAlpha(float least);
    // Makes no number of a picture of floats larger than this.
    void limit(float most);
    // How many of the file's numbers were not finite. They count as 0, infinities as the largest number of half precision.
    std::size_t mended() const { return m_mended; }
    // The mean linear colour of the texels in columns x0 to x1 and rows y0 to y1, the latter of both left out.
    R3 mean(unsigned x0, unsigned y0, unsigned x1, unsigned y1) const;
    // Makes 0 of numbers below it, which floats can hold and light cannot; other pictures that share the texels keep
    // them. How many there were.
    std::size_t dropNegative();
    // The mean of the picture's numbers as they are stored, from a grid of probes.
    R3 rawMean() const;
    // The picture as a bump map: the normal in the frame of the texture's axes and the surface's normal.
    R3 tangentNormal(float s, float t) const;

private:
    enum class Storage { Byte, Word, Float };
    enum class Meaning { Raw, Color };
    struct Taps;
    struct Access;
    template <class T, unsigned Channels, bool Decode>
    struct Texels;
    template <class T>
    struct AccessOf;

    template <class T>
    void keep(std::vector<T> texels);
    void mend(std::vector<float>& texels);
    std::span<const float> floats() const;  // of a picture of floats
    void clamp(float least, float most);
    void examine();
    const Access& access(Meaning meaning) const;
    RGBAFloat rawTexel(unsigned x, unsigned y) const;
    // What `look` of the picture's access gives at (s, t).
    template <class Look>
    auto sample(Look look, Meaning meaning, float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const;
    float thresholded(float alpha) const;

    unsigned m_width, m_height, m_channels;
    Storage m_storage;
    const void* m_texels = nullptr;
    const float* m_decoded = nullptr;     // linear values of all bytes or words of an sRGB picture
    const Access* m_access[2] = {};       // as the numbers are stored, and decoded to linear colour
    std::shared_ptr<const void> m_owner;  // of the texels
    bool m_hasTransparency = false;
    std::size_t m_mended = 0;
    std::optional<float> m_alphaThreshold;
};

}  // namespace oxbeam
