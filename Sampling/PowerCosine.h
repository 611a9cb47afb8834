// Directions about the z axis with a density proportional to a power of the cosine.
#pragma once

#include "Primitives/Vec.h"

#include <cmath>

// Lobe of Phong's model: r1, r2 uniform in [0, 1), density (exponent + 1) / 2pi * cos^exponent.
// Lafortune and Willems, "Using the modified Phong reflectance model for physically based rendering" (1994).
inline R3 PowerCosine(float r1, float r2, float exponent) {
    const float cosTheta = static_cast<float>(std::exp(std::log(r2) / (static_cast<double>(exponent) + 1.0)));
    const float phi = static_cast<float>(2.0 * r1 * 3.14159265358979323846);
    const float sinTheta = std::sqrt(1.0f - cosTheta * cosTheta);
    return {std::cos(phi) * sinTheta, std::sin(phi) * sinTheta, cosTheta};
}
