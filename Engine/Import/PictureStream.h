// A picture as bytes, for the way from the process that decodes it to the host.
#pragma once

#include <cstdint>

namespace oxbeam {

// What the texels follow, row by row from the bottom up; all numbers as this machine has them. Without texels, why there
// are none follows instead.
struct PictureHeader {
    static constexpr std::uint32_t ThisFormat = 0x3150784f;

    std::uint32_t format = ThisFormat;
    std::uint32_t width = 0, height = 0;  // 0: there is no picture
    std::uint32_t channels = 0;           // 1 to 4
    std::uint32_t valueBytes = 0;         // 1 or 2: integers that stand for 0 to 1; 4: floats
    std::uint32_t isSRGB = 0;

    std::uint64_t texelBytes() const { return std::uint64_t{width} * height * channels * valueBytes; }
};

inline constexpr std::uint32_t MaxPictureSide = 1u << 16;
inline constexpr std::uint64_t MaxPictureBytes = std::uint64_t{2} << 30;

}  // namespace oxbeam
