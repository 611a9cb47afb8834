// What is known of a pixel's first hit before its surface asks: layers have told its normal and its texel already.
#pragma once

#include "Oxbeam/OxState.h"
#include "Oxbeam/OxTexture.h"

#include <cstddef>
#include <emmintrin.h>

namespace oxbeam {

class Texture;

// Answers are for the very hit that is asked about, to the last bit; any other is looked at as ever.
class KnownHit {
public:
    R3 normal;                         // as shadingNormal has it
    const Texture* texture = nullptr;  // the one whose texel is known, or null
    RGBAFloat texel;                   // as texelAt has it

    void noteHit(const OxState& state) {
        for (std::size_t i = 0; i < Parts; ++i) m_parts[i] = part(state, i);
    }
    bool knows(const OxState& state) const {
        __m128i same = _mm_set1_epi32(-1);
        for (std::size_t i = 0; i < Parts; ++i) same = _mm_and_si128(same, _mm_cmpeq_epi32(m_parts[i], part(state, i)));
        return _mm_movemask_epi8(same) == 0xffff;
    }

private:
    // All that a normal and a texel depend on, 16 bytes each, as it lies in memory: triangle and weights, geometric normal,
    // the ray's direction, object and instance.
    static constexpr std::size_t Parts = 4;
    static __m128i part(const OxState& state, std::size_t i) {
        static_assert(offsetof(Intersection, v) == offsetof(Intersection, tri) + 12);
        static_assert(offsetof(Intersection, normal) == offsetof(Intersection, w) + 4);
        static_assert(offsetof(OxState, instance) == offsetof(OxState, object) + 8);
        const void* const parts[Parts] = {&state.hit.tri, &state.hit.w, &state.ray.direction, &state.object};
        return _mm_loadu_si128(static_cast<const __m128i*>(parts[i]));
    }

    __m128i m_parts[Parts];
};

}  // namespace oxbeam
