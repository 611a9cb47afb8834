// What a display shows of linear light: exposure and tone curves.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <string>
#include <vector>

namespace oxbeam {

// How light beyond what a display shows is brought into its range.
// Filmic: K. Narkowicz, "ACES filmic tone mapping curve" (2015), a fit to the film look of the Academy's system.
// Neutral: Khronos Group, "PBR neutral tone mapper" (2024), which leaves base colours as they are.
enum class ToneCurve { None, Filmic, Neutral };

// Their names, in the order of the enumeration.
OXBEAM_API const std::vector<std::string>& toneCurveNames();

struct Tone {
    float exposure = 0.0f;  // EV: each doubles the light
    ToneCurve curve = ToneCurve::None;

    bool operator==(const Tone&) const = default;
};

// Exposures beyond this make every picture black or white.
inline constexpr float MostExposure = 64.0f;

// A linear colour as a display is to show it, still linear. A curve brings all light into [0, 1], and takes what is
// negative or NaN as none; without one, what lies outside stays there.
OXBEAM_API R3 toned(const R3& light, const Tone& tone);

}  // namespace oxbeam
