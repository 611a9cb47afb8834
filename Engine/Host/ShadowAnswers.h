// Shadow rays of a point that were traced before they are asked for.
//
// A surface asks for one ray and waits for the answer, whereas the kernel traces eight that take the same way in little
// more time than one. An answer is for the very ray that is asked for, to the last bit; any other is traced as ever.
#pragma once

#include "Engine/System/ThreadRecord.h"
#include "Kernel/Ray.h"

#include <algorithm>
#include <bit>
#include <emmintrin.h>

namespace oxbeam {

// A shadow ray as the kernel reads it, but for what all have alike.
struct ShadowRay {
    // Of this length and more, a ray goes on for ever: nothing lies so far out.
    static constexpr float Endless = 1e19f;

    sse_t start;  // origin, and the smallest distance
    sse_t way;    // direction, and the largest distance

    static ShadowRay of(const Ray& ray) {
        const R3 &o = ray.origin, &d = ray.direction;
        const float end = ray.maxDist < Endless ? ray.maxDist : RayInfinity;
        return {_mm_setr_ps(o.x, o.y, o.z, std::max(ray.minHitDist, ray.minDist)), _mm_setr_ps(d.x, d.y, d.z, end)};
    }
    bool operator==(const ShadowRay& other) const {
        const auto same = [](sse_t a, sse_t b) { return _mm_cmpeq_epi32(_mm_castps_si128(a), _mm_castps_si128(b)); };
        return _mm_movemask_epi8(_mm_and_si128(same(start, other.start), same(way, other.way))) == 0xffff;
    }
};

struct ShadowAnswers {
    static constexpr unsigned MostLights = ThreadRecord::MostShadowLights;

    ShadowRay rays[MostLights];
    // Lights as bits: those whose ray was traced and nobody has asked for, and those that it does not reach. Surfaces ask
    // for lights in their order.
    unsigned open = 0, blocked = 0;

    // The light to which just this ray was traced, -1 where there is none.
    int find(const Ray& ray) {
        if (open == 0 || ray.visibilityMask != RAY_SHADOW) return -1;
        const ShadowRay wanted = ShadowRay::of(ray);
        for (unsigned rest = open; rest != 0; rest &= rest - 1) {
            const int light = std::countr_zero(rest);
            if (rays[light] != wanted) continue;
            open = rest & (rest - 1);
            return light;
        }
        return -1;
    }
};

}  // namespace oxbeam
