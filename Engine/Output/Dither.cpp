#include "Engine/Output/Dither.h"

#include <cmath>
#include <cstdint>

namespace oxbeam {

float ditherThreshold(unsigned x, unsigned y) {
    // Reciprocals of the plastic number and of its square, as fractions of 2^64.
    constexpr std::uint64_t a1 = 0xC13FA9A902A6328Full, a2 = 0x91E10DA5C79E7B1Dull;
    return (static_cast<float>((a1 * x + a2 * y) >> 41) + 0.5f) * 0x1p-23f;
}

unsigned dithered(float value, float threshold) {
    const float nearest = std::round(value);
    if (std::fabs(value - nearest) < 1e-3f) return static_cast<unsigned>(nearest);
    return static_cast<unsigned>(value + (1.0f - threshold));
}

}  // namespace oxbeam
