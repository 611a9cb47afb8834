// A picture in memory, and looking it up. Safe from any number of threads: look-ups only read.
#pragma once

#include "Oxbeam/OxTexture.h"
#include "Primitives/Vec.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// What the numbers of a picture mean.
enum class ColorSpace { Linear, SRGB };

// Whether a picture used as a bump map holds heights or normals.
enum class BumpKind { Height, Normal };

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
    // premultiplied). Bytes and words stand for 0 to 1.
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
    // Makes alpha 1 where it is at least this, and 0 elsewhere; 0 makes all of the picture opaque.
    void thresholdAlpha(float least);
    // Makes no number of a picture of floats larger than this.
    void limit(float most);
    // How many of the file's numbers were not finite. They count as 0, infinities as the largest number of half precision.
    std::size_t mended() const { return m_mended; }
    // The mean of the picture's numbers as they are stored, from a grid of probes.
    R3 rawMean() const;
    // The picture as a bump map: the normal in the frame of the texture's axes and the surface's normal.
    R3 tangentNormal(float s, float t) const;

private:
    enum class Storage { Byte, Word, Float };
    enum class Meaning { Color, Raw };

    void mend();
    void examine();
    RGBAFloat rawTexel(unsigned x, unsigned y) const;
    RGBAFloat sample(Meaning meaning, float s, float t, unsigned wrapS, unsigned wrapT, unsigned filter) const;
    // Calls `use` with a function that gives the texel at (x, y).
    template <class Use>
    RGBAFloat withTexels(Meaning meaning, Use use) const;

    unsigned m_width, m_height, m_channels;
    Storage m_storage;
    std::vector<std::uint8_t> m_bytes;
    std::vector<std::uint16_t> m_words;
    std::vector<float> m_floats;
    bool m_hasTransparency = false;
    std::size_t m_mended = 0;
    std::optional<float> m_alphaThreshold;
};

}  // namespace oxbeam
