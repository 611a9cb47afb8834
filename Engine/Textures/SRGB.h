// The transfer curve of displays, IEC 61966-2-1, for values from 0 to 1.
#pragma once

#include <cmath>

namespace oxbeam {

inline float sRGBToLinear(float value) {
    return value <= 0.04045f ? value * (1.0f / 12.92f) : std::pow((value + 0.055f) * (1.0f / 1.055f), 2.4f);
}

inline float linearToSRGB(float value) {
    return value <= 0.0031308f ? 12.92f * value : 1.055f * std::pow(value, 1.0f / 2.4f) - 0.055f;
}

}  // namespace oxbeam
