// What is asked of four neighbouring hits at once, lane by lane, with the bits that each has alone.
#pragma once

#include "Oxbeam/OxState.h"
#include "Primitives/ISSEVec4.h"

namespace oxbeam {

// A vector that each of four states tells.
template <class Of>
ISSEVec4 lanesOf(const OxState* four, const Of& of) {
    return {of(four[0]), of(four[1]), of(four[2]), of(four[3])};
}

struct FourHits {
    ISSEVec4 direction;  // of the rays
    ISSEVec4 position;   // as oxsGetHitPosition has it
    ISSEVec4 normal;     // geometric

    explicit FourHits(const OxState* four)
        : direction(lanesOf(four, [](const OxState& state) { return state.ray.direction; })),
          position(lanesOf(four, [](const OxState& state) { return state.ray.origin; }) +
                   _mm_setr_ps(four[0].hit.dist, four[1].hit.dist, four[2].hit.dist, four[3].hit.dist) * direction),
          normal(lanesOf(four, [](const OxState& state) { return state.hit.normal; })) {}
};

}  // namespace oxbeam
