// Directions uniform over the hemisphere about the z axis.
#pragma once

#include "Primitives/Vec.h"

#include <cmath>

// r1, r2 uniform in [0, 1); r2 becomes the cosine to the axis.
inline R3 UniformHemisphere(double r1, double r2) {
    const double phi = 6.283185307179586 * r1;
    const double sinTheta = std::sqrt(1.0 - r2 * r2);
    return {static_cast<float>(std::cos(phi) * sinTheta), static_cast<float>(std::sin(phi) * sinTheta),
            static_cast<float>(r2)};
}
