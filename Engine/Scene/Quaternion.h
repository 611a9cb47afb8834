// Rotations that can be interpolated (K. Shoemake, "Animating rotation with quaternion curves", 1985).
#pragma once

#include "Primitives/Matrix.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

struct Quaternion {
    double w = 1.0, x = 0.0, y = 0.0, z = 0.0;
};

constexpr double Dot(const Quaternion& a, const Quaternion& b) { return a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z; }

constexpr Quaternion operator*(const Quaternion& a, const Quaternion& b) {
    return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}

// How much of each end there is at a share of the way along the arc of an angle.
struct ArcShares {
    double from, to;
};

inline ArcShares arcShares(double angle, double share) {
    const double sine = std::sin(angle);
    if (sine < 1e-9) return {1.0 - share, share};
    return {std::sin((1.0 - share) * angle) / sine, std::sin(share * angle) / sine};
}

// The shorter way from one rotation of unit length to another, at constant speed.
inline Quaternion slerp(const Quaternion& a, const Quaternion& b, double share) {
    const double cosine = Dot(a, b), side = cosine < 0.0 ? -1.0 : 1.0;
    const auto [from, to] = arcShares(std::acos(std::min(std::fabs(cosine), 1.0)), share);
    const double s = side * to;
    Quaternion q{from * a.w + s * b.w, from * a.x + s * b.x, from * a.y + s * b.y, from * a.z + s * b.z};
    const double length = std::sqrt(Dot(q, q));
    return {q.w / length, q.x / length, q.y / length, q.z / length};
}

// Of one with unit length.
inline Matrix rotationMatrix(const Quaternion& q) {
    const auto f = [](double value) { return static_cast<float>(value); };
    Matrix r;
    r.m[0][0] = f(1.0 - 2.0 * (q.y * q.y + q.z * q.z));
    r.m[0][1] = f(2.0 * (q.x * q.y - q.w * q.z));
    r.m[0][2] = f(2.0 * (q.x * q.z + q.w * q.y));
    r.m[1][0] = f(2.0 * (q.x * q.y + q.w * q.z));
    r.m[1][1] = f(1.0 - 2.0 * (q.x * q.x + q.z * q.z));
    r.m[1][2] = f(2.0 * (q.y * q.z - q.w * q.x));
    r.m[2][0] = f(2.0 * (q.x * q.z - q.w * q.y));
    r.m[2][1] = f(2.0 * (q.y * q.z + q.w * q.x));
    r.m[2][2] = f(1.0 - 2.0 * (q.x * q.x + q.y * q.y));
    return r;
}

// About x, then y, then z, by degrees: as a placement's `rotate` has it.
inline Quaternion quaternionOf(const double (&degrees)[3]) {
    Quaternion all;
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double half = degrees[axis] * 3.14159265358979323846 / 360.0;
        Quaternion turn{std::cos(half), 0.0, 0.0, 0.0};
        (axis == 0 ? turn.x : axis == 1 ? turn.y : turn.z) = std::sin(half);
        all = turn * all;
    }
    return all;
}

// The other way round. Where y is turned by a right angle, the turn about z is put into that about x.
inline void degreesOf(const Quaternion& q, double (&degrees)[3]) {
    constexpr double unit = 180.0 / 3.14159265358979323846;
    const double sine = std::clamp(2.0 * (q.w * q.y - q.x * q.z), -1.0, 1.0);
    degrees[1] = std::asin(sine) * unit;
    if (std::fabs(sine) > 1.0 - 1e-12) {
        degrees[0] = 2.0 * std::atan2(q.x, q.w) * unit;
        degrees[2] = 0.0;
        return;
    }
    degrees[0] = std::atan2(2.0 * (q.w * q.x + q.y * q.z), 1.0 - 2.0 * (q.x * q.x + q.y * q.y)) * unit;
    degrees[2] = std::atan2(2.0 * (q.w * q.z + q.x * q.y), 1.0 - 2.0 * (q.y * q.y + q.z * q.z)) * unit;
}

}  // namespace oxbeam
