// Value types of two, three and four floats: points, vectors, texture coordinates and linear colours.
#pragma once

#include <cmath>

// Two floats: texture coordinates (s, t) or barycentric weights (u, v).
struct R2 {
    float x = 0.0f, y = 0.0f;

    constexpr R2() = default;
    constexpr R2(float x_, float y_) : x(x_), y(y_) {}
};

constexpr R2 operator+(const R2& a, const R2& b) { return {a.x + b.x, a.y + b.y}; }
constexpr R2 operator*(const R2& a, float s) { return {a.x * s, a.y * s}; }
constexpr R2 operator*(float s, const R2& a) { return a * s; }

// Three floats: a point or vector (x, y, z) or a colour (red, green, blue), linear and unclamped.
struct R3 {
    float x = 0.0f, y = 0.0f, z = 0.0f;

    constexpr R3() = default;
    constexpr R3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}

    constexpr float& operator[](unsigned i) { return i == 0 ? x : i == 1 ? y : z; }
    constexpr float operator[](unsigned i) const { return i == 0 ? x : i == 1 ? y : z; }

    constexpr R3& operator+=(const R3& b) {
        x += b.x, y += b.y, z += b.z;
        return *this;
    }
    constexpr R3& operator-=(const R3& b) {
        x -= b.x, y -= b.y, z -= b.z;
        return *this;
    }
    constexpr R3& operator*=(const R3& b) {
        x *= b.x, y *= b.y, z *= b.z;
        return *this;
    }
    constexpr R3& operator*=(float s) {
        x *= s, y *= s, z *= s;
        return *this;
    }
    constexpr bool operator==(const R3&) const = default;
};

using Color = R3;

constexpr R3 operator-(const R3& a) { return {-a.x, -a.y, -a.z}; }
constexpr R3 operator+(const R3& a, const R3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
constexpr R3 operator-(const R3& a, const R3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
constexpr R3 operator*(const R3& a, const R3& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
constexpr R3 operator*(const R3& a, float s) { return {a.x * s, a.y * s, a.z * s}; }
constexpr R3 operator*(float s, const R3& a) { return a * s; }
constexpr R3 operator/(const R3& a, const R3& b) { return {a.x / b.x, a.y / b.y, a.z / b.z}; }
constexpr R3 operator/(const R3& a, float s) { return {a.x / s, a.y / s, a.z / s}; }

constexpr float Dot(const R3& a, const R3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

constexpr R3 Cross(const R3& a, const R3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline float Length(const R3& a) { return std::sqrt(Dot(a, a)); }

// Unit vector along a; not finite where a has no length.
inline R3 Normalize(const R3& a) { return a * (1.0f / Length(a)); }

// Largest component.
constexpr float Max(const R3& a) {
    const float xy = a.x > a.y ? a.x : a.y;
    return xy > a.z ? xy : a.z;
}

// Mean of the components.
constexpr float Avg(const R3& a) { return (a.x + a.y + a.z) * (1.0f / 3.0f); }

// Luminance of a linear colour; turns a colour into the one weight by which rays are culled.
constexpr float Intensity(const R3& c) { return 0.3086f * c.x + 0.6094f * c.y + 0.082f * c.z; }

inline bool IsFinite(const R3& a) { return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z); }

// A colour with alpha: 0 clear, 1 opaque; the colour is not premultiplied.
struct RGBAFloat {
    float r = 0.0f, g = 0.0f, b = 0.0f, a = 0.0f;

    constexpr RGBAFloat() = default;
    constexpr RGBAFloat(float r_, float g_, float b_, float a_) : r(r_), g(g_), b(b_), a(a_) {}
    constexpr RGBAFloat(const R3& c, float alpha) : r(c.x), g(c.y), b(c.z), a(alpha) {}

    constexpr R3 rgb() const { return {r, g, b}; }
};

inline constexpr R3 zeroVector{0.0f, 0.0f, 0.0f};
inline constexpr Color Black{0.0f, 0.0f, 0.0f};
inline constexpr Color White{1.0f, 1.0f, 1.0f};
inline constexpr Color Red{1.0f, 0.0f, 0.0f};
inline constexpr Color Green{0.0f, 1.0f, 0.0f};
