// Where on a triangle a ray hits it, in arithmetic that is the same on every processor.
//
// The traversal kernel divides by multiplying with an estimated reciprocal, and makers of processors estimate it
// differently: its distances and barycentric coordinates differ in their last bits from one make to another, and glass
// and mirrors turn last bits into other pictures. Which triangle is hit hardly ever depends on them. So the triangle is
// the kernel's word, and the point on it is worked out here.
#pragma once

#include "Primitives/ISSEVec4.h"

#include <cmath>

namespace oxbeam {

struct HitPoint {
    float distance;  // in lengths of the direction
    float u, v;      // barycentric weights of the second and the third corner
    R3 normal;       // (second - first) x (third - first)
};

// Of a triangle. 16 bytes are read of each point.
struct Corners {
    sse_t a, b, c;

    Corners(const R3& p, const R3& q, const R3& r)
        : a(_mm_loadu_ps(&p.x)), b(_mm_loadu_ps(&q.x)), c(_mm_loadu_ps(&r.x)) {}
};

template <int x, int y, int z>
sse_t shuffled(sse_t v) {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(3, z, y, x));
}

inline sse_t cross(sse_t v, sse_t w) {
    return _mm_sub_ps(_mm_mul_ps(shuffled<1, 2, 0>(v), shuffled<2, 0, 1>(w)),
                      _mm_mul_ps(shuffled<2, 0, 1>(v), shuffled<1, 2, 0>(w)));
}

inline ISSEVec4 cross(const ISSEVec4& v, const ISSEVec4& w) {
    const auto minor = [&](int i, int j) { return _mm_sub_ps(_mm_mul_ps(v.t[i], w.t[j]), _mm_mul_ps(v.t[j], w.t[i])); };
    return {minor(1, 2), minor(2, 0), minor(0, 1)};
}

inline R3 toR3(sse_t v) { return {v[0], v[1], v[2]}; }

// Lane by lane: the ray's edge functions, of all three edges at once, in a space around its origin (A. Kensler, P.
// Shirley, "Optimizing Ray-Triangle Intersection via Automated Search", 2006).
inline sse_t edgeFunctions(sse_t a, sse_t b, sse_t c, sse_t direction) {
    const sse_t low = _mm_unpacklo_ps(a, b), high = _mm_unpackhi_ps(a, b);
    const ISSEVec4 to(_mm_shuffle_ps(low, c, _MM_SHUFFLE(0, 0, 1, 0)), _mm_shuffle_ps(low, c, _MM_SHUFFLE(1, 1, 3, 2)),
                      _mm_shuffle_ps(high, c, _MM_SHUFFLE(2, 2, 1, 0)));
    const ISSEVec4 from(shuffled<2, 0, 1>(to.t[0]), shuffled<2, 0, 1>(to.t[1]), shuffled<2, 0, 1>(to.t[2]));
    return Dot(cross(from - to, from + to),
               ISSEVec4(shuffled<0, 0, 0>(direction), shuffled<1, 1, 1>(direction), shuffled<2, 2, 2>(direction)));
}

// What the kernel found is kept where the triangle is seen so exactly from its edge, or from so far, that nothing better
// comes out.
inline HitPoint hitPoint(const Corners& corners, sse_t origin, sse_t direction, const HitPoint& found) {
    const sse_t a = _mm_sub_ps(corners.a, origin), b = _mm_sub_ps(corners.b, origin), c = _mm_sub_ps(corners.c, origin);
    const sse_t weights = edgeFunctions(a, b, c, direction);
    const float whole = weights[0] + weights[1] + weights[2];
    HitPoint point{};
    point.normal = toR3(cross(_mm_sub_ps(corners.b, corners.a), _mm_sub_ps(corners.c, corners.a)));
    point.distance = Dot(toR3(a), point.normal) / Dot(toR3(direction), point.normal);
    point.u = weights[0] / whole;
    point.v = weights[1] / whole;
    const bool sound = std::isfinite(point.distance) && std::isfinite(point.u) && std::isfinite(point.v);
    return sound ? point : found;
}

}  // namespace oxbeam
