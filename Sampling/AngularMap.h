// Environment maps of the angular ("mirrored ball") kind.
#pragma once

#include "Primitives/Vec.h"

#include <cmath>

// The map's own frame: x to the right, y upwards, z through the middle of the picture.
struct AngularMapFrame {
    unsigned axis[3];  // component of a world direction that feeds x, y and z
    float sign[3];

    // upDirection: world axis that is up: 1 y, 2 z, others x.
    static constexpr AngularMapFrame of(unsigned upDirection) {
        if (upDirection == 1) return {{0, 1, 2}, {1.0f, 1.0f, 1.0f}};
        if (upDirection == 2) return {{0, 2, 1}, {1.0f, 1.0f, -1.0f}};
        return {{1, 0, 2}, {-1.0f, 1.0f, 1.0f}};
    }

    constexpr R3 toWorld(const R3& map) const {
        R3 world;
        for (unsigned i = 0; i < 3; ++i) world[axis[i]] = sign[i] * map[i];
        return world;
    }
};

// Unit direction, in the map's frame, of a place (s, t) in the picture; false outside the inscribed circle.
inline bool AngularMapDirection(float s, float t, R3& direction) {
    const float x = 2.0f * s - 1.0f, y = 2.0f * t - 1.0f, r = std::sqrt(x * x + y * y);
    if (r > 1.0f) return false;
    const float theta = 3.14159265f * r;
    const float side = r > 0.0f ? std::sin(theta) / r : 3.14159265f;
    direction = R3(side * x, side * y, std::cos(theta));
    return true;
}
