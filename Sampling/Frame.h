// Coordinate frames around a direction.
#pragma once

#include "Primitives/Vec.h"

#include <cmath>

// The coordinate axis along which d is smallest in magnitude, so that its cross product with d never vanishes.
// On ties the later axis wins.
inline R3 SmallestAxis(const R3& d) {
    const float a = std::fabs(d.x), b = std::fabs(d.y), c = std::fabs(d.z);
    if (b > a) return c > a ? R3(1.0f, 0.0f, 0.0f) : R3(0.0f, 0.0f, 1.0f);
    return c > b ? R3(0.0f, 1.0f, 0.0f) : R3(0.0f, 0.0f, 1.0f);
}

// Turns directions given about the z axis into directions about n.
class LocalFrame {
public:
    explicit LocalFrame(const R3& n)
        : m_u(Normalize(Cross(n, SmallestAxis(n)))), m_v(Normalize(Cross(m_u, n))), m_n(n) {}

    R3 toWorld(const R3& local) const { return local.x * m_v + local.y * m_u + local.z * m_n; }

private:
    R3 m_u, m_v, m_n;
};
