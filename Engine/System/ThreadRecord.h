// What a rendering thread keeps to itself.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <array>
#include <bit>
#include <cstdint>

class OxMersenneTwisterSampler;

namespace oxbeam {

class KnownHit;
struct ShadowAnswers;

struct ThreadRecord {
    static constexpr unsigned MostShadowLights = 8;

    // Counts since the thread began a tile, by the lowest bit of the ray's visibility mask (its kind).
    std::array<std::uint64_t, 32> rays{};
    std::uint64_t refusedRays = 0;  // rays that no hit can be found for
    unsigned sampleIndex = 0;       // pass that the thread renders
    // What the package draws the tile's random numbers from, where it is a sampler of the host's.
    OxMersenneTwisterSampler* sampler = nullptr;
    std::uint32_t pixel = 0;           // pixel that it shades: x in the lower half, y in the upper
    const KnownHit* hit = nullptr;     // what is known of that pixel's first hit, or null
    ShadowAnswers* shadows = nullptr;  // what is known of its shadow rays, or null
    // How often that was asked for in the tile, by lights.
    std::array<unsigned, MostShadowLights> shadowsAsked{};

    void countRays(std::uint32_t visibilityMask, unsigned number) {
        rays[static_cast<unsigned>(std::countr_zero(visibilityMask)) & 31u] += number;
    }

    // Of the calling thread.
    OXBEAM_API static ThreadRecord& mine();
};

}  // namespace oxbeam
