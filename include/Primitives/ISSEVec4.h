// Four vectors of three components in structure-of-arrays form, for code that treats four rays at once.
#pragma once

#include "Primitives/Vec.h"

#include <xmmintrin.h>

// Four floats, or a mask of four lanes; v[i] is lane i.
using sse_t = __m128;

struct ISSEVec4 {
    sse_t t[3];  // x, y and z of the four lanes

    ISSEVec4() : t{_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()} {}
    ISSEVec4(sse_t x, sse_t y, sse_t z) : t{x, y, z} {}
    // Lane by lane.
    ISSEVec4(const R3& a, const R3& b, const R3& c, const R3& d)
        : t{_mm_setr_ps(a.x, b.x, c.x, d.x), _mm_setr_ps(a.y, b.y, c.y, d.y), _mm_setr_ps(a.z, b.z, c.z, d.z)} {}
    explicit ISSEVec4(const R3& v) : t{_mm_set1_ps(v.x), _mm_set1_ps(v.y), _mm_set1_ps(v.z)} {}

    R3 lane(unsigned i) const { return {t[0][i], t[1][i], t[2][i]}; }
    void setLane(unsigned i, const R3& v) { t[0][i] = v.x, t[1][i] = v.y, t[2][i] = v.z; }
};

inline ISSEVec4 operator+(const ISSEVec4& a, const ISSEVec4& b) {
    return {_mm_add_ps(a.t[0], b.t[0]), _mm_add_ps(a.t[1], b.t[1]), _mm_add_ps(a.t[2], b.t[2])};
}
inline ISSEVec4 operator-(const ISSEVec4& a, const ISSEVec4& b) {
    return {_mm_sub_ps(a.t[0], b.t[0]), _mm_sub_ps(a.t[1], b.t[1]), _mm_sub_ps(a.t[2], b.t[2])};
}
// Each lane by its own factor.
inline ISSEVec4 operator*(sse_t s, const ISSEVec4& a) {
    return {_mm_mul_ps(s, a.t[0]), _mm_mul_ps(s, a.t[1]), _mm_mul_ps(s, a.t[2])};
}
inline ISSEVec4 operator*(float s, const ISSEVec4& a) { return _mm_set1_ps(s) * a; }

inline sse_t Dot(const ISSEVec4& a, const ISSEVec4& b) {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.t[0], b.t[0]), _mm_mul_ps(a.t[1], b.t[1])), _mm_mul_ps(a.t[2], b.t[2]));
}

// Each lane has the bits that it would have alone.
inline ISSEVec4 Normalize(const ISSEVec4& a) { return _mm_div_ps(_mm_set1_ps(1.0f), _mm_sqrt_ps(Dot(a, a))) * a; }
