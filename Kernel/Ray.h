// What a ray is, alone and in a packet of four.
#pragma once

#include "Primitives/ISSEVec4.h"
#include "Primitives/Vec.h"

#include <cstdint>
#include <limits>

inline constexpr float RayInfinity = std::numeric_limits<float>::infinity();

// Ray kinds, as bits of a visibility mask: an instance is hit only by rays whose bit its own mask carries.
enum RayKind : std::uint32_t {
    RAY_PRIMARY = 1,
    RAY_SHADOW = 2,
    RAY_TRANSPARENCY = 4,
    RAY_REFRACTION = 8,
    RAY_REFLECTION = 16,
    RAY_ALL = 0xffffffffu
};

// All distances are parameters along the direction, which need not be of unit length.
struct Ray {
    R3 origin;
    R3 direction;
    float minHitDist = 0.0f;  // hits nearer than this are ignored: the protection against hitting one's own surface
    float minDist = 0.0f;     // the ray's interval
    float maxDist = RayInfinity;
    float clippedNear = 0.0f;
    float clippedFar = RayInfinity;
    std::uint32_t visibilityMask = RAY_ALL;
    std::uint32_t clippingMask = 0;
    void* privatePtr = nullptr;  // belongs to the shading package: its record of this ray
    int depth = 0;               // 0 for a primary ray
    int privateInt = 0;
    float privateFloat = 0.0f;
};

struct ISSERay4 {
    ISSEVec4 direction;
    ISSEVec4 origin;
    float minHitDist = 0.0f;
    sse_t maxDist = _mm_set1_ps(RayInfinity);
    void* privatePtr = nullptr;  // one for the packet
};
