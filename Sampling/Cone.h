// Directions within a cone about the z axis.
#pragma once

#include "Primitives/Vec.h"

#include <cmath>

// A point on a disk of radius 1, as high up as puts its rim at `maxAngleDegree` off the axis; its direction from the
// origin lies within the cone. r1, r2 uniform in [0, 1). The radius is r2 itself, so that samples crowd towards the
// axis; the result is not of unit length.
inline R3 UniformCone(double r1, double r2, float maxAngleDegree) {
    const double phi = 2.0 * r1 * 3.14159265358979323846;
    const double height = 1.0 / std::tan(static_cast<double>(0.017453292f * maxAngleDegree));
    return {static_cast<float>(std::cos(phi) * r2), static_cast<float>(std::sin(phi) * r2), static_cast<float>(height)};
}
