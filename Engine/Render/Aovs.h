// Layers beside the picture ("arbitrary output variables"): what the primary rays' hits are, before any shading.
#pragma once

#include "Engine/Render/Film.h"
#include "Engine/World/World.h"
#include "Oxbeam/OxState.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace oxbeam {

class KnownHit;

// Tells a primary ray's hit in numbers. Calls nothing of a package, so that what it shades is not changed.
class OXBEAM_API AovSampler {
public:
    // Of a world whose session is there; it must outlive this.
    explicit AovSampler(const World& world);

    // Of a ray that was shot. Where a mesh or a texture holds what is not finite, so does the sample.
    // What surfaces will ask for again is noted, of a ray that hits.
    void sample(const OxState& state, AovSample& to, KnownHit& known) const;
    // Of as many as the span has, with the same bits.
    void sample(std::span<const OxState> states, AovSample* to, KnownHit* known) const;

private:
    R3 albedo(const OxState& state, KnownHit& known) const;
    void sampleFour(const OxState* four, AovSample* to, KnownHit* known) const;

    R3 m_eye, m_forward;
    std::vector<BaseColor> m_baseColors;  // by the context's numbers
};

enum class Aov { Depth, Normal, Albedo, Object, Samples };

// Their names, in the order of the enumeration.
OXBEAM_API const std::vector<std::string>& aovNames();

// Channels of a picture, and what puts a pixel's values of them into place.
struct Layer {
    std::vector<std::string> channels;
    std::function<void(std::size_t pixel, float* to)> values;
};

// Of a finished film, which must outlive it. All but the samples need one that keeps AOVs.
OXBEAM_API Layer layerOf(Aov aov, const Film& film);

}  // namespace oxbeam
